/// \file
/// WindowsCommandLine: how a Windows program receives its command line.
#ifndef APPLICATION_WINDOWSCOMMANDLINE_H
#define APPLICATION_WINDOWSCOMMANDLINE_H

#include "zentappstartup_export.h"

#include <QString>
#include <QStringList>

/// The command line a program receives on Windows, and how the C runtime
/// splits it into argv. On other systems the process handler passes what a
/// Windows program would have seen, so that native arguments (quoted
/// switches) reach a program alike on every system.
class ZENTAPPSTARTUP_EXPORT WindowsCommandLine
{
public:
    /// The command line as Qt builds it on Windows: the program (quoted when
    /// it has a blank), each argument quoted by Qt's rules, then the native
    /// argument string as it stands.
    static QString Build(const QString& program, const QStringList& arguments,
                         const QString& nativeArguments);

    /// argv as the Windows C runtime splits `commandLine`: argv[0] by the
    /// program-name rule, the rest by the backslash, quote and doubled-quote rules.
    static QStringList Split(const QString& commandLine);

    /// Qt's quoting of one argument on Windows.
    static QString QuoteArgument(const QString& argument);
};

#endif
