/// \file
/// CfgIfDllDescriptor: the client library of the configuration service.
#ifndef CONFIGURATION_CFGIFDLLDESCRIPTOR_H
#define CONFIGURATION_CFGIFDLLDESCRIPTOR_H

#include "configuration/dlldescriptor.h"
#include "configuration/icfg.h"
#include "zentappstartup_export.h"

#include <memory>

class ICfgCenterServerIfIf;

/// The loaded client library of the configuration service and its one
/// client instance.
///
/// Constructing it loads the client library, creates the client (handing it
/// the server object name), checks that the client implements
/// ICfgCenterServerIfIf and connects. When the service cannot be reached the
/// user is told so and the process ends at once with exit code -1: an
/// application without its configuration cannot run, and no tear-down is
/// attempted. Destroying it disconnects, destroys the client and unloads the
/// library, in this order.
class ZENTAPPSTARTUP_EXPORT CfgIfDllDescriptor : public CfgDllDescriptor
{
public:
    /// The client library's file name; "CfgClient.dll" unless the
    /// application points it elsewhere before the centre is constructed.
    static const char* s_pDllFileName;

    /// `serverObjectName` goes to the client's factory; `appName` names the
    /// application when connecting and in the message; `asServerApplication`
    /// is passed to Connect.
    CfgIfDllDescriptor(const QString& serverObjectName, const QString& appName, bool asServerApplication);
    ~CfgIfDllDescriptor() override;

    /// A new configuration object from the service; the caller owns it.
    ICfg* CreateCfg(const QString& key, ICfg::View view, const QString& other);
    /// The connected service interface of the client library (not owned).
    ICfgCenterServerIfIf* GetServerIf() const { return m_pServerIf; }

private:
    void ConnectOrExit(bool asServerApplication);

    std::unique_ptr<DllInstanceDescriptor> m_pInstanceDescriptor;
    ICfgCenterServerIfIf* m_pServerIf;
    QString m_sAppName;
};

#endif
