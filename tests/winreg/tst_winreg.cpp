#include "common/rawregistry.h"
#include "common/temporaryregistry.h"
#include "kvbase/zentos.h"
#include "winreg/winreg.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QSet>
#include <QStandardPaths>
#include <QThread>
#include <QtTest>

#include <memory>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

QByteArray Dword(DWORD value)
{
    return QByteArray(reinterpret_cast<const char*>(&value), 4);
}

LONG SetValue(HKEY key, const QString& name, DWORD type, const QByteArray& data)
{
    return RegSetValueExW(key, W(name), 0, type, reinterpret_cast<const BYTE*>(data.constData()),
                          static_cast<DWORD>(data.size()));
}

/// Creates a key below HKEY_CURRENT_USER and returns its open handle.
HKEY Create(const QString& path, HKEY root = HKEY_CURRENT_USER)
{
    HKEY key = nullptr;
    const LONG result = RegCreateKeyW(root, W(path), &key);
    return result == ERROR_SUCCESS ? key : nullptr;
}

} // namespace

class tst_WinReg : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<TemporaryRegistry> m_registry;

    QString Helper() const
    {
        return QCoreApplication::applicationDirPath() + QStringLiteral("/winreghelper");
    }

    QString RunHelper(const QStringList& args)
    {
        QProcess process;
        process.start(Helper(), args);
        if (!process.waitForFinished(30000))
            return QStringLiteral("helper did not finish");
        return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
    }

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void init()
    {
        m_registry.reset(new TemporaryRegistry);
        QVERIFY2(m_registry->isValid(), qPrintable(m_registry->errorString()));
    }

    void cleanup() { m_registry.reset(); }

    void hivesLiveInTheRegistryDirectory()
    {
        HKEY user = Create(QStringLiteral("SOFTWARE\\A"));
        HKEY machine = Create(QStringLiteral("SOFTWARE\\B"), HKEY_LOCAL_MACHINE);
        QVERIFY(user);
        QVERIFY(machine);
        QVERIFY(QFileInfo::exists(m_registry->filePath(QStringLiteral("HKEY_CURRENT_USER.db"))));
        QVERIFY(QFileInfo::exists(m_registry->filePath(QStringLiteral("HKEY_LOCAL_MACHINE.db"))));
        // The user's hive and its log are private to the user.
        QVERIFY(QFileInfo::exists(m_registry->filePath(QStringLiteral("HKEY_CURRENT_USER.db-wal"))));
        const QFileDevice::Permissions others = QFileDevice::ReadGroup | QFileDevice::WriteGroup |
                                                QFileDevice::ReadOther | QFileDevice::WriteOther;
        QCOMPARE(QFileInfo(m_registry->filePath(QStringLiteral("HKEY_CURRENT_USER.db"))).permissions() &
                     others,
                 QFileDevice::Permissions());
        QCOMPARE(QFileInfo(m_registry->filePath(QStringLiteral("HKEY_CURRENT_USER.db-wal"))).permissions() &
                     others,
                 QFileDevice::Permissions());
        HKEY other = nullptr;
        QCOMPARE(RegOpenKeyExW(HKEY_LOCAL_MACHINE, W(QStringLiteral("SOFTWARE\\A")), 0, KEY_READ, &other),
                 ERROR_FILE_NOT_FOUND);
        QCOMPARE(other, static_cast<HKEY>(nullptr));
        QCOMPARE(RegCloseKey(user), ERROR_SUCCESS);
        QCOMPARE(RegCloseKey(machine), ERROR_SUCCESS);
    }

    void openingAMissingKeyGivesFileNotFound()
    {
        HKEY key = nullptr;
        QCOMPARE(RegOpenKeyExW(HKEY_CURRENT_USER, W(QStringLiteral("Nope\\Deeper")), 0, KEY_READ, &key),
                 ERROR_FILE_NOT_FOUND);
        QCOMPARE(RegOpenKeyW(HKEY_CURRENT_USER, W(QStringLiteral("Nope")), &key), ERROR_FILE_NOT_FOUND);
    }

    void createMakesEveryMissingKeyOnThePath()
    {
        HKEY key = Create(QStringLiteral("SOFTWARE\\Velkor&Amsel\\Zent\\App"));
        QVERIFY(key);
        HKEY middle = nullptr;
        QCOMPARE(RegOpenKeyExW(HKEY_CURRENT_USER, W(QStringLiteral("SOFTWARE\\Velkor&Amsel")), 0, KEY_READ,
                               &middle),
                 ERROR_SUCCESS);
        QCOMPARE(SubKeyNames(middle), QStringList{QStringLiteral("Zent")});
        // Creating an existing key opens it.
        HKEY again = Create(QStringLiteral("software\\velkor&amsel\\zent\\app"));
        QVERIFY(again);
        QVERIFY(again != key);
        QCOMPARE(SetValue(key, QStringLiteral("x"), REG_DWORD, Dword(7)), ERROR_SUCCESS);
        DWORD value = 0;
        DWORD size = 4;
        QCOMPARE(RegQueryValueExW(again, W(QStringLiteral("X")), nullptr, nullptr,
                                  reinterpret_cast<LPBYTE>(&value), &size),
                 ERROR_SUCCESS);
        QCOMPARE(value, DWORD(7));
        RegCloseKey(again);
        RegCloseKey(middle);
        RegCloseKey(key);
    }

    void invalidHandlesAreRefused_data()
    {
        QTest::addColumn<quintptr>("handle");
        QTest::newRow("null") << quintptr(0);
        QTest::newRow("invalid_handle_value") << ~quintptr(0);
        QTest::newRow("never_opened") << quintptr(0x4000);
        QTest::newRow("hkey_users_is_not_a_hive_here") << reinterpret_cast<quintptr>(HKEY_USERS);
    }

    void invalidHandlesAreRefused()
    {
        QFETCH(quintptr, handle);
        const HKEY key = reinterpret_cast<HKEY>(handle);
        HKEY result = nullptr;
        WCHAR name[16];
        DWORD length = 16;
        DWORD size = 0;
        QCOMPARE(RegOpenKeyExW(key, W(QStringLiteral("a")), 0, KEY_READ, &result), ERROR_INVALID_HANDLE);
        QCOMPARE(RegOpenKeyW(key, W(QStringLiteral("a")), &result), ERROR_INVALID_HANDLE);
        QCOMPARE(RegCreateKeyW(key, W(QStringLiteral("a")), &result), ERROR_INVALID_HANDLE);
        QCOMPARE(RegQueryValueExW(key, W(QStringLiteral("a")), nullptr, nullptr, nullptr, &size),
                 ERROR_INVALID_HANDLE);
        QCOMPARE(SetValue(key, QStringLiteral("a"), REG_DWORD, Dword(1)), ERROR_INVALID_HANDLE);
        QCOMPARE(RegDeleteValueW(key, W(QStringLiteral("a"))), ERROR_INVALID_HANDLE);
        QCOMPARE(RegDeleteKeyW(key, W(QStringLiteral("a"))), ERROR_INVALID_HANDLE);
        QCOMPARE(RegEnumKeyExW(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr),
                 ERROR_INVALID_HANDLE);
        QCOMPARE(RegEnumValueW(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr),
                 ERROR_INVALID_HANDLE);
        QCOMPARE(RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &size, nullptr, nullptr, nullptr, nullptr,
                                  nullptr, nullptr, nullptr),
                 ERROR_INVALID_HANDLE);
        QCOMPARE(RegCloseKey(key), ERROR_INVALID_HANDLE);
    }

    void aClosedHandleIsInvalid()
    {
        HKEY key = Create(QStringLiteral("K"));
        QVERIFY(key);
        QCOMPARE(RegCloseKey(key), ERROR_SUCCESS);
        QCOMPARE(RegCloseKey(key), ERROR_INVALID_HANDLE);
        QCOMPARE(SetValue(key, QStringLiteral("a"), REG_DWORD, Dword(1)), ERROR_INVALID_HANDLE);
        // The predefined keys need no closing, and closing them does no harm.
        QCOMPARE(RegCloseKey(HKEY_CURRENT_USER), ERROR_SUCCESS);
    }

    void missingArgumentsAreInvalidParameters()
    {
        HKEY key = Create(QStringLiteral("K"));
        QVERIFY(key);
        BYTE data[4];
        DWORD reserved = 0;
        QCOMPARE(RegOpenKeyExW(HKEY_CURRENT_USER, W(QStringLiteral("K")), 0, KEY_READ, nullptr),
                 ERROR_INVALID_PARAMETER);
        QCOMPARE(RegCreateKeyW(HKEY_CURRENT_USER, W(QStringLiteral("K")), nullptr), ERROR_INVALID_PARAMETER);
        QCOMPARE(RegOpenKeyW(HKEY_CURRENT_USER, W(QStringLiteral("K")), nullptr), ERROR_INVALID_PARAMETER);
        QCOMPARE(RegQueryValueExW(key, nullptr, nullptr, nullptr, data, nullptr), ERROR_INVALID_PARAMETER);
        QCOMPARE(RegQueryValueExW(key, nullptr, &reserved, nullptr, nullptr, nullptr),
                 ERROR_INVALID_PARAMETER);
        QCOMPARE(RegSetValueExW(key, nullptr, 0, REG_BINARY, nullptr, 4), ERROR_INVALID_PARAMETER);
        QCOMPARE(RegDeleteKeyW(key, nullptr), ERROR_INVALID_PARAMETER);
        QCOMPARE(RegEnumKeyExW(key, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
                 ERROR_INVALID_PARAMETER);
        QCOMPARE(RegEnumValueW(key, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
                 ERROR_INVALID_PARAMETER);
        RegCloseKey(key);
    }

    void namesAreCaseInsensitiveAndCasePreserving()
    {
        HKEY key = Create(QStringLiteral("MixedCase\\SubKey"));
        QVERIFY(key);
        QCOMPARE(SetValue(key, QStringLiteral("ValueName"), REG_SZ, Sz(QStringLiteral("first"))),
                 ERROR_SUCCESS);
        QCOMPARE(SetValue(key, QStringLiteral("VALUENAME"), REG_SZ, Sz(QStringLiteral("second"))),
                 ERROR_SUCCESS);
        QCOMPARE(ValueNames(key), QStringList{QStringLiteral("ValueName")});
        WCHAR text[32] = {};
        DWORD size = sizeof(text);
        QCOMPARE(RegQueryValueExW(key, W(QStringLiteral("valuename")), nullptr, nullptr,
                                  reinterpret_cast<LPBYTE>(text), &size),
                 ERROR_SUCCESS);
        QCOMPARE(QString::fromUtf16(text), QStringLiteral("second"));
        HKEY parent = nullptr;
        QCOMPARE(RegOpenKeyExW(HKEY_CURRENT_USER, W(QStringLiteral("MIXEDCASE")), 0, KEY_READ, &parent),
                 ERROR_SUCCESS);
        QCOMPARE(SubKeyNames(parent), QStringList{QStringLiteral("SubKey")});
        // Umlauts fold as single characters; "ß" has no upper case of its own and stays distinct from "SS"
        // (and sorts after it: 0xDF > "S").
        HKEY umlaut = Create(QStringLiteral("MixedCase\\Größe"));
        HKEY upper = Create(QStringLiteral("MixedCase\\GRÖßE"));
        HKEY ss = Create(QStringLiteral("MixedCase\\GRÖSSE"));
        QCOMPARE(SubKeyNames(parent),
                 (QStringList{QStringLiteral("GRÖSSE"), QStringLiteral("Größe"), QStringLiteral("SubKey")}));
        for (HKEY k : {umlaut, upper, ss, parent, key})
            RegCloseKey(k);
    }

    void subKeysEnumerateInUpperCaseNameOrder()
    {
        HKEY key = Create(QStringLiteral("Order"));
        QVERIFY(key);
        for (const QString& name : {QStringLiteral("b"), QStringLiteral("_x"), QStringLiteral("C"),
                                    QStringLiteral("a1"), QStringLiteral("A"), QStringLiteral("Z9")}) {
            HKEY sub = Create(name, key);
            QVERIFY(sub);
            RegCloseKey(sub);
        }
        // "_" (0x5F) sorts after the upper-case letters, though before the lower-case ones.
        QCOMPARE(SubKeyNames(key),
                 (QStringList{QStringLiteral("A"), QStringLiteral("a1"), QStringLiteral("b"),
                              QStringLiteral("C"), QStringLiteral("Z9"), QStringLiteral("_x")}));
        WCHAR name[16];
        DWORD length = 16;
        QCOMPARE(RegEnumKeyExW(key, 6, name, &length, nullptr, nullptr, nullptr, nullptr),
                 ERROR_NO_MORE_ITEMS);
        RegCloseKey(key);
    }

    void valuesEnumerateInCreationOrder()
    {
        HKEY key = Create(QStringLiteral("Values"));
        QVERIFY(key);
        for (const QString& name :
             {QStringLiteral("zeta"), QStringLiteral("Alpha"), QStringLiteral("mid"), QStringLiteral("")})
            QCOMPARE(SetValue(key, name, REG_DWORD, Dword(1)), ERROR_SUCCESS);
        // Writing again keeps the place; deleting and writing again moves it to the end.
        QCOMPARE(SetValue(key, QStringLiteral("ZETA"), REG_DWORD, Dword(2)), ERROR_SUCCESS);
        QCOMPARE(RegDeleteValueW(key, W(QStringLiteral("alpha"))), ERROR_SUCCESS);
        QCOMPARE(SetValue(key, QStringLiteral("ALPHA"), REG_DWORD, Dword(3)), ERROR_SUCCESS);
        QCOMPARE(ValueNames(key), (QStringList{QStringLiteral("zeta"), QStringLiteral("mid"), QString(),
                                               QStringLiteral("ALPHA")}));
        WCHAR name[16];
        DWORD length = 16;
        QCOMPARE(RegEnumValueW(key, 4, name, &length, nullptr, nullptr, nullptr, nullptr),
                 ERROR_NO_MORE_ITEMS);
        RegCloseKey(key);
    }

    void valueTypesKeepTheirData_data()
    {
        QTest::addColumn<DWORD>("type");
        QTest::addColumn<QByteArray>("data");
        QTest::newRow("string") << DWORD(REG_SZ) << Sz(QStringLiteral("Grüße"));
        QTest::newRow("empty_string") << DWORD(REG_SZ) << Sz(QString());
        QTest::newRow("expandable_string") << DWORD(REG_EXPAND_SZ) << Sz(QStringLiteral("%HOME%\\x"));
        QTest::newRow("dword") << DWORD(REG_DWORD) << Dword(0xAFAFAFAF);
        QTest::newRow("binary") << DWORD(REG_BINARY) << QByteArray("\x00\x01\xff", 3);
        QTest::newRow("multi_string")
            << DWORD(REG_MULTI_SZ)
            << (Sz(QStringLiteral("a")) + Sz(QStringLiteral("b")) + QByteArray(2, '\0'));
        QTest::newRow("none_without_data") << DWORD(REG_NONE) << QByteArray();
    }

    void valueTypesKeepTheirData()
    {
        QFETCH(DWORD, type);
        QFETCH(QByteArray, data);
        HKEY key = Create(QStringLiteral("Types"));
        QVERIFY(key);
        QCOMPARE(SetValue(key, QStringLiteral("v"), type, data), ERROR_SUCCESS);
        DWORD storedType = 99;
        DWORD size = 0;
        QCOMPARE(RegQueryValueExW(key, W(QStringLiteral("v")), nullptr, &storedType, nullptr, &size),
                 ERROR_SUCCESS);
        QCOMPARE(storedType, type);
        QCOMPARE(size, DWORD(data.size()));
        QByteArray buffer(64, 'x');
        size = 64;
        QCOMPARE(RegQueryValueExW(key, W(QStringLiteral("v")), nullptr, nullptr,
                                  reinterpret_cast<LPBYTE>(buffer.data()), &size),
                 ERROR_SUCCESS);
        QCOMPARE(buffer.left(static_cast<int>(size)), data);
        RegCloseKey(key);
    }

    void defaultValueIsNamedByNullOrEmpty()
    {
        HKEY key = Create(QStringLiteral("Default"));
        QVERIFY(key);
        QCOMPARE(RegSetValueExW(key, nullptr, 0, REG_DWORD, reinterpret_cast<const BYTE*>("\x05\0\0\0"), 4),
                 ERROR_SUCCESS);
        DWORD value = 0;
        DWORD size = 4;
        QCOMPARE(
            RegQueryValueExW(key, W(QString()), nullptr, nullptr, reinterpret_cast<LPBYTE>(&value), &size),
            ERROR_SUCCESS);
        QCOMPARE(value, DWORD(5));
        QCOMPARE(RegDeleteValueW(key, nullptr), ERROR_SUCCESS);
        QCOMPARE(RegQueryValueExW(key, nullptr, nullptr, nullptr, nullptr, nullptr), ERROR_FILE_NOT_FOUND);
        RegCloseKey(key);
    }

    void shortBuffersGiveMoreDataWithTheSizeNeeded()
    {
        HKEY key = Create(QStringLiteral("Sizes"));
        QVERIFY(key);
        QCOMPARE(SetValue(key, QStringLiteral("LongName"), REG_SZ, Sz(QStringLiteral("abcdef"))),
                 ERROR_SUCCESS);
        BYTE data[8];
        DWORD size = 8;
        DWORD type = 0;
        QCOMPARE(RegQueryValueExW(key, W(QStringLiteral("LongName")), nullptr, &type, data, &size),
                 ERROR_MORE_DATA);
        QCOMPARE(size, DWORD(14));
        QCOMPARE(type, DWORD(REG_SZ));
        // Value enumeration: a short data buffer reports the size needed ...
        WCHAR name[16];
        DWORD length = 16;
        size = 8;
        QCOMPARE(RegEnumValueW(key, 0, name, &length, nullptr, &type, data, &size), ERROR_MORE_DATA);
        QCOMPARE(size, DWORD(14));
        // ... and a name buffer without room for the terminating zero is too short.
        length = 8;
        QCOMPARE(RegEnumValueW(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr), ERROR_MORE_DATA);
        length = 9;
        QCOMPARE(RegEnumValueW(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr), ERROR_SUCCESS);
        QCOMPARE(length, DWORD(8));
        QCOMPARE(QString::fromUtf16(name), QStringLiteral("LongName"));
        HKEY sub = Create(QStringLiteral("SubKeyName"), key);
        length = 10;
        QCOMPARE(RegEnumKeyExW(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr), ERROR_MORE_DATA);
        length = 11;
        QCOMPARE(RegEnumKeyExW(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr), ERROR_SUCCESS);
        QCOMPARE(length, DWORD(10));
        RegCloseKey(sub);
        RegCloseKey(key);
    }

    void deletingAKeyWithSubKeysIsDenied()
    {
        HKEY leaf = Create(QStringLiteral("Parent\\Child"));
        QVERIFY(leaf);
        RegCloseKey(leaf);
        QCOMPARE(RegDeleteKeyW(HKEY_CURRENT_USER, W(QStringLiteral("Parent"))), ERROR_ACCESS_DENIED);
        QCOMPARE(RegDeleteKeyW(HKEY_CURRENT_USER, W(QStringLiteral("parent\\child"))), ERROR_SUCCESS);
        QCOMPARE(RegDeleteKeyW(HKEY_CURRENT_USER, W(QStringLiteral("Parent\\Child"))), ERROR_FILE_NOT_FOUND);
        QCOMPARE(RegDeleteKeyW(HKEY_CURRENT_USER, W(QStringLiteral("Parent"))), ERROR_SUCCESS);
        // The hive's root cannot go.
        QCOMPARE(RegDeleteKeyW(HKEY_CURRENT_USER, W(QString())), ERROR_ACCESS_DENIED);
    }

    void deletingMissingValuesGivesFileNotFound()
    {
        HKEY key = Create(QStringLiteral("K"));
        QCOMPARE(RegDeleteValueW(key, W(QStringLiteral("absent"))), ERROR_FILE_NOT_FOUND);
        QCOMPARE(RegQueryValueExW(key, W(QStringLiteral("absent")), nullptr, nullptr, nullptr, nullptr),
                 ERROR_FILE_NOT_FOUND);
        RegCloseKey(key);
    }

    void handlesOfADeletedKeyAnswerKeyDeleted()
    {
        HKEY first = Create(QStringLiteral("Gone"));
        HKEY second = nullptr;
        QCOMPARE(RegOpenKeyExW(HKEY_CURRENT_USER, W(QStringLiteral("GONE")), 0, KEY_ALL_ACCESS, &second),
                 ERROR_SUCCESS);
        QCOMPARE(SetValue(first, QStringLiteral("a"), REG_DWORD, Dword(1)), ERROR_SUCCESS);
        QCOMPARE(RegDeleteKeyW(second, W(QString())), ERROR_SUCCESS);
        // A key of the same name made afterwards is another key.
        HKEY fresh = Create(QStringLiteral("Gone"));
        QVERIFY(fresh);
        WCHAR name[16];
        DWORD length = 16;
        DWORD size = 4;
        HKEY sub = nullptr;
        QCOMPARE(RegQueryValueExW(first, W(QStringLiteral("a")), nullptr, nullptr, nullptr, &size),
                 ERROR_KEY_DELETED);
        QCOMPARE(SetValue(first, QStringLiteral("a"), REG_DWORD, Dword(1)), ERROR_KEY_DELETED);
        QCOMPARE(RegDeleteValueW(first, W(QStringLiteral("a"))), ERROR_KEY_DELETED);
        QCOMPARE(RegEnumKeyExW(first, 0, name, &length, nullptr, nullptr, nullptr, nullptr),
                 ERROR_KEY_DELETED);
        QCOMPARE(RegEnumValueW(first, 0, name, &length, nullptr, nullptr, nullptr, nullptr),
                 ERROR_KEY_DELETED);
        QCOMPARE(RegQueryInfoKeyW(first, nullptr, nullptr, nullptr, &size, nullptr, nullptr, nullptr, nullptr,
                                  nullptr, nullptr, nullptr),
                 ERROR_KEY_DELETED);
        QCOMPARE(RegCreateKeyW(first, W(QStringLiteral("x")), &sub), ERROR_KEY_DELETED);
        QCOMPARE(RegOpenKeyExW(first, W(QStringLiteral("x")), 0, KEY_READ, &sub), ERROR_KEY_DELETED);
        QCOMPARE(RegQueryValueExW(fresh, W(QStringLiteral("a")), nullptr, nullptr, nullptr, &size),
                 ERROR_FILE_NOT_FOUND);
        QCOMPARE(RegCloseKey(first), ERROR_SUCCESS);
        QCOMPARE(RegCloseKey(second), ERROR_SUCCESS);
        RegCloseKey(fresh);
    }

    void accessMasksLimitWhatAHandleMayDo()
    {
        HKEY created = Create(QStringLiteral("Guarded"));
        QCOMPARE(SetValue(created, QStringLiteral("v"), REG_DWORD, Dword(1)), ERROR_SUCCESS);
        HKEY reader = nullptr;
        QCOMPARE(RegOpenKeyExW(HKEY_CURRENT_USER, W(QStringLiteral("Guarded")), 0, KEY_READ, &reader),
                 ERROR_SUCCESS);
        QCOMPARE(SetValue(reader, QStringLiteral("v"), REG_DWORD, Dword(2)), ERROR_ACCESS_DENIED);
        QCOMPARE(RegDeleteValueW(reader, W(QStringLiteral("v"))), ERROR_ACCESS_DENIED);
        HKEY sub = nullptr;
        QCOMPARE(RegCreateKeyW(reader, W(QStringLiteral("sub")), &sub), ERROR_ACCESS_DENIED);
        HKEY writer = nullptr;
        QCOMPARE(RegOpenKeyExW(HKEY_CURRENT_USER, W(QStringLiteral("Guarded")), 0, KEY_WRITE, &writer),
                 ERROR_SUCCESS);
        DWORD size = 4;
        QCOMPARE(RegQueryValueExW(writer, W(QStringLiteral("v")), nullptr, nullptr, nullptr, &size),
                 ERROR_ACCESS_DENIED);
        WCHAR name[8];
        DWORD length = 8;
        QCOMPARE(RegEnumKeyExW(writer, 0, name, &length, nullptr, nullptr, nullptr, nullptr),
                 ERROR_ACCESS_DENIED);
        QCOMPARE(SetValue(writer, QStringLiteral("v"), REG_DWORD, Dword(3)), ERROR_SUCCESS);
        for (HKEY k : {created, reader, writer})
            RegCloseKey(k);
    }

    void openWithoutSubKeyGivesTheSameOrANewHandle()
    {
        HKEY key = Create(QStringLiteral("Self"));
        HKEY same = nullptr;
        QCOMPARE(RegOpenKeyW(key, nullptr, &same), ERROR_SUCCESS);
        QCOMPARE(same, key);
        HKEY fresh = nullptr;
        QCOMPARE(RegOpenKeyExW(key, W(QString()), 0, KEY_READ, &fresh), ERROR_SUCCESS);
        QVERIFY(fresh != key);
        QCOMPARE(RegCloseKey(fresh), ERROR_SUCCESS);
        QCOMPARE(RegCloseKey(key), ERROR_SUCCESS);
    }

    void queryInfoCountsSubKeysAndValues()
    {
        HKEY key = Create(QStringLiteral("Info"));
        RegCloseKey(Create(QStringLiteral("short"), key));
        RegCloseKey(Create(QStringLiteral("a_longer_name"), key));
        SetValue(key, QStringLiteral("n"), REG_SZ, Sz(QStringLiteral("0123456789")));
        SetValue(key, QStringLiteral("valuename"), REG_DWORD, Dword(1));
        WCHAR className[8] = {'x'};
        DWORD classLength = 8;
        DWORD subKeys = 0, maxSubKey = 0, maxClass = 9, values = 0, maxValueName = 0, maxValue = 0,
              security = 9;
        FILETIME written = {0, 0};
        QCOMPARE(RegQueryInfoKeyW(key, className, &classLength, nullptr, &subKeys, &maxSubKey, &maxClass,
                                  &values, &maxValueName, &maxValue, &security, &written),
                 ERROR_SUCCESS);
        QCOMPARE(classLength, DWORD(0));
        QCOMPARE(className[0], WCHAR(0));
        QCOMPARE(subKeys, DWORD(2));
        QCOMPARE(maxSubKey, DWORD(13));
        QCOMPARE(maxClass, DWORD(0));
        QCOMPARE(values, DWORD(2));
        QCOMPARE(maxValueName, DWORD(9));
        QCOMPARE(maxValue, DWORD(22));
        QCOMPARE(security, DWORD(0));
        // FILETIME of this century: above 2000-01-01 (0x01BF53EB...).
        QVERIFY(written.dwHighDateTime > 0x01BF53EB);
        RegCloseKey(key);
    }

    void threadsShareHandlesSafely()
    {
        HKEY shared = Create(QStringLiteral("Threads"));
        QVERIFY(shared);
        // std::thread, so that ThreadSanitizer sees the joins.
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([shared, t] {
                HKEY own = Create(QStringLiteral("Threads\\T%1").arg(t));
                for (int i = 0; i < 50; ++i) {
                    SetValue(shared, QStringLiteral("t%1_%2").arg(t).arg(i), REG_DWORD, Dword(DWORD(i)));
                    SetValue(own, QStringLiteral("v%1").arg(i), REG_DWORD, Dword(DWORD(i)));
                }
                RegCloseKey(own);
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        DWORD subKeys = 0;
        DWORD values = 0;
        QCOMPARE(RegQueryInfoKeyW(shared, nullptr, nullptr, nullptr, &subKeys, nullptr, nullptr, &values,
                                  nullptr, nullptr, nullptr, nullptr),
                 ERROR_SUCCESS);
        QCOMPARE(subKeys, DWORD(4));
        QCOMPARE(values, DWORD(200));
        RegCloseKey(shared);
    }

    void anotherProcessSeesWritesAtOnce()
    {
        HKEY key = Create(QStringLiteral("Shared"));
        QCOMPARE(SetValue(key, QStringLiteral("fromTest"), REG_SZ, Sz(QStringLiteral("hello"))),
                 ERROR_SUCCESS);
        QCOMPARE(RunHelper({QStringLiteral("get"), QStringLiteral("Shared"), QStringLiteral("fromtest")}),
                 QStringLiteral("hello"));
        QCOMPARE(RunHelper({QStringLiteral("set"), QStringLiteral("shared"), QStringLiteral("fromHelper"),
                            QStringLiteral("Grüße")}),
                 QStringLiteral("result 0"));
        WCHAR text[32] = {};
        DWORD size = sizeof(text);
        QCOMPARE(RegQueryValueExW(key, W(QStringLiteral("FROMHELPER")), nullptr, nullptr,
                                  reinterpret_cast<LPBYTE>(text), &size),
                 ERROR_SUCCESS);
        QCOMPARE(QString::fromUtf16(text), QStringLiteral("Grüße"));
        RegCloseKey(key);
    }

    void aKeyDeletedByAnotherProcessLeavesHandlesDeleted()
    {
        HKEY key = Create(QStringLiteral("Doomed"));
        QCOMPARE(RunHelper({QStringLiteral("deletekey"), QStringLiteral("doomed")}),
                 QStringLiteral("result 0"));
        QCOMPARE(SetValue(key, QStringLiteral("v"), REG_DWORD, Dword(1)), ERROR_KEY_DELETED);
        QCOMPARE(RunHelper({QStringLiteral("get"), QStringLiteral("Doomed"), QStringLiteral("v")}),
                 QStringLiteral("error 2"));
        RegCloseKey(key);
    }

    void aKilledWriterLosesNoReturnedWrite()
    {
        QProcess writer;
        writer.start(Helper(),
                     {QStringLiteral("writes"), QStringLiteral("Crash"), QStringLiteral("1000000")});
        QVERIFY(writer.waitForStarted(30000));
        QByteArray output;
        while (output.count('\n') < 300 && writer.state() == QProcess::Running) {
            writer.waitForReadyRead(1000);
            output += writer.readAllStandardOutput();
        }
        writer.kill(); // SIGKILL: no chance to finish anything
        QVERIFY(writer.waitForFinished(30000));
        QCOMPARE(writer.exitStatus(), QProcess::CrashExit);
        output += writer.readAllStandardOutput();
        const QList<QByteArray> lines = output.split('\n');
        int reported = 0;
        for (const QByteArray& line : lines) {
            if (!line.startsWith("written "))
                continue;
            const int i = line.mid(8).toInt();
            QCOMPARE(i, reported);
            ++reported;
        }
        QVERIFY2(reported >= 300, qPrintable(QString::number(reported)));
        HKEY key = nullptr;
        QCOMPARE(RegOpenKeyExW(HKEY_CURRENT_USER, W(QStringLiteral("Crash")), 0, KEY_READ, &key),
                 ERROR_SUCCESS);
        for (int i = 0; i < reported; ++i) {
            DWORD value = 0xffffffff;
            DWORD size = 4;
            QCOMPARE(RegQueryValueExW(key, W(QStringLiteral("v%1").arg(i)), nullptr, nullptr,
                                      reinterpret_cast<LPBYTE>(&value), &size),
                     ERROR_SUCCESS);
            QCOMPARE(value, DWORD(i));
        }
        RegCloseKey(key);
    }

    // An ordinary user reads the machine hive while no other process holds it,
    // and cannot change it; the hive's folder and files are not opened to
    // everybody by a permissive umask.
    void anOrdinaryUserReadsTheMachineHiveAloneAndCannotWriteIt()
    {
        if (::geteuid() != 0)
            QSKIP("needs root to make the machine hive and to become an ordinary user with setpriv");
        const QString setpriv = QStandardPaths::findExecutable(QStringLiteral("setpriv"));
        if (setpriv.isEmpty())
            QSKIP("setpriv is not installed");
        // The ordinary user must reach the folder: temporary folders are private.
        QVERIFY(QFile::setPermissions(m_registry->path(), QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                                              QFileDevice::ExeOwner | QFileDevice::ReadOther |
                                                              QFileDevice::ExeOther));
        m_registry->useDirectory(m_registry->filePath(QStringLiteral("machine/registry")));
        const mode_t umask = ::umask(0);
        const QString made =
            RunHelper({QStringLiteral("--machine"), QStringLiteral("set"), QStringLiteral("Shared"),
                       QStringLiteral("v"), QStringLiteral("root")});
        ::umask(umask);
        QCOMPARE(made, QStringLiteral("result 0"));
        QCOMPARE(Mode(m_registry->filePath(QStringLiteral("machine"))), 0755);
        QCOMPARE(Mode(m_registry->filePath(QStringLiteral("machine/registry"))), 0755);
        QCOMPARE(Mode(m_registry->filePath(QStringLiteral("machine/registry/HKEY_LOCAL_MACHINE.db"))), 0644);

        const QStringList asNobody{QStringLiteral("--reuid=65534"), QStringLiteral("--regid=65534"),
                                   QStringLiteral("--clear-groups"), Helper(), QStringLiteral("--machine")};
        const auto runAsNobody = [&](const QStringList& args) {
            QProcess process;
            process.start(setpriv, asNobody + args);
            if (!process.waitForFinished(30000))
                return QStringLiteral("helper did not finish");
            return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
        };
        QCOMPARE(runAsNobody({QStringLiteral("get"), QStringLiteral("Shared"), QStringLiteral("v")}),
                 QStringLiteral("root"));
        QCOMPARE(runAsNobody({QStringLiteral("set"), QStringLiteral("Shared"), QStringLiteral("v"),
                              QStringLiteral("nobody")}),
                 QStringLiteral("result 5"));
        QCOMPARE(RunHelper({QStringLiteral("--machine"), QStringLiteral("get"), QStringLiteral("Shared"),
                            QStringLiteral("v")}),
                 QStringLiteral("root"));
    }

    // A process whose real user is not its effective one (set-user-id) does
    // not let its caller's environment move its hives.
    void aSetUserIdProcessIgnoresTheRegistryVariable()
    {
        if (::geteuid() != 0)
            QSKIP("needs root to start a process whose real user differs from its effective one");
        const QString setpriv = QStandardPaths::findExecutable(QStringLiteral("setpriv"));
        if (setpriv.isEmpty())
            QSKIP("setpriv is not installed");
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("ZENT_REGISTRY_DIR"),
                           m_registry->filePath(QStringLiteral("redirected")));
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"), m_registry->filePath(QStringLiteral("config")));
        process.setProcessEnvironment(environment);
        process.start(setpriv, {QStringLiteral("--ruid=65534"), Helper(), QStringLiteral("set"),
                                QStringLiteral("Key"), QStringLiteral("v"), QStringLiteral("text")});
        QVERIFY(process.waitForFinished(30000));
        QCOMPARE(QString::fromUtf8(process.readAllStandardOutput()).trimmed(), QStringLiteral("result 0"));
        QVERIFY(!QFileInfo::exists(m_registry->filePath(QStringLiteral("redirected"))));
        QVERIFY(QFileInfo::exists(
            m_registry->filePath(QStringLiteral("config/zent/registry/HKEY_CURRENT_USER.db"))));
    }

private:
    static int Mode(const QString& path)
    {
        struct stat info
        {
        };
        return ::lstat(QFile::encodeName(path).constData(), &info) == 0 ? int(info.st_mode & 07777) : -1;
    }
};

QTEST_GUILESS_MAIN(tst_WinReg)
#include "tst_winreg.moc"
