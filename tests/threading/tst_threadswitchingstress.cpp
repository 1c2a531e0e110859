// Many threads call into objects that the main thread deletes and re-creates
// meanwhile, while the posting thread is stopped and started. Built to run
// under ThreadSanitizer (make test-tsan) and AddressSanitizer.

#include "threadingtestsupport.h"

#include "kvbase/clogwriter.h"
#include "threading/eventpostingthread.h"

#include <QRandomGenerator>
#include <QtTest>

#include <array>
#include <atomic>
#include <set>
#include <thread>
#include <vector>

using namespace ThreadingHelper;
using namespace ThreadingTest;

namespace {

constexpr int WORKERS = 16;
constexpr int DEFAULT_CALLS = 100000;
constexpr int SLOTS = 8;
constexpr quint32 ALIVE = 0xA11FEu;

/// Counts the refusal warnings (each refused event writes exactly one).
class RefusalCounter : public CLogWriter
{
public:
    explicit RefusalCounter(std::atomic<int>* refused) : m_refused(refused) {}
    void Write(const QString&, int, const QString& text) override
    {
        if (text.startsWith(QLatin1String("Warning: RunInMainThreadEvent_Impl::execute()")))
            ++*m_refused;
        else
            ++m_otherTraces;
    }
    static std::atomic<int> m_otherTraces;

private:
    std::atomic<int>* m_refused;
};
std::atomic<int> RefusalCounter::m_otherTraces{0};

/// Everything the main thread checks when a call arrives.
struct Ledger
{
    std::set<const void*> live;
    std::array<int, WORKERS> lastSequence;
    int executed = 0;
    int onDeadObject = 0;
    int outOfOrder = 0;
    Ledger() { lastSequence.fill(-1); }
};

class StressTarget : public SafeThreadSwitchingBase
{
public:
    explicit StressTarget(Ledger* ledger) : m_ledger(ledger) { m_ledger->live.insert(this); }
    ~StressTarget() override
    {
        m_magic = 0;
        m_ledger->live.erase(this);
    }
    void Call(int worker, int sequence)
    {
        if (m_magic != ALIVE || !m_ledger->live.count(this) ||
            QThread::currentThread() != QCoreApplication::instance()->thread())
            ++m_ledger->onDeadObject;
        if (sequence <= m_ledger->lastSequence[worker])
            ++m_ledger->outOfOrder;
        m_ledger->lastSequence[worker] = sequence;
        ++m_ledger->executed;
    }

private:
    quint32 m_magic = ALIVE;
    Ledger* m_ledger;
};

/// Always alive: keeps the posting thread woken after a start.
class Nudge : public SafeThreadSwitchingBase
{
public:
    void Poke() { ++count; }
    int count = 0;
};

int CallCount()
{
    bool ok = false;
    const int calls = qEnvironmentVariableIntValue("ZENT_STRESS_CALLS", &ok);
    return ok && calls > 0 ? calls : DEFAULT_CALLS;
}

} // namespace

class tst_ThreadSwitchingStress : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        ZentOS::Create().InitGuiProcess();
    }

    void callsOnDyingObjectsWithPostingThreadStoppedAndStarted()
    {
        const int perWorker = CallCount() / WORKERS;
        const int total = perWorker * WORKERS;
        std::atomic<int> refused{0};
        ErrorHandler::Instance().ResetMessageMask();
        ErrorHandler::Instance().SetMessageMask(ErrorHandler::Q_EXPERT_TRACE, true);
        ErrorHandler::Instance().SetLogTracer(new RefusalCounter(&refused));

        Ledger ledger;
        std::array<std::atomic<StressTarget*>, SLOTS> targetSlots;
        for (auto& slot : targetSlots)
            slot.store(new StressTarget(&ledger));
        Nudge nudge;

        std::atomic<int> workersDone{0};
        std::atomic<int> blockingReturned{0};
        std::vector<std::thread> workers;
        for (int w = 0; w < WORKERS; ++w) {
            workers.emplace_back([&, w] {
                QRandomGenerator random(quint32(w + 1));
                for (int i = 0; i < perWorker; ++i) {
                    const bool blocking = i % 4 == 0;
                    StressTarget* target = targetSlots[random.bounded(SLOTS)].load();
                    ZENT_THREAD_SWITCHING_HANDLER(false, blocking)
                        ->RunInMainThread(target, &StressTarget::Call, w, i);
                    if (blocking)
                        ++blockingReturned;
                }
                ++workersDone;
            });
        }
        std::atomic<bool> settled{false};
        std::thread controller([&] {
            QRandomGenerator random(4711);
            while (!settled.load()) {
                if (workersDone.load() < WORKERS) {
                    ThreadSwitchingAdministration::stopPostingThread();
                    QThread::usleep(random.bounded(2000));
                }
                ThreadSwitchingAdministration::startPostingThread();
                // Deliberately needed: a start does not wake a sleeping thread.
                ZENT_THREAD_SWITCHING_HANDLER(false, false)->RunInMainThread(&nudge, &Nudge::Poke);
                QThread::usleep(random.bounded(3000));
            }
        });

        QRandomGenerator random(99);
        const bool allSettled = SpinUntil(
            [&] {
                // Delete and re-create one object per round, in the main thread.
                auto& slot = targetSlots[random.bounded(SLOTS)];
                delete slot.exchange(new StressTarget(&ledger));
                return workersDone.load() == WORKERS && ledger.executed + refused.load() == total;
            },
            600000);
        settled.store(true);
        controller.join();
        for (auto& worker : workers)
            worker.join();
        QCoreApplication::sendPostedEvents();
        ThreadSwitchingAdministration::deleteAllNotPostedEvents();
        ErrorHandler::Instance().SetLogTracer(nullptr);
        ErrorHandler::Instance().ResetMessageMask();
        for (auto& slot : targetSlots)
            delete slot.exchange(nullptr);

        QVERIFY(allSettled);
        QCOMPARE(blockingReturned.load(), (perWorker + 3) / 4 * WORKERS);
        QCOMPARE(ledger.onDeadObject, 0);
        QCOMPARE(ledger.outOfOrder, 0);
        QCOMPARE(ledger.executed + refused.load(), total);
        QCOMPARE(RefusalCounter::m_otherTraces.load(), 0);
        QVERIFY(ledger.executed > 0);
        QVERIFY(refused.load() > 0);
        qInfo("%d calls: %d executed, %d refused on deleted objects, %d wake-ups", total, ledger.executed,
              refused.load(), nudge.count);
    }
};

QTEST_GUILESS_MAIN(tst_ThreadSwitchingStress)
#include "tst_threadswitchingstress.moc"
