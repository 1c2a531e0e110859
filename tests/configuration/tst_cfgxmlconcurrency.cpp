// Eight threads read and write one configuration document at once, under
// the configuration centre's mutex, while the main thread saves it: nothing
// crashes and no write is lost.

#include "common/scopedcurrentdir.h"
#include "configuration/cfgcenter.h"
#include "configuration/cfgcentertestaccess.h"
#include "configuration/cfgxml.h"
#include "kvbase/errorhandler.h"
#include "kvbase/kvexception.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QMutex>
#include <QMutexLocker>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace {

constexpr int THREADS = 8;
constexpr int SLOTS = 40;
constexpr qint64 RUN_MS = 3000;
constexpr int SAVE_INTERVAL_MS = 100;

class SavingCfgXml : public CfgXml
{
public:
    using CfgXml::CfgXml;
    using CfgXml::SaveDocument;
};

QString WorkerKey(int worker)
{
    return QStringLiteral("Worker%1").arg(worker);
}

QString SlotName(int slot)
{
    return QStringLiteral("Slot%1").arg(slot, 2, 10, QLatin1Char('0'));
}

QString SlotText(int worker, long round)
{
    return QStringLiteral("worker %1 round %2").arg(worker).arg(round);
}

/// What one worker did, and the first thing it found wrong.
struct WorkerResult
{
    long rounds = 0;
    long sharedIncrements = 0;
    QString problem;
};

/// One worker: writes its own sub-configuration, checks that it reads back
/// what it wrote, watches the other workers' counters only grow, raises a
/// shared counter with a read-modify-write under the centre's mutex, and
/// enumerates and restructures the document now and then.
/// (std::thread rather than QThread: ThreadSanitizer sees its joins.)
class Worker
{
public:
    Worker(CfgXml* document, int index, const std::atomic<bool>* stop)
        : m_document(document), m_index(index), m_stop(stop)
    {
    }

    WorkerResult result;

    void Run()
    {
        try {
            Work();
        } catch (const KVException& e) {
            result.problem = QStringLiteral("exception: ") + e.GetMessage();
        }
    }

private:
    void Work()
    {
        m_document->AddSubCfg(WorkerKey(m_index));
        std::unique_ptr<ICfg> own(m_document->CreateSubCfg(WorkerKey(m_index)));
        if (!own) {
            result.problem = QStringLiteral("own sub-configuration missing");
            return;
        }
        std::vector<long> seen(THREADS, 0);
        while (!m_stop->load() && result.problem.isEmpty()) {
            const long round = ++result.rounds;
            own->SetInteger(QStringLiteral("Counter"), round);
            own->SetString(SlotName(int(round % SLOTS)), SlotText(m_index, round));
            if (own->GetInteger(QStringLiteral("Counter"), -1) != round)
                result.problem = QStringLiteral("own counter lost in round %1").arg(round);
            if (own->GetString(SlotName(int(round % SLOTS)), QString()) != SlotText(m_index, round))
                result.problem = QStringLiteral("own slot lost in round %1").arg(round);
            WatchOthers(seen);
            RaiseSharedCounter();
            if (round % 16 == 0)
                EnumerateAndRestructure(*own);
        }
    }

    void WatchOthers(std::vector<long>& seen)
    {
        for (int other = 0; other < THREADS; ++other) {
            const long counter = m_document->GetInteger(WorkerKey(other) + QStringLiteral("\\Counter"), 0);
            if (counter < seen[size_t(other)])
                result.problem = QStringLiteral("counter of worker %1 went back from %2 to %3")
                                     .arg(other)
                                     .arg(seen[size_t(other)])
                                     .arg(counter);
            seen[size_t(other)] = counter;
        }
    }

    void RaiseSharedCounter()
    {
        // The centre's mutex is recursive: the read and the write take it again.
        QMutexLocker locker(CfgCenter::GetMutex());
        const long value = m_document->GetInteger(QStringLiteral("Shared\\Count"), 0);
        m_document->SetInteger(QStringLiteral("Shared\\Count"), value + 1);
        ++result.sharedIncrements;
    }

    void EnumerateAndRestructure(ICfg& own)
    {
        for (int index = 0;; ++index) {
            std::unique_ptr<ICfg> sub(m_document->CreateSubCfgAt(index));
            if (!sub)
                break;
            sub->GetPartialKey();
        }
        for (int index = 0; !own.GetValueKeyAt(index).isEmpty(); ++index) {
        }
        own.AddSubCfg(QStringLiteral("Scratch"));
        std::unique_ptr<ICfg> scratch(own.CreateSubCfg(QStringLiteral("Scratch")));
        if (scratch)
            scratch->SetString(QStringLiteral("Note"), QStringLiteral("temporary"));
        if (!own.RemoveSubCfg(QStringLiteral("Scratch")))
            result.problem = QStringLiteral("scratch sub-configuration vanished");
    }

    CfgXml* m_document;
    int m_index;
    const std::atomic<bool>* m_stop;
};

} // namespace

class tst_CfgXmlConcurrency : public QObject
{
    Q_OBJECT

private:
    // The export side file falls back to the current folder.
    std::unique_ptr<CurrentTemporaryDir> m_dir;
    std::unique_ptr<QMutex> m_mutex;

    QString FileName() const { return m_dir->filePath(QStringLiteral("Cfg.xml")); }

    void CheckFinalValues(CfgXml& document, const std::vector<std::unique_ptr<Worker>>& workers,
                          long sharedIncrements)
    {
        for (int worker = 0; worker < THREADS; ++worker) {
            const long rounds = workers[size_t(worker)]->result.rounds;
            const QString key = WorkerKey(worker) + QLatin1Char('\\');
            QCOMPARE(document.GetInteger(key + QStringLiteral("Counter"), -1), rounds);
            for (long round = std::max(1L, rounds - SLOTS + 1); round <= rounds; ++round)
                QCOMPARE(document.GetString(key + SlotName(int(round % SLOTS)), QString()),
                         SlotText(worker, round));
            QCOMPARE(document.HasSubCfg(key + QStringLiteral("Scratch")), false);
        }
        QCOMPARE(document.GetInteger(QStringLiteral("Shared\\Count"), -1), sharedIncrements);
    }

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void init()
    {
        m_dir = std::make_unique<CurrentTemporaryDir>();
        QVERIFY2(m_dir->isValid(), qPrintable(m_dir->errorString()));
        CfgCenterTestAccess::Reset();
        m_mutex = std::make_unique<QMutex>(QMutex::Recursive);
        CfgCenterTestAccess::SetMutex(m_mutex.get());
        ErrorHandler::Instance().ResetMessageMask();
        QFile file(FileName());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(CfgXml::s_sEmptyFile.toUtf8());
    }

    void cleanup()
    {
        CfgCenterTestAccess::Reset();
        m_mutex.reset();
        m_dir.reset();
    }

    void eightThreadsLoseNoWriteWhileTheMainThreadSaves()
    {
        long sharedIncrements = 0;
        std::vector<std::unique_ptr<Worker>> workers;
        {
            SavingCfgXml document(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
            document.OpenDocument(true);
            std::atomic<bool> stop{false};
            for (int index = 0; index < THREADS; ++index)
                workers.push_back(std::make_unique<Worker>(&document, index, &stop));
            std::vector<std::thread> threads;
            for (auto& worker : workers)
                threads.emplace_back(&Worker::Run, worker.get());
            QElapsedTimer running;
            running.start();
            int saves = 0;
            while (running.elapsed() < RUN_MS) {
                QThread::msleep(SAVE_INTERVAL_MS);
                document.SaveDocument();
                ++saves;
            }
            stop.store(true);
            for (std::thread& thread : threads)
                thread.join();
            long rounds = 0;
            for (auto& worker : workers) {
                QVERIFY2(worker->result.problem.isEmpty(), qPrintable(worker->result.problem));
                QVERIFY(worker->result.rounds > 0);
                rounds += worker->result.rounds;
                sharedIncrements += worker->result.sharedIncrements;
            }
            qInfo("%ld rounds in %d threads, %d saves", rounds, THREADS, saves);
            CheckFinalValues(document, workers, sharedIncrements);
            document.SaveDocument();
            document.CloseDocument();
        }
        CfgXml reopened(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
        reopened.OpenDocument(false);
        CheckFinalValues(reopened, workers, sharedIncrements);
    }
};

QTEST_GUILESS_MAIN(tst_CfgXmlConcurrency)
#include "tst_cfgxmlconcurrency.moc"
