// Start-up time of zentdemo beside a bare Qt application that reads the same
// Cfg.xml with QDomDocument (startupbaseline). Every program runs as a fresh
// process on the offscreen platform and is timed from its start to the line
// it prints at its first event-loop turn. Three comparisons:
//  - the library's start-up alone: zentdemo with its splash image and its
//    plug-in switched off in the file, beside the bare application;
//  - zentdemo as shipped (splash, translations, the plug-in and its main
//    window) beside the bare application showing the same picture and a
//    like main window;
//  - zentdemo as shipped beside the bare application that shows nothing.
// bench_startup [--quick]
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

/// One comparison: zentdemo and the baseline, each with its arguments, in a
/// working folder holding the file they read.
struct Scenario
{
    QString name;
    QString workDir;
    QStringList demoArguments;
    QStringList baselineArguments;
    double limit;
    std::vector<double> demo;
    std::vector<double> baseline;
};

bool CopyShipped(const QString& workDir, bool withoutSplashAndPlugin)
{
    if (!QDir().mkpath(workDir) ||
        !QFile::copy(DEMO_DATA + QStringLiteral("/splash.png"), workDir + "/splash.png"))
        return false;
    QFile shipped(DEMO_DATA + QStringLiteral("/Cfg.xml"));
    if (!shipped.open(QIODevice::ReadOnly))
        return false;
    QByteArray cfg = shipped.readAll();
    if (withoutSplashAndPlugin) {
        cfg.replace("<SplashImage>splash.png</SplashImage>", "<SplashImage></SplashImage>");
        cfg.replace("<FileName>ZentDemo.dll</FileName>",
                    "<FileName>ZentDemo.dll</FileName><Suspend>true</Suspend>");
    }
    QFile copy(workDir + QStringLiteral("/Cfg.xml"));
    return copy.open(QIODevice::WriteOnly) && copy.write(cfg) == cfg.size();
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
    const QString demo = QCoreApplication::applicationDirPath() + QStringLiteral("/zentdemo");
    const QString baseline = QCoreApplication::applicationDirPath() + QStringLiteral("/startupbaseline");

    QTemporaryDir directory;
    const QString runtime = directory.filePath(QStringLiteral("runtime"));
    if (!directory.isValid() || !QDir().mkpath(runtime) ||
        !QFile::setPermissions(runtime,
                               QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner)) {
        std::fprintf(stderr, "cannot create a temporary folder\n");
        return 1;
    }
    const QString alone = directory.filePath(QStringLiteral("alone"));
    const QString shipped = directory.filePath(QStringLiteral("shipped"));
    if (!CopyShipped(alone, true) || !CopyShipped(shipped, false)) {
        std::fprintf(stderr, "cannot copy the demo's files from %s\n", qPrintable(DEMO_DATA));
        return 1;
    }
    // All programs alike: no display, nothing of the user's touched.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime);
    environment.insert(QStringLiteral("XDG_DATA_HOME"), directory.filePath(QStringLiteral("data")));
    environment.remove(QStringLiteral("QT_LOGGING_RULES"));

    const QStringList demoArguments{QStringLiteral("DemoApp"), QStringLiteral("Xml:Cfg.xml"),
                                    QStringLiteral("--exit-at-first-turn")};
    std::vector<Scenario> scenarios{
        {QStringLiteral("start-up alone (no splash, plug-in suspended) vs bare"),
         alone,
         demoArguments,
         {QStringLiteral("Cfg.xml")},
         1.5,
         {},
         {}},
        {QStringLiteral("as shipped (splash, main window) vs bare with the same windows"),
         shipped,
         demoArguments,
         {QStringLiteral("Cfg.xml"), QStringLiteral("--with-windows")},
         1.5,
         {},
         {}},
        {QStringLiteral("as shipped vs bare, no windows"),
         shipped,
         demoArguments,
         {QStringLiteral("Cfg.xml")},
         0,
         {},
         {}}};

    // One unmeasured round fills the system's caches; then the programs take
    // turns, so that all meet the same load of the machine.
    for (int run = -1; run < repeats; ++run) {
        for (Scenario& scenario : scenarios) {
            const double demoNs = TimeToMarker(demo, scenario.demoArguments, scenario.workDir, environment,
                                               QByteArrayLiteral("zentdemo: first event-loop turn"));
            const double baselineNs =
                TimeToMarker(baseline, scenario.baselineArguments, scenario.workDir, environment,
                             QByteArrayLiteral("startupbaseline: first event-loop turn"));
            if (demoNs < 0 || baselineNs < 0) {
                std::fprintf(stderr, "a program did not reach its event loop\n");
                return 1;
            }
            if (run >= 0) {
                scenario.demo.push_back(demoNs);
                scenario.baseline.push_back(baselineNs);
            }
        }
    }

    std::printf("## Start-up to the first event-loop turn\n\n"
                "zentdemo beside a bare QApplication reading the same Cfg.xml with QDomDocument; fresh "
                "processes on the offscreen platform, median of %d runs each. The operation column names "
                "what zentdemo does vs what the bare application does.\n\n",
                repeats);
    std::vector<Bench::Row> rows;
    for (const Scenario& scenario : scenarios)
        rows.push_back({scenario.name,
                        QStringLiteral("Cfg.xml"),
                        {Median(scenario.demo), Median(scenario.baseline)},
                        scenario.limit});
    Bench::PrintTable({QStringLiteral("zentdemo"), QStringLiteral("QApplication + QDomDocument")}, rows);
    std::printf("Ratio zentdemo / bare QApplication + QDomDocument, as shipped: %s\n\n",
                qPrintable(Bench::FormatRatio(rows.back().RatioToBestPeer())));
    return 0;
}
