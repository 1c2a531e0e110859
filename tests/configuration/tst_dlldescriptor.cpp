#include "cfgcentertestsupport.h"
#include "common/kvexceptioncheck.h"
#include "configuration/dlldescriptor.h"
#include "configuration/idllinstance.h"
#include "kvbase/kvexception.h"

#include <QRegularExpression>
#include <QStandardPaths>
#include <QtTest>

#include <memory>

namespace {
const QString SOURCE = QStringLiteral("configuration/dlldescriptor");

/// Counts the libraries freed, passing every call on to the real system.
class FreeCountingZentOS : public ZentOS
{
public:
    FreeCountingZentOS() { ZentOS::SetInstance(this); }
    ~FreeCountingZentOS() override { ZentOS::SetInstance(nullptr); }
    bool FreeLibrary(void* handle) override
    {
        freed.append(handle);
        return ZentOS::FreeLibrary(handle);
    }
    QList<void*> freed;
};

/// What creating the instance "I" for the key "App" from `dll` throws.
std::optional<KVException> CreationFailure(CfgDllDescriptor* dll)
{
    return CaughtKVException([dll] {
        DllInstanceDescriptor instance(dll, QStringLiteral("App"), QStringLiteral("I"), QString(), true);
    });
}

std::unique_ptr<CfgDllDescriptor> Loaded(const QString& fileName)
{
    auto dll = std::make_unique<CfgDllDescriptor>();
    dll->CreateInstance(fileName);
    return dll;
}
} // namespace

class TestDllDescriptor : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void loadingTracesLoadedAndUnloading();
    void missingLibraryThrowsInvalidHandleAfterTracingIt();
    void loadingAgainFreesThePreviousLibrary();
    void tracesNeedTheTraceBit();
    void instanceComesFromKVCreateEx_data();
    void instanceComesFromKVCreateEx();
    void missingKVCreateExFallsBackToKVCreate();
    void additionalParamsWithoutKVCreateExAreTracedAndDropped();
    void nullFromKVCreateExIsTracedAndThrown();
    void nullFromKVCreateIsThrown();
    void missingFactoryIsThrown();
    void destroyingHandsTheInstanceToKVDestroy();
    void missingKVDestroyIsReported();
};

void TestDllDescriptor::loadingTracesLoadedAndUnloading()
{
    TraceLog log;
    auto dll = Loaded(QStringLiteral("tstplugin.dll"));
    QVERIFY(dll->GetHandle() != nullptr);
    QCOMPARE(dll->GetName(), QStringLiteral("tstplugin.dll"));
    QVERIFY(dll->GetProcAddress("KVCreateEx") != nullptr);
    QCOMPARE(dll->GetProcAddress("NoSuchEntry"), nullptr);
    dll.reset();
    QCOMPARE(log.Texts(SOURCE), QStringList({QStringLiteral("Dll tstplugin.dll loaded"),
                                             QStringLiteral("Dll tstplugin.dll unloaded")}));
}

void TestDllDescriptor::missingLibraryThrowsInvalidHandleAfterTracingIt()
{
    TraceLog log;
    auto dll = std::make_unique<CfgDllDescriptor>();
    const QString expected =
        QStringLiteral("Received invalid Dll handle while loading nosuchplugin.dll. Error: 2");
    try {
        dll->CreateInstance(QStringLiteral("nosuchplugin.dll"));
        QFAIL("no exception");
    } catch (const KVException& exception) {
        QCOMPARE(exception.GetMessage(), expected);
        QCOMPARE(exception.GetSourceFile(), SOURCE);
        QCOMPARE(exception.GetClassName(), QStringLiteral("CfgDllDescriptor"));
        QCOMPARE(exception.GetOperation(), QStringLiteral("CreateInstance"));
        QCOMPARE(exception.GetCode(), -1);
    }
    QCOMPARE(dll->GetHandle(), nullptr);
    QCOMPARE(dll->GetName(), QStringLiteral("nosuchplugin.dll"));
    dll.reset(); // nothing was loaded, so nothing is unloaded
    QCOMPARE(log.Texts(SOURCE), QStringList{expected});
}

void TestDllDescriptor::loadingAgainFreesThePreviousLibrary()
{
    FreeCountingZentOS os;
    auto dll = Loaded(QStringLiteral("tstplugin.dll"));
    void* first = dll->GetHandle();
    dll->CreateInstance(QStringLiteral("tstpluginnoex.dll"));
    QCOMPARE(os.freed, QList<void*>{first});
    QCOMPARE(dll->GetName(), QStringLiteral("tstpluginnoex.dll"));
    void* second = dll->GetHandle();
    QVERIFY(second != nullptr);
    dll.reset();
    QCOMPARE(os.freed, QList<void*>({first, second}));
}

void TestDllDescriptor::tracesNeedTheTraceBit()
{
    TraceLog log(ErrorHandler::DEFAULT_MESSAGE_MASK & ~ErrorHandler::Q_TRACE);
    {
        auto dll = Loaded(QStringLiteral("tstplugin.dll"));
        DllInstanceDescriptor instance(dll.get(), QStringLiteral("K"), QStringLiteral("I"), QString(), true);
    }
    QCOMPARE(log.Lines(), QStringList());
}

void TestDllDescriptor::instanceComesFromKVCreateEx_data()
{
    QTest::addColumn<QString>("params");
    QTest::addColumn<QString>("paramsInTrace");
    QTest::newRow("without_params") << QString() << QStringLiteral("none");
    QTest::newRow("with_params") << QStringLiteral("mode=fast") << QStringLiteral("mode=fast");
}

void TestDllDescriptor::instanceComesFromKVCreateEx()
{
    QFETCH(QString, params);
    QFETCH(QString, paramsInTrace);
    TraceLog log;
    auto dll = Loaded(QStringLiteral("tstplugin.dll"));
    log.Clear();
    {
        DllInstanceDescriptor instance(dll.get(), QStringLiteral("App\\Config"),
                                       QStringLiteral("App\\tstplugin.dll"), params, true);
        QVERIFY(instance.GetInstance() != nullptr);
        QCOMPARE(instance.GetDll(), dll.get());
        QCOMPARE(instance.GetDllName(), QStringLiteral("tstplugin.dll"));
        QCOMPARE(instance.GetConfigKey(), QStringLiteral("App\\Config"));
        QCOMPARE(instance.GetInstanceKey(), QStringLiteral("App\\tstplugin.dll"));
        QCOMPARE(instance.GetAdditionalParams(), params);
        QCOMPARE(instance.IsCreatedByCenter(), true);
    }
    QCOMPARE(
        log.LinesOf({SOURCE, QStringLiteral("plugins/tstplugin")}),
        QStringList(
            {QStringLiteral("plugins/tstplugin tstplugin created by KVCreateEx, params=%1: key=App\\Config")
                 .arg(params),
             SOURCE + QStringLiteral(" Dll tstplugin.dll, Instance App\\tstplugin.dll (AdditionalParams: "
                                     "%1) successfully created !")
                          .arg(paramsInTrace),
             QStringLiteral("plugins/tstplugin tstplugin destroyed: key=App\\Config"),
             SOURCE + QStringLiteral(" Dll tstplugin.dll, Instance App\\tstplugin.dll (AdditionalParams: "
                                     "%1) destroyed !")
                          .arg(paramsInTrace)}));
}

void TestDllDescriptor::missingKVCreateExFallsBackToKVCreate()
{
    TraceLog log;
    auto dll = Loaded(QStringLiteral("tstpluginnoex.dll"));
    log.Clear();
    DllInstanceDescriptor instance(dll.get(), QStringLiteral("App"), QStringLiteral("App\\tstpluginnoex.dll"),
                                   QString(), false);
    QVERIFY(instance.GetInstance() != nullptr);
    QCOMPARE(instance.IsCreatedByCenter(), false);
    QCOMPARE(log.LinesOf({SOURCE, QStringLiteral("plugins/tstpluginnoex")}),
             QStringList({QStringLiteral("plugins/tstpluginnoex tstpluginnoex created by KVCreate: key=App"),
                          SOURCE + QStringLiteral(" Dll tstpluginnoex.dll, Instance App\\tstpluginnoex.dll "
                                                  "(AdditionalParams: none) successfully created !")}));
}

void TestDllDescriptor::additionalParamsWithoutKVCreateExAreTracedAndDropped()
{
    TraceLog log;
    auto dll = Loaded(QStringLiteral("tstpluginnoex.dll"));
    log.Clear();
    DllInstanceDescriptor instance(dll.get(), QStringLiteral("App"), QStringLiteral("I"),
                                   QStringLiteral("x=1"), true);
    QVERIFY(instance.GetInstance() != nullptr);
    QCOMPARE(
        log.LinesOf({SOURCE, QStringLiteral("plugins/tstpluginnoex")}),
        QStringList({SOURCE + QStringLiteral(" Additional Parameter \"x=1\" passed for loading dll "
                                             "\"tstpluginnoex.dll\", but GetProcAddress() for \"KVCreateEx( "
                                             "LPCTSTR, LPCTSTR )\" returned invalid pointer. Error: 2."),
                     QStringLiteral("plugins/tstpluginnoex tstpluginnoex created by KVCreate: key=App"),
                     SOURCE + QStringLiteral(" Dll tstpluginnoex.dll, Instance I (AdditionalParams: x=1) "
                                             "successfully created !")}));
}

void TestDllDescriptor::nullFromKVCreateExIsTracedAndThrown()
{
    TraceLog log;
    auto dll = Loaded(QStringLiteral("tstpluginnullex.dll"));
    log.Clear();
    const std::optional<KVException> exception = CreationFailure(dll.get());
    QVERIFY2(exception, "no exception");
    QCOMPARE(exception->GetMessage(),
             QStringLiteral("LoadProc() returned invalid pointer. IDllInstance* is "
                            "expected. Dll: tstpluginnullex.dll, Procedure: KVCreate()"));
    QCOMPARE(exception->GetSourceFile(), SOURCE);
    QCOMPARE(exception->GetClassName(), QStringLiteral("DllInstanceDescriptor"));
    const QStringList texts = log.Texts(SOURCE);
    QCOMPARE(texts.size(), 1);
    const QRegularExpression expected(QRegularExpression::anchoredPattern(
        QRegularExpression::escape(
            QStringLiteral("LoadProcEx() returned invalid pointer.\nIDllInstance* is "
                           "expected.\nDll: tstpluginnullex.dll, Procedure: KVCreateEx()\n"
                           "File configuration/dlldescriptor, Line ")) +
        QStringLiteral("[1-9][0-9]*\\.")));
    QVERIFY2(expected.match(texts.first()).hasMatch(), qPrintable(texts.first()));
}

void TestDllDescriptor::nullFromKVCreateIsThrown()
{
    TraceLog log;
    auto dll = Loaded(QStringLiteral("tstpluginnull.dll"));
    log.Clear();
    const std::optional<KVException> exception = CreationFailure(dll.get());
    QVERIFY2(exception, "no exception");
    QCOMPARE(exception->GetMessage(),
             QStringLiteral("LoadProc() returned invalid pointer. IDllInstance* is "
                            "expected. Dll: tstpluginnull.dll, Procedure: KVCreate()"));
    QCOMPARE(exception->GetClassName(), QStringLiteral("DllInstanceDescriptor"));
    QCOMPARE(log.Texts(SOURCE), QStringList());
}

void TestDllDescriptor::missingFactoryIsThrown()
{
    auto dll = Loaded(QStringLiteral("tstpluginnofactory.dll"));
    const std::optional<KVException> exception = CreationFailure(dll.get());
    QVERIFY2(exception, "no exception");
    QCOMPARE(exception->GetMessage(),
             QStringLiteral("GetProcAddress() returned invalid pointer while loading tstpluginnofactory.dll. "
                            "Error: 2"));
    QCOMPARE(exception->GetSourceFile(), SOURCE);
    QCOMPARE(exception->GetClassName(), QStringLiteral("DllInstanceDescriptor"));
}

void TestDllDescriptor::destroyingHandsTheInstanceToKVDestroy()
{
    TraceLog log;
    auto dll = Loaded(QStringLiteral("tstplugin.dll"));
    auto instance = std::make_unique<DllInstanceDescriptor>(dll.get(), QStringLiteral("K"),
                                                            QStringLiteral("I"), QString(), true);
    log.Clear();
    instance.reset();
    QCOMPARE(log.Lines(),
             QStringList({QStringLiteral("plugins/tstplugin tstplugin destroyed: key=K"),
                          SOURCE + QStringLiteral(" Dll tstplugin.dll, Instance I (AdditionalParams: "
                                                  "none) destroyed !")}));
}

void TestDllDescriptor::missingKVDestroyIsReported()
{
    TraceLog log;
    auto dll = Loaded(QStringLiteral("tstpluginnodestroy.dll"));
    auto instance = std::make_unique<DllInstanceDescriptor>(dll.get(), QStringLiteral("K"),
                                                            QStringLiteral("I"), QString(), true);
    QVERIFY(instance->GetInstance() != nullptr);
    log.Clear();
    instance.reset();
    QCOMPARE(log.Lines(),
             QStringList{SOURCE + QStringLiteral(" GetProcAddress() returned invalid pointer. Error: 2")});
}

QTEST_GUILESS_MAIN(TestDllDescriptor)
#include "tst_dlldescriptor.moc"
