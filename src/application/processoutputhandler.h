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
    ProcessOutputHandler(QProcess* process, const QString& description);

    QProcess* GetProcess() const { return m_pProcess.data(); }
    /// The program followed by its parameters.
    QString GetDescription() const { return m_sDescription; }

public slots:
    void OnStdOut();
    void OnStdError();

private:
    QPointer<QProcess> m_pProcess;
    QString m_sDescription;
};

#endif
