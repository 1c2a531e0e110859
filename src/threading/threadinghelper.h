/// \file
/// Everything an application needs to have calls run in the main thread.
#ifndef THREADING_THREADINGHELPER_H
#define THREADING_THREADINGHELPER_H

#include "threading/executionstatemanager.h"
#include "threading/runinmainthreadevent.h"
#include "threading/safethreadswitchingbase.h"
#include "threading/threadswitchingadministration.h"
#include "threading/threadswitchinghandler.h"
#include "threading/threadswitchinghandler_templatewrapper.h"

#endif
