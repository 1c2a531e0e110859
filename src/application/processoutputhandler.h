/// \file
/// ProcessOutputHandler: drains a started program's output.
#ifndef APPLICATION_PROCESSOUTPUTHANDLER_H
#define APPLICATION_PROCESSOUTPUTHANDLER_H

#include "zentappstartup_export.h"

#include <QObject>
#include <QPointer>
#include <QProcess>

/// Drains a started program's output so that it never blocks on a full
/// pipe. The output is discarded: started programs are not logged.
class ZENTAPPSTARTUP_EXPORT ProcessOutputHandler : public QObject
{
    Q_OBJECT

public:
    /// Drains `process` from now on; `description` is the program followed
    /// by its parameters. The slots run in the thread the handler lives in
    /// (ProcessHandler moves it to the main thread).
    ProcessOutputHandler(QProcess* process, const QString& description);

    /// The drained process; null once it was deleted.
    QProcess* GetProcess() const { return m_pProcess.data(); }
    /// The program followed by its parameters.
    QString GetDescription() const { return m_sDescription; }

public slots:
    /// Reads and discards the standard output available; nothing once the
    /// process is gone.
    void OnStdOut();
    /// Reads and discards the standard error available; nothing once the
    /// process is gone.
    void OnStdError();

private:
    QPointer<QProcess> m_pProcess;
    QString m_sDescription;
};

#endif
