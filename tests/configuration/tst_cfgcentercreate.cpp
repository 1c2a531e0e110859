#include "cfgcentertestaccess.h"
#include "cfgcentertestsupport.h"
#include "common/commandline.h"
#include "common/memorycfg.h"
#include "configuration/cfgcenter.h"
#include "configuration/cfgregistry.h"
#include "configuration/cfgxml.h"
#include "configuration/savecomponentif.h"
#include "kvbase/kvexception.h"

#include <QDomDocument>
#include <QStandardPaths>
#include <QtTest>

#include <functional>
#include <memory>

namespace {
const QString SOURCE = QStringLiteral("configuration/cfgcenter");
const QString CLIENT = QStringLiteral("plugins/tstcfgclient");

const QByteArray APP_SECTION = "<App><Name>Demo</Name></App>";

/// Runs `call` and returns the KVException it throws; fails the test when none comes.
KVException ExpectKVException(const std::function<void()>& call)
{
    try {
        call();
    } catch (const KVException& exception) {
        return exception;
    }
    return KVException(QStringLiteral("<no exception>"));
}

void CompareException(const KVException& exception, const QString& message, const QString& className,
                      const QString& operation, const QString& source = SOURCE)
{
    QCOMPARE(exception.GetMessage(), message);
    QCOMPARE(exception.GetSourceFile(), source);
    QCOMPARE(exception.GetClassName(), className);
    QCOMPARE(exception.GetOperation(), operation);
    QCOMPARE(exception.GetCode(), -1);
    QVERIFY(exception.GetLine() > 0);
}

std::unique_ptr<CfgCenter> Explicit(const QString& key, const QString& cfgDoc,
                                    ICfg::View view = ICfg::VIEW_Machine, bool loadAdditional = false,
                                    bool noKeyQuestion = true)
{
    return std::make_unique<CfgCenter>(key, cfgDoc, view, false, loadAdditional, noKeyQuestion);
}
} // namespace

class TestCfgCenterCreate : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void init() { QVERIFY2(m_fixture.Init(), "temporary folder"); }
    void cleanup() { m_fixture.Cleanup(); }

    // Constructors
    void commandLineGivesKeyAndDocument();
    void commandLineWithoutDocumentUsesTheDefault_data();
    void commandLineWithoutDocumentUsesTheDefault();
    void secondConstructionIsRefused_data();
    void secondConstructionIsRefused();
    void explicitConstructorDoesNotCheck();
    void serverConstructorUsesDefaultDocumentWithoutAdditionalDlls();
    void keyPrefixSetsServerMode_data();
    void keyPrefixSetsServerMode();

    // Backends
    void documentStringChoosesBackend_data();
    void documentStringChoosesBackend();
    void unknownDocumentStringGivesNoConfiguration_data();
    void unknownDocumentStringGivesNoConfiguration();
    void emptyDocumentStringIsTheDefault();
    void serverObjectNameNamesTheHost_data();
    void serverObjectNameNamesTheHost();
    void serverDocumentIsServedByTheClient();
    void failedOpenThrowsByUsage_data();
    void failedOpenThrowsByUsage();
    void openSeesTheNewObjectThenPutsThePreviousBack();
    void asyncStartupDefersPostCreation_data();
    void asyncStartupDefersPostCreation();
    void deferredServerConfigurationIsCreatedOnResume();
    void setAsyncStartupWithoutPendingCreationOnlyStores();

    // Further configuration objects
    void createCfgWithoutCentreThrows();
    void createCfgSharesTheXmlDocument();
    void createCfgInRegistry();
    void createCfgAsksTheServerClient();
    void unknownApplicationBackendIsRefused();
    void saveDocumentWithoutCentreThrows();
    void serverDocumentIsNotSaved();

    // Tear-down
    void exitReleasesEverything();
    void exitSavesTheDocumentWhenAutoSaveIsOn_data();
    void exitSavesTheDocumentWhenAutoSaveIsOn();
    void exitDisconnectsThenUnloadsTheClient();
    void failedConstructionIsCleanedUpByExit();

    // The start-up argument document
    void cfgargFailuresAreThrown_data();
    void cfgargFailuresAreThrown();
    void cfgargSuppliesKeyAndDocument();
    void keyConstructorReadsOnlyTheTypeOfCfgarg_data();
    void keyConstructorReadsOnlyTheTypeOfCfgarg();

    // The post-creation step
    void postCreateRunsInOrder();
    void missingApplicationKeyIsQuestioned_data();
    void missingApplicationKeyIsQuestioned();
    void existingApplicationKeyIsNotQuestioned_data();
    void existingApplicationKeyIsNotQuestioned();
    void successReportReachesTheUserWithMask255();
    void requestedViewIsSelectedLast_data();
    void requestedViewIsSelectedLast();

    // Logger switches
    void withoutExceptionHandlingTheMaskIsUntouched();
    void emptyExceptionHandlingSwitchesOnlyTracing();
    void exceptionHandlingValuesSetTheirBits_data();
    void exceptionHandlingValuesSetTheirBits();

    // Copies
    void copyTakesValuesThenChildren();
    void copyTakesEmptyTypedValuesAsIntegers();
    void copyFromReadsAnXmlFile();
    void copyFromTracesAnUnreadableFile_data();
    void copyFromTracesAnUnreadableFile();
    void copyToWritesAnXmlFile();
    void reLoadUserConfigAsksComponentsInOrder();

private:
    bool WriteAppDocument(const QByteArray& machine = APP_SECTION)
    {
        return m_fixture.WriteDocument(QStringLiteral("Cfg.xml"), machine);
    }

    CentreFixture m_fixture;
};

// --------------------------------------------------------------- constructors

void TestCfgCenterCreate::commandLineGivesKeyAndDocument()
{
    QVERIFY(WriteAppDocument());
    CommandLine args({"prog", "App", "Xml:Cfg.xml"});
    auto centre = std::make_unique<CfgCenter>(args.argc(), args.argv(), ICfg::VIEW_Machine, false, false);
    QCOMPARE(CfgCenter::GetType(), QStringLiteral("Xml"));
    QCOMPARE(CfgCenter::GetAppCfg().GetKey(), QStringLiteral("App"));
    QCOMPARE(CfgCenter::GetAppCfg().GetTarget(), QStringLiteral("Cfg.xml"));
    QCOMPARE(CfgCenter::GetAppName(), QStringLiteral("Demo"));
    QCOMPARE(CfgCenter::GetAdminCfg().GetKey(), QStringLiteral("Administration"));
    QCOMPARE(CfgCenter::GetDocCfg().GetKey(), QString());
    QVERIFY(CfgCenter::GetMutex() != nullptr);
    QVERIFY(CfgCenter::GetMutex()->isRecursive());
    QCOMPARE(CfgCenter::IsServer(), false);
}

void TestCfgCenterCreate::commandLineWithoutDocumentUsesTheDefault_data()
{
    QTest::addColumn<QList<QByteArray>>("arguments");
    QTest::addColumn<QString>("key");
    QTest::newRow("no_arguments") << QList<QByteArray>{"prog"} << QString();
    QTest::newRow("key_only") << QList<QByteArray>{"prog", "App"} << QStringLiteral("App");
    QTest::newRow("option_in_place_of_document")
        << QList<QByteArray>{"prog", "App", "-style=fusion"} << QStringLiteral("App");
}

void TestCfgCenterCreate::commandLineWithoutDocumentUsesTheDefault()
{
    QFETCH(QList<QByteArray>, arguments);
    QFETCH(QString, key);
    QVERIFY(m_fixture.WriteDocument(QStringLiteral("Default.xml"), APP_SECTION));
    CfgCenter::s_pDefaultCfgDoc = "Xml:Default.xml";
    CommandLine args(arguments);
    auto centre = std::make_unique<CfgCenter>(args.argc(), args.argv(), ICfg::VIEW_Machine, false, false);
    QCOMPARE(CfgCenter::GetAppCfg().GetTarget(), QStringLiteral("Default.xml"));
    QCOMPARE(CfgCenter::GetAppCfg().GetKey(), key);
}

void TestCfgCenterCreate::secondConstructionIsRefused_data()
{
    QTest::addColumn<int>("constructor");
    QTest::newRow("command_line") << 0;
    QTest::newRow("server_key") << 1;
    QTest::newRow("key_with_cfgarg") << 2;
    QTest::newRow("cfgarg") << 3;
}

void TestCfgCenterCreate::secondConstructionIsRefused()
{
    QFETCH(int, constructor);
    QVERIFY(WriteAppDocument());
    QVERIFY(WriteTextFile(m_fixture.Path(QStringLiteral("cfgarg.xml")),
                          "<args><cfgarg key=\"App\" type=\"Xml:Cfg.xml\"/></args>"));
    auto first = Explicit(QStringLiteral("App"), QStringLiteral("Xml:Cfg.xml"));
    ICfg* appCfg = &CfgCenter::GetAppCfg();
    CommandLine args({"prog", "App", "Xml:Cfg.xml"});
    QString key = QStringLiteral("App");
    const KVException exception = ExpectKVException([&] {
        std::unique_ptr<CfgCenter> second;
        switch (constructor) {
        case 0:
            second = std::make_unique<CfgCenter>(args.argc(), args.argv(), ICfg::VIEW_Machine, false, false);
            break;
        case 1:
            second = std::make_unique<CfgCenter>(key);
            break;
        case 2:
            second = std::make_unique<CfgCenter>(key, ICfg::VIEW_Machine, false);
            break;
        default:
            second = std::make_unique<CfgCenter>(ICfg::VIEW_Machine, false);
            break;
        }
    });
    CompareException(exception, QStringLiteral("CfgCenter::CfgCenter() called a second time."),
                     QStringLiteral("CfgCenter"), QStringLiteral("CfgCenter"));
    QCOMPARE(&CfgCenter::GetAppCfg(), appCfg);
}

void TestCfgCenterCreate::explicitConstructorDoesNotCheck()
{
    QVERIFY(WriteAppDocument());
    CfgXml stale(QStringLiteral("Stale.xml"), QStringLiteral("Stale"), ICfg::VIEW_Machine);
    CfgCenterTestAccess::SetAppCfg(&stale);
    auto centre = Explicit(QStringLiteral("App"), QStringLiteral("Xml:Cfg.xml"));
    QCOMPARE(CfgCenter::GetAppCfg().GetKey(), QStringLiteral("App"));
    QVERIFY(&CfgCenter::GetAppCfg() != &stale);
}

void TestCfgCenterCreate::serverConstructorUsesDefaultDocumentWithoutAdditionalDlls()
{
    QVERIFY(WriteAppDocument("<App><Name>Demo</Name><AdditionalDlls><A><FileName>tstplugin.dll</FileName></A>"
                             "</AdditionalDlls></App>"));
    TraceLog log;
    QString key = QStringLiteral("App");
    auto centre = std::make_unique<CfgCenter>(key);
    QCOMPARE(CfgCenter::GetType(), QStringLiteral("Server"));
    QCOMPARE(CfgCenter::GetAppName(), QStringLiteral("Demo"));
    QCOMPARE(CfgCenter::GetDllInstanceList()->size(), size_t(0));
    QCOMPARE(log.Texts(CLIENT),
             QStringList({QStringLiteral("tstcfgclient created: server=CfgServer127.0.0.1"),
                          QStringLiteral("tstcfgclient connect: app=App asServer=false"),
                          QStringLiteral("tstcfgclient create: key=App view=2 other="),
                          QStringLiteral("tstcfgclient create: key=Administration view=2 other="),
                          QStringLiteral("tstcfgclient create: key= view=2 other=")}));
}

void TestCfgCenterCreate::keyPrefixSetsServerMode_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<bool>("isServer");
    QTest::addColumn<QString>("appKey");
    QTest::newRow("star_is_the_whole_document") << QStringLiteral("*") << true << QString();
    QTest::newRow("star_with_empty_lists") << QStringLiteral("*::") << true << QString();
    QTest::newRow("colon_first") << QStringLiteral(":") << true << QString();
    QTest::newRow("star_before_a_name") << QStringLiteral("*App") << true << QStringLiteral("*App");
    QTest::newRow("plain_key") << QStringLiteral("App") << false << QStringLiteral("App");
    QTest::newRow("star_inside") << QStringLiteral("App*") << false << QStringLiteral("App*");
}

void TestCfgCenterCreate::keyPrefixSetsServerMode()
{
    QFETCH(QString, key);
    QFETCH(bool, isServer);
    QFETCH(QString, appKey);
    QVERIFY(WriteAppDocument());
    auto centre = Explicit(key, QStringLiteral("Xml:Cfg.xml"));
    QCOMPARE(CfgCenter::IsServer(), isServer);
    QCOMPARE(CfgCenter::GetAppCfg().GetKey(), appKey);
    centre.reset();
    QCOMPARE(CfgCenter::IsServer(), false);
}

// ------------------------------------------------------------------- backends

void TestCfgCenterCreate::documentStringChoosesBackend_data()
{
    QTest::addColumn<QString>("cfgDoc");
    QTest::addColumn<QString>("type");
    QTest::newRow("xml") << QStringLiteral("Xml:Cfg.xml") << QStringLiteral("Xml");
    QTest::newRow("registry") << QStringLiteral("Registry") << QStringLiteral("Registry");
    QTest::newRow("server") << QStringLiteral("Server") << QStringLiteral("Server");
    QTest::newRow("server_without_host") << QStringLiteral("Server:") << QStringLiteral("Server");
    QTest::newRow("server_with_host") << QStringLiteral("Server:192.0.2.7") << QStringLiteral("Server");
}

void TestCfgCenterCreate::documentStringChoosesBackend()
{
    QFETCH(QString, cfgDoc);
    QFETCH(QString, type);
    QVERIFY(WriteAppDocument());
    auto centre = Explicit(QStringLiteral("App"), cfgDoc);
    QCOMPARE(CfgCenter::GetType(), type);
    QCOMPARE(CfgCenter::GetAppCfg().GetType(),
             type == QLatin1String("Registry") ? type : QStringLiteral("Xml"));
    QCOMPARE(CfgCenterLifecycleTestAccess::IsServerClientLoaded(), type == QLatin1String("Server"));
}

void TestCfgCenterCreate::unknownDocumentStringGivesNoConfiguration_data()
{
    QTest::addColumn<QString>("cfgDoc");
    QTest::newRow("unknown") << QStringLiteral("Bogus");
    QTest::newRow("lower_case_xml") << QStringLiteral("xml:Cfg.xml");
    QTest::newRow("server_without_colon") << QStringLiteral("ServerX");
    QTest::newRow("option") << QStringLiteral("-");
}

void TestCfgCenterCreate::unknownDocumentStringGivesNoConfiguration()
{
    QFETCH(QString, cfgDoc);
    QCOMPARE(CfgCenter::CreateAppCfg(QStringLiteral("App"), cfgDoc, ICfg::VIEW_Machine), nullptr);
    QCOMPARE(CfgCenterLifecycleTestAccess::IsServerClientLoaded(), false);
    // A centre on such a document has no application configuration to build on.
    const KVException exception = ExpectKVException([&] { Explicit(QStringLiteral("App"), cfgDoc); });
    CompareException(exception,
                     QStringLiteral("CfgCenter::CreateCfg(), called, before calling ICfg::CreateAppCfg()"),
                     QStringLiteral("CfgCenter"), QStringLiteral("CreateCfgBase"));
}

void TestCfgCenterCreate::emptyDocumentStringIsTheDefault()
{
    QVERIFY(m_fixture.WriteDocument(QStringLiteral("Other.xml"), APP_SECTION));
    CfgCenter::s_pDefaultCfgDoc = "Xml:Other.xml";
    const std::unique_ptr<ICfg> cfg(
        CfgCenter::CreateAppCfg(QStringLiteral("App"), QString(), ICfg::VIEW_Machine));
    QVERIFY(dynamic_cast<CfgXml*>(cfg.get()) != nullptr);
    QCOMPARE(cfg->GetTarget(), QStringLiteral("Other.xml"));
    QCOMPARE(cfg->GetString(QStringLiteral("Name"), QString()), QStringLiteral("Demo"));
}

void TestCfgCenterCreate::serverObjectNameNamesTheHost_data()
{
    QTest::addColumn<QString>("cfgDoc");
    QTest::addColumn<QString>("serverObject");
    QTest::addColumn<int>("addressQueries");
    QTest::newRow("plain_server") << QStringLiteral("Server") << QStringLiteral("CfgServer127.0.0.1") << 0;
    QTest::newRow("empty_host") << QStringLiteral("Server:") << QStringLiteral("CfgServer127.0.0.1") << 0;
    QTest::newRow("own_first_address")
        << QStringLiteral("Server:10.1.2.3") << QStringLiteral("CfgServer127.0.0.1") << 1;
    QTest::newRow("own_second_address")
        << QStringLiteral("Server:fe80::1") << QStringLiteral("CfgServer127.0.0.1") << 2;
    QTest::newRow("other_machine") << QStringLiteral("Server:192.0.2.7")
                                   << QStringLiteral("CfgServer192.0.2.7") << 3;
}

void TestCfgCenterCreate::serverObjectNameNamesTheHost()
{
    QFETCH(QString, cfgDoc);
    QFETCH(QString, serverObject);
    QFETCH(int, addressQueries);
    QVERIFY(WriteAppDocument());
    AddressZentOS os({QStringLiteral("10.1.2.3"), QStringLiteral("fe80::1")});
    TraceLog log;
    auto centre = Explicit(QStringLiteral("App"), cfgDoc);
    QCOMPARE(log.Texts(CLIENT).value(0), QStringLiteral("tstcfgclient created: server=") + serverObject);
    QCOMPARE(os.addressQueries, addressQueries);
}

void TestCfgCenterCreate::serverDocumentIsServedByTheClient()
{
    QVERIFY(WriteAppDocument("<App><Name>Demo</Name><Startup><Port>4000</Port></Startup></App>"
                             "<Administration><Locale>de</Locale></Administration>"));
    auto centre = Explicit(QStringLiteral("App"), QStringLiteral("Server"));
    QCOMPARE(CfgCenter::GetAppName(), QStringLiteral("Demo"));
    QCOMPARE(CfgCenter::GetAdminCfg().GetString(QStringLiteral("Locale"), QString()), QStringLiteral("de"));
    const std::unique_ptr<ICfg> startup(
        CfgCenter::CreateCfg(QStringLiteral("App\\Startup"), ICfg::VIEW_Machine));
    QCOMPARE(startup->GetInteger(QStringLiteral("Port"), 0), 4000L);
    CfgCenter::GetAppCfg().SetString(QStringLiteral("Written"), QStringLiteral("by the application"));
    CfgCenter::SaveDocument(); // the service keeps its own document
    QVERIFY(!ReadTextFile(m_fixture.Path(QStringLiteral("Cfg.xml"))).contains("by the application"));
}

void TestCfgCenterCreate::failedOpenThrowsByUsage_data()
{
    QTest::addColumn<int>("usage");
    QTest::addColumn<bool>("integerException");
    QTest::newRow("usage_0") << 0 << false;
    QTest::newRow("usage_1") << 1 << true;
    QTest::newRow("usage_2") << 2 << false;
    QTest::newRow("usage_3") << 3 << true;
    QTest::newRow("usage_4") << 4 << false;
}

void TestCfgCenterCreate::failedOpenThrowsByUsage()
{
    QFETCH(int, usage);
    QFETCH(bool, integerException);
    CfgCenter::SetUsage(static_cast<CfgCenter::CfgCenterUsage>(usage));
    UserChannel user(false);
    bool caughtInteger = false;
    QString message;
    try {
        CfgCenter::CreateAppCfg(QStringLiteral("App"), QStringLiteral("Xml:Missing.xml"), ICfg::VIEW_Machine);
    } catch (int value) {
        caughtInteger = true;
        QCOMPARE(value, -7);
    } catch (const KVException& exception) {
        message = exception.GetMessage();
        QCOMPARE(exception.GetClassName(), QStringLiteral("CfgXml"));
    }
    QCOMPARE(caughtInteger, integerException);
    QCOMPARE(message, integerException
                          ? QString()
                          : QStringLiteral("The configuration file \"Missing.xml\" does not exist.\n"));
    // The object that failed stays the application configuration.
    QCOMPARE(CfgCenter::GetAppCfg().GetTarget(), QStringLiteral("Missing.xml"));
}

void TestCfgCenterCreate::openSeesTheNewObjectThenPutsThePreviousBack()
{
    QVERIFY(WriteAppDocument());
    auto centre = Explicit(QStringLiteral("App"), QStringLiteral("Xml:Cfg.xml"));
    ICfg* appCfg = &CfgCenter::GetAppCfg();
    QStringList targetsDuringOpen;
    ErrorHandler::Instance().SetMessageDialog([&](const QString&) {
        targetsDuringOpen.append(CfgCenter::GetAppCfg().GetTarget());
        return true; // create the missing file
    });
    const std::unique_ptr<ICfg> other(
        CfgCenter::CreateAppCfg(QStringLiteral("Other"), QStringLiteral("Xml:New.xml"), ICfg::VIEW_Machine));
    ErrorHandler::Instance().SetMessageDialog({});
    QCOMPARE(targetsDuringOpen, QStringList{QStringLiteral("New.xml")});
    QCOMPARE(other->GetTarget(), QStringLiteral("New.xml"));
    QCOMPARE(&CfgCenter::GetAppCfg(), appCfg);
}

void TestCfgCenterCreate::asyncStartupDefersPostCreation_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<bool>("deferred");
    QTest::newRow("off") << 0 << false;
    QTest::newRow("deferred") << 1 << true;
    QTest::newRow("resumed") << 2 << false;
    QTest::newRow("running_on_server") << 3 << true;
}

void TestCfgCenterCreate::asyncStartupDefersPostCreation()
{
    QFETCH(int, mode);
    QFETCH(bool, deferred);
    QVERIFY(WriteAppDocument());
    CfgCenter::SetAsyncStartup(static_cast<CfgCenter::AsyncStartup>(mode));
    auto centre = Explicit(QStringLiteral("App"), QStringLiteral("Xml:Cfg.xml"), ICfg::VIEW_Machine);
    QCOMPARE(CfgCenter::GetAppCfg().GetKey(), QStringLiteral("App"));
    QCOMPARE(CfgCenterLifecycleTestAccess::HasPendingPostCreate(), deferred);
    if (deferred) {
        const KVException exception = ExpectKVException([] { CfgCenter::GetAdminCfg(); });
        QCOMPARE(exception.GetMessage(),
                 QStringLiteral("CfgCenter::GetAdminCfg(), called, before calling CfgCenter::CfgCenter()"));
        CfgCenter::SetAsyncStartup(CfgCenter::ASYNC_Resume);
        QCOMPARE(CfgCenterLifecycleTestAccess::HasPendingPostCreate(), false);
    }
    QCOMPARE(CfgCenter::GetAdminCfg().GetKey(), QStringLiteral("Administration"));
    QCOMPARE(CfgCenter::GetDocCfg().GetKey(), QString());
}

void TestCfgCenterCreate::deferredServerConfigurationIsCreatedOnResume()
{
    QVERIFY(WriteAppDocument());
    TraceLog log;
    CfgCenter::SetAsyncStartup(CfgCenter::ASYNC_Deferred);
    auto centre = Explicit(QStringLiteral("App"), QStringLiteral("Server"), ICfg::VIEW_User);
    QCOMPARE(log.Texts(CLIENT),
             QStringList({QStringLiteral("tstcfgclient created: server=CfgServer127.0.0.1"),
                          QStringLiteral("tstcfgclient connect: app=App asServer=false")}));
    const KVException exception = ExpectKVException([] { CfgCenter::GetAppCfg(); });
    QCOMPARE(exception.GetMessage(),
             QStringLiteral("CfgCenter::GetAppCfg() called, before calling CfgCenter::CfgCenter()"));
    QCOMPARE(CfgCenter::GetType(), QStringLiteral("Server"));
    log.Clear();
    CfgCenter::SetAsyncStartup(CfgCenter::ASYNC_Resume);
    QCOMPARE(CfgCenter::GetAsyncStartup(), CfgCenter::ASYNC_Resume);
    QCOMPARE(log.Texts(CLIENT),
             QStringList({QStringLiteral("tstcfgclient create: key=App view=1 other="),
                          QStringLiteral("tstcfgclient create: key=Administration view=2 other="),
                          QStringLiteral("tstcfgclient create: key= view=2 other=")}));
    QCOMPARE(CfgCenter::GetAppCfg().GetString(QStringLiteral("Name"), QString(), ICfg::VIEW_Machine),
             QStringLiteral("Demo"));
}

void TestCfgCenterCreate::setAsyncStartupWithoutPendingCreationOnlyStores()
{
    TraceLog log;
    CfgCenter::SetAsyncStartup(CfgCenter::ASYNC_Resume);
    QCOMPARE(CfgCenter::GetAsyncStartup(), CfgCenter::ASYNC_Resume);
    CfgCenter::SetAsyncStartup(CfgCenter::ASYNC_RunningOnServer);
    QCOMPARE(CfgCenter::GetAsyncStartup(), CfgCenter::ASYNC_RunningOnServer);
    QCOMPARE(log.Lines(), QStringList());
}

// --------------------------------------------------- further configuration objects

void TestCfgCenterCreate::createCfgWithoutCentreThrows()
{
    CompareException(
        ExpectKVException([] { CfgCenter::CreateCfg(QStringLiteral("App"), ICfg::VIEW_Machine); }),
        QStringLiteral("CfgCenter::CreateCfg(), called, before calling ICfg::CreateAppCfg()"),
        QStringLiteral("CfgCenter"), QStringLiteral("CreateCfg"));
    CompareException(ExpectKVException([] { CfgCenter::GetType(); }),
                     QStringLiteral("Application cfg object is of unknown Cfg type."),
                     QStringLiteral("CfgCenter"), QStringLiteral("GetType"));
}

void TestCfgCenterCreate::createCfgSharesTheXmlDocument()
{
    QVERIFY(WriteAppDocument("<App><Name>Demo</Name><Sub><Value>1</Value></Sub></App>"));
    auto centre = Explicit(QStringLiteral("App"), QStringLiteral("Xml:Cfg.xml"));
    const std::unique_ptr<ICfg> sub(CfgCenter::CreateCfg(QStringLiteral("App\\Sub"), ICfg::VIEW_Machine));
    QVERIFY(dynamic_cast<CfgXml*>(sub.get()) != nullptr);
    QCOMPARE(sub->GetKey(), QStringLiteral("App\\Sub"));
    QCOMPARE(sub->GetString(QStringLiteral("Value"), QString()), QStringLiteral("1"));
    sub->SetString(QStringLiteral("Value"), QStringLiteral("2"));
    const std::unique_ptr<ICfg> seen(
        CfgCenter::GetAppCfg(ICfg::VIEW_Machine).CreateSubCfg(QStringLiteral("Sub")));
    QCOMPARE(seen->GetString(QStringLiteral("Value"), QString()), QStringLiteral("2"));
}

void TestCfgCenterCreate::createCfgInRegistry()
{
    auto centre = Explicit(QStringLiteral("App"), QStringLiteral("Registry"));
    const std::unique_ptr<ICfg> sub(CfgCenter::CreateCfg(QStringLiteral("App/Sub"), ICfg::VIEW_Machine));
    QVERIFY(dynamic_cast<CfgRegistry*>(sub.get()) != nullptr);
    QVERIFY(dynamic_cast<CfgRegistry*>(&CfgCenter::GetAdminCfg()) != nullptr);
    QVERIFY(dynamic_cast<CfgRegistry*>(&CfgCenter::GetDocCfg()) != nullptr);
}

void TestCfgCenterCreate::createCfgAsksTheServerClient()
{
    QVERIFY(WriteAppDocument());
    auto centre = Explicit(QStringLiteral("App"), QStringLiteral("Server"));
    TraceLog log;
    const std::unique_ptr<ICfg> cfg(
        CfgCenter::CreateCfg(QStringLiteral("App\\Sub"), ICfg::VIEW_User, QStringLiteral("extra")));
    QVERIFY(cfg != nullptr);
    QCOMPARE(log.Texts(CLIENT),
             QStringList{QStringLiteral("tstcfgclient create: key=App\\Sub view=1 other=extra")});
}

void TestCfgCenterCreate::unknownApplicationBackendIsRefused()
{
    MemoryCfg memory(QStringLiteral("App"), ICfg::VIEW_Machine);
    CfgCenterTestAccess::SetAppCfg(&memory);
    CompareException(ExpectKVException([] { CfgCenter::GetType(); }),
                     QStringLiteral("Application cfg object is of unknown Cfg type."),
                     QStringLiteral("CfgCenter"), QStringLiteral("GetType"));
    CompareException(
        ExpectKVException([] { CfgCenter::CreateCfg(QStringLiteral("App"), ICfg::VIEW_Machine); }),
        QStringLiteral("Unknown type of application configuration m_pAppCfg."), QStringLiteral("CfgCenter"),
        QStringLiteral("CreateCfgBase"));
    CfgCenterTestAccess::SetAppCfg(nullptr);
}

void TestCfgCenterCreate::saveDocumentWithoutCentreThrows()
{
    CompareException(
        ExpectKVException([] { CfgCenter::SaveDocument(); }),
        QStringLiteral("CfgCenter::SaveDocument(), called, before calling CfgCenter::CfgCenter()"),
        QStringLiteral("CfgCenter"), QStringLiteral("SaveDocument"));
}

namespace {
class CountingComponent : public SaveComponentIf
{
public:
    void OnSaveDocument() override { calls.append(QStringLiteral("save")); }
    void OnReLoadUserConfig() override { calls.append(QStringLiteral("reload")); }
    void OnCommitData() override { calls.append(QStringLiteral("commit")); }
    QStringList calls;
};
} // namespace

void TestCfgCenterCreate::serverDocumentIsNotSaved()
{
    QVERIFY(WriteAppDocument());
    auto centre = Explicit(QStringLiteral("App"), QStringLiteral("Server"));
    CountingComponent component;
    CfgCenter::RegisterSaveComponent(&component);
    CfgCenter::SaveDocument();
    centre.reset();
    QCOMPARE(component.calls, QStringList());
}

// ------------------------------------------------------------------ tear-down

void TestCfgCenterCreate::exitReleasesEverything()
{
    QVERIFY(WriteAppDocument());
    auto centre = Explicit(QStringLiteral("*"), QStringLiteral("Xml:Cfg.xml"));
    CfgCenter::SetAutoSaveDocument(false);
    QCOMPARE(CfgCenterLifecycleTestAccess::AutoSaveDocument(), false);
    centre.reset();
    QCOMPARE(ExpectKVException([] { CfgCenter::GetAppCfg(); }).GetMessage(),
             QStringLiteral("CfgCenter::GetAppCfg() called, before calling CfgCenter::CfgCenter()"));
    QCOMPARE(ExpectKVException([] { CfgCenter::GetDocCfg(); }).GetMessage(),
             QStringLiteral("CfgCenter::GetDocCfg(), called, before calling CfgCenter::CfgCenter()"));
    QCOMPARE(ExpectKVException([] { CfgCenter::GetAdminCfg(); }).GetMessage(),
             QStringLiteral("CfgCenter::GetAdminCfg(), called, before calling CfgCenter::CfgCenter()"));
    QCOMPARE(CfgCenter::GetMutex(), nullptr);
    QCOMPARE(CfgCenter::GetDllInstanceList(), nullptr);
    QCOMPARE(CfgCenterLifecycleTestAccess::DllMap(), nullptr);
    QCOMPARE(CfgCenterLifecycleTestAccess::HasEventReceiver(), false);
    QCOMPARE(CfgCenter::IsServer(), false);
    QCOMPARE(CfgCenterLifecycleTestAccess::AutoSaveDocument(), true);
    // Ready for a new centre.
    CommandLine args({"prog", "App", "Xml:Cfg.xml"});
    centre = std::make_unique<CfgCenter>(args.argc(), args.argv(), ICfg::VIEW_Machine, false, false);
    QCOMPARE(CfgCenter::GetAppName(), QStringLiteral("Demo"));
}

void TestCfgCenterCreate::exitSavesTheDocumentWhenAutoSaveIsOn_data()
{
    QTest::addColumn<bool>("autoSave");
    QTest::newRow("auto_save") << true;
    QTest::newRow("no_auto_save") << false;
}

void TestCfgCenterCreate::exitSavesTheDocumentWhenAutoSaveIsOn()
{
    QFETCH(bool, autoSave);
    QVERIFY(WriteAppDocument());
    auto centre = Explicit(QStringLiteral("App"), QStringLiteral("Xml:Cfg.xml"));
    CountingComponent component;
    CfgCenter::RegisterSaveComponent(&component);
    CfgCenter::SetAutoSaveDocument(autoSave);
    CfgCenter::GetAppCfg().SetString(QStringLiteral("Changed"), QStringLiteral("at exit"));
    centre.reset();
    QCOMPARE(ReadTextFile(m_fixture.Path(QStringLiteral("Cfg.xml"))).contains("at exit"), autoSave);
    QCOMPARE(component.calls, autoSave ? QStringList{QStringLiteral("save")} : QStringList());
}

void TestCfgCenterCreate::exitDisconnectsThenUnloadsTheClient()
{
    QVERIFY(WriteAppDocument());
    auto centre = Explicit(QStringLiteral("App"), QStringLiteral("Server"));
    TraceLog log;
    centre.reset();
    QCOMPARE(log.LinesOf({CLIENT, QStringLiteral("configuration/dlldescriptor")}),
             QStringList({CLIENT + QStringLiteral(" tstcfgclient disconnect: app=App"),
                          CLIENT + QStringLiteral(" tstcfgclient destroyed"),
                          QStringLiteral("configuration/dlldescriptor Dll tstcfgclient.dll, Instance "
                                         "CfgServer127.0.0.1 (AdditionalParams: none) destroyed !"),
                          QStringLiteral("configuration/dlldescriptor Dll tstcfgclient.dll unloaded")}));
    QCOMPARE(CfgCenterLifecycleTestAccess::IsServerClientLoaded(), false);
}

void TestCfgCenterCreate::failedConstructionIsCleanedUpByExit()
{
    QVERIFY(WriteAppDocument());
    UserChannel user(false);
    CommandLine args({"prog", "Missing", "Xml:Cfg.xml"});
    const KVException exception = ExpectKVException(
        [&] { CfgCenter centre(args.argc(), args.argv(), ICfg::VIEW_Machine, false, false); });
    QCOMPARE(exception.GetMessage(),
             QStringLiteral("The application key \"Missing\" has not been found in the "
                            "configuration document.\nPress \"Continue\" if the system "
                            "should create it."));
    QCOMPARE(CfgCenter::GetAppCfg().GetKey(), QStringLiteral("Missing"));
    CfgCenter::UnloadAdditionalDlls();
    CfgCenter::Exit();
    QCOMPARE(CfgCenter::GetMutex(), nullptr);
    CommandLine again({"prog", "App", "Xml:Cfg.xml"});
    CfgCenter centre(again.argc(), again.argv(), ICfg::VIEW_Machine, false, false);
    QCOMPARE(CfgCenter::GetAppName(), QStringLiteral("Demo"));
}

// ------------------------------------------------ the start-up argument document

void TestCfgCenterCreate::cfgargFailuresAreThrown_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("operation");
    QTest::newRow("missing_file") << QByteArray() << QStringLiteral("File cfgarg.xml not found.")
                                  << QStringLiteral("RetrieveOfFile");
    QTest::newRow("malformed") << QByteArray("<args><cfgarg key=\"App\"")
                               << QStringLiteral(
                                      "Not able to set document cfgarg. Maybe it is not well formed.")
                               << QStringLiteral("RetrieveOfFile");
    QTest::newRow("empty_root") << QByteArray("<args/>")
                                << QStringLiteral("No node found in the document cfgarg.")
                                << QStringLiteral("RetrieveOfFile");
    QTest::newRow("comment_first")
        << QByteArray("<args><!-- start-up --><cfgarg key=\"App\" type=\"Registry\"/></args>")
        << QStringLiteral("First node in the document cfgarg in no element.")
        << QStringLiteral("RetrieveOfFile");
    QTest::newRow("text_first") << QByteArray("<args>text<cfgarg key=\"App\" type=\"Registry\"/></args>")
                                << QStringLiteral("First node in the document cfgarg in no element.")
                                << QStringLiteral("RetrieveOfFile");
    QTest::newRow("other_element_first")
        << QByteArray("<args><other/><cfgarg key=\"App\" type=\"Registry\"/></args>")
        << QStringLiteral("The first element in the document cfgarg in not cfgarg.")
        << QStringLiteral("RetrieveOfFile");
    QTest::newRow("no_type") << QByteArray("<args><cfgarg key=\"App\"/></args>")
                             << QStringLiteral("In the element cfgarg no attribute type specified.")
                             << QStringLiteral("CfgCenter");
    QTest::newRow("empty_type") << QByteArray("<args><cfgarg key=\"App\" type=\"\"/></args>")
                                << QStringLiteral("In the element cfgarg no attribute type specified.")
                                << QStringLiteral("CfgCenter");
    // Hostile files: too deep for the recursive tree, too many elements for memory.
    QTest::newRow("nested_200000_deep")
        << QByteArray("<a>").repeated(200000) + QByteArray("</a>").repeated(200000)
        << QStringLiteral("Not able to set document cfgarg. Maybe it is not well formed.")
        << QStringLiteral("RetrieveOfFile");
    QTest::newRow("five_million_empty_elements")
        << QByteArray("<args>") + QByteArray("<a/>").repeated(5000000) + QByteArray("</args>")
        << QStringLiteral("Not able to set document cfgarg. Maybe it is not well formed.")
        << QStringLiteral("RetrieveOfFile");
}

void TestCfgCenterCreate::cfgargFailuresAreThrown()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, message);
    QFETCH(QString, operation);
    if (!content.isNull())
        QVERIFY(WriteTextFile(m_fixture.Path(QStringLiteral("cfgarg.xml")), content));
    CompareException(ExpectKVException([] { CfgCenter centre(ICfg::VIEW_Machine, false); }), message,
                     QStringLiteral("CfgCenter"), operation);
    QCOMPARE(CfgCenter::GetMutex(), nullptr);
}

void TestCfgCenterCreate::cfgargSuppliesKeyAndDocument()
{
    QVERIFY(WriteAppDocument("<App><Name>Demo</Name><AdditionalDlls><A><FileName>tstplugin.dll</FileName></A>"
                             "</AdditionalDlls></App>"));
    QVERIFY(WriteTextFile(
        m_fixture.Path(QStringLiteral("cfgarg.xml")),
        "<anything><cfgarg key=\"App\" type=\"Xml:Cfg.xml\" extra=\"ignored\"/><more/></anything>"));
    CfgCenter centre(ICfg::VIEW_Machine, false);
    QCOMPARE(CfgCenter::GetAppCfg().GetKey(), QStringLiteral("App"));
    QCOMPARE(CfgCenter::GetType(), QStringLiteral("Xml"));
    // Start-ups through the argument document load the additional plug-ins.
    QCOMPARE(CfgCenter::GetDllInstanceList()->size(), size_t(1));
}

void TestCfgCenterCreate::keyConstructorReadsOnlyTheTypeOfCfgarg_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("target");
    QTest::newRow("no_file_gives_the_default") << QByteArray() << QStringLiteral("Default.xml");
    QTest::newRow("malformed_file_gives_the_default") << QByteArray("<args") << QStringLiteral("Default.xml");
    QTest::newRow("type_of_the_file")
        << QByteArray("<args><cfgarg key=\"Other\" type=\"Xml:Cfg.xml\"/></args>")
        << QStringLiteral("Cfg.xml");
}

void TestCfgCenterCreate::keyConstructorReadsOnlyTheTypeOfCfgarg()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, target);
    QVERIFY(WriteAppDocument());
    QVERIFY(m_fixture.WriteDocument(QStringLiteral("Default.xml"), APP_SECTION));
    CfgCenter::s_pDefaultCfgDoc = "Xml:Default.xml";
    if (!content.isNull())
        QVERIFY(WriteTextFile(m_fixture.Path(QStringLiteral("cfgarg.xml")), content));
    CfgCenter centre(QStringLiteral("App"), ICfg::VIEW_Machine, false);
    QCOMPARE(CfgCenter::GetAppCfg().GetKey(), QStringLiteral("App"));
    QCOMPARE(CfgCenter::GetAppCfg().GetTarget(), target);
}

// ----------------------------------------------------------- post-creation step

void TestCfgCenterCreate::postCreateRunsInOrder()
{
    QVERIFY(WriteAppDocument("<App><Name>Demo</Name><AdditionalDlls><A><FileName>tstplugin.dll</FileName></A>"
                             "</AdditionalDlls></App>"));
    UserChannel user;
    TraceLog log;
    auto centre = Explicit(QStringLiteral("App:::suffix.part"), QStringLiteral("Server"), ICfg::VIEW_Machine,
                           true, false);
    QCOMPARE(
        log.LinesOf({CLIENT, QStringLiteral("CfgCenter"), QStringLiteral("configuration/dlldescriptor")}),
        QStringList({
            QStringLiteral("configuration/dlldescriptor Dll tstcfgclient.dll loaded"),
            CLIENT + QStringLiteral(" tstcfgclient created: server=CfgServer127.0.0.1"),
            QStringLiteral("configuration/dlldescriptor Dll tstcfgclient.dll, Instance CfgServer127.0.0.1 "
                           "(AdditionalParams: none) successfully created !"),
            CLIENT + QStringLiteral(" tstcfgclient connect: app=App asServer=false"),
            CLIENT + QStringLiteral(" tstcfgclient create: key=App view=2 other="),
            CLIENT + QStringLiteral(" tstcfgclient create: key=Administration view=2 other="),
            CLIENT + QStringLiteral(" tstcfgclient create: key= view=2 other="),
            QStringLiteral("CfgCenter Information: CfgCenter::Create: Application configuration ( key=App, "
                           "type=Server ) created successfully."),
            QStringLiteral("configuration/dlldescriptor Dll tstplugin.dll loaded"),
            QStringLiteral("configuration/dlldescriptor Dll tstplugin.dll, Instance App\\AdditionalDlls\\A "
                           "(AdditionalParams: none) successfully created !"),
        }));
    QCOMPARE(user.questions, QStringList());
}

void TestCfgCenterCreate::missingApplicationKeyIsQuestioned_data()
{
    QTest::addColumn<bool>("withDialog");
    QTest::addColumn<bool>("continueAnswer");
    QTest::addColumn<bool>("noKeyQuestion");
    QTest::addColumn<int>("questions");
    QTest::addColumn<bool>("created");
    QTest::newRow("user_continues") << true << true << false << 1 << true;
    QTest::newRow("user_declines") << true << false << false << 1 << false;
    QTest::newRow("no_dialog") << false << false << false << 0 << false;
    QTest::newRow("no_question_asked") << true << false << true << 0 << true;
}

void TestCfgCenterCreate::missingApplicationKeyIsQuestioned()
{
    QFETCH(bool, withDialog);
    QFETCH(bool, continueAnswer);
    QFETCH(bool, noKeyQuestion);
    QFETCH(int, questions);
    QFETCH(bool, created);
    QVERIFY(WriteAppDocument("<Other><Name>X</Name></Other><Empty/>"));
    UserChannel user(withDialog, continueAnswer);
    const QString text =
        QStringLiteral("The application key \"Empty\" has not been found in the configuration "
                       "document.\nPress \"Continue\" if the system should create it.");
    try {
        auto centre = Explicit(QStringLiteral("Empty"), QStringLiteral("Xml:Cfg.xml"), ICfg::VIEW_Machine,
                               false, noKeyQuestion);
        QVERIFY(created);
        QCOMPARE(CfgCenter::GetDocCfg().GetKey(), QString());
    } catch (const KVException& exception) {
        QVERIFY(!created);
        CompareException(exception, text, QStringLiteral("CfgXml"), QStringLiteral("OpenDocument"));
        QCOMPARE(CfgCenter::GetAppCfg().GetKey(), QStringLiteral("Empty"));
    }
    QCOMPARE(user.questions, questions ? QStringList{text} : QStringList());
}

void TestCfgCenterCreate::existingApplicationKeyIsNotQuestioned_data()
{
    QTest::addColumn<QByteArray>("machine");
    QTest::addColumn<QString>("key");
    QTest::newRow("key_with_a_value") << QByteArray("<App><Name>Demo</Name></App>") << QStringLiteral("App");
    QTest::newRow("key_with_a_child") << QByteArray("<App><Child/></App>") << QStringLiteral("App");
    QTest::newRow("whole_document") << QByteArray("<App/>") << QStringLiteral("*");
}

void TestCfgCenterCreate::existingApplicationKeyIsNotQuestioned()
{
    QFETCH(QByteArray, machine);
    QFETCH(QString, key);
    QVERIFY(WriteAppDocument(machine));
    UserChannel user(true, false);
    auto centre = Explicit(key, QStringLiteral("Xml:Cfg.xml"), ICfg::VIEW_Machine, false, false);
    QCOMPARE(user.questions, QStringList());
}

void TestCfgCenterCreate::successReportReachesTheUserWithMask255()
{
    QVERIFY(WriteAppDocument());
    {
        UserChannel user;
        TraceLog log;
        auto centre = Explicit(QStringLiteral("App"), QStringLiteral("Xml:Cfg.xml"));
        QCOMPARE(user.messages.size(), 1);
        QCOMPARE(user.messages.first().first, ErrorHandler::MSG_Information);
        QCOMPARE(
            user.messages.first().second,
            QStringLiteral("Application configuration ( key=App, type=Xml:Cfg.xml ) created successfully."));
        QCOMPARE(
            log.Texts(QStringLiteral("CfgCenter")),
            QStringList{QStringLiteral("Information: CfgCenter::Create: Application configuration ( key=App, "
                                       "type=Xml:Cfg.xml ) created successfully.")});
    }
    m_fixture.Cleanup();
    QVERIFY(m_fixture.Init());
    QVERIFY(WriteAppDocument());
    // Any category switched on lets the report through; none at all stops it.
    UserChannel user;
    ErrorHandler::Instance().ResetMessageMask(0);
    auto centre = Explicit(QStringLiteral("App"), QStringLiteral("Xml:Cfg.xml"));
    QCOMPARE(user.messages.size(), 0);
}

void TestCfgCenterCreate::requestedViewIsSelectedLast_data()
{
    QTest::addColumn<int>("view");
    QTest::addColumn<QString>("name");
    QTest::newRow("machine") << int(ICfg::VIEW_Machine) << QStringLiteral("Machine name");
    QTest::newRow("user") << int(ICfg::VIEW_User) << QStringLiteral("User name");
}

void TestCfgCenterCreate::requestedViewIsSelectedLast()
{
    QFETCH(int, view);
    QFETCH(QString, name);
    QVERIFY(m_fixture.WriteDocument(QStringLiteral("Cfg.xml"), "<App><Name>Machine name</Name></App>",
                                    "<App><Name>User name</Name></App>"));
    auto centre =
        Explicit(QStringLiteral("App"), QStringLiteral("Xml:Cfg.xml"), static_cast<ICfg::View>(view));
    QCOMPARE(CfgCenter::GetAppCfg().GetString(QStringLiteral("Name"), QString()), name);
}

// -------------------------------------------------------------- logger switches

void TestCfgCenterCreate::withoutExceptionHandlingTheMaskIsUntouched()
{
    QVERIFY(WriteAppDocument());
    const unsigned mask = ErrorHandler::Q_EXPERT_TRACE | ErrorHandler::Q_PREMETHOD;
    ErrorHandler::Instance().ResetMessageMask(mask);
    auto centre = Explicit(QStringLiteral("App"), QStringLiteral("Xml:Cfg.xml"));
    QCOMPARE(ErrorHandler::Instance().GetMessageMask(), mask);
}

void TestCfgCenterCreate::emptyExceptionHandlingSwitchesOnlyTracing()
{
    QVERIFY(WriteAppDocument("<App><Name>Demo</Name><ExceptionHandling/></App>"));
    ErrorHandler::Instance().ResetMessageMask(ErrorHandler::ALL_CATEGORIES);
    auto centre = Explicit(QStringLiteral("App"), QStringLiteral("Xml:Cfg.xml"));
    QCOMPARE(ErrorHandler::Instance().GetMessageMask(), unsigned(ErrorHandler::Q_TRACE));
}

void TestCfgCenterCreate::exceptionHandlingValuesSetTheirBits_data()
{
    QTest::addColumn<QByteArray>("values");
    QTest::addColumn<unsigned>("mask");
    QTest::newRow("trace_off") << QByteArray("<Q_TRACE>false</Q_TRACE>") << 0u;
    QTest::newRow("expert_trace") << QByteArray("<Q_EXPERT_TRACE>true</Q_EXPERT_TRACE>") << (32u | 64u);
    QTest::newRow("ensure") << QByteArray("<Q_ENSURE>true</Q_ENSURE>") << (32u | 4u);
    QTest::newRow("assert") << QByteArray("<Q_KM_ASSERT>true</Q_KM_ASSERT>") << (32u | 2u);
    QTest::newRow("premethod") << QByteArray("<Q_PREMETHOD>true</Q_PREMETHOD>") << (32u | 8u);
    QTest::newRow("postmethod") << QByteArray("<Q_POSTMETHOD>true</Q_POSTMETHOD>") << (32u | 16u);
    QTest::newRow("require") << QByteArray("<Q_KM_REQUIRE>true</Q_KM_REQUIRE>") << (32u | 1u);
    QTest::newRow("all") << QByteArray("<Q_TRACE>true</Q_TRACE><Q_EXPERT_TRACE>true</Q_EXPERT_TRACE>"
                                       "<Q_ENSURE>true</Q_ENSURE><Q_KM_ASSERT>true</Q_KM_ASSERT>"
                                       "<Q_PREMETHOD>true</Q_PREMETHOD><Q_POSTMETHOD>true</Q_POSTMETHOD>"
                                       "<Q_KM_REQUIRE>true</Q_KM_REQUIRE>")
                         << 127u;
}

void TestCfgCenterCreate::exceptionHandlingValuesSetTheirBits()
{
    QFETCH(QByteArray, values);
    QFETCH(unsigned, mask);
    QVERIFY(WriteAppDocument("<App><Name>Demo</Name><ExceptionHandling>" + values +
                             "</ExceptionHandling></App>"));
    ErrorHandler::Instance().ResetMessageMask(ErrorHandler::ALL_CATEGORIES);
    auto centre = Explicit(QStringLiteral("App"), QStringLiteral("Xml:Cfg.xml"));
    QCOMPARE(ErrorHandler::Instance().GetMessageMask(), mask);
}

// ----------------------------------------------------------------------- copies

void TestCfgCenterCreate::copyTakesValuesThenChildren()
{
    QVERIFY(WriteAppDocument("<App><Name>Demo</Name><Source><A>1</A><B>two</B><Child><C>3</C><Deeper><D>4</D>"
                             "</Deeper></Child><Second/></Source><Target><Kept>yes</Kept></Target></App>"));
    auto centre = Explicit(QStringLiteral("App"), QStringLiteral("Xml:Cfg.xml"));
    const std::unique_ptr<ICfg> source(
        CfgCenter::CreateCfg(QStringLiteral("App\\Source"), ICfg::VIEW_Machine));
    const std::unique_ptr<ICfg> target(
        CfgCenter::CreateCfg(QStringLiteral("App\\Target"), ICfg::VIEW_Machine));
    CfgCenter::Copy(source.get(), target.get());
    QCOMPARE(target->GetString(QStringLiteral("A"), QString()), QStringLiteral("1"));
    QCOMPARE(target->GetString(QStringLiteral("B"), QString()), QStringLiteral("two"));
    QCOMPARE(target->GetString(QStringLiteral("Kept"), QString()), QStringLiteral("yes"));
    QCOMPARE(target->GetString(QStringLiteral("Child\\C"), QString()), QStringLiteral("3"));
    QCOMPARE(target->GetString(QStringLiteral("Child\\Deeper\\D"), QString()), QStringLiteral("4"));
    QVERIFY(target->HasSubCfg(QStringLiteral("Second")));
    QStringList values;
    for (int index = 0; !target->GetValueKeyAt(index).isEmpty(); ++index)
        values.append(target->GetValueKeyAt(index));
    QCOMPARE(values, QStringList({QStringLiteral("Kept"), QStringLiteral("A"), QStringLiteral("B")}));
}

void TestCfgCenterCreate::copyTakesEmptyTypedValuesAsIntegers()
{
    QVERIFY(WriteAppDocument());
    auto centre = Explicit(QStringLiteral("App"), QStringLiteral("Xml:Cfg.xml"));
    std::unique_ptr<ICfg> registry(CfgCenter::CreateAppCfg(QStringLiteral("Copy/Source"),
                                                           QStringLiteral("Registry"), ICfg::VIEW_Machine));
    registry->SetInteger(QStringLiteral("Count"), 7);
    registry->SetString(QStringLiteral("Text"), QStringLiteral("seven"));
    const std::unique_ptr<ICfg> target(CfgCenter::CreateCfg(QStringLiteral("App"), ICfg::VIEW_Machine));
    CfgCenter::Copy(registry.get(), target.get());
    QCOMPARE(target->GetInteger(QStringLiteral("Count"), 0), 7L);
    QCOMPARE(target->GetAttributeType(QStringLiteral("Count")), ICfg::TYPE_Integer);
    QCOMPARE(target->GetString(QStringLiteral("Text"), QString()), QStringLiteral("seven"));
    QCOMPARE(target->GetAttributeType(QStringLiteral("Text")), ICfg::TYPE_String);
}

void TestCfgCenterCreate::copyFromReadsAnXmlFile()
{
    QVERIFY(WriteAppDocument());
    QVERIFY(m_fixture.WriteDocument(QStringLiteral("import.xml"),
                                    "<Src><Colour>blue</Colour><Sub><X>1</X></Sub></Src>"));
    auto centre = Explicit(QStringLiteral("App"), QStringLiteral("Xml:Cfg.xml"));
    CfgCenter::CopyFrom("import.xml", "Src", "App\\Imported", ICfg::VIEW_Machine);
    const QByteArray saved = ReadTextFile(m_fixture.Path(QStringLiteral("Cfg.xml")));
    QVERIFY(saved.contains("<Imported"));
    QVERIFY(saved.contains(">blue</Colour>"));
    const std::unique_ptr<ICfg> imported(
        CfgCenter::CreateCfg(QStringLiteral("App\\Imported"), ICfg::VIEW_Machine));
    QCOMPARE(imported->GetString(QStringLiteral("Colour"), QString()), QStringLiteral("blue"));
    QCOMPARE(imported->GetString(QStringLiteral("Sub\\X"), QString()), QStringLiteral("1"));
}

void TestCfgCenterCreate::copyFromTracesAnUnreadableFile_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("missing_file") << QByteArray();
    QTest::newRow("malformed_file") << QByteArray("<Cfg version=\"2.2\"><Machine>");
}

void TestCfgCenterCreate::copyFromTracesAnUnreadableFile()
{
    QFETCH(QByteArray, content);
    QVERIFY(WriteAppDocument());
    QString error;
    int line = 0;
    int column = 0;
    if (content.isNull()) {
        QFile missing(m_fixture.Path(QStringLiteral("import.xml")));
        missing.open(QIODevice::ReadOnly);
        error = missing.errorString();
    } else {
        QVERIFY(WriteTextFile(m_fixture.Path(QStringLiteral("import.xml")), content));
        QVERIFY(!QDomDocument().setContent(content, &error, &line, &column));
    }
    auto centre = Explicit(QStringLiteral("App"), QStringLiteral("Xml:Cfg.xml"));
    TraceLog log;
    CfgCenter::CopyFrom("import.xml", "Src", "App\\Imported", ICfg::VIEW_Machine);
    QCOMPARE(log.Texts(SOURCE),
             QStringList{QStringLiteral("Parse error in file import.xml: %1 at line %2 in column "
                                        "%3. ")
                             .arg(error)
                             .arg(line)
                             .arg(column)});
    QVERIFY(!CfgCenter::GetAppCfg().HasSubCfg(QStringLiteral("Imported")));
}

void TestCfgCenterCreate::copyToWritesAnXmlFile()
{
    QVERIFY(
        WriteAppDocument("<App><Name>Demo</Name><Out><Colour>grün</Colour><Sub><X>1</X></Sub></Out></App>"));
    auto centre = Explicit(QStringLiteral("App"), QStringLiteral("Xml:Cfg.xml"));
    CfgCenter::CopyTo("export.xml", "App\\Out", "Exported", ICfg::VIEW_Machine);
    const QByteArray written = ReadTextFile(m_fixture.Path(QStringLiteral("export.xml")));
    QVERIFY2(written.startsWith("<?xml version='1.0' encoding='utf-8'?>"), written.constData());
    QVERIFY2(written.contains(QStringLiteral(">grün</Colour>").toUtf8()), written.constData());
    CfgXml check(m_fixture.Path(QStringLiteral("export.xml")), QStringLiteral("Exported"),
                 ICfg::VIEW_Machine);
    check.SuppressSideFiles(true);
    check.OpenDocument(false);
    QCOMPARE(check.GetString(QStringLiteral("Colour"), QString()), QStringLiteral("grün"));
    QCOMPARE(check.GetString(QStringLiteral("Sub\\X"), QString()), QStringLiteral("1"));
}

void TestCfgCenterCreate::reLoadUserConfigAsksComponentsInOrder()
{
    QStringList calls;
    struct Named : CountingComponent
    {
        Named(QString name, QStringList* log) : m_name(std::move(name)), m_log(log) {}
        void OnReLoadUserConfig() override { m_log->append(m_name); }
        QString m_name;
        QStringList* m_log;
    };
    Named first(QStringLiteral("first"), &calls);
    Named second(QStringLiteral("second"), &calls);
    CfgCenter::RegisterSaveComponent(&first);
    CfgCenter::RegisterSaveComponent(&second);
    CfgCenter::RegisterSaveComponent(&first);
    CfgCenter::ReLoadUserConfig();
    QCOMPARE(calls,
             QStringList({QStringLiteral("first"), QStringLiteral("second"), QStringLiteral("first")}));
}

QTEST_GUILESS_MAIN(TestCfgCenterCreate)
#include "tst_cfgcentercreate.moc"
