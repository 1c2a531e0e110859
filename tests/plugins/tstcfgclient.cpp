// A configuration-service client for the configuration centre's tests. It
// serves the XML document Cfg.xml in the folder named by
// ZENT_TEST_CFGSERVER_DIR: every configuration object shares that one
// document, as the objects of a real service share the server's. Connecting
// fails while ZENT_TEST_CFGSERVER_DOWN is set. Calls are traced as
// "tstcfgclient <what>".
#include "configuration/cfgxml.h"
#include "configuration/icfgcenterserverifif.h"
#include "kvbase/errorhandler.h"

#include <QDir>
#include <QString>

#include <memory>

namespace {

const char* const SOURCE = "plugins/tstcfgclient";

void Trace(const QString& text)
{
    _Q_Trace(QStringLiteral("tstcfgclient ") + text, SOURCE, 0);
}

class TestCfgClient : public ICfgCenterServerIfIf
{
public:
    explicit TestCfgClient(const QString& serverObjectName)
        : m_document(
              QDir(qEnvironmentVariable("ZENT_TEST_CFGSERVER_DIR")).filePath(QStringLiteral("Cfg.xml")),
              QString(), ICfg::VIEW_Machine)
    {
        Trace(QStringLiteral("created: server=%1").arg(serverObjectName));
    }
    ~TestCfgClient() override { Trace(QStringLiteral("destroyed")); }

    bool Execute() override { return true; }

    bool Connect(const QString& appName, bool asServerApplication) override
    {
        Trace(QStringLiteral("connect: app=%1 asServer=%2")
                  .arg(appName, asServerApplication ? QStringLiteral("true") : QStringLiteral("false")));
        return !qEnvironmentVariableIsSet("ZENT_TEST_CFGSERVER_DOWN");
    }

    void Disconnect(const QString& appName) override
    {
        Trace(QStringLiteral("disconnect: app=%1").arg(appName));
    }

    ICfg* CreateCfg(const QString& key, ICfg::View view, const QString& other) override
    {
        Trace(QStringLiteral("create: key=%1 view=%2 other=%3").arg(key).arg(view).arg(other));
        return new CfgXml(&m_document, key, view);
    }

private:
    CfgXml m_document;
};

} // namespace

IDllInstance* KVCreate(const wchar_t* configKey)
{
    return new TestCfgClient(QString::fromWCharArray(configKey));
}

void KVDestroy(IDllInstance* instance)
{
    delete static_cast<TestCfgClient*>(instance);
}
