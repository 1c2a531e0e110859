// The configuration service's client as applications meet it: the real
// libCfgClient.so loaded by the configuration centre in helper processes, on
// real etcd servers started by the test, and its client configuration.
#include "cfgclient/cfgclient.h"
#include "cfgclient/etcdclientsettings.h"
#include "configuration/cfgxml.h"
#include "common/etcdserver.h"
#include "common/kvexceptioncheck.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const QString HELPER = QStringLiteral("cfgclienthelper");
const QString UNREACHABLE =
    QStringLiteral("0 Application \"App\" can't connect to TALVO Configuration Service.\nPlease make sure that "
                   "Configuration Service is running and start the application again.\n");

struct HelperResult
{
    int exitCode = -100;
    QString output;
    qint64 elapsedMs = 0;
};

} // namespace

class tst_CfgClient : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<EtcdCluster> m_etcd;
    std::vector<std::unique_ptr<QProcess>> m_helpers;

    QProcessEnvironment HelperEnvironment() const
    {
        // No client configuration of the machine's user reaches the helpers.
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"), m_dir->filePath(QStringLiteral("config")));
        environment.insert(QStringLiteral("XDG_CONFIG_DIRS"), m_dir->filePath(QStringLiteral("sysconfig")));
        for (const QString& name : environment.keys()) {
            if (name.startsWith(QLatin1String("ZENT_CFGCLIENT_")))
                environment.remove(name);
        }
        return environment;
    }

    QProcess* StartHelper(const QStringList& arguments)
    {
        m_helpers.push_back(std::make_unique<QProcess>());
        QProcess* helper = m_helpers.back().get();
        helper->setProcessEnvironment(HelperEnvironment());
        helper->start(QCoreApplication::applicationDirPath() + QLatin1Char('/') + HELPER, arguments);
        return helper;
    }

    HelperResult RunHelper(const QStringList& arguments)
    {
        HelperResult result;
        QElapsedTimer timer;
        timer.start();
        QProcess* helper = StartHelper(arguments);
        if (!helper->waitForFinished(30000))
            return result;
        result.elapsedMs = timer.elapsed();
        result.exitCode = helper->exitStatus() == QProcess::NormalExit ? helper->exitCode() : -99;
        result.output = QString::fromUtf8(helper->readAllStandardOutput());
        return result;
    }

    QString Document() const { return QStringLiteral("Server:") + m_etcd->Endpoint(); }

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
        QVERIFY2(EtcdCluster::Available(), "etcd is not installed (Debian package etcd-server)");
        m_dir = std::make_unique<QTemporaryDir>();
        m_etcd = std::make_unique<EtcdCluster>(m_dir->path());
        QVERIFY2(m_etcd->Start(), qPrintable(m_etcd->Log()));
    }

    void cleanup()
    {
        for (auto& helper : m_helpers) {
            if (helper->state() != QProcess::NotRunning) {
                helper->kill();
                helper->waitForFinished(5000);
            }
        }
        m_helpers.clear();
        qunsetenv("ZENT_CFGCLIENT_CONFIG");
        qunsetenv("ZENT_CFGCLIENT_MEMBERS");
        qunsetenv("ZENT_CFGCLIENT_USER");
    }

    void cleanupTestCase() { m_etcd.reset(); }

    void memberOfServerObjectName_data()
    {
        QTest::addColumn<QString>("serverObjectName");
        QTest::addColumn<QString>("member");
        QTest::newRow("host alone: the default port") << "CfgServer127.0.0.1" << "127.0.0.1:4000";
        QTest::newRow("host and port") << "CfgServercfg.example:2379" << "cfg.example:2379";
        QTest::newRow("no host") << "CfgServer" << "127.0.0.1:4000";
        QTest::newRow("bare IPv6 address") << "CfgServer::1" << "[::1]:4000";
        QTest::newRow("IPv6 address in brackets") << "CfgServer[::1]" << "[::1]:4000";
        QTest::newRow("IPv6 address and port") << "CfgServer[::1]:2379" << "[::1]:2379";
    }

    void memberOfServerObjectName()
    {
        QFETCH(QString, serverObjectName);
        QFETCH(QString, member);
        QCOMPARE(CfgClient::MemberOf(serverObjectName), member);
    }

    void applicationStartsOnARunningService()
    {
        const HelperResult result = RunHelper({Document(), QStringLiteral("start")});
        QCOMPARE(result.output, QStringLiteral("2 Application configuration ( key=App, type=%1 ) created "
                                               "successfully.\nstarted\n")
                                    .arg(Document()));
        QCOMPARE(result.exitCode, 0);
    }

    void unreachableServiceEndsTheApplicationWithMinusOne()
    {
        const quint16 closed = FreeLoopbackPort();
        const HelperResult result =
            RunHelper({QStringLiteral("Server:127.0.0.1:%1").arg(closed), QStringLiteral("start")});
        QCOMPARE(result.output, UNREACHABLE);
        QCOMPARE(result.exitCode, 255); // -1 as the system reports it
        QVERIFY2(result.elapsedMs < 3000, qPrintable(QString::number(result.elapsedMs)));
    }

    void silentServiceEndsTheApplicationAfterTheConnectTimeout()
    {
        // Accepts connections and never answers.
        QTcpServer silent;
        QVERIFY(silent.listen(QHostAddress::LocalHost, 0));
        const HelperResult result =
            RunHelper({QStringLiteral("Server:127.0.0.1:%1").arg(silent.serverPort()), QStringLiteral("start")});
        QCOMPARE(result.output, UNREACHABLE);
        QCOMPARE(result.exitCode, 255);
        // The documented connect time-out is 3 seconds per member.
        QVERIFY2(result.elapsedMs >= 3000 && result.elapsedMs < 5000, qPrintable(QString::number(result.elapsedMs)));
    }

    void twoApplicationsSeeEachOthersWritesWithinOneSecond()
    {
        QProcess* reader = StartHelper({Document(), QStringLiteral("wait"), QStringLiteral("Shared"),
                                        QStringLiteral("written elsewhere")});
        QByteArray started;
        while (!started.endsWith("ready\n") && reader->waitForReadyRead(20000))
            started += reader->readAllStandardOutput();
        QCOMPARE(QString::fromUtf8(started),
                 QStringLiteral("2 Application configuration ( key=App, type=%1 ) created successfully.\nready\n")
                     .arg(Document()));
        const HelperResult writer = RunHelper({Document(), QStringLiteral("write"), QStringLiteral("Shared"),
                                               QStringLiteral("written elsewhere")});
        QCOMPARE(writer.exitCode, 0);
        QVERIFY(reader->waitForFinished(10000));
        QCOMPARE(reader->exitCode(), 0);
        const qint64 written = writer.output.section(QLatin1String("written "), 1).trimmed().toLongLong();
        const qint64 seen =
            QString::fromUtf8(reader->readAllStandardOutput()).section(QLatin1String("seen "), 1).trimmed().toLongLong();
        QVERIFY2(written > 0 && seen > 0, qPrintable(writer.output));
        QVERIFY2(seen - written < 1000, qPrintable(QStringLiteral("%1 ms").arg(seen - written)));
    }

    void cfgcopyAndCfgdeleteWorkOnTheService()
    {
        QTemporaryDir folder;
        QFile source(folder.filePath(QStringLiteral("Cfg.xml")));
        QVERIFY(source.open(QIODevice::WriteOnly));
        source.write("<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Cfg version=\"2.2\"><System/><Domain/><Machine>"
                     "<Tool><Name protected=\"true\" type=\"string\">copied</Name>"
                     "<Count protected=\"false\" type=\"integer\">7</Count><Sub><Flag type=\"boolean\" "
                     "protected=\"true\">true</Flag></Sub></Tool></Machine><Export/></Cfg>\n");
        source.close();
        const auto run = [&](const QString& program, const QStringList& arguments) {
            QProcess process;
            process.setProcessEnvironment(HelperEnvironment());
            process.setWorkingDirectory(folder.path());
            process.start(QCoreApplication::applicationDirPath() + QLatin1Char('/') + program, arguments);
            process.waitForFinished(60000);
            return QStringLiteral("%1 %2").arg(process.exitCode()).arg(QString::fromUtf8(process.readAllStandardError()));
        };
        const QString server = Document();
        QCOMPARE(run(QStringLiteral("cfgcopy"), {QStringLiteral("*"), QStringLiteral("Xml:Cfg.xml"),
                                                  QStringLiteral("*"), server}),
                 QStringLiteral("0 "));
        // No stray file for the service's "document".
        QCOMPARE(QDir(folder.path()).entryList(QDir::Files), QStringList{QStringLiteral("Cfg.xml")});
        const QString keys = m_etcd->Ctl({QStringLiteral("get"), QStringLiteral("--prefix"), QStringLiteral("--keys-only"),
                                          QStringLiteral("zent/Tool/")});
        QCOMPARE(keys.split(QLatin1Char('\n'), Qt::SkipEmptyParts),
                 (QStringList{"zent/Tool/Machine", "zent/Tool/Machine/Count", "zent/Tool/Machine/Name",
                              "zent/Tool/Machine/Sub", "zent/Tool/Machine/Sub/Flag"}));
        QCOMPARE(run(QStringLiteral("cfgcopy"), {QStringLiteral("Tool"), server, QStringLiteral("Tool"),
                                                  QStringLiteral("Xml:Back.xml")}),
                 QStringLiteral("0 "));
        CfgXml back(folder.filePath(QStringLiteral("Back.xml")), QStringLiteral("Tool"), ICfg::VIEW_Machine);
        back.SuppressSideFiles(true);
        back.OpenDocument(false);
        QCOMPARE(back.GetString(QStringLiteral("Name"), QString()), QStringLiteral("copied"));
        QCOMPARE(back.GetInteger(QStringLiteral("Count"), 0), 7L);
        QCOMPARE(back.GetAttributeType(QStringLiteral("Count")), ICfg::TYPE_Integer);
        QCOMPARE(back.IsProtected(QStringLiteral("Count")), false);
        QCOMPARE(back.GetBoolean(QStringLiteral("Sub\\Flag"), false), true);
        QCOMPARE(back.IsProtected(QStringLiteral("Sub\\Flag")), true);
        QCOMPARE(run(QStringLiteral("cfgdelete"), {QStringLiteral("Tool"), server}), QStringLiteral("0 "));
        QCOMPARE(m_etcd->Ctl({QStringLiteral("get"), QStringLiteral("--prefix"), QStringLiteral("--keys-only"),
                              QStringLiteral("zent/Tool/")}),
                 QString());
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
        const QString config = WriteFile(QStringLiteral("open.conf"),
                                         QStringLiteral("[etcd]\nuser=zent\npasswordFile=%1\n").arg(passwordFile).toUtf8(),
                                         QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        qputenv("ZENT_CFGCLIENT_CONFIG", QFile::encodeName(config));
        CompareKVException(
            CaughtKVException([] { EtcdClientSettings::Load(QStringLiteral("h:4000")); }),
            QStringLiteral("The password file \"%1\" may be read or written by others; it must be readable by its "
                           "owner only.")
                .arg(passwordFile),
            QStringLiteral("cfgclient/etcdclientsettings"), QStringLiteral("EtcdClientSettings"),
            QStringLiteral("ReadPassword"));
    }
};

QTEST_GUILESS_MAIN(tst_CfgClient)
#include "tst_cfgclient.moc"
