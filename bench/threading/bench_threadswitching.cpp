// Calls from worker threads into the main thread:
//  - blocking round trip from one worker: a ThreadSwitchingHandler that
//    waits, through the event posting thread and posted directly, beside
//    QMetaObject::invokeMethod with Qt::BlockingQueuedConnection;
//  - non-blocking throughput of 8 producer threads through the event posting
//    thread beside each producer posting with Qt::QueuedConnection itself,
//    with the latency from sending to running (p50, p99).
// bench_threadswitching [--quick]
#include "benchsupport.h"

#include "kvbase/zentos.h"
#include "threading/threadswitchingadministration.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QThread>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

using ThreadingHelper::ThreadSwitchingAdministration;

namespace {

qint64 NowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

/// What the calls do in the main thread: count, and note how long the call took to arrive.
class Sink : public QObject, public ThreadingHelper::SafeThreadSwitchingBase
{
public:
    void Touch() { ++calls; }
    void Arrive(qint64 sentNs)
    {
        latencies.push_back(static_cast<double>(NowNs() - sentNs));
        ++calls;
    }
    std::atomic<int> calls{0};
    std::vector<double> latencies;
};

/// Runs `work` in `threads` threads while the main thread dispatches events
/// until `done` holds; returns the wall time in nanoseconds.
double RunWithEventLoop(int threads, const std::function<void(int)>& work, const std::function<bool()>& done)
{
    std::vector<std::thread> workers;
    QElapsedTimer timer;
    timer.start();
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([&work, t] { work(t); });
    while (!done())
        QCoreApplication::processEvents(QEventLoop::AllEvents);
    const double elapsed = static_cast<double>(timer.nsecsElapsed());
    for (auto& worker : workers)
        worker.join();
    return elapsed;
}

double BlockingRoundTrip(int calls, const std::function<void(Sink&)>& call)
{
    Sink sink;
    std::atomic<bool> finished{false};
    const double ns = RunWithEventLoop(
        1,
        [&](int) {
            for (int i = 0; i < calls; ++i)
                call(sink);
            finished.store(true);
        },
        [&] { return finished.load(); });
    return ns / calls;
}

struct Throughput
{
    double callsPerSecond = 0;
    double p50 = 0;
    double p99 = 0;
};

Throughput NonBlocking(int producers, int callsEach, const std::function<void(Sink&)>& call)
{
    Sink sink;
    sink.latencies.reserve(size_t(producers) * size_t(callsEach));
    const int total = producers * callsEach;
    const double ns = RunWithEventLoop(
        producers,
        [&](int) {
            for (int i = 0; i < callsEach; ++i)
                call(sink);
        },
        [&] { return sink.calls.load() == total; });
    std::sort(sink.latencies.begin(), sink.latencies.end());
    Throughput result;
    result.callsPerSecond = total / (ns / 1e9);
    result.p50 = sink.latencies[sink.latencies.size() / 2];
    result.p99 = sink.latencies[sink.latencies.size() * 99 / 100];
    return result;
}

double Median(std::vector<double> samples)
{
    std::sort(samples.begin(), samples.end());
    return samples[samples.size() / 2];
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    ZentOS::Create().InitGuiProcess();
    const bool quick = argc > 1 && std::strcmp(argv[1], "--quick") == 0;
    const int roundTrips = quick ? 2000 : 20000;
    const int callsEach = quick ? 5000 : 50000;
    const int repeats = quick ? 3 : 7;

    // Blocking round trip, median of the repeats.
    std::vector<double> viaThread, direct, qt;
    auto handler = ZENT_THREAD_SWITCHING_HANDLER(false, true);
    for (int r = 0; r < repeats; ++r) {
        ThreadSwitchingAdministration::setEnableNonBlockingEventPosting(true);
        viaThread.push_back(
            BlockingRoundTrip(roundTrips, [&](Sink& s) { handler->RunInMainThread(&s, &Sink::Touch); }));
        ThreadSwitchingAdministration::setEnableNonBlockingEventPosting(false);
        direct.push_back(
            BlockingRoundTrip(roundTrips, [&](Sink& s) { handler->RunInMainThread(&s, &Sink::Touch); }));
        qt.push_back(BlockingRoundTrip(roundTrips, [](Sink& s) {
            QMetaObject::invokeMethod(
                &s, [&s] { s.Touch(); }, Qt::BlockingQueuedConnection);
        }));
    }
    ThreadSwitchingAdministration::setEnableNonBlockingEventPosting(true);
    const double qtRound = Median(qt);
    std::printf("## Thread switching (bench_threadswitching)\n\n");
    std::printf("Blocking call from a worker to the main thread and back, median of %d runs of %d calls.\n\n",
                repeats, roundTrips);
    std::printf(
        "| route | per call | ratio to Qt BlockingQueuedConnection | target |\n|---|---:|---:|---|\n");
    const auto blockingRow = [&](const char* name, double ns) {
        const double ratio = ns / qtRound;
        std::printf("| %s | %s | %.2fx | <= 1.2x: %s |\n", name, qPrintable(Bench::FormatNs(ns)), ratio,
                    ratio <= 1.2 ? "met" : "MISSED");
    };
    blockingRow("ThreadSwitchingHandler, through the posting thread (default)", Median(viaThread));
    blockingRow("ThreadSwitchingHandler, posted directly", Median(direct));
    std::printf("| QMetaObject::invokeMethod, BlockingQueuedConnection | %s | 1.00x | - |\n\n",
                qPrintable(Bench::FormatNs(qtRound)));

    // Non-blocking throughput of 8 producers; the repeat with the median throughput is shown.
    constexpr int producers = 8;
    std::vector<Throughput> ours, theirs;
    auto nonBlocking = ZENT_THREAD_SWITCHING_HANDLER(false, false);
    for (int r = 0; r < repeats; ++r) {
        ours.push_back(NonBlocking(producers, callsEach, [&](Sink& s) {
            nonBlocking->RunInMainThread(&s, &Sink::Arrive, NowNs());
        }));
        theirs.push_back(NonBlocking(producers, callsEach, [](Sink& s) {
            const qint64 sent = NowNs();
            QMetaObject::invokeMethod(
                &s, [&s, sent] { s.Arrive(sent); }, Qt::QueuedConnection);
        }));
    }
    const auto byRate = [](const Throughput& a, const Throughput& b) {
        return a.callsPerSecond < b.callsPerSecond;
    };
    std::sort(ours.begin(), ours.end(), byRate);
    std::sort(theirs.begin(), theirs.end(), byRate);
    const Throughput& o = ours[ours.size() / 2];
    const Throughput& t = theirs[theirs.size() / 2];
    const double ratio = o.callsPerSecond / t.callsPerSecond;
    std::printf(
        "Non-blocking calls of %d producer threads, %d calls each (median of %d runs); latency from the "
        "call to its execution in the main thread.\n\n",
        producers, callsEach, repeats);
    std::printf("| route | calls/s | p50 latency | p99 latency | throughput ratio | target |\n"
                "|---|---:|---:|---:|---:|---|\n");
    std::printf(
        "| ThreadSwitchingHandler through the posting thread | %.0f | %s | %s | %.2fx | >= 0.8x: %s |\n",
        o.callsPerSecond, qPrintable(Bench::FormatNs(o.p50)), qPrintable(Bench::FormatNs(o.p99)), ratio,
        ratio >= 0.8 ? "met" : "MISSED");
    std::printf("| QMetaObject::invokeMethod, QueuedConnection | %.0f | %s | %s | 1.00x | - |\n\n",
                t.callsPerSecond, qPrintable(Bench::FormatNs(t.p50)), qPrintable(Bench::FormatNs(t.p99)));
    std::fflush(stdout);
    return 0;
}
