// A plug-in that does what a small real one does at start-up: keep its key and
// report that it ran.
#include "configuration/idllinstance.h"

#include <QString>

namespace {

class BenchPlugin : public IDllInstance
{
public:
    explicit BenchPlugin(const wchar_t* key) : m_sKey(QString::fromWCharArray(key)) {}
    bool Execute() override { return !m_sKey.isEmpty(); }

private:
    QString m_sKey;
};

} // namespace

ZENT_PLUGIN_EXPORT IDllInstance* KVCreateEx(const wchar_t* configKey, const wchar_t*)
{
    return new BenchPlugin(configKey);
}

ZENT_PLUGIN_EXPORT IDllInstance* KVCreate(const wchar_t* configKey)
{
    return new BenchPlugin(configKey);
}

ZENT_PLUGIN_EXPORT void KVDestroy(IDllInstance* instance)
{
    delete static_cast<BenchPlugin*>(instance);
}
