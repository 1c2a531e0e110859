// The cfgdelete program: its usage error, help and version, the deletion of one configuration
// and of all configurations of a type in the machine and the user view, in
// XML files and in the registry, and its failures.

#include "cfgcommandtest.h"

#include <QtTest>

using namespace CfgCommandTest;

namespace {

const QByteArray USAGE = "Two arguments are expected: key and type.\n";

const QByteArray HELP = "Usage: cfgdelete KEY TYPE\n"
                        "       cfgdelete --help | --version\n"
                        "\n"
                        "Deletes a configuration, or every configuration of one backend, in the\n"
                        "machine view and in the user view, and saves.\n"
                        "\n"
                        "Arguments:\n"
                        "  KEY               the configuration key; \"*\" deletes every configuration\n"
                        "  TYPE              the backend\n"
                        "\n"
                        "Backends, one example each:\n"
                        "  Xml:FILE          an XML configuration file\n"
                        "                      cfgdelete DemoApp Xml:Cfg.xml\n"
                        "  Registry          the registry below SOFTWARE\\Velkor&Amsel\\Zent (on Linux the\n"
                        "                    portable registry; zentreg imports and exports .reg files)\n"
                        "                      cfgdelete DemoApp Registry\n"
                        "  Server[:ADDRESS]  the configuration service on the machine ADDRESS (the local\n"
                        "                    machine when left out), port 4000\n"
                        "                      cfgdelete DemoApp Server:192.0.2.10\n"
                        "\n"
                        "Exit codes:\n"
                        "  0  deleted\n"
                        "  1  wrong number of arguments\n"
                        "  2  the deletion failed; standard error says why\n";

const QByteArray MAIN_FILE =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
    "<Cfg version=\"2.2\">\n"
    "    <System><App><Sys>kept</Sys></App></System>\n"
    "    <Domain><App><Dom>kept</Dom></App></Domain>\n"
    "    <Machine>\n"
    "        <App><Port type=\"integer\" protected=\"true\">4000</Port><Sub><A>1</A></Sub></App>\n"
    "        <Other><Port type=\"integer\" protected=\"true\">5000</Port></Other>\n"
    "        <Third><Name>third</Name></Third>\n"
    "    </Machine>\n"
    "</Cfg>\n";

const QByteArray USER_FILE = "<?xml version=\"1.0\"?>\n"
                             "<Cfg version=\"2.2\">\n"
                             "    <User>\n"
                             "        <App><Colour>blue</Colour></App>\n"
                             "        <Other><Colour>red</Colour></Other>\n"
                             "    </User>\n"
                             "</Cfg>\n";

const QByteArray EMPTY_VIEWS = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                               "<Cfg version=\"2.2\"><System><App><Sys>kept</Sys></App></System><Domain/>"
                               "<Machine/></Cfg>\n";

} // namespace

class tst_CfgDelete : public ProgramTest
{
    Q_OBJECT

private:
    QString MainFile() const { return Path(QStringLiteral("Cfg.xml")); }
    QString UserFile() const { return Path(QStringLiteral("Cfg.usr.xml")); }

    Run CfgDelete(const QStringList& arguments)
    {
        return RunInFolder(QStringLiteral("cfgdelete"), arguments);
    }

    void DeleteOk(const QStringList& arguments)
    {
        CompareRun(CfgDelete(arguments), 0, QByteArray(), QByteArray());
    }

    void WriteDocument()
    {
        QVERIFY(WriteFile(MainFile(), MAIN_FILE));
        QVERIFY(WriteFile(UserFile(), USER_FILE));
    }

    /// Two applications in both hives, each with values and one sub-key.
    void FillRegistry()
    {
        for (HKEY root : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER}) {
            for (const QString& app : {QStringLiteral("App"), QStringLiteral("Other")}) {
                QCOMPARE(SetValue(root, app, QStringLiteral("Port"), REG_DWORD, Dword(4000)),
                         LONG(ERROR_SUCCESS));
                QCOMPARE(SetValue(root, app, QStringLiteral("Name"), REG_SZ, Sz(app)), LONG(ERROR_SUCCESS));
                QCOMPARE(SetValue(root, app + QStringLiteral("\\Window"), QStringLiteral("Geometry"), REG_SZ,
                                  Sz(QStringLiteral("1,2,3,4"))),
                         LONG(ERROR_SUCCESS));
            }
        }
    }

private slots:
    void otherArgumentCountsPrintTheUsageAndExitWith1_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("none") << QStringList();
        QTest::newRow("one") << QStringList{QStringLiteral("App")};
        QTest::newRow("three") << QStringList{QStringLiteral("App"), QStringLiteral("Xml:Cfg.xml"),
                                              QStringLiteral("extra")};
    }

    void otherArgumentCountsPrintTheUsageAndExitWith1()
    {
        QFETCH(QStringList, arguments);
        WriteDocument();
        // Standard output goes to a file, so the usage must reach standard error.
        CompareRun(RunLikeAScriptInFolder(QStringLiteral("cfgdelete"), arguments), 1, QByteArray(), USAGE);
        QCOMPARE(ReadFile(MainFile()), MAIN_FILE);
        QCOMPARE(ReadFile(UserFile()), USER_FILE);
    }

    void helpIsPrintedOnStandardOutput_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("alone") << QStringList{QStringLiteral("--help")};
        QTest::newRow("as_key") << QStringList{QStringLiteral("--help"), QStringLiteral("Xml:Cfg.xml")};
    }

    void helpIsPrintedOnStandardOutput()
    {
        QFETCH(QStringList, arguments);
        WriteDocument();
        CompareRun(RunLikeAScriptInFolder(QStringLiteral("cfgdelete"), arguments), 0, HELP, QByteArray());
        QCOMPARE(ReadFile(MainFile()), MAIN_FILE);
    }

    void versionIsTheProjectVersion()
    {
        CompareRun(RunLikeAScriptInFolder(QStringLiteral("cfgdelete"), {QStringLiteral("--version")}), 0,
                   QByteArray("cfgdelete " ZENT_VERSION "\n"), QByteArray());
    }

    void namedXmlConfigurationIsDeletedInTheMachineAndTheUserView()
    {
        WriteDocument();
        DeleteOk({QStringLiteral("App"), QStringLiteral("Xml:Cfg.xml")});
        QCOMPARE(ChildNames(MainFile(), QStringLiteral("Machine")),
                 (QStringList{QStringLiteral("Other"), QStringLiteral("Third")}));
        QCOMPARE(ChildNames(UserFile(), QStringLiteral("User")), QStringList{QStringLiteral("Other")});
        // The other views are not touched.
        QCOMPARE(ValueAt(MainFile(), QStringLiteral("System/App/Sys")), QStringLiteral("kept|-|-"));
        QCOMPARE(ValueAt(MainFile(), QStringLiteral("Domain/App/Dom")), QStringLiteral("kept|-|-"));
        QCOMPARE(ValueAt(MainFile(), QStringLiteral("Machine/Other/Port")),
                 QStringLiteral("5000|integer|true"));
    }

    void starDeletesEveryXmlConfigurationOfBothViews()
    {
        WriteDocument();
        DeleteOk({QStringLiteral("*"), QStringLiteral("Xml:Cfg.xml")});
        QCOMPARE(ChildNames(MainFile(), QStringLiteral("Machine")), QStringList());
        QCOMPARE(ChildNames(UserFile(), QStringLiteral("User")), QStringList());
        QCOMPARE(ValueAt(MainFile(), QStringLiteral("System/App/Sys")), QStringLiteral("kept|-|-"));
        QCOMPARE(ValueAt(MainFile(), QStringLiteral("Domain/App/Dom")), QStringLiteral("kept|-|-"));
    }

    void starOnXmlWithoutConfigurationsOnlySaves()
    {
        QVERIFY(WriteFile(MainFile(), EMPTY_VIEWS));
        DeleteOk({QStringLiteral("*"), QStringLiteral("Xml:Cfg.xml")});
        // Saved: the file went through the rotation and keeps its views.
        QCOMPARE(ReadFile(MainFile() + QStringLiteral(".bak")), EMPTY_VIEWS);
        QCOMPARE(
            ChildNames(MainFile(), QString()),
            (QStringList{QStringLiteral("System"), QStringLiteral("Domain"), QStringLiteral("Machine")}));
        QCOMPARE(ValueAt(MainFile(), QStringLiteral("System/App/Sys")), QStringLiteral("kept|-|-"));
        QCOMPARE(ChildNames(MainFile(), QStringLiteral("Machine")), QStringList());
    }

    void namedRegistryConfigurationIsDeletedInBothHives()
    {
        FillRegistry();
        DeleteOk({QStringLiteral("App"), QStringLiteral("Registry")});
        QCOMPARE(KeyState(HKEY_LOCAL_MACHINE, QStringLiteral("App")), LONG(ERROR_FILE_NOT_FOUND));
        QCOMPARE(KeyState(HKEY_CURRENT_USER, QStringLiteral("App")), LONG(ERROR_FILE_NOT_FOUND));
        QCOMPARE(Dump(HKEY_LOCAL_MACHINE, QStringLiteral("Other")).size(), 3);
        QCOMPARE(Dump(HKEY_CURRENT_USER, QStringLiteral("Other")).size(), 3);
    }

    void starDeletesEveryRegistryConfigurationOfBothHives()
    {
        FillRegistry();
        DeleteOk({QStringLiteral("*"), QStringLiteral("Registry")});
        for (HKEY root : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER}) {
            QCOMPARE(KeyState(root, QStringLiteral("App")), LONG(ERROR_FILE_NOT_FOUND));
            QCOMPARE(KeyState(root, QStringLiteral("Other")), LONG(ERROR_FILE_NOT_FOUND));
            QCOMPARE(Dump(root, QString()), QStringList());
        }
    }

    void starOnAnEmptyRegistryDoesNothing()
    {
        DeleteOk({QStringLiteral("*"), QStringLiteral("Registry")});
        QCOMPARE(KeyState(HKEY_LOCAL_MACHINE, QString()), LONG(ERROR_FILE_NOT_FOUND));
        QCOMPARE(KeyState(HKEY_CURRENT_USER, QString()), LONG(ERROR_FILE_NOT_FOUND));
    }

    void missingXmlFileFailsWithExitCode2()
    {
        const Run run = CfgDelete({QStringLiteral("App"), QStringLiteral("Xml:Missing.xml")});
        CompareRun(run, 2, QByteArray(),
                   QByteArray("cfgdelete: The configuration file \"Missing.xml\" does not exist.\n\n"));
        QCOMPARE(FilesInDir(), QStringList());
    }

    void unknownTypeDeletesNothing()
    {
        WriteDocument();
        DeleteOk({QStringLiteral("App"), QStringLiteral("Ini:Cfg.ini")});
        QCOMPARE(ReadFile(MainFile()), MAIN_FILE);
        QCOMPARE(FilesInDir(), (QStringList{QStringLiteral("Cfg.usr.xml"), QStringLiteral("Cfg.xml")}));
    }
};

QTEST_GUILESS_MAIN(tst_CfgDelete)
#include "tst_cfgdelete.moc"
