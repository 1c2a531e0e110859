#ifndef THREADING_EXECUTIONSTATEMANAGER_P_H
#define THREADING_EXECUTIONSTATEMANAGER_P_H

#include "threading/executionstatemanager.h"

namespace ThreadingHelper {

/// For tests only: shortens the five-minute wait so that the time-out path
/// can be run. Production code never calls it.
class ZENTAPPSTARTUP_EXPORT ExecutionStateManagerTestAccess
{
public:
    static void SetWaitTimeout(unsigned long milliseconds);
    static void ResetWaitTimeout() { SetWaitTimeout(ExecutionStateManager::DEFAULT_WAIT_TIMEOUT_MS); }
};

} // namespace ThreadingHelper

#endif
