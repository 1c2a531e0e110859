/// \file
/// EventPostingThread: the thread that hands worker threads' calls on to the main thread.
#ifndef THREADING_EVENTPOSTINGTHREAD_H
#define THREADING_EVENTPOSTINGTHREAD_H

#include "application/iabstractterminationtarget.h"
#include "zentappstartup_export.h"

#include <QMutex>
#include <QThread>
#include <QWaitCondition>

namespace ThreadingHelper {

class RunInMainThreadEvent_Impl;

/// The one thread that moves the events of worker threads from the pending
/// queue on to the main thread's receiver, so that workers never wait for
/// Qt's event queue. Stopped by the termination centre.
class ZENTAPPSTARTUP_EXPORT EventPostingThread : public QThread, public IAbstractTerminationTarget
{
public:
    /// The one posting thread, created (not started) on first use.
    static EventPostingThread& instance();

    ~EventPostingThread() override;

    /// Appends `event` to the pending queue and wakes or starts the thread;
    /// false (the event not taken) once the application is terminating.
    bool enqueue(RunInMainThreadEvent_Impl* event);
    /// Clears a stop request and starts the thread unless it is running.
    void startPostingThread();
    /// Asks the thread to end at its next wake-up; it is not woken.
    void stopPostingThread();
    /// Deletes every event not yet handed to Qt.
    static void deleteAllNotPostedEvents();
    /// How many events wait in the pending queue.
    static int pendingEventCount();
    /// True once aboutToTerminate() ran.
    static bool isTerminating();

    /// Stops the thread (10 s, then forced), then deletes the pending events.
    void aboutToTerminate() override;

protected:
    /// The thread's loop: sleeps while the pending queue is empty, then
    /// posts the queued events to EventReceiver in the order they were
    /// enqueued. Ends at the first wake-up after a stop request and puts
    /// the events it had taken but not posted back at the queue's front.
    /// Runs on the posting thread.
    void run() override;

private:
    EventPostingThread();
    EventPostingThread(const EventPostingThread&) = delete;
    EventPostingThread& operator=(const EventPostingThread&) = delete;

    bool isStopRequested();
    void requestStop();
    void wakeOrStart();
    void wakeAll();

    QMutex m_stopMutex{QMutex::Recursive};
    bool m_bStopRequested = false;
    QMutex m_finishedMutex{QMutex::Recursive};
    bool m_bFinished = false;
    QMutex m_startMutex{QMutex::Recursive};
    QWaitCondition m_queueNotEmpty;
};

} // namespace ThreadingHelper

#endif
