#include "cfgcentertestaccess.h"
#include "cfgcentertestsupport.h"
#include "configuration/cfgcenter.h"
#include "configuration/cfgevent.h"
#include "configuration/dlldescriptor.h"
#include "configuration/savecomponentif.h"

#include <QFileDevice>
#include <QStandardPaths>
#include <QThread>
#include <QtTest>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace {
const QString PLUGIN = QStringLiteral("plugins/tstplugin");
const QString COMPONENT = QStringLiteral("tests/component");

/// Counts the writes of the main document (each one flushes Cfg.xml.temp).
class SaveCountingZentOS : public ZentOS
{
public:
    SaveCountingZentOS() { ZentOS::SetInstance(this); }
    ~SaveCountingZentOS() override { ZentOS::SetInstance(nullptr); }
    bool SyncFile(QFileDevice& file) override
    {
        if (file.fileName().endsWith(QLatin1String("Cfg.xml.temp")))
            ++saves;
        return ZentOS::SyncFile(file);
    }
    int saves = 0;
};

/// A save component that traces its calls (so they interleave with the
/// plug-ins' traces) and can act inside them.
class Component : public SaveComponentIf
{
public:
    explicit Component(QString name) : m_name(std::move(name)) {}

    void OnSaveDocument() override
    {
        Trace(QStringLiteral("save"));
        if (onSave)
            onSave();
    }
    void OnReLoadUserConfig() override { Trace(QStringLiteral("reload")); }
    void OnCommitData() override
    {
        Trace(QStringLiteral("commit"));
        commitThreads.push_back(QThread::currentThread());
        if (onCommit)
            onCommit();
    }

    std::function<void()> onSave;
    std::function<void()> onCommit;
    std::vector<QThread*> commitThreads;

private:
    void Trace(const QString& what)
    {
        ErrorHandler::Instance().Trace(ErrorHandler::Q_TRACE, m_name + QLatin1Char(' ') + what,
                                       "tests/component", 0);
    }
    QString m_name;
};

std::unique_ptr<CfgCenter> Centre(const QString& key = QStringLiteral("App:tstplugin.dll"))
{
    return std::make_unique<CfgCenter>(key, QStringLiteral("Xml:Cfg.xml"), ICfg::VIEW_Machine, false, false,
                                       true);
}

void SetValue(const QString& name, const QString& value)
{
    CfgCenter::GetAppCfg(ICfg::VIEW_Machine).SetString(name, value);
}
} // namespace

class TestCfgCenterCommit : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void init()
    {
        QVERIFY2(m_fixture.Init(), "temporary folder");
        // Each test's document differs, so that no save is skipped as a repetition of the last one.
        QVERIFY(m_fixture.WriteDocument(QStringLiteral("Cfg.xml"),
                                        QByteArray("<App><Name>Demo</Name><Test>") +
                                            QTest::currentTestFunction() + "</Test></App>"));
    }
    void cleanup() { m_fixture.Cleanup(); }

    void commitAsksComponentsThenInstancesThenSaves();
    void secondCommitDoesNothing();
    void instanceDescriptorWithoutInstanceIsSkipped();
    void unregisteringRemovesTheFirstEntryOnly();
    void unregisteringAnAbsentComponentChangesNothing();
    void saveBeforeCommitAsksComponentsEveryTime();
    void commitDuringSaveWritesOnce();
    void afterCommitOnlyOneSaveWrites();
    void twoPostedCommitsCommitOnce();
    void postedCommitsFromWorkerThreadsCommitOnceInTheMainThread();
    void postCommitDataAfterExitIsDropped();
    void otherEventTypesAreIgnored();
    void commitFailureInTheEventReachesTheUser();

private:
    QByteArray Document() const { return ReadTextFile(m_fixture.Path(QStringLiteral("Cfg.xml"))); }

    CentreFixture m_fixture;
};

void TestCfgCenterCommit::commitAsksComponentsThenInstancesThenSaves()
{
    Component first(QStringLiteral("first"));
    Component second(QStringLiteral("second"));
    SaveCountingZentOS os;
    auto centre = Centre(QStringLiteral("App:tstplugin.dll,tstpluginnoex.dll"));
    CfgCenter::RegisterSaveComponent(&first);
    CfgCenter::RegisterSaveComponent(&second);
    first.onCommit = [] { SetValue(QStringLiteral("CommittedBy"), QStringLiteral("first")); };
    TraceLog log;
    QCOMPARE(CfgCenter::DataCommitted(), false);
    CfgCenter::CommitData();
    QCOMPARE(CfgCenter::DataCommitted(), true);
    QCOMPARE(log.LinesOf({COMPONENT, PLUGIN, QStringLiteral("plugins/tstpluginnoex")}),
             QStringList({COMPONENT + QStringLiteral(" first commit"),
                          COMPONENT + QStringLiteral(" second commit"),
                          PLUGIN + QStringLiteral(" tstplugin commits: key=App"),
                          QStringLiteral("plugins/tstpluginnoex tstpluginnoex commits: key=App")}));
    QCOMPARE(os.saves, 1);
    QVERIFY(Document().contains(">first</CommittedBy>"));
}

void TestCfgCenterCommit::secondCommitDoesNothing()
{
    Component component(QStringLiteral("component"));
    SaveCountingZentOS os;
    auto centre = Centre();
    CfgCenter::RegisterSaveComponent(&component);
    CfgCenter::CommitData();
    SetValue(QStringLiteral("Late"), QStringLiteral("change"));
    TraceLog log;
    CfgCenter::CommitData();
    QCOMPARE(log.Lines(), QStringList());
    QCOMPARE(component.commitThreads.size(), size_t(1));
    QCOMPARE(os.saves, 1);
}

void TestCfgCenterCommit::instanceDescriptorWithoutInstanceIsSkipped()
{
    auto centre = Centre();
    CfgDllDescriptor* library = CfgCenterLifecycleTestAccess::DllMap()->at(QStringLiteral("tstplugin.dll"));
    std::unique_ptr<DllInstanceDescriptor> empty(DllInstanceDescriptorTestAccess::WithoutInstance(
        library, QStringLiteral("K"), QStringLiteral("Empty")));
    CfgCenter::GetDllInstanceList()->push_front(empty.get());
    TraceLog log;
    CfgCenter::CommitData();
    QCOMPARE(log.Texts(PLUGIN), QStringList{QStringLiteral("tstplugin commits: key=App")});
    QCOMPARE(CfgCenter::DataCommitted(), true);
    CfgCenter::GetDllInstanceList()->remove(empty.get());
}

void TestCfgCenterCommit::unregisteringRemovesTheFirstEntryOnly()
{
    Component first(QStringLiteral("first"));
    Component second(QStringLiteral("second"));
    auto centre = Centre(QStringLiteral("App"));
    CfgCenter::RegisterSaveComponent(&first);
    CfgCenter::RegisterSaveComponent(&second);
    CfgCenter::RegisterSaveComponent(&first);
    CfgCenter::UnregisterSaveComponent(&first);
    TraceLog log;
    CfgCenter::ReLoadUserConfig();
    CfgCenter::CommitData();
    QCOMPARE(log.Texts(COMPONENT),
             QStringList({QStringLiteral("second reload"), QStringLiteral("first reload"),
                          QStringLiteral("second commit"), QStringLiteral("first commit")}));
}

void TestCfgCenterCommit::unregisteringAnAbsentComponentChangesNothing()
{
    Component registered(QStringLiteral("registered"));
    Component absent(QStringLiteral("absent"));
    CfgCenter::RegisterSaveComponent(&registered);
    CfgCenter::UnregisterSaveComponent(&absent);
    TraceLog log;
    CfgCenter::ReLoadUserConfig();
    QCOMPARE(log.Texts(COMPONENT), QStringList{QStringLiteral("registered reload")});
}

void TestCfgCenterCommit::saveBeforeCommitAsksComponentsEveryTime()
{
    Component component(QStringLiteral("component"));
    SaveCountingZentOS os;
    auto centre = Centre(QStringLiteral("App"));
    CfgCenter::RegisterSaveComponent(&component);
    TraceLog log;
    SetValue(QStringLiteral("Step"), QStringLiteral("one"));
    CfgCenter::SaveDocument();
    QVERIFY(Document().contains(">one</Step>"));
    SetValue(QStringLiteral("Step"), QStringLiteral("two"));
    CfgCenter::SaveDocument();
    QVERIFY(Document().contains(">two</Step>"));
    QCOMPARE(os.saves, 2);
    QCOMPARE(log.Texts(COMPONENT),
             QStringList({QStringLiteral("component save"), QStringLiteral("component save")}));
    QCOMPARE(CfgCenter::DataCommitted(), false);
    QCOMPARE(CfgCenterLifecycleTestAccess::SaveAfterCommitPending(), true);
}

void TestCfgCenterCommit::commitDuringSaveWritesOnce()
{
    Component component(QStringLiteral("component"));
    SaveCountingZentOS os;
    auto centre = Centre(QStringLiteral("App"));
    CfgCenter::RegisterSaveComponent(&component);
    component.onSave = [] { CfgCenter::CommitData(); };
    component.onCommit = [] { SetValue(QStringLiteral("State"), QStringLiteral("committed")); };
    TraceLog log;
    CfgCenter::SaveDocument();
    QCOMPARE(log.Texts(COMPONENT),
             QStringList({QStringLiteral("component save"), QStringLiteral("component commit")}));
    QCOMPARE(os.saves, 1);
    QVERIFY(Document().contains(">committed</State>"));
    QCOMPARE(CfgCenterLifecycleTestAccess::SaveAfterCommitPending(), false);
}

void TestCfgCenterCommit::afterCommitOnlyOneSaveWrites()
{
    Component component(QStringLiteral("component"));
    SaveCountingZentOS os;
    auto centre = Centre(QStringLiteral("App"));
    CfgCenter::RegisterSaveComponent(&component);
    SetValue(QStringLiteral("Step"), QStringLiteral("committed"));
    CfgCenter::CommitData(); // the one save after a commit
    QCOMPARE(os.saves, 1);
    TraceLog log;
    SetValue(QStringLiteral("Step"), QStringLiteral("after the commit"));
    CfgCenter::SaveDocument();
    centre.reset(); // Exit saves too, without effect
    QCOMPARE(os.saves, 1);
    QVERIFY(Document().contains(">committed</Step>"));
    QVERIFY(!Document().contains("after the commit"));
    QCOMPARE(log.Texts(COMPONENT), QStringList()); // nothing asked once committed
}

void TestCfgCenterCommit::twoPostedCommitsCommitOnce()
{
    Component component(QStringLiteral("component"));
    auto centre = Centre(QStringLiteral("App"));
    CfgCenter::RegisterSaveComponent(&component);
    CfgCenter::PostCommitData();
    CfgCenter::PostCommitData();
    QCOMPARE(CfgCenter::DataCommitted(), false); // posted, not run
    QCoreApplication::sendPostedEvents(CfgCenterLifecycleTestAccess::EventReceiver(), 0);
    QCOMPARE(CfgCenter::DataCommitted(), true);
    QCOMPARE(component.commitThreads.size(), size_t(1));
}

void TestCfgCenterCommit::postedCommitsFromWorkerThreadsCommitOnceInTheMainThread()
{
    Component component(QStringLiteral("component"));
    SaveCountingZentOS os;
    auto centre = Centre();
    CfgCenter::RegisterSaveComponent(&component);
    TraceLog log;
    std::atomic<bool> go{false};
    std::atomic<int> ready{0};
    std::vector<std::thread> workers;
    for (int n = 0; n < 8; ++n) {
        workers.emplace_back([&] {
            ++ready;
            while (!go.load())
                std::this_thread::yield();
            CfgCenter::PostCommitData();
        });
    }
    while (ready.load() < 8)
        std::this_thread::yield();
    go = true;
    for (std::thread& worker : workers)
        worker.join();
    QCOMPARE(CfgCenter::DataCommitted(), false); // nothing runs outside the main thread
    QCoreApplication::sendPostedEvents(CfgCenterLifecycleTestAccess::EventReceiver(), 0);
    QCOMPARE(CfgCenter::DataCommitted(), true);
    QCOMPARE(component.commitThreads, std::vector<QThread*>{QThread::currentThread()});
    QCOMPARE(log.Texts(PLUGIN), QStringList{QStringLiteral("tstplugin commits: key=App")});
    QCOMPARE(os.saves, 1);
}

void TestCfgCenterCommit::postCommitDataAfterExitIsDropped()
{
    Component component(QStringLiteral("component"));
    auto centre = Centre(QStringLiteral("App"));
    CfgCenter::RegisterSaveComponent(&component);
    centre.reset();
    CfgCenter::PostCommitData();
    QCoreApplication::processEvents();
    QCOMPARE(CfgCenter::DataCommitted(), false);
    QCOMPARE(component.commitThreads.size(), size_t(0));
}

void TestCfgCenterCommit::otherEventTypesAreIgnored()
{
    auto centre = Centre(QStringLiteral("App"));
    CfgEvent* receiver = CfgCenterLifecycleTestAccess::EventReceiver();
    QCOMPARE(receiver->GetCfgCenter(), centre.get());
    QCOMPARE(receiver->thread(), QThread::currentThread());
    CustomEvent other(static_cast<QEvent::Type>(1801));
    QCoreApplication::sendEvent(receiver, &other);
    QCOMPARE(CfgCenter::DataCommitted(), false);
    CustomEvent commit;
    QCOMPARE(int(commit.type()), 1800);
    QCOMPARE(commit.m_pData, nullptr);
    QCoreApplication::sendEvent(receiver, &commit);
    QCOMPARE(CfgCenter::DataCommitted(), true);
}

void TestCfgCenterCommit::commitFailureInTheEventReachesTheUser()
{
    auto centre = Centre(QStringLiteral("App"));
    ICfg* docCfg = &CfgCenter::GetDocCfg();
    CfgCenterTestAccess::SetDocCfg(nullptr); // the save cannot find its document
    UserChannel user;
    CfgCenter::PostCommitData();
    QCoreApplication::sendPostedEvents(CfgCenterLifecycleTestAccess::EventReceiver(), 0);
    CfgCenterTestAccess::SetDocCfg(docCfg);
    QCOMPARE(user.messages.size(), 1);
    QCOMPARE(user.messages.first().first, ErrorHandler::MSG_Error);
    QCOMPARE(user.messages.first().second,
             QStringLiteral("CfgCenter::GetDocCfg(), called, before calling CfgCenter::CfgCenter()"));
    QCOMPARE(CfgCenter::DataCommitted(), true);
}

QTEST_GUILESS_MAIN(TestCfgCenterCommit)
#include "tst_cfgcentercommit.moc"
