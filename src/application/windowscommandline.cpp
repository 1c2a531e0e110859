#include "application/windowscommandline.h"

namespace {

bool IsBlank(QChar c)
{
    return c == QLatin1Char(' ') || c == QLatin1Char('\t');
}

QString ProgramPart(const QString& program)
{
    QString name = program;
    if (!name.startsWith(QLatin1Char('"')) && !name.endsWith(QLatin1Char('"')) &&
        name.contains(QLatin1Char(' ')))
        name = QLatin1Char('"') + name + QLatin1Char('"');
    name.replace(QLatin1Char('/'), QLatin1Char('\\'));
    return name;
}

/// argv[0]: up to the first blank outside quotes; quotes are dropped and
/// backslashes are plain characters.
int SplitProgramName(const QString& line, QStringList& argv)
{
    QString name;
    bool quoted = false;
    int i = 0;
    for (; i < line.size(); ++i) {
        const QChar c = line.at(i);
        if (c == QLatin1Char('"'))
            quoted = !quoted;
        else if (IsBlank(c) && !quoted)
            break;
        else
            name += c;
    }
    argv << name;
    return i;
}

/// One argument from position `i`; returns the position after it.
int SplitArgument(const QString& line, int i, QString& argument)
{
    bool quoted = false;
    while (i < line.size()) {
        const QChar c = line.at(i);
        if (IsBlank(c) && !quoted)
            break;
        if (c == QLatin1Char('\\')) {
            int backslashes = 0;
            while (i < line.size() && line.at(i) == QLatin1Char('\\')) {
                ++backslashes;
                ++i;
            }
            if (i < line.size() && line.at(i) == QLatin1Char('"')) {
                argument += QString(backslashes / 2, QLatin1Char('\\'));
                if (backslashes % 2 == 1) {
                    argument += QLatin1Char('"');
                    ++i;
                }
            } else {
                argument += QString(backslashes, QLatin1Char('\\'));
            }
            continue;
        }
        if (c == QLatin1Char('"')) {
            if (quoted && i + 1 < line.size() && line.at(i + 1) == QLatin1Char('"')) {
                // A doubled quote inside quotes is one literal quote (C runtime since 2008).
                argument += QLatin1Char('"');
                i += 2;
                continue;
            }
            quoted = !quoted;
            ++i;
            continue;
        }
        argument += c;
        ++i;
    }
    return i;
}

} // namespace

QString WindowsCommandLine::QuoteArgument(const QString& argument)
{
    QString quoted = argument;
    // Quotes are escaped and the backslashes before them doubled.
    int index = quoted.indexOf(QLatin1Char('"'));
    while (index >= 0) {
        quoted.insert(index++, QLatin1Char('\\'));
        for (int i = index - 2; i >= 0 && quoted.at(i) == QLatin1Char('\\'); --i) {
            quoted.insert(i, QLatin1Char('\\'));
            ++index;
        }
        index = quoted.indexOf(QLatin1Char('"'), index + 1);
    }
    if (quoted.isEmpty() || quoted.contains(QLatin1Char(' ')) || quoted.contains(QLatin1Char('\t'))) {
        // Trailing backslashes stay outside the closing quote, or they would escape it.
        int end = quoted.size();
        while (end > 0 && quoted.at(end - 1) == QLatin1Char('\\'))
            --end;
        quoted.insert(end, QLatin1Char('"'));
        quoted.prepend(QLatin1Char('"'));
    }
    return quoted;
}

QString WindowsCommandLine::Build(const QString& program, const QStringList& arguments,
                                  const QString& nativeArguments)
{
    QString line;
    if (!program.isEmpty())
        line = ProgramPart(program) + QLatin1Char(' ');
    for (const QString& argument : arguments)
        line += QLatin1Char(' ') + QuoteArgument(argument);
    if (!nativeArguments.isEmpty()) {
        if (!line.isEmpty())
            line += QLatin1Char(' ');
        line += nativeArguments;
    }
    return line;
}

QStringList WindowsCommandLine::Split(const QString& commandLine)
{
    QStringList argv;
    int i = SplitProgramName(commandLine, argv);
    for (;;) {
        while (i < commandLine.size() && IsBlank(commandLine.at(i)))
            ++i;
        if (i >= commandLine.size())
            break;
        QString argument;
        i = SplitArgument(commandLine, i, argument);
        argv << argument;
    }
    return argv;
}
