#include "application/processoutputhandler.h"

ProcessOutputHandler::ProcessOutputHandler(QProcess* process, const QString& description)
    : m_pProcess(process), m_sDescription(description)
{
    connect(process, &QProcess::readyReadStandardError, this, &ProcessOutputHandler::OnStdError);
    connect(process, &QProcess::readyReadStandardOutput, this, &ProcessOutputHandler::OnStdOut);
}

void ProcessOutputHandler::OnStdOut()
{
    if (m_pProcess)
        m_pProcess->readAllStandardOutput();
}

void ProcessOutputHandler::OnStdError()
{
    if (m_pProcess)
        m_pProcess->readAllStandardError();
}
