#include "application/zentsplash.h"

#include "common/recordingwriter.h"
#include "kvbase/errorhandler.h"

#include <QApplication>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QStyle>
#include <QStyleFactory>
#include <QTest>
#include <QTimer>
#include <QVBoxLayout>

namespace {

QPixmap makePicture(const QSize& size)
{
    QPixmap picture(size);
    picture.fill(Qt::darkBlue);
    return picture;
}

QLabel* pictureLabelOf(ZentSplash& splash)
{
    return qobject_cast<QLabel*>(splash.layout()->itemAt(0)->widget());
}

/// Runs the application's event loop; a loop that nobody quits ends after
/// five seconds with the result 1.
int runEventLoopWithWatchdog()
{
    QTimer watchdog;
    watchdog.setSingleShot(true);
    QObject::connect(&watchdog, &QTimer::timeout, [] { QCoreApplication::exit(1); });
    watchdog.start(5000);
    return QCoreApplication::exec();
}

} // namespace

class TestZentSplash : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void constructionMakesFramelessSplashWithPictureLabel();
    void constructionWithoutPictureLeavesLabelEmpty();
    void setPixmapReplacesThePicture();
    void timerRaisesEveryHundredMilliseconds();
    void timerKeepsSplashAboveLaterSiblings();
    void write2SplashCreatesBoldUpperCaseLabelOnce();
    void write2SplashEmptyBeforeAnyTextLeavesNoLabel();
    void write2SplashEmptyRemovesTheLabel();
    void showMovingProgressTwiceCreatesOneBusyBar();
    void progressBarUsesWindowsXpStyleOnlyWhereItExists();
    void hideProgressRemovesTheBar();
    void hideProgressWithoutBarDoesNothing();
    void quitButtonWithEmptyTextShowsQuit();
    void quitButtonKeepsGivenText();
    void everyQuitButtonCallAddsAButton();
    void clickOnQuitButtonEndsEventLoopAndTraces();
    void cancelWithTracingOffStillQuitsWithoutTrace();

private:
    QStringList m_traces;
    unsigned m_savedMask = 0;
};

void TestZentSplash::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
}

void TestZentSplash::init()
{
    m_traces.clear();
    m_savedMask = ErrorHandler::Instance().GetMessageMask();
    ErrorHandler::Instance().ResetMessageMask(ErrorHandler::DEFAULT_MESSAGE_MASK);
    ErrorHandler::Instance().SetLogTracer(new RecordingWriter(&m_traces));
}

void TestZentSplash::cleanup()
{
    ErrorHandler::Instance().SetLogTracer(nullptr);
    ErrorHandler::Instance().ResetMessageMask(m_savedMask);
}

void TestZentSplash::constructionMakesFramelessSplashWithPictureLabel()
{
    ZentSplash splash(makePicture(QSize(40, 30)));

    QCOMPARE(splash.objectName(), QStringLiteral("SplashScreen"));
    QVERIFY(splash.windowFlags().testFlag(Qt::SplashScreen));
    QVERIFY(splash.windowFlags().testFlag(Qt::FramelessWindowHint));
    auto* box = qobject_cast<QVBoxLayout*>(splash.layout());
    QVERIFY(box);
    QCOMPARE(box->spacing(), 0);
    QCOMPARE(box->contentsMargins(), QMargins(0, 0, 0, 0));
    QCOMPARE(box->count(), 1);
    QLabel* picture = pictureLabelOf(splash);
    QVERIFY(picture);
    QCOMPARE(picture->parent(), &splash);
    QCOMPARE(picture->indent(), 0);
    QCOMPARE(picture->margin(), 0);
    QCOMPARE(picture->pixmap(Qt::ReturnByValue).size(), QSize(40, 30));
    QCOMPARE(splash.findChildren<QLabel*>().size(), 1);
    QCOMPARE(splash.findChildren<QProgressBar*>().size(), 0);
    QCOMPARE(splash.findChildren<QPushButton*>().size(), 0);
}

void TestZentSplash::constructionWithoutPictureLeavesLabelEmpty()
{
    ZentSplash splash;

    QCOMPARE(splash.objectName(), QStringLiteral("SplashScreen"));
    QCOMPARE(splash.layout()->count(), 1);
    QLabel* picture = pictureLabelOf(splash);
    QVERIFY(picture);
    QVERIFY(picture->pixmap(Qt::ReturnByValue).isNull());
}

void TestZentSplash::setPixmapReplacesThePicture()
{
    ZentSplash splash(makePicture(QSize(10, 10)));
    splash.setPixmap(makePicture(QSize(64, 48)));

    QCOMPARE(pictureLabelOf(splash)->pixmap(Qt::ReturnByValue).size(), QSize(64, 48));
    QCOMPARE(splash.layout()->count(), 1);
}

void TestZentSplash::timerRaisesEveryHundredMilliseconds()
{
    ZentSplash splash;

    const QList<QTimer*> timers = splash.findChildren<QTimer*>(QString(), Qt::FindDirectChildrenOnly);
    QCOMPARE(timers.size(), 1);
    QVERIFY(timers.first()->isActive());
    QCOMPARE(timers.first()->interval(), 100);
    QCOMPARE(timers.first()->isSingleShot(), false);
    QSignalSpy fired(timers.first(), &QTimer::timeout);
    QVERIFY(fired.wait(1000));
}

void TestZentSplash::timerKeepsSplashAboveLaterSiblings()
{
    // Inside a parent the stacking order is the order of the parent's
    // children, which makes raise() observable on any platform.
    QWidget container;
    auto* splash = new ZentSplash;
    splash->setParent(&container, Qt::Widget);
    auto* sibling = new QWidget(&container);
    QCOMPARE(container.children().last(), sibling);

    QTRY_COMPARE_WITH_TIMEOUT(container.children().last(), static_cast<QObject*>(splash), 1000);
}

void TestZentSplash::write2SplashCreatesBoldUpperCaseLabelOnce()
{
    ZentSplash splash(makePicture(QSize(20, 20)));
    splash.show();
    splash.Write2Splash(QStringLiteral("Loading plug-ins"));

    QCOMPARE(splash.layout()->count(), 2);
    auto* text = qobject_cast<QLabel*>(splash.layout()->itemAt(1)->widget());
    QVERIFY(text);
    QCOMPARE(text->parent(), &splash);
    QCOMPARE(text->text(), QStringLiteral("Loading plug-ins"));
    QCOMPARE(text->font().weight(), 75);
    QCOMPARE(text->font().capitalization(), QFont::AllUppercase);
    QCOMPARE(text->font().family(), pictureLabelOf(splash)->font().family());
    QCOMPARE(text->font().pointSize(), pictureLabelOf(splash)->font().pointSize());
    QVERIFY(text->isVisible());

    splash.Write2Splash(QStringLiteral("Reading configuration"));
    QCOMPARE(splash.layout()->count(), 2);
    QCOMPARE(splash.layout()->itemAt(1)->widget(), text);
    QCOMPARE(text->text(), QStringLiteral("Reading configuration"));
    QCOMPARE(splash.findChildren<QLabel*>().size(), 2);
}

void TestZentSplash::write2SplashEmptyBeforeAnyTextLeavesNoLabel()
{
    ZentSplash splash(makePicture(QSize(20, 20)));
    splash.Write2Splash(QString());

    QCOMPARE(splash.layout()->count(), 1);
    QCOMPARE(splash.findChildren<QLabel*>().size(), 1);
    QCOMPARE(splash.findChildren<QLabel*>().first(), pictureLabelOf(splash));
}

void TestZentSplash::write2SplashEmptyRemovesTheLabel()
{
    ZentSplash splash(makePicture(QSize(20, 20)));
    splash.Write2Splash(QStringLiteral("first"));
    QCOMPARE(splash.findChildren<QLabel*>().size(), 2);

    splash.Write2Splash(QString());
    QCOMPARE(splash.layout()->count(), 1);
    QCOMPARE(splash.findChildren<QLabel*>().size(), 1);

    splash.Write2Splash(QStringLiteral("again"));
    QCOMPARE(splash.layout()->count(), 2);
    QCOMPARE(qobject_cast<QLabel*>(splash.layout()->itemAt(1)->widget())->text(), QStringLiteral("again"));
}

void TestZentSplash::showMovingProgressTwiceCreatesOneBusyBar()
{
    ZentSplash splash(makePicture(QSize(20, 20)));
    splash.showMovingProgress();
    splash.showMovingProgress();

    const QList<QProgressBar*> bars = splash.findChildren<QProgressBar*>();
    QCOMPARE(bars.size(), 1);
    QCOMPARE(splash.layout()->count(), 2);
    QCOMPARE(splash.layout()->itemAt(1)->widget(), bars.first());
    QCOMPARE(bars.first()->minimum(), 0);
    QCOMPARE(bars.first()->maximum(), 0);
    QCOMPARE(bars.first()->value(), 0);
    QCOMPARE(bars.first()->isTextVisible(), false);
}

void TestZentSplash::progressBarUsesWindowsXpStyleOnlyWhereItExists()
{
    const bool styleExists = QStyleFactory::keys().contains(QStringLiteral("windowsxp"), Qt::CaseInsensitive);
    ZentSplash splash;
    splash.showMovingProgress();

    QProgressBar* bar = splash.findChild<QProgressBar*>();
    QVERIFY(bar);
    QCOMPARE(bar->style() != QApplication::style(), styleExists);
}

void TestZentSplash::hideProgressRemovesTheBar()
{
    ZentSplash splash;
    splash.showMovingProgress();
    splash.hideProgress();

    QCOMPARE(splash.findChildren<QProgressBar*>().size(), 0);
    QCOMPARE(splash.layout()->count(), 1);

    splash.showMovingProgress();
    QCOMPARE(splash.findChildren<QProgressBar*>().size(), 1);
}

void TestZentSplash::hideProgressWithoutBarDoesNothing()
{
    ZentSplash splash;
    splash.hideProgress();

    QCOMPARE(splash.layout()->count(), 1);
    QCOMPARE(splash.findChildren<QProgressBar*>().size(), 0);
}

void TestZentSplash::quitButtonWithEmptyTextShowsQuit()
{
    ZentSplash splash;
    splash.SplashShowQuitButton(QString());

    QPushButton* button = splash.findChild<QPushButton*>();
    QVERIFY(button);
    QCOMPARE(button->text(), QStringLiteral("QUIT"));
    QCOMPARE(button->minimumSize(), QSize(150, 30));
    QCOMPARE(button->maximumSize(), QSize(150, 30));
    QCOMPARE(splash.layout()->count(), 2);
    QCOMPARE(splash.layout()->itemAt(1)->widget(), button);
}

void TestZentSplash::quitButtonKeepsGivenText()
{
    ZentSplash splash;
    splash.SplashShowQuitButton(QStringLiteral("Abbrechen"));

    QCOMPARE(splash.findChild<QPushButton*>()->text(), QStringLiteral("Abbrechen"));
}

void TestZentSplash::everyQuitButtonCallAddsAButton()
{
    ZentSplash splash;
    splash.SplashShowQuitButton(QStringLiteral("one"));
    splash.SplashShowQuitButton(QStringLiteral("two"));

    QCOMPARE(splash.findChildren<QPushButton*>().size(), 2);
    QCOMPARE(splash.layout()->count(), 3);
    QCOMPARE(qobject_cast<QPushButton*>(splash.layout()->itemAt(2)->widget())->text(), QStringLiteral("two"));
}

void TestZentSplash::clickOnQuitButtonEndsEventLoopAndTraces()
{
    ZentSplash splash;
    splash.SplashShowQuitButton(QString());
    QPushButton* button = splash.findChild<QPushButton*>();
    splash.show();

    QTimer::singleShot(0, button, [button] { QTest::mouseClick(button, Qt::LeftButton); });

    QCOMPARE(runEventLoopWithWatchdog(), 0);
    QCOMPARE(m_traces, QStringList{QStringLiteral("application/zentsplash:217 Cancel button was hit")});
}

void TestZentSplash::cancelWithTracingOffStillQuitsWithoutTrace()
{
    ErrorHandler::Instance().SetMessageMask(ErrorHandler::Q_TRACE, false);
    ZentSplash splash;

    QTimer::singleShot(0, &splash, &ZentSplash::OnCancelClicked);

    QCOMPARE(runEventLoopWithWatchdog(), 0);
    QCOMPARE(m_traces, QStringList());
}

QTEST_MAIN(TestZentSplash)
#include "tst_zentsplash.moc"
