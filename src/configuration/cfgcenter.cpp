#include "configuration/cfgcenter.h"

#include "kvbase/kvexception.h"
#include "kvbase/zentos.h"

namespace {
const QString SOURCE_FILE = QStringLiteral("configuration/cfgcenter");
const QString CLASS_NAME = QStringLiteral("CfgCenter");

ICfg& SelectedOrThrow(ICfg* cfg, ICfg::View view, const QString& message, const QString& operation, int line)
{
    if (!cfg)
        throw KVException(message, SOURCE_FILE, CLASS_NAME, operation, line);
    if (view != ICfg::VIEW_Current)
        cfg->SelectView(view);
    return *cfg;
}
} // namespace

ICfg* CfgCenter::m_pAppCfg = nullptr;
ICfg* CfgCenter::m_pDocCfg = nullptr;
ICfg* CfgCenter::m_pAdminCfg = nullptr;
QMutex* CfgCenter::m_pMutex = nullptr;
CfgCenter::AsyncStartup CfgCenter::m_asyncStartup = CfgCenter::ASYNC_Off;
CfgCenter::CfgCenterUsage CfgCenter::s_usage = CfgCenter::USAGE_0;
bool CfgCenter::m_bIsServer = false;

ICfg& CfgCenter::GetAppCfg(ICfg::View view)
{
    return SelectedOrThrow(
        m_pAppCfg, view,
        QStringLiteral("CfgCenter::GetAppCfg() called, before calling CfgCenter::CfgCenter()"),
        QStringLiteral("GetAppCfg"), __LINE__);
}

ICfg& CfgCenter::GetDocCfg(ICfg::View view)
{
    return SelectedOrThrow(
        m_pDocCfg, view,
        QStringLiteral("CfgCenter::GetDocCfg(), called, before calling CfgCenter::CfgCenter()"),
        QStringLiteral("GetDocCfg"), __LINE__);
}

ICfg& CfgCenter::GetAdminCfg(ICfg::View view)
{
    return SelectedOrThrow(
        m_pAdminCfg, view,
        QStringLiteral("CfgCenter::GetAdminCfg(), called, before calling CfgCenter::CfgCenter()"),
        QStringLiteral("GetAdminCfg"), __LINE__);
}

QString CfgCenter::GetAppName()
{
    return GetAppCfg(ICfg::VIEW_Current).GetString(QStringLiteral("Name"), QString());
}

QString CfgCenter::GetMachineName()
{
    const QString name = QString::fromStdWString(ZentOS::Get().GetWorkStationName());
    if (name.isEmpty())
        throw KVException(QStringLiteral("ZentOS::Get().GetWorkStationName() failed."), SOURCE_FILE,
                          CLASS_NAME, QStringLiteral("GetMachineName"), __LINE__);
    return name;
}

QMutex* CfgCenter::GetMutex()
{
    return m_pMutex;
}

CfgCenter::CfgCenterUsage CfgCenter::GetUsage()
{
    return s_usage;
}

void CfgCenter::SetUsage(CfgCenterUsage usage)
{
    s_usage = usage;
}

CfgCenter::AsyncStartup CfgCenter::GetAsyncStartup()
{
    return m_asyncStartup;
}

bool CfgCenter::IsServer()
{
    return m_bIsServer;
}
