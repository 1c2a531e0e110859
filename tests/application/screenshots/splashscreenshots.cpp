#include "application/splash.h"
#include "application/zentsplash.h"

#include <QGuiApplication>
#include <QImage>
#include <QLabel>
#include <QLayout>
#include <QLinearGradient>
#include <QPainter>
#include <QProgressBar>
#include <QScreen>
#include <QSet>
#include <QStandardPaths>
#include <QTest>

#include <memory>

namespace {

const QSize PICTURE_SIZE(360, 200);
const QColor PICTURE_CORNER(0x10, 0x30, 0x80);

/// A start-up picture with a gradient and a frame, so that a screenshot
/// shows at a glance whether it was drawn.
QPixmap makePicture()
{
    QPixmap picture(PICTURE_SIZE);
    QPainter painter(&picture);
    QLinearGradient gradient(0, 0, PICTURE_SIZE.width(), PICTURE_SIZE.height());
    gradient.setColorAt(0, PICTURE_CORNER);
    gradient.setColorAt(1, QColor(0x40, 0xa0, 0xe0));
    painter.fillRect(picture.rect(), gradient);
    painter.fillRect(QRect(0, 0, 20, 20), PICTURE_CORNER);
    painter.setPen(QPen(Qt::white, 4));
    painter.drawRect(QRect(30, 30, PICTURE_SIZE.width() - 60, PICTURE_SIZE.height() - 60));
    painter.setFont(QFont(QStringLiteral("sans"), 28, QFont::Bold));
    painter.drawText(picture.rect(), Qt::AlignCenter, QStringLiteral("Zent"));
    return picture;
}

int distinctColours(const QImage& image)
{
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            colours.insert(image.pixel(x, y));
    return colours.size();
}

QString outputPath(const QString& fileName)
{
    const QString dir = qEnvironmentVariable("ZENT_SCREENSHOT_DIR", QStringLiteral("."));
    return dir + QLatin1Char('/') + fileName;
}

/// What the X server shows of the window, at the window's size.
QImage onScreen(QWidget& widget)
{
    return widget.screen()->grabWindow(widget.winId()).toImage().convertToFormat(QImage::Format_RGB32);
}

} // namespace

class TestSplashScreenshots : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void zentSplashShowsPictureTextAndBusyBar();
    void splashShowsTitleSubtitleAndProgress();
};

void TestSplashScreenshots::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    QCOMPARE(QGuiApplication::platformName(), QStringLiteral("xcb"));
}

void TestSplashScreenshots::zentSplashShowsPictureTextAndBusyBar()
{
    ZentSplash splash(makePicture());
    splash.Write2Splash(QStringLiteral("Loading plug-ins"));
    splash.showMovingProgress();
    splash.show();
    QVERIFY(QTest::qWaitForWindowExposed(&splash));
    QTest::qWait(300);

    auto* text = qobject_cast<QLabel*>(splash.layout()->itemAt(1)->widget());
    auto* bar = splash.findChild<QProgressBar*>();
    QVERIFY(text);
    QVERIFY(bar);
    QCOMPARE(splash.width(), PICTURE_SIZE.width());
    QCOMPARE(splash.height(), PICTURE_SIZE.height() + text->height() + bar->height());

    const QImage grabbed = splash.grab().toImage();
    QVERIFY(grabbed.save(outputPath(QStringLiteral("zentsplash.png"))));
    QCOMPARE(grabbed.size(), splash.size() * splash.devicePixelRatioF());

    const QImage screen = onScreen(splash);
    QVERIFY(screen.save(outputPath(QStringLiteral("zentsplash-screen.png"))));
    QCOMPARE(screen.size(), splash.size());
    QCOMPARE(QColor(screen.pixel(5, 5)), PICTURE_CORNER);
    QVERIFY2(distinctColours(screen) > 50, "the splash on screen is drawn, not one flat colour");
    // The text line below the picture has dark glyphs on the window background.
    const QImage textRow = screen.copy(0, PICTURE_SIZE.height(), screen.width(), text->height());
    QVERIFY2(distinctColours(textRow) > 2, "the text line shows glyphs");
}

void TestSplashScreenshots::splashShowsTitleSubtitleAndProgress()
{
    Splash splash(makePicture().scaled(96, 64), "Zent Demo", "Starting the application", true);
    splash.setProgressText(QStringLiteral("Reading configuration"));
    splash.setProgressValue(40);
    QVERIFY(QTest::qWaitForWindowExposed(&splash));
    QTest::qWait(300);

    QCOMPARE(splash.size(), splash.layout()->totalSizeHint().expandedTo(splash.minimumSizeHint()));
    const QImage grabbed = splash.grab().toImage();
    QVERIFY(grabbed.save(outputPath(QStringLiteral("splash.png"))));
    QCOMPARE(grabbed.size(), splash.size() * splash.devicePixelRatioF());

    const QImage screen = onScreen(splash);
    QVERIFY(screen.save(outputPath(QStringLiteral("splash-screen.png"))));
    QCOMPARE(screen.size(), splash.size());
    QVERIFY2(distinctColours(screen) > 20, "the dialog on screen is drawn, not one flat colour");
    auto* bar = splash.findChild<QProgressBar*>();
    QVERIFY(bar);
    const QRect barRect(bar->mapTo(&splash, QPoint(0, 0)), bar->size());
    QVERIFY2(distinctColours(screen.copy(barRect)) > 2, "the progress bar is drawn");
}

QTEST_MAIN(TestSplashScreenshots)
#include "splashscreenshots.moc"
