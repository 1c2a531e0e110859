#include "common/kvexceptioncheck.h"
#include "common/memorycfg.h"
#include "configuration/cfg.h"
#include "configuration/cfgcentertestaccess.h"
#include "configuration/cfgxml.h"
#include "configuration/fakezentos.h"
#include "kvbase/kvexception.h"

#include <QFile>
#include <QMutex>
#include <QTemporaryDir>
#include <QtTest>
#include <cstring>
#include <memory>
#include <thread>

namespace {

/// CfgXml with its protected operations opened for tests.
class OpenCfgXml : public CfgXml
{
public:
    using CfgXml::CfgXml;
    using CfgXml::IsBooleanWritable;
    using CfgXml::IsIntegerWritable;
    using CfgXml::IsStringWritable;
};

const char* const DOCUMENT =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Cfg version=\"2.2\"><System/><Domain/>"
    "<Machine/><User/><Export/></Cfg>\n";

/// The table position of a virtual operation as the compiler lays it out
/// (Itanium C++ ABI: a pointer to a virtual member holds 1 + its byte offset).
template <typename Member> long SlotOf(Member member)
{
    quintptr words[2];
    static_assert(sizeof(Member) == sizeof(words), "pointer to member of the Itanium ABI");
    std::memcpy(words, &member, sizeof(words));
    return long((words[0] - 1) / sizeof(void*));
}

/// Reaches the protected operations for their table positions.
class SlotProbe : public Cfg
{
public:
    static QList<long> ProtectedSlots()
    {
        return {SlotOf(&SlotProbe::IsStringWritable), SlotOf(&SlotProbe::IsIntegerWritable),
                SlotOf(&SlotProbe::IsBooleanWritable), SlotOf(&SlotProbe::SaveDocument)};
    }
    static QList<long> PrimitiveSlots()
    {
        return {SlotOf(&SlotProbe::GetStringImpl),     SlotOf(&SlotProbe::GetIntegerImpl),
                SlotOf(&SlotProbe::SetStringImpl),     SlotOf(&SlotProbe::SetIntegerImpl),
                SlotOf(&SlotProbe::SetBooleanImpl),    SlotOf(&SlotProbe::CreateSubCfgAtImpl),
                SlotOf(&SlotProbe::GetValueKeyAtImpl), SlotOf(&SlotProbe::GetVersion)};
    }
};

} // namespace

class tst_Cfg : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;

    /// A CfgXml backend on a fresh document in the test's folder.
    std::unique_ptr<OpenCfgXml> NewXml(const QString& key, ICfg::View view)
    {
        const QString fileName = m_dir->filePath(QStringLiteral("Cfg.xml"));
        QFile file(fileName);
        if (!file.exists()) {
            file.open(QIODevice::WriteOnly);
            file.write(DOCUMENT);
            file.close();
        }
        auto cfg = std::make_unique<OpenCfgXml>(fileName, key, view);
        cfg->SuppressSideFiles(true);
        cfg->OpenDocument(false);
        return cfg;
    }

    /// One backend per row: the in-memory one and the XML one.
    static void AddBackendRows()
    {
        QTest::addColumn<bool>("xml");
        QTest::newRow("memory") << false;
        QTest::newRow("xml") << true;
    }

    ICfg* Backend(bool xml, ICfg::View view, std::unique_ptr<ICfg>& holder)
    {
        if (xml)
            holder = NewXml(QStringLiteral("App"), view);
        else
            holder = std::make_unique<MemoryCfg>(QStringLiteral("App"), view);
        return holder.get();
    }

    static bool IsStringWritable(ICfg* cfg, const QString& name, ICfg::View view)
    {
        if (auto* memory = dynamic_cast<MemoryCfg*>(cfg))
            return memory->IsStringWritable(name, view);
        return static_cast<OpenCfgXml*>(cfg)->IsStringWritable(name, view);
    }

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY2(m_dir->isValid(), qPrintable(m_dir->errorString()));
    }

    void cleanup()
    {
        CfgCenterTestAccess::Reset();
        m_dir.reset();
    }

    void enumerationsHaveTheirNumbers()
    {
        QCOMPARE(int(ICfg::VIEW_Current), 0);
        QCOMPARE(int(ICfg::VIEW_User), 1);
        QCOMPARE(int(ICfg::VIEW_Machine), 2);
        QCOMPARE(int(ICfg::VIEW_Domain), 3);
        QCOMPARE(int(ICfg::VIEW_System), 4);
        QCOMPARE(int(ICfg::VIEW_Export), 5);
        QCOMPARE(int(ICfg::TYPE_String), 0);
        QCOMPARE(int(ICfg::TYPE_Boolean), 1);
        QCOMPARE(int(ICfg::TYPE_Integer), 2);
        QCOMPARE(int(ICfg::TYPE_Undefined), 3);
        QCOMPARE(sizeof(ICfg::View), size_t(4));
        QCOMPARE(sizeof(ICfg::AttributeType), size_t(4));
    }

    void virtualOperationsKeepTheirTableOrder()
    {
#if defined(_WIN32) || !defined(__GNUC__)
        QSKIP("The layout check reads pointers to members of the Itanium C++ ABI.");
#else
        // The two destructor entries come first.
        QList<long> table = {
            SlotOf(&ICfg::GetKey),           SlotOf(&ICfg::GetType),          SlotOf(&ICfg::GetTarget),
            SlotOf(&ICfg::GetPartialKey),    SlotOf(&ICfg::GetAppKey),        SlotOf(&ICfg::CreateSubCfg),
            SlotOf(&ICfg::CreateSubCfgAt),   SlotOf(&ICfg::SelectView),       SlotOf(&ICfg::AddSubCfg),
            SlotOf(&ICfg::HasSubCfg),        SlotOf(&ICfg::HasAttribute),     SlotOf(&ICfg::RemoveAttribute),
            SlotOf(&ICfg::RemoveSubCfg),     SlotOf(&ICfg::RenameAttribute),  SlotOf(&ICfg::MoveSubCfg),
            SlotOf(&ICfg::IsProtected),      SlotOf(&ICfg::GetAttributeType), SlotOf(&ICfg::GetString),
            SlotOf(&ICfg::GetInteger),       SlotOf(&ICfg::GetBoolean),       SlotOf(&ICfg::SetProtected),
            SlotOf(&ICfg::SetAttributeType), SlotOf(&ICfg::SetString),        SlotOf(&ICfg::SetInteger),
            SlotOf(&ICfg::SetBoolean),       SlotOf(&ICfg::GetValueKeyAt)};
        table += SlotProbe::ProtectedSlots();
        table += {SlotOf(&ICfg::OpenDocument),
                  SlotOf(&ICfg::CloseDocument),
                  SlotOf(&ICfg::RestoreBackup),
                  SlotOf(&ICfg::GetBackupDocumentName),
                  SlotOf(&ICfg::SetUserViewSubkey),
                  SlotOf(&ICfg::SetAdditionalUserViewSubkey),
                  SlotOf(&ICfg::GetAdditionalUserViewSubkey),
                  SlotOf(&ICfg::SaveConfigurationName),
                  SlotOf(&ICfg::RenameConfigurationName),
                  SlotOf(&ICfg::DeleteConfigurationName),
                  SlotOf(&ICfg::LoadConfigurationName),
                  SlotOf(&ICfg::GetUserConfigurations),
                  SlotOf(&ICfg::GetUsers),
                  SlotOf(&ICfg::DeleteUser),
                  SlotOf(&ICfg::GetActiveUserConfiguraton),
                  SlotOf(&ICfg::UsingUserConfiguration),
                  SlotOf(&ICfg::GetCfgAsStringFromApp),
                  SlotOf(&ICfg::MergeCfgFromStringAndApp)};
        table += SlotProbe::PrimitiveSlots();
        QCOMPARE(table.size(), 56);
        for (int i = 0; i < table.size(); ++i)
            QCOMPARE(table.at(i), long(i + 2));
#endif
    }

    void viewTexts_data()
    {
        QTest::addColumn<int>("view");
        QTest::addColumn<QString>("text");
        QTest::newRow("current_is_something_wrong") << 0 << "something_wrong";
        QTest::newRow("user") << 1 << "User";
        QTest::newRow("machine") << 2 << "Machine";
        QTest::newRow("domain") << 3 << "Domain";
        QTest::newRow("system") << 4 << "System";
        QTest::newRow("export") << 5 << "Export";
        QTest::newRow("six_is_something_wrong") << 6 << "something_wrong";
        QTest::newRow("negative_is_something_wrong") << -1 << "something_wrong";
    }

    void viewTexts()
    {
        QFETCH(int, view);
        QFETCH(QString, text);
        QCOMPARE(ICfg::GetViewAsString(ICfg::View(view)), text);
    }

    void typeTexts_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QString>("text");
        QTest::newRow("string") << 0 << "string";
        QTest::newRow("boolean") << 1 << "boolean";
        QTest::newRow("integer") << 2 << "integer";
        QTest::newRow("undefined") << 3 << "undefined";
        QTest::newRow("four_is_something_wrong") << 4 << "something_wrong";
        QTest::newRow("negative_is_something_wrong") << -7 << "something_wrong";
    }

    void typeTexts()
    {
        QFETCH(int, type);
        QFETCH(QString, text);
        QCOMPARE(ICfg::GetTypeAsString(ICfg::AttributeType(type)), text);
    }

    void versionConstantsAndMarkers()
    {
        QCOMPARE(Cfg::VERSION_2_0, QStringLiteral("2.0"));
        QCOMPARE(Cfg::VERSION_2_1, QStringLiteral("2.1"));
        QCOMPARE(Cfg::VERSION_2_2, QStringLiteral("2.2"));
        QCOMPARE(Cfg::VERSION_2_3, QStringLiteral("2.3"));
        QCOMPARE(Cfg::VERSION_2_4, QStringLiteral("2.4"));
        QVERIFY(Cfg::VERSION_2_0 < Cfg::VERSION_2_4);
        QCOMPARE(MemoryCfg::NOT_FOUND_STRING, QStringLiteral("#+uookjhuzr6cv342AXCUZ"));
        QCOMPARE(MemoryCfg::NOT_FOUND_INTEGER, -1347440721L);
        QCOMPARE(qint32(MemoryCfg::NOT_FOUND_INTEGER), qint32(0xAFAFAFAFu));
    }

    void storedMarkerReadsAsAbsent()
    {
        MemoryCfg cfg(QStringLiteral("App"), ICfg::VIEW_Machine);
        cfg.Put(ICfg::VIEW_Machine, QStringLiteral("s"), QStringLiteral("#+uookjhuzr6cv342AXCUZ"));
        cfg.Put(ICfg::VIEW_Machine, QStringLiteral("i"), QStringLiteral("-1347440721"));
        QCOMPARE(cfg.GetString(QStringLiteral("s"), QStringLiteral("dflt")), QStringLiteral("dflt"));
        QCOMPARE(cfg.GetInteger(QStringLiteral("i"), 17), 17L);
    }

    void getStringOnAbsentValueGivesTheDefault_data()
    {
        AddBackendRows();
    }

    void getStringOnAbsentValueGivesTheDefault()
    {
        QFETCH(bool, xml);
        std::unique_ptr<ICfg> holder;
        ICfg* cfg = Backend(xml, ICfg::VIEW_Machine, holder);
        QCOMPARE(cfg->GetString(QStringLiteral("Missing"), QStringLiteral("dflt")), QStringLiteral("dflt"));
        QCOMPARE(cfg->GetString(QStringLiteral("Missing"), QStringLiteral("dflt"), ICfg::VIEW_User),
                 QStringLiteral("dflt"));
        QCOMPARE(cfg->GetInteger(QStringLiteral("Missing"), 42), 42L);
        QCOMPARE(cfg->GetInteger(QStringLiteral("Missing"), 42, ICfg::VIEW_System), 42L);
        QCOMPARE(cfg->GetBoolean(QStringLiteral("Missing"), true), true);
        QCOMPARE(cfg->GetBoolean(QStringLiteral("Missing"), false, ICfg::VIEW_Domain), false);
    }

    void currentViewReachesThePrimitivesAsTheSelectedView()
    {
        MemoryCfg cfg(QStringLiteral("App"), ICfg::VIEW_Domain);
        cfg.GetString(QStringLiteral("a"), QString());
        cfg.GetInteger(QStringLiteral("a"), 0);
        cfg.SetString(QStringLiteral("a"), QStringLiteral("x"));
        cfg.SetInteger(QStringLiteral("b"), 1);
        cfg.SetBoolean(QStringLiteral("c"), true);
        cfg.GetValueKeyAt(0);
        delete cfg.CreateSubCfgAt(0);
        QCOMPARE(cfg.primitiveViews.size(), 7);
        for (const ICfg::View view : cfg.primitiveViews)
            QCOMPARE(view, ICfg::VIEW_Domain);
        cfg.primitiveViews.clear();
        cfg.GetString(QStringLiteral("a"), QString(), ICfg::VIEW_Export);
        QCOMPARE(cfg.primitiveViews, QList<ICfg::View>{ICfg::VIEW_Export});
    }

    void explicitViewPassesTheDefaultToTheBackend()
    {
        MemoryCfg cfg(QStringLiteral("App"), ICfg::VIEW_User);
        cfg.Put(ICfg::VIEW_Machine, QStringLiteral("a"), QStringLiteral("machine"));
        QCOMPARE(cfg.GetString(QStringLiteral("a"), QStringLiteral("d")), QStringLiteral("d"));
        QCOMPARE(cfg.GetString(QStringLiteral("a"), QStringLiteral("d"), ICfg::VIEW_Machine),
                 QStringLiteral("machine"));
    }

    void booleanFromStoredText_data()
    {
        QTest::addColumn<bool>("xml");
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("expected");
        for (const bool xml : {false, true}) {
            const QString backend = xml ? QStringLiteral("xml_") : QStringLiteral("memory_");
            const auto row = [&](const char* name, const char* text, bool expected) {
                QTest::newRow(qPrintable(backend + QLatin1String(name)))
                    << xml << QString::fromUtf8(text) << expected;
            };
            row("upper_TRUE_is_true", "TRUE", true);
            row("capital_True_is_true", "True", true);
            row("untrue_contains_true", "untrue", true);
            row("false_is_false", "false", false);
            row("maybe_is_false", "maybe", false);
            row("yes_is_false", "yes", false);
            row("integer_0_is_false", "0", false);
            row("integer_minus_5_is_true", "-5", true);
        }
    }

    void booleanFromStoredText()
    {
        QFETCH(bool, xml);
        QFETCH(QString, text);
        QFETCH(bool, expected);
        std::unique_ptr<ICfg> holder;
        ICfg* cfg = Backend(xml, ICfg::VIEW_Machine, holder);
        cfg->SetString(QStringLiteral("Flag"), text);
        QCOMPARE(cfg->GetBoolean(QStringLiteral("Flag"), !expected), expected);
        QCOMPARE(cfg->GetBoolean(QStringLiteral("Flag"), !expected, ICfg::VIEW_Machine), expected);
    }

    void storedIntegersReadAsBooleans()
    {
        MemoryCfg cfg(QStringLiteral("App"), ICfg::VIEW_Machine);
        cfg.SetInteger(QStringLiteral("zero"), 0);
        cfg.SetInteger(QStringLiteral("minusFive"), -5);
        QCOMPARE(cfg.GetBoolean(QStringLiteral("zero"), true), false);
        QCOMPARE(cfg.GetBoolean(QStringLiteral("minusFive"), false), true);
    }

    void integersAreThirtyTwoBits()
    {
        MemoryCfg cfg(QStringLiteral("App"), ICfg::VIEW_Machine);
        cfg.SetInteger(QStringLiteral("max"), 2147483647L);
        cfg.SetInteger(QStringLiteral("min"), -2147483647L - 1);
        QCOMPARE(cfg.Text(ICfg::VIEW_Machine, QStringLiteral("max")), QStringLiteral("2147483647"));
        QCOMPARE(cfg.GetInteger(QStringLiteral("min"), 0), -2147483647L - 1);
        if (sizeof(long) > 4) {
            cfg.SetInteger(QStringLiteral("wide"), static_cast<long>(0x100000005LL));
            QCOMPARE(cfg.Text(ICfg::VIEW_Machine, QStringLiteral("wide")), QStringLiteral("5"));
        }
    }

    void selectViewCurrentLeavesTheViewUnchanged()
    {
        MemoryCfg cfg(QStringLiteral("App"), ICfg::VIEW_Export);
        cfg.SelectView(ICfg::VIEW_Current);
        cfg.GetString(QStringLiteral("a"), QString());
        QCOMPARE(cfg.primitiveViews.last(), ICfg::VIEW_Export);
        cfg.SelectView(ICfg::VIEW_System);
        cfg.GetString(QStringLiteral("a"), QString());
        QCOMPARE(cfg.primitiveViews.last(), ICfg::VIEW_System);
    }

    void copyKeepsKeyAndView()
    {
        MemoryCfg original(QStringLiteral("App\\Sub"), ICfg::VIEW_Domain);
        MemoryCfg copy(original);
        QCOMPARE(copy.GetKey(), QStringLiteral("App\\Sub"));
        copy.GetString(QStringLiteral("a"), QString());
        QCOMPARE(copy.primitiveViews.last(), ICfg::VIEW_Domain);
        MemoryCfg assigned(QStringLiteral("Other"), ICfg::VIEW_User);
        assigned = original;
        QCOMPARE(assigned.GetKey(), QStringLiteral("App\\Sub"));
    }

    void keyParts_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("appKey");
        QTest::addColumn<QString>("partialKey");
        QTest::newRow("three_components") << "App\\Sub\\Leaf"
                                          << "App"
                                          << "Leaf";
        QTest::newRow("one_component") << "App"
                                       << "App"
                                       << "App";
        QTest::newRow("empty_key") << ""
                                   << "Configuration Service"
                                   << "";
        QTest::newRow("trailing_backslash") << "App\\"
                                            << "App"
                                            << "";
    }

    void keyParts()
    {
        QFETCH(QString, key);
        QFETCH(QString, appKey);
        QFETCH(QString, partialKey);
        MemoryCfg cfg(key, ICfg::VIEW_Machine);
        QCOMPARE(cfg.GetKey(), key);
        QCOMPARE(cfg.GetAppKey(), appKey);
        QCOMPARE(cfg.GetPartialKey(), partialKey);
    }

    void writability_data()
    {
        QTest::addColumn<bool>("xml");
        QTest::addColumn<int>("storedIn");
        QTest::addColumn<int>("askedFor");
        QTest::addColumn<bool>("writable");
        for (const bool xml : {false, true}) {
            const QString backend = xml ? QStringLiteral("xml_") : QStringLiteral("memory_");
            const auto row = [&](const char* name, ICfg::View stored, ICfg::View asked, bool writable) {
                QTest::newRow(qPrintable(backend + QLatin1String(name)))
                    << xml << int(stored) << int(asked) << writable;
            };
            row("user_value_masks_machine", ICfg::VIEW_User, ICfg::VIEW_Machine, false);
            row("domain_value_masks_machine", ICfg::VIEW_Domain, ICfg::VIEW_Machine, false);
            row("system_value_does_not_mask_machine", ICfg::VIEW_System, ICfg::VIEW_Machine, true);
            row("export_value_does_not_mask_machine", ICfg::VIEW_Export, ICfg::VIEW_Machine, true);
            row("machine_value_masks_user", ICfg::VIEW_Machine, ICfg::VIEW_User, false);
            row("machine_value_masks_system", ICfg::VIEW_Machine, ICfg::VIEW_System, false);
            row("machine_value_masks_domain", ICfg::VIEW_Machine, ICfg::VIEW_Domain, false);
            row("machine_value_masks_export", ICfg::VIEW_Machine, ICfg::VIEW_Export, false);
            row("domain_value_does_not_mask_user", ICfg::VIEW_Domain, ICfg::VIEW_User, true);
            row("own_machine_value_is_writable", ICfg::VIEW_Machine, ICfg::VIEW_Machine, true);
            row("current_resolves_to_machine", ICfg::VIEW_User, ICfg::VIEW_Current, false);
        }
    }

    void writability()
    {
        QFETCH(bool, xml);
        QFETCH(int, storedIn);
        QFETCH(int, askedFor);
        QFETCH(bool, writable);
        std::unique_ptr<ICfg> holder;
        ICfg* cfg = Backend(xml, ICfg::VIEW_Machine, holder);
        MemoryCfg doc(QString(), ICfg::VIEW_Machine);
        CfgCenterTestAccess::SetDocCfg(&doc);
        cfg->SetString(QStringLiteral("s"), QStringLiteral("text"), ICfg::View(storedIn));
        cfg->SetInteger(QStringLiteral("i"), 7, ICfg::View(storedIn));
        cfg->SetBoolean(QStringLiteral("b"), false, ICfg::View(storedIn));
        QCOMPARE(IsStringWritable(cfg, QStringLiteral("s"), ICfg::View(askedFor)), writable);
        if (auto* memory = dynamic_cast<MemoryCfg*>(cfg)) {
            QCOMPARE(memory->IsIntegerWritable(QStringLiteral("i"), ICfg::View(askedFor)), writable);
            QCOMPARE(memory->IsBooleanWritable(QStringLiteral("b"), ICfg::View(askedFor)), writable);
        } else {
            auto* open = static_cast<OpenCfgXml*>(cfg);
            QCOMPARE(open->IsIntegerWritable(QStringLiteral("i"), ICfg::View(askedFor)), writable);
            QCOMPARE(open->IsBooleanWritable(QStringLiteral("b"), ICfg::View(askedFor)), writable);
        }
        QCOMPARE(IsStringWritable(cfg, QStringLiteral("absent"), ICfg::View(askedFor)), true);
    }

    void documentConfigurationIsAlwaysWritable()
    {
        MemoryCfg doc(QString(), ICfg::VIEW_Machine);
        doc.SetString(QStringLiteral("s"), QStringLiteral("user"), ICfg::VIEW_User);
        MemoryCfg someOther(QString(), ICfg::VIEW_Machine);
        CfgCenterTestAccess::SetDocCfg(&someOther);
        QCOMPARE(doc.IsStringWritable(QStringLiteral("s"), ICfg::VIEW_Machine), false);
        CfgCenterTestAccess::SetDocCfg(&doc);
        QCOMPARE(doc.IsStringWritable(QStringLiteral("s"), ICfg::VIEW_Machine), true);
        QCOMPARE(doc.IsIntegerWritable(QStringLiteral("s"), ICfg::VIEW_Machine), true);
        QCOMPARE(doc.IsBooleanWritable(QStringLiteral("s"), ICfg::VIEW_Machine), true);
        MemoryCfg other(QString(), ICfg::VIEW_Machine);
        other.SetString(QStringLiteral("s"), QStringLiteral("user"), ICfg::VIEW_User);
        QCOMPARE(other.IsStringWritable(QStringLiteral("s"), ICfg::VIEW_Machine), false);
    }

    void writabilityAsksForTheDocumentConfigurationInTheMachineView()
    {
        MemoryCfg doc(QString(), ICfg::VIEW_User);
        CfgCenterTestAccess::SetDocCfg(&doc);
        MemoryCfg cfg(QString(), ICfg::VIEW_User);
        QCOMPARE(cfg.IsStringWritable(QStringLiteral("s"), ICfg::VIEW_User), true);
        QCOMPARE(doc.GetSelectedView(), ICfg::VIEW_Machine);
        QCOMPARE(cfg.GetSelectedView(), ICfg::VIEW_User);
    }

    void writabilityWithoutDocumentConfigurationThrows_data()
    {
        QTest::addColumn<int>("kind");
        QTest::newRow("string") << 0;
        QTest::newRow("integer") << 1;
        QTest::newRow("boolean") << 2;
    }

    void writabilityWithoutDocumentConfigurationThrows()
    {
        QFETCH(int, kind);
        MemoryCfg cfg(QString(), ICfg::VIEW_Machine);
        CompareKVException(
            CaughtKVException([&] {
                if (kind == 0)
                    cfg.IsStringWritable(QStringLiteral("s"), ICfg::VIEW_Machine);
                else if (kind == 1)
                    cfg.IsIntegerWritable(QStringLiteral("s"), ICfg::VIEW_Machine);
                else
                    cfg.IsBooleanWritable(QStringLiteral("s"), ICfg::VIEW_Machine);
            }),
            QStringLiteral("CfgCenter::GetDocCfg(), called, before calling CfgCenter::CfgCenter()"),
            QStringLiteral("configuration/cfgcenter"), QStringLiteral("CfgCenter"),
            QStringLiteral("GetDocCfg"));
    }

    void saveDocumentWithoutDocumentConfigurationDoesNothing()
    {
        FakeZentOS os;
        MemoryCfg cfg(QStringLiteral("App"), ICfg::VIEW_Machine);
        cfg.SaveDocument();
        QVERIFY(cfg.primitiveViews.isEmpty());
    }

    void saveDocumentWritesTheMachineNameIntoTheDocumentConfiguration()
    {
        FakeZentOS os;
        os.workStationName = L"BUILDHOST";
        MemoryCfg doc(QString(), ICfg::VIEW_Domain);
        MemoryCfg cfg(QStringLiteral("App"), ICfg::VIEW_Machine);
        CfgCenterTestAccess::SetDocCfg(&doc);
        cfg.SaveDocument();
        QCOMPARE(doc.Text(ICfg::VIEW_Domain, QStringLiteral("name")), QStringLiteral("BUILDHOST"));
        QVERIFY(cfg.primitiveViews.isEmpty());
    }

    void everyOperationHoldsTheCentresMutex()
    {
        QMutex mutex(QMutex::Recursive);
        CfgCenterTestAccess::SetMutex(&mutex);
        MemoryCfg cfg(QStringLiteral("App"), ICfg::VIEW_Machine);
        int checks = 0;
        int heldElsewhere = 0;
        cfg.onPrimitive = [&] {
            ++checks;
            bool locked = false;
            std::thread other([&] {
                locked = !mutex.tryLock();
                if (!locked)
                    mutex.unlock();
            });
            other.join();
            heldElsewhere += locked ? 1 : 0;
        };
        cfg.SetString(QStringLiteral("a"), QStringLiteral("true"));
        cfg.SetInteger(QStringLiteral("b"), 3);
        cfg.SetBoolean(QStringLiteral("c"), true);
        cfg.GetString(QStringLiteral("a"), QString());
        cfg.GetInteger(QStringLiteral("b"), 0);
        QCOMPARE(cfg.GetBoolean(QStringLiteral("a"), false), true);
        cfg.GetValueKeyAt(0);
        delete cfg.CreateSubCfgAt(0);
        QVERIFY(checks >= 9);
        QCOMPARE(heldElsewhere, checks);
        QVERIFY(mutex.tryLock());
        mutex.unlock();
    }

    void iterationEndsWithNullAndEmpty()
    {
        MemoryCfg cfg(QStringLiteral("App"), ICfg::VIEW_Machine);
        cfg.AddSubCfg(QStringLiteral("One"), ICfg::VIEW_Current);
        cfg.AddSubCfg(QStringLiteral("Two"), ICfg::VIEW_Current);
        cfg.SetString(QStringLiteral("a"), QStringLiteral("1"));
        cfg.SetString(QStringLiteral("b"), QStringLiteral("2"));
        QStringList children;
        for (int index = 0;; ++index) {
            std::unique_ptr<ICfg> child(cfg.CreateSubCfgAt(index));
            if (!child)
                break;
            children.append(child->GetPartialKey());
        }
        QCOMPARE(children, (QStringList{QStringLiteral("One"), QStringLiteral("Two")}));
        QStringList values;
        for (int index = 0;; ++index) {
            const QString name = cfg.GetValueKeyAt(index);
            if (name.isEmpty())
                break;
            values.append(name);
        }
        QCOMPARE(values, (QStringList{QStringLiteral("a"), QStringLiteral("b")}));
    }

    void defaultOperationsDoNothing()
    {
        MemoryCfg cfg(QStringLiteral("App"), ICfg::VIEW_Machine);
        cfg.OpenDocument(true);
        cfg.CloseDocument();
        cfg.RestoreBackup();
        QCOMPARE(cfg.GetBackupDocumentName("Cfg.xml"), QString());
        QVERIFY(cfg.GetUserConfigurations().empty());
        QVERIFY(cfg.GetUsers().empty());
        cfg.DeleteUser(QStringLiteral("nobody"));
        QCOMPARE(cfg.GetActiveUserConfiguraton(), QString());
        QCOMPARE(cfg.UsingUserConfiguration(), false);
        QVERIFY(cfg.primitiveViews.isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_Cfg)
#include "tst_cfg.moc"
