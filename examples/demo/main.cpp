// zentdemo: an application of the family built on the library's public API
// only. Start it as
//
//     zentdemo DemoApp Xml:Cfg.xml [--quit-after=<seconds>] [--exit-at-first-turn]
//     zentdemo /h | --help | --version
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
//
// Exit codes: 0 ended (or help or version shown), 1 the start-up failed,
// 2 the command line is wrong (its error and the help are shown).
#include "application/cmdlinehelp.h"
#include "application/zentapplication.h"
#include "configuration/cfgcenter.h"
#include "kvbase/errorhandler.h"
#include "kvbase/kvexception.h"
#include "programoptions.h"

#include <QApplication>
#include <QMessageBox>
#include <QTimer>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

const char* const HELP = "Usage: zentdemo AppKey CfgDoc [--quit-after=SECONDS] [--exit-at-first-turn]\n"
                         "       zentdemo /h | --help | --version\n"
                         "\n"
                         "The demo application of the Zent family: it starts as every application of\n"
                         "the family does (configuration, splash, single instance, translations,\n"
                         "plug-ins) and opens a window that shows what the start-up found. Start it in\n"
                         "a folder that holds its Cfg.xml and splash.png. A second start while one\n"
                         "runs brings the first to the front and ends.\n"
                         "\n"
                         "Arguments:\n"
                         "  AppKey   CfgKey[:PreDllList[:PostDllList]]: the application's key in the\n"
                         "           configuration document (DemoApp), and plug-ins to load before and\n"
                         "           after those the document names (comma-separated, each *.dll)\n"
                         "  CfgDoc   CfgType:CfgTarget: where the configuration lives\n"
                         "\n"
                         "Backends, one example each:\n"
                         "  Xml:FILE          an XML configuration file\n"
                         "                      zentdemo DemoApp Xml:Cfg.xml\n"
                         "  Server[:ADDRESS]  the configuration service on the machine ADDRESS (the\n"
                         "                    local machine when left out), port 4000\n"
                         "                      zentdemo DemoApp Server:192.0.2.10\n"
                         "  The registry is not chosen on an application's command line; cfgcopy\n"
                         "  copies a registry configuration into an XML file:\n"
                         "                      cfgcopy DemoApp Registry DemoApp Xml:Cfg.xml\n"
                         "\n"
                         "Options:\n"
                         "  --quit-after=SECONDS  commits the configuration and ends after SECONDS\n"
                         "  --exit-at-first-turn  prints \"zentdemo: first event-loop turn\" when the\n"
                         "                        event loop first runs, and ends\n"
                         "  /h                    the family's command-line help, shown as a command-line\n"
                         "                        error is: on the terminal, in the desktop's viewer, or\n"
                         "                        on standard error\n"
                         "\n"
                         "Exit codes:\n"
                         "  0  ended, or the help or the version was shown\n"
                         "  1  the start-up failed; the message says why\n"
                         "  2  the command line is wrong; its error and the help are shown\n";

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
    int exitCode = 0;
    if (ProgramOptions::Answer(argc, argv, "zentdemo", HELP, exitCode))
        return exitCode;
    CmdLineHelp help;
    if (help.Display(argc, argv)) {
        // Help that was asked for is no error.
        const bool helpAsked = argc >= 2 && std::strcmp(argv[1], "/h") == 0;
        return helpAsked ? 0 : 2;
    }
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
