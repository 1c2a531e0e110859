#include "winreg/hivestore_p.h"

#include <QStandardPaths>

// The user hive follows the XDG configuration directory, like every other
// per-user setting; the machine hive sits with other system-wide state,
// writable by the administrator only, as HKEY_LOCAL_MACHINE is on Windows.
QString HiveStore::DefaultDirectory(HKEY predefined)
{
    if (predefined == HKEY_LOCAL_MACHINE)
        return QStringLiteral("/var/lib/zent/registry");
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/zent/registry");
}
