#include "kvbase/kvexception.h"

KVException::KVException(const QString& message, const QString& sourceFile, const QString& className,
                         const QString& operation, int line, int code)
    : m_sMessage(message), m_sSourceFile(sourceFile), m_sClassName(className), m_sOperation(operation),
      m_nLine(line), m_nCode(code), m_utf8Message(message.toUtf8())
{
}

const char* KVException::what() const noexcept
{
    return m_utf8Message.constData();
}
