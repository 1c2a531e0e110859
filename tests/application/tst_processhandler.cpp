#include "application/processhandler.h"
#include "common/recordingwriter.h"
#include "kvbase/errorhandler.h"
#include "kvbase/zentos.h"

#include <QtTest>

#include <atomic>
#include <memory>
#include <thread>

#include <signal.h>
#include <unistd.h>

namespace {

const QString ARGV_HELPER = QStringLiteral(ZENT_ARGV_HELPER);

/// A process the test owns: ended and deleted whatever the outcome.
struct ProcessDeleter
{
    void operator()(QProcess* process) const
    {
        if (process->state() != QProcess::NotRunning) {
            process->kill();
            process->waitForFinished(5000);
        }
        delete process;
    }
};
using OwnedProcess = std::unique_ptr<QProcess, ProcessDeleter>;

QString ReadLink(const QString& path)
{
    return QFileInfo(path).symLinkTarget();
}

/// The fields of /proc/<pid>/stat after the command name.
QStringList StatFields(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QString stat = QString::fromLatin1(file.readAll());
    return stat.mid(stat.lastIndexOf(QLatin1Char(')')) + 2).split(QLatin1Char(' '));
}

} // namespace

class tst_ProcessHandler : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY2(m_dir.isValid(), qPrintable(m_dir.errorString()));
        ZentOS::Create().InitGuiProcess();
    }

    void init()
    {
        m_traces.clear();
        ErrorHandler::Instance().ResetMessageMask();
        ErrorHandler::Instance().SetLogTracer(new RecordingWriter(&m_traces));
        QFile::remove(ArgvFile());
    }

    void cleanup() { ErrorHandler::Instance().SetLogTracer(nullptr); }

    void instanceIsOneObject() { QCOMPARE(&ProcessHandler::Instance(), &ProcessHandler::Instance()); }

    void parameterStringIsSplitAtEverySingleBlank_data()
    {
        QTest::addColumn<QString>("params");
        QTest::addColumn<QStringList>("received");
        // Deliberate: two blanks give an empty parameter between them.
        QTest::newRow("two_words_two_blanks") << "a  b" << QStringList{"a", "", "b"};
        QTest::newRow("empty_string") << "" << QStringList{""};
        QTest::newRow("trailing_blank") << "a " << QStringList{"a", ""};
        QTest::newRow("plain") << "one two" << QStringList{"one", "two"};
    }

    void parameterStringIsSplitAtEverySingleBlank()
    {
        QFETCH(QString, params);
        QFETCH(QStringList, received);
        qputenv("ZENT_ARGV_FILE", ArgvFile().toLocal8Bit());
        OwnedProcess process(
            ProcessHandler::Instance().StartProgram(ARGV_HELPER, params, m_dir.path(), false, true));
        qunsetenv("ZENT_ARGV_FILE");
        QVERIFY(process->waitForFinished(10000));
        QCOMPARE(ReceivedArguments(), received);
        QCOMPARE(ProcessHandler::NativeArguments(process.get()), QString());
        QCOMPARE(process->workingDirectory(), m_dir.path());
    }

    void parametersAreHandedOver_data()
    {
        QTest::addColumn<QStringList>("params");
        QTest::addColumn<QString>("native");
        QTest::addColumn<QStringList>("received");
        QTest::newRow("without_quotes_only_the_list")
            << QStringList{"plain", "with blank", ""} << QString() << QStringList{"plain", "with blank", ""};
        QTest::newRow("quoted_switch_only_native") << QStringList{"first", "/Opt=\"x\"", "last"}
                                                   << "/Opt=\"x\"" << QStringList{"first", "last", "/Opt=x"};
        // Deliberate: with a quote and a blank it is passed twice.
        QTest::newRow("quote_and_blank_twice") << QStringList{"/Opt=\"a b\""} << "\"/Opt=\"a b\"\""
                                               << QStringList{"/Opt=\"a b\"", "/Opt=a", "b"};
        QTest::newRow("two_native_in_order")
            << QStringList{"/A=\"1\"", "mid", "/B=\"2 3\""} << "/A=\"1\" \"/B=\"2 3\"\""
            << QStringList{"mid", "/B=\"2 3\"", "/A=1", "/B=2", "3"};
    }

    void parametersAreHandedOver()
    {
        QFETCH(QStringList, params);
        QFETCH(QString, native);
        QFETCH(QStringList, received);
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("ZENT_ARGV_FILE"), ArgvFile());
        OwnedProcess process(
            ProcessHandler::Instance().StartProgram(ARGV_HELPER, params, m_dir.path(), false, true, env));
        QVERIFY(process->waitForFinished(10000));
        QCOMPARE(ProcessHandler::NativeArguments(process.get()), native);
        QCOMPARE(ReceivedArguments(), received);
        QCOMPARE(m_traces, QStringList());
    }

    void programThatDoesNotExistIsTracedTwiceAndReturned()
    {
        OwnedProcess process(ProcessHandler::Instance().StartProgram(
            QStringLiteral("/nonexistent/zent-program"), QStringLiteral("a"), m_dir.path(), false, true));
        QVERIFY(process);
        QCOMPARE(process->state(), QProcess::NotRunning);
        QCOMPARE(process->error(), QProcess::FailedToStart);
        QCOMPARE(m_traces.size(), 2);
        for (const QString& line : m_traces)
            QVERIFY2(QRegularExpression(QStringLiteral("^application/processhandler:\\d+ Could not start "
                                                       "/nonexistent/zent-program$"))
                         .match(line)
                         .hasMatch(),
                     qPrintable(line));
    }

    void startFromAWorkerHappensInTheMainThread()
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("ZENT_ARGV_FILE"), ArgvFile());
        QProcess* started = nullptr;
        std::atomic<bool> done{false};
        std::thread worker([&] {
            started = ProcessHandler::Instance().StartProgram(ARGV_HELPER, QStringList{"from", "worker"},
                                                              m_dir.path(), false, false, env);
            done.store(true);
        });
        QTRY_VERIFY_WITH_TIMEOUT(done.load(), 20000);
        worker.join();
        OwnedProcess process(started);
        QCOMPARE(process->thread(), QThread::currentThread());
        QTRY_VERIFY_WITH_TIMEOUT(process->state() == QProcess::NotRunning, 10000);
        QCOMPARE(ReceivedArguments(), (QStringList{"from", "worker"}));
        QCOMPARE(m_traces, QStringList());
    }

    void outputIsDrainedAndDiscarded()
    {
        // Two megabytes would fill the pipe and block the program if nobody read them.
        const QString marker = m_dir.filePath(QStringLiteral("finished"));
        OwnedProcess process(ProcessHandler::Instance().StartProgram(
            QStringLiteral("/bin/sh"),
            QStringList{"-c", "head -c 2000000 /dev/zero; head -c 2000000 /dev/zero >&2; touch " + marker},
            m_dir.path(), false, true, QProcessEnvironment::systemEnvironment()));
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(marker), 20000);
        QTRY_COMPARE_WITH_TIMEOUT(process->state(), QProcess::NotRunning, 10000);
        QCoreApplication::processEvents();
        QCOMPARE(process->bytesAvailable(), 0);
        QCOMPARE(process->readAllStandardError(), QByteArray());
    }

    void terminateAndAlive()
    {
        QCOMPARE(ProcessHandler::Instance().TerminateProcess(nullptr, QStringLiteral("none")), true);
        QCOMPARE(ProcessHandler::Instance().IsProcessAlive(nullptr), false);
        OwnedProcess process(ProcessHandler::Instance().StartProgram(
            QStringLiteral("/bin/sleep"), QStringLiteral("30"), m_dir.path(), false, true));
        QCOMPARE(ProcessHandler::Instance().IsProcessAlive(process.get()), true);
        QCOMPARE(ProcessHandler::Instance().TerminateProcess(process.get(), QString()), true);
        QVERIFY(process->waitForFinished(10000));
        QCOMPARE(process->exitStatus(), QProcess::CrashExit);
        QCOMPARE(ProcessHandler::Instance().IsProcessAlive(process.get()), false);
    }

    void windowPositionsAreUnknownWithoutWindow()
    {
        const WinPosition none = ProcessHandler::Instance().GetWindowPositions(nullptr);
        QCOMPARE((QList<int>{none.left, none.top, none.right, none.bottom, none.showState}),
                 (QList<int>{-1, -1, -1, -1, -1}));
        ProcessHandler::Instance().SetWindowPositons(WinPosition{1, 2, 3, 4, 1}, nullptr);

        const QByteArray display = qgetenv("DISPLAY");
        qunsetenv("DISPLAY");
        OwnedProcess process(ProcessHandler::Instance().StartProgram(
            QStringLiteral("/bin/sleep"), QStringLiteral("30"), m_dir.path(), false, true));
        const WinPosition headless = ProcessHandler::Instance().GetWindowPositions(process.get());
        if (!display.isEmpty())
            qputenv("DISPLAY", display);
        QCOMPARE(
            (QList<int>{headless.left, headless.top, headless.right, headless.bottom, headless.showState}),
            (QList<int>{-1, -1, -1, -1, -1}));
        OwnedProcess notStarted(new QProcess);
        const WinPosition unstarted = ProcessHandler::Instance().GetWindowPositions(notStarted.get());
        QCOMPARE(unstarted.left, -1);
    }

    void environmentVariable()
    {
        qputenv("ZENT_PROCESSHANDLER_TEST", QStringLiteral("Wert ä").toLocal8Bit());
        QCOMPARE(ProcessHandler::Instance().GetEnvironmentVar("ZENT_PROCESSHANDLER_TEST"),
                 QStringLiteral("Wert ä"));
        qunsetenv("ZENT_PROCESSHANDLER_TEST");
        const QString missing = ProcessHandler::Instance().GetEnvironmentVar("ZENT_PROCESSHANDLER_TEST");
        QVERIFY(missing.isNull());
    }

    void systemAndTemporaryFolders()
    {
        const QString system = ProcessHandler::Instance().GetSystemDir();
        QVERIFY2(system.endsWith(QDir::separator()), qPrintable(system));
        QVERIFY2(QFileInfo::exists(system + QStringLiteral("libc.so.6")), qPrintable(system));
        QCOMPARE(ProcessHandler::Instance().GetTempDir(),
                 QString::fromStdWString(ZentOS::Create().GetTempDir()));
        const QByteArray previous = qgetenv("TMPDIR");
        qputenv("TMPDIR", m_dir.path().toLocal8Bit());
        QCOMPARE(ProcessHandler::Instance().GetTempDir(), m_dir.path());
        qputenv("TMPDIR", previous);
    }

    void hiddenLegacyProgramRunsDetachedOnNullStreams()
    {
        const int pid = ProcessHandler::Instance().StartHiddenLegacyProgram(QStringLiteral("/bin/sleep"),
                                                                            QStringLiteral("30"));
        QVERIFY(pid > 0);
        for (int fd = 0; fd <= 2; ++fd)
            QCOMPARE(ReadLink(QStringLiteral("/proc/%1/fd/%2").arg(pid).arg(fd)),
                     QStringLiteral("/dev/null"));
        const QStringList stat = StatFields(pid);
        QVERIFY(stat.size() > 5);
        QCOMPARE(stat.at(4), QStringLiteral("0")); // no controlling terminal
        // Another session than this one's (the detaching child's, which has already ended).
        QVERIFY(stat.at(3) != QString::number(getsid(0)));
        QCOMPARE(::kill(pid, SIGTERM), 0);
        QCOMPARE(m_traces, QStringList());
    }

    void hiddenLegacyProgramThatFailsIsTraced()
    {
        QCOMPARE(ProcessHandler::Instance().StartHiddenLegacyProgram(QStringLiteral("/nonexistent/legacy"),
                                                                     QStringLiteral("a b")),
                 -1);
        QCOMPARE(m_traces.size(), 1);
        QVERIFY2(m_traces.first().startsWith(QStringLiteral("application/processhandler:")),
                 qPrintable(m_traces.first()));
        QCOMPARE(
            m_traces.first().section(QLatin1Char(' '), 1),
            QStringLiteral("Starting of the legacy program /nonexistent/legacy failed with params: a b"));
    }

    // Last: the handler is not used after its termination.
    void terminationDeletesTrackedProcessesOnly()
    {
        QPointer<QProcess> tracked(ProcessHandler::Instance().StartProgram(
            QStringLiteral("/bin/sleep"), QStringLiteral("30"), m_dir.path(), true, true));
        OwnedProcess untracked(ProcessHandler::Instance().StartProgram(
            QStringLiteral("/bin/sleep"), QStringLiteral("30"), m_dir.path(), false, true));
        QVERIFY(tracked);
        const qint64 trackedPid = tracked->processId();
        QCOMPARE(tracked->state(), QProcess::Running);
        ProcessHandler::Instance().aboutToTerminate();
        QVERIFY(tracked.isNull());
        QVERIFY(!QFileInfo::exists(QStringLiteral("/proc/%1/fd").arg(trackedPid)));
        QCOMPARE(untracked->state(), QProcess::Running);
    }

private:
    QString ArgvFile() const { return m_dir.filePath(QStringLiteral("argv.txt")); }

    QStringList ReceivedArguments() const
    {
        QFile file(ArgvFile());
        if (!file.open(QIODevice::ReadOnly))
            return {QStringLiteral("<no argument file>")};
        QStringList lines = QString::fromLocal8Bit(file.readAll()).split(QLatin1Char('\n'));
        lines.removeLast(); // after the last newline
        return lines;
    }

    QTemporaryDir m_dir;
    QStringList m_traces;
};

QTEST_GUILESS_MAIN(tst_ProcessHandler)
#include "tst_processhandler.moc"
