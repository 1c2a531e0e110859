// CfgXml beside QSettings (INI) and KConfig on the same generated data, in
// one process: open, GetString, SetString, save and an unchanged save at
// 1,000, 10,000 and 100,000 values, the cost of one read among 10 to 10,000
// siblings, and a check that an unchanged save writes nothing. Beside the
// opens, the floor of parsing the same file with pugixml alone; and the peak
// resident memory of a process that opens the largest file, one process per
// library.
//
//   bench_cfgxml [--quick]
//   bench_cfgxml --peak-rss <library> <file>   (the child of the memory row)
//
// --quick stops after 10,000 values (for a smoke run).

#include "cfgbenchsupport.h"

#include <KConfig>
#include <KConfigGroup>
#include <QProcess>
#include <QSettings>

#include <pugixml.hpp>

#include <memory>
#include <sys/stat.h>

namespace {

using Bench::Value;
using Bench::XmlDocument;

/// One library under a common face: open a file, read and write a value by
/// its full path, save, close.
class Store
{
public:
    virtual ~Store() = default;
    virtual QString Name() const = 0;
    virtual QString Suffix() const = 0;
    virtual void Open(const QString& fileName) = 0;
    virtual QString Get(const Value& value) = 0;
    virtual void Set(const Value& value, const QString& text) = 0;
    virtual void Save() = 0;
    virtual void Close() = 0;

    /// Writes a new file holding `values`.
    void Generate(const QString& fileName, const std::vector<Value>& values)
    {
        CreateEmpty(fileName);
        Open(fileName);
        for (const Value& value : values)
            Set(value, value.text);
        Save();
        Close();
    }

protected:
    virtual void CreateEmpty(const QString&) {}
};

class XmlStore : public Store
{
public:
    QString Name() const override { return QStringLiteral("CfgXml"); }
    QString Suffix() const override { return QStringLiteral(".xml"); }
    void Open(const QString& fileName) override
    {
        m_document = std::make_unique<XmlDocument>(fileName, QString(), ICfg::VIEW_Machine);
        m_document->OpenDocument(true);
    }
    QString Get(const Value& value) override { return m_document->GetString(value.XmlPath(), QString()); }
    void Set(const Value& value, const QString& text) override
    {
        m_document->SetString(value.XmlPath(), text);
    }
    void Save() override { m_document->SaveDocument(); }
    void Close() override
    {
        m_document->CloseDocument();
        m_document.reset();
    }

protected:
    void CreateEmpty(const QString& fileName) override
    {
        QFile file(fileName);
        if (file.open(QIODevice::WriteOnly))
            file.write(CfgXml::s_sEmptyFile.toUtf8());
    }

private:
    std::unique_ptr<XmlDocument> m_document;
};

class SettingsStore : public Store
{
public:
    QString Name() const override { return QStringLiteral("QSettings"); }
    QString Suffix() const override { return QStringLiteral(".ini"); }
    void Open(const QString& fileName) override
    {
        m_settings = std::make_unique<QSettings>(fileName, QSettings::IniFormat);
        // QSettings parses an INI file's sections on first use; asking for the
        // groups parses them all, as the other two parse on opening.
        m_settings->childGroups();
    }
    QString Get(const Value& value) override { return m_settings->value(value.SlashPath()).toString(); }
    void Set(const Value& value, const QString& text) override
    {
        m_settings->setValue(value.SlashPath(), text);
    }
    void Save() override { m_settings->sync(); }
    void Close() override { m_settings.reset(); }

private:
    std::unique_ptr<QSettings> m_settings;
};

class KConfigStore : public Store
{
public:
    QString Name() const override { return QStringLiteral("KConfig"); }
    QString Suffix() const override { return QStringLiteral(".rc"); }
    void Open(const QString& fileName) override
    {
        m_config = std::make_unique<KConfig>(fileName, KConfig::SimpleConfig);
    }
    QString Get(const Value& value) override { return Section(value).readEntry(value.name, QString()); }
    void Set(const Value& value, const QString& text) override
    {
        Section(value).writeEntry(value.name, text);
    }
    void Save() override { m_config->sync(); }
    void Close() override { m_config.reset(); }

private:
    KConfigGroup Section(const Value& value)
    {
        return m_config->group(value.app).group(value.group).group(value.section);
    }
    std::unique_ptr<KConfig> m_config;
};

struct FileState
{
    bool exists = false;
    ino_t inode = 0;
    qint64 mtimeNs = 0;
    qint64 size = 0;

    bool operator==(const FileState& other) const
    {
        return exists == other.exists && inode == other.inode && mtimeNs == other.mtimeNs &&
               size == other.size;
    }
};

FileState StateOf(const QString& fileName)
{
    FileState state;
    struct stat info;
    if (::stat(QFile::encodeName(fileName).constData(), &info) != 0)
        return state;
    state.exists = true;
    state.inode = info.st_ino;
    state.mtimeNs = qint64(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec;
    state.size = info.st_size;
    return state;
}

/// What an unchanged save did to the files: nothing, or what changed.
QString UnchangedSaveEffect(const FileState& before, const FileState& backupBefore, const QString& fileName)
{
    QStringList changes;
    if (!(StateOf(fileName) == before))
        changes << QStringLiteral("file rewritten");
    if (!(StateOf(fileName + QStringLiteral(".bak")) == backupBefore))
        changes << QStringLiteral("backup rewritten");
    if (QFile::exists(fileName + QStringLiteral(".temp")))
        changes << QStringLiteral(".temp left");
    return changes.isEmpty() ? QStringLiteral("no write") : changes.join(QStringLiteral(", "));
}

struct SizeFigures
{
    double open = 0;
    double parseFloor = 0; // pugixml parsing the same file, CfgXml only
    double read = 0;
    double write = 0;
    double save = 0;
    double unchangedSave = 0;
    QString unchangedEffect;
};

SizeFigures MeasureStore(Store& store, const std::vector<Value>& values, const std::vector<int>& order,
                         const QString& directory, int repeats)
{
    SizeFigures figures;
    const QString base = directory + QStringLiteral("/base") + store.Name() + store.Suffix();
    store.Generate(base, values);
    if (store.Suffix() == QStringLiteral(".xml")) {
        QFile file(base);
        file.open(QIODevice::ReadOnly);
        const QByteArray bytes = file.readAll();
        figures.parseFloor = Bench::MedianNs(repeats, nullptr, [&] {
            pugi::xml_document document;
            if (!document.load_buffer(bytes.constData(), size_t(bytes.size())))
                std::printf("pugixml cannot parse the CfgXml file\n");
        });
    }

    QString current;
    figures.open = Bench::MedianNs(
        repeats,
        [&] {
            if (!current.isEmpty())
                store.Close();
            current = Bench::FreshCopy(base, directory, store.Suffix());
        },
        [&] { store.Open(current); });

    int checksum = 0;
    figures.read = Bench::MedianNs(repeats, nullptr,
                                   [&] {
                                       for (int index : order)
                                           checksum += store.Get(values[static_cast<size_t>(index)]).size();
                                   }) /
                   static_cast<double>(values.size());
    if (checksum == 0)
        std::printf("%s read nothing\n", qPrintable(store.Name()));

    int round = 0;
    std::vector<double> saves;
    figures.write = Bench::MedianNs(
                        repeats,
                        [&] {
                            if (round > 0) {
                                QElapsedTimer timer;
                                timer.start();
                                store.Save();
                                saves.push_back(static_cast<double>(timer.nsecsElapsed()));
                            }
                            ++round;
                        },
                        [&] {
                            const QString suffix = QStringLiteral(" r%1").arg(round);
                            for (int index : order) {
                                const Value& value = values[static_cast<size_t>(index)];
                                store.Set(value, value.text + suffix);
                            }
                        }) /
                    static_cast<double>(values.size());
    QElapsedTimer timer;
    timer.start();
    store.Save();
    saves.push_back(static_cast<double>(timer.nsecsElapsed()));
    std::sort(saves.begin(), saves.end());
    figures.save = saves[saves.size() / 2];

    const FileState before = StateOf(current);
    const FileState backupBefore = StateOf(current + QStringLiteral(".bak"));
    figures.unchangedSave = Bench::MedianNs(repeats, nullptr, [&] { store.Save(); });
    figures.unchangedEffect = UnchangedSaveEffect(before, backupBefore, current);
    store.Close();
    return figures;
}

/// Cost of one read of a value among `siblings` values of one node.
double MeasureSiblings(Store& store, int siblings, const QString& directory)
{
    std::vector<Value> values;
    for (int i = 0; i < siblings; ++i) {
        Value value;
        value.app = QStringLiteral("App00");
        value.group = QStringLiteral("Wide");
        value.section = QStringLiteral("Node");
        value.name = QStringLiteral("Value%1").arg(i, 5, 10, QLatin1Char('0'));
        value.text = QStringLiteral("text %1").arg(i);
        values.push_back(value);
    }
    const QString fileName =
        directory + QStringLiteral("/siblings%1").arg(siblings) + store.Name() + store.Suffix();
    store.Generate(fileName, values);
    store.Open(fileName);
    const std::vector<int> order = Bench::ShuffledOrder(values.size());
    const int reads = std::max(siblings, 50000);
    int checksum = 0;
    const double ns = Bench::MedianNs(5, nullptr, [&] {
        for (int i = 0; i < reads; ++i)
            checksum +=
                store.Get(values[static_cast<size_t>(order[static_cast<size_t>(i % siblings)])]).size();
    });
    if (checksum == 0)
        std::printf("%s read nothing\n", qPrintable(store.Name()));
    store.Close();
    return ns / reads;
}

/// A memory figure of this process from /proc/self/status, in KiB (Linux).
/// VmHWM is the peak of this program alone: getrusage's maximum is carried
/// over from the parent across fork and exec.
long StatusKiB(const char* field)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith(field))
            return line.mid(int(qstrlen(field))).trimmed().split(' ').value(0).toLong();
    }
    return 0;
}

/// The child of the memory row: opens `fileName` with the library named and
/// prints the resident memory before and after opening and the peak, in KiB.
int ReportPeakRss(const std::vector<Store*>& stores, const QString& name, const QString& fileName)
{
    for (Store* store : stores) {
        if (store->Name() != name)
            continue;
        const long before = StatusKiB("VmRSS:");
        store->Open(fileName);
        std::printf("%ld %ld\n", StatusKiB("VmRSS:") - before, StatusKiB("VmHWM:"));
        return 0;
    }
    return 1;
}

struct PeakRss
{
    long total = 0;  // KiB, the process's peak after opening
    long opened = 0; // KiB, resident memory that opening added
};

PeakRss MeasurePeakRss(Store& store, const std::vector<Value>& values, const QString& directory)
{
    const QString fileName = directory + QStringLiteral("/rss") + store.Name() + store.Suffix();
    store.Generate(fileName, values);
    QProcess child;
    child.start(QCoreApplication::applicationFilePath(),
                {QStringLiteral("--peak-rss"), store.Name(), fileName});
    child.waitForFinished(-1);
    const QList<QByteArray> fields = child.readAllStandardOutput().simplified().split(' ');
    PeakRss peak;
    if (child.exitCode() == 0 && fields.size() == 2) {
        peak.opened = fields[0].toLong();
        peak.total = fields[1].toLong();
    }
    return peak;
}

QString FormatKiB(long kib)
{
    return QStringLiteral("%1 MiB").arg(double(kib) / 1024.0, 0, 'f', 1);
}

} // namespace

int main(int argc, char** argv)
{
    const Bench::Session session(argc, argv);
    if (!session.IsValid())
        return 1;
    const bool quick = session.IsQuick();

    XmlStore xml;
    SettingsStore settings;
    KConfigStore kconfig;
    std::vector<Store*> stores{&xml, &settings, &kconfig};
    QStringList names;
    for (Store* store : stores)
        names << store->Name();
    const QStringList arguments = QCoreApplication::arguments();
    const int peakRss = arguments.indexOf(QStringLiteral("--peak-rss"));
    if (peakRss > 0 && peakRss + 2 < arguments.size())
        return ReportPeakRss(stores, arguments[peakRss + 1], arguments[peakRss + 2]);

    std::printf("## CfgXml beside QSettings (INI) and KConfig\n\n"
                "Median of repeated runs in one process; reads and writes per value, in a fixed random "
                "order over the whole tree (10 applications x 10 groups x sections of 10 values); "
                "open, save and unchanged save per file. Saves follow a pass that changed every value.\n\n");
    std::fflush(stdout);

    std::vector<Bench::Row> rows;
    QStringList effects;
    QStringList floors;
    std::vector<PeakRss> peaks;
    int largest = 0;
    bool targetsMet = true;
    for (const int count : {1000, 10000, 100000}) {
        if (quick && count > 10000)
            break;
        // Small sizes take microseconds a pass: more passes keep their medians steady.
        const int repeats = count >= 100000 ? 3 : count >= 10000 ? 9 : 31;
        const std::vector<Value> values = Bench::MakeTree(count);
        const std::vector<int> order = Bench::ShuffledOrder(values.size());
        std::vector<SizeFigures> figures;
        for (Store* store : stores) {
            QTemporaryDir storeDirectory(session.Directory() + QStringLiteral("/run-XXXXXX"));
            figures.push_back(MeasureStore(*store, values, order, storeDirectory.path(), repeats));
            effects << QStringLiteral("%1 at %2 values: %3")
                           .arg(store->Name())
                           .arg(count)
                           .arg(figures.back().unchangedEffect);
        }
        const QString size = QString::number(count);
        const auto row = [&](const QString& operation, double SizeFigures::*member, double limit) {
            Bench::Row result{operation, size, {}, limit};
            for (const SizeFigures& each : figures)
                result.ns.push_back(each.*member);
            if (limit > 0 && result.RatioToBestPeer() > limit)
                targetsMet = false;
            rows.push_back(result);
        };
        // A configuration library picked over QSettings and KConfig opens in half
        // the faster one's time and reads, writes and saves no slower.
        row(QStringLiteral("open"), &SizeFigures::open, 0.5);
        row(QStringLiteral("GetString (per value)"), &SizeFigures::read, 1.0);
        row(QStringLiteral("SetString (per value)"), &SizeFigures::write, 1.0);
        row(QStringLiteral("save"), &SizeFigures::save, 1.0);
        row(QStringLiteral("unchanged save"), &SizeFigures::unchangedSave, 0);
        floors << QStringLiteral("| %1 | %2 | %3 | %4 | %5 |")
                      .arg(count)
                      .arg(Bench::FormatNs(figures[0].open), Bench::FormatNs(figures[0].parseFloor),
                           Bench::FormatNs(std::min(figures[1].open, figures[2].open)),
                           Bench::FormatRatio(figures[0].open / figures[0].parseFloor));
        if (count == (quick ? 10000 : 100000)) {
            largest = count;
            for (Store* store : stores) {
                QTemporaryDir storeDirectory(session.Directory() + QStringLiteral("/rss-XXXXXX"));
                peaks.push_back(MeasurePeakRss(*store, values, storeDirectory.path()));
            }
        }
        if (figures.front().unchangedEffect != QStringLiteral("no write"))
            targetsMet = false;
    }
    Bench::PrintTable(names, rows);

    std::printf("Open beside its floor: pugixml parsing the same CfgXml file into its own tree, "
                "nothing else.\n\n| values | CfgXml open | pugixml parse | faster peer's open | "
                "CfgXml / floor |\n|---:|---:|---:|---:|---:|\n");
    for (const QString& line : floors)
        std::printf("%s\n", qPrintable(line));
    std::printf("\n");

    if (!peaks.empty()) {
        std::printf("Resident memory of a process that opens %d values (one process each): the "
                    "process's peak after opening, and the resident memory that opening added.\n\n"
                    "| library | peak | added by opening |\n"
                    "|---|---:|---:|\n",
                    largest);
        for (size_t i = 0; i < stores.size(); ++i)
            std::printf("| %s | %s | %s |\n", qPrintable(names[int(i)]),
                        qPrintable(FormatKiB(peaks[i].total)), qPrintable(FormatKiB(peaks[i].opened)));
        const long smaller = std::min(peaks[1].opened, peaks[2].opened);
        const double ratio = smaller > 0 ? double(peaks[0].opened) / double(smaller) : 0;
        std::printf("\nTarget: CfgXml's memory added by opening within 1.5x of the smaller peer: %s (%s)\n\n",
                    ratio <= 1.5 ? "met" : "MISSED", qPrintable(Bench::FormatRatio(ratio)));
        if (ratio > 1.5)
            targetsMet = false;
    }

    std::printf("Unchanged save (file inode, mtime and size, its backup, no .temp):\n\n");
    for (const QString& effect : effects)
        std::printf("- %s\n", qPrintable(effect));
    std::printf("\n");

    std::printf("## One read among many siblings\n\n"
                "Cost of one GetString of a value whose node has N values, in random order.\n\n");
    QString header = QStringLiteral("| siblings |");
    QString rule = QStringLiteral("|---:|");
    for (const QString& name : names) {
        header += QLatin1Char(' ') + name + QStringLiteral(" |");
        rule += QStringLiteral("---:|");
    }
    std::printf("%s\n%s\n", qPrintable(header), qPrintable(rule));
    std::vector<std::vector<double>> perRead(stores.size());
    for (const int siblings : {10, 100, 1000, 10000}) {
        QString line = QStringLiteral("| %1 |").arg(siblings);
        for (size_t i = 0; i < stores.size(); ++i) {
            QTemporaryDir storeDirectory(session.Directory() + QStringLiteral("/wide-XXXXXX"));
            perRead[i].push_back(MeasureSiblings(*stores[i], siblings, storeDirectory.path()));
            line += QLatin1Char(' ') + Bench::FormatNs(perRead[i].back()) + QStringLiteral(" |");
        }
        std::printf("%s\n", qPrintable(line));
        std::fflush(stdout);
    }
    QString growth = QStringLiteral("| growth 10 -> 10,000 |");
    for (const std::vector<double>& costs : perRead)
        growth += QLatin1Char(' ') + Bench::FormatRatio(costs.back() / costs.front()) + QStringLiteral(" |");
    std::printf("%s\n\n", qPrintable(growth));
    const double xmlGrowth = perRead.front().back() / perRead.front().front();
    std::printf("Target: CfgXml per-read cost grows no more than 2x from 10 to 10,000 siblings: %s (%s)\n",
                xmlGrowth <= 2.0 ? "met" : "MISSED", qPrintable(Bench::FormatRatio(xmlGrowth)));
    if (xmlGrowth > 2.0)
        targetsMet = false;
    std::printf("All CfgXml targets: %s\n\n", targetsMet ? "met" : "NOT all met");
    return 0;
}
