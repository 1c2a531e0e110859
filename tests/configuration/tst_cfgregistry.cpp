#include "common/kvexceptioncheck.h"
#include "common/rawregistry.h"
#include "common/temporaryregistry.h"
#include "configuration/cfgregistry.h"
#include "kvbase/errorhandler.h"
#include "kvbase/kvexception.h"

#include <QFile>
#include <QFileInfo>
#include <QtTest>

#include <functional>
#include <map>
#include <memory>
#include <optional>

namespace {

const QString Root = QStringLiteral("SOFTWARE\\Velkor&Amsel\\Zent\\");

/// Opens the object's registry surroundings from outside, to see what it did.
class TestCfgRegistry : public CfgRegistry
{
public:
    TestCfgRegistry(const QString& path, View view, const QString& other = QString())
        : CfgRegistry(path, view, other)
    {
    }
    using CfgRegistry::GetIntegerImpl;
    using CfgRegistry::GetStringImpl;
    using CfgRegistry::GetVersion;
    using CfgRegistry::SaveDocument;
    using CfgRegistry::SetBooleanImpl;
    using CfgRegistry::SetIntegerImpl;
    using CfgRegistry::SetStringImpl;
};

/// A value as the registry holds it, or the error code as text.
QByteArray RawValue(HKEY root, const QString& key, const QString& name, DWORD* type = nullptr)
{
    return ReadRegistryValue(root, Root + key, name, type);
}

LONG SetRaw(HKEY root, const QString& key, const QString& name, DWORD type, const QByteArray& data)
{
    return WriteRegistryValue(root, Root + key, name, type, data);
}

LONG CreateRaw(HKEY root, const QString& key)
{
    return CreateRegistryKey(root, Root + key);
}

LONG KeyState(HKEY root, const QString& key)
{
    return RegistryKeyState(root, Root + key);
}

QStringList SubKeys(HKEY root, const QString& key)
{
    HKEY handle = nullptr;
    if (RegOpenKeyExW(root, W(Root + key), 0, KEY_READ, &handle) != ERROR_SUCCESS)
        return {QStringLiteral("<missing>")};
    const QStringList names = SubKeyNames(handle);
    RegCloseKey(handle);
    return names;
}

} // namespace

class tst_CfgRegistry : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<TemporaryRegistry> m_registry;
    QList<QPair<int, QString>> m_messages;

    void ExpectException(const std::optional<KVException>& e, const QString& message,
                         const QString& className, const QString& operation)
    {
        CompareKVException(e, message, QStringLiteral("configuration/cfgregistry"), className, operation);
    }

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void init()
    {
        m_registry.reset(new TemporaryRegistry);
        QVERIFY2(m_registry->isValid(), qPrintable(m_registry->errorString()));
        m_messages.clear();
        ErrorHandler::Instance().SetMessagePresenter(
            [this](ErrorHandler::MessageKind kind, const QString& text) {
                m_messages.append(qMakePair(static_cast<int>(kind), text));
            });
    }

    void cleanup()
    {
        ErrorHandler::Instance().SetMessagePresenter(ErrorHandler::MessagePresenter());
        m_registry.reset();
    }

    void constructionBuildsTheKeyPathWithoutTouchingTheRegistry()
    {
        TestCfgRegistry cfg(QStringLiteral("App/Sub/Leaf"), ICfg::VIEW_Machine);
        QCOMPARE(cfg.GetKey(), QStringLiteral("App\\Sub\\Leaf"));
        QCOMPARE(cfg.GetTarget(), QStringLiteral("SOFTWARE\\Velkor&Amsel\\Zent\\App\\Sub\\Leaf"));
        QCOMPARE(cfg.GetType(), QStringLiteral("Registry"));
        QCOMPARE(cfg.GetVersion(), QStringLiteral("2.0"));
        QCOMPARE(cfg.GetAppKey(), QStringLiteral("App"));
        QCOMPARE(cfg.GetPartialKey(), QStringLiteral("Leaf"));
        QVERIFY(!QFileInfo::exists(m_registry->filePath(QStringLiteral("HKEY_CURRENT_USER.db"))));
        QVERIFY(!QFileInfo::exists(m_registry->filePath(QStringLiteral("HKEY_LOCAL_MACHINE.db"))));
    }

    void readsOfAMissingKeyGiveDefaultsAndCreateNothing()
    {
        TestCfgRegistry cfg(QStringLiteral("Missing"), ICfg::VIEW_User);
        QCOMPARE(cfg.GetString(QStringLiteral("s"), QStringLiteral("def")), QStringLiteral("def"));
        QCOMPARE(cfg.GetString(QStringLiteral("s"), QStringLiteral("def"), ICfg::VIEW_Machine),
                 QStringLiteral("def"));
        QCOMPARE(cfg.GetInteger(QStringLiteral("i"), 17), 17L);
        QCOMPARE(cfg.GetBoolean(QStringLiteral("b"), true), true);
        QCOMPARE(cfg.HasAttribute(QString(), QStringLiteral("s")), false);
        QCOMPARE(cfg.HasSubCfg(QStringLiteral("x")), false);
        QCOMPARE(cfg.AddSubCfg(QStringLiteral("x")), false);
        QCOMPARE(cfg.RemoveAttribute(QStringLiteral("s")), false);
        QCOMPARE(cfg.RemoveSubCfg(QStringLiteral("x")), false);
        QCOMPARE(cfg.GetAttributeType(QStringLiteral("s")), ICfg::TYPE_Undefined);
        QCOMPARE(cfg.IsProtected(QStringLiteral("s"), ICfg::VIEW_User), false);
        QCOMPARE(cfg.CreateSubCfgAt(0), static_cast<ICfg*>(nullptr));
        QCOMPARE(cfg.GetValueKeyAt(0), QString());
        cfg.OpenDocument(true);
        cfg.SaveDocument();
        QCOMPARE(KeyState(HKEY_CURRENT_USER, QStringLiteral("Missing")), ERROR_FILE_NOT_FOUND);
        QCOMPARE(KeyState(HKEY_LOCAL_MACHINE, QStringLiteral("Missing")), ERROR_FILE_NOT_FOUND);
        QCOMPARE(KeyState(HKEY_CURRENT_USER, QString()), ERROR_FILE_NOT_FOUND);
    }

    void theFirstWriteCreatesTheKey()
    {
        TestCfgRegistry cfg(QStringLiteral("App/New"), ICfg::VIEW_User);
        QCOMPARE(cfg.GetString(QStringLiteral("s"), QStringLiteral("def")), QStringLiteral("def"));
        cfg.SetString(QStringLiteral("s"), QStringLiteral("Wert"));
        DWORD type = 0;
        QCOMPARE(RawValue(HKEY_CURRENT_USER, QStringLiteral("App\\New"), QStringLiteral("s"), &type),
                 Sz(QStringLiteral("Wert")));
        QCOMPARE(type, DWORD(REG_SZ));
        QCOMPARE(cfg.GetString(QStringLiteral("S"), QStringLiteral("def")), QStringLiteral("Wert"));
        QCOMPARE(KeyState(HKEY_LOCAL_MACHINE, QStringLiteral("App\\New")), ERROR_FILE_NOT_FOUND);
    }

    void anEmptyPathIsTheRootOfAllConfigurations()
    {
        TestCfgRegistry cfg(QString(), ICfg::VIEW_User);
        QCOMPARE(cfg.GetTarget(), QStringLiteral("SOFTWARE\\Velkor&Amsel\\Zent\\"));
        cfg.SetInteger(QStringLiteral("top"), 3);
        QCOMPARE(RawValue(HKEY_CURRENT_USER, QString(), QStringLiteral("top")), QByteArray("\x03\0\0\0", 4));
        QCOMPARE(cfg.GetAppKey(), QStringLiteral("Configuration Service"));
    }

    void anEmptySubKeyNameIsTheKeyItself()
    {
        TestCfgRegistry cfg(QStringLiteral("Self"), ICfg::VIEW_User);
        cfg.SetString(QStringLiteral("v"), QStringLiteral("x"));
        QCOMPARE(cfg.HasSubCfg(QString()), true);
        QCOMPARE(cfg.AddSubCfg(QString()), true);
        // The object's own handle stays open.
        QCOMPARE(cfg.GetString(QStringLiteral("v"), QString()), QStringLiteral("x"));
        cfg.SetString(QStringLiteral("w"), QStringLiteral("y"));
        QCOMPARE(RawValue(HKEY_CURRENT_USER, QStringLiteral("Self"), QStringLiteral("w")),
                 Sz(QStringLiteral("y")));
    }

    void addSubCfgStaysFalseUntilAWriteCreatesTheKey()
    {
        TestCfgRegistry cfg(QStringLiteral("Late"), ICfg::VIEW_User);
        QCOMPARE(cfg.GetInteger(QStringLiteral("i"), 1), 1L);
        // Someone else creates the key; the object remembers it as absent.
        QCOMPARE(CreateRaw(HKEY_CURRENT_USER, QStringLiteral("Late")), ERROR_SUCCESS);
        QCOMPARE(cfg.AddSubCfg(QStringLiteral("Child")), false);
        QCOMPARE(cfg.GetInteger(QStringLiteral("i"), 1), 1L);
        cfg.SetInteger(QStringLiteral("i"), 2);
        QCOMPARE(cfg.AddSubCfg(QStringLiteral("Child")), true);
        QCOMPARE(cfg.HasSubCfg(QStringLiteral("child")), true);
        QCOMPARE(SubKeys(HKEY_CURRENT_USER, QStringLiteral("Late")), QStringList{QStringLiteral("Child")});
        QCOMPARE(cfg.GetInteger(QStringLiteral("i"), 1), 2L);
    }

    void stringsLongerThan499CharactersAreNotReadable_data()
    {
        QTest::addColumn<int>("length");
        QTest::addColumn<bool>("readable");
        QTest::newRow("empty") << 0 << true;
        QTest::newRow("499_characters") << 499 << true;
        QTest::newRow("500_characters") << 500 << false;
        QTest::newRow("2000_characters") << 2000 << false;
    }

    void stringsLongerThan499CharactersAreNotReadable()
    {
        QFETCH(int, length);
        QFETCH(bool, readable);
        TestCfgRegistry cfg(QStringLiteral("Long"), ICfg::VIEW_User);
        const QString text(length, QLatin1Char('x'));
        cfg.SetString(QStringLiteral("s"), text);
        QCOMPARE(RawValue(HKEY_CURRENT_USER, QStringLiteral("Long"), QStringLiteral("s")), Sz(text));
        QCOMPARE(cfg.GetStringImpl(QStringLiteral("s"), QStringLiteral("def"), ICfg::VIEW_User),
                 readable ? text : QStringLiteral("def"));
        QCOMPARE(cfg.HasAttribute(QStringLiteral("ignored"), QStringLiteral("s")), readable);
        QCOMPARE(cfg.GetAttributeType(QStringLiteral("s")), ICfg::TYPE_String);
    }

    void booleansAreStoredAsStrings()
    {
        TestCfgRegistry cfg(QStringLiteral("Bool"), ICfg::VIEW_User);
        cfg.SetBooleanImpl(QStringLiteral("b"), true, ICfg::VIEW_User);
        QCOMPARE(cfg.GetAttributeType(QStringLiteral("b")), ICfg::TYPE_String);
        DWORD type = 0;
        QCOMPARE(RawValue(HKEY_CURRENT_USER, QStringLiteral("Bool"), QStringLiteral("b"), &type),
                 Sz(QStringLiteral("true")));
        QCOMPARE(type, DWORD(REG_SZ));
        QCOMPARE(cfg.GetBoolean(QStringLiteral("b"), false), true);
        cfg.SetBoolean(QStringLiteral("b"), false);
        QCOMPARE(RawValue(HKEY_CURRENT_USER, QStringLiteral("Bool"), QStringLiteral("b")),
                 Sz(QStringLiteral("false")));
        QCOMPARE(cfg.GetBoolean(QStringLiteral("b"), true), false);
    }

    void integersAreDwords()
    {
        TestCfgRegistry cfg(QStringLiteral("Int"), ICfg::VIEW_User);
        cfg.SetIntegerImpl(QStringLiteral("n"), -5, ICfg::VIEW_User);
        cfg.SetInteger(QStringLiteral("zero"), 0);
        DWORD type = 0;
        QCOMPARE(RawValue(HKEY_CURRENT_USER, QStringLiteral("Int"), QStringLiteral("n"), &type),
                 QByteArray("\xfb\xff\xff\xff"));
        QCOMPARE(type, DWORD(REG_DWORD));
        QCOMPARE(cfg.GetIntegerImpl(QStringLiteral("n"), 0, ICfg::VIEW_User), -5L);
        QCOMPARE(cfg.GetAttributeType(QStringLiteral("n")), ICfg::TYPE_Integer);
        QCOMPARE(cfg.HasAttribute(QString(), QStringLiteral("n")), true);
        QCOMPARE(cfg.GetBoolean(QStringLiteral("n"), false), true);
        QCOMPARE(cfg.GetBoolean(QStringLiteral("zero"), true), false);
        // Strings are no integers and integers no strings.
        QCOMPARE(cfg.GetStringImpl(QStringLiteral("n"), QStringLiteral("def"), ICfg::VIEW_User),
                 QStringLiteral("def"));
        cfg.SetString(QStringLiteral("s"), QStringLiteral("12"));
        QCOMPARE(cfg.GetIntegerImpl(QStringLiteral("s"), 99, ICfg::VIEW_User), 99L);
    }

    void otherRegistryTypes()
    {
        QCOMPARE(SetRaw(HKEY_CURRENT_USER, QStringLiteral("Types"), QStringLiteral("exp"), REG_EXPAND_SZ,
                        Sz(QStringLiteral("%HOME%\\x"))),
                 ERROR_SUCCESS);
        QCOMPARE(SetRaw(HKEY_CURRENT_USER, QStringLiteral("Types"), QStringLiteral("bin"), REG_BINARY,
                        QByteArray("\x01\x02")),
                 ERROR_SUCCESS);
        TestCfgRegistry cfg(QStringLiteral("Types"), ICfg::VIEW_User);
        QCOMPARE(cfg.GetString(QStringLiteral("exp"), QString()), QStringLiteral("%HOME%\\x"));
        QCOMPARE(cfg.HasAttribute(QString(), QStringLiteral("exp")), true);
        QCOMPARE(cfg.GetAttributeType(QStringLiteral("exp")), ICfg::TYPE_String);
        QCOMPARE(cfg.GetString(QStringLiteral("bin"), QStringLiteral("def")), QStringLiteral("def"));
        QCOMPARE(cfg.GetInteger(QStringLiteral("bin"), 3), 3L);
        QCOMPARE(cfg.HasAttribute(QString(), QStringLiteral("bin")), false);
        QCOMPARE(cfg.GetAttributeType(QStringLiteral("bin")), ICfg::TYPE_String);
        QCOMPARE(cfg.IsProtected(QStringLiteral("bin"), ICfg::VIEW_User), true);
    }

    void viewsReadTheirHive_data()
    {
        QTest::addColumn<int>("view");
        QTest::addColumn<QString>("expected");
        QTest::newRow("user") << int(ICfg::VIEW_User) << QStringLiteral("user");
        QTest::newRow("machine") << int(ICfg::VIEW_Machine) << QStringLiteral("machine");
        QTest::newRow("domain_reads_the_machine_key") << int(ICfg::VIEW_Domain) << QStringLiteral("machine");
        QTest::newRow("system_reads_the_machine_key") << int(ICfg::VIEW_System) << QStringLiteral("machine");
    }

    void viewsReadTheirHive()
    {
        QFETCH(int, view);
        QFETCH(QString, expected);
        QCOMPARE(SetRaw(HKEY_CURRENT_USER, QStringLiteral("Views"), QStringLiteral("v"), REG_SZ,
                        Sz(QStringLiteral("user"))),
                 ERROR_SUCCESS);
        QCOMPARE(SetRaw(HKEY_LOCAL_MACHINE, QStringLiteral("Views"), QStringLiteral("v"), REG_SZ,
                        Sz(QStringLiteral("machine"))),
                 ERROR_SUCCESS);
        TestCfgRegistry explicitView(QStringLiteral("Views"), ICfg::VIEW_User);
        QCOMPARE(explicitView.GetString(QStringLiteral("v"), QString(), ICfg::View(view)), expected);
        TestCfgRegistry selected(QStringLiteral("Views"), ICfg::View(view));
        QCOMPARE(selected.GetString(QStringLiteral("v"), QString()), expected);
        selected.SelectView(ICfg::VIEW_Current);
        QCOMPARE(selected.GetString(QStringLiteral("v"), QString(), ICfg::VIEW_Current), expected);
    }

    void creationMapsDomainAndSystemToTheUserKey_data()
    {
        QTest::addColumn<int>("view");
        QTest::addColumn<bool>("inUserHive");
        QTest::addColumn<QString>("readBack");
        QTest::newRow("user") << int(ICfg::VIEW_User) << true << QStringLiteral("written");
        QTest::newRow("machine") << int(ICfg::VIEW_Machine) << false << QStringLiteral("written");
        // Deliberately asymmetric: created in the user key, but read from the (still absent) machine key.
        QTest::newRow("domain") << int(ICfg::VIEW_Domain) << true << QStringLiteral("def");
        QTest::newRow("system") << int(ICfg::VIEW_System) << true << QStringLiteral("def");
    }

    void creationMapsDomainAndSystemToTheUserKey()
    {
        QFETCH(int, view);
        QFETCH(bool, inUserHive);
        QFETCH(QString, readBack);
        TestCfgRegistry cfg(QStringLiteral("Create"), ICfg::View(view));
        cfg.SetString(QStringLiteral("s"), QStringLiteral("written"));
        QCOMPARE(RawValue(inUserHive ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE, QStringLiteral("Create"),
                          QStringLiteral("s")),
                 Sz(QStringLiteral("written")));
        QCOMPARE(KeyState(inUserHive ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER, QStringLiteral("Create")),
                 ERROR_FILE_NOT_FOUND);
        QCOMPARE(cfg.GetString(QStringLiteral("s"), QStringLiteral("def")), readBack);
        // Later writes find no machine key either and go to the user key again.
        cfg.SetInteger(QStringLiteral("i"), 4);
        QCOMPARE(RawValue(inUserHive ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE, QStringLiteral("Create"),
                          QStringLiteral("i")),
                 QByteArray("\x04\0\0\0", 4));
    }

    void viewsOutsideUserAndMachineRaise_data()
    {
        QTest::addColumn<int>("view");
        QTest::newRow("export") << int(ICfg::VIEW_Export);
        QTest::newRow("unknown_7") << 7;
        QTest::newRow("negative") << -1;
    }

    void viewsOutsideUserAndMachineRaise()
    {
        QFETCH(int, view);
        TestCfgRegistry cfg(QStringLiteral("App"), ICfg::VIEW_User);
        const QString message = QStringLiteral("The argument view is neither VIEW_User nor VIEW_Machine.");
        const ICfg::View v = ICfg::View(view);
        ExpectException(CaughtKVException([&] { cfg.GetString(QStringLiteral("s"), QString(), v); }), message,
                        QStringLiteral("CfgRegistry"), QStringLiteral("GetHandle"));
        // Writing consults GetHandle before its own check of the view.
        ExpectException(CaughtKVException([&] { cfg.SetString(QStringLiteral("s"), QString(), v); }), message,
                        QStringLiteral("CfgRegistry"), QStringLiteral("GetHandle"));
        ExpectException(CaughtKVException([&] { cfg.SetInteger(QStringLiteral("s"), 1, v); }), message,
                        QStringLiteral("CfgRegistry"), QStringLiteral("GetHandle"));
        ExpectException(CaughtKVException([&] { cfg.HasSubCfg(QStringLiteral("s"), v); }), message,
                        QStringLiteral("CfgRegistry"), QStringLiteral("GetHandle"));
        TestCfgRegistry selected(QStringLiteral("App"), v);
        ExpectException(CaughtKVException([&] { selected.GetInteger(QStringLiteral("i"), 0); }), message,
                        QStringLiteral("CfgRegistry"), QStringLiteral("GetHandle"));
    }

    void isProtectedOnlyForTheExplicitUserView()
    {
        TestCfgRegistry cfg(QStringLiteral("Prot"), ICfg::VIEW_User);
        QCOMPARE(cfg.IsProtected(QStringLiteral("v"), ICfg::VIEW_User), false);
        cfg.SetString(QStringLiteral("v"), QStringLiteral("x"));
        QCOMPARE(SetRaw(HKEY_LOCAL_MACHINE, QStringLiteral("Prot"), QStringLiteral("m"), REG_DWORD,
                        QByteArray("\x01\0\0\0", 4)),
                 ERROR_SUCCESS);
        QCOMPARE(cfg.IsProtected(QStringLiteral("v"), ICfg::VIEW_User), true);
        QCOMPARE(cfg.IsProtected(QStringLiteral("V"), ICfg::VIEW_User), true);
        QCOMPARE(cfg.IsProtected(QStringLiteral("v"), ICfg::VIEW_Current), false);
        QCOMPARE(cfg.IsProtected(QStringLiteral("v"), ICfg::VIEW_Machine), false);
        QCOMPARE(cfg.IsProtected(QStringLiteral("m"), ICfg::VIEW_Machine), false);
        QCOMPARE(cfg.IsProtected(QStringLiteral("absent"), ICfg::VIEW_User), false);
        QCOMPARE(cfg.IsProtected(QStringLiteral("v"), ICfg::VIEW_Export), false);
    }

    void typeAndProtectionCannotBeChanged()
    {
        TestCfgRegistry cfg(QStringLiteral("Fixed"), ICfg::VIEW_User);
        cfg.SetInteger(QStringLiteral("n"), 1);
        cfg.SetAttributeType(QStringLiteral("n"), ICfg::TYPE_String);
        cfg.SetProtected(QStringLiteral("n"), false, ICfg::VIEW_User);
        QCOMPARE(m_messages.size(), 2);
        QCOMPARE(m_messages.at(0).first, int(ErrorHandler::MSG_Warning));
        QCOMPARE(m_messages.at(0).second,
                 QStringLiteral("The type is fixed in the windows registry and cannot be changed !"));
        QCOMPARE(m_messages.at(1).first, 1);
        QCOMPARE(
            m_messages.at(1).second,
            QStringLiteral("The protected flag is fixed in the windows registry and cannot be changed !"));
        QCOMPARE(cfg.GetAttributeType(QStringLiteral("n")), ICfg::TYPE_Integer);
        QCOMPARE(cfg.IsProtected(QStringLiteral("n"), ICfg::VIEW_User), true);
    }

    void renameAndMoveAreNotSupported()
    {
        TestCfgRegistry cfg(QStringLiteral("Ren"), ICfg::VIEW_User);
        cfg.SetString(QStringLiteral("old"), QStringLiteral("x"));
        cfg.AddSubCfg(QStringLiteral("From"));
        QCOMPARE(cfg.RenameAttribute(QStringLiteral("old"), QStringLiteral("new")), false);
        QCOMPARE(cfg.MoveSubCfg(QStringLiteral("From"), QStringLiteral("To")), false);
        QCOMPARE(cfg.GetString(QStringLiteral("old"), QString()), QStringLiteral("x"));
        QCOMPARE(cfg.GetString(QStringLiteral("new"), QStringLiteral("none")), QStringLiteral("none"));
        QCOMPARE(SubKeys(HKEY_CURRENT_USER, QStringLiteral("Ren")), QStringList{QStringLiteral("From")});
    }

    void removeAttributeDeletesTheValue()
    {
        TestCfgRegistry cfg(QStringLiteral("Rem"), ICfg::VIEW_User);
        cfg.SetString(QStringLiteral("v"), QStringLiteral("x"));
        QCOMPARE(cfg.RemoveAttribute(QStringLiteral("V")), true);
        QCOMPARE(cfg.RemoveAttribute(QStringLiteral("v")), false);
        QCOMPARE(RawValue(HKEY_CURRENT_USER, QStringLiteral("Rem"), QStringLiteral("v")),
                 QByteArray("error 2"));
    }

    void createSubCfgJoinsPaths_data()
    {
        QTest::addColumn<QString>("parent");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("key");
        QTest::newRow("slash_becomes_backslash")
            << QStringLiteral("App") << QStringLiteral("Sub/Leaf") << QStringLiteral("App\\Sub\\Leaf");
        QTest::newRow("empty_parent") << QString() << QStringLiteral("Sub") << QStringLiteral("Sub");
        QTest::newRow("leading_backslash")
            << QStringLiteral("App") << QStringLiteral("\\Sub") << QStringLiteral("App\\Sub");
        QTest::newRow("leading_slash")
            << QStringLiteral("App") << QStringLiteral("/Sub") << QStringLiteral("App\\Sub");
        QTest::newRow("empty_name") << QStringLiteral("App") << QString() << QStringLiteral("App");
    }

    void createSubCfgJoinsPaths()
    {
        QFETCH(QString, parent);
        QFETCH(QString, name);
        QFETCH(QString, key);
        TestCfgRegistry cfg(parent, ICfg::VIEW_User);
        std::unique_ptr<ICfg> sub(cfg.CreateSubCfg(name));
        QVERIFY(sub);
        QCOMPARE(sub->GetKey(), key);
        QCOMPARE(sub->GetType(), QStringLiteral("Registry"));
        QCOMPARE(sub->GetTarget(), Root + key);
        // No registry access: the sub-key need not exist.
        QCOMPARE(KeyState(HKEY_CURRENT_USER, key), ERROR_FILE_NOT_FOUND);
    }

    void createSubCfgTakesTheViewOrTheCurrentOne()
    {
        TestCfgRegistry cfg(QStringLiteral("App"), ICfg::VIEW_Machine);
        std::unique_ptr<ICfg> current(cfg.CreateSubCfg(QStringLiteral("A")));
        std::unique_ptr<ICfg> user(cfg.CreateSubCfg(QStringLiteral("B"), ICfg::VIEW_User));
        current->SetString(QStringLiteral("v"), QStringLiteral("1"));
        user->SetString(QStringLiteral("v"), QStringLiteral("2"));
        QCOMPARE(RawValue(HKEY_LOCAL_MACHINE, QStringLiteral("App\\A"), QStringLiteral("v")),
                 Sz(QStringLiteral("1")));
        QCOMPARE(RawValue(HKEY_CURRENT_USER, QStringLiteral("App\\B"), QStringLiteral("v")),
                 Sz(QStringLiteral("2")));
    }

    void iterationFollowsTheRegistryOrder()
    {
        TestCfgRegistry cfg(QStringLiteral("Iter"), ICfg::VIEW_User);
        cfg.SetString(QStringLiteral("zeta"), QStringLiteral("1"));
        cfg.SetInteger(QStringLiteral("alpha"), 2);
        for (const QString& name : {QStringLiteral("b"), QStringLiteral("C"), QStringLiteral("a")})
            QVERIFY(cfg.AddSubCfg(name));
        QStringList keys;
        for (int i = 0;; ++i) {
            std::unique_ptr<ICfg> sub(cfg.CreateSubCfgAt(i));
            if (!sub)
                break;
            keys << sub->GetKey();
        }
        QCOMPARE(keys, (QStringList{QStringLiteral("Iter\\a"), QStringLiteral("Iter\\b"),
                                    QStringLiteral("Iter\\C")}));
        QCOMPARE(cfg.GetValueKeyAt(0), QStringLiteral("zeta"));
        QCOMPARE(cfg.GetValueKeyAt(1), QStringLiteral("alpha"));
        QCOMPARE(cfg.GetValueKeyAt(2), QString());
        QCOMPARE(cfg.CreateSubCfgAt(-1), static_cast<ICfg*>(nullptr));
        QCOMPARE(cfg.GetValueKeyAt(-1), QString());
    }

    void removeSubCfgSkipsEverySecondSubKey_data()
    {
        QTest::addColumn<QStringList>("children");
        QTest::addColumn<QString>("removed");
        QTest::addColumn<bool>("result");
        QTest::addColumn<QStringList>("left");
        const QStringList four{QStringLiteral("A"), QStringLiteral("B"), QStringLiteral("C"),
                               QStringLiteral("D")};
        // The walk over the parent deletes A (index 0) and then C (index 1 after A went).
        QTest::newRow("second_of_four")
            << four << QStringLiteral("B") << true << QStringList{QStringLiteral("D")};
        QTest::newRow("first_of_four_is_gone_before_its_own_delete")
            << four << QStringLiteral("A") << false
            << (QStringList{QStringLiteral("B"), QStringLiteral("D")});
        QTest::newRow("nested_keys_keep_every_second_child")
            << QStringList{QStringLiteral("A\\a1"), QStringLiteral("A\\a2"), QStringLiteral("A\\a3"),
                           QStringLiteral("B"), QStringLiteral("C")}
            << QStringLiteral("C") << true << QStringList{QStringLiteral("A"), QStringLiteral("A\\a2")};
        QTest::newRow("missing_name") << QStringList{QStringLiteral("A"), QStringLiteral("B")}
                                      << QStringLiteral("X") << false << QStringList{QStringLiteral("B")};
    }

    void removeSubCfgSkipsEverySecondSubKey()
    {
        QFETCH(QStringList, children);
        QFETCH(QString, removed);
        QFETCH(bool, result);
        QFETCH(QStringList, left);
        TestCfgRegistry cfg(QStringLiteral("Tree"), ICfg::VIEW_User);
        cfg.SetInteger(QStringLiteral("own"), 1);
        for (const QString& child : children)
            QVERIFY(cfg.AddSubCfg(child));
        QCOMPARE(cfg.RemoveSubCfg(removed), result);
        QStringList remaining;
        for (const QString& child : SubKeys(HKEY_CURRENT_USER, QStringLiteral("Tree"))) {
            remaining << child;
            for (const QString& grandChild : SubKeys(HKEY_CURRENT_USER, QStringLiteral("Tree\\") + child))
                remaining << child + QLatin1Char('\\') + grandChild;
        }
        QCOMPARE(remaining, left);
        QCOMPARE(cfg.GetInteger(QStringLiteral("own"), 0), 1L);
    }

    void unsupportedOperationsRaise_data()
    {
        QTest::addColumn<QString>("operation");
        QTest::addColumn<QString>("message");
        const QString notSupported = QStringLiteral("operation is not supported for Registry configuration");
        for (const char* name : {"LoadConfigurationName", "SaveConfigurationName", "DeleteConfigurationName",
                                 "RenameConfigurationName", "SetUserViewSubkey",
                                 "SetAdditionalUserViewSubkey", "GetAdditionalUserViewSubkey"})
            QTest::newRow(name) << QString::fromLatin1(name) << notSupported;
        QTest::newRow("MergeCfgFromStringAndApp")
            << QStringLiteral("MergeCfgFromStringAndApp")
            << QStringLiteral("Server operation is not supported for Registry configuration");
    }

    void unsupportedOperationsRaise()
    {
        QFETCH(QString, operation);
        QFETCH(QString, message);
        TestCfgRegistry cfg(QStringLiteral("App"), ICfg::VIEW_User);
        const QString n = QStringLiteral("n");
        const std::map<QString, std::function<void()>> calls{
            {QStringLiteral("LoadConfigurationName"), [&] { cfg.LoadConfigurationName(n); }},
            {QStringLiteral("SaveConfigurationName"), [&] { cfg.SaveConfigurationName(n); }},
            {QStringLiteral("DeleteConfigurationName"), [&] { cfg.DeleteConfigurationName(n); }},
            {QStringLiteral("RenameConfigurationName"), [&] { cfg.RenameConfigurationName(n, n); }},
            {QStringLiteral("SetUserViewSubkey"), [&] { cfg.SetUserViewSubkey(n); }},
            {QStringLiteral("SetAdditionalUserViewSubkey"), [&] { cfg.SetAdditionalUserViewSubkey({n}); }},
            {QStringLiteral("GetAdditionalUserViewSubkey"), [&] { cfg.GetAdditionalUserViewSubkey(); }},
            {QStringLiteral("MergeCfgFromStringAndApp"), [&] { cfg.MergeCfgFromStringAndApp("x", n); }},
        };
        ExpectException(CaughtKVException(calls.at(operation)), message, QStringLiteral("CfgRegistry"),
                        operation);
    }

    void serverTextIsNotImplemented()
    {
        TestCfgRegistry cfg(QStringLiteral("App"), ICfg::VIEW_User);
        QCOMPARE(cfg.GetCfgAsStringFromApp(QStringLiteral("App")), QByteArray("Not yet implemented!!!!"));
    }

    void anUnreadableHiveRaisesOnOpening_data()
    {
        QTest::addColumn<int>("view");
        QTest::addColumn<QString>("hiveFile");
        QTest::addColumn<QString>("message");
        QTest::newRow("user") << int(ICfg::VIEW_User) << QStringLiteral("HKEY_CURRENT_USER.db")
                              << QStringLiteral(
                                     "RegOpenKeyEx(\"HKEY_CURRENT_USER\\SOFTWARE\\Velkor&Amsel\\Zent\\"
                                     "App\\Sub\") failed: 1012 !");
        QTest::newRow("machine") << int(ICfg::VIEW_Machine) << QStringLiteral("HKEY_LOCAL_MACHINE.db")
                                 << QStringLiteral(
                                        "RegOpenKeyEx(\"HKEY_CURRENT_MACHINE\\SOFTWARE\\Velkor&Amsel\\"
                                        "Zent\\App\\Sub\") failed: 1012 !");
        QTest::newRow("domain") << int(ICfg::VIEW_Domain) << QStringLiteral("HKEY_LOCAL_MACHINE.db")
                                << QStringLiteral(
                                       "RegOpenKeyEx(\"HKEY_CURRENT_MACHINE\\SOFTWARE\\Velkor&Amsel\\"
                                       "Zent\\App\\Sub\") failed: 1012 !");
    }

    void anUnreadableHiveRaisesOnOpening()
    {
        QFETCH(int, view);
        QFETCH(QString, hiveFile);
        QFETCH(QString, message);
        // A hive file that is no database: the registry cannot read it (ERROR_CANTREAD).
        QFile garbage(m_registry->filePath(hiveFile));
        QVERIFY(garbage.open(QIODevice::WriteOnly));
        garbage.write(QByteArray(8192, 'g'));
        garbage.close();
        TestCfgRegistry cfg(QStringLiteral("App/Sub"), ICfg::View(view));
        ExpectException(CaughtKVException([&] { cfg.GetString(QStringLiteral("s"), QString()); }), message,
                        QStringLiteral("CfgRegistry"), QStringLiteral("GetHandle"));
    }

    void anUnwritableHiveRaisesOnCreation_data()
    {
        QTest::addColumn<int>("view");
        QTest::addColumn<QString>("message");
        QTest::newRow("user") << int(ICfg::VIEW_User)
                              << QStringLiteral(
                                     "RegCreateKey(\"HKEY_CURRENT_USER\\SOFTWARE\\Velkor&Amsel\\Zent\\"
                                     "App\") failed: 5 !");
        QTest::newRow("machine") << int(ICfg::VIEW_Machine)
                                 << QStringLiteral(
                                        "RegCreateKey(\"HKEY_LOCAL_MACHINE\\SOFTWARE\\Velkor&Amsel\\Zent\\"
                                        "App\") failed: 5 !");
        QTest::newRow("system_creates_in_the_user_hive")
            << int(ICfg::VIEW_System)
            << QStringLiteral(
                   "RegCreateKey(\"HKEY_CURRENT_USER\\SOFTWARE\\Velkor&Amsel\\Zent\\App\") failed: 5 !");
    }

    void anUnwritableHiveRaisesOnCreation()
    {
        QFETCH(int, view);
        QFETCH(QString, message);
        // The registry directory lies below a plain file, so no hive can be made there.
        QFile blocker(m_registry->filePath(QStringLiteral("file")));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        m_registry->useDirectory(m_registry->filePath(QStringLiteral("file/registry")));
        TestCfgRegistry cfg(QStringLiteral("App"), ICfg::View(view));
        QCOMPARE(cfg.GetString(QStringLiteral("s"), QStringLiteral("def")), QStringLiteral("def"));
        ExpectException(CaughtKVException([&] { cfg.SetString(QStringLiteral("s"), QStringLiteral("x")); }),
                        message, QStringLiteral("CfgRegistry"), QStringLiteral("CreateHandle"));
    }

    void failedWritesRaise()
    {
        TestCfgRegistry cfg(QStringLiteral("Vanishing"), ICfg::VIEW_User);
        cfg.SetString(QStringLiteral("s"), QStringLiteral("x"));
        // The key goes away under the object's open handle.
        QCOMPARE(RegDeleteKeyW(HKEY_CURRENT_USER, W(Root + QStringLiteral("Vanishing"))), ERROR_SUCCESS);
        ExpectException(CaughtKVException([&] { cfg.SetString(QStringLiteral("s"), QStringLiteral("y")); }),
                        QStringLiteral("RegSetValueEx() failed: 1018 !"), QStringLiteral("CfgRegistry"),
                        QStringLiteral("SetStringImpl"));
        ExpectException(CaughtKVException([&] { cfg.SetBoolean(QStringLiteral("b"), true); }),
                        QStringLiteral("RegSetValueEx() failed: 1018 !"), QStringLiteral("CfgRegistry"),
                        QStringLiteral("SetStringImpl"));
        ExpectException(CaughtKVException([&] { cfg.SetInteger(QStringLiteral("i"), 1); }),
                        QStringLiteral("RegSetValueEx() failed: 1018 !"), QStringLiteral("CfgRetistry"),
                        QStringLiteral("SetIntegerImpl"));
        // Reads of the deleted key give defaults without raising.
        QCOMPARE(cfg.GetString(QStringLiteral("s"), QStringLiteral("def")), QStringLiteral("def"));
        QCOMPARE(cfg.HasAttribute(QString(), QStringLiteral("s")), false);
    }
};

QTEST_GUILESS_MAIN(tst_CfgRegistry)
#include "tst_cfgregistry.moc"
