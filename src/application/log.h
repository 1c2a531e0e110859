/// \file
/// Log: a minimal static line log to one text file.
#ifndef APPLICATION_LOG_H
#define APPLICATION_LOG_H

#include "zentappstartup_export.h"

#include <QString>

/// A minimal line log to one text file, for programs without the base
/// library's tracing (services in particular). All members are static.
///
/// Every line is a separate open, write and close, so lines of several
/// processes interleave whole and the file can be read at any time. Failures
/// are silent: a line that cannot be written is lost.
class ZENTAPPSTARTUP_EXPORT Log
{
public:
    /// Replaces the log file's path.
    static void SetFileName(QString name);
    /// The log file's path. By default "ServiceLog.txt" in the service's log
    /// folder: $LOGS_DIRECTORY when systemd sets it, else /var/log/zent for
    /// root and $XDG_STATE_HOME/zent for other users.
    static QString GetFileName();
    /// Appends `text` and a line feed, converted to Latin-1.
    static void WriteLine(const QString& text);

private:
    Log() = delete;

    static QString m_qsFileName;
};

#endif
