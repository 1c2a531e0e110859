// A plug-in for the configuration centre's tests. Every call is traced as
// "<library> <what>: key=<configuration key>", so a test sees the calls in
// order among the centre's own traces. A configuration key containing
// "noexec" makes Execute report that the plug-in did not run.
#include "configuration/idllinstance.h"
#include "kvbase/errorhandler.h"

#include <QString>

namespace {

const char* const SOURCE = "plugins/" PLUGIN_NAME;

void Trace(const QString& what, const QString& key)
{
    _Q_Trace(QStringLiteral(PLUGIN_NAME " %1: key=%2").arg(what, key), SOURCE, 0);
}

class TestPlugin : public IDllInstance
{
public:
    explicit TestPlugin(const QString& key) : m_sKey(key) {}
    ~TestPlugin() override { Trace(QStringLiteral("destroyed"), m_sKey); }

    bool Execute() override
    {
        Trace(QStringLiteral("executed"), m_sKey);
        return !m_sKey.contains(QLatin1String("noexec"));
    }
    void ApplicationEnds() override { Trace(QStringLiteral("ends"), m_sKey); }
    void CommitData() override { Trace(QStringLiteral("commits"), m_sKey); }

private:
    QString m_sKey;
};

[[maybe_unused]] IDllInstance* Create(const QString& key)
{
#if defined(NULL_FACTORY)
    Q_UNUSED(key)
    return nullptr;
#elif defined(STATIC_INSTANCE)
    static TestPlugin instance(key);
    return &instance;
#else
    return new TestPlugin(key);
#endif
}

} // namespace

#ifdef WITH_KVCREATEEX
IDllInstance* KVCreateEx(const wchar_t* configKey, const wchar_t* additionalParams)
{
    const QString key = QString::fromWCharArray(configKey);
    Trace(QStringLiteral("created by KVCreateEx, params=%1").arg(QString::fromWCharArray(additionalParams)),
          key);
    return Create(key);
}
#endif

#ifdef WITH_KVCREATE
IDllInstance* KVCreate(const wchar_t* configKey)
{
    const QString key = QString::fromWCharArray(configKey);
    Trace(QStringLiteral("created by KVCreate"), key);
    return Create(key);
}
#endif

#ifdef WITH_KVDESTROY
void KVDestroy(IDllInstance* instance)
{
    delete static_cast<TestPlugin*>(instance);
}
#endif
