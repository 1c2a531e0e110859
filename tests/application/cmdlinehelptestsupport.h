#ifndef TESTS_APPLICATION_CMDLINEHELPTESTSUPPORT_H
#define TESTS_APPLICATION_CMDLINEHELPTESTSUPPORT_H

// Shared parts of the tests of CmdLineHelp and CmdLineHelpFixApp.

#include "application/cmdlinehelp.h"
#include "common/commandline.h"
#include "kvbase/zentos.h"

#include <QFile>
#include <QList>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>

/// Records which files would have been shown, and what they held, instead of
/// opening a viewer; and what would have gone to standard error.
class RecordingOS : public ZentOS
{
public:
    bool DisplayTextFile(const QString& fileName) override
    {
        m_shown.append(fileName);
        m_shownContent.append(ReadFile(fileName));
        return m_result;
    }

    bool WriteStandardError(const QByteArray& bytes) override
    {
        m_standardError += bytes;
        return true;
    }

    static QByteArray ReadFile(const QString& fileName)
    {
        QFile file(fileName);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
    }

    QStringList m_shown;
    QList<QByteArray> m_shownContent;
    QByteArray m_standardError;
    bool m_result = true;
};

/// One test's surroundings: a RecordingOS in place of the system and a fresh
/// folder for the programs whose help files are written.
class HelpTestEnvironment
{
public:
    HelpTestEnvironment() { ZentOS::SetInstance(&os); }
    ~HelpTestEnvironment() { ZentOS::SetInstance(nullptr); }
    HelpTestEnvironment(const HelpTestEnvironment&) = delete;
    HelpTestEnvironment& operator=(const HelpTestEnvironment&) = delete;

    /// Argument 0 of a program called `name` in the folder.
    QByteArray Program(const QString& name) const { return QFile::encodeName(dir.filePath(name)); }

    RecordingOS os;
    QTemporaryDir dir;
};

/// `help.Display()` on a command line of `args`.
inline bool Display(CmdLineHelp& help, const QList<QByteArray>& args)
{
    CommandLine line(args);
    return help.Display(line.argc(), line.argv());
}

/// `help.CheckArgs()` on a command line of `args`; `Help` opens the protected check.
template <typename Help> QString CheckArgs(Help& help, const QList<QByteArray>& args)
{
    CommandLine line(args);
    return help.CheckArgs(line.argc(), line.argv());
}

/// The description of CfgDoc in both help texts.
inline QString ExpectedCfgDocBlock()
{
    const QString blanks27(27, QLatin1Char(' '));
    const QString tabs13(13, QLatin1Char('\t'));
    return QLatin1String("CfgDoc     =   CfgType:CfgTarget\n") +
           QLatin1String("CfgType    =   [ Registry, Xml, Server ] default:Server, case sensitive\n") +
           QLatin1String("CfgTarget( Registry )  =   none, not available in LINUX\n") +
           QLatin1String("CfgTarget( Xml )       =   The Xml file name. Extension .xml is expected.\n") +
           blanks27 + QLatin1String("default: Cfg.xml\n") +
           QLatin1String("CfgTarget( Server )    =   The IP address and port of the machine, \n") + tabs13 +
           QLatin1String(" the server is installed on.\n") + blanks27 +
           QLatin1String("default: The IP address of the local machine.\n") + tabs13 +
           QLatin1String(" default: Port is 4000\n");
}

/// The help text of CmdLineHelp.
inline QString ExpectedHelpText()
{
    const QString indent(15, QLatin1Char(' '));
    return QLatin1String("zent.exe AppKey CfgDoc\n") + QLatin1String("\n") +
           QLatin1String("AppKey     =   CfgKey:DllList:DllList\n") +
           QLatin1String("CfgKey     =   The case sensitive key in the configuration document CfgDoc.\n") +
           indent + QLatin1String("* specifies the whole CfgDoc, not even a single key.\n") +
           QLatin1String("DllList    =   Comma seperated list of dlls. Extension .dll is expected.\n") +
           indent + QLatin1String("Dlls after the first : will be loaded before loading\n") + indent +
           QLatin1String("Dlls specified in CfgDoc.\n") + indent +
           QLatin1String("Dlls after the second : will be loaded after loading\n") + indent +
           QLatin1String("the dlls specified in CfgDoc.\n") + QLatin1String("\n") + ExpectedCfgDocBlock() +
           QLatin1String("\n") + QLatin1String("Example:\n") +
           QLatin1String("zent.exe QX310DRV:NoticeBox.dll,FolderPane.dll Server:192.0.2.10\n");
}

#endif
