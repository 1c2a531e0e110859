// A program's start, from the call to "started", through the process
// handler beside a bare QProcess (start and waitForStarted).
// bench_processhandler [--quick]
#include "benchsupport.h"

#include "application/processhandler.h"
#include "kvbase/zentos.h"

#include <QCoreApplication>
#include <QProcess>

#include <cstdio>
#include <cstring>
#include <memory>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    ZentOS::Create().InitGuiProcess();
    const bool quick = argc > 1 && std::strcmp(argv[1], "--quick") == 0;
    const int repeats = quick ? 21 : 101;
    const QString program = QStringLiteral("/bin/true");
    const QStringList arguments{QStringLiteral("x")};
    const QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    QTemporaryDir dir;

    std::unique_ptr<QProcess> process;
    const auto finish = [&process] {
        if (process)
            process->waitForFinished(10000);
        process.reset();
    };
    const double handler = Bench::MedianNs(repeats, finish, [&] {
        process.reset(
            ProcessHandler::Instance().StartProgram(program, arguments, dir.path(), false, true, env));
    });
    const double bare = Bench::MedianNs(repeats, finish, [&] {
        process.reset(new QProcess);
        process->setProcessEnvironment(env);
        process->setWorkingDirectory(dir.path());
        process->start(program, arguments, QIODevice::ReadOnly);
        process->waitForStarted(5000);
    });
    finish();
    const double ratio = handler / bare;
    std::printf("## Process start (bench_processhandler)\n\n");
    std::printf("`%s` from the call to \"started\", median of %d starts.\n\n", qPrintable(program), repeats);
    std::printf(
        "| operation | ProcessHandler::StartProgram | QProcess start + waitForStarted | ratio | target |\n"
        "|---|---:|---:|---:|---|\n");
    std::printf("| start to started | %s | %s | %.2fx | <= 1.1x: %s |\n\n",
                qPrintable(Bench::FormatNs(handler)), qPrintable(Bench::FormatNs(bare)), ratio,
                ratio <= 1.1 ? "met" : "MISSED");
    ProcessHandler::Instance().aboutToTerminate();
    std::fflush(stdout);
    return 0;
}
