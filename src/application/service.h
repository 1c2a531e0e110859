/// \file
/// Service: the base of programs that run as a system service.
#ifndef APPLICATION_SERVICE_H
#define APPLICATION_SERVICE_H

#include "zentappstartup_export.h"

#include <QString>
#include <QStringList>

class ServiceImpl;

/// Lets a program run as a system service (a systemd unit on Linux, a
/// Windows service on Windows). A subclass supplies the body (OnStart) and
/// its reactions to stop, pause and continue; Exec hands the process to the
/// service manager. One service per process: constructing a second Service
/// redirects the service's start and its controls to the newer one.
class ZENTAPPSTARTUP_EXPORT Service
{
public:
    virtual ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    /// The service's name, as given to the constructor.
    QString Name() const;

    /// Runs the service until it has stopped and the service manager has
    /// seen it stop. OnStart runs on a thread of its own; stop, pause and
    /// continue are handled on the thread that called Exec. Returns at once,
    /// without calling OnStart, when the process was not started by the
    /// service manager (a program started from a console). On Linux the
    /// stop control is SIGTERM.
    void Exec(int argc, wchar_t** argv);

    /// Reports the service started and, when that succeeded, calls OnStart.
    void Start(const QStringList& args);
    /// Calls OnStop. The service manager's stop control arrives here, on
    /// the thread that called Exec, before the stopped state is reported.
    void Stop();
    /// Calls OnPause. Pause is not among the controls offered to the
    /// service manager, so only the program itself calls this.
    void Pause();
    /// Calls OnContinue. Like pause, continue is not offered to the service
    /// manager, so only the program itself calls this.
    void Continue();

protected:
    /// A service named `name`, with the platform's implementation behind it.
    /// The newest Service of a process is the one the service manager serves.
    explicit Service(QString name);

    /// True while the service is reported running.
    bool IsRunning();

    /// The service's body, called once the service is reported running. It
    /// is expected to run for the life of the service; OnStop, called on
    /// another thread, must end it in a thread-safe way.
    virtual void OnStart(const QStringList& args) = 0;

private:
    virtual void OnPause();
    virtual void OnContinue();
    virtual void OnStop();

    QString m_sName;
    ServiceImpl* m_pImpl;
};

#endif
