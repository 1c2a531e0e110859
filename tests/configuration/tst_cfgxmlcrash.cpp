// A process saving a configuration document is killed at random moments;
// every time, the document opens complete and holds the last save that
// returned or the one that was in flight.

#include "cfgxmlcrashdocument.h"

#include "common/scopedcurrentdir.h"
#include "configuration/cfgcenter.h"
#include "configuration/cfgcentertestaccess.h"
#include "configuration/cfgxml.h"
#include "kvbase/errorhandler.h"
#include "kvbase/kvexception.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

namespace {

constexpr int DEFAULT_KILLS = 400;

// ZENT_CRASH_KILLS asks for a longer run (for instance 1000) than the suite's.
int Kills()
{
    bool ok = false;
    const int kills = qEnvironmentVariableIntValue("ZENT_CRASH_KILLS", &ok);
    return ok && kills > 0 ? kills : DEFAULT_KILLS;
}
constexpr int STARTUP_TIMEOUT_MS = 30000;

QString HelperPath()
{
    return QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("cfgxmlcrashhelper"));
}

/// The last generation the helper reported as saved, or `fallback` when it
/// reported none.
long LastReported(const QByteArray& output, long fallback)
{
    long last = fallback;
    for (const QByteArray& line : output.split('\n')) {
        bool ok = false;
        const long generation = line.trimmed().toLong(&ok);
        if (ok)
            last = generation;
    }
    return last;
}

/// What the rotation left behind at the moment of the kill.
struct Leftovers
{
    bool mainMissing = false;
    bool tempPresent = false;
    bool bakTempPresent = false;
};

Leftovers LeftoversOf(const QString& fileName)
{
    return {!QFile::exists(fileName), QFile::exists(fileName + QStringLiteral(".temp")),
            QFile::exists(fileName + QStringLiteral(".bak.temp"))};
}

} // namespace

class tst_CfgXmlCrash : public QObject
{
    Q_OBJECT

private:
    // The export side file falls back to the current folder.
    std::unique_ptr<CurrentTemporaryDir> m_dir;

    QString FileName() const { return m_dir->filePath(QStringLiteral("Cfg.xml")); }

    /// Opens the document as the next start of an application would, and
    /// returns its generation after checking that every item belongs to it.
    long OpenedGeneration(QString* problem)
    {
        CfgXml document(FileName(), CrashDocument::KEY, ICfg::VIEW_Machine);
        try {
            document.OpenDocument(true);
        } catch (const KVException& e) {
            *problem = QStringLiteral("open failed: ") + e.GetMessage();
            return -1;
        }
        const long generation = document.GetInteger(CrashDocument::GENERATION, 0);
        for (int item = 0; item < CrashDocument::ITEMS && generation > 0; ++item) {
            const QString text = document.GetString(CrashDocument::ItemName(item), QString());
            if (text != CrashDocument::ItemText(generation, item)) {
                *problem = QStringLiteral("generation %1 holds item %2 as \"%3\"")
                               .arg(generation)
                               .arg(item)
                               .arg(text.left(40));
                break;
            }
        }
        document.CloseDocument();
        return generation;
    }

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY2(QFile::exists(HelperPath()), qPrintable(HelperPath()));
    }

    void init()
    {
        m_dir = std::make_unique<CurrentTemporaryDir>();
        QVERIFY2(m_dir->isValid(), qPrintable(m_dir->errorString()));
        CfgCenterTestAccess::Reset();
        ErrorHandler::Instance().ResetMessageMask();
    }

    void cleanup()
    {
        CfgCenterTestAccess::Reset();
        m_dir.reset();
    }

    void killedSaverLosesAtMostTheSaveInFlight()
    {
        {
            QFile file(FileName());
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(CfgXml::s_sEmptyFile.toUtf8());
        }
        const quint32 seed = QRandomGenerator::global()->generate();
        QRandomGenerator random(seed);
        qInfo("random seed %u", seed);

        const int kills = Kills();
        long committed = 0;
        int interrupted = 0;
        int withoutMain = 0;
        for (int kill = 0; kill < kills; ++kill) {
            QProcess helper;
            helper.setWorkingDirectory(m_dir->path());
            helper.setProcessChannelMode(QProcess::SeparateChannels);
            helper.start(HelperPath(), {FileName()});
            QVERIFY2(helper.waitForStarted(STARTUP_TIMEOUT_MS), qPrintable(helper.errorString()));
            // Most kills hit the save loop; every fourth may also hit the
            // open and its completion of an interrupted rotation.
            if (kill % 4 != 0) {
                QElapsedTimer waited;
                waited.start();
                while (!helper.canReadLine() && waited.elapsed() < STARTUP_TIMEOUT_MS)
                    helper.waitForReadyRead(100);
                QVERIFY2(helper.canReadLine(), helper.readAllStandardError().constData());
            }
            QThread::usleep(random.bounded(20000u));
            helper.kill();
            QVERIFY(helper.waitForFinished(STARTUP_TIMEOUT_MS));
            QCOMPARE(helper.exitStatus(), QProcess::CrashExit);
            QCOMPARE(helper.readAllStandardError(), QByteArray());

            const long reported = LastReported(helper.readAllStandardOutput(), committed);
            const Leftovers leftovers = LeftoversOf(FileName());
            interrupted += leftovers.tempPresent || leftovers.bakTempPresent ? 1 : 0;
            withoutMain += leftovers.mainMissing ? 1 : 0;

            QString problem;
            const long opened = OpenedGeneration(&problem);
            QVERIFY2(problem.isEmpty(), qPrintable(QStringLiteral("kill %1: %2").arg(kill).arg(problem)));
            QVERIFY2(
                opened == reported || opened == reported + 1,
                qPrintable(
                    QStringLiteral("kill %1: reported %2, opened %3").arg(kill).arg(reported).arg(opened)));
            QVERIFY2(QFile::exists(FileName()),
                     qPrintable(QStringLiteral("kill %1: no file after open").arg(kill)));
            committed = opened;
        }
        qInfo("%d kills, %d left a rotation file, %d left the document missing, last generation %ld", kills,
              interrupted, withoutMain, committed);
        QVERIFY2(committed >= kills / 2, qPrintable(QString::number(committed)));
    }
};

QTEST_GUILESS_MAIN(tst_CfgXmlCrash)
#include "tst_cfgxmlcrash.moc"
