// The configuration service's client (CfgEtcd on a local etcd started here)
// beside CfgXml and beside bare puts through the same client library:
// opening a 10,000-value application, cached reads, and a write's round trip
// (p50 and p99).
#include "cfgbenchsupport.h"

#include "cfgclient/cfgetcd.h"
#include "cfgclient/etcdclient.h"
#include "common/etcdserver.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

namespace {

const QString APP = QStringLiteral("Bench");

std::vector<Bench::Value> OneApplication(int count)
{
    std::vector<Bench::Value> values = Bench::MakeTree(count);
    for (Bench::Value& value : values) {
        value.group = value.app + value.group; // ten applications' groups under one application
        value.app = APP;
    }
    return values;
}

QByteArray Record(const QString& text)
{
    QJsonObject record{{QStringLiteral("text"), text},
                       {QStringLiteral("type"), QStringLiteral("string")},
                       {QStringLiteral("protected"), QStringLiteral("true")},
                       {QStringLiteral("ts"), 1}};
    return QJsonDocument(record).toJson(QJsonDocument::Compact);
}

void FillEtcd(EtcdClient& client, const std::vector<Bench::Value>& values)
{
    std::vector<EtcdOperation> batch;
    const auto flush = [&] {
        if (!batch.empty())
            client.Commit(batch);
        batch.clear();
    };
    QString lastSection;
    for (const Bench::Value& value : values) {
        const QString section = value.SlashSection();
        if (section != lastSection) {
            lastSection = section;
            batch.push_back({EtcdOperation::Put,
                             ("zent/" + APP + "/Machine/" + value.group + '/' + value.section).toUtf8(),
                             "{\"ts\":1}"});
        }
        batch.push_back(
            {EtcdOperation::Put,
             ("zent/" + APP + "/Machine/" + value.group + '/' + value.section + '/' + value.name).toUtf8(),
             Record(value.text)});
        if (batch.size() >= 120)
            flush();
    }
    flush();
}

QString FillXml(const QString& directory, const std::vector<Bench::Value>& values)
{
    const QString fileName = QDir(directory).filePath(QStringLiteral("Cfg.xml"));
    QFile empty(fileName);
    empty.open(QIODevice::WriteOnly);
    empty.write(CfgXml::s_sEmptyFile.toUtf8());
    empty.close();
    Bench::XmlDocument document(fileName, APP, ICfg::VIEW_Machine);
    document.SuppressSideFiles(true);
    document.OpenDocument(true);
    for (const Bench::Value& value : values)
        document.SetString(value.group + '\\' + value.section + '\\' + value.name, value.text);
    document.SaveDocument();
    return fileName;
}

double Percentile(std::vector<double> samples, double fraction)
{
    std::sort(samples.begin(), samples.end());
    const size_t index =
        std::min(samples.size() - 1, size_t(std::ceil(fraction * double(samples.size()))) - 1);
    return samples[index];
}

} // namespace

int main(int argc, char** argv)
{
    Bench::Session session(argc, argv);
    if (!session.IsValid())
        return 1;
    EtcdCluster etcd(session.Directory());
    if (!etcd.Start()) {
        std::fprintf(stderr, "etcd did not start\n");
        return 1;
    }
    const int count = session.IsQuick() ? 1000 : 10000;
    const int repeats = session.IsQuick() ? 3 : 9;
    const int writes = session.IsQuick() ? 100 : 1000;
    const std::vector<Bench::Value> values = OneApplication(count);
    const std::vector<int> order = Bench::ShuffledOrder(values.size());

    EtcdClientOptions options;
    options.members << etcd.Endpoint();
    auto client = std::make_shared<EtcdClient>(options);
    FillEtcd(*client, values);
    const QString xmlFile = FillXml(session.Directory(), values);
    const QString size = QString::number(count);

    std::vector<Bench::Row> rows;
    rows.push_back({QStringLiteral("open the application"), size, {}, 0});
    rows.back().ns.push_back(Bench::MedianNs(repeats, nullptr, [&] {
        CfgEtcd cfg(std::make_shared<CfgEtcdDocument>(client), APP, ICfg::VIEW_Machine);
        cfg.OpenDocument(true);
    }));
    QString copy;
    rows.back().ns.push_back(Bench::MedianNs(
        repeats, [&] { copy = Bench::FreshCopy(xmlFile, session.Directory(), QStringLiteral(".xml")); },
        [&] {
            Bench::XmlDocument cfg(copy, APP, ICfg::VIEW_Machine);
            cfg.SuppressSideFiles(true);
            cfg.OpenDocument(true);
        }));

    CfgEtcd served(std::make_shared<CfgEtcdDocument>(client), APP, ICfg::VIEW_Machine);
    served.OpenDocument(true);
    Bench::XmlDocument file(xmlFile, APP, ICfg::VIEW_Machine);
    file.SuppressSideFiles(true);
    file.OpenDocument(true);
    const auto readAll = [&](ICfg& cfg) {
        qint64 length = 0;
        for (const int index : order) {
            const Bench::Value& value = values[size_t(index)];
            length += cfg.GetString(value.group + '\\' + value.section + '\\' + value.name, QString()).size();
        }
        if (length == 0)
            std::fprintf(stderr, "nothing read\n");
    };
    readAll(served);
    readAll(file);
    rows.push_back({QStringLiteral("read every value (cached)"), size, {}, 1.5});
    rows.back().ns.push_back(Bench::MedianNs(repeats, nullptr, [&] { readAll(served); }));
    rows.back().ns.push_back(Bench::MedianNs(repeats, nullptr, [&] { readAll(file); }));
    Bench::PrintTable({QStringLiteral("CfgEtcd"), QStringLiteral("CfgXml")}, rows);

    // One write's round trip: CfgEtcd's SetString against a bare put of the
    // same record through EtcdClient, alternating, so that both see the same server.
    std::vector<double> cfgSamples;
    std::vector<double> putSamples;
    const QString name = values.front().group + '\\' + values.front().section + '\\' + values.front().name;
    const QByteArray key = ("zent/" + APP + "/Machine/Bare").toUtf8();
    for (int i = 0; i < writes; ++i) {
        const QString text = QStringLiteral("/opt/product/share/data/written%1.dat").arg(i);
        QElapsedTimer timer;
        timer.start();
        served.SetString(name, text);
        cfgSamples.push_back(double(timer.nsecsElapsed()));
        const QByteArray record = Record(text);
        timer.start();
        client->Put(key, record);
        putSamples.push_back(double(timer.nsecsElapsed()));
    }
    std::vector<Bench::Row> writeRows;
    writeRows.push_back({QStringLiteral("write round trip p50"),
                         QString::number(writes),
                         {Percentile(cfgSamples, 0.5), Percentile(putSamples, 0.5)},
                         1.2});
    writeRows.push_back({QStringLiteral("write round trip p99"),
                         QString::number(writes),
                         {Percentile(cfgSamples, 0.99), Percentile(putSamples, 0.99)},
                         1.2});
    Bench::PrintTable({QStringLiteral("CfgEtcd"), QStringLiteral("bare put")}, writeRows);
    return 0;
}
