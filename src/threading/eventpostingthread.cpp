#include "threading/eventpostingthread.h"

#include "threading/eventreceiver.h"
#include "threading/runinmainthreadevent.h"
#include "threading/tsanannotations_p.h"

#include <QCoreApplication>
#include <QMutexLocker>

#include <atomic>
#include <list>

namespace ThreadingHelper {

namespace {

using EventList = std::list<RunInMainThreadEvent_Impl*>;

constexpr unsigned long STOP_WAIT_MS = 10000;

EventList g_pendingEvents;
QMutex g_queueMutex;
std::atomic<bool> g_terminating{false};

// Events taken but not posted go back to the front of the queue, in order.
void PutBack(EventList& batch)
{
    if (batch.empty())
        return;
    QMutexLocker locker(&g_queueMutex);
    g_pendingEvents.splice(g_pendingEvents.begin(), batch);
}

EventList TakePendingEvents()
{
    EventList events;
    QMutexLocker locker(&g_queueMutex);
    events.swap(g_pendingEvents);
    return events;
}

} // namespace

EventPostingThread& EventPostingThread::instance()
{
    static EventPostingThread thread;
    return thread;
}

EventPostingThread::EventPostingThread() = default;

EventPostingThread::~EventPostingThread()
{
    // At process exit without a termination run (tools, tests): a QThread
    // must not be destroyed while it runs.
    if (isRunning()) {
        requestStop();
        wakeAll();
        wait();
    }
}

bool EventPostingThread::enqueue(RunInMainThreadEvent_Impl* event)
{
    if (g_terminating.load())
        return false;
    {
        QMutexLocker locker(&g_queueMutex);
        g_pendingEvents.push_back(event);
    }
    wakeOrStart();
    return true;
}

void EventPostingThread::wakeOrStart()
{
    if (g_terminating.load())
        return;
    // Deliberately no wake-up while a stop is requested: the event waits in
    // the queue until a later start and enqueue, or termination.
    if (isStopRequested())
        return;
    if (isRunning())
        wakeAll();
    else
        startPostingThread();
}

void EventPostingThread::wakeAll()
{
    QMutexLocker locker(&g_queueMutex);
    m_queueNotEmpty.wakeAll();
}

void EventPostingThread::startPostingThread()
{
    if (g_terminating.load())
        return;
    QMutexLocker startLocker(&m_startMutex);
    {
        QMutexLocker stopLocker(&m_stopMutex);
        m_bStopRequested = false;
    }
    bool finished;
    {
        QMutexLocker finishedLocker(&m_finishedMutex);
        finished = m_bFinished;
    }
    if (isRunning() && !finished)
        return;
    // A thread that has seen its stop request is on its way out, and
    // QThread::start ignores a thread that still runs: let it end first.
    if (isRunning())
        wait();
    {
        QMutexLocker finishedLocker(&m_finishedMutex);
        m_bFinished = false;
    }
    start(QThread::InheritPriority);
}

void EventPostingThread::stopPostingThread()
{
    if (!g_terminating.load())
        requestStop();
}

bool EventPostingThread::isStopRequested()
{
    QMutexLocker locker(&m_stopMutex);
    return m_bStopRequested;
}

void EventPostingThread::requestStop()
{
    QMutexLocker locker(&m_stopMutex);
    m_bStopRequested = true;
}

void EventPostingThread::deleteAllNotPostedEvents()
{
    for (RunInMainThreadEvent_Impl* event : TakePendingEvents())
        delete event;
}

int EventPostingThread::pendingEventCount()
{
    QMutexLocker locker(&g_queueMutex);
    return static_cast<int>(g_pendingEvents.size());
}

bool EventPostingThread::isTerminating()
{
    return g_terminating.load();
}

void EventPostingThread::aboutToTerminate()
{
    g_terminating.store(true);
    if (!isFinished()) {
        requestStop();
        wakeAll();
        if (!wait(STOP_WAIT_MS)) {
            terminate();
            wait(STOP_WAIT_MS);
        }
    }
    deleteAllNotPostedEvents();
}

void EventPostingThread::run()
{
    EventList batch;
    for (;;) {
        bool stop;
        {
            QMutexLocker stopLocker(&m_stopMutex);
            if (m_bStopRequested) {
                QMutexLocker finishedLocker(&m_finishedMutex);
                m_bFinished = true;
            }
            stop = m_bStopRequested;
        }
        if (stop) {
            PutBack(batch);
            return;
        }
        // Only events kept because no application object existed are left
        // here; they are dropped, neither posted nor deleted.
        batch.clear();

        QMutexLocker queueLocker(&g_queueMutex);
        bool stopWhileEmpty = false;
        while (g_pendingEvents.empty()) {
            if (isStopRequested()) {
                stopWhileEmpty = true;
                break;
            }
            m_queueNotEmpty.wait(&g_queueMutex);
        }
        if (stopWhileEmpty)
            continue;
        batch.splice(batch.end(), g_pendingEvents);
        queueLocker.unlock();

        if (!QCoreApplication::instance())
            continue;
        while (!batch.empty() && !isStopRequested()) {
            RunInMainThreadEvent_Impl* event = batch.front();
            AnnounceHandOver(event);
            QCoreApplication::postEvent(EventReceiver::receiver(), event, Qt::NormalEventPriority);
            batch.pop_front();
        }
        // Stopped with events left: they go back at once, not at the next
        // look at the stop request, which a start in between would clear
        // and the batch would be dropped.
        PutBack(batch);
    }
}

} // namespace ThreadingHelper
