/// \file
/// KVException: the one exception type of the product family.
#ifndef KVBASE_KVEXCEPTION_H
#define KVBASE_KVEXCEPTION_H

#include "kvbase/kvbase_export.h"

#include <QByteArray>
#include <QString>

#include <exception>

/// The one exception type of the product family. It carries the message and
/// where it was raised: the source file as folder and name without extension
/// ("configuration/cfgxml"), the class, the operation and the line.
class KVBASE_EXPORT KVException : public std::exception
{
public:
    /// `sourceFile`, `className`, `operation` and `line` say where it was
    /// raised; `code` is a number for callers that tell failures apart (-1: none).
    explicit KVException(const QString& message, const QString& sourceFile = QString(),
                         const QString& className = QString(), const QString& operation = QString(),
                         int line = 0, int code = -1);

    /// The message for the user and the log.
    QString GetMessage() const { return m_sMessage; }
    /// The raising source file as folder and name without extension.
    QString GetSourceFile() const { return m_sSourceFile; }
    /// The raising class.
    QString GetClassName() const { return m_sClassName; }
    /// The raising operation.
    QString GetOperation() const { return m_sOperation; }
    /// The raising line; 0 when not given.
    int GetLine() const { return m_nLine; }
    /// The failure's number; -1 when not given.
    int GetCode() const { return m_nCode; }

    /// The message in UTF-8, for code that only knows std::exception.
    const char* what() const noexcept override;

private:
    QString m_sMessage;
    QString m_sSourceFile;
    QString m_sClassName;
    QString m_sOperation;
    int m_nLine;
    int m_nCode;
    QByteArray m_utf8Message;
};

#endif
