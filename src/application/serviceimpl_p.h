#ifndef APPLICATION_SERVICEIMPL_P_H
#define APPLICATION_SERVICEIMPL_P_H

#include "zentappstartup_export.h"

#include <QtGlobal>

class Service;

/// The platform side of a Service: talks to the service manager.
class ZENTAPPSTARTUP_EXPORT ServiceImpl
{
public:
    // The service manager's values, as the status record and controls carry them.
    enum : quint32
    {
        SERVICE_WIN32 = 0x30,
        SERVICE_ACCEPT_STOP = 0x1,
        SERVICE_ACCEPT_SHUTDOWN = 0x4,
    };
    enum State : quint32
    {
        SERVICE_STOPPED = 1,
        SERVICE_START_PENDING = 2,
        SERVICE_RUNNING = 4,
        SERVICE_PAUSED = 7,
    };
    enum Control : quint32
    {
        SERVICE_CONTROL_STOP = 1,
        SERVICE_CONTROL_PAUSE = 2,
        SERVICE_CONTROL_CONTINUE = 3,
        SERVICE_CONTROL_SHUTDOWN = 5,
    };

    /// The implementation of this platform for `service`.
    static ServiceImpl* CreatePlatformImpl(Service* service);

    explicit ServiceImpl(Service* service);
    virtual ~ServiceImpl();
    ServiceImpl(const ServiceImpl&) = delete;
    ServiceImpl& operator=(const ServiceImpl&) = delete;

    /// Hands the process to the service manager; returns when the service has stopped.
    virtual void Exec(int argc, wchar_t** argv) = 0;
    /// Registers the control handler and reports the start; false when the
    /// service could not register (it is then reported stopped).
    virtual bool Init() = 0;
    virtual bool IsRunning() = 0;

protected:
    Service* m_pService;
};

#endif
