#ifndef APPLICATION_SYSTEMDSERVICEIMPL_P_H
#define APPLICATION_SYSTEMDSERVICEIMPL_P_H

#include "application/serviceimpl_p.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <atomic>

/// A service under systemd. The service manager's protocol is systemd's
/// notify protocol, spoken directly: one datagram of KEY=VALUE lines to
/// $NOTIFY_SOCKET per report (READY=1 when running, STOPPING=1 when stopped,
/// STATUS= always, WATCHDOG=1 every half of $WATCHDOG_USEC). SIGTERM is the
/// stop control; pause and continue are not accepted controls.
class ZENTAPPSTARTUP_EXPORT SystemdServiceImpl : public ServiceImpl
{
public:
    /// The status record as the service manager would keep it. State and exit
    /// code are written by the service main and the control handler, each on
    /// its own thread.
    struct Status
    {
        quint32 serviceType = 0;
        std::atomic<quint32> currentState{0};
        quint32 controlsAccepted = 0;
        std::atomic<quint32> exitCode{0};
        quint32 serviceSpecificExitCode = 0;
        quint32 checkPoint = 0;
        quint32 waitHint = 0;
    };

    explicit SystemdServiceImpl(Service* service);
    ~SystemdServiceImpl() override;

    void Exec(int argc, wchar_t** argv) override;
    bool Init() override;
    bool IsRunning() override;

    /// Carries out one control as the control handler does, and reports the
    /// status afterwards, also for controls it does not handle.
    void HandleControl(quint32 control);
    const Status& GetStatus() const { return m_status; }

    /// The datagram that reports `state` (with `exitCode` when stopped) for the service `name`.
    static QByteArray StatusMessage(const QString& name, quint32 state, quint32 exitCode);

private:
    static void ServiceMain();
    static void ControlHandler(quint32 control);
    static void RunControlLoop();

    bool RegisterControlHandler();
    void ReportStatus();
    QStringList Arguments() const;

    // systemd's notify socket, once the control handler is registered; also
    // registered without one when systemd runs the unit without notifications.
    std::atomic<bool> m_bRegistered{false};
    QByteArray m_notifySocket;
    Status m_status;
    int m_argc = 0;
    wchar_t** m_argv = nullptr;

    // The service main and the control handler receive no context: they
    // serve the last constructed implementation.
    static std::atomic<SystemdServiceImpl*> s_pInstance;
};

#endif
