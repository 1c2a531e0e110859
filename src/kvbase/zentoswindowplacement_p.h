#ifndef KVBASE_ZENTOSWINDOWPLACEMENT_P_H
#define KVBASE_ZENTOSWINDOWPLACEMENT_P_H

#include <QtGlobal>

/// The platform's window placement of another process's main window; the
/// five values are left, top, right, bottom and the show state (1 normal,
/// 2 minimised, 3 maximised). False when there is no display or no window.
namespace ZentWindowPlacement {

bool Get(qint64 processId, int values[5]);
bool Set(qint64 processId, const int values[5]);

} // namespace ZentWindowPlacement

#endif
