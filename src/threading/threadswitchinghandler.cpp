#include "threading/threadswitchinghandler.h"

#include "kvbase/zentos.h"
#include "threading/eventpostingthread.h"
#include "threading/eventreceiver.h"
#include "threading/runinmainthreadevent.h"
#include "threading/tsanannotations_p.h"

#include <QCoreApplication>
#include <QMutexLocker>

#include <cstring>
#include <memory>

namespace ThreadingHelper {

QMutex ThreadSwitchingHandler::s_usePostingThreadMutex;
bool ThreadSwitchingHandler::s_bUsePostingThread = true;

ThreadSwitchingHandler::ThreadSwitchingHandler(bool forcePosting, bool waitForExecution, const char* file,
                                               unsigned int line)
    : m_sCallerInformation(QStringLiteral("file: %1, line: %2")
                               .arg(QString::fromLatin1(file, file ? int(std::strlen(file)) : 0))
                               .arg(line, 0, 10, QLatin1Char(' '))),
      m_bForcePosting(forcePosting), m_bWaitForExecution(waitForExecution)
{
}

void ThreadSwitchingHandler::RunInMainThread_Impl(QEvent* event)
{
    auto* runEvent = dynamic_cast<RunInMainThreadEvent_Impl*>(event);
    if (!runEvent)
        return;
    ZentOS& os = ZentOS::Create();
    const unsigned long mainThread = os.GetMainThreadId();
    if (!m_bForcePosting && (mainThread == 0 || os.IsAppThread())) {
        // Owned here, so that an exception of the called function does not leak it.
        const std::unique_ptr<RunInMainThreadEvent_Impl> runNow(runEvent);
        runNow->processEvent(true);
        return;
    }
    // The caller's own reference: the event may be gone before the wait ends.
    std::shared_ptr<ExecutionStateManager> state = runEvent->GetExecutionStateManager();
    if (isUsePostingThread() && mainThread != 0 && !os.IsAppThread()) {
        // Deliberately neither posted nor deleted when the posting thread
        // refuses it (the application is terminating): a waiter times out.
        EventPostingThread::instance().enqueue(runEvent);
    } else {
        AnnounceHandOver(runEvent);
        QCoreApplication::postEvent(EventReceiver::receiver(), runEvent, Qt::NormalEventPriority);
    }
    if (m_bWaitForExecution)
        state->waitForExecution();
}

bool ThreadSwitchingHandler::isUsePostingThread()
{
    QMutexLocker locker(&s_usePostingThreadMutex);
    return s_bUsePostingThread;
}

void ThreadSwitchingHandler::setUsePostingThread(bool use)
{
    QMutexLocker locker(&s_usePostingThreadMutex);
    s_bUsePostingThread = use;
}

} // namespace ThreadingHelper
