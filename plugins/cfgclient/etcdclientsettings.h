#ifndef CFGCLIENT_ETCDCLIENTSETTINGS_H
#define CFGCLIENT_ETCDCLIENTSETTINGS_H

#include "cfgclient/etcdclient.h"

/// The client configuration of the configuration service: an INI file
/// "zent/cfgclient.conf" in the user's configuration folder
/// ($XDG_CONFIG_HOME, ~/.config) or, when the user has none, in the system's
/// ($XDG_CONFIG_DIRS, /etc/xdg). ZENT_CFGCLIENT_CONFIG names another file.
///
///     [etcd]
///     members=host1:2379,host2:2379,host3:2379
///     ca=/etc/zent/ca.pem
///     cert=/etc/zent/client.pem
///     key=/etc/zent/client-key.pem
///     user=zentapp
///     passwordFile=/etc/zent/zentapp.password
///     connectTimeoutMs=3000
///     requestTimeoutMs=10000
///
/// The member named by the document ("Server:host:port") comes first, the
/// listed members after it. With "ca" or "cert" the members are reached over
/// HTTPS. The password is read from its own file (the first line), which must
/// be a regular file that only its owner may read; it never appears on a
/// command line or in a trace. Environment variables override single
/// entries: ZENT_CFGCLIENT_MEMBERS, ZENT_CFGCLIENT_CA, ZENT_CFGCLIENT_CERT,
/// ZENT_CFGCLIENT_KEY, ZENT_CFGCLIENT_USER, ZENT_CFGCLIENT_PASSWORD_FILE.
/// Environment variables are read with secure_getenv, so a set-user-ID
/// program ignores them.
class EtcdClientSettings
{
public:
    /// The options for `member` ("host:port") with the client configuration.
    /// Throws KVException when the password file is unsafe or unreadable.
    static EtcdClientOptions Load(const QString& member);

private:
    static QString ConfigFile();
    static QByteArray ReadPassword(const QString& fileName);
    /// The environment variable `name` unless the process runs with raised privileges.
    static QString SecureEnvironment(const char* name);
};

#endif
