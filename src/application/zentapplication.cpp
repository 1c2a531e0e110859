#include "application/zentapplication.h"

#include "application/applicationterminationcenter.h"
#include "application/argformat.h"
#include "application/translationcenter.h"
#include "application/zentqapplication.h"
#include "application/zentsplash.h"
#include "configuration/cfgcenter.h"
#include "configuration/dlldescriptor.h"
#include "configuration/idllinstance.h"
#include "kvbase/clogtracer.h"
#include "kvbase/errorhandler.h"
#include "kvbase/geometryarrayparser.h"
#include "kvbase/kvexception.h"
#include "kvbase/zentos.h"

#include <QFileInfo>
#include <QGuiApplication>
#include <QIcon>
#include <QImageReader>
#include <QLocale>
#include <QPixmap>
#include <QScreen>
#include <QThread>
#include <QTimer>
#include <QWindow>

#include <exception>
#include <list>
#include <memory>

namespace {

const char* const SOURCE_FILE = "application/zentapplication";
const QString CLASS_NAME = QStringLiteral("ZentApplication");

// A vector built by the fixed-key Init variants must outlive the Qt
// application object: on Unix Qt keeps a reference to the count and reads the
// vector for arguments() as long as it lives. It is freed once that object is gone.
struct BuiltArgs
{
    int argc = 0;
    char** argv = nullptr;
};
BuiltArgs s_builtArgs;

void ReleaseBuiltArgs()
{
    if (!s_builtArgs.argv || QCoreApplication::instance())
        return;
    ArgFormat::DeleteArgs(s_builtArgs.argc, s_builtArgs.argv);
    s_builtArgs.argv = nullptr;
}

/// The detailed start-up and tear-down steps, for the expert trace.
void TraceStep(const QString& text, int line)
{
    ErrorHandler& handler = ErrorHandler::Instance();
    if (handler.IsEnabled(ErrorHandler::Q_EXPERT_TRACE))
        handler.Trace(ErrorHandler::Q_EXPERT_TRACE, text, SOURCE_FILE, line);
}

QByteArray CfgKeyOf(int argc, char** argv)
{
    if (argc < 2 || !argv[1])
        return QByteArray();
    const QByteArray argument(argv[1]);
    const int colon = argument.indexOf(':');
    return colon < 0 ? argument : argument.left(colon);
}

QPixmap LoadPixmap(const QString& fileName)
{
    // Asked to detect the format, Qt loads every image plug-in there is; the
    // suffix names it, and only a file whose suffix lies is detected.
    QImageReader reader(fileName, QFileInfo(fileName).suffix().toLatin1());
    reader.setAutoDetectImageFormat(false);
    const QPixmap pixmap = QPixmap::fromImageReader(&reader);
    return pixmap.isNull() ? QPixmap(fileName) : pixmap;
}

QScreen* ScreenOrPrimary(int number)
{
    const QList<QScreen*> screens = QGuiApplication::screens();
    if (number < 0 || number >= screens.size())
        return QGuiApplication::primaryScreen();
    return screens.at(number);
}

} // namespace

ZentApplication* ZentApplication::m_pThis = nullptr;

ZentApplication::ZentApplication()
    : m_pQApp(nullptr), m_pCfgCenter(nullptr), m_hSemaphore(nullptr), m_ppUnicodeArgv(nullptr),
      m_pSplash(nullptr), m_tSplashShown(0), m_nSplashTimeoutMs(0), m_nActivatedMsg(0)
{
    m_pThis = this;
}

// Copies share the parts of the original, deliberately, as the family's applications expect.
ZentApplication::ZentApplication(const ZentApplication& other) = default;
ZentApplication& ZentApplication::operator=(const ZentApplication& other) = default;

ZentApplication::~ZentApplication()
{
    TraceStep(QStringLiteral("Tear-down: begins"), __LINE__);
    HideSplash();
    if (m_pCfgCenter) {
        try {
            TearDown();
        } catch (const KVException& e) {
            _Q_Trace(QStringLiteral("KVException caught in ZentApplication::~ZentApplication: %1")
                         .arg(e.GetMessage()),
                     SOURCE_FILE, 449);
        } catch (const std::exception& e) {
            _Q_Trace(QStringLiteral("std::exception caught in ZentApplication::~ZentApplication: %1")
                         .arg(QString::fromLocal8Bit(e.what())),
                     SOURCE_FILE, 454);
        }
    }
    m_strCfgKey.clear();
    ReleaseBuiltArgs();
    if (m_pThis == this)
        m_pThis = nullptr;
}

void ZentApplication::TearDown()
{
    std::unique_ptr<std::list<DllInstanceDescriptor*>> instances(new std::list<DllInstanceDescriptor*>());
    if (const std::list<DllInstanceDescriptor*>* list = CfgCenter::GetDllInstanceList())
        *instances = *list;
    for (DllInstanceDescriptor* descriptor : *instances) {
        if (IDllInstance* instance = descriptor->GetInstance())
            instance->ApplicationEnds();
    }
    TraceStep(QStringLiteral("Tear-down: plug-in instances told that the application ends"), __LINE__);
    CfgCenter::DestroyAdditionalDllInstances();
    TraceStep(QStringLiteral("Tear-down: plug-in instances destroyed"), __LINE__);
    ApplicationTerminationCenter::instance().aboutToTerminate();
    TraceStep(QStringLiteral("Tear-down: termination targets notified"), __LINE__);
    delete m_pCfgCenter;
    m_pCfgCenter = nullptr;
    TraceStep(QStringLiteral("Tear-down: configuration saved and closed"), __LINE__);
    ZentOS::Create().CloseNamedLock(m_hSemaphore);
    m_hSemaphore = nullptr;
    delete m_pQApp;
    m_pQApp = nullptr;
    while (QCoreApplication::instance())
        QThread::msleep(1);
    TraceStep(QStringLiteral("Tear-down: Qt application object deleted"), __LINE__);
}

void ZentApplication::Init(int& argc, char** argv, bool flag)
{
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    m_pQApp = new ZentQApplication(this, argc, argv);
    while (!QCoreApplication::instance())
        processEvents();
    TraceStep(QStringLiteral("Start-up: Qt application object created"), __LINE__);

    m_strCfgKey = CfgKeyOf(argc, argv);
    const QString name = QString::fromLatin1(m_strCfgKey);
    m_nActivatedMsg = ZentOS::Create().RegisterMessage(name);
    TraceStep(
        QStringLiteral("Start-up: CfgKey \"%1\", bring-to-front message %2").arg(name).arg(m_nActivatedMsg),
        __LINE__);

    auto* tracer = new CLogTracer();
    tracer->SetModuleName(name);
    ErrorHandler::Instance().SetLogTracer(tracer);
    TraceStep(QStringLiteral("Start-up: log tracer installed: %1").arg(tracer->GetFileName()), __LINE__);

    m_pCfgCenter = CreateCfgCenter(argc, argv, flag);
    while (CfgCenter::GetAsyncStartup() == CfgCenter::ASYNC_Deferred)
        processEvents();
    TraceStep(QStringLiteral("Start-up: configuration centre created"), __LINE__);

    ShowSplash();
    ChooseLocale();

    if (CfgCenter::GetAsyncStartup() == 3) {
        ErrorHandler::Instance().Message(
            QStringLiteral(
                "An instance of an application with the config key \"%1\" is already running on the "
                "Remote Server. ")
                .arg(name),
            ErrorHandler::MSG_Error);
        QCoreApplication::quit();
    }

    bool startedTwice = false;
    CheckSingleInstance(startedTwice);
    if (startedTwice)
        return;

    TranslationCenter::Instance().Init();
    TraceStep(QStringLiteral("Start-up: translations initialised"), __LINE__);
    SetWindowIcon();
    CfgCenter::LoadAdditionalDlls(&CfgCenter::GetAppCfg());
    TraceStep(QStringLiteral("Start-up: additional plug-ins loaded"), __LINE__);
    _Q_Trace(QStringLiteral("Started !"), SOURCE_FILE, 323);
    CfgCenter::ExecuteDlls();
    TraceStep(QStringLiteral("Start-up: plug-ins executed"), __LINE__);
}

CfgCenter* ZentApplication::CreateCfgCenter(int argc, char** argv, bool flag)
{
    try {
        return new CfgCenter(argc, argv, ICfg::VIEW_Machine, flag, false);
    } catch (...) {
        // A centre that failed half-way leaves its statics behind; they are
        // released so that the exception reaches a process that could start
        // a centre again.
        try {
            CfgCenter::UnloadAdditionalDlls();
            CfgCenter::Exit();
        } catch (...) {
            // The first failure is the one the caller hears of.
            _Q_Trace(QStringLiteral("Releasing the configuration centre after a failed start failed as well"),
                     SOURCE_FILE, __LINE__);
        }
        throw;
    }
}

void ZentApplication::ChooseLocale()
{
    QString locale = CfgCenter::GetAppCfg().GetString(QStringLiteral("Locale"), QStringLiteral("invalid"));
    if (locale == QLatin1String("invalid"))
        locale = CfgCenter::GetAdminCfg(ICfg::VIEW_Machine)
                     .GetString(QStringLiteral("Locale"), QStringLiteral("system"));
    QLocale::setDefault(locale.toLower() == QLatin1String("system") ? QLocale::system() : QLocale(locale));
    TraceStep(QStringLiteral("Start-up: locale %1").arg(QLocale().name()), __LINE__);
}

void ZentApplication::CheckSingleInstance(bool& startedTwice)
{
    // The configuration server's own application runs as often as it is started.
    if (CfgCenter::IsServer())
        return;
    const QString name = QString::fromLatin1(m_strCfgKey);
    ZentOS& os = ZentOS::Create();
    if (CfgCenter::GetAppCfg(ICfg::VIEW_Machine).GetBoolean(QStringLiteral("Once"), true) &&
        os.NamedLockExists(name)) {
        TraceStep(QStringLiteral("Start-up: another instance of \"%1\" is running").arg(name), __LINE__);
        if (HandleStartedTwice()) {
            startedTwice = true;
            return;
        }
    }
    m_hSemaphore = os.CreateNamedLock(name);
    if (!m_hSemaphore)
        _Q_Trace(QStringLiteral("The single-instance lock of \"%1\" could not be made").arg(name),
                 SOURCE_FILE, __LINE__);
    m_pQApp->ListenForActivation(name);
    TraceStep(QStringLiteral("Start-up: single-instance lock of \"%1\" held").arg(name), __LINE__);
}

void ZentApplication::SetWindowIcon()
{
    ICfg& appCfg = CfgCenter::GetAppCfg(ICfg::VIEW_Machine);
    if (!appCfg.HasSubCfg(QStringLiteral("Startup")))
        return;
    std::unique_ptr<ICfg> startup(appCfg.CreateSubCfg(QStringLiteral("Startup"), ICfg::VIEW_Machine));
    if (!startup)
        return;
    const int number = static_cast<int>(startup->GetInteger(QStringLiteral("ProductIcon"), 0));
    QIcon icon = ZentOS::Create().GetIcon(number);
    if (icon.isNull())
        icon = ZentOS::Create().GetIcon(0);
    if (icon.isNull())
        return;
    QApplication::setWindowIcon(icon);
    TraceStep(QStringLiteral("Start-up: window icon set"), __LINE__);
}

bool ZentApplication::HandleStartedTwice()
{
    const QString name = QString::fromLatin1(m_strCfgKey);
    const unsigned int nMsg = ZentOS::Create().RegisterMessage(name);
    _Q_assert((nMsg != 0), SOURCE_FILE, 466);
    if (ZentOS::Create().BroadcastMessage(name, nMsg) > 0) {
        QTimer::singleShot(1000, [] { QCoreApplication::quit(); });
        return true;
    }
    throw KVException(
        QStringLiteral(
            "An instance of an application with the config key \"%1\" is already running on this machine.")
            .arg(name),
        QString::fromLatin1(SOURCE_FILE), QString(), QStringLiteral("main"), 488);
}

void ZentApplication::Init(const char* appKey, int argc, char** argv, bool flag)
{
    int count = 0;
    char** vector = nullptr;
    ArgFormat::CopyArgs(argc, argv, count, vector);
    // Argument 0 and the key without a separator, as the family's fixed-key programs expect.
    const std::string fixedArgument =
        std::string(argc > 0 && argv[0] ? argv[0] : "") + (appKey ? appKey : "");
    ArgFormat::InsertArg(fixedArgument.c_str(), 1, count, vector);
    RunInitOnOwnedArgs(count, vector, flag);
}

void ZentApplication::Init(const char* appKey, const char* cfgDoc, bool flag)
{
    const QByteArray line =
        (QString::fromUtf8(appKey ? appKey : "") + QLatin1Char(' ') + QString::fromUtf8(cfgDoc ? cfgDoc : ""))
            .toLatin1();
    int count = 0;
    char** vector = nullptr;
    ArgFormat::CreateArgs(count, vector, line.constData());
    RunInitOnOwnedArgs(count, vector, flag);
    m_nActivatedMsg = ZentOS::Create().RegisterMessage(QString::fromLatin1(m_strCfgKey));
}

void ZentApplication::RunInitOnOwnedArgs(int& argc, char** argv, bool flag)
{
    ReleaseBuiltArgs();
    s_builtArgs.argc = argc;
    s_builtArgs.argv = argv;
    Init(s_builtArgs.argc, s_builtArgs.argv, flag);
    ReleaseBuiltArgs();
}

void ZentApplication::InitUnicode(unsigned short** argv)
{
    m_ppUnicodeArgv = argv;
}

int ZentApplication::Exec()
{
    return QApplication::exec();
}

void ZentApplication::Quit()
{
    QCoreApplication::quit();
}

void ZentApplication::CommitData(QSessionManager&)
{
    CfgCenter::CommitData();
    ApplicationTerminationCenter::instance().aboutToTerminate();
}

ZentApplication* ZentApplication::Get()
{
    return m_pThis;
}

int ZentApplication::Argc() const
{
    return m_pQApp ? m_pQApp->argc() : 0;
}

char** ZentApplication::Argv() const
{
    return m_pQApp ? m_pQApp->argv() : nullptr;
}

QStringList ZentApplication::Arguments() const
{
    return QCoreApplication::arguments();
}

void ZentApplication::HideSplash()
{
    if (!m_pSplash)
        return;
    delete m_pSplash;
    m_pSplash = nullptr;
    m_tSplashShown = 0;
    m_nSplashTimeoutMs = 0;
}

void ZentApplication::RaiseSplash()
{
    if (m_pSplash)
        m_pSplash->raise();
}

void ZentApplication::SplashBusy()
{
    if (m_pSplash)
        m_pSplash->showMovingProgress();
}

void ZentApplication::Write2Splash(const QString& text)
{
    if (m_pSplash)
        m_pSplash->Write2Splash(text);
}

void ZentApplication::SplashShowQuitButton(QString text)
{
    if (m_pSplash)
        m_pSplash->SplashShowQuitButton(text);
}

void ZentApplication::processEvents()
{
    QCoreApplication::processEvents();
}

void ZentApplication::ShowSplash()
{
    ICfg& appCfg = CfgCenter::GetAppCfg(ICfg::VIEW_Machine);
    QString name = appCfg.GetAppKey();
    QString key;
    if (appCfg.HasSubCfg(QStringLiteral("Startup"))) {
        key = QStringLiteral("Startup");
    } else if (appCfg.HasSubCfg(QStringLiteral("CfgServer"))) {
        name = QStringLiteral("CfgServer");
        key = QStringLiteral("CfgServer\\Startup");
    }
    QString image;
    if (!key.isEmpty()) {
        std::unique_ptr<ICfg> startup(appCfg.CreateSubCfg(key));
        if (startup) {
            image = startup->GetString(QStringLiteral("SplashImage"), QString());
            m_nSplashTimeoutMs =
                static_cast<int>(startup->GetInteger(QStringLiteral("SplashTimeout"), 0)) * 1000;
        }
    }
    if (image.isEmpty()) {
        TraceStep(QStringLiteral("Start-up: no splash image configured"), __LINE__);
        return;
    }

    int screenNumber = -1;
    ICfg& userCfg = CfgCenter::GetAppCfg(ICfg::VIEW_User);
    if (userCfg.HasSubCfg(QStringLiteral("GuiBase_main"))) {
        std::unique_ptr<ICfg> gui(userCfg.CreateSubCfg(QStringLiteral("GuiBase_main")));
        if (gui)
            screenNumber =
                GeometryArrayParser(gui->GetString(QStringLiteral("Geometry"), QString())).GetScreen(0);
    }
    QScreen* screen = ScreenOrPrimary(screenNumber);

    const QPixmap pixmap = LoadPixmap(image);
    m_pSplash = new ZentSplash(pixmap, nullptr);
    m_pSplash->setObjectName(m_pSplash->objectName() + QLatin1Char('_') + name);
    if (screen) {
        // Screens of their own (separate X screens) are not reached by coordinates alone.
        m_pSplash->winId();
        if (QWindow* window = m_pSplash->windowHandle())
            window->setScreen(screen);
        const QRect area = screen->availableGeometry();
        m_pSplash->move(area.left() + (area.width() - pixmap.width()) / 2,
                        area.top() + (area.height() - pixmap.height()) / 2);
    }
    m_pSplash->show();
    m_tSplashShown = ZentOS::Create().GetTime();
    TraceStep(QStringLiteral("Start-up: splash %1 shown").arg(image), __LINE__);
}

void ZentApplication::CheckListOfAdditonalDlls(const QStringList& dlls)
{
    std::unique_ptr<ICfg> list(
        CfgCenter::GetAppCfg(ICfg::VIEW_Machine).CreateSubCfg(QStringLiteral("AdditionalDlls")));
    if (!list)
        return;
    for (int index = 0;; ++index) {
        std::unique_ptr<ICfg> item(list->CreateSubCfgAt(index));
        if (!item)
            break;
        // The list must be as long as the configuration's; a missing entry
        // reads as empty rather than running off the end.
        if (item->GetString(QStringLiteral("FileName"), QString()) != dlls.value(index))
            throw KVException(QStringLiteral("Unexpected content in document %1 and key %2")
                                  .arg(list->GetTarget(), list->GetKey()),
                              QString::fromLatin1(SOURCE_FILE), CLASS_NAME,
                              QStringLiteral("CheckListOfAdditonalDlls"), 156);
    }
}
