#include "threading/eventreceiver.h"

#include "threading/eventpostingthread.h"
#include "threading/runinmainthreadevent.h"

namespace ThreadingHelper {

namespace {

// Constructed during the library's static initialisation, in the thread
// that loads it: the main thread.
EventReceiver s_receiver;

// The posting thread is made right after the receiver it posts to, so that
// it is destroyed (and stopped) before it; made at load, in the main
// thread, it also registers with the termination centre from there.
[[maybe_unused]] const bool s_postingThreadCreated = (EventPostingThread::instance(), true);

} // namespace

EventReceiver* EventReceiver::receiver()
{
    return &s_receiver;
}

void EventReceiver::customEvent(QEvent* event)
{
    if (auto* runEvent = dynamic_cast<RunInMainThreadEvent_Impl*>(event))
        runEvent->processEvent(true);
}

} // namespace ThreadingHelper
