// Feeds arbitrary bytes to the command-line parsing and checks and to the
// argument-vector builder. The input is one command line; split at NUL bytes
// it becomes an argument vector for the checks.

#include "application/argformat.h"
#include "application/cmdlinehelp.h"
#include "application/cmdlinehelpfixapp.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

class CheckingHelp : public CmdLineHelp
{
public:
    using CmdLineHelp::CheckArgs;
};

class CheckingFixApp : public CmdLineHelpFixApp
{
public:
    using CmdLineHelpFixApp::CheckArgs;
};

void FuzzParsing(const QString& text)
{
    QString cfgKey, preDlls, postDlls, rest;
    CmdLineHelp::ParseAppKey(text, cfgKey, preDlls, postDlls, rest);
    // The parts and the colons between them give back the text it came from.
    QString joined = cfgKey;
    for (const QString* part : {&preDlls, &postDlls, &rest}) {
        if (joined.size() == text.size())
            break;
        joined += QLatin1Char(':') + *part;
    }
    if (joined != text)
        std::abort();

    QString cfgType, cfgTarget;
    CmdLineHelp::ParseCfgDoc(text, cfgType, cfgTarget);
}

void FuzzChecks(const QByteArray& input)
{
    QList<QByteArray> args = input.split('\0');
    std::vector<char*> argv;
    for (QByteArray& arg : args)
        argv.push_back(arg.data());
    argv.push_back(nullptr);
    const int argc = static_cast<int>(args.size());

    CheckingHelp help;
    const QString err = help.CheckArgs(argc, argv.data());
    // A check never fails without saying where.
    if (!err.isEmpty() && !err.startsWith(QLatin1String(" in ")) && !err.startsWith(QLatin1String(", ")))
        std::abort();
    CheckingFixApp fixApp;
    fixApp.CheckArgs(argc, argv.data());
}

void FuzzVectors(const QByteArray& input)
{
    int argc = 0;
    char** argv = nullptr;
    ArgFormat::CreateArgs(argc, argv, input.constData());
    int copyCount = 0;
    char** copy = nullptr;
    ArgFormat::CopyArgs(argc, argv, copyCount, copy);
    ArgFormat::InsertArg("Fixed", 1, copyCount, copy);
    const std::string line = ArgFormat::GetCmdLine(argc, argv);
    // The flattened vector is the program name and a prefix of the line.
    if (line.compare(0, 9, "zent.exe ") != 0 && line != "zent.exe")
        std::abort();
    if (line.size() > 9 && !input.startsWith(QByteArray::fromStdString(line.substr(9))))
        std::abort();
    ArgFormat::DeleteArgs(copyCount, copy);
    ArgFormat::DeleteArgs(argc, argv);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray input(reinterpret_cast<const char*>(data), static_cast<int>(size));
    // Parsing sees the whole input as Latin-1, as the checks read arguments.
    FuzzParsing(QString::fromLatin1(input));
    FuzzChecks(input);
    // The vector builder reads a NUL-terminated line: everything up to the first NUL.
    FuzzVectors(QByteArray(input.constData()));
    return 0;
}
