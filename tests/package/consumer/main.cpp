// Builds an argument vector and switches a trace category through the
// installed headers and libraries; prints what it got.

#include "application/argformat.h"
#include "application/cmdlinehelp.h"
#include "kvbase/errorhandler.h"

#include <QString>

#include <iostream>
#include <string>

int main()
{
    int argc = 0;
    char** argv = nullptr;
    ArgFormat::CreateArgs(argc, argv, "DemoApp:a.dll Xml:Cfg.xml");
    const std::string line = ArgFormat::GetCmdLine(argc, argv);
    ArgFormat::DeleteArgs(argc, argv);

    QString cfgKey, preDlls, postDlls, rest;
    CmdLineHelp::ParseAppKey(QStringLiteral("DemoApp:a.dll"), cfgKey, preDlls, postDlls, rest);

    ErrorHandler::Instance().SetMessageMask(ErrorHandler::Q_EXPERT_TRACE, true);
    const bool expertTrace = ErrorHandler::Instance().IsEnabled(ErrorHandler::Q_EXPERT_TRACE);

    if (line != "zent.exe DemoApp:a.dll Xml:Cfg.xml" || cfgKey != QLatin1String("DemoApp") || !expertTrace) {
        std::cerr << "unexpected: " << line << " / " << cfgKey.toStdString() << " / " << expertTrace << '\n';
        return 1;
    }
    std::cout << "consumer: " << line << " key " << cfgKey.toStdString() << '\n';
    return 0;
}
