#include "application/cmdlinehelpfixapp.h"
#include "common/commandline.h"
#include "kvbase/zentos.h"

#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

namespace {

// Records which files would have been shown instead of opening a viewer.
class RecordingOS : public ZentOS
{
public:
    bool DisplayTextFile(const QString& fileName) override
    {
        m_shown.append(fileName);
        return true;
    }
    QStringList m_shown;
};

class TestableFixApp : public CmdLineHelpFixApp
{
public:
    using CmdLineHelpFixApp::CheckArgs;
    using CmdLineHelpFixApp::CreateHelpText;
    QString ProgName() const { return m_ProgName; }
    void SetProgName(const QString& name) { m_ProgName = name; }
};

QByteArray ReadFile(const QString& fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

QString ExpectedHelpText(const QString& prog)
{
    const QString blanks27(27, QLatin1Char(' '));
    const QString tabs13(13, QLatin1Char('\t'));
    return prog + QLatin1String(" CfgDoc\n") + QLatin1String("\n") +
           QLatin1String("CfgDoc     =   CfgType:CfgTarget\n") +
           QLatin1String("CfgType    =   [ Registry, Xml, Server ] default:Server, case sensitive\n") +
           QLatin1String("CfgTarget( Registry )  =   none, not available in LINUX\n") +
           QLatin1String("CfgTarget( Xml )       =   The Xml file name. Extension .xml is expected.\n") +
           blanks27 + QLatin1String("default: Cfg.xml\n") +
           QLatin1String("CfgTarget( Server )    =   The IP address and port of the machine, \n") + tabs13 +
           QLatin1String(" the server is installed on.\n") + blanks27 +
           QLatin1String("default: The IP address of the local machine.\n") + tabs13 +
           QLatin1String(" default: Port is 4000\n") + QLatin1String("\n") + QLatin1String("Examples:\n") +
           prog + QLatin1String(" Server\n") + prog + QLatin1String(" Xml:System.xml\n");
}

} // namespace

class TestCmdLineHelpFixApp : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void checkArgsLooksOnlyAtCfgDoc_data();
    void checkArgsLooksOnlyAtCfgDoc();
    void helpTextNamesTheRunningProgram();

    void displayWithTwoArgumentsShowsNothing();
    void displayWithoutArgumentsShowsNothing();
    void displayOfBadCfgDocShowsErrorAndHelp();
    void displayOfHelpRequestShowsOnlyHelp();
    void displayWritesProgramNameInLatin1();
    void copyAndMoveKeepProgramName();

private:
    RecordingOS m_os;
    QTemporaryDir* m_pDir = nullptr;
};

void TestCmdLineHelpFixApp::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
}

void TestCmdLineHelpFixApp::init()
{
    m_os.m_shown.clear();
    ZentOS::SetInstance(&m_os);
    m_pDir = new QTemporaryDir;
    QVERIFY2(m_pDir->isValid(), qPrintable(m_pDir->errorString()));
}

void TestCmdLineHelpFixApp::cleanup()
{
    ZentOS::SetInstance(nullptr);
    delete m_pDir;
    m_pDir = nullptr;
}

void TestCmdLineHelpFixApp::checkArgsLooksOnlyAtCfgDoc_data()
{
    QTest::addColumn<QList<QByteArray>>("args");
    QTest::addColumn<QString>("fragment");

    using Args = QList<QByteArray>;
    QTest::newRow("no_arguments_never_fail") << Args{} << "";
    QTest::newRow("program_only_never_fails") << Args{"prog"} << "";
    QTest::newRow("two_arguments_never_fail") << Args{"prog", "A:x:y"} << "";
    QTest::newRow("two_empty_arguments_never_fail") << Args{"", ""} << "";
    QTest::newRow("bad_appkey_not_looked_at") << Args{"prog", "A", "Xml:Cfg.xml"} << "";
    QTest::newRow("server_passes") << Args{"prog", "Fixed", "Server"} << "";
    QTest::newRow("minus_option_passes") << Args{"prog", "Fixed", "-style"} << "";
    QTest::newRow("registry_is_unknown_type")
        << Args{"prog", "Fixed", "Registry"} << " in CfgDoc: Unknown CfgType.";
    QTest::newRow("empty_cfgdoc_is_unknown_type")
        << Args{"prog", "Fixed", ""} << " in CfgDoc: Unknown CfgType.";
    QTest::newRow("host_name_fails") << Args{"prog", "Fixed", "Server:somehost"}
                                     << " in CfgDoc in Server name: not an IP address.";
    QTest::newRow("xml_without_suffix_fails")
        << Args{"prog", "Fixed", "Xml:Cfg"}
        << " in CfgDoc in Xml File name: no suffix found. \".xml\" is expected.";
    QTest::newRow("ten_thousand_colons_fail")
        << Args{"prog", "Fixed", QByteArray(10000, ':')} << " in CfgDoc: Unknown CfgType.";
    QTest::newRow("non_ascii_xml_name_passes") << Args{"prog", "Fixed", "Xml:\xe9.xml"} << "";
    QTest::newRow("fourth_argument_never_checked") << Args{"prog", "Fixed", "Server", "Registry"} << "";
}

void TestCmdLineHelpFixApp::checkArgsLooksOnlyAtCfgDoc()
{
    QFETCH(QList<QByteArray>, args);
    QFETCH(QString, fragment);
    CommandLine line(args);
    TestableFixApp help;
    QCOMPARE(help.CheckArgs(line.argc(), line.argv()), fragment);
}

void TestCmdLineHelpFixApp::helpTextNamesTheRunningProgram()
{
    TestableFixApp help;
    help.SetProgName("/opt/zent/bin/fixed");
    QCOMPARE(help.CreateHelpText(), ExpectedHelpText("/opt/zent/bin/fixed"));
}

void TestCmdLineHelpFixApp::displayWithTwoArgumentsShowsNothing()
{
    const QByteArray program = QFile::encodeName(m_pDir->filePath("fixed"));
    CommandLine line({program, "Fixed"});
    CmdLineHelpFixApp help;
    QCOMPARE(help.Display(line.argc(), line.argv()), false);
    QCOMPARE(m_os.m_shown, QStringList());
    QCOMPARE(QFile::exists(QFile::decodeName(program + ".txt")), false);
}

void TestCmdLineHelpFixApp::displayWithoutArgumentsShowsNothing()
{
    // The base class would complain about the missing AppKey; this one has its own.
    const QByteArray program = QFile::encodeName(m_pDir->filePath("fixed"));
    CommandLine line({program});
    CmdLineHelpFixApp help;
    QCOMPARE(help.Display(line.argc(), line.argv()), false);
    QCOMPARE(m_os.m_shown, QStringList());
}

void TestCmdLineHelpFixApp::displayOfBadCfgDocShowsErrorAndHelp()
{
    const QByteArray program = QFile::encodeName(m_pDir->filePath("fixed"));
    CommandLine line({program, "Fixed", "Registry"});
    CmdLineHelpFixApp help;
    QCOMPARE(help.Display(line.argc(), line.argv()), true);
    const QString fileName = QFile::decodeName(program + ".txt");
    QCOMPARE(m_os.m_shown, QStringList{fileName});
    const QString expected =
        QLatin1String("Command line error in CfgDoc: Unknown CfgType.\nSee command line help:\n\n") +
        ExpectedHelpText(QString::fromLatin1(program));
    QCOMPARE(ReadFile(fileName), expected.toLatin1());
}

void TestCmdLineHelpFixApp::displayOfHelpRequestShowsOnlyHelp()
{
    const QByteArray program = QFile::encodeName(m_pDir->filePath("fixed"));
    CommandLine line({program, "/h", "Registry"});
    CmdLineHelpFixApp help;
    QCOMPARE(help.Display(line.argc(), line.argv()), true);
    const QString fileName = QFile::decodeName(program + ".txt");
    QCOMPARE(m_os.m_shown, QStringList{fileName});
    QCOMPARE(ReadFile(fileName), ExpectedHelpText(QString::fromLatin1(program)).toLatin1());
}

void TestCmdLineHelpFixApp::displayWritesProgramNameInLatin1()
{
    // Argument 0 is read as Latin-1 and written as Latin-1, so its bytes (here
    // a UTF-8 name) come back unchanged in the text.
    const QByteArray program = QFile::encodeName(m_pDir->filePath(QString::fromUtf8("fix\xc3\xa9")));
    QVERIFY(program.endsWith("/fix\xc3\xa9"));
    CommandLine line({program, "/h"});
    CmdLineHelpFixApp help;
    QCOMPARE(help.Display(line.argc(), line.argv()), true);
    QFile file(QFile::decodeName(program + ".txt"));
    QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(file.errorString()));
    const QByteArray content = file.readAll();
    QVERIFY(content.startsWith(program + " CfgDoc\n\n"));
    QVERIFY(content.endsWith("Examples:\n" + program + " Server\n" + program + " Xml:System.xml\n"));
    QCOMPARE(content, ExpectedHelpText(QString::fromLatin1(program)).toLatin1());
}

void TestCmdLineHelpFixApp::copyAndMoveKeepProgramName()
{
    TestableFixApp original;
    original.SetProgName("fixed");
    TestableFixApp copy(original);
    QCOMPARE(copy.ProgName(), QString("fixed"));
    TestableFixApp moved(std::move(copy));
    QCOMPARE(moved.ProgName(), QString("fixed"));
    TestableFixApp assigned;
    assigned = original;
    QCOMPARE(assigned.ProgName(), QString("fixed"));
}

QTEST_GUILESS_MAIN(TestCmdLineHelpFixApp)
#include "tst_cmdlinehelpfixapp.moc"
