#include "threadingtestsupport.h"

#include "application/applicationterminationcenter.h"
#include "threading/eventpostingthread.h"

#include <QtTest>

#include <vector>

using namespace ThreadingHelper;
using namespace ThreadingTest;

namespace {

/// Records, in the main thread, the sequence numbers each sender's calls carry.
class SequenceTarget : public SafeThreadSwitchingBase
{
public:
    explicit SequenceTarget(int senders) : m_received(senders) {}
    void Receive(int sender, int sequence) { m_received[sender].push_back(sequence); }
    const std::vector<int>& Received(int sender) const { return m_received[sender]; }
    int Total() const
    {
        int total = 0;
        for (const auto& received : m_received)
            total += static_cast<int>(received.size());
        return total;
    }

private:
    std::vector<std::vector<int>> m_received;
};

void SendFromWorker(Target* target, int count, bool wait = false)
{
    std::thread worker([&] {
        for (int i = 0; i < count; ++i)
            ZENT_THREAD_SWITCHING_HANDLER(false, wait)->RunInMainThread(target, &Target::Call1, i);
    });
    worker.join();
}

} // namespace

class tst_EventPostingThread : public QObject
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

    // First: nothing has started the thread yet in this process.
    void threadIsCreatedAtLoadButNotStarted()
    {
        QCOMPARE(EventPostingThread::instance().isRunning(), false);
        QCOMPARE(EventPostingThread::isTerminating(), false);
        QCOMPARE(EventPostingThread::pendingEventCount(), 0);
    }

    void withoutNonBlockingPostingWorkersPostDirectly()
    {
        ThreadSwitchingAdministration::setEnableNonBlockingEventPosting(false);
        Target target;
        SendFromWorker(&target, 2);
        QCOMPARE(EventPostingThread::instance().isRunning(), false);
        QCOMPARE(EventPostingThread::pendingEventCount(), 0);
        QCoreApplication::sendPostedEvents();
        QCOMPARE(target.calls(), 2);
        QCOMPARE(target.lastThread(), QThread::currentThread());
    }

    void workerEventStartsTheThreadAndIsDelivered()
    {
        Target target;
        SendFromWorker(&target, 1);
        QVERIFY(EventPostingThread::instance().isRunning());
        QVERIFY(SpinUntil([&] { return target.calls() == 1; }));
        QCOMPARE(target.last(), QStringLiteral("0"));
        QCOMPARE(target.lastThread(), QThread::currentThread());
    }

    void blockingWorkerCallReturnsAfterExecution()
    {
        Target target;
        std::atomic<int> seen{-1};
        QVERIFY(RunInWorker([&] {
            ZENT_THREAD_SWITCHING_HANDLER(false, true)->RunInMainThread(&target, &Target::Call1, 5);
            seen.store(target.calls());
        }));
        QCOMPARE(seen.load(), 1);
    }

    void stoppedThreadLeavesEventsQueuedUntilAStartAndAnEnqueue()
    {
        Target target;
        ThreadSwitchingAdministration::stopPostingThread();
        SendFromWorker(&target, 3);
        QCOMPARE(EventPostingThread::pendingEventCount(), 3);
        SpinUntil([] { return false; }, 100);
        QCOMPARE(target.calls(), 0);
        // Deliberate: a start does not wake the sleeping thread; the next enqueue does.
        ThreadSwitchingAdministration::startPostingThread();
        SpinUntil([] { return false; }, 100);
        QCOMPARE(EventPostingThread::pendingEventCount(), 3);
        QCOMPARE(target.calls(), 0);
        SendFromWorker(&target, 1);
        QVERIFY(SpinUntil([&] { return target.calls() == 4; }));
        QCOMPARE(EventPostingThread::pendingEventCount(), 0);
        QCOMPARE(target.last(), QStringLiteral("0"));
    }

    void eventsOfOneThreadArriveInOrder()
    {
        constexpr int senders = 4;
        constexpr int perSender = 500;
        SequenceTarget target(senders);
        std::vector<std::thread> threads;
        for (int s = 0; s < senders; ++s) {
            threads.emplace_back([&, s] {
                for (int i = 0; i < perSender; ++i)
                    ZENT_THREAD_SWITCHING_HANDLER(false, i % 50 == 0)
                        ->RunInMainThread(&target, &SequenceTarget::Receive, s, i);
            });
        }
        QVERIFY(SpinUntil([&] { return target.Total() == senders * perSender; }));
        for (auto& thread : threads)
            thread.join();
        for (int s = 0; s < senders; ++s) {
            std::vector<int> expected(perSender);
            for (int i = 0; i < perSender; ++i)
                expected[i] = i;
            QVERIFY(target.Received(s) == expected);
        }
    }

    // Last: termination cannot be undone in this process.
    void terminationSettlesEveryPendingEventOnce()
    {
        TraceRecorder traces;
        Target target;
        // Two events wait in Qt's queue, three in the posting queue, two of
        // them with blocking callers.
        ThreadSwitchingAdministration::stopPostingThread();
        SendFromWorker(&target, 1);
        std::atomic<int> returned{0};
        std::vector<std::thread> waiters;
        for (int i = 0; i < 2; ++i)
            waiters.emplace_back([&] {
                ZENT_THREAD_SWITCHING_HANDLER(false, true)->RunInMainThread(&target, &Target::Call0);
                ++returned;
            });
        QVERIFY(SpinUntil([] { return EventPostingThread::pendingEventCount() == 3; }));
        QCOMPARE(returned.load(), 0);
        // Posted after the loop above stopped dispatching, so Qt still holds them.
        ZENT_THREAD_SWITCHING_HANDLER(true, false)->RunInMainThread(&target, &Target::Call1, 100);
        ZENT_THREAD_SWITCHING_HANDLER(true, false)->RunInMainThread(&target, &Target::Call1, 101);

        QElapsedTimer timer;
        timer.start();
        ApplicationTerminationCenter::instance().aboutToTerminate();
        for (auto& waiter : waiters)
            waiter.join();
        QVERIFY(timer.elapsed() < 10000);
        QCOMPARE(returned.load(), 2);
        QCOMPARE(EventPostingThread::isTerminating(), true);
        QCOMPARE(EventPostingThread::instance().isFinished(), true);
        QCOMPARE(EventPostingThread::pendingEventCount(), 0);
        QCOMPARE(target.calls(), 0);
        QCOMPARE(traces.Texts().size(), 3);
        for (const QString& text : traces.Texts())
            QVERIFY2(text.startsWith(
                         NotExecutedWarning(QStringLiteral("file: %1, line: ").arg(__FILE__)).chopped(1)),
                     qPrintable(text));

        // What Qt holds is still dispatched once.
        QCoreApplication::sendPostedEvents();
        QCOMPARE(target.calls(), 2);
        QCOMPARE(target.last(), QStringLiteral("101"));
        QCOMPARE(traces.Texts().size(), 3);
    }

    void afterTerminationNothingStartsOrQueues()
    {
        TraceRecorder traces;
        ThreadSwitchingAdministration::startPostingThread();
        QCOMPARE(EventPostingThread::instance().isRunning(), false);
        ThreadSwitchingAdministration::stopPostingThread();
        Target target;
        auto* event = new RunInMainThreadEvent0<Target, void (Target::*)()>(nullptr, &target, &Target::Call0);
        bool accepted = true;
        std::thread worker([&] { accepted = EventPostingThread::instance().enqueue(event); });
        worker.join();
        QCOMPARE(accepted, false);
        QCOMPARE(EventPostingThread::pendingEventCount(), 0);
        QCOMPARE(EventPostingThread::instance().isRunning(), false);
        delete event;
        // A second termination run finds nothing to do.
        EventPostingThread::instance().aboutToTerminate();
        QCOMPARE(target.calls(), 0);
    }
};

QTEST_GUILESS_MAIN(tst_EventPostingThread)
#include "tst_eventpostingthread.moc"
