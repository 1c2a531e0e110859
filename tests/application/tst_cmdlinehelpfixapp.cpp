#include "application/cmdlinehelpfixapp.h"
#include "cmdlinehelptestsupport.h"

#include <QFile>
#include <QStandardPaths>
#include <QtTest>

namespace {

class TestableFixApp : public CmdLineHelpFixApp
{
public:
    using CmdLineHelpFixApp::CheckArgs;
    using CmdLineHelpFixApp::CreateHelpText;
    QString ProgName() const { return m_ProgName; }
    void SetProgName(const QString& name) { m_ProgName = name; }
};

QString ExpectedHelpText(const QString& prog)
{
    return prog + QLatin1String(" CfgDoc\n") + QLatin1String("\n") + ExpectedCfgDocBlock() +
           QLatin1String("\n") + QLatin1String("Examples:\n") + prog + QLatin1String(" Server\n") + prog +
           QLatin1String(" Xml:System.xml\n");
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
    std::unique_ptr<HelpTestEnvironment> m_env;
};

void TestCmdLineHelpFixApp::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
}

void TestCmdLineHelpFixApp::init()
{
    m_env = std::make_unique<HelpTestEnvironment>();
    QVERIFY2(m_env->dir.isValid(), qPrintable(m_env->dir.errorString()));
}

void TestCmdLineHelpFixApp::cleanup()
{
    m_env.reset();
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
    TestableFixApp help;
    QCOMPARE(CheckArgs(help, args), fragment);
}

void TestCmdLineHelpFixApp::helpTextNamesTheRunningProgram()
{
    TestableFixApp help;
    help.SetProgName("/opt/zent/bin/fixed");
    QCOMPARE(help.CreateHelpText(), ExpectedHelpText("/opt/zent/bin/fixed"));
}

void TestCmdLineHelpFixApp::displayWithTwoArgumentsShowsNothing()
{
    const QByteArray program = m_env->Program("fixed");
    CmdLineHelpFixApp help;
    QCOMPARE(Display(help, {program, "Fixed"}), false);
    QCOMPARE(m_env->os.m_shown, QStringList());
    QCOMPARE(QFile::exists(QFile::decodeName(program + ".txt")), false);
}

void TestCmdLineHelpFixApp::displayWithoutArgumentsShowsNothing()
{
    // The base class would complain about the missing AppKey; this one has its own.
    const QByteArray program = m_env->Program("fixed");
    CmdLineHelpFixApp help;
    QCOMPARE(Display(help, {program}), false);
    QCOMPARE(m_env->os.m_shown, QStringList());
}

void TestCmdLineHelpFixApp::displayOfBadCfgDocShowsErrorAndHelp()
{
    const QByteArray program = m_env->Program("fixed");
    CmdLineHelpFixApp help;
    QCOMPARE(Display(help, {program, "Fixed", "Registry"}), true);
    const QString fileName = QFile::decodeName(program + ".txt");
    QCOMPARE(m_env->os.m_shown, QStringList{fileName});
    const QString expected =
        QLatin1String("Command line error in CfgDoc: Unknown CfgType.\nSee command line help:\n\n") +
        ExpectedHelpText(QString::fromLatin1(program));
    QCOMPARE(RecordingOS::ReadFile(fileName), expected.toLatin1());
}

void TestCmdLineHelpFixApp::displayOfHelpRequestShowsOnlyHelp()
{
    const QByteArray program = m_env->Program("fixed");
    CmdLineHelpFixApp help;
    QCOMPARE(Display(help, {program, "/h", "Registry"}), true);
    const QString fileName = QFile::decodeName(program + ".txt");
    QCOMPARE(m_env->os.m_shown, QStringList{fileName});
    QCOMPARE(RecordingOS::ReadFile(fileName), ExpectedHelpText(QString::fromLatin1(program)).toLatin1());
}

void TestCmdLineHelpFixApp::displayWritesProgramNameInLatin1()
{
    // Argument 0 is read as Latin-1 and written as Latin-1, so its bytes (here
    // a UTF-8 name) come back unchanged in the text.
    const QByteArray program = m_env->Program(QString::fromUtf8("fix\xc3\xa9"));
    QVERIFY(program.endsWith("/fix\xc3\xa9"));
    CmdLineHelpFixApp help;
    QCOMPARE(Display(help, {program, "/h"}), true);
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
