#ifndef CFGCLIENT_ETCDCLIENT_H
#define CFGCLIENT_ETCDCLIENT_H

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <mutex>

#include <vector>

typedef void CURL;

/// One key of etcd with its revisions.
struct EtcdKeyValue
{
    QByteArray key;
    QByteArray value;
    qint64 createRevision = 0;
    qint64 modRevision = 0;
};

/// One write of a transaction: a put, the deletion of one key, or the
/// deletion of every key beginning with `key`.
struct EtcdOperation
{
    enum Kind
    {
        Put,
        DeleteKey,
        DeletePrefix
    };
    Kind kind;
    QByteArray key;
    QByteArray value;
};

/// How to reach etcd: the members, time-outs, TLS files and credentials.
struct EtcdClientOptions
{
    /// "host:port" of each member, tried in this order.
    QStringList members;
    /// How long a connection to one member may take before the next is tried.
    int connectTimeoutMs = 3000;
    /// How long one request may take in all, over every member and retry.
    int requestTimeoutMs = 10000;
    QString caFile;
    QString certFile;
    QString keyFile;
    QString user;
    /// Held in memory only; never traced and never on a command line.
    QByteArray password;

    bool UsesTls() const { return !caFile.isEmpty() || !certFile.isEmpty(); }
};

/// A client of etcd's v3 API through its JSON gateway (HTTP or HTTPS via
/// libcurl). Keys and values travel base64-encoded; revisions are 64-bit.
///
/// Requests go to the member that answered last; a member that cannot be
/// reached, or that answers that it has no leader, is left for the next one
/// until the request time-out is spent. Every put and delete is safe to send
/// again, so a request whose answer was lost is repeated on another member.
/// Failures throw KVException; its text says whether no member could be
/// reached, the credentials were refused, the user lacks the permission, or
/// the certificate was not accepted.
///
/// Thread-safe: requests are serialised over one reused connection.
class EtcdClient
{
public:
    explicit EtcdClient(const EtcdClientOptions& options);
    ~EtcdClient();
    EtcdClient(const EtcdClient&) = delete;
    EtcdClient& operator=(const EtcdClient&) = delete;

    /// Reaches a member and, with a user, signs in; then reads (counts)
    /// the keys below `prefix`, which a client needs the permission for.
    /// Throws KVException.
    void Connect(const QByteArray& prefix);
    /// Whether the last failure was that no member could be reached (rather
    /// than a refusal).
    bool LastFailureWasUnreachable() const { return m_bUnreachable; }
    /// Every key beginning with `prefix` (every key for an empty prefix) and
    /// the store's revision at which they were read.
    std::vector<EtcdKeyValue> Range(const QByteArray& prefix, qint64* revision);
    /// Writes `operations` in one transaction; returns its revision.
    qint64 Commit(const std::vector<EtcdOperation>& operations);
    /// A single put; returns its revision.
    qint64 Put(const QByteArray& key, const QByteArray& value);

    const EtcdClientOptions& Options() const { return m_options; }
    /// The base URL ("http://host:port") of the member in use.
    QString CurrentUrl();
    /// The sign-in token ("" without a user), for the watch.
    QByteArray Token();
    /// Signs in again (the watch found its token expired). Throws KVException.
    void RenewToken();

    /// The first key after every key beginning with `prefix`.
    static QByteArray PrefixEnd(const QByteArray& prefix);
    /// The URL of `member` with the scheme the options ask for.
    static QString MemberUrl(const EtcdClientOptions& options, const QString& member);
    /// Sets the connection options shared by the requests and the watch.
    static void SetTransportOptions(CURL* curl, const EtcdClientOptions& options);

private:
    QJsonObject Post(const char* path, const QJsonObject& body, const char* operation);
    bool PostOnce(const QString& url, const QByteArray& body, int timeoutMs, QByteArray* answer, long* status,
                  int* curlCode);
    void FailOnCertificate(int curlCode, const QString& member, const char* operation);
    void Authenticate(const char* operation);
    [[noreturn]] void Fail(const QString& message, const char* operation, int line) const;

    EtcdClientOptions m_options;
    std::mutex m_mutex;
    CURL* m_pCurl;
    char m_errorText[256];
    int m_nMember;
    QByteArray m_token;
    bool m_bUnreachable;
    /// While connecting, each member is tried once: a refused connection is final.
    bool m_bOneTryPerMember;
};

#endif
