#ifndef TESTS_COMMON_SCOPEDENVIRONMENT_H
#define TESTS_COMMON_SCOPEDENVIRONMENT_H

#include <QByteArray>
#include <QtGlobal>

#include <utility>
#include <vector>

/// Sets environment variables (or unsets them for a null value) and restores them.
class ScopedEnvironment
{
public:
    ScopedEnvironment() = default;
    ~ScopedEnvironment()
    {
        for (auto it = m_saved.rbegin(); it != m_saved.rend(); ++it) {
            if (it->second.isNull())
                qunsetenv(it->first.constData());
            else
                qputenv(it->first.constData(), it->second);
        }
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

    void Set(const char* name, const QByteArray& value)
    {
        m_saved.emplace_back(name, qEnvironmentVariableIsSet(name) ? qgetenv(name) : QByteArray());
        if (value.isNull())
            qunsetenv(name);
        else
            qputenv(name, value);
    }

private:
    std::vector<std::pair<QByteArray, QByteArray>> m_saved;
};

#endif
