#include "cfgclient/cfgclient.h"

#include "cfgclient/cfgetcd.h"
#include "cfgclient/etcdclientsettings.h"
#include "kvbase/errorhandler.h"
#include "kvbase/kvexception.h"

namespace {

const char* const SOURCE = "cfgclient/cfgclient";
const QString SERVER_OBJECT_PREFIX = QStringLiteral("CfgServer");

} // namespace

CfgClient::CfgClient(const QString& serverObjectName)
    : m_options(EtcdClientSettings::Load(MemberOf(serverObjectName)))
{
}

CfgClient::~CfgClient() = default;

bool CfgClient::Execute()
{
    return true;
}

QString CfgClient::MemberOf(const QString& serverObjectName)
{
    QString host = serverObjectName.startsWith(SERVER_OBJECT_PREFIX)
                       ? serverObjectName.mid(SERVER_OBJECT_PREFIX.size())
                       : serverObjectName;
    if (host.isEmpty())
        host = QStringLiteral("127.0.0.1");
    const QString defaultPort = QLatin1Char(':') + QString::number(DEFAULT_PORT);
    if (host.startsWith(QLatin1Char('[')))
        return host.contains(QLatin1String("]:")) ? host : host + defaultPort;
    const int colons = host.count(QLatin1Char(':'));
    if (colons == 0)
        return host + defaultPort;
    if (colons > 1) // a bare IPv6 address
        return QLatin1Char('[') + host + QLatin1Char(']') + defaultPort;
    return host;
}

bool CfgClient::Connect(const QString& appName, bool)
{
    _Q_Trace(QStringLiteral("Connecting application %1 to the configuration service at %2")
                 .arg(appName, m_options.members.join(QStringLiteral(", "))),
             SOURCE, __LINE__);
    auto client = std::make_shared<EtcdClient>(m_options);
    try {
        client->Connect(CfgEtcdDocument::DEFAULT_PREFIX);
    } catch (const KVException& exception) {
        if (!client->LastFailureWasUnreachable())
            ErrorHandler::Instance().Message(exception.GetMessage(), ErrorHandler::MSG_Error,
                                             QStringLiteral("Connect"), QStringLiteral("CfgClient"));
        else
            _Q_Trace(exception.GetMessage(), SOURCE, __LINE__);
        return false;
    }
    m_pClient = client;
    m_pDocument = std::make_shared<CfgEtcdDocument>(m_pClient);
    return true;
}

void CfgClient::Disconnect(const QString&)
{
    if (m_pDocument)
        m_pDocument->StopWatching();
}

ICfg* CfgClient::CreateCfg(const QString& key, ICfg::View view, const QString&)
{
    if (!m_pDocument)
        throw KVException(QStringLiteral("The configuration service client is not connected."),
                          QStringLiteral("cfgclient/cfgclient"), QStringLiteral("CfgClient"),
                          QStringLiteral("CreateCfg"), __LINE__);
    return new CfgEtcd(m_pDocument, key, view);
}
