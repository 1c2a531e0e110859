#include "cfgclient/etcdclientsettings.h"

#include "kvbase/kvexception.h"

#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QStandardPaths>

namespace {

const QString SOURCE_FILE = QStringLiteral("cfgclient/etcdclientsettings");
const QString CLASS_NAME = QStringLiteral("EtcdClientSettings");
const qint64 MAX_PASSWORD_FILE = 4096;

} // namespace

QString EtcdClientSettings::ConfigFile()
{
    const QString named = SecureEnvironment("ZENT_CFGCLIENT_CONFIG");
    if (!named.isEmpty())
        return named;
    return QStandardPaths::locate(QStandardPaths::GenericConfigLocation,
                                  QStringLiteral("zent/cfgclient.conf"));
}

EtcdClientOptions EtcdClientSettings::Load(const QString& member)
{
    EtcdClientOptions options;
    options.members << member;
    const QString fileName = ConfigFile();
    QSettings settings(fileName.isEmpty() ? QStringLiteral("/nonexistent") : fileName, QSettings::IniFormat);
    settings.beginGroup(QStringLiteral("etcd"));
    const auto entry = [&settings](const char* key, const char* variable) {
        const QString overridden = SecureEnvironment(variable);
        return overridden.isEmpty() ? settings.value(QLatin1String(key)).toString() : overridden;
    };
    QString members = entry("members", "ZENT_CFGCLIENT_MEMBERS");
    if (members.isEmpty())
        members = settings.value(QStringLiteral("members")).toStringList().join(QLatin1Char(','));
    for (const QString& each : members.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        if (!options.members.contains(each.trimmed()))
            options.members << each.trimmed();
    }
    options.caFile = entry("ca", "ZENT_CFGCLIENT_CA");
    options.certFile = entry("cert", "ZENT_CFGCLIENT_CERT");
    options.keyFile = entry("key", "ZENT_CFGCLIENT_KEY");
    options.user = entry("user", "ZENT_CFGCLIENT_USER");
    options.connectTimeoutMs =
        settings.value(QStringLiteral("connectTimeoutMs"), options.connectTimeoutMs).toInt();
    options.requestTimeoutMs =
        settings.value(QStringLiteral("requestTimeoutMs"), options.requestTimeoutMs).toInt();
    const QString passwordFile = entry("passwordFile", "ZENT_CFGCLIENT_PASSWORD_FILE");
    if (!options.user.isEmpty() && !passwordFile.isEmpty())
        options.password = ReadPassword(passwordFile);
    return options;
}

QByteArray EtcdClientSettings::ReadPassword(const QString& fileName)
{
    const QFileInfo info(fileName);
    const auto fail = [&fileName](const QString& problem, int line) {
        throw KVException(QStringLiteral("The password file \"%1\" %2").arg(fileName, problem), SOURCE_FILE,
                          CLASS_NAME, QStringLiteral("ReadPassword"), line);
    };
    if (info.isSymLink() || !info.isFile())
        fail(QStringLiteral("is not a regular file."), __LINE__);
    if (info.permissions() &
        (QFileDevice::ReadGroup | QFileDevice::ReadOther | QFileDevice::WriteGroup | QFileDevice::WriteOther))
        fail(QStringLiteral("may be read or written by others; it must be readable by its owner only."),
             __LINE__);
    QFile file(fileName);
    if (info.size() > MAX_PASSWORD_FILE || !file.open(QIODevice::ReadOnly))
        fail(QStringLiteral("cannot be read."), __LINE__);
    QByteArray password = file.readLine(MAX_PASSWORD_FILE);
    while (password.endsWith('\n') || password.endsWith('\r'))
        password.chop(1);
    return password;
}
