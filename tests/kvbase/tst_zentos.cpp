#include "kvbase/zentos.h"

#include <QNetworkInterface>
#include <QtTest>

#include <cstdlib>
#include <thread>

namespace {

class ScriptedOS : public ZentOS
{
public:
    std::wstring GetWorkStationName() const override { return L"scripted"; }
};

} // namespace

class tst_ZentOS : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void createAndGetGiveOneInstance() { QCOMPARE(&ZentOS::Create(), &ZentOS::Get()); }

    void setInstanceReplacesAndRestores()
    {
        ScriptedOS scripted;
        ZentOS& platform = ZentOS::Get();
        ZentOS::SetInstance(&scripted);
        QCOMPARE(&ZentOS::Get(), static_cast<ZentOS*>(&scripted));
        QCOMPARE(ZentOS::Create().GetWorkStationName(), std::wstring(L"scripted"));
        ZentOS::SetInstance(nullptr);
        QCOMPARE(&ZentOS::Get(), &platform);
    }

    void loadsALibraryByItsWindowsName()
    {
        ZentOS& os = ZentOS::Get();
        os.ResetLastError();
        void* handle = os.LoadLibrary(QStringLiteral("zentostestlib.dll"));
        QVERIFY2(handle, qPrintable(os.GetLastErrorText()));
        QCOMPARE(os.GetLastError(), 0ul);
        using Answer = int (*)();
        auto answer = reinterpret_cast<Answer>(os.GetProcAddress(handle, "ZentOsTestAnswer"));
        QVERIFY(answer);
        QCOMPARE(answer(), 42);
        QCOMPARE(os.GetProcAddress(handle, "NoSuchFunction"), nullptr);
        QVERIFY(os.GetLastError() != 0);
        QVERIFY2(os.GetLastErrorText().contains(QStringLiteral("NoSuchFunction")),
                 qPrintable(os.GetLastErrorText()));
        os.ResetLastError();
        QCOMPARE(os.GetLastError(), 0ul);
        QCOMPARE(os.GetLastErrorText(), QString());
        QVERIFY(os.FreeLibrary(handle));
        // Code and static data of a freed library stay mapped, so references a
        // plug-in left behind (string literals, connections) remain valid.
        QCOMPARE(answer(), 42);
    }

    void missingLibraryLeavesAnError()
    {
        ZentOS& os = ZentOS::Get();
        os.ResetLastError();
        QCOMPARE(os.LoadLibrary(QStringLiteral("NoSuchPlugin.dll")), nullptr);
        QVERIFY(os.GetLastError() != 0);
        QVERIFY(!os.GetLastErrorText().isEmpty());
        QCOMPARE(os.GetProcAddress(nullptr, "x"), nullptr);
        QCOMPARE(os.FreeLibrary(nullptr), false);
    }

    void localAddressesEndWithAnEmptyText()
    {
        ZentOS& os = ZentOS::Get();
        QStringList addresses;
        for (int i = 0; !os.GetLocalAddress(i).isEmpty(); ++i)
            addresses << os.GetLocalAddress(i);
        QVERIFY2(addresses.contains(QStringLiteral("127.0.0.1")),
                 qPrintable(addresses.join(QLatin1Char(' '))));
        QCOMPARE(os.GetLocalAddress(addresses.size()), QString());
        QCOMPARE(os.GetLocalAddress(-1), QString());
        QStringList expected;
        for (const QHostAddress& address : QNetworkInterface::allAddresses())
            expected << address.toString();
        QCOMPARE(addresses, expected);
    }

    void workStationNameIsTheHostName()
    {
        QCOMPARE(QString::fromStdWString(ZentOS::Get().GetWorkStationName()), QSysInfo::machineHostName());
    }

    void mainThreadIsTheOneThatInitialisedTheGui()
    {
        ZentOS& os = ZentOS::Get();
        QVERIFY(os.IsAppThread());
        os.InitGuiProcess();
        QCOMPARE(os.GetMainThreadId(), os.GetCurrentThreadId());
        QVERIFY(os.GetMainThreadId() != 0);
        bool workerIsApp = true;
        unsigned long workerId = 0;
        // std::thread, so that ThreadSanitizer sees the join.
        std::thread worker([&] {
            workerIsApp = ZentOS::Get().IsAppThread();
            workerId = ZentOS::Get().GetCurrentThreadId();
        });
        worker.join();
        QCOMPARE(workerIsApp, false);
        QVERIFY(workerId != os.GetMainThreadId());
        QVERIFY(os.IsAppThread());
    }

    void environmentVariables()
    {
        qputenv("ZENT_TEST_VARIABLE", "value 1");
        QCOMPARE(QByteArray(ZentOS::Get().GetEnvironmentVar("ZENT_TEST_VARIABLE")), QByteArray("value 1"));
        qunsetenv("ZENT_TEST_VARIABLE");
        QCOMPARE(ZentOS::Get().GetEnvironmentVar("ZENT_TEST_VARIABLE"), nullptr);
        QCOMPARE(ZentOS::Get().GetEnvironmentVar(nullptr), nullptr);
    }

    void folders()
    {
        const QString temp = QString::fromStdWString(ZentOS::Get().GetTempDir());
        QCOMPARE(temp, QDir::tempPath());
        QVERIFY(!temp.endsWith(QLatin1Char('/')) || temp == QLatin1String("/"));
        const QString system = QString::fromStdWString(ZentOS::Get().GetSystemDir());
        QVERIFY(QFileInfo(system).isDir());
        // The folder of the system's shared libraries: the C library is there.
        QVERIFY2(QFileInfo::exists(system + QStringLiteral("/libc.so.6")), qPrintable(system));
    }

    void productDirectoryFollowsTheEnvironment()
    {
        QTemporaryDir dir;
        QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
        qputenv("ZENT_PRODUCT_DIR", QFile::encodeName(dir.path()));
        QCOMPARE(ZentOS::Get().GetProductDir(), dir.path());
        qunsetenv("ZENT_PRODUCT_DIR");
        QCOMPARE(ZentOS::Get().GetProductDir(), QString());
    }

    void iconsByNumber()
    {
        QVERIFY(!ZentOS::Get().GetIcon(0).isNull());
        QVERIFY(ZentOS::Get().GetIcon(4711).isNull());
        QTemporaryDir dir;
        QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
        QVERIFY(QDir(dir.path()).mkpath(QStringLiteral("icons")));
        QVERIFY(
            QFile::copy(QStringLiteral(":/kvbase/icons/0.png"), dir.filePath(QStringLiteral("icons/7.png"))));
        qputenv("ZENT_PRODUCT_DIR", QFile::encodeName(dir.path()));
        const QIcon icon = ZentOS::Get().GetIcon(7);
        qunsetenv("ZENT_PRODUCT_DIR");
        QVERIFY(!icon.isNull());
        QCOMPARE(icon.availableSizes().value(0), QSize(32, 32));
    }

    void clockIsSecondsSince1970()
    {
        const qint64 before = QDateTime::currentSecsSinceEpoch();
        const qint64 now = ZentOS::Get().GetTime();
        QVERIFY(now >= before && now <= QDateTime::currentSecsSinceEpoch());
    }

    void syncFileAndDirectory()
    {
        QTemporaryDir dir;
        QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
        QFile file(dir.filePath(QStringLiteral("f")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("data");
        QVERIFY(file.flush());
        QCOMPARE(ZentOS::Get().SyncFile(file), true);
        file.close();
        QCOMPARE(ZentOS::Get().SyncFile(file), false);
        QCOMPARE(ZentOS::Get().SyncDirectory(dir.path()), true);
        QCOMPARE(ZentOS::Get().SyncDirectory(dir.filePath(QStringLiteral("missing"))), false);
    }

    void hiddenLegacyProgramRunsWithItsParameters()
    {
        QTemporaryDir dir;
        QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
        const QString target = dir.filePath(QStringLiteral("out.txt"));
        int result = -1;
        const QString params = QStringLiteral("-c \"echo hidden > '%1'\"").arg(target);
        QVERIFY(ZentOS::Get().StartHiddenLegacyProgram(u"/bin/sh", params.toStdU16String(), result));
        QVERIFY(result > 0);
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(target).size() == 7, 10000);
        QFile file(target);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), QByteArray("hidden\n"));
        QCOMPARE(ZentOS::Get().StartHiddenLegacyProgram(u"/nonexistent/program", u"", result), false);
    }

    void startProgramWithOneArgument()
    {
        QTemporaryDir dir;
        QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
        const QString target = dir.filePath(QStringLiteral("touched"));
        QVERIFY(ZentOS::Get().StartProgram(QStringLiteral("touch"), target));
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(target), 10000);
        QCOMPARE(ZentOS::Get().StartProgram(QStringLiteral("/nonexistent/program"), target), false);
    }

    void placementOfAProcessWithoutWindowIsUnknown()
    {
        // Offscreen: this process has no X11 window, whether a display is there or not.
        ZentOS::WindowPlacement placement;
        QCOMPARE(ZentOS::Get().GetWindowPlacement(QCoreApplication::applicationPid(), placement), false);
        QCOMPARE(placement.left, -1);
        QCOMPARE(placement.top, -1);
        QCOMPARE(placement.right, -1);
        QCOMPARE(placement.bottom, -1);
        QCOMPARE(placement.showState, -1);
        QCOMPARE(ZentOS::Get().SetWindowPlacement(QCoreApplication::applicationPid(), placement), false);
    }
};

QTEST_MAIN(tst_ZentOS)
#include "tst_zentos.moc"
