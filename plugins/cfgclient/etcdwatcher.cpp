#include "cfgclient/etcdwatcher.h"

#include "kvbase/kvexception.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <curl/curl.h>

namespace {

const int RECONNECT_PAUSE_MS = 200;
const int POLL_MS = 1000;

QByteArray FromBase64(const QJsonValue& value)
{
    return QByteArray::fromBase64(value.toString().toLatin1());
}

} // namespace

EtcdWatcher::EtcdWatcher(EtcdClient* client, const QByteArray& prefix, qint64 startRevision, Handler handler)
    : m_pClient(client), m_prefix(prefix), m_nextRevision(startRevision), m_handler(std::move(handler)),
      m_pMulti(curl_multi_init()), m_stop(false)
{
    m_thread = std::thread([this] { Run(); });
}

EtcdWatcher::~EtcdWatcher()
{
    m_stop.store(true);
    curl_multi_wakeup(m_pMulti);
    m_thread.join();
    curl_multi_cleanup(m_pMulti);
}

void EtcdWatcher::Run()
{
    const EtcdClientOptions& options = m_pClient->Options();
    int member = qMax(0, options.members.indexOf(m_pClient->CurrentUrl().section(QLatin1String("://"), 1)));
    while (!m_stop.load()) {
        WatchOnce(EtcdClient::MemberUrl(options, options.members.at(member)));
        if (m_stop.load())
            break;
        // The stream ended: go on with the next member after a short pause.
        member = (member + 1) % options.members.size();
        Pause(RECONNECT_PAUSE_MS);
    }
}

void EtcdWatcher::Pause(int milliseconds)
{
    int ignored = 0;
    curl_multi_poll(m_pMulti, nullptr, 0, milliseconds, &ignored);
}

void EtcdWatcher::WatchOnce(const QString& url)
{
    QJsonObject request;
    request.insert(QStringLiteral("key"), QString::fromLatin1(m_prefix.toBase64()));
    request.insert(QStringLiteral("range_end"),
                   QString::fromLatin1(EtcdClient::PrefixEnd(m_prefix).toBase64()));
    request.insert(QStringLiteral("start_revision"), QString::number(m_nextRevision.load()));
    const QByteArray body = QJsonDocument(QJsonObject{{QStringLiteral("create_request"), request}})
                                .toJson(QJsonDocument::Compact);
    const QByteArray target = (url + QLatin1String("/v3/watch")).toUtf8();
    CURL* curl = curl_easy_init();
    EtcdClient::SetTransportOptions(curl, m_pClient->Options());
    curl_easy_setopt(curl, CURLOPT_URL, target.constData());
    curl_easy_setopt(curl, CURLOPT_POST, 1L);
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.constData());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, long(body.size()));
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &EtcdWatcher::Receive);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, this);
    curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
    const QByteArray token = m_pClient->Token();
    QByteArray authorization;
    if (!token.isEmpty()) {
        authorization = "Authorization: " + token;
        headers = curl_slist_append(headers, authorization.constData());
    }
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    m_buffer.clear();
    m_bReopen = false;
    curl_multi_add_handle(m_pMulti, curl);
    int running = 1;
    while (running && !m_stop.load()) {
        curl_multi_perform(m_pMulti, &running);
        if (running) {
            int ignored = 0;
            curl_multi_poll(m_pMulti, nullptr, 0, POLL_MS, &ignored);
        }
    }
    curl_multi_remove_handle(m_pMulti, curl);
    curl_easy_cleanup(curl);
    curl_slist_free_all(headers);
}

size_t EtcdWatcher::Receive(char* data, size_t size, size_t count, void* self)
{
    auto* watcher = static_cast<EtcdWatcher*>(self);
    if (watcher->m_stop.load())
        return 0; // ends the transfer
    watcher->Consume(QByteArray::fromRawData(data, int(size * count)));
    return watcher->m_bReopen ? 0 : size * count;
}

// The gateway sends one JSON message per line.
void EtcdWatcher::Consume(const QByteArray& chunk)
{
    m_buffer.append(chunk);
    int end = 0;
    while ((end = m_buffer.indexOf('\n')) >= 0) {
        const QByteArray line = m_buffer.left(end);
        m_buffer.remove(0, end + 1);
        if (!line.trimmed().isEmpty())
            HandleMessage(line);
    }
}

void EtcdWatcher::HandleMessage(const QByteArray& line)
{
    const QJsonObject message = QJsonDocument::fromJson(line).object();
    if (message.contains(QLatin1String("error")) && line.contains("auth token")) {
        // Tokens expire; the next stream signs in again.
        try {
            m_pClient->RenewToken();
        } catch (const KVException&) {
        }
        return;
    }
    const QJsonObject result = message.value(QLatin1String("result")).toObject();
    const qint64 compactRevision = result.value(QLatin1String("compact_revision")).toString().toLongLong();
    if (compactRevision > 0) {
        m_nextRevision.store(compactRevision);
        m_bReopen = true;
        m_handler({}, true);
        return;
    }
    if (result.value(QLatin1String("canceled")).toBool()) {
        m_bReopen = true;
        return;
    }
    std::vector<EtcdEvent> events;
    for (const QJsonValue& each : result.value(QLatin1String("events")).toArray()) {
        const QJsonObject event = each.toObject();
        const QJsonObject kv = event.value(QLatin1String("kv")).toObject();
        EtcdEvent entry;
        entry.isDelete = event.value(QLatin1String("type")).toString() == QLatin1String("DELETE");
        entry.kv.key = FromBase64(kv.value(QLatin1String("key")));
        entry.kv.value = FromBase64(kv.value(QLatin1String("value")));
        entry.kv.createRevision = kv.value(QLatin1String("create_revision")).toString().toLongLong();
        entry.kv.modRevision = kv.value(QLatin1String("mod_revision")).toString().toLongLong();
        events.push_back(entry);
    }
    if (events.empty())
        return;
    m_nextRevision.store(events.back().kv.modRevision + 1);
    m_handler(events, false);
}
