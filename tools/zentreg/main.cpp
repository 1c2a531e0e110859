// zentreg: brings registry exports (.reg files) into the portable registry and writes them out again.
//
//   zentreg import FILE.reg
//   zentreg export [--regedit4] KEY FILE.reg
//   zentreg --help | --version

#include "programoptions.h"
#include "regfile.h"

#include "kvbase/zentos.h"

#include <QCoreApplication>
#include <QFile>
#include <QStringList>
#include <QTemporaryFile>
#include <QTextStream>

#include <cerrno>

namespace {

const char* const HELP = "Usage: zentreg import FILE.reg\n"
                         "       zentreg export [--regedit4] KEY FILE.reg\n"
                         "       zentreg --help | --version\n"
                         "\n"
                         "Brings registry exports (.reg files as Windows' registry editor writes them)\n"
                         "into the portable registry, and writes keys of it out again, so that a\n"
                         "configuration from a Windows machine can be copied into XML with cfgcopy.\n"
                         "\n"
                         "Commands:\n"
                         "  import FILE.reg   applies the file: all of it, or nothing when a line is bad\n"
                         "                    or the registry refuses a step\n"
                         "  export KEY FILE.reg\n"
                         "                    writes KEY and everything below it to FILE.reg\n"
                         "  KEY begins with its root: HKEY_CURRENT_USER (HKCU) or HKEY_LOCAL_MACHINE (HKLM)\n"
                         "\n"
                         "Formats, one example each:\n"
                         "  Windows Registry Editor Version 5.00   UTF-16 text, the default\n"
                         "      zentreg export HKCU\\SOFTWARE\\Velkor&Amsel\\Zent\\DemoApp DemoApp.reg\n"
                         "  REGEDIT4                               8-bit text, with --regedit4\n"
                         "      zentreg export --regedit4 HKLM\\SOFTWARE\\Velkor&Amsel\\Zent Zent.reg\n"
                         "  import reads both, and UTF-8 too:\n"
                         "      zentreg import DemoApp.reg\n"
                         "\n"
                         "The environment variable ZENT_REGISTRY_DIR names the folder of both hives.\n"
                         "\n"
                         "Exit codes:\n"
                         "  0  imported or exported\n"
                         "  1  the file could not be read, parsed, applied or written; standard error\n"
                         "     says why\n"
                         "  2  wrong arguments; the usage is shown on standard error\n";

int Usage()
{
    QTextStream(stderr) << "usage: zentreg import FILE.reg\n"
                           "       zentreg export [--regedit4] KEY FILE.reg\n";
    return 2;
}

int Fail(const QString& text)
{
    QTextStream(stderr) << "zentreg: " << text << '\n';
    return 1;
}

int Import(const QString& fileName)
{
    QByteArray content;
    switch (ZentOS::Get().ReadRegularFile(fileName, RegFile::MaxFileSize, content)) {
    case ZentOS::ReadResult::Read:
        break;
    case ZentOS::ReadResult::TooLarge:
        return Fail(QStringLiteral("%1: larger than %2 bytes").arg(fileName).arg(RegFile::MaxFileSize));
    case ZentOS::ReadResult::NotRegular:
        return Fail(QStringLiteral("%1: not a regular file").arg(fileName));
    case ZentOS::ReadResult::Missing:
    case ZentOS::ReadResult::Failed: {
        QFile file(fileName);
        file.open(QIODevice::ReadOnly);
        return Fail(QStringLiteral("%1: %2").arg(fileName, file.errorString()));
    }
    }
    RegFile regFile;
    if (!regFile.Parse(content))
        return Fail(QStringLiteral("%1: line %2: %3")
                        .arg(fileName)
                        .arg(regFile.ErrorLine())
                        .arg(regFile.ErrorText()));
    const QString error = regFile.Apply();
    if (!error.isEmpty())
        return Fail(QStringLiteral("%1: %2").arg(fileName, error));
    return 0;
}

int Export(const QString& key, const QString& fileName, RegFile::Format format)
{
    QString error;
    const QByteArray content = RegFile::Export(key, format, &error);
    if (content.isEmpty())
        return Fail(error);
    // Written beside the destination and renamed into place: a link under
    // the name is replaced, never written through (as a save file would).
    QTemporaryFile file(fileName + QStringLiteral(".XXXXXX"));
    if (!file.open() || file.write(content) != content.size() || !file.flush() ||
        !ZentOS::Get().SyncFile(file))
        return Fail(QStringLiteral("%1: %2").arg(fileName, file.errorString()));
    ZentOS::Get().KeepModeAndOwner(file, fileName);
    if (!ZentOS::Get().ReplaceFile(file.fileName(), fileName))
        return Fail(QStringLiteral("%1: %2").arg(fileName, qt_error_string(errno)));
    file.setAutoRemove(false);
    return 0;
}

} // namespace

int main(int argc, char* argv[])
{
    int exitCode = 0;
    if (ProgramOptions::Answer(argc, argv, "zentreg", HELP, exitCode))
        return exitCode;
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments().mid(1);
    if (args.size() == 2 && args.at(0) == QLatin1String("import"))
        return Import(args.at(1));
    if (args.size() >= 3 && args.at(0) == QLatin1String("export")) {
        const bool regedit4 = args.at(1) == QLatin1String("--regedit4");
        if (regedit4)
            args.removeAt(1);
        if (args.size() == 3)
            return Export(args.at(1), args.at(2), regedit4 ? RegFile::Regedit4 : RegFile::Version5);
    }
    return Usage();
}
