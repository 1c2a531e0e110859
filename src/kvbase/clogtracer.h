/// \file
/// CLogTracer: the file log of an application.
#ifndef KVBASE_CLOGTRACER_H
#define KVBASE_CLOGTRACER_H

#include "kvbase/clogwriter.h"

#include <QFile>

/// The file log of an application. Lines are appended to one file, one line
/// per trace; the file is opened on the first line, so the module name can
/// still be set after construction and names the default file.
class KVBASE_EXPORT CLogTracer : public CLogWriter
{
public:
    /// With an empty name the log is DefaultDirectory() + "/" + module + ".log".
    explicit CLogTracer(const QString& fileName = QString());
    ~CLogTracer() override;

    /// The log file's name: the one given, else the default for the current
    /// module ("zent" while none is set).
    QString GetFileName() const;
    void Write(const QString& sourceFile, int line, const QString& text) override;

    /// The writable data location's "Velkor-Amsel/log" folder.
    static QString DefaultDirectory();

private:
    QMutex m_fileMutex;
    const QString m_sFileName;
    QFile m_file;
};

#endif
