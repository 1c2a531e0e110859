#include "threading/threadswitchingadministration.h"

#include "threading/eventpostingthread.h"
#include "threading/eventreceiver.h"

#include <QCoreApplication>

#include <functional>

namespace ThreadingHelper {

namespace {

// Runs `action` with execution on deletion set to `executeOnDeletion`,
// touching the switch only when it differs.
void WithExecuteOnDeletion(bool executeOnDeletion, const std::function<void()>& action)
{
    const bool previous = RunInMainThreadEvent_Impl::isExecuteOnDeletionAllowed();
    if (previous != executeOnDeletion)
        RunInMainThreadEvent_Impl::setExecuteOnDeletionAllowed(executeOnDeletion);
    action();
    if (previous != executeOnDeletion)
        RunInMainThreadEvent_Impl::setExecuteOnDeletionAllowed(previous);
}

} // namespace

std::unique_ptr<ThreadSwitchingHandler_TemplateWrapper>
ThreadSwitchingAdministration::CreateThreadSwitchingHandler(bool forcePosting, bool waitForExecution,
                                                            const char* file, unsigned int line)
{
    return std::make_unique<ThreadSwitchingHandler_TemplateWrapper>(forcePosting, waitForExecution, file,
                                                                    line);
}

void ThreadSwitchingAdministration::setEnableNonBlockingEventPosting(bool enable)
{
    ThreadSwitchingHandler::setUsePostingThread(enable);
}

void ThreadSwitchingAdministration::setExecuteEventsAllowed(bool allowed)
{
    RunInMainThreadEvent_Impl::setExecuteAllowed(allowed);
}

void ThreadSwitchingAdministration::setExecuteEventsOnDispatchAllowed(bool allowed)
{
    RunInMainThreadEvent_Impl::setExecuteOnDispatchAllowed(allowed);
}

void ThreadSwitchingAdministration::setExecuteEventsOnDeletionAllowed(bool allowed)
{
    RunInMainThreadEvent_Impl::setExecuteOnDeletionAllowed(allowed);
}

void ThreadSwitchingAdministration::startPostingThread()
{
    EventPostingThread::instance().startPostingThread();
}

void ThreadSwitchingAdministration::stopPostingThread()
{
    EventPostingThread::instance().stopPostingThread();
}

void ThreadSwitchingAdministration::deleteAllNotPostedEvents()
{
    EventPostingThread::deleteAllNotPostedEvents();
}

void ThreadSwitchingAdministration::deleteAllNotPostedEvents(bool executeOnDeletion)
{
    WithExecuteOnDeletion(executeOnDeletion, [] { EventPostingThread::deleteAllNotPostedEvents(); });
}

void ThreadSwitchingAdministration::deleteAllPostedEvents()
{
    QCoreApplication::removePostedEvents(EventReceiver::receiver(), 0);
}

void ThreadSwitchingAdministration::deleteAllPostedEvents(bool executeOnDeletion)
{
    WithExecuteOnDeletion(executeOnDeletion, [] { deleteAllPostedEvents(); });
}

} // namespace ThreadingHelper
