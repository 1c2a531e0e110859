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
    EventReceiver() = default;

    /// The static instance.
    static EventReceiver* receiver();

protected:
    void customEvent(QEvent* event) override;
};

} // namespace ThreadingHelper

#endif
