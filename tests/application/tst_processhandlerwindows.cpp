// Window placement of a started Qt program on a real X server (run through
// tests/scripts/run-under-xvfb.sh, without a window manager).

#include "application/processhandler.h"

#include <QtTest>

#include <memory>

namespace {

QList<int> Values(const WinPosition& position)
{
    return {position.left, position.top, position.right, position.bottom, position.showState};
}

} // namespace

class tst_ProcessHandlerWindows : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        if (qEnvironmentVariableIsEmpty("DISPLAY"))
            QSKIP("needs an X server (run through run-under-xvfb.sh)");
    }

    void placementIsReadAndSet()
    {
        std::unique_ptr<QProcess> window = StartWindowProgram();
        QVERIFY(window);
        // Without a window manager the window stands where the program put it.
        QCOMPARE(Values(ProcessHandler::Instance().GetWindowPositions(window.get())),
                 (QList<int>{40, 50, 340, 250, 1}));

        ProcessHandler::Instance().SetWindowPositons(WinPosition{100, 120, 500, 420, 1}, window.get());
        QTRY_COMPARE_WITH_TIMEOUT(Values(ProcessHandler::Instance().GetWindowPositions(window.get())),
                                  (QList<int>{100, 120, 500, 420, 1}), 10000);

        ProcessHandler::Instance().TerminateProcess(window.get(), QString());
        QVERIFY(window->waitForFinished(10000));
    }

    void processWithoutWindowIsUnknown()
    {
        std::unique_ptr<QProcess> sleeper(ProcessHandler::Instance().StartProgram(
            QStringLiteral("/bin/sleep"), QStringLiteral("30"), QString(), false, true));
        QCOMPARE(Values(ProcessHandler::Instance().GetWindowPositions(sleeper.get())),
                 (QList<int>{-1, -1, -1, -1, -1}));
        sleeper->kill();
        QVERIFY(sleeper->waitForFinished(10000));
    }

private:
    /// The window program, once its window is shown. On a machine shared by
    /// several X servers, a client now and then reaches another server's
    /// abstract socket and is refused; the program then ends at once and is
    /// started again.
    static std::unique_ptr<QProcess> StartWindowProgram()
    {
        for (int attempt = 0; attempt < 5; ++attempt) {
            std::unique_ptr<QProcess> window(ProcessHandler::Instance().StartProgram(
                QStringLiteral(ZENT_WINDOW_HELPER), QStringList(), QString(), false, true,
                QProcessEnvironment::systemEnvironment()));
            QElapsedTimer timer;
            timer.start();
            while (window->state() == QProcess::Running && timer.elapsed() < 20000) {
                if (ProcessHandler::Instance().GetWindowPositions(window.get()).left != -1)
                    return window;
                QTest::qWait(50);
            }
            qWarning("window program ended without a window (exit code %d); starting it again",
                     window->exitCode());
        }
        return nullptr;
    }
};

QTEST_GUILESS_MAIN(tst_ProcessHandlerWindows)
#include "tst_processhandlerwindows.moc"
