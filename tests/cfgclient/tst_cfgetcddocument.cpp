// CfgEtcdDocument on a real etcd: the key layout, what changes of other
// processes do to the cache, and that a process is not told of its own writes.
#include "cfgclient/cfgetcddocument.h"
#include "common/etcdserver.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

/// Receives the document's signal in the test's thread (queued from the
/// watch thread), where a QSignalSpy may record it.
class Relay : public QObject
{
    Q_OBJECT

public:
    explicit Relay(CfgEtcdDocument& document)
    {
        connect(&document, &CfgEtcdDocument::Changed, this, &Relay::Changed);
    }

signals:
    void Changed(int view, const QString& key);
};

class tst_CfgEtcdDocument : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<EtcdCluster> m_etcd;
    std::shared_ptr<EtcdClient> m_pClient;

    QStringList Children(CfgEtcdDocument& document, ICfg::View view, const QStringList& path)
    {
        std::lock_guard<std::mutex> locker(document.Mutex());
        QStringList names;
        if (const CfgEtcdElement* element = document.Find(view, path)) {
            for (const auto& child : element->children)
                names << child->name + (child->stored ? QString() : QStringLiteral(" (implicit)"));
        }
        return names;
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
        m_pClient = std::make_shared<EtcdClient>(options);
    }

    void cleanupTestCase()
    {
        m_pClient.reset();
        m_etcd.reset();
    }

    void keyLayout()
    {
        CfgEtcdDocument document(m_pClient);
        QCOMPARE(document.Key(ICfg::VIEW_Machine, {"App"}), QByteArray("zent/App/Machine"));
        QCOMPARE(document.Key(ICfg::VIEW_User, {"App", "Sub", "Name"}), QByteArray("zent/App/User/Sub/Name"));
        QCOMPARE(document.Key(ICfg::VIEW_Export, {"App", "x"}), QByteArray("zent/App/Export/x"));
        // Numbers outside the views address the machine view, as in XML documents.
        QCOMPARE(document.Key(ICfg::View(9), {"App"}), QByteArray("zent/App/Machine"));
        CfgEtcdDocument other(m_pClient, "tenant1/");
        QCOMPARE(other.Key(ICfg::VIEW_Domain, {"App", "A"}), QByteArray("tenant1/App/Domain/A"));
    }

    void changesOfOthersOnlyAreSignalled()
    {
        CfgEtcdDocument document(m_pClient);
        document.Load(QStringLiteral("Doc"));
        Relay relay(document);
        QSignalSpy spy(&relay, &Relay::Changed);
        CfgEtcdRecord record;
        record.text = QStringLiteral("mine");
        document.Write({{ICfg::VIEW_Machine, {"Doc", "Own"}, false, record}});
        m_pClient->Put("zent/Doc/User/Deep/Theirs", "{\"text\":\"theirs\"}");
        QTRY_COMPARE_WITH_TIMEOUT(spy.count(), 1, 2000);
        QCOMPARE(spy.at(0), QVariantList({int(ICfg::VIEW_User), QStringLiteral("Doc\\Deep\\Theirs")}));
        QCOMPARE(Children(document, ICfg::VIEW_Machine, {"Doc"}), QStringList{QStringLiteral("Own")});
        // The key arrived without its parents': they exist implicitly, and go with their last child.
        QCOMPARE(Children(document, ICfg::VIEW_User, {}), QStringList{QStringLiteral("Doc (implicit)")});
        QCOMPARE(Children(document, ICfg::VIEW_User, {"Doc"}),
                 QStringList{QStringLiteral("Deep (implicit)")});
        m_pClient->Commit({{EtcdOperation::DeleteKey, "zent/Doc/User/Deep/Theirs", QByteArray()}});
        QTRY_COMPARE_WITH_TIMEOUT(spy.count(), 2, 2000);
        QCOMPARE(Children(document, ICfg::VIEW_User, {}), QStringList());
        QCOMPARE(spy.count(), 2);
    }

    void applicationsNotOpenedAreNotCached()
    {
        CfgEtcdDocument document(m_pClient);
        document.Load(QStringLiteral("Opened"));
        Relay relay(document);
        QSignalSpy spy(&relay, &Relay::Changed);
        m_pClient->Put("zent/Elsewhere/Machine", "{}");
        m_pClient->Put("zent/Opened/Machine", "{}");
        QTRY_COMPARE_WITH_TIMEOUT(spy.count(), 1, 2000);
        QCOMPARE(spy.at(0), QVariantList({int(ICfg::VIEW_Machine), QStringLiteral("Opened")}));
        QCOMPARE(Children(document, ICfg::VIEW_Machine, {}), QStringList{QStringLiteral("Opened")});
    }
};

QTEST_GUILESS_MAIN(tst_CfgEtcdDocument)
#include "tst_cfgetcddocument.moc"
