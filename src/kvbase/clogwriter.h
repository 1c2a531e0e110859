/// \file
/// CLogWriter: the base of every trace destination.
#ifndef KVBASE_CLOGWRITER_H
#define KVBASE_CLOGWRITER_H

#include "kvbase/kvbase_export.h"

#include <QMutex>
#include <QString>

/// Where trace lines go. A writer knows the module (the application's
/// CfgKey) that every line is marked with.
class KVBASE_EXPORT CLogWriter
{
public:
    CLogWriter() = default;
    virtual ~CLogWriter();
    CLogWriter(const CLogWriter&) = delete;
    CLogWriter& operator=(const CLogWriter&) = delete;

    /// Sets the module that marks every line from now on; thread-safe.
    void SetModuleName(const QString& name);
    /// The module that marks the lines; empty until set.
    QString GetModuleName() const;

    /// Writes one line; `sourceFile` is a name like "configuration/cfgxml".
    virtual void Write(const QString& sourceFile, int line, const QString& text) = 0;

    /// The line as every writer formats it: time, module, source, line and
    /// text separated by tabs, line breaks in the text escaped as "\n".
    static QString FormatLine(const QString& module, const QString& sourceFile, int line,
                              const QString& text);

private:
    mutable QMutex m_moduleMutex;
    QString m_sModuleName;
};

#endif
