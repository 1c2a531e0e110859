#include "application/service.h"

#include "application/serviceimpl_p.h"

Service::Service(QString name) : m_sName(std::move(name)), m_pImpl(ServiceImpl::CreatePlatformImpl(this)) {}

Service::~Service()
{
    delete m_pImpl;
}

QString Service::Name() const
{
    return m_sName;
}

void Service::Exec(int argc, wchar_t** argv)
{
    m_pImpl->Exec(argc, argv);
}

void Service::Start(const QStringList& args)
{
    if (m_pImpl->Init())
        OnStart(args);
}

void Service::Stop()
{
    OnStop();
}

void Service::Pause()
{
    OnPause();
}

void Service::Continue()
{
    OnContinue();
}

bool Service::IsRunning()
{
    return m_pImpl->IsRunning();
}

void Service::OnPause() {}

void Service::OnContinue() {}

void Service::OnStop() {}
