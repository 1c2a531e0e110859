/// \file
/// ThreadSwitchingAdministration: the control surface of thread switching, and ZENT_THREAD_SWITCHING_HANDLER.
#ifndef THREADING_THREADSWITCHINGADMINISTRATION_H
#define THREADING_THREADSWITCHINGADMINISTRATION_H

#include "threading/threadswitchinghandler_templatewrapper.h"
#include "zentappstartup_export.h"

#include <memory>

namespace ThreadingHelper {

/// The control surface of thread switching: handlers, the execution
/// switches, the event posting thread and the events still pending.
class ZENTAPPSTARTUP_EXPORT ThreadSwitchingAdministration
{
public:
    ThreadSwitchingAdministration() = delete;

    /// A handler for calls in the main thread; see ZENT_THREAD_SWITCHING_HANDLER.
    static std::unique_ptr<ThreadSwitchingHandler_TemplateWrapper>
    CreateThreadSwitchingHandler(bool forcePosting, bool waitForExecution, const char* file,
                                 unsigned int line);

    /// Whether worker threads go through the event posting thread (the default).
    static void setEnableNonBlockingEventPosting(bool enable);
    /// Whether events may run at all (default true); false refuses every
    /// event. See RunInMainThreadEvent_Impl::setExecuteAllowed().
    static void setExecuteEventsAllowed(bool allowed);
    /// Whether dispatched events run (default true); false leaves them
    /// Pending until they are deleted. See
    /// RunInMainThreadEvent_Impl::setExecuteOnDispatchAllowed().
    static void setExecuteEventsOnDispatchAllowed(bool allowed);
    /// Whether events deleted undelivered still run, in the deleting thread
    /// (default false). See RunInMainThreadEvent_Impl::setExecuteOnDeletionAllowed().
    static void setExecuteEventsOnDeletionAllowed(bool allowed);

    /// Clears a stop request and starts the event posting thread unless it
    /// runs; does nothing once the application is terminating.
    static void startPostingThread();
    /// Asks the event posting thread to end at its next wake-up; it is not
    /// woken. Events enqueued meanwhile wait until a later start and enqueue,
    /// or until termination. Does nothing once the application is terminating.
    static void stopPostingThread();

    /// Deletes the events not yet handed to Qt, under the current switches.
    static void deleteAllNotPostedEvents();
    /// The same, with execution on deletion set to `executeOnDeletion` meanwhile.
    static void deleteAllNotPostedEvents(bool executeOnDeletion);
    /// Deletes the events waiting in Qt's queue for the receiver, undelivered.
    static void deleteAllPostedEvents();
    /// The same, with execution on deletion set to `executeOnDeletion` meanwhile.
    static void deleteAllPostedEvents(bool executeOnDeletion);
};

} // namespace ThreadingHelper

/// A handler that names the calling file and line:
///   auto handler = ZENT_THREAD_SWITCHING_HANDLER(false, true);
///   handler->RunInMainThread(object, &Object::method, argument);
#define ZENT_THREAD_SWITCHING_HANDLER(forcePosting, waitForExecution)                                        \
    ThreadingHelper::ThreadSwitchingAdministration::CreateThreadSwitchingHandler(                            \
        (forcePosting), (waitForExecution), __FILE__, __LINE__)

#endif
