#include "application/cmdlinehelp.h"
#include "cmdlinehelptestsupport.h"

#include <QFile>
#include <QStandardPaths>
#include <QtTest>

namespace {

// Opens the protected checks for the test.
class TestableCmdLineHelp : public CmdLineHelp
{
public:
    using CmdLineHelp::CheckAppKey;
    using CmdLineHelp::CheckArgs;
    using CmdLineHelp::CheckCfgDoc;
    using CmdLineHelp::CreateHelpText;
    QString ProgName() const { return m_ProgName; }
    void SetProgName(const QString& name) { m_ProgName = name; }
};

const QByteArray TEN_THOUSAND_COLONS(10000, ':');

QString ErrorText(const QString& fragment)
{
    return QLatin1String("Command line error") + fragment + QLatin1String("\nSee command line help:\n\n") +
           ExpectedHelpText();
}

const QString CFGKEY_ERROR = QStringLiteral(" in AppKey in CfgKey: not all characters are alphanumeric.");
const QString UNKNOWN_TYPE_ERROR = QStringLiteral(" in CfgDoc: Unknown CfgType.");
const QString NOT_IP_ERROR = QStringLiteral(" in CfgDoc in Server name: not an IP address.");

} // namespace

class TestCmdLineHelp : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void parseAppKeySplitsAtFirstThreeColons_data();
    void parseAppKeySplitsAtFirstThreeColons();
    void parseAppKeyClearsOnlyTheKey();
    void parseCfgDocSplitsAtFirstColon_data();
    void parseCfgDocSplitsAtFirstColon();

    void checkArgsReportsTheFirstFault_data();
    void checkArgsReportsTheFirstFault();
    void badInputGivesEmptyResultOrFragment_data();
    void badInputGivesEmptyResultOrFragment();
    void checkAppKeyAndCheckCfgDocGiveInnerFragments();

    void helpTextIsExact();

    void displayWithoutArgumentsShowsErrorAndHelp();
    void displayOfHelpRequestShowsOnlyHelp();
    void displayOfHelpRequestIgnoresFollowingCfgDoc();
    void displayOfGoodCommandLineShowsNothing();
    void displayComposesTheFullErrorText_data();
    void displayComposesTheFullErrorText();
    void displayWritesLatin1();
    void displayTruncatesAnOldHelpFile();
    void displayOfUnwritableHelpFileGoesToStandardError();
    void displayFailingToShowGoesToStandardError();
    void displayKeepsProgramName();
    void copyAndAssignmentCopyProgramName();
    void displayReplacesAPlantedLinkInsteadOfWritingThroughIt();

private:
    QString HelpFileOf(const QByteArray& program) const { return QFile::decodeName(program + ".txt"); }

    std::unique_ptr<HelpTestEnvironment> m_env;
};

void TestCmdLineHelp::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
}

void TestCmdLineHelp::init()
{
    m_env = std::make_unique<HelpTestEnvironment>();
    QVERIFY2(m_env->dir.isValid(), qPrintable(m_env->dir.errorString()));
}

void TestCmdLineHelp::cleanup()
{
    m_env.reset();
}

void TestCmdLineHelp::parseAppKeySplitsAtFirstThreeColons_data()
{
    QTest::addColumn<QString>("appKey");
    QTest::addColumn<QStringList>("parts");

    QTest::newRow("key_only") << "QX310" << QStringList{"QX310", "", "", ""};
    QTest::newRow("key_and_preload") << "QX310:a.dll,b.dll" << QStringList{"QX310", "a.dll,b.dll", "", ""};
    QTest::newRow("key_preload_postload") << "QX:a.dll:b.dll" << QStringList{"QX", "a.dll", "b.dll", ""};
    QTest::newRow("rest_keeps_its_colons")
        << "QX:a.dll:b.dll:r:s" << QStringList{"QX", "a.dll", "b.dll", "r:s"};
    QTest::newRow("empty") << "" << QStringList{"", "", "", ""};
    QTest::newRow("one_colon") << ":" << QStringList{"", "", "", ""};
    QTest::newRow("four_colons") << "::::" << QStringList{"", "", "", ":"};
    QTest::newRow("ten_thousand_colons") << QString::fromLatin1(TEN_THOUSAND_COLONS)
                                         << QStringList{"", "", "", QString(9997, QLatin1Char(':'))};
    QTest::newRow("empty_key_with_preload") << ":a.dll" << QStringList{"", "a.dll", "", ""};
}

void TestCmdLineHelp::parseAppKeySplitsAtFirstThreeColons()
{
    QFETCH(QString, appKey);
    QFETCH(QStringList, parts);
    QString cfgKey, preDlls, postDlls, rest;
    CmdLineHelp::ParseAppKey(appKey, cfgKey, preDlls, postDlls, rest);
    QCOMPARE((QStringList{cfgKey, preDlls, postDlls, rest}), parts);
}

void TestCmdLineHelp::parseAppKeyClearsOnlyTheKey()
{
    QString cfgKey = "old key", preDlls = "old pre", postDlls = "old post", rest = "old rest";
    CmdLineHelp::ParseAppKey("Key:a.dll", cfgKey, preDlls, postDlls, rest);
    QCOMPARE(cfgKey, QString("Key"));
    QCOMPARE(preDlls, QString("a.dll"));
    QCOMPARE(postDlls, QString("old post"));
    QCOMPARE(rest, QString("old rest"));

    CmdLineHelp::ParseAppKey("Other", cfgKey, preDlls, postDlls, rest);
    QCOMPARE(cfgKey, QString("Other"));
    QCOMPARE(preDlls, QString("a.dll"));
}

void TestCmdLineHelp::parseCfgDocSplitsAtFirstColon_data()
{
    QTest::addColumn<QString>("cfgDoc");
    QTest::addColumn<QString>("cfgType");
    QTest::addColumn<QString>("cfgTarget");

    QTest::newRow("xml_with_file") << "Xml:Cfg.xml"
                                   << "Xml"
                                   << "Cfg.xml";
    QTest::newRow("type_only") << "Server"
                               << "Server"
                               << "";
    QTest::newRow("empty_target") << "Server:"
                                  << "Server"
                                  << "";
    QTest::newRow("target_keeps_colons") << "Server:::1"
                                         << "Server"
                                         << "::1";
    QTest::newRow("minus_without_colon_is_option") << "-style"
                                                   << "-"
                                                   << "";
    QTest::newRow("minus_inside_without_colon") << "a-b"
                                                << "-"
                                                << "";
    QTest::newRow("minus_with_colon_is_a_type") << "a-b:c"
                                                << "a-b"
                                                << "c";
    QTest::newRow("empty") << ""
                           << ""
                           << "";
    QTest::newRow("colon_only") << ":"
                                << ""
                                << "";
}

void TestCmdLineHelp::parseCfgDocSplitsAtFirstColon()
{
    QFETCH(QString, cfgDoc);
    QFETCH(QString, cfgType);
    QFETCH(QString, cfgTarget);
    QString type = "old type", target = "old target";
    CmdLineHelp::ParseCfgDoc(cfgDoc, type, target);
    QCOMPARE(type, cfgType);
    QCOMPARE(target, cfgTarget);
}

void TestCmdLineHelp::checkArgsReportsTheFirstFault_data()
{
    QTest::addColumn<QList<QByteArray>>("args");
    QTest::addColumn<QString>("fragment");

    using Args = QList<QByteArray>;
    QTest::newRow("no_arguments") << Args{"prog"} << ", the argument AppKey is missing.";
    QTest::newRow("star_key_passes") << Args{"prog", "*"} << "";
    QTest::newRow("star_key_with_dll_lists_passes") << Args{"prog", "*:a.dll:b.dll"} << "";
    QTest::newRow("single_letter_key_fails") << Args{"prog", "A"} << CFGKEY_ERROR;
    QTest::newRow("letter_then_non_space_passes") << Args{"prog", "A-1"} << "";
    QTest::newRow("key_starting_with_digit_fails") << Args{"prog", "1Ab"} << CFGKEY_ERROR;
    QTest::newRow("key_with_blank_fails") << Args{"prog", "Ab c"} << CFGKEY_ERROR;
    QTest::newRow("key_is_case_sensitive_star_only") << Args{"prog", "**"} << CFGKEY_ERROR;
    QTest::newRow("dll_suffix_in_any_case_passes") << Args{"prog", "Ab:x.DLL"} << "";
    QTest::newRow("dll_without_suffix_fails")
        << Args{"prog", "Ab:x"}
        << " in AppKey in DllList for preload: no suffix found. \".dll\" is expected for x.";
    QTest::newRow("dll_with_wrong_suffix_fails")
        << Args{"prog", "Ab:x.so"}
        << " in AppKey in DllList for preload: wrong suffix found. \".dll\" is expected for x.so.";
    QTest::newRow("suffix_after_last_dot_counts")
        << Args{"prog", "Ab:x.dll.bak"}
        << " in AppKey in DllList for preload: wrong suffix found. \".dll\" is expected for x.dll.bak.";
    QTest::newRow("trailing_comma_passes") << Args{"prog", "Ab:a.dll,:b.dll"} << "";
    QTest::newRow("leading_comma_fails")
        << Args{"prog", "Ab:,a.dll"}
        << " in AppKey in DllList for preload: no suffix found. \".dll\" is expected for .";
    QTest::newRow("second_item_checked")
        << Args{"prog", "Ab:a.dll,b"}
        << " in AppKey in DllList for preload: no suffix found. \".dll\" is expected for b.";
    QTest::newRow("postload_checked")
        << Args{"prog", "Ab::b.txt"}
        << " in AppKey in DllList for postload: wrong suffix found. \".dll\" is expected for b.txt.";
    QTest::newRow("empty_lists_pass") << Args{"prog", "Ab::"} << "";
    QTest::newRow("fourth_part_never_checked") << Args{"prog", "Ab:a.dll:b.dll:no suffix,,"} << "";
    QTest::newRow("key_checked_before_lists") << Args{"prog", "A:x"} << CFGKEY_ERROR;
    QTest::newRow("preload_checked_before_postload")
        << Args{"prog", "Ab:x:y"}
        << " in AppKey in DllList for preload: no suffix found. \".dll\" is expected for x.";
    QTest::newRow("appkey_checked_before_cfgdoc") << Args{"prog", "A", "Registry"} << CFGKEY_ERROR;

    QTest::newRow("registry_is_unknown_type") << Args{"prog", "Ab", "Registry"} << UNKNOWN_TYPE_ERROR;
    QTest::newRow("type_is_case_sensitive") << Args{"prog", "Ab", "xml:Cfg.xml"} << UNKNOWN_TYPE_ERROR;
    QTest::newRow("minus_option_passes") << Args{"prog", "Ab", "-style"} << "";
    QTest::newRow("server_passes") << Args{"prog", "Ab", "Server"} << "";
    QTest::newRow("server_with_empty_target_passes") << Args{"prog", "Ab", "Server:"} << "";
    QTest::newRow("localhost_in_any_case_passes") << Args{"prog", "Ab", "Server:LocalHost"} << "";
    QTest::newRow("ipv4_address_passes") << Args{"prog", "Ab", "Server:192.168.10.1"} << "";
    QTest::newRow("ipv6_address_passes") << Args{"prog", "Ab", "Server:::1"} << "";
    QTest::newRow("host_name_fails") << Args{"prog", "Ab", "Server:somehost"} << NOT_IP_ERROR;
    QTest::newRow("address_with_port_fails")
        << Args{"prog", "Ab", "Server:192.168.10.1:4000"} << NOT_IP_ERROR;
    QTest::newRow("xml_suffix_in_any_case_passes") << Args{"prog", "Ab", "Xml:Cfg.XML"} << "";
    QTest::newRow("xml_without_suffix_fails")
        << Args{"prog", "Ab", "Xml:Cfg"}
        << " in CfgDoc in Xml File name: no suffix found. \".xml\" is expected.";
    QTest::newRow("xml_with_wrong_suffix_fails")
        << Args{"prog", "Ab", "Xml:Cfg.txt"}
        << " in CfgDoc in Xml File name: wrong suffix found. \".xml\" is expected.";
    QTest::newRow("xml_alone_fails") << Args{"prog", "Ab", "Xml"}
                                     << " in CfgDoc in Xml File name: no suffix found. \".xml\" is expected.";
    QTest::newRow("xml_with_empty_target_fails")
        << Args{"prog", "Ab", "Xml:"}
        << " in CfgDoc in Xml File name: no suffix found. \".xml\" is expected.";
    QTest::newRow("arguments_after_cfgdoc_never_checked")
        << Args{"prog", "Ab", "Xml:a.xml", "Registry", "A"} << "";
}

void TestCmdLineHelp::checkArgsReportsTheFirstFault()
{
    QFETCH(QList<QByteArray>, args);
    QFETCH(QString, fragment);
    TestableCmdLineHelp help;
    QCOMPARE(CheckArgs(help, args), fragment);
}

// Each row states exactly what comes back: an empty text or the fragment.
void TestCmdLineHelp::badInputGivesEmptyResultOrFragment_data()
{
    QTest::addColumn<QList<QByteArray>>("args");
    QTest::addColumn<QString>("fragment");

    using Args = QList<QByteArray>;
    QTest::newRow("no_program_even") << Args{} << ", the argument AppKey is missing.";
    QTest::newRow("empty_appkey_fragment") << Args{"prog", ""} << CFGKEY_ERROR;
    QTest::newRow("empty_program_and_appkey_fragment") << Args{"", ""} << CFGKEY_ERROR;
    QTest::newRow("empty_cfgdoc_fragment") << Args{"prog", "Ab", ""} << UNKNOWN_TYPE_ERROR;
    QTest::newRow("colon_appkey_fragment") << Args{"prog", ":"} << CFGKEY_ERROR;
    QTest::newRow("colons_behind_key_empty") << Args{"prog", "Ab:::"} << "";
    QTest::newRow("colon_cfgdoc_fragment") << Args{"prog", "Ab", ":"} << UNKNOWN_TYPE_ERROR;
    QTest::newRow("ten_thousand_colons_appkey_fragment") << Args{"prog", TEN_THOUSAND_COLONS} << CFGKEY_ERROR;
    QTest::newRow("key_and_ten_thousand_colons_empty") << Args{"prog", "Ab" + TEN_THOUSAND_COLONS} << "";
    QTest::newRow("ten_thousand_colons_cfgdoc_fragment")
        << Args{"prog", "Ab", TEN_THOUSAND_COLONS} << UNKNOWN_TYPE_ERROR;
    QTest::newRow("server_ten_thousand_colons_fragment")
        << Args{"prog", "Ab", "Server" + TEN_THOUSAND_COLONS} << NOT_IP_ERROR;
    QTest::newRow("xml_ten_thousand_colons_fragment")
        << Args{"prog", "Ab", "Xml" + TEN_THOUSAND_COLONS}
        << " in CfgDoc in Xml File name: no suffix found. \".xml\" is expected.";
    QTest::newRow("non_ascii_first_letter_fragment") << Args{"prog", "\xc3\xa9t\xe9"} << CFGKEY_ERROR;
    QTest::newRow("non_ascii_after_letter_empty") << Args{"prog", "Ab\xff\x80:\xe9.dll"} << "";
    QTest::newRow("non_ascii_dll_suffix_fragment")
        << Args{"prog", "Ab:x.dl\xe9"}
        << QString::fromLatin1(
               " in AppKey in DllList for preload: wrong suffix found. \".dll\" is expected for "
               "x.dl\xe9.");
    QTest::newRow("non_ascii_xml_name_empty") << Args{"prog", "Ab", "Xml:\xe9\xff.XML"} << "";
    QTest::newRow("non_ascii_server_fragment") << Args{"prog", "Ab", "Server:\xe9"} << NOT_IP_ERROR;
    QTest::newRow("non_ascii_type_fragment") << Args{"prog", "Ab", "\xd8ml:a.xml"} << UNKNOWN_TYPE_ERROR;
}

void TestCmdLineHelp::badInputGivesEmptyResultOrFragment()
{
    QFETCH(QList<QByteArray>, args);
    QFETCH(QString, fragment);
    TestableCmdLineHelp help;
    QCOMPARE(CheckArgs(help, args), fragment);
}

void TestCmdLineHelp::checkAppKeyAndCheckCfgDocGiveInnerFragments()
{
    TestableCmdLineHelp help;
    QCOMPARE(help.CheckAppKey("A"), QString(" in CfgKey: not all characters are alphanumeric."));
    QCOMPARE(help.CheckAppKey("Ab:a.dll:b"),
             QString(" in DllList for postload: no suffix found. \".dll\" is expected for b."));
    QCOMPARE(help.CheckAppKey("Ab:a.dll:b.dll"), QString());
    QCOMPARE(help.CheckCfgDoc("Registry:x"), QString(": Unknown CfgType."));
    QCOMPARE(help.CheckCfgDoc("Server:host"), QString(" in Server name: not an IP address."));
    QCOMPARE(help.CheckCfgDoc("Xml:a.xml"), QString());
}

void TestCmdLineHelp::helpTextIsExact()
{
    TestableCmdLineHelp help;
    const QString text = help.CreateHelpText();
    QCOMPARE(text, ExpectedHelpText());
    QCOMPARE(text.toLatin1(), ExpectedHelpText().toLatin1());
    QVERIFY(text.contains("seperated"));
}

void TestCmdLineHelp::displayWithoutArgumentsShowsErrorAndHelp()
{
    const QByteArray program = m_env->Program("prog");
    CmdLineHelp help;
    QCOMPARE(Display(help, {program}), true);
    QCOMPARE(m_env->os.m_shown, QStringList{HelpFileOf(program)});
    const QByteArray expected = ErrorText(", the argument AppKey is missing.").toLatin1();
    QCOMPARE(m_env->os.m_shownContent.value(0), expected);
    QCOMPARE(RecordingOS::ReadFile(HelpFileOf(program)), expected);
    // Shown, so nothing on standard error.
    QCOMPARE(m_env->os.m_standardError, QByteArray());
}

void TestCmdLineHelp::displayOfHelpRequestShowsOnlyHelp()
{
    const QByteArray program = m_env->Program("prog");
    CmdLineHelp help;
    QCOMPARE(Display(help, {program, "/h"}), true);
    QCOMPARE(m_env->os.m_shown, QStringList{HelpFileOf(program)});
    QCOMPARE(RecordingOS::ReadFile(HelpFileOf(program)), ExpectedHelpText().toLatin1());
}

void TestCmdLineHelp::displayOfHelpRequestIgnoresFollowingCfgDoc()
{
    const QByteArray program = m_env->Program("prog");
    CmdLineHelp help;
    QCOMPARE(Display(help, {program, "/h", "Registry"}), true);
    QCOMPARE(RecordingOS::ReadFile(HelpFileOf(program)), ExpectedHelpText().toLatin1());
}

void TestCmdLineHelp::displayOfGoodCommandLineShowsNothing()
{
    const QByteArray program = m_env->Program("prog");
    CmdLineHelp help;
    QCOMPARE(Display(help, {program, "DemoApp:a.dll", "Xml:Cfg.xml"}), false);
    QCOMPARE(m_env->os.m_shown, QStringList());
    QCOMPARE(QFile::exists(HelpFileOf(program)), false);
}

void TestCmdLineHelp::displayComposesTheFullErrorText_data()
{
    QTest::addColumn<QList<QByteArray>>("args");
    QTest::addColumn<QString>("errorLine");

    using Args = QList<QByteArray>;
    QTest::newRow("appkey_missing") << Args{} << "Command line error, the argument AppKey is missing.";
    QTest::newRow("wrong_preload_suffix") << Args{"Ab:x.so"}
                                          << "Command line error in AppKey in DllList for preload: wrong "
                                             "suffix found. \".dll\" is expected for x.so.";
    QTest::newRow("server_not_ip") << Args{"Ab", "Server:somehost"}
                                   << "Command line error in CfgDoc in Server name: not an IP address.";
    QTest::newRow("unknown_type") << Args{"Ab", "Registry"}
                                  << "Command line error in CfgDoc: Unknown CfgType.";
}

void TestCmdLineHelp::displayComposesTheFullErrorText()
{
    QFETCH(QList<QByteArray>, args);
    QFETCH(QString, errorLine);
    const QByteArray program = m_env->Program("prog");
    CmdLineHelp help;
    QCOMPARE(Display(help, QList<QByteArray>{program} + args), true);
    const QByteArray expected =
        (errorLine + QLatin1String("\nSee command line help:\n\n") + ExpectedHelpText()).toLatin1();
    QCOMPARE(RecordingOS::ReadFile(HelpFileOf(program)), expected);
}

void TestCmdLineHelp::displayWritesLatin1()
{
    const QByteArray program = m_env->Program("prog");
    CmdLineHelp help;
    QCOMPARE(Display(help, {program, "Ab:\xe9t\xe9.so"}), true);
    const QByteArray expectedStart =
        "Command line error in AppKey in DllList for preload: wrong suffix found. "
        "\".dll\" is expected for \xe9t\xe9.so.\nSee command line help:\n\n";
    const QByteArray content = RecordingOS::ReadFile(HelpFileOf(program));
    QCOMPARE(content, expectedStart + ExpectedHelpText().toLatin1());
    // One byte per character, not the two bytes of UTF-8.
    QCOMPARE(content.count('\xe9'), 2);
    QCOMPARE(content.contains("\xc3\xa9"), false);
}

void TestCmdLineHelp::displayTruncatesAnOldHelpFile()
{
    const QByteArray program = m_env->Program("prog");
    {
        QFile old(HelpFileOf(program));
        QVERIFY(old.open(QIODevice::WriteOnly));
        old.write(QByteArray(20000, 'x'));
    }
    CmdLineHelp help;
    QCOMPARE(Display(help, {program, "/h"}), true);
    QCOMPARE(RecordingOS::ReadFile(HelpFileOf(program)), ExpectedHelpText().toLatin1());
}

void TestCmdLineHelp::displayOfUnwritableHelpFileGoesToStandardError()
{
    const QByteArray program = m_env->Program("missing-folder/prog");
    CmdLineHelp help;
    QCOMPARE(Display(help, {program, "/h"}), true);
    QCOMPARE(QFile::exists(HelpFileOf(program)), false);
    // No file to show: the text itself goes to standard error.
    QCOMPARE(m_env->os.m_shown, QStringList());
    QCOMPARE(m_env->os.m_standardError, ExpectedHelpText().toLatin1());
}

void TestCmdLineHelp::displayFailingToShowGoesToStandardError()
{
    m_env->os.m_result = false;
    const QByteArray program = m_env->Program("prog");
    CmdLineHelp help;
    QCOMPARE(Display(help, {program, "A"}), true);
    QCOMPARE(m_env->os.m_shown, QStringList{HelpFileOf(program)});
    QCOMPARE(RecordingOS::ReadFile(HelpFileOf(program)), ErrorText(CFGKEY_ERROR).toLatin1());
    QCOMPARE(m_env->os.m_standardError, ErrorText(CFGKEY_ERROR).toLatin1());
}

void TestCmdLineHelp::displayKeepsProgramName()
{
    const QByteArray program = m_env->Program("prog");
    TestableCmdLineHelp help;
    QCOMPARE(help.ProgName(), QString());
    QCOMPARE(Display(help, {program, "Ab", "Server"}), false);
    QCOMPARE(help.ProgName(), QString::fromLatin1(program));
}

void TestCmdLineHelp::copyAndAssignmentCopyProgramName()
{
    TestableCmdLineHelp original;
    original.SetProgName("first");
    TestableCmdLineHelp copy(original);
    QCOMPARE(copy.ProgName(), QString("first"));
    TestableCmdLineHelp assigned;
    assigned = original;
    QCOMPARE(assigned.ProgName(), QString("first"));
}

// Another user planted the help file's name as a link to a file of the user's.
void TestCmdLineHelp::displayReplacesAPlantedLinkInsteadOfWritingThroughIt()
{
    const QByteArray program = m_env->Program("prog");
    const QString victim = QFile::decodeName(m_env->Program("victim"));
    {
        QFile file(victim);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("victim's bytes");
    }
    QVERIFY(QFile::link(victim, HelpFileOf(program)));
    CmdLineHelp help;
    QCOMPARE(Display(help, {program, "/h"}), true);
    QCOMPARE(RecordingOS::ReadFile(victim), QByteArray("victim's bytes"));
    QVERIFY(!QFileInfo(HelpFileOf(program)).isSymLink());
    QCOMPARE(RecordingOS::ReadFile(HelpFileOf(program)), ExpectedHelpText().toLatin1());
}

QTEST_GUILESS_MAIN(TestCmdLineHelp)
#include "tst_cmdlinehelp.moc"
