#ifndef TESTS_CONFIGURATION_CFGCENTERLIFECYCLETESTACCESS_H
#define TESTS_CONFIGURATION_CFGCENTERLIFECYCLETESTACCESS_H

#include "configuration/cfgcenter.h"
#include "configuration/cfgevent.h"
#include "configuration/dlldescriptor.h"

/// Reaches the configuration centre's process-wide state that outlives a
/// centre (commit flags, the execution flag, save components), so that each
/// test starts as a new process would.
class CfgCenterLifecycleTestAccess
{
public:
    static void ResetProcessState()
    {
        CfgCenter::m_bDataCommitted = false;
        CfgCenter::s_bSaveAfterCommit = true;
        CfgCenter::s_dllExecuted = false;
        CfgCenter::m_saveComponents.clear();
        CfgCenter::m_asyncStartup = CfgCenter::ASYNC_Off;
        CfgCenter::s_usage = CfgCenter::USAGE_0;
        CfgCenter::m_bAutoSaveDocument = true;
        CfgCenter::s_pDefaultCfgDoc = "Server";
    }
    static QString PreLoadDlls() { return CfgCenter::m_sPreLoadDlls; }
    static QString PostLoadDlls() { return CfgCenter::m_sPostLoadDlls; }
    static bool IsServerClientLoaded() { return CfgCenter::m_pCfgIfDllDescriptor != nullptr; }
    static bool HasPendingPostCreate() { return CfgCenter::m_pPostCreateParams != nullptr; }
    static CfgEvent* EventReceiver() { return CfgCenter::m_pCfgEvent; }
    static bool HasEventReceiver() { return CfgCenter::m_pCfgEvent != nullptr; }
    static CfgCenter::DllMap* DllMap() { return CfgCenter::m_pDllMap; }
    static bool DllExecuted() { return CfgCenter::s_dllExecuted; }
    static bool SaveAfterCommitPending() { return CfgCenter::s_bSaveAfterCommit; }
    static bool AutoSaveDocument() { return CfgCenter::m_bAutoSaveDocument; }
};

/// Makes instance descriptors that hold no instance.
class DllInstanceDescriptorTestAccess
{
public:
    static DllInstanceDescriptor* WithoutInstance(CfgDllDescriptor* dll, const QString& configKey,
                                                  const QString& instanceKey)
    {
        return new DllInstanceDescriptor(dll, configKey, instanceKey);
    }
};

#endif
