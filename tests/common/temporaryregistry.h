#ifndef TESTS_COMMON_TEMPORARYREGISTRY_H
#define TESTS_COMMON_TEMPORARYREGISTRY_H

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QTemporaryDir>

/// A temporary directory holding an empty registry for one test: ZENT_REGISTRY_DIR
/// names it (or `folder` in it) until this goes out of scope, when the variable
/// gets back its earlier value, or is unset again.
class TemporaryRegistry : public QTemporaryDir
{
public:
    explicit TemporaryRegistry(const QString& folder = QString())
        : m_bHadVariable(qEnvironmentVariableIsSet(Variable)), m_savedValue(qgetenv(Variable))
    {
        if (isValid())
            useDirectory(folder.isEmpty() ? path() : filePath(folder));
    }
    ~TemporaryRegistry()
    {
        if (m_bHadVariable)
            qputenv(Variable, m_savedValue);
        else
            qunsetenv(Variable);
    }
    TemporaryRegistry(const TemporaryRegistry&) = delete;
    TemporaryRegistry& operator=(const TemporaryRegistry&) = delete;

    /// Keeps the hives in `directory` from now on.
    void useDirectory(const QString& directory) { qputenv(Variable, QFile::encodeName(directory)); }

private:
    static constexpr const char* Variable = "ZENT_REGISTRY_DIR";
    bool m_bHadVariable;
    QByteArray m_savedValue;
};

#endif
