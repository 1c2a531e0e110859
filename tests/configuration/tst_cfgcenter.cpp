#include "common/kvexceptioncheck.h"
#include "common/memorycfg.h"
#include "configuration/cfgcenter.h"
#include "configuration/cfgcentertestaccess.h"
#include "configuration/fakezentos.h"
#include "kvbase/kvexception.h"

#include <QMutex>
#include <QtTest>
#include <functional>

class tst_CfgCenter : public QObject
{
    Q_OBJECT

private:
    static void CompareException(const std::function<void()>& call, const QString& message,
                                 const QString& operation)
    {
        CompareKVException(CaughtKVException(call), message, QStringLiteral("configuration/cfgcenter"),
                           QStringLiteral("CfgCenter"), operation);
    }

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void cleanup() { CfgCenterTestAccess::Reset(); }

    void enumerationsHaveTheirNumbers()
    {
        QCOMPARE(int(CfgCenter::USAGE_0), 0);
        QCOMPARE(int(CfgCenter::USAGE_1), 1);
        QCOMPARE(int(CfgCenter::USAGE_2), 2);
        QCOMPARE(int(CfgCenter::USAGE_3), 3);
        QCOMPARE(int(CfgCenter::USAGE_4), 4);
        QCOMPARE(int(CfgCenter::ASYNC_Off), 0);
        QCOMPARE(int(CfgCenter::ASYNC_Deferred), 1);
        QCOMPARE(int(CfgCenter::ASYNC_Resume), 2);
        QCOMPARE(sizeof(CfgCenter::CfgCenterUsage), size_t(4));
        QCOMPARE(sizeof(CfgCenter::AsyncStartup), size_t(4));
    }

    void staticsStartEmpty()
    {
        QCOMPARE(CfgCenter::GetMutex(), static_cast<QMutex*>(nullptr));
        QCOMPARE(CfgCenter::GetUsage(), CfgCenter::USAGE_0);
        QCOMPARE(CfgCenter::GetAsyncStartup(), CfgCenter::ASYNC_Off);
        QCOMPARE(CfgCenter::IsServer(), false);
    }

    void getAppCfgBeforeCreationThrows()
    {
        CompareException(
            [] { CfgCenter::GetAppCfg(ICfg::VIEW_Current); },
            QStringLiteral("CfgCenter::GetAppCfg() called, before calling CfgCenter::CfgCenter()"),
            QStringLiteral("GetAppCfg"));
    }

    void getDocCfgBeforeCreationThrows()
    {
        CompareException(
            [] { CfgCenter::GetDocCfg(ICfg::VIEW_Machine); },
            QStringLiteral("CfgCenter::GetDocCfg(), called, before calling CfgCenter::CfgCenter()"),
            QStringLiteral("GetDocCfg"));
    }

    void getAdminCfgBeforeCreationThrows()
    {
        CompareException(
            [] { CfgCenter::GetAdminCfg(ICfg::VIEW_User); },
            QStringLiteral("CfgCenter::GetAdminCfg(), called, before calling CfgCenter::CfgCenter()"),
            QStringLiteral("GetAdminCfg"));
    }

    void getAppNameBeforeCreationThrowsAsGetAppCfg()
    {
        CompareException(
            [] { CfgCenter::GetAppName(); },
            QStringLiteral("CfgCenter::GetAppCfg() called, before calling CfgCenter::CfgCenter()"),
            QStringLiteral("GetAppCfg"));
    }

    void getAppCfgWithCurrentViewKeepsTheSelectedView()
    {
        MemoryCfg app(QStringLiteral("App"), ICfg::VIEW_User);
        CfgCenterTestAccess::SetAppCfg(&app);
        ICfg& result = CfgCenter::GetAppCfg(ICfg::VIEW_Current);
        QCOMPARE(&result, static_cast<ICfg*>(&app));
        result.SetString(QStringLiteral("probe"), QStringLiteral("x"));
        QVERIFY(app.Has(ICfg::VIEW_User, QStringLiteral("probe")));
    }

    void getAppCfgWithARealViewSelectsItFirst_data()
    {
        QTest::addColumn<int>("view");
        QTest::newRow("machine") << int(ICfg::VIEW_Machine);
        QTest::newRow("domain") << int(ICfg::VIEW_Domain);
        QTest::newRow("system") << int(ICfg::VIEW_System);
        QTest::newRow("export") << int(ICfg::VIEW_Export);
    }

    void getAppCfgWithARealViewSelectsItFirst()
    {
        QFETCH(int, view);
        MemoryCfg app(QStringLiteral("App"), ICfg::VIEW_User);
        MemoryCfg doc(QString(), ICfg::VIEW_User);
        MemoryCfg admin(QStringLiteral("Administration"), ICfg::VIEW_User);
        CfgCenterTestAccess::SetAppCfg(&app);
        CfgCenterTestAccess::SetDocCfg(&doc);
        CfgCenterTestAccess::SetAdminCfg(&admin);
        CfgCenter::GetAppCfg(ICfg::View(view)).SetString(QStringLiteral("a"), QStringLiteral("1"));
        CfgCenter::GetDocCfg(ICfg::View(view)).SetString(QStringLiteral("d"), QStringLiteral("1"));
        CfgCenter::GetAdminCfg(ICfg::View(view)).SetString(QStringLiteral("m"), QStringLiteral("1"));
        QVERIFY(app.Has(ICfg::View(view), QStringLiteral("a")));
        QVERIFY(doc.Has(ICfg::View(view), QStringLiteral("d")));
        QVERIFY(admin.Has(ICfg::View(view), QStringLiteral("m")));
    }

    void getAppNameReadsTheValueName()
    {
        MemoryCfg app(QStringLiteral("App"), ICfg::VIEW_Machine);
        app.Put(ICfg::VIEW_Machine, QStringLiteral("Name"), QStringLiteral("Kestrel"));
        CfgCenterTestAccess::SetAppCfg(&app);
        QCOMPARE(CfgCenter::GetAppName(), QStringLiteral("Kestrel"));
    }

    void getMachineNameAsksTheOperatingSystem()
    {
        FakeZentOS os;
        os.workStationName = L"H\u00e4user-PC";
        QCOMPARE(CfgCenter::GetMachineName(), QStringLiteral("H\u00e4user-PC"));
    }

    void getMachineNameWithoutANameThrows()
    {
        FakeZentOS os;
        os.workStationName.clear();
        CompareException([] { CfgCenter::GetMachineName(); },
                         QStringLiteral("ZentOS::Get().GetWorkStationName() failed."),
                         QStringLiteral("GetMachineName"));
    }

    void setUsageIsReadBack_data()
    {
        QTest::addColumn<int>("usage");
        for (int usage = 0; usage <= 4; ++usage)
            QTest::newRow(qPrintable(QStringLiteral("usage_%1").arg(usage))) << usage;
    }

    void setUsageIsReadBack()
    {
        QFETCH(int, usage);
        CfgCenter::SetUsage(CfgCenter::CfgCenterUsage(usage));
        QCOMPARE(int(CfgCenter::GetUsage()), usage);
    }

    void accessorsReadTheStatics()
    {
        QMutex mutex(QMutex::Recursive);
        CfgCenterTestAccess::SetMutex(&mutex);
        CfgCenterTestAccess::SetAsyncStartup(CfgCenter::ASYNC_Deferred);
        CfgCenterTestAccess::SetIsServer(true);
        QCOMPARE(CfgCenter::GetMutex(), &mutex);
        QCOMPARE(CfgCenter::GetAsyncStartup(), CfgCenter::ASYNC_Deferred);
        QCOMPARE(CfgCenter::IsServer(), true);
    }

    void configurationWorksUnlockedWithoutMutex()
    {
        QCOMPARE(CfgCenter::GetMutex(), static_cast<QMutex*>(nullptr));
        MemoryCfg cfg(QStringLiteral("App"), ICfg::VIEW_Machine);
        cfg.SetInteger(QStringLiteral("Port"), 4000);
        QCOMPARE(cfg.GetInteger(QStringLiteral("Port"), 0), 4000L);
        QCOMPARE(cfg.GetBoolean(QStringLiteral("Port"), false), true);
    }
};

QTEST_GUILESS_MAIN(tst_CfgCenter)
#include "tst_cfgcenter.moc"
