// zentreg: brings registry exports (.reg files) into the portable registry and writes them out again.
//
//   zentreg import FILE.reg
//   zentreg export [--regedit4] KEY FILE.reg

#include "regfile.h"

#include "kvbase/zentos.h"

#include <QCoreApplication>
#include <QFile>
#include <QStringList>
#include <QTemporaryFile>
#include <QTextStream>

#include <cerrno>

namespace {

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
