// On a real X server with two screens (Xvfb, 800x600 primary and 640x480;
// started by tests/scripts/run-under-xvfb.sh): the screen the splash appears on,
// and screenshots of zentdemo showing its splash and then its main window,
// kept as PNG files in the build folder for a look by eye.
#include "application/zentapplication.h"
#include "application/zentsplash.h"
#include "kvbase/errorhandler.h"
#include "zentapplication/startuptestsupport.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QScreen>
#include <QSet>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

namespace {

const QString APP_KEY = QStringLiteral("ScreenApp");
const QSize SPLASH_SIZE(200, 120);
const QColor SPLASH_COLOUR(0x20, 0x80, 0x40);
const QString DEMO_PROGRAM = QStringLiteral(ZENT_DEMO_PROGRAM);
const QString DEMO_DATA = QStringLiteral(ZENT_DEMO_DATA_DIR);
// A point on the orange line of the demo's splash image, and its colour.
const QPoint DEMO_SPLASH_MARK(100, 175);
const QColor DEMO_SPLASH_MARK_COLOUR(0xf5, 0xa6, 0x23);

QString OutputPath(const QString& fileName)
{
    return qEnvironmentVariable("ZENT_SCREENSHOT_DIR", QStringLiteral(".")) + QLatin1Char('/') + fileName;
}

bool Near(const QColor& a, const QColor& b)
{
    return qAbs(a.red() - b.red()) < 24 && qAbs(a.green() - b.green()) < 24 && qAbs(a.blue() - b.blue()) < 24;
}

int DistinctColours(const QImage& image)
{
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); y += 2)
        for (int x = 0; x < image.width(); x += 2)
            colours.insert(image.pixel(x, y));
    return colours.size();
}

QImage GrabScreen(QScreen* screen)
{
    return screen->grabWindow(0).toImage().convertToFormat(QImage::Format_RGB32);
}

} // namespace

class TestZentApplicationScreens : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void splashAppearsOnTheStoredSecondScreen();
    void splashForScreenSevenAppearsOnThePrimaryScreen();
    void demoScreenshotsShowSplashAndMainWindow();

private:
    void RunSplashOn(const QString& geometry, int expectedScreen, const QString& screenshot);

    QTemporaryDir m_runtimeDir;
    QByteArray m_savedRuntimeDir;
};

void TestZentApplicationScreens::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    QVERIFY2(m_runtimeDir.isValid(), qPrintable(m_runtimeDir.errorString()));
    QCOMPARE(qEnvironmentVariable("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    m_savedRuntimeDir = qgetenv("XDG_RUNTIME_DIR");
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_runtimeDir.path()));
}

void TestZentApplicationScreens::cleanupTestCase()
{
    qputenv("XDG_RUNTIME_DIR", m_savedRuntimeDir);
}

void TestZentApplicationScreens::RunSplashOn(const QString& geometry, int expectedScreen,
                                             const QString& screenshot)
{
    QTemporaryDir dir;
    QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
    const QString previous = QDir::currentPath();
    QVERIFY(QDir::setCurrent(dir.path()));
    QImage image(SPLASH_SIZE, QImage::Format_RGB32);
    image.fill(SPLASH_COLOUR);
    QVERIFY(image.save(dir.filePath(QStringLiteral("splash.png"))));
    QVERIFY(WriteFile(
        QStringLiteral("Cfg.xml"),
        StartupCfg(APP_KEY,
                   QStringLiteral("<Startup><SplashImage>splash.png</SplashImage>"
                                  "<SplashTimeout>1</SplashTimeout></Startup>"),
                   QStringLiteral("<GuiBase_main><Geometry>%1</Geometry></GuiBase_main>").arg(geometry))));
    CommandLine line({QByteArrayLiteral("tst_zentapplicationscreens"), APP_KEY.toLatin1(),
                      QByteArrayLiteral("Xml:Cfg.xml")});
    // On a real display messages would wait in a box for somebody to click.
    QStringList messages;
    ErrorHandler::Instance().SetMessagePresenter(
        [&messages](ErrorHandler::MessageKind, const QString& text) { messages << text; });
    {
        ZentApplication app;
        app.Init(line.argc(), line.argv(), false);
        const QList<QScreen*> screens = QGuiApplication::screens();
        QCOMPARE(screens.size(), 2);
        QScreen* screen = screens.at(expectedScreen);
        ZentSplash* splash = nullptr;
        for (QWidget* widget : QApplication::topLevelWidgets())
            splash = splash ? splash : qobject_cast<ZentSplash*>(widget);
        QVERIFY(splash);
        QVERIFY(QTest::qWaitForWindowExposed(splash));
        QCOMPARE(splash->screen(), screen);
        const QRect area = screen->availableGeometry();
        const QPoint centred(area.left() + (area.width() - SPLASH_SIZE.width()) / 2,
                             area.top() + (area.height() - SPLASH_SIZE.height()) / 2);
        QCOMPARE(splash->pos(), centred);
        QTest::qWait(300);
        const QImage shot = GrabScreen(screen);
        QVERIFY(shot.save(OutputPath(screenshot)));
        QVERIFY(Near(shot.pixelColor(centred + QPoint(SPLASH_SIZE.width() / 2, SPLASH_SIZE.height() / 2)),
                     SPLASH_COLOUR));
    }
    ErrorHandler::Instance().SetMessagePresenter(ErrorHandler::MessagePresenter());
    QCOMPARE(messages,
             QStringList({QStringLiteral("Application configuration ( key=ScreenApp, type=Xml:Cfg.xml ) "
                                         "created successfully.")}));
    QDir::setCurrent(previous);
}

void TestZentApplicationScreens::splashAppearsOnTheStoredSecondScreen()
{
    RunSplashOn(QStringLiteral("1,10,10,400,300,0"), 1, QStringLiteral("splash-stored-screen-1.png"));
}

void TestZentApplicationScreens::splashForScreenSevenAppearsOnThePrimaryScreen()
{
    RunSplashOn(QStringLiteral("7,10,10,400,300,0"), 0, QStringLiteral("splash-stored-screen-7.png"));
}

void TestZentApplicationScreens::demoScreenshotsShowSplashAndMainWindow()
{
    int argc = 1;
    char name[] = "tst_zentapplicationscreens";
    char* argv[] = {name, nullptr};
    QApplication viewer(argc, argv);
    QTemporaryDir dir;
    QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
    for (const QString& file : {QStringLiteral("Cfg.xml"), QStringLiteral("splash.png")})
        QVERIFY(QFile::copy(DEMO_DATA + QLatin1Char('/') + file, dir.filePath(file)));

    QProcess demo;
    demo.setWorkingDirectory(dir.path());
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("zent.trace.debug=true"));
    environment.insert(QStringLiteral("XDG_DATA_HOME"), dir.filePath(QStringLiteral("data")));
    demo.setProcessEnvironment(environment);
    QString errors;
    connect(&demo, &QProcess::readyReadStandardError,
            [&demo, &errors] { errors += QString::fromUtf8(demo.readAllStandardError()); });
    demo.start(DEMO_PROGRAM,
               {QStringLiteral("DemoApp"), QStringLiteral("Xml:Cfg.xml"), QStringLiteral("--quit-after=8")});
    auto waitForTrace = [&errors, &demo](const QString& text) {
        QElapsedTimer clock;
        clock.start();
        while (!errors.contains(text) && demo.state() != QProcess::NotRunning && clock.elapsed() < 30000)
            QTest::qWait(20);
        return errors.contains(text);
    };

    QScreen* primary = QGuiApplication::primaryScreen();
    QVERIFY2(waitForTrace(QStringLiteral("Demo plug-in: main window shown")), qPrintable(errors));
    QTest::qWait(700);
    const QImage withSplash = GrabScreen(primary);
    QVERIFY(withSplash.save(OutputPath(QStringLiteral("zentdemo-splash.png"))));
    // The splash picture is centred on the primary screen, above the main window.
    const QImage picture(dir.filePath(QStringLiteral("splash.png")));
    const QRect area = primary->availableGeometry();
    const QPoint splashAt(area.left() + (area.width() - picture.width()) / 2,
                          area.top() + (area.height() - picture.height()) / 2);
    QVERIFY(Near(picture.pixelColor(DEMO_SPLASH_MARK), DEMO_SPLASH_MARK_COLOUR));
    QVERIFY(Near(withSplash.pixelColor(splashAt + DEMO_SPLASH_MARK), DEMO_SPLASH_MARK_COLOUR));

    QVERIFY2(waitForTrace(QStringLiteral("Demo plug-in: splash hidden")), qPrintable(errors));
    QTest::qWait(700);
    const QImage mainWindow = GrabScreen(primary);
    QVERIFY(mainWindow.save(OutputPath(QStringLiteral("zentdemo-main.png"))));
    QVERIFY(!Near(mainWindow.pixelColor(splashAt + DEMO_SPLASH_MARK), DEMO_SPLASH_MARK_COLOUR));
    QVERIFY2(DistinctColours(mainWindow) > 20, "the main window is drawn");

    QVERIFY(demo.waitForFinished(30000));
    QCOMPARE(demo.exitStatus(), QProcess::NormalExit);
    QVERIFY2(demo.exitCode() == 0, qPrintable(errors));
}

int main(int argc, char** argv)
{
    TestZentApplicationScreens test;
    return RunEachTestInItsOwnProcess(test, argc, argv);
}

#include "tst_zentapplicationscreens.moc"
