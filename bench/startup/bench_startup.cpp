// Start-up time of zentdemo (the library's whole start-up: configuration,
// single-instance lock and channel, splash, translations, plug-in with its
// main window) beside a bare Qt application that reads the same Cfg.xml with
// QDomDocument. Both run as fresh processes on the offscreen platform and are
// timed from their start to the line they print at their first event-loop
// turn. bench_startup [--quick]
#include "benchsupport.h"

#include <QCoreApplication>
#include <QProcess>

#include <cstdio>

namespace {

const QString DEMO_DATA = QStringLiteral(ZENT_DEMO_DATA_DIR);

/// Nanoseconds from the start of `program` to `marker` on its standard
/// output; negative when it never came.
double TimeToMarker(const QString& program, const QStringList& arguments, const QString& workDir,
                    const QProcessEnvironment& environment, const QByteArray& marker)
{
    QProcess process;
    process.setWorkingDirectory(workDir);
    process.setProcessEnvironment(environment);
    process.setStandardErrorFile(QProcess::nullDevice());
    QElapsedTimer timer;
    timer.start();
    process.start(program, arguments);
    QByteArray output;
    double elapsed = -1;
    while (process.waitForReadyRead(30000)) {
        output += process.readAllStandardOutput();
        if (output.contains(marker)) {
            elapsed = static_cast<double>(timer.nsecsElapsed());
            break;
        }
    }
    if (!process.waitForFinished(30000))
        process.kill();
    return elapsed;
}

double Median(std::vector<double> samples)
{
    std::sort(samples.begin(), samples.end());
    const size_t middle = samples.size() / 2;
    return samples.size() % 2 ? samples[middle] : (samples[middle - 1] + samples[middle]) / 2;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const bool quick = app.arguments().contains(QStringLiteral("--quick"));
    const int repeats = quick ? 5 : 21;
    const QString binDir = QCoreApplication::applicationDirPath();

    QTemporaryDir directory;
    if (!directory.isValid() || !QDir(directory.path()).mkdir(QStringLiteral("runtime")) ||
        !QFile::setPermissions(directory.filePath(QStringLiteral("runtime")),
                               QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner)) {
        std::fprintf(stderr, "cannot create a temporary folder\n");
        return 1;
    }
    for (const QString& file : {QStringLiteral("Cfg.xml"), QStringLiteral("splash.png")}) {
        if (!QFile::copy(DEMO_DATA + QLatin1Char('/') + file, directory.filePath(file))) {
            std::fprintf(stderr, "cannot copy %s from %s\n", qPrintable(file), qPrintable(DEMO_DATA));
            return 1;
        }
    }
    // Both programs alike: no display, nothing of the user's touched.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), directory.filePath(QStringLiteral("runtime")));
    environment.insert(QStringLiteral("XDG_DATA_HOME"), directory.filePath(QStringLiteral("data")));
    environment.remove(QStringLiteral("QT_LOGGING_RULES"));

    struct Candidate
    {
        QString name;
        QString program;
        QStringList arguments;
        QByteArray marker;
        std::vector<double> samples;
    };
    std::vector<Candidate> candidates{
        {QStringLiteral("zentdemo"),
         binDir + QStringLiteral("/zentdemo"),
         {QStringLiteral("DemoApp"), QStringLiteral("Xml:Cfg.xml"), QStringLiteral("--exit-at-first-turn")},
         QByteArrayLiteral("zentdemo: first event-loop turn"),
         {}},
        {QStringLiteral("QApplication + QDomDocument"),
         binDir + QStringLiteral("/startupbaseline"),
         {QStringLiteral("Cfg.xml")},
         QByteArrayLiteral("startupbaseline: first event-loop turn"),
         {}}};

    // One unmeasured run each fills the system's caches; then the programs
    // take turns, so that both meet the same load of the machine.
    for (int run = -1; run < repeats; ++run) {
        for (Candidate& candidate : candidates) {
            const double ns = TimeToMarker(candidate.program, candidate.arguments, directory.path(),
                                           environment, candidate.marker);
            if (ns < 0) {
                std::fprintf(stderr, "%s did not reach its event loop\n", qPrintable(candidate.program));
                return 1;
            }
            if (run >= 0)
                candidate.samples.push_back(ns);
        }
    }

    std::printf("## Start-up to the first event-loop turn\n\n"
                "zentdemo (configuration, single-instance lock and channel, splash, translations, the demo "
                "plug-in and its main window) beside a bare QApplication reading the same Cfg.xml with "
                "QDomDocument; fresh processes on the offscreen platform, median of %d runs each.\n\n",
                repeats);
    QStringList names;
    Bench::Row row{QStringLiteral("start to first event-loop turn"), QStringLiteral("Cfg.xml"), {}, 1.5};
    for (const Candidate& candidate : candidates) {
        names << candidate.name;
        row.ns.push_back(Median(candidate.samples));
    }
    Bench::PrintTable(names, {row});
    std::printf("Ratio zentdemo / bare: %s\n\n", qPrintable(Bench::FormatRatio(row.RatioToBestPeer())));
    return 0;
}
