#ifndef BENCH_BENCHSUPPORT_H
#define BENCH_BENCHSUPPORT_H

// Shared parts of the benchmark programs: the generated configuration tree,
// median timing and the table that the programs print.

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <limits>
#include <random>
#include <vector>

namespace Bench {

/// One value of the generated tree: application, group and section (the
/// nested sub-configurations) and the value's name and text.
struct Value
{
    QString app;
    QString group;
    QString section;
    QString name;
    QString text;

    QString XmlPath() const { return app + '\\' + group + '\\' + section + '\\' + name; }
    QString XmlSection() const { return app + '\\' + group + '\\' + section; }
    QString SlashPath() const { return app + '/' + group + '/' + section + '/' + name; }
    QString SlashSection() const { return app + '/' + group + '/' + section; }
};

/// Ten applications with ten groups each; every section holds ten values and
/// the number of sections per group grows with `count` (1,000 values: one
/// section per group, 100,000 values: a hundred). The texts look like real
/// settings: paths, numbers, flags and short words.
inline std::vector<Value> MakeTree(int count)
{
    const int sectionsPerGroup = std::max(1, count / 1000);
    std::vector<Value> values;
    values.reserve(static_cast<size_t>(count));
    for (int app = 0; app < 10; ++app) {
        for (int group = 0; group < 10; ++group) {
            for (int section = 0; section < sectionsPerGroup; ++section) {
                for (int item = 0; item < 10; ++item) {
                    const int serial = static_cast<int>(values.size());
                    Value value;
                    value.app = QStringLiteral("App%1").arg(app, 2, 10, QLatin1Char('0'));
                    value.group = QStringLiteral("Group%1").arg(group, 2, 10, QLatin1Char('0'));
                    value.section = QStringLiteral("Section%1").arg(section, 3, 10, QLatin1Char('0'));
                    value.name = QStringLiteral("Value%1").arg(item);
                    switch (item % 4) {
                    case 0:
                        value.text = QStringLiteral("/opt/product/share/data/file%1.dat").arg(serial);
                        break;
                    case 1:
                        value.text = QString::number(serial * 7);
                        break;
                    case 2:
                        value.text = serial % 2 ? QStringLiteral("true") : QStringLiteral("false");
                        break;
                    default:
                        value.text = QStringLiteral("Window geometry %1").arg(serial);
                        break;
                    }
                    values.push_back(value);
                }
            }
        }
    }
    return values;
}

/// The same values in one fixed random order, so that every library reads
/// and writes them in the same order.
inline std::vector<int> ShuffledOrder(size_t count)
{
    std::vector<int> order(count);
    for (size_t i = 0; i < count; ++i)
        order[i] = static_cast<int>(i);
    std::mt19937 generator(20240611u);
    std::shuffle(order.begin(), order.end(), generator);
    return order;
}

/// Runs `prepare` (not timed) and `work` (timed) `repeats` times and returns
/// the median duration of `work` in nanoseconds.
inline double MedianNs(int repeats, const std::function<void()>& prepare, const std::function<void()>& work)
{
    std::vector<double> samples;
    for (int i = 0; i < repeats; ++i) {
        if (prepare)
            prepare();
        QElapsedTimer timer;
        timer.start();
        work();
        samples.push_back(static_cast<double>(timer.nsecsElapsed()));
    }
    std::sort(samples.begin(), samples.end());
    const size_t middle = samples.size() / 2;
    return samples.size() % 2 ? samples[middle] : (samples[middle - 1] + samples[middle]) / 2;
}

/// A duration in readable units.
inline QString FormatNs(double ns)
{
    if (ns < 10e3)
        return QStringLiteral("%1 ns").arg(ns, 0, 'f', 0);
    if (ns < 10e6)
        return QStringLiteral("%1 us").arg(ns / 1e3, 0, 'f', 1);
    if (ns < 10e9)
        return QStringLiteral("%1 ms").arg(ns / 1e6, 0, 'f', 1);
    return QStringLiteral("%1 s").arg(ns / 1e9, 0, 'f', 2);
}

inline QString FormatRatio(double ratio)
{
    return QStringLiteral("%1x").arg(ratio, 0, 'f', 2);
}

/// A row of figures of the libraries compared, the first being the one
/// under test. Its ratio is to the best (smallest) of the others.
struct Row
{
    QString operation;
    QString size;
    std::vector<double> ns;
    double limit = 0; // 0: no target for this row

    double RatioToBestPeer() const
    {
        double best = std::numeric_limits<double>::max();
        for (size_t i = 1; i < ns.size(); ++i)
            best = std::min(best, ns[i]);
        return ns.front() / best;
    }
};

/// Prints rows as a Markdown table.
inline void PrintTable(const QStringList& libraries, const std::vector<Row>& rows)
{
    QString header = QStringLiteral("| operation | values |");
    QString rule = QStringLiteral("|---|---:|");
    for (const QString& library : libraries) {
        header += QLatin1Char(' ') + library + QStringLiteral(" |");
        rule += QStringLiteral("---:|");
    }
    header += QStringLiteral(" ratio to best peer | target |");
    rule += QStringLiteral("---:|---|");
    std::printf("%s\n%s\n", qPrintable(header), qPrintable(rule));
    for (const Row& row : rows) {
        QString line = QStringLiteral("| %1 | %2 |").arg(row.operation, row.size);
        for (double ns : row.ns)
            line += QLatin1Char(' ') + FormatNs(ns) + QStringLiteral(" |");
        const double ratio = row.RatioToBestPeer();
        QString target = QStringLiteral("-");
        if (row.limit > 0)
            target = QStringLiteral("<= %1x: %2")
                         .arg(row.limit, 0, 'f', 1)
                         .arg(ratio <= row.limit ? QStringLiteral("met") : QStringLiteral("MISSED"));
        line += QStringLiteral(" %1 | %2 |").arg(FormatRatio(ratio), target);
        std::printf("%s\n", qPrintable(line));
    }
    std::printf("\n");
    std::fflush(stdout);
}

/// Copies `source` to a file name not used before, so that no library can
/// answer an open from a cache of an earlier one.
inline QString FreshCopy(const QString& source, const QString& directory, const QString& suffix)
{
    static int serial = 0;
    const QString target = QStringLiteral("%1/copy%2%3").arg(directory).arg(++serial).arg(suffix);
    QFile::copy(source, target);
    return target;
}

} // namespace Bench

#endif
