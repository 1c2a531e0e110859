// zentdemo: an application of the family built on the library's public API
// only. Start it as
//
//     zentdemo DemoApp Xml:Cfg.xml [--quit-after=<seconds>] [--exit-at-first-turn]
//
// in a folder that holds Cfg.xml and splash.png. The configuration names the
// splash, the language, the trace switches and the plug-in ZentDemo.dll,
// which opens the main window. A second zentdemo started while one runs
// brings the first to the front and ends.
//
// --quit-after=<seconds>  commits the configuration and ends by itself (for
//                         runs without anybody at the screen)
// --exit-at-first-turn    prints "zentdemo: first event-loop turn" when the
//                         event loop first runs and ends (start-up timing)
#include "application/cmdlinehelp.h"
#include "application/zentapplication.h"
#include "configuration/cfgcenter.h"
#include "kvbase/errorhandler.h"
#include "kvbase/kvexception.h"

#include <QApplication>
#include <QMessageBox>
#include <QTimer>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

struct DemoOptions
{
    int quitAfterSeconds = 0;
    bool exitAtFirstTurn = false;
};

// Options follow the two arguments every application of the family takes.
DemoOptions ParseOptions(int argc, char** argv)
{
    static const char quitAfter[] = "--quit-after=";
    DemoOptions options;
    for (int i = 3; i < argc; ++i) {
        if (std::strncmp(argv[i], quitAfter, sizeof(quitAfter) - 1) == 0)
            options.quitAfterSeconds = std::atoi(argv[i] + sizeof(quitAfter) - 1);
        else if (std::strcmp(argv[i], "--exit-at-first-turn") == 0)
            options.exitAtFirstTurn = true;
    }
    return options;
}

/// Information (such as the configuration centre's report that the
/// configuration is open) goes to the log only; warnings and errors are shown
/// in a box when there is a screen to show them on.
void PresentMessage(ErrorHandler::MessageKind kind, const QString& text)
{
    const QString platform = QGuiApplication::platformName();
    if (kind == ErrorHandler::MSG_Information || !qobject_cast<QApplication*>(QCoreApplication::instance()) ||
        platform == QLatin1String("offscreen") || platform == QLatin1String("minimal"))
        return;
    if (kind == ErrorHandler::MSG_Error)
        QMessageBox::critical(nullptr, QCoreApplication::applicationName(), text);
    else
        QMessageBox::warning(nullptr, QCoreApplication::applicationName(), text);
}

} // namespace

int main(int argc, char** argv)
{
    CmdLineHelp help;
    if (help.Display(argc, argv))
        return 2;
    const DemoOptions options = ParseOptions(argc, argv);

    // The expert trace shows every start-up step, even those before the
    // configuration switches it on.
    ErrorHandler::Instance().SetMessageMask(ErrorHandler::Q_EXPERT_TRACE, true);
    ErrorHandler::Instance().SetMessagePresenter(&PresentMessage);
    ZentApplication app;
    try {
        app.Init(argc, argv, false);
    } catch (const KVException& e) {
        ErrorHandler::Instance().Message(e.GetMessage(), ErrorHandler::MSG_Error, QStringLiteral("main"),
                                         QStringLiteral("zentdemo"));
        return 1;
    }

    if (options.exitAtFirstTurn) {
        QTimer::singleShot(0, [&app] {
            std::puts("zentdemo: first event-loop turn");
            std::fflush(stdout);
            app.Quit();
        });
    }
    if (options.quitAfterSeconds > 0) {
        QTimer::singleShot(options.quitAfterSeconds * 1000, [&app] {
            CfgCenter::CommitData();
            app.Quit();
        });
    }
    return app.Exec();
}
