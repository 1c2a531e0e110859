#include "application/cmdlinehelpfixapp.h"

#include "application/cmdlinehelp_p.h"

CmdLineHelpFixApp::CmdLineHelpFixApp() = default;

CmdLineHelpFixApp::CmdLineHelpFixApp(const CmdLineHelpFixApp& other) = default;

// The base class can only be copied; its one member is an implicitly shared
// string, so the copy costs no more than a move.
CmdLineHelpFixApp::CmdLineHelpFixApp(CmdLineHelpFixApp&& other) noexcept : CmdLineHelp(other) {}

CmdLineHelpFixApp& CmdLineHelpFixApp::operator=(const CmdLineHelpFixApp& other) = default;

CmdLineHelpFixApp::~CmdLineHelpFixApp() = default;

QString CmdLineHelpFixApp::CheckArgs(int argc, char** argv)
{
    // Argument 1 holds the program's own fixed AppKey and is never the
    // user's to get wrong (deliberate: it is not looked at).
    if (argc < 3)
        return QString();
    const QString err = CheckCfgDoc(CmdLineHelpText::Argument(argc, argv, 2));
    return err.isEmpty() ? err : QStringLiteral(" in CfgDoc") + err;
}

QString CmdLineHelpFixApp::CreateHelpText()
{
    return m_ProgName + QStringLiteral(" CfgDoc") + QStringLiteral("\n") + QStringLiteral("\n") +
           CmdLineHelpText::CfgDocBlock() + QStringLiteral("\n") + QStringLiteral("Examples:\n") +
           m_ProgName + QStringLiteral(" Server\n") + m_ProgName + QStringLiteral(" Xml:System.xml\n");
}
