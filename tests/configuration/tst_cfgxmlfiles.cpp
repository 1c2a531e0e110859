// The configuration files on a shared machine: another local user plants
// links, pipes and hostile documents in a configuration folder; the document's
// saves, restores and diagnosis files never write through them, saves keep
// the file's mode and owner, and hostile files end in a clear error with
// bounded time and memory.

#include "common/recordingwriter.h"
#include "common/scopedcurrentdir.h"
#include "configuration/cfgcenter.h"
#include "configuration/cfgcentertestaccess.h"
#include "configuration/cfgxml.h"
#include "configuration/fakezentos.h"
#include "kvbase/errorhandler.h"
#include "kvbase/kvexception.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QtTest>

#include <memory>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr qint64 BOUND_MS = 30000;

const QByteArray DOCUMENT =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Cfg version=\"2.2\"><System/><Domain/>"
    "<Machine><App><Port type=\"integer\">4000</Port></App></Machine></Cfg>\n";
const QByteArray ATTACKER =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Cfg version=\"2.2\"><System/><Domain/>"
    "<Machine><App><Port type=\"integer\">6666</Port></App></Machine></Cfg>\n";

class OpenCfgXml : public CfgXml
{
public:
    using CfgXml::CfgXml;
    using CfgXml::SaveDocument;
};

struct FileState
{
    bool exists = false;
    bool link = false;
    int mode = -1;
    long owner = -1;
    long group = -1;
};

FileState StateOf(const QString& path)
{
    struct stat info
    {
    };
    FileState state;
    if (::lstat(QFile::encodeName(path).constData(), &info) != 0)
        return state;
    state.exists = true;
    state.link = S_ISLNK(info.st_mode);
    state.mode = int(info.st_mode & 07777);
    state.owner = long(info.st_uid);
    state.group = long(info.st_gid);
    return state;
}

long PeakMemoryKilobytes()
{
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

} // namespace

class tst_CfgXmlFiles : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<CurrentTemporaryDir> m_dir;
    QStringList m_traces;

    QString Path(const QString& name) const { return m_dir->filePath(name); }
    QString FileName() const { return Path(QStringLiteral("Cfg.xml")); }

    static void Write(const QString& fileName, const QByteArray& bytes)
    {
        QFile file(fileName);
        QVERIFY2(file.open(QIODevice::WriteOnly | QIODevice::Truncate), qPrintable(fileName));
        QCOMPARE(file.write(bytes), qint64(bytes.size()));
    }

    static QByteArray Read(const QString& fileName)
    {
        QFile file(fileName);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
    }

    /// A folder of the victim's, outside the configuration folder.
    QString Victim(const QString& name) const { return Path(QStringLiteral("victim/") + name); }

    static QString OpenError(CfgXml& cfg)
    {
        try {
            cfg.OpenDocument(true);
        } catch (const KVException& e) {
            return e.GetMessage();
        }
        return QString();
    }

    /// Opens the document, changes a value and saves it.
    void OpenChangeAndSave(const QString& value = QStringLiteral("5000"))
    {
        OpenCfgXml cfg(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
        cfg.OpenDocument(true);
        cfg.SetString(QStringLiteral("Port"), value, ICfg::VIEW_Machine);
        cfg.SaveDocument();
    }

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void init()
    {
        m_dir = std::make_unique<CurrentTemporaryDir>();
        QVERIFY2(m_dir->isValid(), qPrintable(m_dir->errorString()));
        QVERIFY(QDir(m_dir->path()).mkdir(QStringLiteral("victim")));
        m_traces.clear();
        CfgCenterTestAccess::Reset();
        CfgCenter::SetUsage(CfgCenter::USAGE_2);
        ErrorHandler::Instance().ResetMessageMask();
        ErrorHandler::Instance().SetMessageMask(ErrorHandler::Q_TRACE, true);
        ErrorHandler::Instance().SetLogTracer(new RecordingWriter(&m_traces));
        ErrorHandler::Instance().SetMessagePresenter([](ErrorHandler::MessageKind, const QString&) {});
        ErrorHandler::Instance().SetMessageDialog({});
    }

    void cleanup()
    {
        ErrorHandler::Instance().SetLogTracer(nullptr);
        ErrorHandler::Instance().SetMessagePresenter({});
        ErrorHandler::Instance().ResetMessageMask();
        CfgCenterTestAccess::Reset();
        m_dir.reset();
    }

    // ------------------------------------------------------------ planted links

    void saveReplacesATempLinkInsteadOfWritingThroughIt()
    {
        Write(FileName(), DOCUMENT);
        Write(Victim(QStringLiteral("passwd")), "victim's bytes\n");
        QVERIFY(QFile::link(Victim(QStringLiteral("passwd")), FileName() + QStringLiteral(".temp")));
        OpenChangeAndSave();
        QCOMPARE(Read(Victim(QStringLiteral("passwd"))), QByteArray("victim's bytes\n"));
        QVERIFY(!StateOf(FileName()).link);
        QVERIFY(Read(FileName()).contains(">5000</Port>"));
        QCOMPARE(Read(FileName() + QStringLiteral(".bak")), DOCUMENT);
        QVERIFY(!StateOf(FileName() + QStringLiteral(".temp")).exists);
    }

    void saveCreatesNothingThroughADanglingBackupLink()
    {
        Write(FileName(), DOCUMENT);
        // The rotation creates a missing ".bak" empty; here one is a link to a missing file.
        QVERIFY(QFile::link(Victim(QStringLiteral("created")), FileName() + QStringLiteral(".bak")));
        OpenChangeAndSave();
        QVERIFY(!StateOf(Victim(QStringLiteral("created"))).exists);
        QVERIFY(Read(FileName()).contains(">5000</Port>"));
        // The previous document still becomes the backup, in place of the link.
        QVERIFY(!StateOf(FileName() + QStringLiteral(".bak")).link);
        QCOMPARE(Read(FileName() + QStringLiteral(".bak")), DOCUMENT);
    }

    void restoreCreatesNothingThroughADanglingDocumentLink()
    {
        // A link in the document's place whose target is missing, and the attacker's backup.
        QVERIFY(QFile::link(Victim(QStringLiteral("created.xml")), FileName()));
        Write(FileName() + QStringLiteral(".bak"), ATTACKER);
        OpenCfgXml cfg(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
        QCOMPARE(OpenError(cfg), QString());
        QVERIFY(!StateOf(Victim(QStringLiteral("created.xml"))).exists);
        QVERIFY(!StateOf(FileName()).link);
        QCOMPARE(Read(FileName()), ATTACKER);
    }

    void aDanglingDocumentLinkWithoutBackupIsNotCreated()
    {
        QVERIFY(QFile::link(Victim(QStringLiteral("created.xml")), FileName()));
        ErrorHandler::Instance().SetMessageDialog([](const QString&) { return true; });
        OpenCfgXml cfg(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
        QCOMPARE(OpenError(cfg),
                 QStringLiteral("Can neither open nor create the file ") + FileName() + QStringLiteral("."));
        QVERIFY(!StateOf(Victim(QStringLiteral("created.xml"))).exists);
    }

    void diagnosisFilesAreNotWrittenThroughLinks()
    {
        FakeZentOS os;
        os.time = 1000;
        Write(FileName(), DOCUMENT);
        Write(Victim(QStringLiteral("existing")), "victim's bytes\n");
        QVERIFY(QFile::link(Victim(QStringLiteral("existing")),
                            Path(QStringLiteral("Invalid_cfg_from_Peer_1000.xml"))));
        QVERIFY(QFile::link(Victim(QStringLiteral("created")),
                            Path(QStringLiteral("Invalid_cfg_from_Peer_1001.xml"))));
        OpenCfgXml cfg(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
        cfg.OpenDocument(true);
        cfg.MergeCfgFromStringAndApp("<Cfg><Machine>", QStringLiteral("Peer"));
        QCOMPARE(Read(Victim(QStringLiteral("existing"))), QByteArray("victim's bytes\n"));
        QVERIFY(!StateOf(Victim(QStringLiteral("created"))).exists);
        const QString written = Path(QStringLiteral("Invalid_cfg_from_Peer_1002.xml"));
        QVERIFY(Read(written).startsWith("<Cfg><Machine><ErrorInfo> <LineNumber>"));
        QCOMPARE(StateOf(written).mode, 0600);
        QVERIFY(m_traces.last().endsWith(QStringLiteral("Configuration of Peer not merged; see ") + written));
    }

    // ------------------------------------------------------------ mode and owner

    void saveKeepsTheDocumentsMode_data()
    {
        QTest::addColumn<int>("mode");
        QTest::newRow("private") << 0600;
        QTest::newRow("group_reads") << 0640;
        QTest::newRow("everybody_reads") << 0644;
    }

    void saveKeepsTheDocumentsMode()
    {
        QFETCH(int, mode);
        Write(FileName(), DOCUMENT);
        QCOMPARE(::chmod(QFile::encodeName(FileName()).constData(), mode_t(mode)), 0);
        OpenChangeAndSave();
        QCOMPARE(StateOf(FileName()).mode, mode);
        OpenChangeAndSave(QStringLiteral("5001"));
        QCOMPARE(StateOf(FileName()).mode, mode);
        QCOMPARE(StateOf(FileName() + QStringLiteral(".bak")).mode, mode);
    }

    void aNewDocumentIsPrivate()
    {
        ErrorHandler::Instance().SetMessageDialog([](const QString&) { return true; });
        const mode_t umask = ::umask(0);
        OpenChangeAndSave();
        ::umask(umask);
        QCOMPARE(StateOf(FileName()).mode, 0600);
    }

    void saveKeepsTheDocumentsOwner()
    {
        if (::geteuid() != 0)
            QSKIP("only the administrator saves files that other accounts own");
        Write(FileName(), DOCUMENT);
        QCOMPARE(::chown(QFile::encodeName(FileName()).constData(), 65534, 65534), 0);
        QCOMPARE(::chmod(QFile::encodeName(FileName()).constData(), 0640), 0);
        OpenChangeAndSave();
        const FileState state = StateOf(FileName());
        QCOMPARE(state.owner, 65534L);
        QCOMPARE(state.group, 65534L);
        QCOMPARE(state.mode, 0640);
        QVERIFY(Read(FileName()).contains(">5000</Port>"));
    }

    // ------------------------------------------------------------ hostile files

    void aDocumentLinkedToADeviceIsNotARegularFile()
    {
        QVERIFY(QFile::link(QStringLiteral("/dev/zero"), FileName()));
        OpenCfgXml cfg(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(OpenError(cfg),
                 QStringLiteral("Parse error in file ") + FileName() +
                     QStringLiteral(": not a regular file at line 0 in column 0. And no valid "
                                    "backup file found.\n\nTALVO terminates!"));
        QVERIFY(timer.elapsed() < BOUND_MS);
    }

    void aPipeInTheDocumentsPlaceDoesNotHang()
    {
        QCOMPARE(::mkfifo(QFile::encodeName(FileName()).constData(), 0600), 0);
        OpenCfgXml cfg(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(OpenError(cfg),
                 QStringLiteral("Parse error in file ") + FileName() +
                     QStringLiteral(": not a regular file at line 0 in column 0. And no valid "
                                    "backup file found.\n\nTALVO terminates!"));
        QVERIFY(timer.elapsed() < BOUND_MS);
    }

    void aBackupLinkedToADeviceIsNotRestored()
    {
        Write(FileName(), "<Cfg>");
        QVERIFY(QFile::link(QStringLiteral("/dev/zero"), FileName() + QStringLiteral(".bak")));
        OpenCfgXml cfg(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
        QVERIFY(OpenError(cfg).startsWith(QStringLiteral("Parse error in file ") + FileName()));
        QCOMPARE(Read(FileName()), QByteArray("<Cfg>"));
    }

    void twentyMegabytesOfEmptyElementsAreRefusedInBoundedMemory()
    {
        const QByteArray head = "<Cfg><System/><Domain/><Machine>";
        const int count = 5 * 1024 * 1024;
        Write(FileName(), head + QByteArray("<a/>").repeated(count) + "</Machine></Cfg>");
        const long before = PeakMemoryKilobytes();
        OpenCfgXml cfg(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
        // Cfg, System, Domain and Machine come first: the 999,997th "a" is one too many.
        const int column = head.size() + 999997 * 4;
        QCOMPARE(OpenError(cfg),
                 QStringLiteral("Parse error in file ") + FileName() +
                     QStringLiteral(": too many elements at line 1 in column %1. And no valid "
                                    "backup file found.\n\nTALVO terminates!")
                         .arg(column));
        // The file (20 MB) and its text are read; no tree of millions of nodes is built.
        QVERIFY2(PeakMemoryKilobytes() - before < 256 * 1024,
                 qPrintable(QStringLiteral("%1 kB more").arg(PeakMemoryKilobytes() - before)));
    }

    void nestingTwoHundredThousandDeepIsRefused()
    {
        Write(FileName(), QByteArray("<Cfg>") + QByteArray("<a>").repeated(200000) +
                              QByteArray("</a>").repeated(200000) + "</Cfg>");
        OpenCfgXml cfg(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
        QCOMPARE(OpenError(cfg),
                 QStringLiteral("Parse error in file ") + FileName() +
                     QStringLiteral(": elements nested too deeply at line 1 in column %1. And no "
                                    "valid backup file found.\n\nTALVO terminates!")
                         .arg(5 + 1000 * 3));
    }
};

QTEST_MAIN(tst_CfgXmlFiles)
#include "tst_cfgxmlfiles.moc"
