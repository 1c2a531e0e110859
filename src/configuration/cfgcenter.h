#ifndef CONFIGURATION_CFGCENTER_H
#define CONFIGURATION_CFGCENTER_H

#include "configuration/icfg.h"
#include "zentappstartup_export.h"

#include <QString>

class QMutex;

/// The process-wide owner of an application's configuration objects.
///
/// All state is static and exists from library load on, before any centre is
/// constructed and after it is destroyed. Constructing a centre creates the
/// configuration objects and the mutex; destroying it releases them. The
/// accessors below take no lock: the pointers change only during creation and
/// tear-down in the main thread.
class ZENTAPPSTARTUP_EXPORT CfgCenter
{
public:
    /// The application's usage tag, set before the centre is constructed.
    /// The values are tested, never interpreted further: 1 and 3 turn a
    /// failed open into the integer exception -7 and make XML files use CR LF;
    /// 0 and 4 keep the user and export views in side files; every value but 1
    /// lets a damaged XML file be restored from its backup.
    enum CfgCenterUsage : qint32
    {
        USAGE_0 = 0,
        USAGE_1 = 1,
        USAGE_2 = 2,
        USAGE_3 = 3,
        USAGE_4 = 4
    };

    /// Start-up mode: 0 and 2 run the post-creation step at once, 1 defers it
    /// until SetAsyncStartup(2).
    enum AsyncStartup : qint32
    {
        ASYNC_Off = 0,
        ASYNC_Deferred = 1,
        ASYNC_Resume = 2
    };

    /// The application configuration; selects `view` on it first unless it is
    /// VIEW_Current. Throws KVException when no centre exists.
    static ICfg& GetAppCfg(ICfg::View view = ICfg::VIEW_Current);
    /// The configuration of the whole document; as GetAppCfg.
    static ICfg& GetDocCfg(ICfg::View view = ICfg::VIEW_Current);
    /// The administration configuration (key "Administration"); as GetAppCfg.
    static ICfg& GetAdminCfg(ICfg::View view = ICfg::VIEW_Current);
    /// The string value "Name" of the application configuration.
    static QString GetAppName();
    /// The workstation's name; throws KVException when the system has none.
    static QString GetMachineName();
    /// The recursive mutex that guards every configuration operation; null
    /// while no centre exists (configuration operations then run unlocked).
    static QMutex* GetMutex();
    static CfgCenterUsage GetUsage();
    static void SetUsage(CfgCenterUsage usage);
    static AsyncStartup GetAsyncStartup();
    /// True when the application key began with '*' or ':'.
    static bool IsServer();

private:
    // Set by creation and cleared by tear-down. Tests of code that needs a
    // centre set them through the friend below (tests/configuration/cfgcentertestaccess.h).
    static ICfg* m_pAppCfg;
    static ICfg* m_pDocCfg;
    static ICfg* m_pAdminCfg;
    static QMutex* m_pMutex;
    static AsyncStartup m_asyncStartup;
    static CfgCenterUsage s_usage;
    static bool m_bIsServer;

    friend class CfgCenterTestAccess;
};

#endif
