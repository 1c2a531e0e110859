/// \file
/// CmdLineHelp: the check of an application's command line and its help.
#ifndef APPLICATION_CMDLINEHELP_H
#define APPLICATION_CMDLINEHELP_H

#include "zentappstartup_export.h"

#include <QString>

/// Checks the command line "AppKey CfgDoc" of an application and shows the
/// command-line help.
///
/// AppKey is CfgKey[:PreDllList[:PostDllList[:rest]]], CfgDoc is
/// CfgType[:CfgTarget]. Every check returns an empty text when its input is
/// good and otherwise an error fragment; each enclosing check puts its own
/// context in front, so the final text reads from the outermost context to
/// the innermost cause. Arguments are taken as Latin-1 text.
class ZENTAPPSTARTUP_EXPORT CmdLineHelp
{
public:
    CmdLineHelp();
    /// Copies the program name.
    CmdLineHelp(const CmdLineHelp& other);
    /// Copies the program name.
    CmdLineHelp& operator=(const CmdLineHelp& other);
    virtual ~CmdLineHelp();

    /// Checks the command line, or shows the help when argument 1 is "/h".
    /// When there is something to show (an error or the help), the text is
    /// written in Latin-1 to the file argument 0 + ".txt" and shown to the
    /// user; when the file cannot be written or shown, the same bytes go to
    /// standard error. Returns true when text
    /// was shown (the application should end), false when the command line is
    /// good and nothing was written or shown.
    bool Display(int argc, char** argv);

    /// Splits an AppKey at its first three colons. Only `cfgKey` is cleared
    /// first; outputs that the text does not reach keep their values.
    static void ParseAppKey(const QString& appKey, QString& cfgKey, QString& preDlls, QString& postDlls,
                            QString& rest);
    /// Splits a CfgDoc at its first colon. A CfgDoc without a colon that holds
    /// a "-" anywhere gives the type "-": no configuration document is given.
    static void ParseCfgDoc(const QString& cfgDoc, QString& cfgType, QString& cfgTarget);

protected:
    /// Checks argument 1 (AppKey) and, when present, argument 2 (CfgDoc);
    /// further arguments are not looked at.
    virtual QString CheckArgs(int argc, char** argv);
    /// The help text shown below an error, or alone when asked for.
    virtual QString CreateHelpText();

    /// Checks an AppKey: its CfgKey ("*" or a letter followed by at least one
    /// further non-blank character) and its two plug-in lists; the rest is
    /// not looked at. Empty when good, else an error fragment.
    QString CheckAppKey(const QString& appKey);
    /// Checks a CfgDoc: the types "Xml" (with its file name), "Server" (with
    /// its server name) and "-" are accepted, any other type is an error.
    /// Empty when good, else an error fragment.
    QString CheckCfgDoc(const QString& cfgDoc);

    /// Argument 0 as given to Display(); empty before.
    QString m_ProgName;

private:
    QString CheckCfgKey(const QString& key);
    QString CheckDllList(const QString& list);
    QString CheckDllName(const QString& name);
    QString CheckXmlFileName(const QString& name);
    QString CheckServerName(const QString& name);
};

#endif
