#include "cfgcentertestsupport.h"
#include "configuration/cfgcenter.h"
#include "configuration/dlldescriptor.h"
#include "configuration/idllinstance.h"
#include "kvbase/kvexception.h"

#include <QStandardPaths>
#include <QtTest>

#include <memory>

namespace {
const QString CENTRE = QStringLiteral("configuration/cfgcenter");
const QString DESCRIPTOR = QStringLiteral("configuration/dlldescriptor");
const QString PLUGIN = QStringLiteral("plugins/tstplugin");
const QString PLUGIN_NOEX = QStringLiteral("plugins/tstpluginnoex");

const QByteArray ADDITIONAL_DLLS =
    "<App><Name>Demo</Name><AdditionalDlls>"
    "<A><FileName>tstplugin.dll</FileName></A>"
    "<B><FileName>tstpluginnoex.dll</FileName><ConfigKey>Custom\\Key</ConfigKey></B>"
    "<S><FileName>tstplugin.dll</FileName><Suspend>true</Suspend></S>"
    "<E><FileName>tstplugin.dll</FileName><ExplicitOnly>true</ExplicitOnly></E>"
    "<N><Other>1</Other></N>"
    "<V1>tstplugin.dll</V1>"
    "</AdditionalDlls></App>";

/// One row per instance: library, configuration key, instance key.
QStringList Instances()
{
    QStringList rows;
    if (const CfgCenter::DllInstanceList* list = CfgCenter::GetDllInstanceList()) {
        for (const DllInstanceDescriptor* descriptor : *list)
            rows.append(descriptor->GetDllName() + QLatin1Char('|') + descriptor->GetConfigKey() +
                        QLatin1Char('|') + descriptor->GetInstanceKey());
    }
    return rows;
}

QStringList LoadedLibraries()
{
    QStringList names;
    if (const CfgCenter::DllMap* map = CfgCenterLifecycleTestAccess::DllMap()) {
        for (const auto& entry : *map)
            names.append(entry.first);
    }
    return names;
}

DllInstanceDescriptor* DescriptorOf(IDllInstance* instance)
{
    for (DllInstanceDescriptor* descriptor : *CfgCenter::GetDllInstanceList()) {
        if (descriptor->GetInstance() == instance)
            return descriptor;
    }
    return nullptr;
}

std::unique_ptr<CfgCenter> Explicit(const QString& key, bool loadAdditional,
                                    const QString& cfgDoc = QStringLiteral("Xml:Cfg.xml"))
{
    return std::make_unique<CfgCenter>(key, cfgDoc, ICfg::VIEW_Machine, false, loadAdditional, true);
}
} // namespace

class TestCfgCenterDlls : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void init()
    {
        QVERIFY2(m_fixture.Init(), "temporary folder");
        QVERIFY(m_fixture.WriteDocument(QStringLiteral("Cfg.xml"), ADDITIONAL_DLLS));
    }
    void cleanup() { m_fixture.Cleanup(); }

    void preLoadListCreatesInstancesBeforeTheConfiguration();
    void emptyPreLoadListCreatesNone_data();
    void emptyPreLoadListCreatesNone();
    void preLoadFailureFailsTheConstruction();
    void additionalDllsThenPostLoadList();
    void applicationLoadsAdditionalDllsLater();
    void eventLoopRunsBetweenChildren();
    void explicitOnlyEntriesAreCreatedOnRequest();
    void executeDllsRunsEveryInstanceInOrder();
    void instanceCreatedAfterExecuteDllsRunsAtOnce();
    void additionalParamsReachKVCreateEx();
    void unloadDllIsRefusedWhileInstancesLive();
    void lastInstanceTakesItsLibraryAlong();
    void instancesAreFoundAndDestroyedByFileName();
    void instancesAreDestroyedByPointer();
    void foreignInstancesAreLeftToTheirCreator();
    void separateLoadGetsItsOwnLibrary();
    void failedCreationKeepsNothing_data();
    void failedCreationKeepsNothing();
    void destructorDestroysInstancesBeforeExit();
    void withoutCentreNothingIsCreated();
    void descriptorWithoutInstanceIsNotExecuted();

private:
    CentreFixture m_fixture;
};

void TestCfgCenterDlls::preLoadListCreatesInstancesBeforeTheConfiguration()
{
    TraceLog log;
    auto centre =
        Explicit(QStringLiteral("App:tstplugin.dll,tstpluginnoex.dll"), false, QStringLiteral("Server"));
    QCOMPARE(CfgCenterLifecycleTestAccess::PreLoadDlls(), QStringLiteral("tstplugin.dll,tstpluginnoex.dll"));
    QCOMPARE(Instances(), QStringList({QStringLiteral("tstplugin.dll|App|App\\tstplugin.dll"),
                                       QStringLiteral("tstpluginnoex.dll|App|App\\tstpluginnoex.dll")}));
    for (const DllInstanceDescriptor* descriptor : *CfgCenter::GetDllInstanceList())
        QVERIFY(descriptor->IsCreatedByCenter());
    QCOMPARE(log.LinesOf({PLUGIN, PLUGIN_NOEX, QStringLiteral("plugins/tstcfgclient")}).mid(0, 3),
             QStringList(
                 {PLUGIN + QStringLiteral(" tstplugin created by KVCreateEx, params=: key=App"),
                  PLUGIN_NOEX + QStringLiteral(" tstpluginnoex created by KVCreate: key=App"),
                  QStringLiteral("plugins/tstcfgclient tstcfgclient created: server=CfgServer127.0.0.1")}));
}

void TestCfgCenterDlls::emptyPreLoadListCreatesNone_data()
{
    QTest::addColumn<QString>("key");
    QTest::newRow("no_lists") << QStringLiteral("App");
    QTest::newRow("empty_pre_load_list") << QStringLiteral("App:");
    QTest::newRow("post_load_list_only") << QStringLiteral("App::tstplugin.dll");
}

void TestCfgCenterDlls::emptyPreLoadListCreatesNone()
{
    QFETCH(QString, key);
    auto centre = Explicit(key, false);
    QCOMPARE(Instances(), QStringList());
    QCOMPARE(LoadedLibraries(), QStringList());
}

void TestCfgCenterDlls::preLoadFailureFailsTheConstruction()
{
    try {
        Explicit(QStringLiteral("App:tstplugin.dll,nosuchplugin.dll"), false);
        QFAIL("no exception");
    } catch (const KVException& exception) {
        QCOMPARE(exception.GetMessage(),
                 QStringLiteral("Received invalid Dll handle while loading nosuchplugin.dll. Error: 2"));
        QCOMPARE(exception.GetClassName(), QStringLiteral("CfgDllDescriptor"));
    }
    QCOMPARE(Instances(), QStringList{QStringLiteral("tstplugin.dll|App|App\\tstplugin.dll")});
    QCOMPARE(LoadedLibraries(), QStringList{QStringLiteral("tstplugin.dll")});
}

void TestCfgCenterDlls::additionalDllsThenPostLoadList()
{
    TraceLog log;
    auto centre = Explicit(QStringLiteral("App::tstpluginnoex.dll"), true);
    QCOMPARE(CfgCenterLifecycleTestAccess::PostLoadDlls(), QStringLiteral("tstpluginnoex.dll"));
    QCOMPARE(
        Instances(),
        QStringList({QStringLiteral("tstplugin.dll|App\\AdditionalDlls\\A\\Config|App\\AdditionalDlls\\A"),
                     QStringLiteral("tstpluginnoex.dll|Custom\\Key|App\\AdditionalDlls\\B"),
                     QStringLiteral("tstplugin.dll|V1|App\\AdditionalDlls\\V1"),
                     QStringLiteral("tstpluginnoex.dll|App|App\\tstpluginnoex.dll")}));
    // Each library is loaded once and shared by its instances.
    QCOMPARE(LoadedLibraries(),
             QStringList({QStringLiteral("tstplugin.dll"), QStringLiteral("tstpluginnoex.dll")}));
    QCOMPARE(log.Texts(DESCRIPTOR).filter(QStringLiteral(" loaded")),
             QStringList({QStringLiteral("Dll tstplugin.dll loaded"),
                          QStringLiteral("Dll tstpluginnoex.dll loaded")}));
}

void TestCfgCenterDlls::applicationLoadsAdditionalDllsLater()
{
    auto centre = Explicit(QStringLiteral("App::tstpluginnoex.dll"), false);
    QCOMPARE(Instances(), QStringList());
    CfgCenter::LoadAdditionalDlls(&CfgCenter::GetAppCfg());
    QCOMPARE(Instances().size(), 4);
    QCOMPARE(Instances().last(), QStringLiteral("tstpluginnoex.dll|App|App\\tstpluginnoex.dll"));
    for (const DllInstanceDescriptor* descriptor : *CfgCenter::GetDllInstanceList())
        QVERIFY(descriptor->IsCreatedByCenter());
}

void TestCfgCenterDlls::eventLoopRunsBetweenChildren()
{
    auto centre = Explicit(QStringLiteral("App"), false);
    QList<int> instancesWhenEventRan;
    QMetaObject::invokeMethod(
        this, [&] { instancesWhenEventRan.append(Instances().size()); }, Qt::QueuedConnection);
    CfgCenter::LoadAdditionalDlls(&CfgCenter::GetAppCfg());
    QCOMPARE(instancesWhenEventRan, QList<int>{1});
}

void TestCfgCenterDlls::explicitOnlyEntriesAreCreatedOnRequest()
{
    auto centre = Explicit(QStringLiteral("App"), true);
    QCOMPARE(CfgCenter::GetDllInstance(QStringLiteral("E"), QString()), nullptr);
    IDllInstance* instance = CfgCenter::CreateDllInstance(QStringLiteral("E"), QString(), true);
    QVERIFY(instance != nullptr);
    QCOMPARE(Instances().last(),
             QStringLiteral("tstplugin.dll|App\\AdditionalDlls\\E\\Config|App\\AdditionalDlls\\E"));
    QCOMPARE(CfgCenter::GetDllInstance(QStringLiteral("E"), QString()), instance);
    IDllInstance* second = CfgCenter::CreateDllInstance(QStringLiteral("E"), QStringLiteral("Second"), false);
    QCOMPARE(Instances().last(), QStringLiteral("tstplugin.dll|App\\AdditionalDlls\\E\\Config|Second"));
    QCOMPARE(DescriptorOf(second)->IsCreatedByCenter(), false);
    QCOMPARE(CfgCenter::GetDllInstance(QStringLiteral("E"), QStringLiteral("Second")), second);
    QCOMPARE(CfgCenter::DestroyDllInstance(QStringLiteral("E"), QString()), true);
    QCOMPARE(CfgCenter::GetDllInstance(QStringLiteral("E"), QString()), nullptr);
    QCOMPARE(CfgCenter::DestroyDllInstance(QStringLiteral("E"), QString()), false);
    QCOMPARE(CfgCenter::DestroyDllInstance(QStringLiteral("E"), QStringLiteral("Second")), true);
    // Entries that do not name a library give nothing.
    QCOMPARE(CfgCenter::CreateDllInstance(QStringLiteral("Missing"), QString(), true), nullptr);
    QCOMPARE(CfgCenter::CreateDllInstance(QStringLiteral("N"), QString(), true), nullptr);
}

void TestCfgCenterDlls::executeDllsRunsEveryInstanceInOrder()
{
    auto centre = Explicit(QStringLiteral("App:tstplugin.dll,tstpluginnoex.dll"), false);
    CfgCenter::CreateDllInstanceByFileName(QStringLiteral("tstplugin.dll"), QStringLiteral("Run\\noexec"),
                                           true, false);
    CfgCenter::CreateDllInstanceByFileName(QStringLiteral("tstpluginnoex.dll"), QStringLiteral("Last"), true,
                                           false);
    TraceLog log;
    CfgCenter::ExecuteDlls();
    QCOMPARE(log.Lines(), QStringList({PLUGIN + QStringLiteral(" tstplugin executed: key=App"),
                                       PLUGIN_NOEX + QStringLiteral(" tstpluginnoex executed: key=App"),
                                       PLUGIN + QStringLiteral(" tstplugin executed: key=Run\\noexec"),
                                       CENTRE + QStringLiteral(" Dll not executed: tstplugin.dll"),
                                       PLUGIN_NOEX + QStringLiteral(" tstpluginnoex executed: key=Last")}));
    QCOMPARE(CfgCenterLifecycleTestAccess::DllExecuted(), true);
}

void TestCfgCenterDlls::instanceCreatedAfterExecuteDllsRunsAtOnce()
{
    auto centre = Explicit(QStringLiteral("App"), false);
    TraceLog log;
    CfgCenter::CreateDllInstanceByFileName(QStringLiteral("tstpluginnoex.dll"), QStringLiteral("Early"), true,
                                           false);
    QCOMPARE(log.Texts(PLUGIN_NOEX),
             QStringList{QStringLiteral("tstpluginnoex created by KVCreate: key=Early")});
    CfgCenter::ExecuteDlls();
    log.Clear();
    CfgCenter::CreateDllInstanceByFileName(QStringLiteral("tstpluginnoex.dll"), QStringLiteral("Late"), true,
                                           false);
    QCOMPARE(log.LinesOf({PLUGIN_NOEX, DESCRIPTOR}),
             QStringList({PLUGIN_NOEX + QStringLiteral(" tstpluginnoex created by KVCreate: key=Late"),
                          DESCRIPTOR +
                              QStringLiteral(" Dll tstpluginnoex.dll, Instance Late (AdditionalParams: none) "
                                             "successfully created !"),
                          PLUGIN_NOEX + QStringLiteral(" tstpluginnoex executed: key=Late")}));
}

void TestCfgCenterDlls::additionalParamsReachKVCreateEx()
{
    auto centre = Explicit(QStringLiteral("App"), false);
    TraceLog log;
    IDllInstance* instance =
        CfgCenter::CreateDllInstanceImpl(QStringLiteral("tstplugin.dll"), QStringLiteral("Cfg"),
                                         QStringLiteral("Inst"), QStringLiteral("a=1;b=2"), true, false);
    QVERIFY(instance != nullptr);
    QCOMPARE(DescriptorOf(instance)->GetAdditionalParams(), QStringLiteral("a=1;b=2"));
    QCOMPARE(log.Texts(PLUGIN),
             QStringList{QStringLiteral("tstplugin created by KVCreateEx, params=a=1;b=2: key=Cfg")});
}

void TestCfgCenterDlls::unloadDllIsRefusedWhileInstancesLive()
{
    auto centre = Explicit(QStringLiteral("App:tstplugin.dll"), false);
    CfgDllDescriptor* library = CfgCenterLifecycleTestAccess::DllMap()->at(QStringLiteral("tstplugin.dll"));
    TraceLog log;
    QCOMPARE(CfgCenter::UnloadDll(QStringLiteral("tstplugin.dll")), false);
    QCOMPARE(LoadedLibraries(), QStringList{QStringLiteral("tstplugin.dll")});
    QVERIFY(library->GetHandle() != nullptr);
    QCOMPARE(CfgCenter::UnloadDll(QStringLiteral("nosuchplugin.dll")), false);
    QCOMPARE(log.Lines(), QStringList());
}

void TestCfgCenterDlls::lastInstanceTakesItsLibraryAlong()
{
    auto centre = Explicit(QStringLiteral("App:tstplugin.dll"), false);
    IDllInstance* second = CfgCenter::CreateDllInstanceByFileName(QStringLiteral("tstplugin.dll"),
                                                                  QStringLiteral("Second"), true, false);
    TraceLog log;
    QCOMPARE(CfgCenter::DestroyDllInstanceByPointer(second), true);
    QCOMPARE(LoadedLibraries(), QStringList{QStringLiteral("tstplugin.dll")});
    QCOMPARE(CfgCenter::DestroyDllInstanceByFileName(QStringLiteral("tstplugin.dll"), QString()), true);
    QCOMPARE(LoadedLibraries(), QStringList());
    QCOMPARE(log.Texts(DESCRIPTOR),
             QStringList(
                 {QStringLiteral("Dll tstplugin.dll, Instance Second (AdditionalParams: none) destroyed !"),
                  QStringLiteral("Dll tstplugin.dll, Instance App\\tstplugin.dll (AdditionalParams: none) "
                                 "destroyed !"),
                  QStringLiteral("Dll tstplugin.dll unloaded")}));
}

void TestCfgCenterDlls::instancesAreFoundAndDestroyedByFileName()
{
    auto centre = Explicit(QStringLiteral("App:tstplugin.dll"), false);
    IDllInstance* first = CfgCenter::GetDllInstanceByFileName(QStringLiteral("tstplugin.dll"), QString());
    QVERIFY(first != nullptr);
    IDllInstance* keyed = CfgCenter::CreateDllInstanceByFileName(QStringLiteral("tstplugin.dll"),
                                                                 QStringLiteral("K"), false, false);
    QCOMPARE(Instances().last(), QStringLiteral("tstplugin.dll|K|K"));
    QCOMPARE(CfgCenter::GetDllInstanceByFileName(QStringLiteral("tstplugin.dll"), QString()), first);
    QCOMPARE(CfgCenter::GetDllInstanceByFileName(QStringLiteral("tstplugin.dll"), QStringLiteral("K")),
             keyed);
    QCOMPARE(CfgCenter::GetDllInstanceByFileName(QStringLiteral("tstplugin.dll"), QStringLiteral("Other")),
             nullptr);
    QCOMPARE(CfgCenter::GetDllInstanceByFileName(QStringLiteral("tstpluginnoex.dll"), QString()), nullptr);
    QCOMPARE(
        CfgCenter::DestroyDllInstanceByFileName(QStringLiteral("tstplugin.dll"), QStringLiteral("Other")),
        false);
    QCOMPARE(CfgCenter::DestroyDllInstanceByFileName(QStringLiteral("tstplugin.dll"), QStringLiteral("K")),
             true);
    QCOMPARE(Instances(), QStringList{QStringLiteral("tstplugin.dll|App|App\\tstplugin.dll")});
}

void TestCfgCenterDlls::instancesAreDestroyedByPointer()
{
    auto centre = Explicit(QStringLiteral("App:tstplugin.dll"), false);
    IDllInstance* instance = CfgCenter::GetDllInstanceList()->front()->GetInstance();
    QCOMPARE(CfgCenter::DestroyDllInstanceByPointer(instance), true);
    QCOMPARE(CfgCenter::DestroyDllInstanceByPointer(instance), false);
    QCOMPARE(CfgCenter::DestroyDllInstanceByPointer(nullptr), false);
    QCOMPARE(Instances(), QStringList());
}

void TestCfgCenterDlls::foreignInstancesAreLeftToTheirCreator()
{
    auto centre = Explicit(QStringLiteral("App:tstplugin.dll"), false);
    IDllInstance* foreign = CfgCenter::CreateDllInstanceByFileName(QStringLiteral("tstpluginnoex.dll"),
                                                                   QStringLiteral("Mine"), false, false);
    TraceLog log;
    CfgCenter::DestroyAdditionalDllInstances();
    QCOMPARE(Instances(), QStringList{QStringLiteral("tstpluginnoex.dll|Mine|Mine")});
    QCOMPARE(LoadedLibraries(), QStringList{QStringLiteral("tstpluginnoex.dll")});
    QCOMPARE(log.LinesOf({CENTRE, DESCRIPTOR}),
             QStringList(
                 {DESCRIPTOR + QStringLiteral(" Dll tstplugin.dll, Instance App\\tstplugin.dll "
                                              "(AdditionalParams: none) destroyed !"),
                  DESCRIPTOR + QStringLiteral(" Dll tstplugin.dll unloaded"),
                  CENTRE + QStringLiteral(" An instance of the dll \"tstpluginnoex.dll\" was not created by "
                                          "CfgCenter, the creating instance is responsible for destroying "
                                          "it.")}));
    QCOMPARE(CfgCenter::DestroyDllInstanceByPointer(foreign), true);
    QCOMPARE(LoadedLibraries(), QStringList());
}

void TestCfgCenterDlls::separateLoadGetsItsOwnLibrary()
{
    auto centre = Explicit(QStringLiteral("App:tstplugin.dll"), false);
    CfgDllDescriptor* shared = CfgCenterLifecycleTestAccess::DllMap()->at(QStringLiteral("tstplugin.dll"));
    TraceLog log;
    IDllInstance* separate = CfgCenter::CreateDllInstanceByFileName(QStringLiteral("tstplugin.dll"),
                                                                    QStringLiteral("Separate"), true, true);
    QVERIFY(DescriptorOf(separate)->GetDll() != shared);
    QCOMPARE(CfgCenterLifecycleTestAccess::DllMap()->at(QStringLiteral("tstplugin.dll")), shared);
    QCOMPARE(CfgCenter::DestroyDllInstanceByPointer(separate), true);
    QCOMPARE(log.Texts(DESCRIPTOR).filter(QStringLiteral("Dll tstplugin.dll ")),
             QStringList(
                 {QStringLiteral("Dll tstplugin.dll loaded"), QStringLiteral("Dll tstplugin.dll unloaded")}));
    QCOMPARE(CfgCenterLifecycleTestAccess::DllMap()->at(QStringLiteral("tstplugin.dll")), shared);
    QVERIFY(shared->GetHandle() != nullptr);
}

void TestCfgCenterDlls::failedCreationKeepsNothing_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QStringList>("traces");
    QTest::newRow("missing_library") << QStringLiteral("nosuchplugin.dll")
                                     << QStringLiteral(
                                            "Received invalid Dll handle while loading nosuchplugin.dll. "
                                            "Error: 2")
                                     << QStringList{
                                            QStringLiteral("Received invalid Dll handle while loading "
                                                           "nosuchplugin.dll. Error: 2")};
    QTest::newRow("factory_returns_null")
        << QStringLiteral("tstpluginnull.dll")
        << QStringLiteral(
               "LoadProc() returned invalid pointer. IDllInstance* is expected. Dll: tstpluginnull.dll, "
               "Procedure: KVCreate()")
        << QStringList({QStringLiteral("Dll tstpluginnull.dll loaded"),
                        QStringLiteral("Dll tstpluginnull.dll unloaded")});
    QTest::newRow("no_factory") << QStringLiteral("tstpluginnofactory.dll")
                                << QStringLiteral("GetProcAddress() returned invalid pointer while loading "
                                                  "tstpluginnofactory.dll. Error: 2")
                                << QStringList({QStringLiteral("Dll tstpluginnofactory.dll loaded"),
                                                QStringLiteral("Dll tstpluginnofactory.dll unloaded")});
}

void TestCfgCenterDlls::failedCreationKeepsNothing()
{
    QFETCH(QString, fileName);
    QFETCH(QString, message);
    QFETCH(QStringList, traces);
    auto centre = Explicit(QStringLiteral("App:tstplugin.dll"), false);
    const QStringList before = Instances();
    TraceLog log;
    try {
        CfgCenter::CreateDllInstanceByFileName(fileName, QStringLiteral("K"), true, false);
        QFAIL("no exception");
    } catch (const KVException& exception) {
        QCOMPARE(exception.GetMessage(), message);
        QCOMPARE(exception.GetSourceFile(), DESCRIPTOR);
    }
    QCOMPARE(Instances(), before);
    QCOMPARE(LoadedLibraries(), QStringList{QStringLiteral("tstplugin.dll")});
    QCOMPARE(log.Texts(DESCRIPTOR), traces);
}

void TestCfgCenterDlls::destructorDestroysInstancesBeforeExit()
{
    auto centre = Explicit(QStringLiteral("App:tstplugin.dll"), false, QStringLiteral("Server"));
    TraceLog log;
    centre.reset();
    QCOMPARE(log.LinesOf({PLUGIN, DESCRIPTOR, QStringLiteral("plugins/tstcfgclient")}),
             QStringList({PLUGIN + QStringLiteral(" tstplugin destroyed: key=App"),
                          DESCRIPTOR + QStringLiteral(" Dll tstplugin.dll, Instance App\\tstplugin.dll "
                                                      "(AdditionalParams: none) destroyed !"),
                          DESCRIPTOR + QStringLiteral(" Dll tstplugin.dll unloaded"),
                          QStringLiteral("plugins/tstcfgclient tstcfgclient disconnect: app=App"),
                          QStringLiteral("plugins/tstcfgclient tstcfgclient destroyed"),
                          DESCRIPTOR + QStringLiteral(" Dll tstcfgclient.dll, Instance CfgServer127.0.0.1 "
                                                      "(AdditionalParams: none) destroyed !"),
                          DESCRIPTOR + QStringLiteral(" Dll tstcfgclient.dll unloaded")}));
}

void TestCfgCenterDlls::withoutCentreNothingIsCreated()
{
    TraceLog log;
    QCOMPARE(CfgCenter::GetDllInstanceList(), nullptr);
    QCOMPARE(CfgCenter::CreateDllInstanceImpl(QStringLiteral("tstplugin.dll"), QStringLiteral("K"),
                                              QStringLiteral("I"), QString(), true, false),
             nullptr);
    QCOMPARE(CfgCenter::CreateDllInstanceByFileName(QStringLiteral("tstplugin.dll"), QString(), false, false),
             nullptr);
    QCOMPARE(CfgCenter::CreateDllInstance(QStringLiteral("A"), QString(), true), nullptr);
    QCOMPARE(CfgCenter::GetDllInstance(QStringLiteral("A"), QString()), nullptr);
    QCOMPARE(CfgCenter::GetDllInstanceByFileName(QStringLiteral("tstplugin.dll"), QString()), nullptr);
    QCOMPARE(CfgCenter::DestroyDllInstance(QStringLiteral("A"), QString()), false);
    QCOMPARE(CfgCenter::UnloadDll(QStringLiteral("tstplugin.dll")), false);
    CfgCenter::LoadAdditionalDlls(nullptr);
    CfgCenter::UnloadAdditionalDlls();
    QCOMPARE(log.Lines(), QStringList());
}

void TestCfgCenterDlls::descriptorWithoutInstanceIsNotExecuted()
{
    auto centre = Explicit(QStringLiteral("App:tstplugin.dll"), false);
    CfgDllDescriptor* library = CfgCenterLifecycleTestAccess::DllMap()->at(QStringLiteral("tstplugin.dll"));
    std::unique_ptr<DllInstanceDescriptor> empty(DllInstanceDescriptorTestAccess::WithoutInstance(
        library, QStringLiteral("K"), QStringLiteral("Empty")));
    CfgCenter::GetDllInstanceList()->push_back(empty.get());
    TraceLog log;
    CfgCenter::ExecuteDlls();
    QCOMPARE(log.Lines(), QStringList({PLUGIN + QStringLiteral(" tstplugin executed: key=App"),
                                       CENTRE + QStringLiteral(" Dll not executed: tstplugin.dll")}));
    CfgCenter::GetDllInstanceList()->remove(empty.get());
}

QTEST_GUILESS_MAIN(TestCfgCenterDlls)
#include "tst_cfgcenterdlls.moc"
