#ifndef TESTS_APPLICATION_RECORDINGSERVICE_H
#define TESTS_APPLICATION_RECORDINGSERVICE_H

#include "application/service.h"
#include "notifylistener.h"

#include <QStringList>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include <signal.h>
#include <unistd.h>

/// What happened, in the order it happened, from any thread.
class ServiceEvents
{
public:
    void Add(const QString& event)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_events.append(event);
        m_changed.notify_all();
    }
    QStringList All() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_events;
    }
    /// True once `event` has happened, false after `timeoutMs` without it.
    bool WaitFor(const QString& event, int timeoutMs)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                                  [&] { return m_events.contains(event); });
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    QStringList m_events;
};

/// A service that records its calls. Its body runs until OnStop when
/// `blocks`, and returns at once otherwise.
class RecordingService : public Service
{
public:
    RecordingService(const QString& name, ServiceEvents& events, bool blocks = true)
        : Service(name), m_events(events), m_bBlocks(blocks)
    {
    }

    bool Running() { return IsRunning(); }

    QStringList startArgs;
    std::thread::id startThread;
    std::thread::id stopThread;
    bool runningInOnStart = false;
    std::atomic<int> starts{0};
    std::atomic<int> stops{0};
    std::atomic<int> pauses{0};
    std::atomic<int> continues{0};

protected:
    void OnStart(const QStringList& args) override
    {
        startArgs = args;
        startThread = std::this_thread::get_id();
        runningInOnStart = IsRunning();
        ++starts;
        m_events.Add(QStringLiteral("OnStart ") + Name());
        if (!m_bBlocks)
            return;
        // Bounded, so that a test that fails to stop the service still ends.
        std::unique_lock<std::mutex> lock(m_mutex);
        m_stopped.wait_for(lock, std::chrono::seconds(20), [this] { return m_bStopping; });
    }

private:
    void OnStop() override
    {
        stopThread = std::this_thread::get_id();
        ++stops;
        m_events.Add(QStringLiteral("OnStop ") + Name());
        std::lock_guard<std::mutex> lock(m_mutex);
        m_bStopping = true;
        m_stopped.notify_all();
    }
    void OnPause() override
    {
        ++pauses;
        m_events.Add(QStringLiteral("OnPause ") + Name());
    }
    void OnContinue() override
    {
        ++continues;
        m_events.Add(QStringLiteral("OnContinue ") + Name());
    }

    ServiceEvents& m_events;
    bool m_bBlocks;
    std::mutex m_mutex;
    std::condition_variable m_stopped;
    bool m_bStopping = false;
};

/// Runs `service.Exec` on this thread while a driver thread waits for the
/// service to report running (through `listener`, when there is one) and for
/// `startEvent` (unless empty), runs `whileRunning`, then sends SIGTERM until the
/// service reports its stop or Exec returns. Reports are added to `events`
/// as "report <datagram>".
inline void ExecUntilStopped(Service& service, ServiceEvents& events, NotifyListener* listener,
                             const QString& startEvent, int argc, wchar_t** argv,
                             const std::function<void()>& whileRunning = {})
{
    std::atomic<bool> execReturned{false};
    std::thread driver([&] {
        if (listener) {
            const QByteArray report = listener->ReceiveReport(5000);
            if (!report.isNull())
                events.Add(QStringLiteral("report ") + QString::fromUtf8(report));
        }
        if (!startEvent.isEmpty())
            events.WaitFor(startEvent, 5000);
        if (whileRunning)
            whileRunning();
        while (!execReturned) {
            ::kill(::getpid(), SIGTERM);
            if (!listener) {
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
                continue;
            }
            const QByteArray report = listener->ReceiveReport(500);
            if (!report.isNull()) {
                events.Add(QStringLiteral("report ") + QString::fromUtf8(report));
                break;
            }
        }
    });
    service.Exec(argc, argv);
    execReturned = true;
    driver.join();
}

#endif
