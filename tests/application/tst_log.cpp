#include "application/log.h"
#include "application/log_p.h"
#include "common/scopedenvironment.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <set>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QByteArray ReadAll(const QString& fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

bool WriteFile(const QString& fileName, const QByteArray& bytes)
{
    QFile file(fileName);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

// Runs zentlogwriter with `args` and the environment `environment`; its exit code, or -1.
int RunWriter(const QStringList& args,
              const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment())
{
    QProcess writer;
    writer.setProcessEnvironment(environment);
    writer.start(QStringLiteral(ZENT_LOG_WRITER), args);
    if (!writer.waitForFinished(60000)) {
        writer.kill();
        writer.waitForFinished();
        return -1;
    }
    return writer.exitStatus() == QProcess::NormalExit ? writer.exitCode() : -1;
}

} // namespace

class TestLog : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void defaultFileNameFollowsEnvironment_data();
    void defaultFileNameFollowsEnvironment();
    void defaultFileNameIsTheStartingName();
    void firstLineWithDefaultNameCreatesFile();
    void defaultFolderIsCreatedPrivate();
    void setFileNameReplacesName();
    void writeLineAppendsTextAndLineFeed();
    void emptyTextWritesLoneLineFeed();
    void existingContentIsKept();
    void textIsWrittenAsLatin1();
    void missingFolderWritesNothing();
    void newFileIsCreatedWithMode0640();
    void symbolicLinkIsNotFollowed();
    void danglingSymbolicLinkCreatesNothing();
    void fifoIsNotWrittenAndDoesNotBlock();
    void folderIsNotWritten();
    void fileOfAnotherUserIsNotWritten();
    void eightProcessesInterleaveWholeLines();
    void threadsInterleaveWholeLines();

private:
    std::unique_ptr<QTemporaryDir> m_pDir;
    QString m_sSavedName;
};

void TestLog::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    m_sSavedName = Log::GetFileName();
}

void TestLog::init()
{
    m_pDir = std::make_unique<QTemporaryDir>();
    QVERIFY2(m_pDir->isValid(), qPrintable(m_pDir->errorString()));
}

void TestLog::cleanup()
{
    Log::SetFileName(m_sSavedName);
    m_pDir.reset();
}

void TestLog::defaultFileNameFollowsEnvironment_data()
{
    QTest::addColumn<QByteArray>("logsDirectory");
    QTest::addColumn<QByteArray>("stateHome");
    QTest::addColumn<QByteArray>("home");
    QTest::addColumn<unsigned>("user");
    QTest::addColumn<QString>("expected");

    const QByteArray unset;
    QTest::newRow("logs_directory_set_by_systemd")
        << QByteArray("/var/log/heartbeat") << QByteArray("/home/ann/state") << QByteArray("/home/ann")
        << 1000u << QStringLiteral("/var/log/heartbeat/ServiceLog.txt");
    QTest::newRow("logs_directory_for_root") << QByteArray("/var/log/heartbeat") << unset << unset << 0u
                                             << QStringLiteral("/var/log/heartbeat/ServiceLog.txt");
    QTest::newRow("first_of_several_logs_directories")
        << QByteArray("/var/log/one:/var/log/two") << unset << unset << 0u
        << QStringLiteral("/var/log/one/ServiceLog.txt");
    QTest::newRow("root_without_logs_directory") << unset << QByteArray("/root/state") << QByteArray("/root")
                                                 << 0u << QStringLiteral("/var/log/zent/ServiceLog.txt");
    QTest::newRow("empty_logs_directory_is_unset")
        << QByteArray("") << unset << unset << 0u << QStringLiteral("/var/log/zent/ServiceLog.txt");
    QTest::newRow("user_with_state_home") << unset << QByteArray("/home/ann/state") << QByteArray("/home/ann")
                                          << 1000u << QStringLiteral("/home/ann/state/zent/ServiceLog.txt");
    QTest::newRow("user_without_state_home") << unset << unset << QByteArray("/home/ann") << 1000u
                                             << QStringLiteral("/home/ann/.local/state/zent/ServiceLog.txt");
    QTest::newRow("relative_state_home_is_ignored")
        << unset << QByteArray("state") << QByteArray("/home/ann") << 1000u
        << QStringLiteral("/home/ann/.local/state/zent/ServiceLog.txt");
}

void TestLog::defaultFileNameFollowsEnvironment()
{
    QFETCH(QByteArray, logsDirectory);
    QFETCH(QByteArray, stateHome);
    QFETCH(QByteArray, home);
    QFETCH(unsigned, user);
    QFETCH(QString, expected);

    ScopedEnvironment environment;
    environment.Set("LOGS_DIRECTORY", logsDirectory);
    environment.Set("XDG_STATE_HOME", stateHome);
    environment.Set("HOME", home);
    QCOMPARE(LogPrivate::DefaultFileName(user), expected);
}

void TestLog::defaultFileNameIsTheStartingName()
{
    QCOMPARE(m_sSavedName, LogPrivate::DefaultFileName());
    QVERIFY(m_sSavedName.endsWith(QLatin1String("/ServiceLog.txt")));
}

void TestLog::firstLineWithDefaultNameCreatesFile()
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LOGS_DIRECTORY"), m_pDir->path());
    QCOMPARE(RunWriter({QStringLiteral("default"), QStringLiteral("started")}, environment), 0);
    QCOMPARE(ReadAll(m_pDir->filePath(QStringLiteral("ServiceLog.txt"))), QByteArray("started\n"));
}

void TestLog::defaultFolderIsCreatedPrivate()
{
    const QString folder = m_pDir->filePath(QStringLiteral("state/zent"));
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LOGS_DIRECTORY"), folder);
    QCOMPARE(RunWriter({QStringLiteral("default"), QStringLiteral("started")}, environment), 0);
    QCOMPARE(ReadAll(folder + QStringLiteral("/ServiceLog.txt")), QByteArray("started\n"));
    struct stat info;
    QCOMPARE(::stat(QFile::encodeName(folder).constData(), &info), 0);
    QCOMPARE(info.st_mode & 07777, 0700u);
}

void TestLog::setFileNameReplacesName()
{
    const QString name = m_pDir->filePath(QStringLiteral("other.txt"));
    Log::SetFileName(name);
    QCOMPARE(Log::GetFileName(), name);
    Log::WriteLine(QStringLiteral("here"));
    QCOMPARE(ReadAll(name), QByteArray("here\n"));
}

void TestLog::writeLineAppendsTextAndLineFeed()
{
    const QString name = m_pDir->filePath(QStringLiteral("ServiceLog.txt"));
    Log::SetFileName(name);
    Log::WriteLine(QStringLiteral("first line"));
    Log::WriteLine(QStringLiteral("second\tline "));
    QCOMPARE(ReadAll(name), QByteArray("first line\nsecond\tline \n"));
}

void TestLog::emptyTextWritesLoneLineFeed()
{
    const QString name = m_pDir->filePath(QStringLiteral("ServiceLog.txt"));
    Log::SetFileName(name);
    Log::WriteLine(QString());
    Log::WriteLine(QStringLiteral(""));
    QCOMPARE(ReadAll(name), QByteArray("\n\n"));
}

void TestLog::existingContentIsKept()
{
    const QString name = m_pDir->filePath(QStringLiteral("ServiceLog.txt"));
    QVERIFY(WriteFile(name, "earlier\r\nno line feed"));
    Log::SetFileName(name);
    Log::WriteLine(QStringLiteral("later"));
    QCOMPARE(ReadAll(name), QByteArray("earlier\r\nno line feedlater\n"));
}

void TestLog::textIsWrittenAsLatin1()
{
    const QString name = m_pDir->filePath(QStringLiteral("ServiceLog.txt"));
    Log::SetFileName(name);
    Log::WriteLine(QStringLiteral("Gr\u00fc\u00dfe \u20ac \u4e2d\u00ff"));
    QCOMPARE(ReadAll(name), QByteArray("Gr\xfc\xdf"
                                       "e ? ?\xff\n"));
}

void TestLog::missingFolderWritesNothing()
{
    const QString name = m_pDir->filePath(QStringLiteral("missing/ServiceLog.txt"));
    Log::SetFileName(name);
    Log::WriteLine(QStringLiteral("lost"));
    QVERIFY(!QFileInfo::exists(name));
    QVERIFY(!QFileInfo::exists(m_pDir->filePath(QStringLiteral("missing"))));
}

void TestLog::newFileIsCreatedWithMode0640()
{
    const QString name = m_pDir->filePath(QStringLiteral("ServiceLog.txt"));
    const mode_t previous = ::umask(022);
    Log::SetFileName(name);
    Log::WriteLine(QStringLiteral("mode"));
    ::umask(previous);
    struct stat info;
    QCOMPARE(::stat(QFile::encodeName(name).constData(), &info), 0);
    QCOMPARE(info.st_mode & 07777, 0640u);
    QCOMPARE(info.st_uid, ::geteuid());
}

void TestLog::symbolicLinkIsNotFollowed()
{
    const QString target = m_pDir->filePath(QStringLiteral("target.txt"));
    const QString link = m_pDir->filePath(QStringLiteral("ServiceLog.txt"));
    QVERIFY(WriteFile(target, "keep\n"));
    QVERIFY(QFile::link(target, link));
    Log::SetFileName(link);
    Log::WriteLine(QStringLiteral("planted"));
    QCOMPARE(ReadAll(target), QByteArray("keep\n"));
    QVERIFY(QFileInfo(link).isSymLink());
}

void TestLog::danglingSymbolicLinkCreatesNothing()
{
    const QString target = m_pDir->filePath(QStringLiteral("target.txt"));
    const QString link = m_pDir->filePath(QStringLiteral("ServiceLog.txt"));
    QVERIFY(QFile::link(target, link));
    Log::SetFileName(link);
    Log::WriteLine(QStringLiteral("planted"));
    QVERIFY(!QFileInfo::exists(target));
}

void TestLog::fifoIsNotWrittenAndDoesNotBlock()
{
    const QString name = m_pDir->filePath(QStringLiteral("ServiceLog.txt"));
    QCOMPARE(::mkfifo(QFile::encodeName(name).constData(), 0600), 0);
    Log::SetFileName(name);
    QElapsedTimer timer;
    timer.start();
    Log::WriteLine(QStringLiteral("no reader"));
    QVERIFY2(timer.elapsed() < 1000, "WriteLine waited for a reader of the FIFO");

    // With a reader present the FIFO opens, and is still refused.
    const int reader = ::open(QFile::encodeName(name).constData(), O_RDONLY | O_NONBLOCK);
    QVERIFY(reader >= 0);
    Log::WriteLine(QStringLiteral("with reader"));
    char buffer[64];
    const ssize_t size = ::read(reader, buffer, sizeof buffer);
    ::close(reader);
    QCOMPARE(size, ssize_t(0));
}

void TestLog::folderIsNotWritten()
{
    const QString name = m_pDir->filePath(QStringLiteral("ServiceLog.txt"));
    QVERIFY(QDir(m_pDir->path()).mkdir(QStringLiteral("ServiceLog.txt")));
    Log::SetFileName(name);
    Log::WriteLine(QStringLiteral("into a folder"));
    QVERIFY(QFileInfo(name).isDir());
    QCOMPARE(QDir(name).entryList(QDir::NoDotAndDotDot | QDir::AllEntries), QStringList());
}

void TestLog::fileOfAnotherUserIsNotWritten()
{
    if (::geteuid() != 0)
        QSKIP("Only root can give a file to another user");
    const QString name = m_pDir->filePath(QStringLiteral("ServiceLog.txt"));
    QVERIFY(WriteFile(name, "theirs\n"));
    QCOMPARE(::chown(QFile::encodeName(name).constData(), 65534, 65534), 0);
    Log::SetFileName(name);
    Log::WriteLine(QStringLiteral("mine"));
    QCOMPARE(ReadAll(name), QByteArray("theirs\n"));
}

void TestLog::eightProcessesInterleaveWholeLines()
{
    const int writers = 8;
    const int linesEach = 10000;
    const QString name = m_pDir->filePath(QStringLiteral("ServiceLog.txt"));
    std::vector<std::unique_ptr<QProcess>> processes;
    for (int writer = 0; writer < writers; ++writer) {
        processes.push_back(std::make_unique<QProcess>());
        processes.back()->start(QStringLiteral(ZENT_LOG_WRITER),
                                {name, QString::number(writer), QString::number(linesEach)});
    }
    for (auto& process : processes) {
        QVERIFY2(process->waitForFinished(120000), "a writer did not finish");
        QCOMPARE(process->exitStatus(), QProcess::NormalExit);
        QCOMPARE(process->exitCode(), 0);
    }

    const QByteArray content = ReadAll(name);
    QVERIFY(content.endsWith('\n'));
    const QList<QByteArray> lines = content.left(content.size() - 1).split('\n');
    QCOMPARE(lines.size(), writers * linesEach);
    const QRegularExpression whole(QStringLiteral("^writer ([0-7]) line (\\d+) x{100}$"));
    std::set<std::pair<int, int>> seen;
    std::vector<int> nextLine(writers, 0);
    for (const QByteArray& line : lines) {
        const QRegularExpressionMatch match = whole.match(QString::fromLatin1(line));
        QVERIFY2(match.hasMatch(), line.constData());
        const int writer = match.captured(1).toInt();
        const int number = match.captured(2).toInt();
        // Each writer's lines arrive in its own order.
        QCOMPARE(number, nextLine[writer]);
        ++nextLine[writer];
    }
    QCOMPARE(nextLine, std::vector<int>(writers, linesEach));
}

void TestLog::threadsInterleaveWholeLines()
{
    const int threads = 4;
    const int linesEach = 1000;
    const QString name = m_pDir->filePath(QStringLiteral("ServiceLog.txt"));
    Log::SetFileName(name);
    std::vector<std::thread> writers;
    for (int writer = 0; writer < threads; ++writer) {
        writers.emplace_back([writer] {
            for (int line = 0; line < linesEach; ++line)
                Log::WriteLine(QStringLiteral("thread %1 line %2").arg(writer).arg(line));
        });
    }
    for (std::thread& writer : writers)
        writer.join();

    const QByteArray content = ReadAll(name);
    const QList<QByteArray> lines = content.left(content.size() - 1).split('\n');
    QCOMPARE(lines.size(), threads * linesEach);
    std::vector<int> nextLine(threads, 0);
    const QRegularExpression whole(QStringLiteral("^thread ([0-3]) line (\\d+)$"));
    for (const QByteArray& line : lines) {
        const QRegularExpressionMatch match = whole.match(QString::fromLatin1(line));
        QVERIFY2(match.hasMatch(), line.constData());
        const int writer = match.captured(1).toInt();
        QCOMPARE(match.captured(2).toInt(), nextLine[writer]);
        ++nextLine[writer];
    }
    QCOMPARE(nextLine, std::vector<int>(threads, linesEach));
}

QTEST_GUILESS_MAIN(TestLog)
#include "tst_log.moc"
