// QProcess::setNativeArguments exists only on Windows. Here the native
// string is kept beside the process, and the program receives what the
// Windows C runtime would have made of the whole command line, so a quoted
// switch arrives the same on both systems.

#include "application/processhandler.h"
#include "application/windowscommandline.h"

#include <QVariant>

namespace {

const char* const NATIVE_ARGUMENTS = "zentNativeArguments";

} // namespace

void ProcessHandler::SetNativeArguments(QProcess* process, const QString& nativeArguments)
{
    process->setProperty(NATIVE_ARGUMENTS, nativeArguments);
}

QString ProcessHandler::NativeArguments(const QProcess* process)
{
    return process ? process->property(NATIVE_ARGUMENTS).toString() : QString();
}

QStringList ProcessHandler::ArgumentsAsReceived(const QProcess* process, const QString& program,
                                                const QStringList& arguments)
{
    const QString native = NativeArguments(process);
    if (native.isEmpty())
        return arguments;
    return WindowsCommandLine::Split(WindowsCommandLine::Build(program, arguments, native)).mid(1);
}
