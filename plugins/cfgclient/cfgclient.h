#ifndef CFGCLIENT_CFGCLIENT_H
#define CFGCLIENT_CFGCLIENT_H

#include "cfgclient/cfgetcddocument.h"
#include "cfgclient/etcdclient.h"
#include "configuration/icfgcenterserverifif.h"

#include <memory>

/// The configuration service's client: the instance libCfgClient.so (the
/// centre's "CfgClient.dll") creates for the centre. The service is etcd.
///
/// The server object name the centre hands over ("CfgServer" followed by the
/// document's host) names one member: "CfgServerhost" reaches host:4000,
/// "CfgServerhost:port" host:port, "CfgServer[v6-address]:port" an IPv6
/// member. The client configuration (EtcdClientSettings) adds further
/// members, TLS files and credentials.
///
/// Connect reaches a member within the connect time-out (3 seconds per
/// member unless configured otherwise) and signs in. When no member answers
/// it returns false and the centre ends the application with its message;
/// when etcd refuses the client (credentials, permission, certificate) the
/// reason is shown first. Every configuration object the client creates
/// shares one CfgEtcdDocument.
class CfgClient : public ICfgCenterServerIfIf
{
public:
    static const int DEFAULT_PORT = 4000;

    explicit CfgClient(const QString& serverObjectName);
    ~CfgClient() override;

    bool Execute() override;
    bool Connect(const QString& appName, bool asServerApplication) override;
    void Disconnect(const QString& appName) override;
    ICfg* CreateCfg(const QString& key, ICfg::View view, const QString& other) override;

    /// "host:port" for a server object name ("CfgServer" followed by host[:port]).
    static QString MemberOf(const QString& serverObjectName);
    const EtcdClientOptions& Options() const { return m_options; }

private:
    EtcdClientOptions m_options;
    std::shared_ptr<EtcdClient> m_pClient;
    std::shared_ptr<CfgEtcdDocument> m_pDocument;
};

#endif
