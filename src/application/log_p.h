#ifndef APPLICATION_LOG_P_H
#define APPLICATION_LOG_P_H

#include "zentappstartup_export.h"

#include <QByteArray>
#include <QString>

namespace LogPrivate {

/// The default log file for a process whose effective user is `effectiveUser`,
/// from the environment as it is now.
ZENTAPPSTARTUP_EXPORT QString DefaultFileName(unsigned effectiveUser);
/// The default log file of this process.
ZENTAPPSTARTUP_EXPORT QString DefaultFileName();
/// Creates the folders of the default log file that are missing.
void CreateDefaultFolder(const QString& fileName);
/// Appends `bytes` to the file in one write; false when nothing was written.
bool AppendToFile(const QString& fileName, const QByteArray& bytes);

} // namespace LogPrivate

#endif
