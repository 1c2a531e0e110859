// The cfgcopy program: its usage error, help and version, copies between XML files and the
// registry, the creation of a missing destination, and its failures.

#include "cfgcommandtest.h"

#include <QtTest>

using namespace CfgCommandTest;

namespace {

const QByteArray USAGE = "Four arguments are expected: source key and type, destination key and type.\n";
const QByteArray HELP = "Usage: cfgcopy SOURCE-KEY SOURCE-TYPE DESTINATION-KEY DESTINATION-TYPE\n"
                        "       cfgcopy --help | --version\n"
                        "\n"
                        "Copies a configuration from one backend into another, in the machine view:\n"
                        "values first, then sub-configurations, depth-first. Nothing is removed from\n"
                        "the destination; the destination is saved at the end.\n"
                        "\n"
                        "Arguments:\n"
                        "  SOURCE-KEY        the configuration key to copy; \"*\" copies the root with\n"
                        "                    everything below it\n"
                        "  SOURCE-TYPE       the backend to copy from\n"
                        "  DESTINATION-KEY   the key to copy into; \"*\" is the root\n"
                        "  DESTINATION-TYPE  the backend to copy into; an XML file that does not exist\n"
                        "                    is created as an empty document first\n"
                        "\n"
                        "Backends, one example each:\n"
                        "  Xml:FILE          an XML configuration file\n"
                        "                      cfgcopy DemoApp Xml:Cfg.xml DemoApp Xml:Copy.xml\n"
                        "  Registry          the registry below SOFTWARE\\Velkor&Amsel\\Zent (on Linux the\n"
                        "                    portable registry; zentreg imports and exports .reg files)\n"
                        "                      cfgcopy DemoApp Registry DemoApp Xml:FromRegistry.xml\n"
                        "  Server[:ADDRESS]  the configuration service on the machine ADDRESS (the local\n"
                        "                    machine when left out), port 4000\n"
                        "                      cfgcopy DemoApp Server:192.0.2.10 DemoApp Xml:Served.xml\n"
                        "\n"
                        "Exit codes:\n"
                        "  0  copied\n"
                        "  1  wrong number of arguments\n"
                        "  2  the copy failed; standard error says why\n";
const QByteArray EMPTY_DESTINATION =
    "<?xml version = '1.0'?><Cfg version='2.0'><System/><Domain/><Machine/><User/></Cfg>";

const QByteArray SOURCE =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
    "<Cfg version=\"2.2\">\n"
    "    <System><Sys><Kept>system</Kept></Sys></System>\n"
    "    <Domain/>\n"
    "    <Machine>\n"
    "        <App>\n"
    "            <Port type=\"integer\" protected=\"true\" ts=\"10\">4000</Port>\n"
    "            <Name type=\"string\" ts=\"10\">Demo \xc3\xa4pp</Name>\n"
    "            <Once>true</Once>\n"
    "            <Empty protected=\"true\"/>\n"
    "            <Window>\n"
    "                <Geometry type=\"string\" protected=\"false\">10,20,300,400</Geometry>\n"
    "                <Inner><Depth type=\"Integer\">3</Depth></Inner>\n"
    "            </Window>\n"
    "            <Plugins/>\n"
    "        </App>\n"
    "        <Other><Port type=\"integer\">5000</Port></Other>\n"
    "    </Machine>\n"
    "</Cfg>\n";

} // namespace

class tst_CfgCopy : public ProgramTest
{
    Q_OBJECT

private:
    Run CfgCopy(const QStringList& arguments) { return RunInFolder(QStringLiteral("cfgcopy"), arguments); }

    /// Copies and expects success: exit code 0, nothing on either output.
    void CopyOk(const QStringList& arguments)
    {
        const Run run = CfgCopy(arguments);
        QCOMPARE(run.exitStatus, QProcess::NormalExit);
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.output, QByteArray());
    }

private slots:
    void otherArgumentCountsPrintTheUsageAndExitWith1_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("none") << QStringList();
        QTest::newRow("one") << QStringList{QStringLiteral("App")};
        QTest::newRow("three") << QStringList{QStringLiteral("App"), QStringLiteral("Xml:a.xml"),
                                              QStringLiteral("App")};
        QTest::newRow("five") << QStringList{QStringLiteral("App"), QStringLiteral("Xml:a.xml"),
                                             QStringLiteral("App"), QStringLiteral("Xml:b.xml"),
                                             QStringLiteral("extra")};
    }

    void otherArgumentCountsPrintTheUsageAndExitWith1()
    {
        QFETCH(QStringList, arguments);
        // Standard output goes to a file, so the usage must reach standard error.
        CompareRun(RunLikeAScriptInFolder(QStringLiteral("cfgcopy"), arguments), 1, QByteArray(), USAGE);
        QCOMPARE(FilesInDir(), QStringList());
    }

    void helpIsPrintedOnStandardOutput_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("alone") << QStringList{QStringLiteral("--help")};
        QTest::newRow("with_more") << QStringList{QStringLiteral("--help"), QStringLiteral("App"),
                                                  QStringLiteral("Xml:a.xml"), QStringLiteral("App"),
                                                  QStringLiteral("Xml:b.xml")};
    }

    void helpIsPrintedOnStandardOutput()
    {
        QFETCH(QStringList, arguments);
        CompareRun(RunLikeAScriptInFolder(QStringLiteral("cfgcopy"), arguments), 0, HELP, QByteArray());
        QCOMPARE(FilesInDir(), QStringList());
    }

    void versionIsTheProjectVersion()
    {
        CompareRun(RunLikeAScriptInFolder(QStringLiteral("cfgcopy"), {QStringLiteral("--version")}), 0,
                   QByteArray("cfgcopy " ZENT_VERSION "\n"), QByteArray());
    }

    void valuesAndSubConfigurationsAreCopiedIntoANewXmlFile()
    {
        QVERIFY(WriteFile(Path(QStringLiteral("Source.xml")), SOURCE));
        CopyOk({QStringLiteral("App"), QStringLiteral("Xml:Source.xml"), QStringLiteral("Copy"),
                QStringLiteral("Xml:Target.xml")});
        const QString target = Path(QStringLiteral("Target.xml"));
        // Values before sub-configurations, each in the source's order.
        QCOMPARE(ChildNames(target, QStringLiteral("Machine/Copy")),
                 (QStringList{QStringLiteral("Port"), QStringLiteral("Name"), QStringLiteral("Once"),
                              QStringLiteral("Empty"), QStringLiteral("Window"), QStringLiteral("Plugins")}));
        QCOMPARE(ValueAt(target, QStringLiteral("Machine/Copy/Port")), QStringLiteral("4000|integer|true"));
        QCOMPARE(ValueAt(target, QStringLiteral("Machine/Copy/Name")),
                 QStringLiteral("Demo \u00e4pp|string|false"));
        QCOMPARE(ValueAt(target, QStringLiteral("Machine/Copy/Once")), QStringLiteral("true|boolean|false"));
        QCOMPARE(ValueAt(target, QStringLiteral("Machine/Copy/Empty")), QStringLiteral("|string|true"));
        QCOMPARE(ValueAt(target, QStringLiteral("Machine/Copy/Window/Geometry")),
                 QStringLiteral("10,20,300,400|string|false"));
        QCOMPARE(ValueAt(target, QStringLiteral("Machine/Copy/Window/Inner/Depth")),
                 QStringLiteral("3|integer|false"));
        QCOMPARE(ChildNames(target, QStringLiteral("Machine/Copy/Plugins")), QStringList());
        QCOMPARE(ChildNames(target, QStringLiteral("Machine")), QStringList{QStringLiteral("Copy")});
        QCOMPARE(ElementAt(target, QString()).attribute(QStringLiteral("version")), QStringLiteral("2.0"));
        // The source is read, never written.
        QCOMPARE(ReadFile(Path(QStringLiteral("Source.xml"))), SOURCE);
    }

    void missingDestinationFileStartsAsTheEmptyDocument()
    {
        QVERIFY(WriteFile(Path(QStringLiteral("Source.xml")), SOURCE));
        CopyOk({QStringLiteral("Nothing"), QStringLiteral("Xml:Source.xml"), QStringLiteral("App"),
                QStringLiteral("Xml:New.xml")});
        // The rotation of the save keeps the file as it was created as backup.
        QCOMPARE(ReadFile(Path(QStringLiteral("New.xml.bak"))), EMPTY_DESTINATION);
        QCOMPARE(
            ChildNames(Path(QStringLiteral("New.xml")), QString()),
            (QStringList{QStringLiteral("System"), QStringLiteral("Domain"), QStringLiteral("Machine")}));
    }

    void integerArrivesAsItsTextAndThenItsType()
    {
        QVERIFY(WriteFile(Path(QStringLiteral("Source.xml")), SOURCE));
        // The destination's value was a string: the copied type replaces it.
        QVERIFY(WriteFile(Path(QStringLiteral("Target.xml")),
                          "<Cfg version=\"2.2\"><System/><Domain/><Machine><App>"
                          "<Port type=\"string\" protected=\"false\">old</Port></App></Machine></Cfg>"));
        CopyOk({QStringLiteral("App"), QStringLiteral("Xml:Source.xml"), QStringLiteral("App"),
                QStringLiteral("Xml:Target.xml")});
        QCOMPARE(ValueAt(Path(QStringLiteral("Target.xml")), QStringLiteral("Machine/App/Port")),
                 QStringLiteral("4000|integer|true"));
    }

    void destinationKeepsWhatOnlyItHas()
    {
        QVERIFY(WriteFile(Path(QStringLiteral("Source.xml")), SOURCE));
        QVERIFY(WriteFile(Path(QStringLiteral("Target.xml")),
                          "<Cfg version=\"2.2\"><System/><Domain/><Machine><App>"
                          "<Own type=\"string\">mine</Own><Window><Own>too</Own></Window><Extra/></App>"
                          "</Machine></Cfg>"));
        CopyOk({QStringLiteral("App"), QStringLiteral("Xml:Source.xml"), QStringLiteral("App"),
                QStringLiteral("Xml:Target.xml")});
        const QString target = Path(QStringLiteral("Target.xml"));
        QCOMPARE(ValueAt(target, QStringLiteral("Machine/App/Own")), QStringLiteral("mine|string|-"));
        QCOMPARE(ValueAt(target, QStringLiteral("Machine/App/Window/Own")), QStringLiteral("too|-|-"));
        QCOMPARE(ChildNames(target, QStringLiteral("Machine/App/Extra")), QStringList());
        QCOMPARE(ValueAt(target, QStringLiteral("Machine/App/Port")), QStringLiteral("4000|integer|true"));
    }

    void emptySourceLeavesTheDestinationUnchangedButSaved()
    {
        QVERIFY(WriteFile(Path(QStringLiteral("Source.xml")), SOURCE));
        const QByteArray target = "<Cfg version=\"2.2\"><System/><Domain/><Machine><App>"
                                  "<Own type=\"string\" ts=\"5\">mine</Own></App></Machine></Cfg>";
        QVERIFY(WriteFile(Path(QStringLiteral("Target.xml")), target));
        CopyOk({QStringLiteral("App\\Plugins"), QStringLiteral("Xml:Source.xml"), QStringLiteral("App"),
                QStringLiteral("Xml:Target.xml")});
        QCOMPARE(ReadFile(Path(QStringLiteral("Target.xml.bak"))), target);
        QCOMPARE(ChildNames(Path(QStringLiteral("Target.xml")), QStringLiteral("Machine/App")),
                 QStringList{QStringLiteral("Own")});
        QCOMPARE(ValueAt(Path(QStringLiteral("Target.xml")), QStringLiteral("Machine/App/Own")),
                 QStringLiteral("mine|string|-"));
    }

    void starCopiesTheWholeView()
    {
        QVERIFY(WriteFile(Path(QStringLiteral("Source.xml")), SOURCE));
        CopyOk({QStringLiteral("*"), QStringLiteral("Xml:Source.xml"), QStringLiteral("*"),
                QStringLiteral("Xml:Target.xml")});
        const QString target = Path(QStringLiteral("Target.xml"));
        QCOMPARE(ChildNames(target, QStringLiteral("Machine")),
                 (QStringList{QStringLiteral("App"), QStringLiteral("Other")}));
        QCOMPARE(ValueAt(target, QStringLiteral("Machine/Other/Port")), QStringLiteral("5000|integer|false"));
        QCOMPARE(ValueAt(target, QStringLiteral("Machine/App/Window/Inner/Depth")),
                 QStringLiteral("3|integer|false"));
        // Only the machine view is copied.
        QCOMPARE(ChildNames(target, QStringLiteral("System")), QStringList());
    }

    void registryToXmlToRegistryKeepsEveryValue()
    {
        const QString app = QStringLiteral("App");
        QCOMPARE(SetValue(HKEY_LOCAL_MACHINE, app, QStringLiteral("Name"), REG_SZ,
                          Sz(QStringLiteral("Demo \u00e4pp"))),
                 LONG(ERROR_SUCCESS));
        QCOMPARE(
            SetValue(HKEY_LOCAL_MACHINE, app, QStringLiteral("Once"), REG_SZ, Sz(QStringLiteral("true"))),
            LONG(ERROR_SUCCESS));
        QCOMPARE(SetValue(HKEY_LOCAL_MACHINE, app, QStringLiteral("Empty"), REG_SZ, Sz(QString())),
                 LONG(ERROR_SUCCESS));
        QCOMPARE(SetValue(HKEY_LOCAL_MACHINE, app, QStringLiteral("Port"), REG_DWORD, Dword(4000)),
                 LONG(ERROR_SUCCESS));
        QCOMPARE(SetValue(HKEY_LOCAL_MACHINE, app, QStringLiteral("Negative"), REG_DWORD, Dword(quint32(-7))),
                 LONG(ERROR_SUCCESS));
        QCOMPARE(SetValue(HKEY_LOCAL_MACHINE, app + QStringLiteral("\\Window"), QStringLiteral("Geometry"),
                          REG_SZ, Sz(QStringLiteral("10,20,300,400"))),
                 LONG(ERROR_SUCCESS));
        QCOMPARE(SetValue(HKEY_LOCAL_MACHINE, app + QStringLiteral("\\Window\\Inner"),
                          QStringLiteral("Depth"), REG_DWORD, Dword(3)),
                 LONG(ERROR_SUCCESS));

        CopyOk({app, QStringLiteral("Registry"), app, QStringLiteral("Xml:Between.xml")});
        const QString between = Path(QStringLiteral("Between.xml"));
        QCOMPARE(ValueAt(between, QStringLiteral("Machine/App/Name")),
                 QStringLiteral("Demo \u00e4pp|string|false"));
        QCOMPARE(ValueAt(between, QStringLiteral("Machine/App/Once")), QStringLiteral("true|string|false"));
        QCOMPARE(ValueAt(between, QStringLiteral("Machine/App/Empty")), QStringLiteral("|string|false"));
        QCOMPARE(ValueAt(between, QStringLiteral("Machine/App/Port")), QStringLiteral("4000|integer|false"));
        QCOMPARE(ValueAt(between, QStringLiteral("Machine/App/Negative")),
                 QStringLiteral("-7|integer|false"));
        QCOMPARE(ValueAt(between, QStringLiteral("Machine/App/Window/Geometry")),
                 QStringLiteral("10,20,300,400|string|false"));
        QCOMPARE(ValueAt(between, QStringLiteral("Machine/App/Window/Inner/Depth")),
                 QStringLiteral("3|integer|false"));

        CopyOk({app, QStringLiteral("Xml:Between.xml"), QStringLiteral("Back"), QStringLiteral("Registry")});
        // Every value comes back with its text; the registry destination
        // writes texts only, so integers return as their decimal text.
        QCOMPARE(
            Dump(HKEY_LOCAL_MACHINE, QStringLiteral("Back")),
            (QStringList{
                QStringLiteral("Name=1:") + QString::fromLatin1(Sz(QStringLiteral("Demo \u00e4pp")).toHex()),
                QStringLiteral("Once=1:") + QString::fromLatin1(Sz(QStringLiteral("true")).toHex()),
                QStringLiteral("Empty=1:") + QString::fromLatin1(Sz(QString()).toHex()),
                QStringLiteral("Port=1:") + QString::fromLatin1(Sz(QStringLiteral("4000")).toHex()),
                QStringLiteral("Negative=1:") + QString::fromLatin1(Sz(QStringLiteral("-7")).toHex()),
                QStringLiteral("Window\\Geometry=1:") +
                    QString::fromLatin1(Sz(QStringLiteral("10,20,300,400")).toHex()),
                QStringLiteral("Window\\Inner\\Depth=1:") +
                    QString::fromLatin1(Sz(QStringLiteral("3")).toHex()),
            }));
        // The texts of the original key are the texts of the copy.
        QStringList original = Dump(HKEY_LOCAL_MACHINE, app);
        QCOMPARE(original.size(), 7);
        QCOMPARE(original.filter(QStringLiteral("=1:")),
                 Dump(HKEY_LOCAL_MACHINE, QStringLiteral("Back"))
                     .filter(QRegularExpression(QStringLiteral("^(Name|Once|Empty|Window\\\\Geometry)="))));
        QCOMPARE(KeyState(HKEY_CURRENT_USER, QStringLiteral("Back")), LONG(ERROR_FILE_NOT_FOUND));
    }

    void registryDestinationTypeAlsoLosesItsFirstFourCharacters()
    {
        QVERIFY(WriteFile(Path(QStringLiteral("Source.xml")), SOURCE));
        CopyOk({QStringLiteral("Other"), QStringLiteral("Xml:Source.xml"), QStringLiteral("Other"),
                QStringLiteral("Registry")});
        // The rest of the type, "stry", is taken for a file name like any other.
        QCOMPARE(ReadFile(Path(QStringLiteral("stry"))), EMPTY_DESTINATION);
        QCOMPARE(
            Dump(HKEY_LOCAL_MACHINE, QStringLiteral("Other")),
            QStringList{QStringLiteral("Port=1:") + QString::fromLatin1(Sz(QStringLiteral("5000")).toHex())});
    }

    void registryDestinationRejectsTypeAndProtection()
    {
        QVERIFY(WriteFile(Path(QStringLiteral("Source.xml")), SOURCE));
        const Run run = CfgCopy({QStringLiteral("Other"), QStringLiteral("Xml:Source.xml"),
                                 QStringLiteral("Other"), QStringLiteral("Registry")});
        QCOMPARE(run.exitCode, 0);
        QVERIFY2(run.errors.contains("The type is fixed in the windows registry and cannot be changed !"),
                 run.errors.constData());
        QVERIFY2(run.errors.contains(
                     "The protected flag is fixed in the windows registry and cannot be changed !"),
                 run.errors.constData());
    }

    void missingSourceFileFailsWithExitCode2()
    {
        const Run run = CfgCopy({QStringLiteral("App"), QStringLiteral("Xml:Missing.xml"),
                                 QStringLiteral("App"), QStringLiteral("Xml:Target.xml")});
        CompareRun(run, 2, QByteArray(),
                   QByteArray("cfgcopy: The configuration file \"Missing.xml\" does not exist.\n\n"));
        // Nothing is created before the source has opened.
        QCOMPARE(FilesInDir(), QStringList());
    }

    void unknownTypeFailsWithExitCode2()
    {
        QVERIFY(WriteFile(Path(QStringLiteral("Source.ini")), "[App]\nPort=4000\n"));
        const Run run = CfgCopy({QStringLiteral("App"), QStringLiteral("Ini:Source.ini"),
                                 QStringLiteral("App"), QStringLiteral("Xml:Target.xml")});
        QCOMPARE(run.exitCode, 2);
        QCOMPARE(run.output, QByteArray());
        QCOMPARE(run.errors,
                 QByteArray("cfgcopy: No configuration can be created for the type \"Ini:Source.ini\".\n"));
        QCOMPARE(FilesInDir(), QStringList{QStringLiteral("Source.ini")});
    }

    void unparsableDestinationFailsWithoutWriting()
    {
        QVERIFY(WriteFile(Path(QStringLiteral("Source.xml")), SOURCE));
        QVERIFY(WriteFile(Path(QStringLiteral("Target.xml")), "<Cfg><System/>"));
        const Run run = CfgCopy({QStringLiteral("App"), QStringLiteral("Xml:Source.xml"),
                                 QStringLiteral("App"), QStringLiteral("Xml:Target.xml")});
        QCOMPARE(run.exitCode, 2);
        QVERIFY2(run.errors.startsWith("cfgcopy: Parse error in file Target.xml: "), run.errors.constData());
        QVERIFY2(run.errors.endsWith(". And no valid backup file found.\n\nTALVO terminates!\n"),
                 run.errors.constData());
        QCOMPARE(ReadFile(Path(QStringLiteral("Target.xml"))), QByteArray("<Cfg><System/>"));
    }
};

QTEST_GUILESS_MAIN(tst_CfgCopy)
#include "tst_cfgcopy.moc"
