#include "application/cmdlinehelp.h"

#include "application/cmdlinehelp_p.h"
#include "kvbase/zentos.h"

#include <QFile>
#include <QHostAddress>
#include <QRegularExpression>

namespace {

const QChar COLON = QLatin1Char(':');

// The text before the first colon goes to `head`, the text after it stays in `text`.
void SplitAtFirstColon(QString& text, QString& head)
{
    const int colon = text.indexOf(COLON);
    head = text.left(colon);
    text = text.mid(colon + 1);
}

QString HelpUsage()
{
    return QStringLiteral("zent.exe AppKey CfgDoc\n");
}

QString HelpAppKeyBlock()
{
    return QStringLiteral("AppKey     =   CfgKey:DllList:DllList\n"
                          "CfgKey     =   The case sensitive key in the configuration document CfgDoc.\n"
                          "               * specifies the whole CfgDoc, not even a single key.\n"
                          "DllList    =   Comma seperated list of dlls. Extension .dll is expected.\n"
                          "               Dlls after the first : will be loaded before loading\n"
                          "               Dlls specified in CfgDoc.\n"
                          "               Dlls after the second : will be loaded after loading\n"
                          "               the dlls specified in CfgDoc.\n");
}

QString HelpExample()
{
    // 192.0.2.0/24 is reserved for documentation, so the example never names a real machine.
    return QStringLiteral("Example:\n"
                          "zent.exe QX310DRV:NoticeBox.dll,FolderPane.dll Server:192.0.2.10\n");
}

// Argument 0 + ".txt", keeping argument 0's bytes as the file system gave them.
QString HelpFileName(int argc, char** argv)
{
    const QByteArray program = argc > 0 && argv && argv[0] ? QByteArray(argv[0]) : QByteArray();
    return QFile::decodeName(program + ".txt");
}

// Everything before the last "." is the name, everything after it the
// suffix, compared without regard to case.
enum class Suffix
{
    Missing,
    Wrong,
    Expected
};

Suffix ClassifySuffix(const QString& name, const QString& expected)
{
    const int dot = name.lastIndexOf(QLatin1Char('.'));
    if (dot < 0)
        return Suffix::Missing;
    return name.mid(dot + 1).toLower() == expected ? Suffix::Expected : Suffix::Wrong;
}

} // namespace

namespace CmdLineHelpText {

QString CfgDocBlock()
{
    // The tab indentation and the trailing blank are how users have always
    // seen this text (deliberate).
    return QStringLiteral("CfgDoc     =   CfgType:CfgTarget\n"
                          "CfgType    =   [ Registry, Xml, Server ] default:Server, case sensitive\n"
                          "CfgTarget( Registry )  =   none, not available in LINUX\n"
                          "CfgTarget( Xml )       =   The Xml file name. Extension .xml is expected.\n"
                          "                           default: Cfg.xml\n"
                          "CfgTarget( Server )    =   The IP address and port of the machine, \n"
                          "\t\t\t\t\t\t\t\t\t\t\t\t\t the server is installed on.\n"
                          "                           default: The IP address of the local machine.\n"
                          "\t\t\t\t\t\t\t\t\t\t\t\t\t default: Port is 4000\n");
}

QString Argument(int argc, char** argv, int index)
{
    if (!argv || index < 0 || index >= argc)
        return QString();
    return QString::fromLatin1(argv[index]);
}

} // namespace CmdLineHelpText

CmdLineHelp::CmdLineHelp() = default;

CmdLineHelp::CmdLineHelp(const CmdLineHelp& other) = default;

CmdLineHelp& CmdLineHelp::operator=(const CmdLineHelp& other) = default;

CmdLineHelp::~CmdLineHelp() = default;

bool CmdLineHelp::Display(int argc, char** argv)
{
    m_ProgName = CmdLineHelpText::Argument(argc, argv, 0);

    QString text;
    if (argc < 2 || CmdLineHelpText::Argument(argc, argv, 1) != QLatin1String("/h")) {
        const QString err = CheckArgs(argc, argv);
        if (err.isEmpty())
            return false;
        text = QStringLiteral("Command line error") + err + QStringLiteral("\nSee command line help:\n\n");
    }
    text += CreateHelpText();

    const QString fileName = HelpFileName(argc, argv);
    const QByteArray bytes = text.toLatin1();
    QFile file;
    bool written = false;
    // Made afresh: a link planted under the name is replaced, never written through.
    if (ZentOS::Create().ReplaceWithNewFile(file, fileName, 0644)) {
        // Flushed for the viewer; the file is closed only after the request returned.
        written = file.write(bytes) == bytes.size() && file.flush();
    }
    // A user never meets a silent failure: a text that cannot be written or
    // shown goes to standard error as it is.
    ZentOS& os = ZentOS::Create();
    if (!written || !os.DisplayTextFile(fileName))
        os.WriteStandardError(bytes);
    return true;
}

void CmdLineHelp::ParseAppKey(const QString& appKey, QString& cfgKey, QString& preDlls, QString& postDlls,
                              QString& rest)
{
    // Only the key is cleared; parts the text does not reach keep the
    // caller's values (deliberate).
    cfgKey.clear();
    QString remaining = appKey;
    if (!remaining.contains(COLON)) {
        cfgKey = remaining;
        return;
    }
    SplitAtFirstColon(remaining, cfgKey);
    if (!remaining.contains(COLON)) {
        preDlls = remaining;
        return;
    }
    SplitAtFirstColon(remaining, preDlls);
    if (!remaining.contains(COLON)) {
        postDlls = remaining;
        return;
    }
    SplitAtFirstColon(remaining, postDlls);
    rest = remaining;
}

void CmdLineHelp::ParseCfgDoc(const QString& cfgDoc, QString& cfgType, QString& cfgTarget)
{
    cfgType = cfgDoc;
    cfgTarget.clear();
    const int colon = cfgDoc.indexOf(COLON);
    if (colon >= 0) {
        cfgTarget = cfgDoc.mid(colon + 1);
        cfgType = cfgDoc.left(colon);
    } else if (cfgDoc.contains(QLatin1Char('-'))) {
        // The argument is somebody else's option, not a configuration document.
        cfgType = QStringLiteral("-");
    }
}

QString CmdLineHelp::CheckArgs(int argc, char** argv)
{
    if (argc < 2)
        return QStringLiteral(", the argument AppKey is missing.");
    QString err = CheckAppKey(CmdLineHelpText::Argument(argc, argv, 1));
    if (!err.isEmpty())
        return QStringLiteral(" in AppKey") + err;
    if (argc >= 3) {
        err = CheckCfgDoc(CmdLineHelpText::Argument(argc, argv, 2));
        if (!err.isEmpty())
            return QStringLiteral(" in CfgDoc") + err;
    }
    return QString();
}

QString CmdLineHelp::CreateHelpText()
{
    return HelpUsage() + QStringLiteral("\n") + HelpAppKeyBlock() + QStringLiteral("\n") +
           CmdLineHelpText::CfgDocBlock() + QStringLiteral("\n") + HelpExample();
}

QString CmdLineHelp::CheckAppKey(const QString& appKey)
{
    QString cfgKey, preDlls, postDlls, rest;
    ParseAppKey(appKey, cfgKey, preDlls, postDlls, rest);
    QString err = CheckCfgKey(cfgKey);
    if (!err.isEmpty())
        return QStringLiteral(" in CfgKey") + err;
    err = CheckDllList(preDlls);
    if (!err.isEmpty())
        return QStringLiteral(" in DllList for preload") + err;
    err = CheckDllList(postDlls);
    if (!err.isEmpty())
        return QStringLiteral(" in DllList for postload") + err;
    // The rest belongs to the configuration centre.
    return QString();
}

QString CmdLineHelp::CheckCfgDoc(const QString& cfgDoc)
{
    QString cfgType, cfgTarget;
    ParseCfgDoc(cfgDoc, cfgType, cfgTarget);
    if (cfgType == QLatin1String("Xml")) {
        const QString err = CheckXmlFileName(cfgTarget);
        return err.isEmpty() ? err : QStringLiteral(" in Xml File name") + err;
    }
    if (cfgType == QLatin1String("Server")) {
        const QString err = CheckServerName(cfgTarget);
        return err.isEmpty() ? err : QStringLiteral(" in Server name") + err;
    }
    if (cfgType == QLatin1String("-"))
        return QString();
    // "Registry" is listed in the help but chosen by other means, so the
    // check refuses it (deliberate).
    return QStringLiteral(": Unknown CfgType.");
}

QString CmdLineHelp::CheckCfgKey(const QString& key)
{
    if (key == QLatin1String("*"))
        return QString();
    // The message says alphanumeric although any non-space characters pass
    // after the first letter, and a single letter fails (deliberate).
    static const QRegularExpression pattern(
        QRegularExpression::anchoredPattern(QStringLiteral("([a-z]|[A-Z])\\S+$")));
    if (pattern.match(key).hasMatch())
        return QString();
    return QStringLiteral(": not all characters are alphanumeric.");
}

QString CmdLineHelp::CheckDllList(const QString& list)
{
    QString remaining = list;
    while (!remaining.isEmpty()) {
        QString name;
        const int comma = remaining.indexOf(QLatin1Char(','));
        if (comma >= 0) {
            name = remaining.left(comma);
            remaining = remaining.mid(comma + 1);
        } else {
            name = remaining;
            remaining.clear();
        }
        const QString err = CheckDllName(name);
        if (!err.isEmpty())
            return err;
    }
    return QString();
}

QString CmdLineHelp::CheckDllName(const QString& name)
{
    switch (ClassifySuffix(name, QStringLiteral("dll"))) {
    case Suffix::Missing:
        return QStringLiteral(": no suffix found. \".dll\" is expected for ") + name + QStringLiteral(".");
    case Suffix::Wrong:
        return QStringLiteral(": wrong suffix found. \".dll\" is expected for ") + name + QStringLiteral(".");
    case Suffix::Expected:
        break;
    }
    return QString();
}

QString CmdLineHelp::CheckXmlFileName(const QString& name)
{
    switch (ClassifySuffix(name, QStringLiteral("xml"))) {
    case Suffix::Missing:
        return QStringLiteral(": no suffix found. \".xml\" is expected.");
    case Suffix::Wrong:
        return QStringLiteral(": wrong suffix found. \".xml\" is expected.");
    case Suffix::Expected:
        break;
    }
    return QString();
}

QString CmdLineHelp::CheckServerName(const QString& name)
{
    if (name.isEmpty() || name.toLower() == QLatin1String("localhost"))
        return QString();
    QHostAddress address;
    if (address.setAddress(name))
        return QString();
    return QStringLiteral(": not an IP address.");
}
