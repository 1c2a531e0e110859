// The demo plug-in. The configuration centre creates one instance from the
// entry under "AdditionalDlls"; when start-up is over it executes it, and the
// instance opens the main window, counts the start and keeps the splash up
// for its configured time-out. Its settings are written whenever the
// application commits or saves.
//
// No QStringLiteral in this library: names and texts handed to the
// configuration and the translation centre outlive the library, and a
// literal's text would vanish with it when the library is unloaded.
#include "demowindow.h"

#include "application/translationcenter.h"
#include "application/zentapplication.h"
#include "configuration/cfgcenter.h"
#include "configuration/icfg.h"
#include "configuration/idllinstance.h"
#include "configuration/savecomponentif.h"
#include "kvbase/errorhandler.h"
#include "kvbase/zentos.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QTimer>

#include <algorithm>
#include <memory>

namespace {

const char* const SOURCE_FILE = "plugins/demoplugin";

void Trace(const QString& text, int line)
{
    _Q_Trace(QString::fromLatin1("Demo plug-in: ") + text, SOURCE_FILE, line);
}

class DemoInstance : public IDllInstance, public SaveComponentIf
{
public:
    explicit DemoInstance(const QString& configKey) : m_sConfigKey(configKey)
    {
        CfgCenter::RegisterSaveComponent(this);
        Trace(QString::fromLatin1("created for %1").arg(configKey), __LINE__);
    }
    ~DemoInstance() override
    {
        CfgCenter::UnregisterSaveComponent(this);
        Trace(QString::fromLatin1("destroyed"), __LINE__);
    }

    bool Execute() override
    {
        // The window's texts come from zentdemo_<language>.qm.
        TranslationCenter::Instance().Register(QString::fromLatin1("zentdemo"));
        ZentApplication* app = ZentApplication::Get();
        if (app) {
            app->Write2Splash(QCoreApplication::translate("DemoPlugin", "Opening the main window"));
            app->SplashBusy();
        }
        CountStart();
        m_pWindow.reset(new DemoWindow(m_sConfigKey));
        m_pWindow->show();
        Trace(QString::fromLatin1("main window shown"), __LINE__);
        if (app && app->SplashShowTime() != 0)
            KeepSplashUntilTimeout(*app);
        return true;
    }

    void ApplicationEnds() override
    {
        Trace(QString::fromLatin1("the application ends"), __LINE__);
        WriteSettings();
        m_pWindow.reset();
    }

    void CommitData() override { Trace(QString::fromLatin1("data committed"), __LINE__); }

    void OnSaveDocument() override { WriteSettings(); }
    void OnReLoadUserConfig() override
    {
        if (m_pWindow)
            m_pWindow->ReadSettings();
    }
    void OnCommitData() override { WriteSettings(); }

private:
    void CountStart()
    {
        std::unique_ptr<ICfg> own(CfgCenter::CreateCfg(m_sConfigKey, ICfg::VIEW_Machine));
        const long starts = own->GetInteger(QString::fromLatin1("StartCount"), 0) + 1;
        own->SetInteger(QString::fromLatin1("StartCount"), starts);
        own->SetString(QString::fromLatin1("LastStart"), QDateTime::currentDateTime().toString(Qt::ISODate));
        Trace(QString::fromLatin1("start number %1").arg(starts), __LINE__);
    }

    void KeepSplashUntilTimeout(ZentApplication& app)
    {
        // The splash was shown at SplashShowTime() (seconds) for the
        // configured time-out; what is left of it may be nothing. The timer
        // is the instance's own, so that it goes with the instance: a timer
        // left behind would call into this library after it was unloaded.
        const qint64 shownMs = (ZentOS::Create().GetTime() - app.SplashShowTime()) * 1000;
        const int remainingMs = static_cast<int>(std::max<qint64>(0, app.SplashShowTimeInMSec() - shownMs));
        m_splashTimer.setSingleShot(true);
        QObject::connect(&m_splashTimer, &QTimer::timeout, [] {
            if (ZentApplication* current = ZentApplication::Get()) {
                current->HideSplash();
                Trace(QString::fromLatin1("splash hidden"), __LINE__);
            }
        });
        m_splashTimer.start(remainingMs);
    }

    void WriteSettings()
    {
        if (m_pWindow)
            m_pWindow->WriteSettings();
    }

    QString m_sConfigKey;
    std::unique_ptr<DemoWindow> m_pWindow;
    QTimer m_splashTimer;
};

} // namespace

IDllInstance* KVCreate(const wchar_t* configKey)
{
    return new DemoInstance(QString::fromWCharArray(configKey));
}

IDllInstance* KVCreateEx(const wchar_t* configKey, const wchar_t*)
{
    return KVCreate(configKey);
}

void KVDestroy(IDllInstance* instance)
{
    delete static_cast<DemoInstance*>(instance);
}
