// Start-up of a configuration centre: a 10,000-value XML document whose
// "AdditionalDlls" names 20 plug-in libraries, created, opened, post-created
// and executed, beside the bare QDomDocument parse of the same file.

#include "benchsupport.h"
#include "configuration/cfgcenter.h"
#include "kvbase/errorhandler.h"

#include <QCoreApplication>
#include <QDomDocument>
#include <QLoggingCategory>
#include <QTextStream>

#include <cstdio>
#include <memory>

namespace {

constexpr int VALUE_COUNT = 10000;
constexpr int PLUGIN_COUNT = 20;
constexpr int REPEATS = 15;
const QString APP_KEY = QStringLiteral("BenchApp");

/// The benchmark tree's values below one application key, plus the plug-ins.
QByteArray MakeDocument()
{
    QString xml;
    QTextStream out(&xml);
    out << "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Cfg version=\"2.2\">\n"
        << "    <System/>\n    <Export/>\n    <Domain/>\n    <Machine>\n        <" << APP_KEY << ">\n";
    out << "            <AdditionalDlls>\n";
    for (int i = 1; i <= PLUGIN_COUNT; ++i)
        out << QStringLiteral("                <Plugin%1><FileName>benchplugin%1.dll</FileName></Plugin%1>\n")
                   .arg(i, 2, 10, QLatin1Char('0'));
    out << "            </AdditionalDlls>\n";
    // MakeTree yields the values grouped by application, group and section,
    // so the nesting opens and closes as those names change.
    QStringList open;
    const QString indent = QStringLiteral("            ");
    for (const Bench::Value& value : Bench::MakeTree(VALUE_COUNT)) {
        const QStringList path{value.app, value.group, value.section};
        int common = 0;
        while (common < open.size() && open[common] == path[common])
            ++common;
        while (open.size() > common)
            out << indent << QString(4 * (open.size() - 1), QLatin1Char(' ')) << "</" << open.takeLast()
                << ">\n";
        while (open.size() < path.size()) {
            out << indent << QString(4 * open.size(), QLatin1Char(' ')) << "<" << path[open.size()] << ">\n";
            open << path[open.size()];
        }
        out << indent << QString(4 * open.size(), QLatin1Char(' ')) << "<" << value.name << ">" << value.text
            << "</" << value.name << ">\n";
    }
    while (!open.isEmpty())
        out << indent << QString(4 * (open.size() - 1), QLatin1Char(' ')) << "</" << open.takeLast() << ">\n";
    out << "        </" << APP_KEY << ">\n    </Machine>\n    <User/>\n</Cfg>\n";
    out.flush();
    return xml.toUtf8();
}

double StartCentreNs(const QString& fileName)
{
    QElapsedTimer timer;
    timer.start();
    auto centre = std::make_unique<CfgCenter>(APP_KEY, QStringLiteral("Xml:") + fileName, ICfg::VIEW_Machine,
                                              false, true, true);
    CfgCenter::ExecuteDlls();
    const double ns = static_cast<double>(timer.nsecsElapsed());
    const auto* instances = CfgCenter::GetDllInstanceList();
    if (!instances || instances->size() != PLUGIN_COUNT)
        std::fprintf(stderr, "expected %d plug-in instances\n", PLUGIN_COUNT);
    centre.reset();
    return ns;
}

double ParseNs(const QString& fileName)
{
    QElapsedTimer timer;
    timer.start();
    QFile file(fileName);
    QDomDocument document;
    if (!file.open(QIODevice::ReadOnly) || !document.setContent(&file))
        std::fprintf(stderr, "cannot parse %s\n", qPrintable(fileName));
    return static_cast<double>(timer.nsecsElapsed());
}

double Median(std::vector<double> samples)
{
    std::sort(samples.begin(), samples.end());
    return samples[samples.size() / 2];
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    // The centre reports each creation; a benchmark wants only its table.
    QLoggingCategory::setFilterRules(QStringLiteral("zent.message.info=false"));

    QTemporaryDir dir;
    const QString fileName = dir.filePath(QStringLiteral("Cfg.xml"));
    QFile file(fileName);
    if (!dir.isValid() || !file.open(QIODevice::WriteOnly) || file.write(MakeDocument()) < 0)
        return 1;
    file.close();

    // The first start loads the 20 libraries from disk; later ones find them
    // mapped already, as a restarted centre in a running process does.
    const double coldCentre = StartCentreNs(fileName);
    std::vector<double> centre, parse;
    for (int i = 0; i < REPEATS; ++i) {
        parse.push_back(ParseNs(fileName));
        centre.push_back(StartCentreNs(fileName));
    }

    std::printf("## Configuration centre start-up (%d values, %d plug-ins)\n\n", VALUE_COUNT, PLUGIN_COUNT);
    std::vector<Bench::Row> rows;
    rows.push_back({QStringLiteral("centre start-up, first (libraries loaded)"),
                    QString::number(VALUE_COUNT),
                    {coldCentre, Median(parse)}});
    rows.push_back({QStringLiteral("centre start-up, median of %1").arg(REPEATS),
                    QString::number(VALUE_COUNT),
                    {Median(centre), Median(parse)}});
    Bench::PrintTable({QStringLiteral("CfgCenter"), QStringLiteral("QDomDocument parse")}, rows);
    return 0;
}
