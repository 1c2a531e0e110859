#include "kvbase/clogwriter.h"

#include <QDateTime>

CLogWriter::~CLogWriter() = default;

void CLogWriter::SetModuleName(const QString& name)
{
    QMutexLocker lock(&m_moduleMutex);
    m_sModuleName = name;
}

QString CLogWriter::GetModuleName() const
{
    QMutexLocker lock(&m_moduleMutex);
    return m_sModuleName;
}

QString CLogWriter::FormatLine(const QString& module, const QString& sourceFile, int line,
                               const QString& text)
{
    QString escaped = text;
    escaped.replace(QLatin1Char('\r'), QLatin1String("\\r")).replace(QLatin1Char('\n'), QLatin1String("\\n"));
    const QLatin1Char tab('\t');
    return QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz")) + tab + module +
           tab + sourceFile + tab + QString::number(line) + tab + escaped + QLatin1Char('\n');
}
