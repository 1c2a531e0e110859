#ifndef TESTS_COMMON_ETCDSERVER_H
#define TESTS_COMMON_ETCDSERVER_H

#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QStandardPaths>
#include <QStringList>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>

#include <memory>
#include <vector>

#include <signal.h>
#include <sys/prctl.h>

/// An etcd process that ends with the test: should the test process die
/// without its destructors (an abort, a sanitizer's stop), the kernel sends
/// the member SIGKILL.
class EtcdProcess : public QProcess
{
protected:
    void setupChildProcess() override { ::prctl(PR_SET_PDEATHSIG, SIGKILL); }
};

/// A free TCP port on 127.0.0.1 (bound once and released).
inline quint16 FreeLoopbackPort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

/// Real etcd servers for tests: one member or a cluster on 127.0.0.1 with
/// free ports and data folders below `folder`. Every member is stopped by its
/// process id when the object goes, also when a test fails.
class EtcdCluster
{
public:
    struct Member
    {
        QString name;
        quint16 clientPort = 0;
        quint16 peerPort = 0;
        std::unique_ptr<EtcdProcess> process;
    };

    /// `extraArguments` go to every member (TLS and the like); `scheme` is
    /// the client URLs' scheme.
    EtcdCluster(const QString& folder, int size = 1, const QStringList& extraArguments = {},
                const QString& scheme = QStringLiteral("http"))
        : m_sFolder(folder), m_extra(extraArguments), m_sScheme(scheme)
    {
        for (int i = 0; i < size; ++i) {
            Member member;
            member.name = QStringLiteral("m%1").arg(i);
            member.clientPort = FreeLoopbackPort();
            member.peerPort = FreeLoopbackPort();
            m_members.push_back(std::move(member));
        }
    }

    ~EtcdCluster()
    {
        for (Member& member : m_members)
            Stop(member);
    }

    EtcdCluster(const EtcdCluster&) = delete;
    EtcdCluster& operator=(const EtcdCluster&) = delete;

    /// Starts every member and waits until each accepts connections.
    bool Start(int timeoutMs = 20000)
    {
        QStringList initial;
        for (const Member& member : m_members)
            initial << QStringLiteral("%1=http://127.0.0.1:%2").arg(member.name).arg(member.peerPort);
        for (Member& member : m_members) {
            member.process = std::make_unique<EtcdProcess>();
            member.process->setProcessChannelMode(QProcess::MergedChannels);
            member.process->setStandardOutputFile(
                QDir(m_sFolder).filePath(member.name + QStringLiteral(".log")));
            const QString client = QStringLiteral("%1://127.0.0.1:%2").arg(m_sScheme).arg(member.clientPort);
            const QString peer = QStringLiteral("http://127.0.0.1:%1").arg(member.peerPort);
            member.process->start(
                QStringLiteral("etcd"),
                QStringList{QStringLiteral("--name"), member.name, QStringLiteral("--data-dir"),
                            QDir(m_sFolder).filePath(member.name + QStringLiteral(".etcd")),
                            QStringLiteral("--listen-client-urls"), client,
                            QStringLiteral("--advertise-client-urls"), client,
                            QStringLiteral("--listen-peer-urls"), peer,
                            QStringLiteral("--initial-advertise-peer-urls"), peer,
                            QStringLiteral("--initial-cluster"), initial.join(QLatin1Char(',')),
                            QStringLiteral("--initial-cluster-state"), QStringLiteral("new")} +
                    m_extra);
            if (!member.process->waitForStarted(5000))
                return false;
        }
        QElapsedTimer timer;
        timer.start();
        for (const Member& member : m_members) {
            while (!Accepts(member.clientPort)) {
                if (timer.elapsed() > timeoutMs || member.process->state() != QProcess::Running)
                    return false;
                QThread::msleep(50);
            }
        }
        return WaitWritable(0, timeoutMs);
    }

    /// Waits until member `index` takes a write (the cluster has a leader).
    bool WaitWritable(int index, int timeoutMs = 20000) const
    {
        QElapsedTimer timer;
        timer.start();
        while (Ctl({QStringLiteral("put"), QStringLiteral("zent-ready"), QStringLiteral("1")}, index)
                   .isEmpty()) {
            if (timer.elapsed() > timeoutMs)
                return false;
            QThread::msleep(100);
        }
        return true;
    }

    /// Ends a member at once (SIGKILL), as a crash would.
    void Kill(int index)
    {
        Member& member = m_members.at(size_t(index));
        if (member.process && member.process->state() != QProcess::NotRunning) {
            member.process->kill();
            member.process->waitForFinished(5000);
        }
    }

    QString Endpoint(int index = 0) const
    {
        return QStringLiteral("127.0.0.1:%1").arg(m_members.at(size_t(index)).clientPort);
    }
    QStringList Endpoints() const
    {
        QStringList all;
        for (int i = 0; i < int(m_members.size()); ++i)
            all << Endpoint(i);
        return all;
    }
    int Size() const { return int(m_members.size()); }
    QString Log(int index = 0) const
    {
        QFile file(QDir(m_sFolder).filePath(m_members.at(size_t(index)).name + QStringLiteral(".log")));
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    }

    /// Options every etcdctl call gets (TLS files of an administrator).
    void SetCtlOptions(const QStringList& options) { m_ctlOptions = options; }

    /// Runs etcdctl against member `index`; its standard output, or "" on
    /// failure. `input` goes to its standard input (passwords never on its
    /// command line).
    QString Ctl(const QStringList& arguments, int index = 0, const QByteArray& input = QByteArray()) const
    {
        QProcess ctl;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("ETCDCTL_API"), QStringLiteral("3"));
        ctl.setProcessEnvironment(environment);
        ctl.start(QStringLiteral("etcdctl"),
                  QStringList{QStringLiteral("--endpoints=%1://%2").arg(m_sScheme, Endpoint(index))} +
                      m_ctlOptions + arguments);
        ctl.write(input);
        ctl.closeWriteChannel();
        if (!ctl.waitForFinished(20000) || ctl.exitCode() != 0)
            return QString();
        return QString::fromUtf8(ctl.readAllStandardOutput());
    }

    static bool Available() { return !QStandardPaths::findExecutable(QStringLiteral("etcd")).isEmpty(); }

private:
    static bool Accepts(quint16 port)
    {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, port);
        return socket.waitForConnected(200);
    }

    static void Stop(Member& member)
    {
        if (!member.process || member.process->state() == QProcess::NotRunning)
            return;
        member.process->terminate();
        if (!member.process->waitForFinished(5000)) {
            member.process->kill();
            member.process->waitForFinished(5000);
        }
    }

    QString m_sFolder;
    QStringList m_extra;
    QString m_sScheme;
    QStringList m_ctlOptions;
    std::vector<Member> m_members;
};

#endif
