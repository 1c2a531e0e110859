// Value reads and writes through CfgRegistry beside the same work through
// CfgXml and QSettings (INI), on the same generated tree. The registry lives
// in a temporary folder (ZENT_REGISTRY_DIR).
//
//   bench_cfgregistry [--quick]

#include "cfgbenchsupport.h"

#include "configuration/cfgregistry.h"

#include <QSettings>

#include <map>
#include <memory>

namespace {

using Bench::Value;
using Bench::XmlDocument;

class RegistryCfg : public CfgRegistry
{
public:
    RegistryCfg(const QString& path, View view) : CfgRegistry(path, view, QString()) {}
};

/// A store whose values are reached through one object per section, as an
/// application reaches its sub-configurations.
class Store
{
public:
    virtual ~Store() = default;
    virtual QString Name() const = 0;
    virtual QString Get(const Value& value) = 0;
    virtual void Set(const Value& value, const QString& text) = 0;
    /// Makes the writes durable; the registry's are at once.
    virtual void Persist() = 0;
};

class SectionStore : public Store
{
public:
    QString Get(const Value& value) override { return Section(value)->GetString(value.name, QString()); }
    void Set(const Value& value, const QString& text) override
    {
        Section(value)->SetString(value.name, text);
    }

protected:
    virtual std::unique_ptr<ICfg> MakeSection(const Value& value) = 0;

private:
    ICfg* Section(const Value& value)
    {
        std::unique_ptr<ICfg>& section = m_sections[value.XmlSection()];
        if (!section)
            section = MakeSection(value);
        return section.get();
    }
    std::map<QString, std::unique_ptr<ICfg>> m_sections;
};

class RegistryStore : public SectionStore
{
public:
    explicit RegistryStore(const QString& base) : m_root(base, ICfg::VIEW_Machine) {}
    QString Name() const override { return QStringLiteral("CfgRegistry"); }
    void Persist() override {}

protected:
    std::unique_ptr<ICfg> MakeSection(const Value& value) override
    {
        return std::unique_ptr<ICfg>(m_root.CreateSubCfg(value.SlashSection()));
    }

private:
    RegistryCfg m_root;
};

class XmlStore : public SectionStore
{
public:
    explicit XmlStore(const QString& fileName) : m_document(fileName, QString(), ICfg::VIEW_Machine)
    {
        QFile file(fileName);
        if (file.open(QIODevice::WriteOnly))
            file.write(CfgXml::s_sEmptyFile.toUtf8());
        file.close();
        m_document.OpenDocument(true);
    }
    ~XmlStore() override { m_document.CloseDocument(); }
    QString Name() const override { return QStringLiteral("CfgXml"); }
    void Persist() override { m_document.SaveDocument(); }

protected:
    std::unique_ptr<ICfg> MakeSection(const Value& value) override
    {
        m_document.AddSubCfg(value.XmlSection());
        return std::unique_ptr<ICfg>(m_document.CreateSubCfg(value.XmlSection()));
    }

private:
    XmlDocument m_document;
};

class SettingsStore : public Store
{
public:
    explicit SettingsStore(const QString& fileName) : m_settings(fileName, QSettings::IniFormat) {}
    QString Name() const override { return QStringLiteral("QSettings"); }
    QString Get(const Value& value) override { return m_settings.value(value.SlashPath()).toString(); }
    void Set(const Value& value, const QString& text) override
    {
        m_settings.setValue(value.SlashPath(), text);
    }
    void Persist() override { m_settings.sync(); }

private:
    QSettings m_settings;
};

struct Figures
{
    double create = 0;
    double update = 0;
    double updateAndPersist = 0;
    double read = 0;
};

Figures Measure(Store& store, const std::vector<Value>& values, const std::vector<int>& order)
{
    Figures figures;
    const double count = static_cast<double>(values.size());
    // Creation happens once per store; every later pass finds the values.
    figures.create = Bench::MedianNs(1, nullptr,
                                     [&] {
                                         for (int index : order) {
                                             const Value& value = values[static_cast<size_t>(index)];
                                             store.Set(value, value.text);
                                         }
                                     }) /
                     count;
    store.Persist();
    int round = 0;
    const auto update = [&] {
        const QString suffix = QStringLiteral(" r%1").arg(++round);
        for (int index : order) {
            const Value& value = values[static_cast<size_t>(index)];
            store.Set(value, value.text + suffix);
        }
    };
    figures.update = Bench::MedianNs(3, nullptr, update) / count;
    figures.updateAndPersist = Bench::MedianNs(3, nullptr,
                                               [&] {
                                                   update();
                                                   store.Persist();
                                               }) /
                               count;
    int checksum = 0;
    figures.read = Bench::MedianNs(3, nullptr,
                                   [&] {
                                       for (int index : order)
                                           checksum += store.Get(values[static_cast<size_t>(index)]).size();
                                   }) /
                   count;
    if (checksum == 0)
        std::printf("%s read nothing\n", qPrintable(store.Name()));
    return figures;
}

} // namespace

int main(int argc, char** argv)
{
    const Bench::Session session(argc, argv);
    if (!session.IsValid())
        return 1;
    qputenv("ZENT_REGISTRY_DIR", QFile::encodeName(session.Directory()));
    const bool quick = session.IsQuick();

    std::printf("## CfgRegistry beside CfgXml and QSettings (INI)\n\n"
                "Per value, median of 3 passes (creation: one pass), in a fixed random order; values are "
                "reached through one configuration object per section (QSettings: by full key). "
                "\"write + save\" adds what makes the pass durable: CfgXml's SaveDocument, QSettings' "
                "sync; every registry write is durable at once.\n\n");
    std::fflush(stdout);

    std::vector<Bench::Row> rows;
    QStringList names;
    for (const int count : {1000, 10000}) {
        if (quick && count > 1000)
            break;
        const std::vector<Value> values = Bench::MakeTree(count);
        const std::vector<int> order = Bench::ShuffledOrder(values.size());
        const QString tag = QString::number(count);
        RegistryStore registry(QStringLiteral("Bench") + tag);
        XmlStore xml(session.Directory() + QStringLiteral("/bench") + tag + QStringLiteral(".xml"));
        SettingsStore settings(session.Directory() + QStringLiteral("/bench") + tag + QStringLiteral(".ini"));
        std::vector<Store*> stores{&registry, &xml, &settings};
        names.clear();
        std::vector<Figures> figures;
        for (Store* store : stores) {
            names << store->Name();
            figures.push_back(Measure(*store, values, order));
        }
        const auto row = [&](const QString& operation, double Figures::*member) {
            Bench::Row result{operation, tag, {}, 0};
            for (const Figures& each : figures)
                result.ns.push_back(each.*member);
            rows.push_back(result);
        };
        row(QStringLiteral("SetString, new value"), &Figures::create);
        row(QStringLiteral("SetString, changed value"), &Figures::update);
        row(QStringLiteral("SetString, write + save"), &Figures::updateAndPersist);
        row(QStringLiteral("GetString"), &Figures::read);
    }
    Bench::PrintTable(names, rows);
    return 0;
}
