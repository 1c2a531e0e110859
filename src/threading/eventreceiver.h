/// \file
/// EventReceiver: the main thread's receiver of run-in-main-thread events.
#ifndef THREADING_EVENTRECEIVER_H
#define THREADING_EVENTRECEIVER_H

#include "zentappstartup_export.h"

#include <QObject>

namespace ThreadingHelper {

/// The one receiver of run-in-main-thread events. Its static instance is
/// made while the library loads, so it belongs to the main thread, and
/// every posted call is dispatched there.
class ZENTAPPSTARTUP_EXPORT EventReceiver : public QObject
{
public:
    /// Only the static instance is ever made; see receiver().
    EventReceiver() = default;

    /// The static instance.
    static EventReceiver* receiver();

protected:
    /// Runs a RunInMainThreadEvent_Impl as dispatched
    /// (RunInMainThreadEvent_Impl::processEvent(true)); other events are
    /// ignored. Qt deletes the event afterwards. Runs in the main thread.
    void customEvent(QEvent* event) override;
};

} // namespace ThreadingHelper

#endif
