/// \file
/// ProcessHandler: starts and supervises external programs.
#ifndef APPLICATION_PROCESSHANDLER_H
#define APPLICATION_PROCESSHANDLER_H

#include "application/iabstractterminationtarget.h"
#include "zentappstartup_export.h"

#include <QList>
#include <QMutex>
#include <QPointer>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <string>

class ProcessOutputHandler;

/// Placement of a process's main window: left, top, right, bottom and the
/// show state (1 normal, 2 minimised, 3 maximised); all -1 when unknown.
struct WinPosition
{
    /// Left edge in pixels; -1 when unknown.
    qint32 left = -1;
    /// Top edge in pixels; -1 when unknown.
    qint32 top = -1;
    /// Right edge in pixels; -1 when unknown.
    qint32 right = -1;
    /// Bottom edge in pixels; -1 when unknown.
    qint32 bottom = -1;
    /// 1 normal, 2 minimised, 3 maximised; -1 when unknown.
    qint32 showState = -1;
};

/// The library's one place for starting and supervising external programs.
/// Programs run as QProcess objects in the main thread with their output
/// drained; the processes started with tracking are deleted (ended) when
/// the application terminates.
class ZENTAPPSTARTUP_EXPORT ProcessHandler : public IAbstractTerminationTarget
{
public:
    /// The one handler, made on first use (from any thread) and destroyed
    /// at process exit; it is on the termination centre's list.
    static ProcessHandler& Instance();
    /// Exported for compatibility; Instance() does not use it.
    static ProcessHandler* s_pInstance;

    ~ProcessHandler() override;

    /// Splits `params` at every single blank, keeping empty parts (two
    /// blanks give an empty parameter), and starts with the system's environment.
    QProcess* StartProgram(const QString& program, const QString& params, const QString& workingDir,
                           bool track, bool startInCallingThread);
    /// Starts `program`; the process is returned whether it started or not
    /// and belongs to the caller. Parameters with a double quote are handed
    /// over natively (see NativeArguments).
    QProcess* StartProgram(const QString& program, const QStringList& params, const QString& workingDir,
                           bool track, bool startInCallingThread, const QProcessEnvironment& env);
    /// Starts a program detached, without a window or terminal; its process
    /// id, or -1 when it could not be started.
    int StartHiddenLegacyProgram(const QString& program, const QString& params);
    /// Asks the process to end; always true. `name` is not used.
    bool TerminateProcess(QProcess* process, const QString& name);
    /// False for null or a process that is not running; true while it
    /// starts or runs.
    bool IsProcessAlive(QProcess* process);
    /// The placement of the process's main window; all -1 for null, a
    /// process without a process id, or when the system cannot tell (no
    /// such window, no display).
    WinPosition GetWindowPositions(QProcess* process);
    /// Moves, resizes and shows the process's main window as `position`
    /// says; nothing for null or a process without a process id. (The name
    /// is spelled so.)
    void SetWindowPositons(WinPosition position, QProcess* process);
    /// The variable's value; a null string when it is not set.
    QString GetEnvironmentVar(const std::string& name);
    /// The system's library folder with the native separator appended.
    QString GetSystemDir();
    /// The system's temporary folder, without a separator appended.
    QString GetTempDir();

    /// Deletes the output handlers and the tracked processes that still exist.
    void aboutToTerminate() override;

    /// The native argument string set for `process` (on Windows
    /// QProcess::nativeArguments; elsewhere kept beside the process, since
    /// the arguments it leads to are passed as a list).
    static QString NativeArguments(const QProcess* process);

private:
    ProcessHandler();
    ProcessHandler(const ProcessHandler&) = delete;
    ProcessHandler& operator=(const ProcessHandler&) = delete;

    static QStringList HandOverNatively(QProcess* process, const QStringList& params);
    static void SetNativeArguments(QProcess* process, const QString& nativeArguments);
    static QStringList ArgumentsAsReceived(const QProcess* process, const QString& program,
                                           const QStringList& arguments);
    static void Start(QProcess* process, const QString& program, const QStringList& arguments,
                      bool inCallingThread);
    static bool WaitForStarted(QProcess* process);
    static void TraceNotStarted(const QString& program);

    QList<ProcessOutputHandler*> m_outputHandlers;
    QList<QPointer<QProcess>> m_trackedProcesses;
    QMutex m_mutex{QMutex::Recursive};
    bool m_bTerminated = false;
};

#endif
