#ifndef TESTS_COMMON_SCRIPTRUN_H
#define TESTS_COMMON_SCRIPTRUN_H

// Runs a program the way a script or an editor's run button does: standard
// output goes to a file, and no desktop viewer is on the PATH.

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

/// How a program ended and what it wrote to its two outputs.
struct ScriptRun
{
    bool finished = false;
    QProcess::ExitStatus exitStatus = QProcess::CrashExit;
    int exitCode = -1;
    QByteArray output;
    QByteArray errors;
};

/// Runs `program` with `arguments` in `workDir`. The PATH names only an empty
/// folder, so no viewer can be found; DISPLAY is `display` (unset when null),
/// so that both "a desktop without a viewer" and "no desktop" can be had.
/// `environment` is the rest of the environment.
inline ScriptRun RunLikeAScript(const QString& program, const QStringList& arguments, const QString& workDir,
                                const QByteArray& display,
                                QProcessEnvironment environment = QProcessEnvironment::systemEnvironment())
{
    ScriptRun run;
    QTemporaryDir scratch;
    if (!scratch.isValid() || !QDir(scratch.path()).mkdir(QStringLiteral("path")))
        return run;
    environment.insert(QStringLiteral("PATH"), scratch.filePath(QStringLiteral("path")));
    environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
    if (display.isNull())
        environment.remove(QStringLiteral("DISPLAY"));
    else
        environment.insert(QStringLiteral("DISPLAY"), QString::fromLatin1(display));
    const QString outputFile = scratch.filePath(QStringLiteral("stdout"));
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(workDir);
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(outputFile);
    process.start(program, arguments);
    if (!process.waitForFinished(60000)) {
        process.kill();
        process.waitForFinished();
        return run;
    }
    run.finished = true;
    run.exitStatus = process.exitStatus();
    run.exitCode = process.exitCode();
    run.errors = process.readAllStandardError();
    QFile output(outputFile);
    run.output = output.open(QIODevice::ReadOnly) ? output.readAll() : QByteArray("<no output file>");
    return run;
}

#endif
