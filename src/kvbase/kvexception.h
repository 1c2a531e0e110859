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
    explicit KVException(const QString& message, const QString& sourceFile = QString(),
                         const QString& className = QString(), const QString& operation = QString(),
                         int line = 0, int code = -1);

    QString GetMessage() const { return m_sMessage; }
    QString GetSourceFile() const { return m_sSourceFile; }
    QString GetClassName() const { return m_sClassName; }
    QString GetOperation() const { return m_sOperation; }
    int GetLine() const { return m_nLine; }
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
