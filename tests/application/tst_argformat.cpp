#include "application/argformat.h"
#include "common/recordingwriter.h"
#include "kvbase/errorhandler.h"

#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <cstring>

namespace {

QList<QByteArray> Entries(int argc, char** argv)
{
    QList<QByteArray> entries;
    for (int i = 0; i < argc; ++i)
        entries.append(argv[i] ? QByteArray(argv[i]) : QByteArray("<null>"));
    return entries;
}

// A vector made by ArgFormat itself from entries, so that it can be freed by DeleteArgs.
void MakeVector(const QList<QByteArray>& entries, int& argc, char**& argv)
{
    argc = entries.size();
    argv = new char*[entries.size()];
    for (int i = 0; i < entries.size(); ++i) {
        argv[i] = new char[entries[i].size() + 1];
        std::memcpy(argv[i], entries[i].constData(), entries[i].size() + 1);
    }
}

} // namespace

class TestArgFormat : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void createArgsSplitsAtSingleBlanks_data();
    void createArgsSplitsAtSingleBlanks();
    void createArgsTreatsNullAsEmpty();
    void copyArgsMakesADeepCopy();
    void copyArgsOfEmptyVector();
    void insertArgPutsTheArgumentAtItsPosition_data();
    void insertArgPutsTheArgumentAtItsPosition();
    void insertArgReportsRefusedPositions_data();
    void insertArgReportsRefusedPositions();
    void insertArgReportsNullArgument();
    void insertArgReportsNothingWhenAssertionsAreOff();
    void getCmdLineFlattensTheVector_data();
    void getCmdLineFlattensTheVector();
    void getCmdLineReadsProgramNameOfEmptyVector();
    void createdVectorFlattensWithFixedProgramName();
    void deleteArgsLeavesCountZero();

private:
    QStringList m_traceLines;
    QTemporaryDir* m_pDir = nullptr;
};

void TestArgFormat::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
}

void TestArgFormat::init()
{
    m_pDir = new QTemporaryDir;
    QVERIFY2(m_pDir->isValid(), qPrintable(m_pDir->errorString()));
    m_traceLines.clear();
    ErrorHandler::Instance().ResetMessageMask();
    ErrorHandler::Instance().SetLogTracer(new RecordingWriter(&m_traceLines));
}

void TestArgFormat::cleanup()
{
    ErrorHandler::Instance().SetLogTracer(nullptr);
    ErrorHandler::Instance().ResetMessageMask();
    delete m_pDir;
    m_pDir = nullptr;
}

void TestArgFormat::createArgsSplitsAtSingleBlanks_data()
{
    QTest::addColumn<QByteArray>("cmdLine");
    QTest::addColumn<QList<QByteArray>>("entries");

    using Entries = QList<QByteArray>;
    QTest::newRow("empty_text") << QByteArray("") << Entries{"zent"};
    QTest::newRow("one_argument") << QByteArray("a") << Entries{"zent", "a"};
    QTest::newRow("two_arguments") << QByteArray("a b") << Entries{"zent", "a", "b"};
    QTest::newRow("appkey_and_cfgdoc")
        << QByteArray("QX:a.dll Xml:Cfg.xml") << Entries{"zent", "QX:a.dll", "Xml:Cfg.xml"};
    QTest::newRow("two_blanks_end_the_parse") << QByteArray("a  b") << Entries{"zent", "a"};
    QTest::newRow("two_blanks_later_end_the_parse") << QByteArray("a b  c") << Entries{"zent", "a", "b"};
    QTest::newRow("leading_blank_gives_no_arguments") << QByteArray(" a") << Entries{"zent"};
    QTest::newRow("trailing_blank_is_harmless") << QByteArray("a ") << Entries{"zent", "a"};
    QTest::newRow("quotes_are_ordinary") << QByteArray("\"x y\"") << Entries{"zent", "\"x", "y\""};
    QTest::newRow("tab_is_ordinary") << QByteArray("a\tb c") << Entries{"zent", "a\tb", "c"};
    QTest::newRow("blank_only") << QByteArray(" ") << Entries{"zent"};
    QTest::newRow("ten_thousand_blanks") << QByteArray(10000, ' ') << Entries{"zent"};
    QTest::newRow("ten_thousand_colons") << QByteArray(10000, ':') << Entries{"zent", QByteArray(10000, ':')};
    QTest::newRow("non_ascii_bytes_copied")
        << QByteArray("\xe9\xff \x80") << Entries{"zent", "\xe9\xff", "\x80"};
    QTest::newRow("many_arguments") << QByteArray("1 2 3 4 5 6 7 8 9 10")
                                    << Entries{"zent", "1", "2", "3", "4", "5", "6", "7", "8", "9", "10"};
}

void TestArgFormat::createArgsSplitsAtSingleBlanks()
{
    QFETCH(QByteArray, cmdLine);
    QFETCH(QList<QByteArray>, entries);
    int argc = -1;
    char** argv = nullptr;
    ArgFormat::CreateArgs(argc, argv, cmdLine.constData());
    QCOMPARE(argc, entries.size());
    QCOMPARE(Entries(argc, argv), entries);
    ArgFormat::DeleteArgs(argc, argv);
}

void TestArgFormat::createArgsTreatsNullAsEmpty()
{
    int argc = -1;
    char** argv = nullptr;
    ArgFormat::CreateArgs(argc, argv, nullptr);
    QCOMPARE(Entries(argc, argv), QList<QByteArray>{"zent"});
    ArgFormat::DeleteArgs(argc, argv);
}

void TestArgFormat::copyArgsMakesADeepCopy()
{
    int argc = 0;
    char** argv = nullptr;
    MakeVector({"prog", "QX:a.dll", "Xml:Cfg.xml"}, argc, argv);
    int copyCount = -1;
    char** copy = nullptr;
    ArgFormat::CopyArgs(argc, argv, copyCount, copy);
    QCOMPARE(copyCount, 3);
    QCOMPARE(Entries(copyCount, copy), (QList<QByteArray>{"prog", "QX:a.dll", "Xml:Cfg.xml"}));
    for (int i = 0; i < argc; ++i)
        QVERIFY(copy[i] != argv[i]);
    argv[1][0] = 'Z';
    QCOMPARE(QByteArray(copy[1]), QByteArray("QX:a.dll"));
    ArgFormat::DeleteArgs(argc, argv);
    ArgFormat::DeleteArgs(copyCount, copy);
}

void TestArgFormat::copyArgsOfEmptyVector()
{
    int copyCount = -1;
    char** copy = nullptr;
    char* none[1] = {nullptr};
    ArgFormat::CopyArgs(0, none, copyCount, copy);
    QCOMPARE(copyCount, 0);
    ArgFormat::DeleteArgs(copyCount, copy);
    QCOMPARE(copyCount, 0);
}

void TestArgFormat::insertArgPutsTheArgumentAtItsPosition_data()
{
    QTest::addColumn<QList<QByteArray>>("before");
    QTest::addColumn<int>("position");
    QTest::addColumn<QList<QByteArray>>("after");

    using Entries = QList<QByteArray>;
    QTest::newRow("behind_program") << Entries{"prog", "CfgDoc"} << 1 << Entries{"prog", "Fixed", "CfgDoc"};
    QTest::newRow("appended_at_count")
        << Entries{"prog", "CfgDoc"} << 2 << Entries{"prog", "CfgDoc", "Fixed"};
    QTest::newRow("into_program_only") << Entries{"prog"} << 1 << Entries{"prog", "Fixed"};
    QTest::newRow("in_the_middle") << Entries{"prog", "a", "b", "c"} << 2
                                   << Entries{"prog", "a", "Fixed", "b", "c"};
}

void TestArgFormat::insertArgPutsTheArgumentAtItsPosition()
{
    QFETCH(QList<QByteArray>, before);
    QFETCH(int, position);
    QFETCH(QList<QByteArray>, after);
    int argc = 0;
    char** argv = nullptr;
    MakeVector(before, argc, argv);
    ArgFormat::InsertArg("Fixed", position, argc, argv);
    QCOMPARE(argc, after.size());
    QCOMPARE(Entries(argc, argv), after);
    QCOMPARE(m_traceLines, QStringList());
    ArgFormat::DeleteArgs(argc, argv);
}

void TestArgFormat::insertArgReportsRefusedPositions_data()
{
    QTest::addColumn<int>("position");
    QTest::addColumn<QStringList>("reports");

    QTest::newRow("position_zero") << 0
                                   << QStringList{"application/argformat:146 Assertion failed: iPos != 0"};
    QTest::newRow("beyond_the_count")
        << 3 << QStringList{"application/argformat:147 Assertion failed: iPos <= argc"};
    QTest::newRow("negative") << -1 << QStringList();
}

void TestArgFormat::insertArgReportsRefusedPositions()
{
    QFETCH(int, position);
    QFETCH(QStringList, reports);
    int argc = 0;
    char** argv = nullptr;
    MakeVector({"prog", "CfgDoc"}, argc, argv);
    ArgFormat::InsertArg("Fixed", position, argc, argv);
    QCOMPARE(m_traceLines, reports);
    // Nothing is inserted; the extra entry stays unset.
    QCOMPARE(argc, 3);
    QCOMPARE(Entries(argc, argv), (QList<QByteArray>{"prog", "CfgDoc", "<null>"}));
    // A vector with an unset entry still flattens, copies and frees.
    QCOMPARE(ArgFormat::GetCmdLine(argc, argv), std::string("prog.exe CfgDoc "));
    int copyCount = 0;
    char** copy = nullptr;
    ArgFormat::CopyArgs(argc, argv, copyCount, copy);
    QCOMPARE(Entries(copyCount, copy), (QList<QByteArray>{"prog", "CfgDoc", "<null>"}));
    ArgFormat::DeleteArgs(copyCount, copy);
    ArgFormat::DeleteArgs(argc, argv);
}

void TestArgFormat::insertArgReportsNullArgument()
{
    int argc = 0;
    char** argv = nullptr;
    MakeVector({"prog", "CfgDoc"}, argc, argv);
    ArgFormat::InsertArg(nullptr, 1, argc, argv);
    QCOMPARE(m_traceLines, QStringList{"application/argformat:148 Assertion failed: sArg"});
    QCOMPARE(Entries(argc, argv), (QList<QByteArray>{"prog", "", "CfgDoc"}));
    ArgFormat::DeleteArgs(argc, argv);
}

void TestArgFormat::insertArgReportsNothingWhenAssertionsAreOff()
{
    ErrorHandler::Instance().SetMessageMask(ErrorHandler::Q_KM_ASSERT, false);
    int argc = 0;
    char** argv = nullptr;
    MakeVector({"prog"}, argc, argv);
    ArgFormat::InsertArg("Fixed", 0, argc, argv);
    QCOMPARE(m_traceLines, QStringList());
    QCOMPARE(Entries(argc, argv), (QList<QByteArray>{"prog", "<null>"}));
    ArgFormat::DeleteArgs(argc, argv);
}

void TestArgFormat::getCmdLineFlattensTheVector_data()
{
    QTest::addColumn<QList<QByteArray>>("entries");
    QTest::addColumn<QByteArray>("line");

    using Entries = QList<QByteArray>;
    QTest::newRow("program_and_two_arguments") << Entries{"prog", "a", "b"} << QByteArray("prog.exe a b");
    QTest::newRow("program_only") << Entries{"prog"} << QByteArray("prog.exe");
    QTest::newRow("exe_appended_again") << Entries{"prog.exe", "a"} << QByteArray("prog.exe.exe a");
    QTest::newRow("no_quoting_added") << Entries{"prog", "a b", "\"c\""} << QByteArray("prog.exe a b \"c\"");
    QTest::newRow("empty_entries_keep_their_blank") << Entries{"", "", "x"} << QByteArray(".exe  x");
}

void TestArgFormat::getCmdLineFlattensTheVector()
{
    QFETCH(QList<QByteArray>, entries);
    QFETCH(QByteArray, line);
    int argc = 0;
    char** argv = nullptr;
    MakeVector(entries, argc, argv);
    QCOMPARE(QByteArray::fromStdString(ArgFormat::GetCmdLine(argc, argv)), line);
    ArgFormat::DeleteArgs(argc, argv);
}

void TestArgFormat::getCmdLineReadsProgramNameOfEmptyVector()
{
    char program[] = "prog";
    char* argv[] = {program};
    QCOMPARE(ArgFormat::GetCmdLine(0, argv), std::string("prog.exe"));
    QCOMPARE(ArgFormat::GetCmdLine(1, argv), std::string("prog.exe"));
}

void TestArgFormat::createdVectorFlattensWithFixedProgramName()
{
    int argc = 0;
    char** argv = nullptr;
    ArgFormat::CreateArgs(argc, argv, "DemoApp Xml:Cfg.xml");
    QCOMPARE(ArgFormat::GetCmdLine(argc, argv), std::string("zent.exe DemoApp Xml:Cfg.xml"));
    ArgFormat::InsertArg("Fixed", 1, argc, argv);
    QCOMPARE(ArgFormat::GetCmdLine(argc, argv), std::string("zent.exe Fixed DemoApp Xml:Cfg.xml"));
    ArgFormat::DeleteArgs(argc, argv);
}

void TestArgFormat::deleteArgsLeavesCountZero()
{
    int argc = 0;
    char** argv = nullptr;
    ArgFormat::CreateArgs(argc, argv, "a b");
    QCOMPARE(argc, 3);
    ArgFormat::DeleteArgs(argc, argv);
    QCOMPARE(argc, 0);
}

QTEST_GUILESS_MAIN(TestArgFormat)
#include "tst_argformat.moc"
