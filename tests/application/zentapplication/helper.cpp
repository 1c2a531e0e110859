// A small application for the start-up tests: it runs the start-up sequence
// on its own command line ("AppKey CfgDoc [--window] [--minimized]") and
// reports on standard output, one line each, what a test cannot see from
// outside: the end of Init, its window's activation and state, the end of the
// event loop. A line "quit" on standard input, or its end, quits it.
//
// Two more uses, for tests that run it as another user:
//   zentapphelper --broadcast <name>  asks the running instance of <name> to
//                                     come to the front; prints the result
//   zentapphelper --connect <path>    connects to a local socket; prints
//                                     "connected" or "refused"
#include "application/zentapplication.h"
#include "kvbase/kvexception.h"
#include "kvbase/zentos.h"

#include <QApplication>
#include <QEvent>
#include <QEventLoop>
#include <QLocalSocket>
#include <QSocketNotifier>
#include <QTimer>
#include <QWidget>

#include <cstdio>
#include <cstring>
#include <memory>

namespace {

void Report(const QString& line)
{
    std::fputs(qPrintable(line + QLatin1Char('\n')), stdout);
    std::fflush(stdout);
}

bool HasOption(int argc, char** argv, const char* option)
{
    for (int i = 3; i < argc; ++i) {
        if (std::strcmp(argv[i], option) == 0)
            return true;
    }
    return false;
}

/// Lets the platform deliver what showing and activating windows caused.
void Settle()
{
    QEventLoop loop;
    QTimer::singleShot(100, &loop, &QEventLoop::quit);
    loop.exec();
}

/// Reports the window's state changes and, once switched on, its activations.
class StateReporter : public QObject
{
public:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        const auto* widget = static_cast<QWidget*>(watched);
        if (event->type() == QEvent::WindowStateChange)
            Report(widget->isMinimized() ? QStringLiteral("window-state minimized")
                                         : QStringLiteral("window-state normal"));
        if (event->type() == QEvent::WindowActivate && m_bReportActivation)
            Report(QStringLiteral("activated ") + widget->objectName());
        return false;
    }

    bool m_bReportActivation = false;
};

} // namespace

int RunOtherUse(const char* use, const char* argument)
{
    if (std::strcmp(use, "--broadcast") == 0) {
        const QString name = QString::fromLocal8Bit(argument);
        Report(
            QString::number(ZentOS::Create().BroadcastMessage(name, ZentOS::Create().RegisterMessage(name))));
        return 0;
    }
    QLocalSocket socket;
    socket.connectToServer(QString::fromLocal8Bit(argument));
    const bool connected = socket.waitForConnected(1000);
    Report(connected ? QStringLiteral("connected") : QStringLiteral("refused"));
    if (connected)
        socket.waitForDisconnected(1000);
    return 0;
}

int main(int argc, char** argv)
{
    if (argc == 3 && std::strncmp(argv[1], "--", 2) == 0)
        return RunOtherUse(argv[1], argv[2]);
    const bool showWindow = HasOption(argc, argv, "--window");
    const bool minimized = HasOption(argc, argv, "--minimized");
    ZentApplication app;
    try {
        app.Init(argc, argv, false);
    } catch (const KVException& e) {
        Report(QStringLiteral("init-failed ") + e.GetMessage());
        return 3;
    }
    Report(QStringLiteral("init-returned"));

    StateReporter stateReporter;
    std::unique_ptr<QWidget> window;
    if (showWindow) {
        window.reset(new QWidget);
        window->setObjectName(QStringLiteral("HelperWindow"));
        window->resize(240, 120);
        window->installEventFilter(&stateReporter);
        if (minimized)
            window->showMinimized();
        else
            window->show();
        // A second start must find no active window, as when the user has
        // switched to another application: a window of its own takes the
        // focus and goes.
        Settle();
        auto* elsewhere = new QWidget;
        elsewhere->show();
        elsewhere->activateWindow();
        Settle();
        delete elsewhere;
        Settle();
    }
    if (showWindow) {
        stateReporter.m_bReportActivation = true;
        Report(QStringLiteral("window-shown"));
    }

    QSocketNotifier input(0, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, [&app, &input] {
        char line[64] = {};
        if (!std::fgets(line, sizeof(line), stdin) || std::strncmp(line, "quit", 4) == 0) {
            input.setEnabled(false);
            app.Quit();
        }
    });

    const int code = app.Exec();
    Report(QStringLiteral("exec-returned %1").arg(code));
    window.reset();
    return code;
}
