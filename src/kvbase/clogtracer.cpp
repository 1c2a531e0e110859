#include "kvbase/clogtracer.h"

#include "kvbase/zentos.h"

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
    QString module = GetModuleName();
    // The module is a configuration key, which may hold separators ("App/../x"):
    // the log stays a file in the log folder whatever it holds.
    module.replace(QLatin1Char('/'), QLatin1Char('_')).replace(QLatin1Char('\\'), QLatin1Char('_'));
    return DefaultDirectory() + QLatin1Char('/') + (module.isEmpty() ? QStringLiteral("zent") : module) +
           QStringLiteral(".log");
}

void CLogTracer::Write(const QString& sourceFile, int line, const QString& text)
{
    const QByteArray bytes = FormatLine(GetModuleName(), sourceFile, line, text).toUtf8();
    QMutexLocker lock(&m_fileMutex);
    if (!m_file.isOpen()) {
        const QString name = GetFileName();
        ZentOS::Get().CreateDirectories(QFileInfo(name).absolutePath(), 0700);
        // A log that cannot be written must not take the application down;
        // the trace still reaches Qt's logging. Never appended through a link.
        if (!ZentOS::Get().OpenForAppend(m_file, name))
            return;
    }
    m_file.write(bytes);
    m_file.flush();
}
