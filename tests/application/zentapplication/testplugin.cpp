// A plug-in for the start-up tests. Every call is appended, one line each, to
// the file named by ZENT_TEST_PLUGIN_LOG, so that tests see what happened in
// their own process and in child processes alike. The plug-in's name comes
// from the build (one source, several libraries). ZENT_TEST_PLUGIN_THROW
// makes the end notification fail: "kv" with a KVException, "std" with a
// standard exception.
#include "configuration/idllinstance.h"
#include "kvbase/kvexception.h"

#include <QByteArray>
#include <QFile>
#include <QString>

#include <stdexcept>

namespace {

void Record(const QString& event)
{
    const QString path = qEnvironmentVariable("ZENT_TEST_PLUGIN_LOG");
    if (path.isEmpty())
        return;
    QFile log(path);
    if (log.open(QIODevice::WriteOnly | QIODevice::Append))
        log.write(QStringLiteral(ZENT_TEST_PLUGIN_NAME " %1\n").arg(event).toUtf8());
}

class TestInstance : public IDllInstance
{
public:
    explicit TestInstance(const QString& configKey) { Record(QStringLiteral("create ") + configKey); }
    ~TestInstance() override { Record(QStringLiteral("destroy")); }

    bool Execute() override
    {
        Record(QStringLiteral("execute"));
        return true;
    }
    void ApplicationEnds() override
    {
        Record(QStringLiteral("ends"));
        const QByteArray failure = qgetenv("ZENT_TEST_PLUGIN_THROW");
        if (failure == "kv")
            throw KVException(QStringLiteral("Plug-in refuses to end"), QStringLiteral("tests/testplugin"),
                              QStringLiteral("TestInstance"), QStringLiteral("ApplicationEnds"), __LINE__);
        if (failure == "std")
            throw std::runtime_error("plug-in failure");
    }
    void CommitData() override { Record(QStringLiteral("commit")); }
};

} // namespace

IDllInstance* KVCreate(const wchar_t* configKey)
{
    return new TestInstance(QString::fromWCharArray(configKey));
}

IDllInstance* KVCreateEx(const wchar_t* configKey, const wchar_t*)
{
    return KVCreate(configKey);
}

void KVDestroy(IDllInstance* instance)
{
    delete static_cast<TestInstance*>(instance);
}
