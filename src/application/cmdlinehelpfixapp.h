/// \file
/// CmdLineHelpFixApp: the command-line check of applications with a fixed AppKey.
#ifndef APPLICATION_CMDLINEHELPFIXAPP_H
#define APPLICATION_CMDLINEHELPFIXAPP_H

#include "application/cmdlinehelp.h"
#include "zentappstartup_export.h"

/// The command-line check and help of an application whose AppKey is fixed
/// in the program: the user gives only the CfgDoc.
///
/// It expects the vector in which the fixed AppKey has been inserted as
/// argument 1, so the user's CfgDoc stands at argument 2.
class ZENTAPPSTARTUP_EXPORT CmdLineHelpFixApp : public CmdLineHelp
{
public:
    CmdLineHelpFixApp();
    /// Copies the program name.
    CmdLineHelpFixApp(const CmdLineHelpFixApp& other);
    /// Copies the program name; `other` keeps its own.
    CmdLineHelpFixApp(CmdLineHelpFixApp&& other) noexcept;
    /// Copies the program name.
    CmdLineHelpFixApp& operator=(const CmdLineHelpFixApp& other);
    ~CmdLineHelpFixApp() override;

protected:
    /// Checks argument 2 (CfgDoc) when present; nothing else.
    QString CheckArgs(int argc, char** argv) override;
    /// The help names the running program as given in argument 0.
    QString CreateHelpText() override;
};

#endif
