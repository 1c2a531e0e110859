// EtcdWatcher on a real etcd: changes arrive in revision order, deletions
// are told apart, and a watch from a compacted revision says so and goes on.
#include "cfgclient/etcdwatcher.h"
#include "common/etcdserver.h"

#include <QTemporaryDir>
#include <QtTest>

#include <mutex>

class tst_EtcdWatcher : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<EtcdCluster> m_etcd;
    std::unique_ptr<EtcdClient> m_pClient;
    std::mutex m_mutex;
    QStringList m_seen;

    EtcdWatcher::Handler Recorder()
    {
        return [this](const std::vector<EtcdEvent>& events, bool compacted) {
            std::lock_guard<std::mutex> locker(m_mutex);
            if (compacted)
                m_seen << QStringLiteral("compacted");
            for (const EtcdEvent& event : events)
                m_seen << QStringLiteral("%1 %2 %3")
                              .arg(event.isDelete ? QStringLiteral("delete") : QStringLiteral("put"),
                                   QString::fromUtf8(event.kv.key), QString::fromUtf8(event.kv.value));
        };
    }

    QStringList Seen()
    {
        std::lock_guard<std::mutex> locker(m_mutex);
        return m_seen;
    }

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY2(EtcdCluster::Available(), "etcd is not installed (Debian package etcd-server)");
        m_dir = std::make_unique<QTemporaryDir>();
        m_etcd = std::make_unique<EtcdCluster>(m_dir->path());
        QVERIFY2(m_etcd->Start(), qPrintable(m_etcd->Log()));
        EtcdClientOptions options;
        options.members << m_etcd->Endpoint();
        m_pClient = std::make_unique<EtcdClient>(options);
    }

    void init() { m_seen.clear(); }

    void cleanupTestCase()
    {
        m_pClient.reset();
        m_etcd.reset();
    }

    void changesBelowThePrefixArriveInOrder()
    {
        const qint64 start = m_pClient->Put("zent/W1/Machine", "start") + 1;
        EtcdWatcher watcher(m_pClient.get(), "zent/W1/", start, Recorder());
        m_pClient->Put("zent/W1/Machine/a", "1");
        m_pClient->Put("zent/Other/Machine/a", "not watched");
        m_pClient->Commit({{EtcdOperation::Put, "zent/W1/Machine/b", "2"},
                           {EtcdOperation::DeleteKey, "zent/W1/Machine/a", QByteArray()}});
        QTRY_COMPARE_WITH_TIMEOUT(
            Seen(),
            (QStringList{"put zent/W1/Machine/a 1", "put zent/W1/Machine/b 2", "delete zent/W1/Machine/a "}),
            2000);
    }

    void watchFromACompactedRevisionSaysSoAndGoesOn()
    {
        const qint64 first = m_pClient->Put("zent/W2/Machine/a", "1");
        m_pClient->Put("zent/W2/Machine/b", "2");
        const qint64 last = m_pClient->Put("zent/W2/Machine/c", "3");
        QVERIFY(!m_etcd->Ctl({QStringLiteral("compact"), QString::number(last)}).isEmpty());
        EtcdWatcher watcher(m_pClient.get(), "zent/W2/", first, Recorder());
        QTRY_COMPARE_WITH_TIMEOUT(Seen().value(0), QStringLiteral("compacted"), 2000);
        m_pClient->Put("zent/W2/Machine/d", "4");
        // From the compacted revision on: the last change before it and the new one.
        QTRY_COMPARE_WITH_TIMEOUT(
            Seen(), (QStringList{"compacted", "put zent/W2/Machine/c 3", "put zent/W2/Machine/d 4"}), 2000);
    }
};

QTEST_GUILESS_MAIN(tst_EtcdWatcher)
#include "tst_etcdwatcher.moc"
