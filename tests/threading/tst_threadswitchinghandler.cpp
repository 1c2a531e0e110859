#include "threadingtestsupport.h"

#include "threading/eventpostingthread.h"

#include <QtTest>

#include <memory>
#include <stdexcept>
#include <string>

using namespace ThreadingHelper;
using namespace ThreadingTest;

namespace {

/// A system that does not know its main thread.
class NoMainThreadOS : public ZentOS
{
public:
    unsigned long GetMainThreadId() const override { return 0; }
    bool IsAppThread() const override { return false; }
};

} // namespace

class tst_ThreadSwitchingHandler : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        ZentOS::Create().InitGuiProcess();
    }
    void cleanup()
    {
        RestoreDefaultSwitches();
        QCoreApplication::sendPostedEvents();
    }

    void callerInformationNamesFileAndLine()
    {
        QCOMPARE(
            ThreadSwitchingHandler(false, true, "/home/dev/src/app/worker.cpp", 117).GetCallerInformation(),
            QStringLiteral("file: /home/dev/src/app/worker.cpp, line: 117"));
        QCOMPARE(ThreadSwitchingHandler(false, true, nullptr, 0).GetCallerInformation(),
                 QStringLiteral("file: , line: 0"));
    }

    void macroPassesTheCallersFileAndLine()
    {
        const unsigned int line = __LINE__ + 1;
        auto handler = ZENT_THREAD_SWITCHING_HANDLER(true, false);
        QCOMPARE(handler->GetCallerInformation(),
                 QStringLiteral("file: %1, line: %2").arg(__FILE__).arg(line));
        QCOMPARE(handler->IsForcePosting(), true);
        QCOMPARE(handler->IsWaitForExecution(), false);
    }

    void otherEventsAreIgnoredAndNotDeleted()
    {
        ThreadSwitchingHandler handler(false, true, "f.cpp", 1);
        QEvent* other = new QEvent(QEvent::User);
        handler.RunInMainThread_Impl(other);
        QCOMPARE(other->type(), QEvent::User);
        delete other;
        handler.RunInMainThread_Impl(nullptr);
    }

    void blockingCallInMainThreadRunsAtOnce()
    {
        TraceRecorder traces;
        Target target;
        auto handler = ZENT_THREAD_SWITCHING_HANDLER(false, true);
        QElapsedTimer timer;
        timer.start();
        handler->RunInMainThread(&target, &Target::Call1, 4);
        QVERIFY(timer.elapsed() < 1000);
        QCOMPARE(target.calls(), 1);
        QCOMPARE(target.last(), QStringLiteral("4"));
        QCOMPARE(target.lastThread(), QThread::currentThread());
        QCOMPARE(traces.Texts(), QStringList());
    }

    void exceptionOfACallInTheMainThreadReachesTheCaller()
    {
        // The event is freed on the way out (AddressSanitizer's leak check sees it).
        struct Thrower : ThreadingHelper::SafeThreadSwitchingBase
        {
            void Fail(int code) { throw std::runtime_error("call " + std::to_string(code)); }
        } thrower;
        auto handler = ZENT_THREAD_SWITCHING_HANDLER(false, true);
        try {
            handler->RunInMainThread(&thrower, &Thrower::Fail, 7);
            QFAIL("the called function's exception was swallowed");
        } catch (const std::runtime_error& e) {
            QCOMPARE(QByteArray(e.what()), QByteArray("call 7"));
        }
    }

    void wrapperBindsZeroToFiveArguments()
    {
        Target target;
        auto handler = ZENT_THREAD_SWITCHING_HANDLER(false, true);
        handler->RunInMainThread(&target, &Target::Call0);
        QCOMPARE(target.last(), QStringLiteral("0"));
        handler->RunInMainThread(&target, &Target::Call1, 1);
        QCOMPARE(target.last(), QStringLiteral("1"));
        handler->RunInMainThread(&target, &Target::Call2, 1, QStringLiteral("b"));
        QCOMPARE(target.last(), QStringLiteral("1 b"));
        handler->RunInMainThread(&target, &Target::Call3, 1, QStringLiteral("b"), 2.5);
        QCOMPARE(target.last(), QStringLiteral("1 b 2.5"));
        handler->RunInMainThread(&target, &Target::Call4, 1, QStringLiteral("b"), 2.5, 'd');
        QCOMPARE(target.last(), QStringLiteral("1 b 2.5 d"));
        handler->RunInMainThread(&target, &Target::Call5, 1, QStringLiteral("b"), 2.5, 'd',
                                 QStringList{"e", "f"});
        QCOMPARE(target.last(), QStringLiteral("1 b 2.5 d e+f"));
        QCOMPARE(target.calls(), 6);
    }

    void unknownMainThreadRunsInTheCallingThread()
    {
        NoMainThreadOS os;
        ZentOS::SetInstance(&os);
        Target target;
        QThread* workerThread = nullptr;
        std::thread worker([&] {
            workerThread = QThread::currentThread();
            ZENT_THREAD_SWITCHING_HANDLER(false, true)->RunInMainThread(&target, &Target::Call0);
        });
        worker.join();
        ZentOS::SetInstance(nullptr);
        QCOMPARE(target.calls(), 1);
        QCOMPARE(target.lastThread(), workerThread);
    }

    void workerCallRunsInMainThread_data()
    {
        QTest::addColumn<bool>("usePostingThread");
        QTest::addColumn<bool>("wait");
        QTest::newRow("posting_thread_blocking") << true << true;
        QTest::newRow("posting_thread_non_blocking") << true << false;
        QTest::newRow("direct_blocking") << false << true;
        QTest::newRow("direct_non_blocking") << false << false;
    }

    void workerCallRunsInMainThread()
    {
        QFETCH(bool, usePostingThread);
        QFETCH(bool, wait);
        ThreadSwitchingHandler::setUsePostingThread(usePostingThread);
        TraceRecorder traces;
        Target target;
        std::atomic<int> callsSeenOnReturn{-1};
        QVERIFY(RunInWorker([&] {
            ZENT_THREAD_SWITCHING_HANDLER(false, wait)
                ->RunInMainThread(&target, &Target::Call2, 3, QStringLiteral("x"));
            callsSeenOnReturn.store(target.calls());
        }));
        QVERIFY(SpinUntil([&] { return target.calls() == 1; }));
        if (wait)
            QCOMPARE(callsSeenOnReturn.load(), 1);
        QCOMPARE(target.last(), QStringLiteral("3 x"));
        QCOMPARE(target.lastThread(), QThread::currentThread());
        QCOMPARE(traces.Texts(), QStringList());
    }

    void argumentsAreCopiedAtTheCall()
    {
        Target target;
        QString argument = QStringLiteral("before");
        auto handler = ZENT_THREAD_SWITCHING_HANDLER(true, false);
        handler->RunInMainThread(&target, &Target::Call2, 1, argument);
        argument = QStringLiteral("after");
        handler.reset();
        QCOMPARE(target.calls(), 0);
        QVERIFY(SpinUntil([&] { return target.calls() == 1; }));
        QCOMPARE(target.last(), QStringLiteral("1 before"));
    }

    void forcedPostingFromMainThreadRunsAtDispatch()
    {
        Target target;
        ZENT_THREAD_SWITCHING_HANDLER(true, false)->RunInMainThread(&target, &Target::Call0);
        QCOMPARE(target.calls(), 0);
        QCoreApplication::sendPostedEvents();
        QCOMPARE(target.calls(), 1);
    }

    void forcedBlockingCallFromMainThreadWaitsForTheTimeout()
    {
        // Deliberate: the main thread blocks itself until the time-out; the
        // event runs only when the loop dispatches it afterwards.
        ExecutionStateManagerTestAccess::SetWaitTimeout(100);
        TraceRecorder traces;
        Target target;
        QElapsedTimer timer;
        timer.start();
        const unsigned int line = __LINE__ + 1;
        ZENT_THREAD_SWITCHING_HANDLER(true, true)->RunInMainThread(&target, &Target::Call0);
        QVERIFY(timer.elapsed() >= 90);
        QCOMPARE(target.calls(), 0);
        QCOMPARE(traces.Texts(),
                 QStringList{TimeoutWarning(QStringLiteral("file: %1, line: %2").arg(__FILE__).arg(line))});
        QCoreApplication::sendPostedEvents();
        QCOMPARE(target.calls(), 1);
    }

    void objectDeletedBeforeDispatchIsNotCalled()
    {
        TraceRecorder traces;
        auto target = std::make_unique<Target>();
        ZENT_THREAD_SWITCHING_HANDLER(true, false)->RunInMainThread(target.get(), &Target::Call0);
        target.reset();
        QCoreApplication::sendPostedEvents();
        QCOMPARE(traces.Texts().size(), 1);
        QVERIFY(traces.Texts().first().startsWith(NotExecutedWarning(QStringLiteral("file: ")).chopped(1)));
    }

    // Last: the termination cannot be undone in this process.
    void eventsAfterTerminationAreNeverDelivered()
    {
        EventPostingThread::instance().aboutToTerminate();
        ExecutionStateManagerTestAccess::SetWaitTimeout(200);
        TraceRecorder traces;
        Target target;
        ThreadSwitchingHandler handler(false, true, "worker.cpp", 9);
        auto* event =
            new RunInMainThreadEvent0<Target, void (Target::*)()>(&handler, &target, &Target::Call0);
        event->registerAtObject(&target);
        QElapsedTimer timer;
        timer.start();
        // Deliberate: refused by the posting thread, neither queued nor posted; the waiter times out.
        QVERIFY(RunInWorker([&] { handler.RunInMainThread_Impl(event); }));
        QVERIFY(timer.elapsed() >= 190);
        QCoreApplication::sendPostedEvents();
        QCOMPARE(target.calls(), 0);
        QCOMPARE(event->GetExecutionStateManager()->GetState(), ExecutionStateManager::Pending);
        QCOMPARE(traces.Texts(), QStringList{TimeoutWarning(QStringLiteral("file: worker.cpp, line: 9"))});
        delete event;
    }
};

QTEST_GUILESS_MAIN(tst_ThreadSwitchingHandler)
#include "tst_threadswitchinghandler.moc"
