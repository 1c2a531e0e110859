#include "application/zentqapplication.h"

#include "application/iabstractterminationtarget.h"
#include "application/zentapplication.h"
#include "application/zentqapplication_p.h"
#include "configuration/cfgcenter.h"
#include "configuration/idllinstance.h"
#include "kvbase/errorhandler.h"
#include "kvbase/kvexception.h"
#include "kvbase/zentos.h"

#include <QThread>
#include <QWidget>

#include <exception>

namespace {

// The keyboard is process-wide, and so are these: set and cleared by the
// watched key messages only.
bool s_bShiftHeld = false;
bool s_bControlHeld = false;
bool s_bAltHeld = false;

bool* HeldFlag(unsigned int key)
{
    switch (key) {
    case ZentQApplication::KEY_Shift:
        return &s_bShiftHeld;
    case ZentQApplication::KEY_Control:
        return &s_bControlHeld;
    case ZentQApplication::KEY_Alt:
        return &s_bAltHeld;
    default:
        return nullptr;
    }
}

// The folder pane is created with two zero arguments: not by the centre, so
// the centre leaves it to its creator at the end. This keeper destroys it when
// the application is told that it ends (the configuration centre still
// exists then), and itself with it. A session manager's save request tells
// that too; a later key combination opens a new pane.
class FolderPaneKeeper : public IAbstractTerminationTarget
{
public:
    explicit FolderPaneKeeper(IDllInstance* instance) : m_pInstance(instance) {}

    void aboutToTerminate() override
    {
        try {
            // Destroyed by somebody else already: then nothing is found.
            CfgCenter::DestroyDllInstanceByPointer(m_pInstance);
        } catch (const KVException& e) {
            ErrorHandler::Instance().Message(e.GetMessage(), ErrorHandler::MSG_Error,
                                             QStringLiteral("aboutToTerminate"),
                                             QStringLiteral("FolderPaneKeeper"));
        }
        delete this;
    }

private:
    IDllInstance* m_pInstance;
};

} // namespace

ZentQApplication::ZentQApplication(ZentApplication* app, int& argc, char** argv)
    : QApplication(argc, argv), QAbstractNativeEventFilter(), m_pApp(app), m_argc(argc), m_argv(argv)
{
    ZentOS::Create().InitGuiProcess();
    QCoreApplication::setOrganizationName(QStringLiteral("Velkor-Amsel"));
    QCoreApplication::setApplicationName(QStringLiteral("TALVO"));
    // Ending is explicit (ZentApplication::Quit), never a side effect of closing a window.
    QGuiApplication::setQuitOnLastWindowClosed(false);
    QCoreApplication::installNativeEventFilter(this);
    connect(this, &QGuiApplication::commitDataRequest, this, &ZentQApplication::SlotCommitData);
    StartPlatformSources();
}

ZentQApplication::~ZentQApplication() = default;

bool ZentQApplication::nativeEventFilter(const QByteArray& eventType, void* message, long* result)
{
    Q_UNUSED(result)
    unsigned int number = 0;
    unsigned int key = 0;
    if (!DecodeWindowMessage(eventType, message, number, key))
        return false;
    return HandleMessage(number, key);
}

bool ZentQApplication::HandleMessage(unsigned int message, unsigned int key)
{
    bool consumed = false;
    // 0 is no registered message: the application has not named it yet.
    const unsigned int activatedMsg = m_pApp ? m_pApp->GetActivatedMsg() : 0;
    if (activatedMsg != 0 && message == activatedMsg) {
        if (QThread::currentThread() != thread())
            return false;
        consumed = HandleActivation();
    }
    if (message == MSG_TimeChange)
        emit signalRereadTimeZoneOffset();
    if (message == MSG_KeyUp)
        HandleKeyUp(key);
    if (message == MSG_KeyDown)
        HandleKeyDown(key);
    return consumed;
}

bool ZentQApplication::HandleActivation()
{
    const QWidgetList windows = QApplication::topLevelWidgets();
    if (!QApplication::activeWindow() && !windows.isEmpty()) {
        for (QWidget* window : windows) {
            if (window->parentWidget())
                continue;
            window->activateWindow();
            if (window->isMinimized())
                ZentOS::Create().ShowWindowNoActivate(window);
        }
    }
    // The request is the application's own: consumed whether or not a window moved.
    return true;
}

void ZentQApplication::HandleKeyDown(unsigned int key)
{
    if (bool* held = HeldFlag(key))
        *held = true;
}

void ZentQApplication::HandleKeyUp(unsigned int key)
{
    if (bool* held = HeldFlag(key))
        *held = false;
    else if (key == KEY_F12 && s_bShiftHeld && s_bControlHeld && s_bAltHeld)
        OpenFolderPane();
}

void ZentQApplication::OpenFolderPane()
{
    // Thrown through an event handler, an exception would end the
    // application; a failed hidden key combination is reported instead.
    try {
        QString fileName = QStringLiteral("FolderPane.dll");
        QString name;
        IDllInstance* instance = CfgCenter::GetDllInstanceByFileName(fileName, name);
        if (!instance) {
            instance = CfgCenter::CreateDllInstanceByFileName(fileName, name, false, false);
            if (instance)
                new FolderPaneKeeper(instance);
        }
        if (instance)
            instance->Execute();
    } catch (const KVException& e) {
        ErrorHandler::Instance().Message(e.GetMessage(), ErrorHandler::MSG_Error,
                                         QStringLiteral("OpenFolderPane"),
                                         QStringLiteral("ZentQApplication"));
    } catch (const std::exception& e) {
        ErrorHandler::Instance().Message(QString::fromLocal8Bit(e.what()), ErrorHandler::MSG_Error,
                                         QStringLiteral("OpenFolderPane"),
                                         QStringLiteral("ZentQApplication"));
    }
}

bool ZentQApplication::ListenForActivation(const QString& name)
{
    return m_pSources && m_pSources->ListenForActivation(name);
}

void ZentQApplication::SlotCommitData(QSessionManager& manager)
{
    if (m_pApp)
        m_pApp->CommitData(manager);
}
