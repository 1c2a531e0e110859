#include "application/windowscommandline.h"

#include <QtTest>

class tst_WindowsCommandLine : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void quoteArgument_data()
    {
        QTest::addColumn<QString>("argument");
        QTest::addColumn<QString>("quoted");
        QTest::newRow("plain") << "plain"
                               << "plain";
        QTest::newRow("empty") << ""
                               << "\"\"";
        QTest::newRow("blank") << "a b"
                               << "\"a b\"";
        QTest::newRow("tab") << "a\tb"
                             << "\"a\tb\"";
        QTest::newRow("quote") << "/Opt=\"x\""
                               << "/Opt=\\\"x\\\"";
        QTest::newRow("quote_and_blank") << "/Opt=\"a b\""
                                         << "\"/Opt=\\\"a b\\\"\"";
        QTest::newRow("backslash_before_quote") << "a\\\"b"
                                                << "a\\\\\\\"b";
        QTest::newRow("trailing_backslash_with_blank") << "c:\\my dir\\"
                                                       << "\"c:\\my dir\"\\";
        QTest::newRow("backslashes_alone") << "c:\\dir\\file"
                                           << "c:\\dir\\file";
    }

    void quoteArgument()
    {
        QFETCH(QString, argument);
        QFETCH(QString, quoted);
        QCOMPARE(WindowsCommandLine::QuoteArgument(argument), quoted);
    }

    void buildJoinsProgramArgumentsAndNativeString()
    {
        QCOMPARE(WindowsCommandLine::Build("/usr/bin/tool", {"a", "b c"}, QString()),
                 QStringLiteral("\\usr\\bin\\tool  a \"b c\""));
        QCOMPARE(WindowsCommandLine::Build("C:/Program Files/tool.exe", {}, "/Opt=\"x\""),
                 QStringLiteral("\"C:\\Program Files\\tool.exe\"  /Opt=\"x\""));
        QCOMPARE(WindowsCommandLine::Build("tool", {""}, QString()), QStringLiteral("tool  \"\""));
        QCOMPARE(WindowsCommandLine::Build(QString(), {}, "x"), QStringLiteral("x"));
    }

    void split_data()
    {
        QTest::addColumn<QString>("commandLine");
        QTest::addColumn<QStringList>("argv");
        QTest::newRow("words") << "tool a b" << QStringList{"tool", "a", "b"};
        QTest::newRow("blanks_and_tabs") << "tool  a\t\tb " << QStringList{"tool", "a", "b"};
        QTest::newRow("quoted_program_keeps_backslashes")
            << "\"C:\\Program Files\\t.exe\" x" << QStringList{"C:\\Program Files\\t.exe", "x"};
        QTest::newRow("quoted_blank") << "t \"a b\"" << QStringList{"t", "a b"};
        QTest::newRow("embedded_quotes") << "t /Opt=\"a b\"c" << QStringList{"t", "/Opt=a bc"};
        QTest::newRow("escaped_quote") << "t a\\\"b" << QStringList{"t", "a\"b"};
        QTest::newRow("even_backslashes_then_quote") << "t a\\\\\"b c\"" << QStringList{"t", "a\\b c"};
        QTest::newRow("odd_backslashes_then_quote") << "t a\\\\\\\"b" << QStringList{"t", "a\\\"b"};
        QTest::newRow("backslashes_without_quote") << "t a\\\\b\\" << QStringList{"t", "a\\\\b\\"};
        QTest::newRow("doubled_quote_inside_quotes") << "t \"a\"\"b\"" << QStringList{"t", "a\"b"};
        QTest::newRow("empty_quoted") << "t \"\" x" << QStringList{"t", "", "x"};
        QTest::newRow("unclosed_quote") << "t \"a b" << QStringList{"t", "a b"};
    }

    void split()
    {
        QFETCH(QString, commandLine);
        QFETCH(QStringList, argv);
        QCOMPARE(WindowsCommandLine::Split(commandLine), argv);
    }

    void quotedArgumentsComeBackUnchanged()
    {
        const QStringList arguments{"", "a b", "x\"y", "c:\\dir\\", "c:\\my dir\\", "\\\\\"", "\t"};
        QCOMPARE(WindowsCommandLine::Split(WindowsCommandLine::Build("tool", arguments, QString())).mid(1),
                 arguments);
    }

    void quotedSwitchWithBlankArrivesSplit()
    {
        // What a Windows program receives for the native string "/Opt="a b"".
        QCOMPARE(WindowsCommandLine::Split(
                     WindowsCommandLine::Build("tool", {"/Opt=\"a b\""}, QStringLiteral("\"/Opt=\"a b\"\""))),
                 (QStringList{"tool", "/Opt=\"a b\"", "/Opt=a", "b"}));
    }
};

QTEST_GUILESS_MAIN(tst_WindowsCommandLine)
#include "tst_windowscommandline.moc"
