// EtcdClient against a real etcd with TLS (a CA, server and client
// certificates made here with openssl) and authentication with a read-only
// role: every refusal has its own message and nothing is written.
#include "cfgclient/cfgetcd.h"
#include "cfgclient/etcdclient.h"
#include "common/etcdserver.h"
#include "common/kvexceptioncheck.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

#include <atomic>
#include <set>
#include <thread>

namespace {

const QString SOURCE = QStringLiteral("cfgclient/etcdclient");
const QString CLASS = QStringLiteral("EtcdClient");

} // namespace

class tst_EtcdClient : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<EtcdCluster> m_etcd;

    QString File(const QString& name) const { return m_dir->filePath(name); }

    bool OpenSsl(const QStringList& arguments)
    {
        QProcess openssl;
        openssl.setWorkingDirectory(m_dir->path());
        openssl.start(QStringLiteral("openssl"), arguments);
        return openssl.waitForFinished(30000) && openssl.exitCode() == 0;
    }

    // A key and a certificate signed by `ca`; `subject` without a common name
    // for clients, as etcd's JSON gateway refuses client certificates that carry one.
    bool MakeCertificate(const QString& name, const QString& subject, const QString& ca,
                         const QString& extensions = QString())
    {
        QStringList sign{QStringLiteral("x509"),
                         QStringLiteral("-req"),
                         QStringLiteral("-in"),
                         name + ".csr",
                         QStringLiteral("-CA"),
                         ca + ".pem",
                         QStringLiteral("-CAkey"),
                         ca + ".key",
                         QStringLiteral("-CAcreateserial"),
                         QStringLiteral("-out"),
                         name + ".pem",
                         QStringLiteral("-days"),
                         QStringLiteral("2")};
        if (!extensions.isEmpty())
            sign << QStringLiteral("-extfile") << extensions;
        return OpenSsl({QStringLiteral("req"), QStringLiteral("-newkey"), QStringLiteral("rsa:2048"),
                        QStringLiteral("-nodes"), QStringLiteral("-keyout"), name + ".key",
                        QStringLiteral("-out"), name + ".csr", QStringLiteral("-subj"), subject}) &&
               OpenSsl(sign);
    }

    bool MakeAuthority(const QString& name, const QString& subject)
    {
        return OpenSsl({QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"),
                        QStringLiteral("rsa:2048"), QStringLiteral("-nodes"), QStringLiteral("-keyout"),
                        name + ".key", QStringLiteral("-out"), name + ".pem", QStringLiteral("-days"),
                        QStringLiteral("2"), QStringLiteral("-subj"), subject});
    }

    EtcdClientOptions Options(const QString& user = QString(), const QByteArray& password = QByteArray(),
                              const QString& client = QStringLiteral("client"),
                              const QString& ca = QStringLiteral("ca")) const
    {
        EtcdClientOptions options;
        options.members << m_etcd->Endpoint();
        options.caFile = File(ca + ".pem");
        options.certFile = File(client + ".pem");
        options.keyFile = File(client + ".key");
        options.user = user;
        options.password = password;
        options.requestTimeoutMs = 3000;
        return options;
    }

    QString Stored() const
    {
        return m_etcd->Ctl({QStringLiteral("get"), QStringLiteral("--prefix"), QStringLiteral("--keys-only"),
                            QStringLiteral("zent/")});
    }

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY2(EtcdCluster::Available(), "etcd is not installed (Debian package etcd-server)");
        m_dir = std::make_unique<QTemporaryDir>();
        QFile extensions(File(QStringLiteral("server.ext")));
        QVERIFY(extensions.open(QIODevice::WriteOnly));
        extensions.write("subjectAltName=IP:127.0.0.1\n");
        extensions.close();
        QVERIFY(MakeAuthority(QStringLiteral("ca"), QStringLiteral("/CN=Zent Test CA")));
        QVERIFY(MakeAuthority(QStringLiteral("rogue"), QStringLiteral("/CN=Rogue CA")));
        QVERIFY(MakeCertificate(QStringLiteral("server"), QStringLiteral("/CN=127.0.0.1"),
                                QStringLiteral("ca"), QStringLiteral("server.ext")));
        // etcdctl signs in as root by its certificate's common name.
        QVERIFY(MakeCertificate(QStringLiteral("root"), QStringLiteral("/CN=root"), QStringLiteral("ca")));
        QVERIFY(MakeCertificate(QStringLiteral("client"), QStringLiteral("/O=Zent Test Client"),
                                QStringLiteral("ca")));
        QVERIFY(MakeCertificate(QStringLiteral("stranger"), QStringLiteral("/O=Zent Test Client"),
                                QStringLiteral("rogue")));

        m_etcd = std::make_unique<EtcdCluster>(
            m_dir->path(), 1,
            QStringList{QStringLiteral("--cert-file"), File(QStringLiteral("server.pem")),
                        QStringLiteral("--key-file"), File(QStringLiteral("server.key")),
                        QStringLiteral("--client-cert-auth"), QStringLiteral("--trusted-ca-file"),
                        File(QStringLiteral("ca.pem"))},
            QStringLiteral("https"));
        m_etcd->SetCtlOptions({QStringLiteral("--cacert"), File(QStringLiteral("ca.pem")),
                               QStringLiteral("--cert"), File(QStringLiteral("root.pem")),
                               QStringLiteral("--key"), File(QStringLiteral("root.key"))});
        QVERIFY2(m_etcd->Start(), qPrintable(m_etcd->Log()));
        const QStringList setup[] = {
            {QStringLiteral("user"), QStringLiteral("add"), QStringLiteral("root"),
             QStringLiteral("--interactive=false")},
            {QStringLiteral("user"), QStringLiteral("grant-role"), QStringLiteral("root"),
             QStringLiteral("root")},
            {QStringLiteral("user"), QStringLiteral("add"), QStringLiteral("reader"),
             QStringLiteral("--interactive=false")},
            {QStringLiteral("role"), QStringLiteral("add"), QStringLiteral("reading")},
            {QStringLiteral("role"), QStringLiteral("grant-permission"), QStringLiteral("reading"),
             QStringLiteral("read"), QStringLiteral("zent/"), QStringLiteral("--prefix=true")},
            {QStringLiteral("user"), QStringLiteral("grant-role"), QStringLiteral("reader"),
             QStringLiteral("reading")},
            {QStringLiteral("put"), QStringLiteral("zent/App/Machine/Value"),
             QStringLiteral("{\"text\":\"readable\",\"type\":\"string\",\"protected\":\"true\",\"ts\":1}")},
            {QStringLiteral("auth"), QStringLiteral("enable")}};
        for (const QStringList& command : setup) {
            const QByteArray password = command.value(2) == QLatin1String("root") ? "rootpw\n" : "readerpw\n";
            QVERIFY2(!m_etcd->Ctl(command, 0, password).isEmpty(),
                     qPrintable(command.join(QLatin1Char(' '))));
        }
    }

    void cleanupTestCase() { m_etcd.reset(); }

    void writesGoOnWhenTheLeaderIsKilled()
    {
        QTemporaryDir folder;
        EtcdCluster cluster(folder.path(), 3);
        QVERIFY2(cluster.Start(), qPrintable(cluster.Log()));
        int leader = -1;
        for (int i = 0; i < cluster.Size() && leader < 0; ++i) {
            const QJsonArray status =
                QJsonDocument::fromJson(cluster
                                            .Ctl({QStringLiteral("endpoint"), QStringLiteral("status"),
                                                  QStringLiteral("-w"), QStringLiteral("json")},
                                                 i)
                                            .toUtf8())
                    .array();
            const QJsonObject member = status.at(0).toObject().value(QLatin1String("Status")).toObject();
            const QJsonValue id =
                member.value(QLatin1String("header")).toObject().value(QLatin1String("member_id"));
            if (id.toVariant() == member.value(QLatin1String("leader")).toVariant())
                leader = i;
        }
        QVERIFY(leader >= 0);
        // The client starts on the leader, so the kill takes its member away.
        EtcdClientOptions options;
        options.members << cluster.Endpoint(leader);
        for (int i = 0; i < cluster.Size(); ++i) {
            if (i != leader)
                options.members << cluster.Endpoint(i);
        }
        auto document = std::make_shared<CfgEtcdDocument>(std::make_shared<EtcdClient>(options));
        CfgEtcd cfg(document, QStringLiteral("Load"), ICfg::VIEW_Machine);
        cfg.OpenDocument(true);

        const int total = 1000;
        std::atomic<int> attempted{0};
        std::set<int> acknowledged;
        std::set<int> failed;
        std::thread writer([&] {
            for (int i = 0; i < total; ++i) {
                attempted.store(i + 1);
                try {
                    cfg.SetInteger(QStringLiteral("V%1").arg(i), i);
                    acknowledged.insert(i);
                } catch (const KVException&) {
                    failed.insert(i);
                }
            }
        });
        while (attempted.load() < total / 5)
            QThread::msleep(1);
        cluster.Kill(leader);
        const int attemptedAtKill = attempted.load();
        writer.join();
        QVERIFY2(attemptedAtKill < total, "the leader was killed after the last write");

        // Every acknowledged write is there, read from a member that lives.
        EtcdClientOptions survivor;
        survivor.members << options.members.at(1);
        qint64 revision = 0;
        const std::vector<EtcdKeyValue> stored = EtcdClient(survivor).Range("zent/Load/", &revision);
        std::map<QByteArray, QByteArray> values;
        for (const EtcdKeyValue& kv : stored)
            values[kv.key] = kv.value;
        for (const int i : acknowledged) {
            const QByteArray key = "zent/Load/Machine/V" + QByteArray::number(i);
            QVERIFY2(values.count(key) == 1, key.constData());
            QVERIFY2(values[key].contains("\"text\":\"" + QByteArray::number(i) + "\""),
                     values[key].constData());
        }
        // The client went on through the other members: nothing failed.
        QCOMPARE(int(failed.size()), 0);
        QCOMPARE(int(acknowledged.size()), total);
        QCOMPARE(cfg.GetInteger(QStringLiteral("V999"), -1), 999L);
    }

    void anonymousClientIsRefused()
    {
        EtcdClient client(Options());
        CompareKVException(
            CaughtKVException([&] { client.Connect("zent/"); }),
            QStringLiteral("The configuration service requires a user name and password, and none is "
                           "configured for this client."),
            SOURCE, CLASS, QStringLiteral("Connect"));
        QCOMPARE(client.LastFailureWasUnreachable(), false);
    }

    void wrongPasswordIsRefused()
    {
        EtcdClient client(Options(QStringLiteral("reader"), "not the password"));
        CompareKVException(
            CaughtKVException([&] { client.Connect("zent/"); }),
            QStringLiteral("The configuration service refused the user \"reader\": wrong user name or "
                           "password."),
            SOURCE, CLASS, QStringLiteral("Connect"));
    }

    void untrustedClientCertificateIsRefused()
    {
        EtcdClient client(Options(QStringLiteral("reader"), "readerpw", QStringLiteral("stranger")));
        CompareKVException(
            CaughtKVException([&] { client.Connect("zent/"); }),
            QStringLiteral("The configuration service at %1 did not accept this client's certificate.")
                .arg(m_etcd->Endpoint()),
            SOURCE, CLASS, QStringLiteral("Connect"));
    }

    void untrustedServiceCertificateIsRefused()
    {
        EtcdClient client(
            Options(QStringLiteral("reader"), "readerpw", QStringLiteral("client"), QStringLiteral("rogue")));
        CompareKVException(
            CaughtKVException([&] { client.Connect("zent/"); }),
            QStringLiteral("The certificate of the configuration service at %1 is not trusted by this "
                           "client.")
                .arg(m_etcd->Endpoint()),
            SOURCE, CLASS, QStringLiteral("Connect"));
    }

    void readOnlyUserReadsAndIsRefusedWriting()
    {
        auto client = std::make_shared<EtcdClient>(Options(QStringLiteral("reader"), "readerpw"));
        client->Connect("zent/");
        CfgEtcd cfg(std::make_shared<CfgEtcdDocument>(client), QStringLiteral("App"), ICfg::VIEW_Machine);
        cfg.OpenDocument(true);
        QCOMPARE(cfg.GetString(QStringLiteral("Value"), QString()), QStringLiteral("readable"));
        CompareKVException(
            CaughtKVException([&] { cfg.SetString(QStringLiteral("Value"), QStringLiteral("changed")); }),
            QStringLiteral(
                "The configuration service denied the user \"reader\" this access: permission denied."),
            SOURCE, CLASS, QStringLiteral("Put"));
        QCOMPARE(cfg.GetString(QStringLiteral("Value"), QString()), QStringLiteral("readable"));
        QCOMPARE(Stored(), QStringLiteral("zent/App/Machine/Value\n\n"));
        // The signed-in watch brings an administrator's change.
        QVERIFY(!m_etcd
                     ->Ctl({QStringLiteral("put"), QStringLiteral("zent/App/Machine/Value"),
                            QStringLiteral("{\"text\":\"renewed\",\"type\":\"string\",\"ts\":2}")})
                     .isEmpty());
        QTRY_COMPARE_WITH_TIMEOUT(cfg.GetString(QStringLiteral("Value"), QString()),
                                  QStringLiteral("renewed"), 1000);
        QVERIFY(
            !m_etcd
                 ->Ctl({QStringLiteral("put"), QStringLiteral("zent/App/Machine/Value"),
                        QStringLiteral("{\"text\":\"readable\",\"type\":\"string\",\"protected\":\"true\","
                                       "\"ts\":1}")})
                 .isEmpty());
    }

    void applicationRefusedByTheServiceSaysWhyAndEnds()
    {
        const QString passwordFile = File(QStringLiteral("wrong.password"));
        QFile password(passwordFile);
        QVERIFY(password.open(QIODevice::WriteOnly));
        password.write("not the password\n");
        password.close();
        QVERIFY(password.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner));
        QProcess helper;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"), File(QStringLiteral("config")));
        environment.insert(QStringLiteral("ZENT_CFGCLIENT_CONFIG"), File(QStringLiteral("none.conf")));
        environment.insert(QStringLiteral("ZENT_CFGCLIENT_CA"), File(QStringLiteral("ca.pem")));
        environment.insert(QStringLiteral("ZENT_CFGCLIENT_CERT"), File(QStringLiteral("client.pem")));
        environment.insert(QStringLiteral("ZENT_CFGCLIENT_KEY"), File(QStringLiteral("client.key")));
        environment.insert(QStringLiteral("ZENT_CFGCLIENT_USER"), QStringLiteral("reader"));
        environment.insert(QStringLiteral("ZENT_CFGCLIENT_PASSWORD_FILE"), passwordFile);
        helper.setProcessEnvironment(environment);
        helper.start(QCoreApplication::applicationDirPath() + QStringLiteral("/cfgclienthelper"),
                     {QStringLiteral("Server:") + m_etcd->Endpoint(), QStringLiteral("start")});
        QVERIFY(helper.waitForFinished(30000));
        QCOMPARE(QString::fromUtf8(helper.readAllStandardOutput()),
                 QStringLiteral(
                     "0 The configuration service refused the user \"reader\": wrong user name or password.\n"
                     "0 Application \"App\" can't connect to TALVO Configuration Service.\nPlease make sure "
                     "that Configuration Service is running and start the application again.\n"));
        QCOMPARE(helper.exitCode(), 255);
    }

    void clientWithoutMembersSaysSo()
    {
        EtcdClient client{EtcdClientOptions()};
        CompareKVException(CaughtKVException([&] { client.Put("zent/App/Machine", "{}"); }),
                           QStringLiteral("No member of the configuration service is configured."), SOURCE,
                           CLASS, QStringLiteral("Put"));
        CompareKVException(CaughtKVException([&] { client.Connect("zent/"); }),
                           QStringLiteral("No member of the configuration service is configured."), SOURCE,
                           CLASS, QStringLiteral("Connect"));
    }

    void refusedClientsWroteNothing()
    {
        for (const EtcdClientOptions& options : {Options(), Options(QStringLiteral("reader"), "wrong")}) {
            EtcdClient client(options);
            QVERIFY(CaughtKVException([&] { client.Put("zent/Intruder/Machine", "{}"); }).has_value());
        }
        QCOMPARE(Stored(), QStringLiteral("zent/App/Machine/Value\n\n"));
    }
};

QTEST_GUILESS_MAIN(tst_EtcdClient)
#include "tst_etcdclient.moc"
