#ifndef TESTS_CONFIGURATION_CFGCENTERTESTACCESS_H
#define TESTS_CONFIGURATION_CFGCENTERTESTACCESS_H

#include "configuration/cfgcenter.h"

#include <QMutex>

/// Sets the configuration centre's statics for tests that need a centre
/// without constructing one. Reset() puts every static back to its state
/// before creation (usage and start-up mode included); nothing is deleted.
class CfgCenterTestAccess
{
public:
    static void SetAppCfg(ICfg* cfg) { CfgCenter::m_pAppCfg = cfg; }
    static void SetDocCfg(ICfg* cfg) { CfgCenter::m_pDocCfg = cfg; }
    static void SetAdminCfg(ICfg* cfg) { CfgCenter::m_pAdminCfg = cfg; }
    static void SetMutex(QMutex* mutex) { CfgCenter::m_pMutex = mutex; }
    static void SetAsyncStartup(CfgCenter::AsyncStartup mode) { CfgCenter::m_asyncStartup = mode; }
    static void SetIsServer(bool isServer) { CfgCenter::m_bIsServer = isServer; }
    static void Reset()
    {
        CfgCenter::m_pAppCfg = nullptr;
        CfgCenter::m_pDocCfg = nullptr;
        CfgCenter::m_pAdminCfg = nullptr;
        CfgCenter::m_pMutex = nullptr;
        CfgCenter::m_asyncStartup = CfgCenter::ASYNC_Off;
        CfgCenter::s_usage = CfgCenter::USAGE_0;
        CfgCenter::m_bIsServer = false;
    }
};

#endif
