#include "cfgcentertestsupport.h"
#include "configuration/cfgcenter.h"
#include "configuration/cfgifdlldescriptor.h"
#include "configuration/icfgcenterserverifif.h"
#include "kvbase/kvexception.h"

#include <QProcess>
#include <QStandardPaths>
#include <QtTest>

#include <memory>

namespace {
const QString DESCRIPTOR = QStringLiteral("configuration/dlldescriptor");
const QString CLIENT = QStringLiteral("plugins/tstcfgclient");
const QString HELPER = QStringLiteral("cfgcenterclienthelper");

QString WrongTypeMessage(const QString& library)
{
    return QStringLiteral(
               "The dll instance created by a call of KVCreate()/KVCreateEx() from dll \"%1\" is not of "
               "the expected type \"ICfgCenterServerIfIf\" !")
        .arg(library);
}
} // namespace

class TestCfgIfDllDescriptor : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init()
    {
        QVERIFY2(m_fixture.Init(), "temporary folder");
        QVERIFY(m_fixture.WriteDocument(QStringLiteral("Cfg.xml"), "<App><Name>Demo</Name></App>"));
    }
    void cleanup() { m_fixture.Cleanup(); }

    void connectsCreatesAndDisconnectsInOrder();
    void clientOfAnotherTypeIsRefused();
    void clientOfAnotherTypeFailsTheCentre();
    void missingClientLibraryIsThrown();
    void reachableServiceStartsTheApplication();
    void unreachableServiceEndsTheProcessWithMinusOne();

private:
    QProcess* StartHelper(bool serviceDown);

    CentreFixture m_fixture;
    std::unique_ptr<QProcess> m_pProcess;
};

void TestCfgIfDllDescriptor::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    // The names applications start with, before anybody changes them.
    QCOMPARE(QString::fromLatin1(CfgIfDllDescriptor::s_pDllFileName), QStringLiteral("CfgClient.dll"));
    QCOMPARE(QString::fromLatin1(CfgCenter::s_pDefaultCfgDoc), QStringLiteral("Server"));
}

void TestCfgIfDllDescriptor::connectsCreatesAndDisconnectsInOrder()
{
    TraceLog log;
    auto client = std::make_unique<CfgIfDllDescriptor>(QStringLiteral("CfgServer192.0.2.7"),
                                                       QStringLiteral("App"), true);
    QCOMPARE(client->GetName(), QStringLiteral("tstcfgclient.dll"));
    QVERIFY(client->GetServerIf() != nullptr);
    const std::unique_ptr<ICfg> cfg(
        client->CreateCfg(QStringLiteral("App\\Sub"), ICfg::VIEW_User, QStringLiteral("extra")));
    QCOMPARE(cfg->GetKey(), QStringLiteral("App\\Sub"));
    client.reset();
    QCOMPARE(log.LinesOf({DESCRIPTOR, CLIENT}),
             QStringList({DESCRIPTOR + QStringLiteral(" Dll tstcfgclient.dll loaded"),
                          CLIENT + QStringLiteral(" tstcfgclient created: server=CfgServer192.0.2.7"),
                          DESCRIPTOR + QStringLiteral(" Dll tstcfgclient.dll, Instance CfgServer192.0.2.7 "
                                                      "(AdditionalParams: none) successfully created !"),
                          CLIENT + QStringLiteral(" tstcfgclient connect: app=App asServer=true"),
                          CLIENT + QStringLiteral(" tstcfgclient create: key=App\\Sub view=1 other=extra"),
                          CLIENT + QStringLiteral(" tstcfgclient disconnect: app=App"),
                          CLIENT + QStringLiteral(" tstcfgclient destroyed"),
                          DESCRIPTOR + QStringLiteral(" Dll tstcfgclient.dll, Instance CfgServer192.0.2.7 "
                                                      "(AdditionalParams: none) destroyed !"),
                          DESCRIPTOR + QStringLiteral(" Dll tstcfgclient.dll unloaded")}));
}

void TestCfgIfDllDescriptor::clientOfAnotherTypeIsRefused()
{
    CfgIfDllDescriptor::s_pDllFileName = "tstplugin.dll";
    TraceLog log;
    try {
        CfgIfDllDescriptor client(QStringLiteral("CfgServer127.0.0.1"), QStringLiteral("App"), false);
        QFAIL("no exception");
    } catch (const KVException& exception) {
        QCOMPARE(exception.GetMessage(), WrongTypeMessage(QStringLiteral("tstplugin.dll")));
        QCOMPARE(exception.GetSourceFile(), QStringLiteral("configuration/cfgifdlldescriptor"));
        QCOMPARE(exception.GetClassName(), QStringLiteral("CfgIfDllDescriptor"));
        QCOMPARE(exception.GetOperation(), QStringLiteral("CfgIfDllDescriptor"));
    }
    // The wrong instance is handed back and its library unloaded.
    QCOMPARE(log.LinesOf({DESCRIPTOR, QStringLiteral("plugins/tstplugin")}).mid(3),
             QStringList({QStringLiteral("plugins/tstplugin tstplugin destroyed: key=CfgServer127.0.0.1"),
                          DESCRIPTOR + QStringLiteral(" Dll tstplugin.dll, Instance CfgServer127.0.0.1 "
                                                      "(AdditionalParams: none) destroyed !"),
                          DESCRIPTOR + QStringLiteral(" Dll tstplugin.dll unloaded")}));
}

void TestCfgIfDllDescriptor::clientOfAnotherTypeFailsTheCentre()
{
    CfgIfDllDescriptor::s_pDllFileName = "tstplugin.dll";
    try {
        CfgCenter centre(QStringLiteral("App"), QStringLiteral("Server"), ICfg::VIEW_Machine, false, false,
                         false);
        QFAIL("no exception");
    } catch (const KVException& exception) {
        QCOMPARE(exception.GetMessage(), WrongTypeMessage(QStringLiteral("tstplugin.dll")));
    }
    QCOMPARE(CfgCenterLifecycleTestAccess::IsServerClientLoaded(), false);
}

void TestCfgIfDllDescriptor::missingClientLibraryIsThrown()
{
    CfgIfDllDescriptor::s_pDllFileName = "nosuchclient.dll";
    try {
        CfgIfDllDescriptor client(QStringLiteral("CfgServer127.0.0.1"), QStringLiteral("App"), false);
        QFAIL("no exception");
    } catch (const KVException& exception) {
        QCOMPARE(exception.GetMessage(),
                 QStringLiteral("Received invalid Dll handle while loading nosuchclient.dll. Error: 2"));
        QCOMPARE(exception.GetClassName(), QStringLiteral("CfgDllDescriptor"));
    }
}

QProcess* TestCfgIfDllDescriptor::StartHelper(bool serviceDown)
{
    m_pProcess = std::make_unique<QProcess>();
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    if (serviceDown)
        environment.insert(QStringLiteral("ZENT_TEST_CFGSERVER_DOWN"), QStringLiteral("1"));
    m_pProcess->setProcessEnvironment(environment);
    m_pProcess->setProcessChannelMode(QProcess::SeparateChannels);
    m_pProcess->start(QCoreApplication::applicationDirPath() + QLatin1Char('/') + HELPER,
                      {QStringLiteral("App")});
    return m_pProcess.get();
}

void TestCfgIfDllDescriptor::reachableServiceStartsTheApplication()
{
    QProcess* helper = StartHelper(false);
    QVERIFY2(helper->waitForFinished(30000), qPrintable(helper->errorString()));
    QCOMPARE(helper->exitStatus(), QProcess::NormalExit);
    QCOMPARE(helper->exitCode(), 0);
    QCOMPARE(QString::fromUtf8(helper->readAllStandardOutput()),
             QStringLiteral(
                 "2 Application configuration ( key=App, type=Server ) created successfully.\nstarted\n"));
}

void TestCfgIfDllDescriptor::unreachableServiceEndsTheProcessWithMinusOne()
{
    QProcess* helper = StartHelper(true);
    QVERIFY2(helper->waitForFinished(30000), qPrintable(helper->errorString()));
    QCOMPARE(helper->exitStatus(), QProcess::NormalExit);
    QCOMPARE(helper->exitCode(), 255); // -1 as the system reports it
    QCOMPARE(QString::fromUtf8(helper->readAllStandardOutput()),
             QStringLiteral(
                 "0 Application \"App\" can't connect to TALVO Configuration Service.\nPlease make sure "
                 "that Configuration Service is running and start the application again.\n"));
}

QTEST_GUILESS_MAIN(TestCfgIfDllDescriptor)
#include "tst_cfgifdlldescriptor.moc"
