/// \file
/// ICfgCenterServerIfIf: the interface of the configuration service's client.
#ifndef CONFIGURATION_ICFGCENTERSERVERIFIF_H
#define CONFIGURATION_ICFGCENTERSERVERIFIF_H

#include "configuration/icfg.h"
#include "configuration/idllinstance.h"
#include "zentappstartup_export.h"

#include <QString>

/// The client of the configuration service, as the configuration centre sees it.
///
/// A client library ("CfgClient.dll" unless CfgIfDllDescriptor::s_pDllFileName
/// names another) is an ordinary plug-in whose factory receives the server
/// object name ("CfgServer" followed by the host) as configuration key and
/// returns an object of this type. The centre connects once, asks it for
/// every configuration object while the application runs, and disconnects at
/// the end. The operations continue the slot order of IDllInstance (slots 4
/// to 6) and are binary interface.
class ZENTAPPSTARTUP_EXPORT ICfgCenterServerIfIf : public IDllInstance
{
public:
    /// Connects the application `appName` (the application key) to the
    /// service; `asServerApplication` is true for the configuration server's
    /// own application (a key beginning with '*' or ':'). True when connected.
    virtual bool Connect(const QString& appName, bool asServerApplication) = 0;
    /// Ends the connection of the application `appName`.
    virtual void Disconnect(const QString& appName) = 0;
    /// A new configuration object for `key` in `view`; the caller owns it.
    /// `other` is passed through from the centre (empty for the application
    /// configuration). The centre opens the application configuration with
    /// OpenDocument(true); every further object is used as it is returned.
    virtual ICfg* CreateCfg(const QString& key, ICfg::View view, const QString& other) = 0;

protected:
    ~ICfgCenterServerIfIf() override;
};

#endif
