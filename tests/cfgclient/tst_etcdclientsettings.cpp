// EtcdClientSettings: the client configuration file, its environment
// overrides and the password file's checks.
#include "cfgclient/etcdclientsettings.h"
#include "common/kvexceptioncheck.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

class tst_EtcdClientSettings : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;

    QString WriteFile(const QString& name, const QByteArray& bytes, QFileDevice::Permissions permissions)
    {
        const QString fileName = m_dir->filePath(name);
        QFile file(fileName);
        file.open(QIODevice::WriteOnly | QIODevice::Truncate);
        file.write(bytes);
        file.close();
        file.setPermissions(permissions);
        return fileName;
    }

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        m_dir = std::make_unique<QTemporaryDir>();
        for (const char* name : {"ZENT_CFGCLIENT_CA", "ZENT_CFGCLIENT_CERT", "ZENT_CFGCLIENT_KEY",
                                 "ZENT_CFGCLIENT_PASSWORD_FILE"})
            qunsetenv(name);
    }

    void cleanup()
    {
        qunsetenv("ZENT_CFGCLIENT_CONFIG");
        qunsetenv("ZENT_CFGCLIENT_MEMBERS");
        qunsetenv("ZENT_CFGCLIENT_USER");
    }

    void clientConfigurationAddsMembersAndFiles()
    {
        const QString passwordFile =
            WriteFile(QStringLiteral("secret"), "s3cr3t\n", QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        const QString config = WriteFile(
            QStringLiteral("cfgclient.conf"),
            QStringLiteral("[etcd]\nmembers=\"a:1,b:2,first:4000\"\nca=/ca.pem\ncert=/c.pem\nkey=/k.pem\n"
                           "user=zent\npasswordFile=%1\nconnectTimeoutMs=1500\nrequestTimeoutMs=4000\n")
                .arg(passwordFile)
                .toUtf8(),
            QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        qputenv("ZENT_CFGCLIENT_CONFIG", QFile::encodeName(config));
        const EtcdClientOptions options = EtcdClientSettings::Load(QStringLiteral("first:4000"));
        QCOMPARE(options.members, (QStringList{"first:4000", "a:1", "b:2"}));
        QCOMPARE(options.caFile, QStringLiteral("/ca.pem"));
        QCOMPARE(options.certFile, QStringLiteral("/c.pem"));
        QCOMPARE(options.keyFile, QStringLiteral("/k.pem"));
        QCOMPARE(options.user, QStringLiteral("zent"));
        QCOMPARE(options.password, QByteArray("s3cr3t"));
        QCOMPARE(options.connectTimeoutMs, 1500);
        QCOMPARE(options.requestTimeoutMs, 4000);
        QCOMPARE(options.UsesTls(), true);
        qputenv("ZENT_CFGCLIENT_MEMBERS", "c:3");
        qputenv("ZENT_CFGCLIENT_USER", "other");
        const EtcdClientOptions overridden = EtcdClientSettings::Load(QStringLiteral("first:4000"));
        QCOMPARE(overridden.members, (QStringList{"first:4000", "c:3"}));
        QCOMPARE(overridden.user, QStringLiteral("other"));
    }

    void withoutClientConfigurationOnlyTheNamedMember()
    {
        qputenv("ZENT_CFGCLIENT_CONFIG", QFile::encodeName(m_dir->filePath(QStringLiteral("none.conf"))));
        const EtcdClientOptions options = EtcdClientSettings::Load(QStringLiteral("h:4000"));
        QCOMPARE(options.members, QStringList{QStringLiteral("h:4000")});
        QCOMPARE(options.UsesTls(), false);
        QCOMPARE(options.user, QString());
        QCOMPARE(options.connectTimeoutMs, 3000);
    }

    void passwordFileReadableByOthersIsRefused()
    {
        const QString passwordFile = WriteFile(QStringLiteral("open-secret"), "s3cr3t\n",
                                               QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                                   QFileDevice::ReadGroup | QFileDevice::ReadOther);
        const QString config =
            WriteFile(QStringLiteral("open.conf"),
                      QStringLiteral("[etcd]\nuser=zent\npasswordFile=%1\n").arg(passwordFile).toUtf8(),
                      QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        qputenv("ZENT_CFGCLIENT_CONFIG", QFile::encodeName(config));
        CompareKVException(
            CaughtKVException([] { EtcdClientSettings::Load(QStringLiteral("h:4000")); }),
            QStringLiteral(
                "The password file \"%1\" may be read or written by others; it must be readable by its "
                "owner only.")
                .arg(passwordFile),
            QStringLiteral("cfgclient/etcdclientsettings"), QStringLiteral("EtcdClientSettings"),
            QStringLiteral("ReadPassword"));
    }
};

QTEST_GUILESS_MAIN(tst_EtcdClientSettings)
#include "tst_etcdclientsettings.moc"
