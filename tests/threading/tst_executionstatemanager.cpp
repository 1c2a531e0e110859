#include "threadingtestsupport.h"

#include <QtTest>

#include <thread>

using namespace ThreadingHelper;
using namespace ThreadingTest;

class tst_ExecutionStateManager : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void cleanup() { ExecutionStateManagerTestAccess::ResetWaitTimeout(); }

    void defaultWaitIsFiveMinutes()
    {
        QCOMPARE(ExecutionStateManager::DEFAULT_WAIT_TIMEOUT_MS, 300000ul);
        QCOMPARE(ExecutionStateManager::WaitTimeout(), 300000ul);
    }

    void stateValues()
    {
        QCOMPARE(int(ExecutionStateManager::Pending), 0);
        QCOMPARE(int(ExecutionStateManager::Executed), 1);
        QCOMPARE(int(ExecutionStateManager::NotExecuted), 3);
    }

    void newManagerIsPendingWithCallerInformation()
    {
        ExecutionStateManager manager(QStringLiteral("file: a.cpp, line: 3"));
        QCOMPARE(manager.GetState(), ExecutionStateManager::Pending);
        QCOMPARE(manager.IsFinished(), false);
        QCOMPARE(manager.GetCallerInformation(), QStringLiteral("file: a.cpp, line: 3"));
    }

    void finishedManagerDoesNotWait()
    {
        TraceRecorder traces;
        ExecutionStateManager manager(QStringLiteral("x"));
        manager.Finish(ExecutionStateManager::NotExecuted);
        QElapsedTimer timer;
        timer.start();
        manager.waitForExecution();
        QVERIFY(timer.elapsed() < 1000);
        QCOMPARE(manager.GetState(), ExecutionStateManager::NotExecuted);
        QCOMPARE(traces.Texts(), QStringList());
    }

    void finishWakesTheWaiter()
    {
        TraceRecorder traces;
        ExecutionStateManager manager(QStringLiteral("x"));
        std::atomic<bool> returned{false};
        std::thread waiter([&] {
            manager.waitForExecution();
            returned.store(true);
        });
        QThread::msleep(50);
        QCOMPARE(returned.load(), false);
        manager.Finish(ExecutionStateManager::Executed);
        waiter.join();
        QCOMPARE(returned.load(), true);
        QCOMPARE(manager.GetState(), ExecutionStateManager::Executed);
        QCOMPARE(traces.Texts(), QStringList());
    }

    void timeoutIsTracedAsWarning()
    {
        TraceRecorder traces;
        ExecutionStateManagerTestAccess::SetWaitTimeout(30);
        ExecutionStateManager manager(QStringLiteral("file: caller.cpp, line: 12"));
        manager.waitForExecution();
        QCOMPARE(manager.GetState(), ExecutionStateManager::Pending);
        QCOMPARE(traces.Texts(), QStringList{TimeoutWarning(QStringLiteral("file: caller.cpp, line: 12"))});
        QCOMPARE(traces.Texts().first(),
                 QStringLiteral(
                     "Warning: ExecutionStateManager::waitForExecution(): Wait for execution timed out! "
                     "(file: caller.cpp, line: 12)"));
        QCOMPARE(traces.Sources(), QStringList{QStringLiteral("threading/executionstatemanager")});
    }

    void timeoutIsSilentWithoutWarningTraces()
    {
        TraceRecorder traces(false);
        ExecutionStateManagerTestAccess::SetWaitTimeout(30);
        ExecutionStateManager manager(QStringLiteral("x"));
        manager.waitForExecution();
        QCOMPARE(traces.Texts(), QStringList());
    }
};

QTEST_GUILESS_MAIN(tst_ExecutionStateManager)
#include "tst_executionstatemanager.moc"
