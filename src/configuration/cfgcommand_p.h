#ifndef CONFIGURATION_CFGCOMMAND_P_H
#define CONFIGURATION_CFGCOMMAND_P_H

// Command-line helpers shared by the configuration copy and delete commands.

#include "configuration/icfg.h"
#include "kvbase/kvexception.h"

#include <QString>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace CfgCommand {

/// The commands' usage error: the text on standard output, exit code 1.
[[noreturn]] inline void ExitWithUsage(const char* text)
{
    std::fputs(text, stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
    std::exit(1);
}

/// An argument as text; arguments are 8-bit text in the local encoding.
inline QString Argument(const char* argument)
{
    return QString::fromLocal8Bit(argument);
}

/// A key argument: "*" stands for the root, the empty key.
inline QString KeyArgument(const char* argument)
{
    const QString key = Argument(argument);
    return key == QLatin1String("*") ? QString() : key;
}

/// Throws when the configuration centre knows no backend for `type`.
inline std::unique_ptr<ICfg> RequireCfg(ICfg* cfg, const QString& type, const QString& sourceFile,
                                        const QString& className, int line)
{
    if (!cfg)
        throw KVException(QStringLiteral("No configuration can be created for the type \"%1\".").arg(type),
                          sourceFile, className, className, line);
    return std::unique_ptr<ICfg>(cfg);
}

} // namespace CfgCommand

#endif
