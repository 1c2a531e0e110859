// zentcmdline AppKey CfgDoc
// zentcmdline /h
//
// Checks its command line as every application of the family does before it
// starts. A wrong command line is reported on standard error and, with the
// help below it, in the help file beside the program, which is then shown;
// "/h" shows the help alone. A good command line is printed as understood.

#include "application/cmdlinehelp.h"

#include <QString>

#include <iostream>

namespace {

// Remembers the error fragment, so that the program can also print it.
class DemoCmdLineHelp : public CmdLineHelp
{
public:
    QString LastError() const { return m_sLastError; }

protected:
    QString CheckArgs(int argc, char** argv) override
    {
        m_sLastError = CmdLineHelp::CheckArgs(argc, argv);
        return m_sLastError;
    }

private:
    QString m_sLastError;
};

void PrintUnderstood(int argc, char** argv)
{
    QString cfgKey, preDlls, postDlls, rest;
    CmdLineHelp::ParseAppKey(QString::fromLatin1(argv[1]), cfgKey, preDlls, postDlls, rest);
    std::cout << "CfgKey:       " << cfgKey.toStdString() << '\n'
              << "Pre-load:     " << preDlls.toStdString() << '\n'
              << "Post-load:    " << postDlls.toStdString() << '\n';
    if (argc >= 3) {
        QString cfgType, cfgTarget;
        CmdLineHelp::ParseCfgDoc(QString::fromLatin1(argv[2]), cfgType, cfgTarget);
        std::cout << "CfgType:      " << cfgType.toStdString() << '\n'
                  << "CfgTarget:    " << cfgTarget.toStdString() << '\n';
    }
}

} // namespace

int main(int argc, char** argv)
{
    DemoCmdLineHelp help;
    if (!help.Display(argc, argv)) {
        PrintUnderstood(argc, argv);
        return 0;
    }
    if (help.LastError().isEmpty()) {
        std::cout << "Help shown from " << argv[0] << ".txt\n";
        return 0;
    }
    std::cerr << "Command line error" << help.LastError().toStdString() << '\n'
              << "See command line help in " << argv[0] << ".txt\n";
    return 1;
}
