// A small application for the start-up tests: it runs the start-up sequence
// on its own command line ("AppKey CfgDoc [--window] [--minimized]") and
// reports on standard output, one line each, what a test cannot see from
// outside: the end of Init, its window's activation and state, the end of the
// event loop. A line "quit" on standard input, or its end, quits it.
#include "application/zentapplication.h"
#include "kvbase/kvexception.h"

#include <QApplication>
#include <QEvent>
#include <QSocketNotifier>
#include <QWidget>
#include <QWindow>

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

class StateReporter : public QObject
{
public:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::WindowStateChange) {
            const auto* widget = static_cast<QWidget*>(watched);
            Report(widget->isMinimized() ? QStringLiteral("window-state minimized")
                                         : QStringLiteral("window-state normal"));
        }
        return false;
    }
};

} // namespace

int main(int argc, char** argv)
{
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

    QObject::connect(qApp, &QGuiApplication::focusWindowChanged, [](QWindow*) {
        QWidget* active = QApplication::activeWindow();
        Report(active ? QStringLiteral("activated ") + active->objectName() : QStringLiteral("deactivated"));
    });
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
        // switched to another application.
        QApplication::setActiveWindow(nullptr);
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
