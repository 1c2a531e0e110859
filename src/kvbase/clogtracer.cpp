#include "kvbase/clogtracer.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

CLogTracer::CLogTracer(const QString& fileName) : m_sFileName(fileName) {}

CLogTracer::~CLogTracer() = default;

QString CLogTracer::DefaultDirectory()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QStringLiteral("/Velkor-Amsel/log");
}

QString CLogTracer::GetFileName() const
{
    if (!m_sFileName.isEmpty())
        return m_sFileName;
    const QString module = GetModuleName();
    return DefaultDirectory() + QLatin1Char('/') + (module.isEmpty() ? QStringLiteral("zent") : module) +
           QStringLiteral(".log");
}

void CLogTracer::Write(const QString& sourceFile, int line, const QString& text)
{
    const QByteArray bytes = FormatLine(GetModuleName(), sourceFile, line, text).toUtf8();
    QMutexLocker lock(&m_fileMutex);
    if (!m_file.isOpen()) {
        const QString name = GetFileName();
        QDir().mkpath(QFileInfo(name).absolutePath());
        m_file.setFileName(name);
        // A log that cannot be written must not take the application down;
        // the trace still reaches Qt's logging.
        if (!m_file.open(QIODevice::WriteOnly | QIODevice::Append))
            return;
    }
    m_file.write(bytes);
    m_file.flush();
}
