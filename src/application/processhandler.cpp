#include "application/processhandler.h"

#include "application/processoutputhandler.h"
#include "kvbase/errorhandler.h"
#include "kvbase/zentos.h"
#include "threading/threadswitchingadministration.h"

#include <QCoreApplication>
#include <QDir>
#include <QMutexLocker>
#include <QThread>

namespace {

constexpr int START_WAIT_MS = 5000;
const char* const TRACE_SOURCE = "application/processhandler";

/// Runs waitForStarted in the process's own thread: QProcess is not
/// thread-safe, and its notifiers live in the main thread.
struct StartWaiter
{
    QProcess* process;
    bool started = false;
    void Wait(int milliseconds) { started = process->waitForStarted(milliseconds); }
};

} // namespace

ProcessHandler* ProcessHandler::s_pInstance = nullptr;

ProcessHandler& ProcessHandler::Instance()
{
    static ProcessHandler handler;
    return handler;
}

ProcessHandler::ProcessHandler() = default;

ProcessHandler::~ProcessHandler()
{
    // At process exit without a termination run the handlers would leak;
    // after one they are gone already and must not be deleted twice.
    if (!m_bTerminated)
        qDeleteAll(m_outputHandlers);
}

QProcess* ProcessHandler::StartProgram(const QString& program, const QString& params,
                                       const QString& workingDir, bool track, bool startInCallingThread)
{
    // Deliberately every single blank: two blanks give an empty parameter,
    // an empty string one empty parameter.
    const QStringList list = params.split(QLatin1Char(' '), Qt::KeepEmptyParts, Qt::CaseSensitive);
    return StartProgram(program, list, workingDir, track, startInCallingThread,
                        QProcessEnvironment::systemEnvironment());
}

QProcess* ProcessHandler::StartProgram(const QString& program, const QStringList& params,
                                       const QString& workingDir, bool track, bool startInCallingThread,
                                       const QProcessEnvironment& env)
{
    auto* process = new QProcess;
    process->setProcessEnvironment(env);
    process->setWorkingDirectory(workingDir);
    auto* outputHandler =
        new ProcessOutputHandler(process, program + QLatin1Char(' ') + params.join(QLatin1Char(' ')));
    m_outputHandlers.append(outputHandler);
    if (track)
        m_trackedProcesses.append(QPointer<QProcess>(process));
    if (QCoreApplication* app = QCoreApplication::instance()) {
        process->moveToThread(app->thread());
        outputHandler->moveToThread(app->thread());
    }
    const QStringList arguments = HandOverNatively(process, params);
    Start(process, program, arguments, startInCallingThread);
    if (!WaitForStarted(process)) {
        TraceNotStarted(program);
        // Once more, always from the main thread and with every parameter;
        // the native arguments stay set.
        Start(process, program, params, false);
        if (!WaitForStarted(process))
            TraceNotStarted(program);
    }
    return process;
}

QStringList ProcessHandler::HandOverNatively(QProcess* process, const QStringList& params)
{
    QStringList native;
    for (const QString& param : params) {
        if (!param.contains(QLatin1Char('"')))
            continue;
        native << (param.contains(QLatin1Char(' ')) ? QLatin1Char('"') + param + QLatin1Char('"') : param);
    }
    QStringList arguments = params;
    if (native.isEmpty())
        return arguments;
    SetNativeArguments(process, native.join(QLatin1Char(' ')));
    // Deliberate: an enclosed parameter no longer equals its original, so it
    // also stays in the list and reaches the program twice.
    for (const QString& handedOver : native)
        arguments.removeOne(handedOver);
    return arguments;
}

void ProcessHandler::Start(QProcess* process, const QString& program, const QStringList& arguments,
                           bool inCallingThread)
{
    const QStringList received = ArgumentsAsReceived(process, program, arguments);
    if (inCallingThread) {
        process->start(program, received, QIODevice::ReadOnly);
        return;
    }
    using StartFunction = void (QProcess::*)(const QString&, const QStringList&, QIODevice::OpenMode);
    ZENT_THREAD_SWITCHING_HANDLER(false, true)
        ->RunInMainThread(process, static_cast<StartFunction>(&QProcess::start), program, received,
                          QIODevice::OpenMode(QIODevice::ReadOnly));
}

bool ProcessHandler::WaitForStarted(QProcess* process)
{
    if (process->thread() == QThread::currentThread())
        return process->waitForStarted(START_WAIT_MS);
    StartWaiter waiter{process};
    ZENT_THREAD_SWITCHING_HANDLER(false, true)->RunInMainThread(&waiter, &StartWaiter::Wait, START_WAIT_MS);
    return waiter.started;
}

void ProcessHandler::TraceNotStarted(const QString& program)
{
    _Q_Trace(QStringLiteral("Could not start ") + program, TRACE_SOURCE, __LINE__);
}

int ProcessHandler::StartHiddenLegacyProgram(const QString& program, const QString& params)
{
    int result = -1;
    if (ZentOS::Create().StartHiddenLegacyProgram(program.toStdU16String(), params.toStdU16String(), result))
        return result;
    _Q_Trace(QStringLiteral("Starting of the legacy program ") + program +
                 QStringLiteral(" failed with params: ") + params,
             TRACE_SOURCE, __LINE__);
    return -1;
}

bool ProcessHandler::TerminateProcess(QProcess* process, const QString&)
{
    if (process)
        process->terminate();
    return true;
}

bool ProcessHandler::IsProcessAlive(QProcess* process)
{
    return process && process->state() != QProcess::NotRunning;
}

WinPosition ProcessHandler::GetWindowPositions(QProcess* process)
{
    WinPosition position;
    if (!process || process->processId() == 0)
        return position;
    ZentOS::WindowPlacement placement;
    if (ZentOS::Create().GetWindowPlacement(process->processId(), placement))
        position = WinPosition{placement.left, placement.top, placement.right, placement.bottom,
                               placement.showState};
    return position;
}

void ProcessHandler::SetWindowPositons(WinPosition position, QProcess* process)
{
    if (!process || process->processId() == 0)
        return;
    const ZentOS::WindowPlacement placement{position.left, position.top, position.right, position.bottom,
                                            position.showState};
    ZentOS::Create().SetWindowPlacement(process->processId(), placement);
}

QString ProcessHandler::GetEnvironmentVar(const std::string& name)
{
    const char* value = ZentOS::Create().GetEnvironmentVar(name.c_str());
    return value ? QString::fromLocal8Bit(value) : QString();
}

QString ProcessHandler::GetSystemDir()
{
    QMutexLocker locker(&m_mutex);
    // The native separator: a backslash on Windows, where callers append file names directly.
    return QString::fromStdWString(ZentOS::Create().GetSystemDir()) + QDir::separator();
}

QString ProcessHandler::GetTempDir()
{
    return QString::fromStdWString(ZentOS::Create().GetTempDir());
}

void ProcessHandler::aboutToTerminate()
{
    qDeleteAll(m_outputHandlers);
    for (const QPointer<QProcess>& process : m_trackedProcesses)
        delete process.data();
    m_bTerminated = true;
}
