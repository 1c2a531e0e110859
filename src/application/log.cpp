#include "application/log.h"

#include "application/log_p.h"

QString Log::m_qsFileName = LogPrivate::DefaultFileName();

void Log::SetFileName(QString name)
{
    m_qsFileName = std::move(name);
}

QString Log::GetFileName()
{
    return m_qsFileName;
}

void Log::WriteLine(const QString& text)
{
    const QString fileName = m_qsFileName;
    // Only the default folder is made on demand, as C:\ always exists where the
    // default was first chosen; a folder the caller named must already exist.
    if (fileName == LogPrivate::DefaultFileName())
        LogPrivate::CreateDefaultFolder(fileName);
    LogPrivate::AppendToFile(fileName, (text + QLatin1Char('\n')).toLatin1());
}
