// The configuration service's client as applications meet it: the real
// libCfgClient.so loaded by the configuration centre in helper processes, on
// real etcd servers started by the test, and the cfgcopy and cfgdelete programs on it.
#include "cfgclient/cfgclient.h"
#include "common/etcdserver.h"
#include "common/kvexceptioncheck.h"
#include "configuration/cfgxml.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const QString HELPER = QStringLiteral("cfgclienthelper");
const QString UNREACHABLE = QStringLiteral(
    "0 Application \"App\" can't connect to TALVO Configuration Service.\nPlease make sure that "
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
    }

    void cleanupTestCase() { m_etcd.reset(); }

    void memberOfServerObjectName_data()
    {
        QTest::addColumn<QString>("serverObjectName");
        QTest::addColumn<QString>("member");
        QTest::newRow("host alone: the default port") << "CfgServer127.0.0.1"
                                                      << "127.0.0.1:4000";
        QTest::newRow("host and port") << "CfgServercfg.example:2379"
                                       << "cfg.example:2379";
        QTest::newRow("no host") << "CfgServer"
                                 << "127.0.0.1:4000";
        QTest::newRow("bare IPv6 address") << "CfgServer::1"
                                           << "[::1]:4000";
        QTest::newRow("IPv6 address in brackets") << "CfgServer[::1]"
                                                  << "[::1]:4000";
        QTest::newRow("IPv6 address and port") << "CfgServer[::1]:2379"
                                               << "[::1]:2379";
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
        const HelperResult result = RunHelper(
            {QStringLiteral("Server:127.0.0.1:%1").arg(silent.serverPort()), QStringLiteral("start")});
        QCOMPARE(result.output, UNREACHABLE);
        QCOMPARE(result.exitCode, 255);
        // The documented connect time-out is 3 seconds per member.
        QVERIFY2(result.elapsedMs >= 3000 && result.elapsedMs < 5000,
                 qPrintable(QString::number(result.elapsedMs)));
    }

    void twoApplicationsSeeEachOthersWritesWithinOneSecond()
    {
        QProcess* reader = StartHelper({Document(), QStringLiteral("wait"), QStringLiteral("Shared"),
                                        QStringLiteral("written elsewhere")});
        QByteArray started;
        while (!started.endsWith("ready\n") && reader->waitForReadyRead(20000))
            started += reader->readAllStandardOutput();
        QCOMPARE(
            QString::fromUtf8(started),
            QStringLiteral("2 Application configuration ( key=App, type=%1 ) created successfully.\nready\n")
                .arg(Document()));
        const HelperResult writer = RunHelper({Document(), QStringLiteral("write"), QStringLiteral("Shared"),
                                               QStringLiteral("written elsewhere")});
        QCOMPARE(writer.exitCode, 0);
        QVERIFY(reader->waitForFinished(10000));
        QCOMPARE(reader->exitCode(), 0);
        const qint64 written = writer.output.section(QLatin1String("written "), 1).trimmed().toLongLong();
        const qint64 seen = QString::fromUtf8(reader->readAllStandardOutput())
                                .section(QLatin1String("seen "), 1)
                                .trimmed()
                                .toLongLong();
        QVERIFY2(written > 0 && seen > 0, qPrintable(writer.output));
        QVERIFY2(seen - written < 1000, qPrintable(QStringLiteral("%1 ms").arg(seen - written)));
    }

    void cfgcopyAndCfgdeleteWorkOnTheService()
    {
        QTemporaryDir folder;
        QFile source(folder.filePath(QStringLiteral("Cfg.xml")));
        QVERIFY(source.open(QIODevice::WriteOnly));
        source.write(
            "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Cfg version=\"2.2\"><System/><Domain/><Machine>"
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
            return QStringLiteral("%1 %2")
                .arg(process.exitCode())
                .arg(QString::fromUtf8(process.readAllStandardError()));
        };
        const QString server = Document();
        QCOMPARE(run(QStringLiteral("cfgcopy"),
                     {QStringLiteral("*"), QStringLiteral("Xml:Cfg.xml"), QStringLiteral("*"), server}),
                 QStringLiteral("0 "));
        // No stray file for the service's "document".
        QCOMPARE(QDir(folder.path()).entryList(QDir::Files), QStringList{QStringLiteral("Cfg.xml")});
        const QString keys = m_etcd->Ctl({QStringLiteral("get"), QStringLiteral("--prefix"),
                                          QStringLiteral("--keys-only"), QStringLiteral("zent/Tool/")});
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
        QCOMPARE(m_etcd->Ctl({QStringLiteral("get"), QStringLiteral("--prefix"),
                              QStringLiteral("--keys-only"), QStringLiteral("zent/Tool/")}),
                 QString());
    }
};

QTEST_GUILESS_MAIN(tst_CfgClient)
#include "tst_cfgclient.moc"
