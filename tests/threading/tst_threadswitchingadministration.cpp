#include "threadingtestsupport.h"

#include "threading/eventpostingthread.h"

#include <QtTest>

using namespace ThreadingHelper;
using namespace ThreadingTest;

namespace {

/// Posts `count` calls of Call0 on `target` from a worker to the receiver's queue.
void PostFromWorker(Target* target, int count)
{
    std::thread worker([&] {
        for (int i = 0; i < count; ++i)
            ZENT_THREAD_SWITCHING_HANDLER(false, false)->RunInMainThread(target, &Target::Call0);
    });
    worker.join();
}

} // namespace

class tst_ThreadSwitchingAdministration : public QObject
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
        ThreadSwitchingAdministration::deleteAllNotPostedEvents();
        ThreadSwitchingAdministration::deleteAllPostedEvents();
    }

    void createdHandlerCarriesItsArguments()
    {
        auto handler =
            ThreadSwitchingAdministration::CreateThreadSwitchingHandler(true, false, "/src/a.cpp", 8);
        QVERIFY(handler);
        QCOMPARE(handler->IsForcePosting(), true);
        QCOMPARE(handler->IsWaitForExecution(), false);
        QCOMPARE(handler->GetCallerInformation(), QStringLiteral("file: /src/a.cpp, line: 8"));
    }

    void settersChangeTheSwitches()
    {
        ThreadSwitchingAdministration::setEnableNonBlockingEventPosting(false);
        QCOMPARE(ThreadSwitchingHandler::isUsePostingThread(), false);
        ThreadSwitchingAdministration::setEnableNonBlockingEventPosting(true);
        QCOMPARE(ThreadSwitchingHandler::isUsePostingThread(), true);
        ThreadSwitchingAdministration::setExecuteEventsAllowed(false);
        QCOMPARE(RunInMainThreadEvent_Impl::isExecuteAllowed(), false);
        ThreadSwitchingAdministration::setExecuteEventsOnDispatchAllowed(false);
        QCOMPARE(RunInMainThreadEvent_Impl::isExecuteOnDispatchAllowed(), false);
        ThreadSwitchingAdministration::setExecuteEventsOnDeletionAllowed(true);
        QCOMPARE(RunInMainThreadEvent_Impl::isExecuteOnDeletionAllowed(), true);
    }

    void notPostedEventsRunInTheCallingThreadOnRequest()
    {
        TraceRecorder traces;
        Target target;
        ThreadSwitchingAdministration::stopPostingThread();
        PostFromWorker(&target, 3);
        QCOMPARE(EventPostingThread::pendingEventCount(), 3);
        ThreadSwitchingAdministration::deleteAllNotPostedEvents(true);
        QCOMPARE(EventPostingThread::pendingEventCount(), 0);
        QCOMPARE(target.calls(), 3);
        QCOMPARE(target.lastThread(), QThread::currentThread());
        QCOMPARE(RunInMainThreadEvent_Impl::isExecuteOnDeletionAllowed(), false);
        QCOMPARE(traces.Texts(), QStringList());
        ThreadSwitchingAdministration::startPostingThread();
    }

    void notPostedEventsAreRefusedUnderTheCurrentSwitches()
    {
        TraceRecorder traces;
        Target target;
        ThreadSwitchingAdministration::stopPostingThread();
        PostFromWorker(&target, 2);
        ThreadSwitchingAdministration::deleteAllNotPostedEvents();
        QCOMPARE(target.calls(), 0);
        const QString caller = QStringLiteral("file: %1, line: ").arg(__FILE__);
        QCOMPARE(traces.Texts().size(), 2);
        for (const QString& text : traces.Texts())
            QVERIFY2(text.startsWith(NotExecutedWarning(caller).chopped(1)), qPrintable(text));
        ThreadSwitchingAdministration::startPostingThread();
    }

    void executeOnDeletionFalseIsRestoredAfterwards()
    {
        TraceRecorder traces;
        Target target;
        RunInMainThreadEvent_Impl::setExecuteOnDeletionAllowed(true);
        ThreadSwitchingAdministration::stopPostingThread();
        PostFromWorker(&target, 1);
        ThreadSwitchingAdministration::deleteAllNotPostedEvents(false);
        QCOMPARE(target.calls(), 0);
        QCOMPARE(traces.Texts().size(), 1);
        QCOMPARE(RunInMainThreadEvent_Impl::isExecuteOnDeletionAllowed(), true);
        ThreadSwitchingAdministration::startPostingThread();
    }

    void postedEventsAreDeletedUndelivered_data()
    {
        QTest::addColumn<int>("mode");
        QTest::newRow("current_switches") << 0;
        QTest::newRow("execute_on_deletion") << 1;
        QTest::newRow("refuse_on_deletion") << 2;
    }

    void postedEventsAreDeletedUndelivered()
    {
        QFETCH(int, mode);
        TraceRecorder traces;
        Target target;
        ThreadSwitchingAdministration::setEnableNonBlockingEventPosting(false);
        PostFromWorker(&target, 2);
        if (mode == 0)
            ThreadSwitchingAdministration::deleteAllPostedEvents();
        else
            ThreadSwitchingAdministration::deleteAllPostedEvents(mode == 1);
        QCOMPARE(target.calls(), mode == 1 ? 2 : 0);
        QCOMPARE(traces.Texts().size(), mode == 1 ? 0 : 2);
        QCOMPARE(RunInMainThreadEvent_Impl::isExecuteOnDeletionAllowed(), false);
        QCoreApplication::sendPostedEvents();
        QCOMPARE(target.calls(), mode == 1 ? 2 : 0);
    }
};

QTEST_GUILESS_MAIN(tst_ThreadSwitchingAdministration)
#include "tst_threadswitchingadministration.moc"
