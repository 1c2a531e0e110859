#include "cfgclient/etcdclient.h"

#include "kvbase/errorhandler.h"
#include "kvbase/kvexception.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QThread>

#include <curl/curl.h>
#include <mutex>

namespace {

const QString SOURCE_FILE = QStringLiteral("cfgclient/etcdclient");
const QString CLASS_NAME = QStringLiteral("EtcdClient");
// gRPC's code for a member that cannot serve now (no leader, leader changed).
const int GRPC_UNAVAILABLE = 14;
const int RETRY_PAUSE_MS = 100;

void InitialiseCurl()
{
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

size_t AppendAnswer(char* data, size_t size, size_t count, void* target)
{
    static_cast<QByteArray*>(target)->append(data, int(size * count));
    return size * count;
}

QString Base64(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.toBase64());
}

QByteArray FromBase64(const QJsonValue& value)
{
    return QByteArray::fromBase64(value.toString().toLatin1());
}

qint64 Revision(const QJsonObject& answer)
{
    return answer.value(QLatin1String("header"))
        .toObject()
        .value(QLatin1String("revision"))
        .toString()
        .toLongLong();
}

// What etcd's error texts mean for the user of an application.
QString RefusalText(const QString& error, const EtcdClientOptions& options)
{
    if (error.contains(QLatin1String("user name is empty")))
        return QStringLiteral("The configuration service requires a user name and password, and none is "
                              "configured for this client.");
    if (error.contains(QLatin1String("authentication failed")))
        return QStringLiteral(
                   "The configuration service refused the user \"%1\": wrong user name or password.")
            .arg(options.user);
    if (error.contains(QLatin1String("permission denied")))
        return QStringLiteral(
                   "The configuration service denied the user \"%1\" this access: permission denied.")
            .arg(options.user.isEmpty() ? QStringLiteral("(anonymous)") : options.user);
    return QStringLiteral("The configuration service refused the request: %1").arg(error);
}

} // namespace

EtcdClient::EtcdClient(const EtcdClientOptions& options)
    : m_options(options), m_pCurl(nullptr), m_nMember(0), m_bUnreachable(false), m_bOneTryPerMember(false)
{
    InitialiseCurl();
    m_pCurl = curl_easy_init();
}

EtcdClient::~EtcdClient()
{
    curl_easy_cleanup(m_pCurl);
}

QString EtcdClient::MemberUrl(const EtcdClientOptions& options, const QString& member)
{
    return (options.UsesTls() ? QStringLiteral("https://") : QStringLiteral("http://")) + member;
}

QByteArray EtcdClient::PrefixEnd(const QByteArray& prefix)
{
    QByteArray end = prefix;
    while (!end.isEmpty()) {
        if (static_cast<unsigned char>(end.back()) < 0xff) {
            end.back() = char(static_cast<unsigned char>(end.back()) + 1);
            return end;
        }
        end.chop(1);
    }
    // Every key: etcd's "\0" range end.
    return QByteArray(1, '\0');
}

void EtcdClient::SetTransportOptions(CURL* curl, const EtcdClientOptions& options)
{
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, long(options.connectTimeoutMs));
    curl_easy_setopt(curl, CURLOPT_TCP_NODELAY, 1L);
    // Never a proxy: the members are named directly.
    curl_easy_setopt(curl, CURLOPT_PROXY, "");
    if (!options.caFile.isEmpty())
        curl_easy_setopt(curl, CURLOPT_CAINFO, options.caFile.toLocal8Bit().constData());
    if (!options.certFile.isEmpty()) {
        curl_easy_setopt(curl, CURLOPT_SSLCERT, options.certFile.toLocal8Bit().constData());
        // In TLS 1.2 a member refuses an untrusted client certificate within
        // the handshake, with an alert this client can report; in TLS 1.3 the
        // refusal comes after it and looks like a broken connection.
        curl_easy_setopt(curl, CURLOPT_SSLVERSION,
                         long(CURL_SSLVERSION_TLSv1_2 | CURL_SSLVERSION_MAX_TLSv1_2));
    }
    if (!options.keyFile.isEmpty())
        curl_easy_setopt(curl, CURLOPT_SSLKEY, options.keyFile.toLocal8Bit().constData());
}

QString EtcdClient::CurrentUrl()
{
    std::lock_guard<std::mutex> locker(m_mutex);
    return MemberUrl(m_options, m_options.members.value(m_nMember));
}

QByteArray EtcdClient::Token()
{
    std::lock_guard<std::mutex> locker(m_mutex);
    return m_token;
}

void EtcdClient::RenewToken()
{
    std::lock_guard<std::mutex> locker(m_mutex);
    if (!m_options.user.isEmpty())
        Authenticate("RenewToken");
}

void EtcdClient::Fail(const QString& message, const char* operation, int line) const
{
    throw KVException(message, SOURCE_FILE, CLASS_NAME, QString::fromLatin1(operation), line);
}

bool EtcdClient::PostOnce(const QString& url, const QByteArray& body, int timeoutMs, QByteArray* answer,
                          long* status, int* curlCode)
{
    CURL* curl = m_pCurl;
    curl_easy_reset(curl);
    SetTransportOptions(curl, m_options);
    const QByteArray urlBytes = url.toUtf8();
    curl_easy_setopt(curl, CURLOPT_URL, urlBytes.constData());
    curl_easy_setopt(curl, CURLOPT_POST, 1L);
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.constData());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, long(body.size()));
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, long(timeoutMs));
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, AppendAnswer);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, answer);
    curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
    QByteArray authorization;
    if (!m_token.isEmpty()) {
        authorization = "Authorization: " + m_token;
        headers = curl_slist_append(headers, authorization.constData());
    }
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    m_errorText[0] = '\0';
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, m_errorText);
    const CURLcode result = curl_easy_perform(curl);
    curl_slist_free_all(headers);
    *curlCode = int(result);
    if (result != CURLE_OK)
        return false;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, status);
    return true;
}

QJsonObject EtcdClient::Post(const char* path, const QJsonObject& body, const char* operation)
{
    if (m_options.members.isEmpty())
        Fail(QStringLiteral("No member of the configuration service is configured."), operation, __LINE__);
    const QByteArray bytes = QJsonDocument(body).toJson(QJsonDocument::Compact);
    m_bUnreachable = false;
    QElapsedTimer timer;
    timer.start();
    QString lastProblem;
    bool signedInAgain = false;
    int unreachable = 0;
    const int members = m_options.members.size();
    for (int attempt = 0;; ++attempt) {
        const qint64 left = m_options.requestTimeoutMs - timer.elapsed();
        if (attempt > 0 && left <= 0)
            break;
        const QString member = m_options.members.at(m_nMember);
        QByteArray answer;
        long status = 0;
        int code = CURLE_OK;
        if (!PostOnce(MemberUrl(m_options, member) + QLatin1String(path), bytes, int(qMax<qint64>(left, 1)),
                      &answer, &status, &code)) {
            _Q_Trace(QString::fromUtf8(m_errorText), "cfgclient/etcdclient", __LINE__);
            FailOnCertificate(code, member, operation);
            lastProblem = QString::fromUtf8(curl_easy_strerror(CURLcode(code)));
            m_nMember = (m_nMember + 1) % members;
            if (m_bOneTryPerMember && ++unreachable >= members)
                break;
            if ((attempt + 1) % members == 0)
                QThread::msleep(RETRY_PAUSE_MS);
            continue;
        }
        const QJsonObject object = QJsonDocument::fromJson(answer).object();
        if (status == 200)
            return object;
        const QString error = object.value(QLatin1String("error")).toString();
        if (error.contains(QLatin1String("invalid auth token")) && !m_options.user.isEmpty() &&
            !signedInAgain) {
            // Tokens expire; sign in once more and repeat.
            signedInAgain = true;
            Authenticate(operation);
            continue;
        }
        if (object.value(QLatin1String("code")).toInt() == GRPC_UNAVAILABLE || status == 503) {
            lastProblem = error;
            m_nMember = (m_nMember + 1) % members;
            QThread::msleep(RETRY_PAUSE_MS);
            continue;
        }
        Fail(RefusalText(error.isEmpty() ? QString::fromUtf8(answer) : error, m_options), operation,
             __LINE__);
    }
    m_bUnreachable = true;
    Fail(QStringLiteral("The configuration service cannot be reached at %1 (%2).")
             .arg(m_options.members.join(QStringLiteral(", ")), lastProblem),
         operation, __LINE__);
}

// A refused certificate is final; the next member would refuse it as well.
void EtcdClient::FailOnCertificate(int curlCode, const QString& member, const char* operation)
{
    if (!m_options.UsesTls())
        return;
    const QString detail = QString::fromUtf8(m_errorText);
    if (curlCode == CURLE_PEER_FAILED_VERIFICATION) {
        _Q_Trace(detail, "cfgclient/etcdclient", __LINE__);
        Fail(QStringLiteral(
                 "The certificate of the configuration service at %1 is not trusted by this client.")
                 .arg(member),
             operation, __LINE__);
    }
    if (curlCode == CURLE_SSL_CERTPROBLEM) {
        _Q_Trace(detail, "cfgclient/etcdclient", __LINE__);
        Fail(QStringLiteral("The client certificate \"%1\" or its key \"%2\" cannot be used.")
                 .arg(m_options.certFile, m_options.keyFile),
             operation, __LINE__);
    }
    // The member ended the handshake with a TLS alert: it does not trust this client's certificate.
    if (detail.contains(QLatin1String("alert"))) {
        _Q_Trace(detail, "cfgclient/etcdclient", __LINE__);
        Fail(QStringLiteral("The configuration service at %1 did not accept this client's certificate.")
                 .arg(member),
             operation, __LINE__);
    }
}

void EtcdClient::Authenticate(const char* operation)
{
    m_token.clear();
    QJsonObject body;
    body.insert(QStringLiteral("name"), m_options.user);
    body.insert(QStringLiteral("password"), QString::fromUtf8(m_options.password));
    const QJsonObject answer = Post("/v3/auth/authenticate", body, operation);
    m_token = answer.value(QLatin1String("token")).toString().toUtf8();
}

void EtcdClient::Connect(const QByteArray& prefix)
{
    std::lock_guard<std::mutex> locker(m_mutex);
    if (m_options.members.isEmpty())
        Fail(QStringLiteral("No member of the configuration service is configured."), "Connect", __LINE__);
    // Every member is tried once: an unreachable service is known after the
    // connect time-out of each member.
    m_bOneTryPerMember = true;
    const int savedTimeout = m_options.requestTimeoutMs;
    m_options.requestTimeoutMs = m_options.connectTimeoutMs * m_options.members.size();
    const auto restore = [this, savedTimeout] {
        m_bOneTryPerMember = false;
        m_options.requestTimeoutMs = savedTimeout;
    };
    try {
        if (!m_options.user.isEmpty())
            Authenticate("Connect");
        QJsonObject body;
        body.insert(QStringLiteral("key"), Base64(prefix));
        body.insert(QStringLiteral("range_end"), Base64(PrefixEnd(prefix)));
        body.insert(QStringLiteral("count_only"), true);
        Post("/v3/kv/range", body, "Connect");
    } catch (...) {
        restore();
        throw;
    }
    restore();
}

std::vector<EtcdKeyValue> EtcdClient::Range(const QByteArray& prefix, qint64* revision)
{
    std::lock_guard<std::mutex> locker(m_mutex);
    QJsonObject body;
    body.insert(QStringLiteral("key"), Base64(prefix.isEmpty() ? QByteArray(1, '\0') : prefix));
    body.insert(QStringLiteral("range_end"), Base64(PrefixEnd(prefix)));
    const QJsonObject answer = Post("/v3/kv/range", body, "Range");
    *revision = Revision(answer);
    std::vector<EtcdKeyValue> result;
    const QJsonArray kvs = answer.value(QLatin1String("kvs")).toArray();
    result.reserve(size_t(kvs.size()));
    for (const QJsonValue& each : kvs) {
        const QJsonObject kv = each.toObject();
        EtcdKeyValue entry;
        entry.key = FromBase64(kv.value(QLatin1String("key")));
        entry.value = FromBase64(kv.value(QLatin1String("value")));
        entry.createRevision = kv.value(QLatin1String("create_revision")).toString().toLongLong();
        entry.modRevision = kv.value(QLatin1String("mod_revision")).toString().toLongLong();
        result.push_back(entry);
    }
    return result;
}

qint64 EtcdClient::Put(const QByteArray& key, const QByteArray& value)
{
    std::lock_guard<std::mutex> locker(m_mutex);
    QJsonObject body;
    body.insert(QStringLiteral("key"), Base64(key));
    body.insert(QStringLiteral("value"), Base64(value));
    return Revision(Post("/v3/kv/put", body, "Put"));
}

qint64 EtcdClient::Commit(const std::vector<EtcdOperation>& operations)
{
    if (operations.size() == 1 && operations.front().kind == EtcdOperation::Put)
        return Put(operations.front().key, operations.front().value);
    std::lock_guard<std::mutex> locker(m_mutex);
    QJsonArray requests;
    for (const EtcdOperation& operation : operations) {
        QJsonObject request;
        request.insert(QStringLiteral("key"), Base64(operation.key));
        if (operation.kind == EtcdOperation::Put) {
            request.insert(QStringLiteral("value"), Base64(operation.value));
            requests.append(QJsonObject{{QStringLiteral("request_put"), request}});
            continue;
        }
        if (operation.kind == EtcdOperation::DeletePrefix)
            request.insert(QStringLiteral("range_end"), Base64(PrefixEnd(operation.key)));
        requests.append(QJsonObject{{QStringLiteral("request_delete_range"), request}});
    }
    QJsonObject body;
    body.insert(QStringLiteral("success"), requests);
    return Revision(Post("/v3/kv/txn", body, "Commit"));
}
