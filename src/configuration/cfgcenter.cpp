#include "configuration/cfgcenter.h"

#include "application/cmdlinehelp.h"
#include "configuration/cfgevent.h"
#include "configuration/cfgifdlldescriptor.h"
#include "configuration/cfgregistry.h"
#include "configuration/cfgxml.h"
#include "configuration/cfgxml_p.h"
#include "configuration/dlldescriptor.h"
#include "configuration/idllinstance.h"
#include "configuration/savecomponentif.h"
#include "kvbase/errorhandler.h"
#include "kvbase/kvexception.h"
#include "kvbase/zentos.h"

#include <QCoreApplication>
#include <QFile>
#include <QMutex>

#include <algorithm>
#include <exception>
#include <memory>

namespace {
const QString SOURCE_FILE = QStringLiteral("configuration/cfgcenter");
const QString CLASS_NAME = QStringLiteral("CfgCenter");

ICfg& SelectedOrThrow(ICfg* cfg, ICfg::View view, const QString& message, const QString& operation, int line)
{
    if (!cfg)
        throw KVException(message, SOURCE_FILE, CLASS_NAME, operation, line);
    if (view != ICfg::VIEW_Current)
        cfg->SelectView(view);
    return *cfg;
}
} // namespace

ICfg* CfgCenter::m_pAppCfg = nullptr;
ICfg* CfgCenter::m_pDocCfg = nullptr;
ICfg* CfgCenter::m_pAdminCfg = nullptr;
QMutex* CfgCenter::m_pMutex = nullptr;
CfgCenter::AsyncStartup CfgCenter::m_asyncStartup = CfgCenter::ASYNC_Off;
CfgCenter::CfgCenterUsage CfgCenter::s_usage = CfgCenter::USAGE_0;
bool CfgCenter::m_bIsServer = false;

ICfg& CfgCenter::GetAppCfg(ICfg::View view)
{
    return SelectedOrThrow(
        m_pAppCfg, view,
        QStringLiteral("CfgCenter::GetAppCfg() called, before calling CfgCenter::CfgCenter()"),
        QStringLiteral("GetAppCfg"), __LINE__);
}

ICfg& CfgCenter::GetDocCfg(ICfg::View view)
{
    return SelectedOrThrow(
        m_pDocCfg, view,
        QStringLiteral("CfgCenter::GetDocCfg(), called, before calling CfgCenter::CfgCenter()"),
        QStringLiteral("GetDocCfg"), __LINE__);
}

ICfg& CfgCenter::GetAdminCfg(ICfg::View view)
{
    return SelectedOrThrow(
        m_pAdminCfg, view,
        QStringLiteral("CfgCenter::GetAdminCfg(), called, before calling CfgCenter::CfgCenter()"),
        QStringLiteral("GetAdminCfg"), __LINE__);
}

QString CfgCenter::GetAppName()
{
    return GetAppCfg(ICfg::VIEW_Current).GetString(QStringLiteral("Name"), QString());
}

QString CfgCenter::GetMachineName()
{
    const QString name = QString::fromStdWString(ZentOS::Get().GetWorkStationName());
    if (name.isEmpty())
        throw KVException(QStringLiteral("ZentOS::Get().GetWorkStationName() failed."), SOURCE_FILE,
                          CLASS_NAME, QStringLiteral("GetMachineName"), __LINE__);
    return name;
}

QMutex* CfgCenter::GetMutex()
{
    return m_pMutex;
}

CfgCenter::CfgCenterUsage CfgCenter::GetUsage()
{
    return s_usage;
}

void CfgCenter::SetUsage(CfgCenterUsage usage)
{
    s_usage = usage;
}

CfgCenter::AsyncStartup CfgCenter::GetAsyncStartup()
{
    return m_asyncStartup;
}

bool CfgCenter::IsServer()
{
    return m_bIsServer;
}

// ---------------------------------------------------------------------------
// Creation and tear-down

namespace {
const char* const SOURCE = "configuration/cfgcenter";
const QString ADDITIONAL_DLLS = QStringLiteral("AdditionalDlls");
const QString NOT_CREATED_YET =
    QStringLiteral("CfgCenter::CreateCfg(), called, before calling ICfg::CreateAppCfg()");

[[noreturn]] void Throw(const QString& message, const QString& operation, int line)
{
    throw KVException(message, SOURCE_FILE, CLASS_NAME, operation, line);
}

bool IsServerKey(const QString& key)
{
    return !key.isEmpty() && (key.at(0) == QLatin1Char('*') || key.at(0) == QLatin1Char(':'));
}

bool IsLocalAddress(const QString& host)
{
    const ZentOS& os = ZentOS::Get();
    for (int index = 0;; ++index) {
        const QString address = os.GetLocalAddress(index);
        if (address.isEmpty())
            return false;
        if (address == host)
            return true;
    }
}

QString XmlFileName(const QString& cfgDoc)
{
    // "Xml:<file>": the name starts behind the colon at index 3.
    _Q_assert(cfgDoc.size() <= 3 || cfgDoc.at(3) == QLatin1Char(':'), SOURCE, __LINE__);
    return cfgDoc.mid(4);
}

// The save-component list may change while it is walked (a component may
// unregister itself), so the walk runs over a copy.
template <typename Call> void ForEachComponent(const std::list<SaveComponentIf*>& components, Call call)
{
    const std::list<SaveComponentIf*> snapshot = components;
    for (SaveComponentIf* component : snapshot)
        call(component);
}
} // namespace

struct CfgCenter::PostCreateParams
{
    QString rawKey;
    QString parsedKey;
    QString cfgDoc;
    ICfg::View view;
    bool loadAdditionalDlls;
    bool noKeyQuestion;
    bool reserved;
    QString suffix;
    QString suffixBeforeDot;
    QString suffixAfterDot;
};

const char* CfgCenter::s_pDefaultCfgDoc = "Server";
CfgEvent* CfgCenter::m_pCfgEvent = nullptr;
CfgCenter::DllMap* CfgCenter::m_pDllMap = nullptr;
CfgCenter::DllInstanceList* CfgCenter::m_pDllInstanceList = nullptr;
CfgIfDllDescriptor* CfgCenter::m_pCfgIfDllDescriptor = nullptr;
QString CfgCenter::m_sPreLoadDlls;
QString CfgCenter::m_sPostLoadDlls;
CfgCenter::PostCreateParams* CfgCenter::m_pPostCreateParams = nullptr;
bool CfgCenter::m_bDataCommitted = false;
std::list<SaveComponentIf*> CfgCenter::m_saveComponents;
bool CfgCenter::m_bAutoSaveDocument = true;
bool CfgCenter::s_dllExecuted = false;
bool CfgCenter::s_bSaveAfterCommit = true;

CfgCenter::CfgCenter(int argc, char** argv, ICfg::View view, bool reserved, bool loadAdditionalDlls)
{
    CheckNotCreated();
    const QString key = argc > 1 ? QString::fromLatin1(argv[1]) : QString();
    QString cfgDoc = DefaultCfgDoc();
    if (argc > 2 && argv[2][0] != '-')
        cfgDoc = QString::fromLatin1(argv[2]);
    Create(key, cfgDoc, view, loadAdditionalDlls, false, reserved);
}

CfgCenter::CfgCenter(QString appKey, QString cfgDoc, ICfg::View view, bool reserved, bool loadAdditionalDlls,
                     bool noKeyQuestion)
{
    Create(appKey, cfgDoc, view, loadAdditionalDlls, noKeyQuestion, reserved);
}

CfgCenter::CfgCenter(QString& appKey)
{
    CheckNotCreated();
    Create(appKey, DefaultCfgDoc(), ICfg::VIEW_Machine, false, false, false);
}

CfgCenter::CfgCenter(QString appKey, ICfg::View view, bool reserved)
{
    CheckNotCreated();
    QString keyOfFile;
    QString cfgDoc;
    RetrieveOfFile(keyOfFile, cfgDoc, false);
    Create(appKey, cfgDoc, view, true, false, reserved);
}

CfgCenter::CfgCenter(ICfg::View view, bool reserved)
{
    CheckNotCreated();
    QString key;
    QString cfgDoc;
    RetrieveOfFile(key, cfgDoc, true);
    if (cfgDoc.isEmpty())
        Throw(QStringLiteral("In the element cfgarg no attribute type specified."),
              QStringLiteral("CfgCenter"), __LINE__);
    Create(key, cfgDoc, view, true, false, reserved);
}

CfgCenter::~CfgCenter() noexcept(false)
{
    UnloadAdditionalDlls();
    Exit();
}

void CfgCenter::CheckNotCreated()
{
    if (m_pAppCfg)
        Throw(QStringLiteral("CfgCenter::CfgCenter() called a second time."), QStringLiteral("CfgCenter"),
              __LINE__);
}

QString CfgCenter::DefaultCfgDoc()
{
    return QString::fromLatin1(s_pDefaultCfgDoc ? s_pDefaultCfgDoc : "");
}

void CfgCenter::Create(const QString& key, const QString& cfgDoc, ICfg::View view, bool loadAdditionalDlls,
                       bool noKeyQuestion, bool reserved)
{
    if (IsServerKey(key))
        m_bIsServer = true;

    PostCreateParams params{key,           QString(), cfgDoc,    view,      loadAdditionalDlls,
                            noKeyQuestion, reserved,  QString(), QString(), QString()};
    QString preLoadDlls;
    QString postLoadDlls;
    CmdLineHelp::ParseAppKey(key, params.parsedKey, preLoadDlls, postLoadDlls, params.suffix);
    if (params.parsedKey == QLatin1String("*"))
        params.parsedKey.clear();
    m_sPreLoadDlls = preLoadDlls;
    m_sPostLoadDlls = postLoadDlls;
    const int dot = params.suffix.indexOf(QLatin1Char('.'));
    if (dot >= 0) {
        params.suffixBeforeDot = params.suffix.left(dot);
        params.suffixAfterDot = params.suffix.mid(dot + 1);
    }

    m_pCfgEvent = new CfgEvent(this);
    m_pMutex = new QMutex(QMutex::Recursive);
    m_pDllMap = new DllMap;
    m_pDllInstanceList = new DllInstanceList;

    // Before any configuration exists: pre-loaded plug-ins cannot read it yet.
    LoadDlls(m_sPreLoadDlls, params.parsedKey, true);
    m_pAppCfg = CreateAppCfg(params.parsedKey, cfgDoc, view);

    if (m_asyncStartup != ASYNC_Off && m_asyncStartup != ASYNC_Resume) {
        m_pPostCreateParams = new PostCreateParams(params);
        return;
    }
    PostCreate(params);
}

void CfgCenter::SetAsyncStartup(AsyncStartup mode)
{
    if (mode == ASYNC_Resume && m_pPostCreateParams) {
        try {
            RunDeferredPostCreate();
        } catch (...) {
            m_asyncStartup = mode;
            throw;
        }
    }
    m_asyncStartup = mode;
}

void CfgCenter::RunDeferredPostCreate()
{
    const std::unique_ptr<PostCreateParams> params(m_pPostCreateParams);
    m_pPostCreateParams = nullptr;
    if (m_pCfgIfDllDescriptor) {
        m_pAppCfg = m_pCfgIfDllDescriptor->CreateCfg(params->parsedKey, params->view, QString());
        if (m_pAppCfg)
            m_pAppCfg->OpenDocument(true);
    }
    PostCreate(*params);
}

void CfgCenter::PostCreate(const PostCreateParams& params)
{
    m_pAdminCfg = CreateCfgBase(QStringLiteral("Administration"), ICfg::VIEW_Machine, QString());
    ConfigureLogger();
    if (!params.parsedKey.isEmpty() && !AppKeyExists() && !params.noKeyQuestion)
        AskToCreateAppKey(params.parsedKey);
    m_pDocCfg = CreateCfgBase(QString(), ICfg::VIEW_Machine, QString());
    ErrorHandler::Instance().Message(
        QStringLiteral("Application configuration ( key=%1, type=%2 ) created successfully.")
            .arg(params.parsedKey, params.cfgDoc),
        ErrorHandler::MSG_Information, QStringLiteral("Create"), CLASS_NAME, 255);
    if (params.loadAdditionalDlls)
        LoadAdditionalDlls(m_pAppCfg, true);
    m_pAppCfg->SelectView(params.view);
}

bool CfgCenter::AppKeyExists()
{
    const std::unique_ptr<ICfg> firstChild(m_pAppCfg->CreateSubCfgAt(0));
    return firstChild || !m_pAppCfg->GetValueKeyAt(0).isEmpty();
}

void CfgCenter::AskToCreateAppKey(const QString& key)
{
    const QString text = QStringLiteral("The application key \"") + key +
                         QStringLiteral("\" has not been found in the configuration document.") +
                         QLatin1Char('\n') +
                         QStringLiteral("Press \"Continue\" if the system should create it.");
    ErrorHandler& handler = ErrorHandler::Instance();
    // Continuing needs nothing more: the key comes into being as values are written.
    if (handler.HasMessageDialog() && handler.ShowMessageDialog(text))
        return;
    throw KVException(text, SOURCE_FILE, QStringLiteral("CfgXml"), QStringLiteral("OpenDocument"), __LINE__);
}

void CfgCenter::RetrieveOfFile(QString& key, QString& type, bool throwOnError)
{
    const QString operation = QStringLiteral("RetrieveOfFile");
    auto fail = [&](const QString& message, int line) {
        if (throwOnError)
            Throw(message, operation, line);
    };
    const QString fileName = QStringLiteral("cfgarg.xml");
    QString problem;
    const QByteArray bytes = CfgXmlFile::ReadFile(fileName, &problem);
    if (!QFile::exists(fileName) || problem == QLatin1String("cannot be read"))
        return fail(QStringLiteral("File cfgarg.xml not found."), __LINE__);
    CfgXmlTree document;
    // Too large, not a regular file, too deep or too many elements: not well formed either.
    if (!problem.isEmpty() || !CfgXmlFile::Parse(document, bytes, nullptr, nullptr, nullptr)) {
        return fail(QStringLiteral("Not able to set document cfgarg. Maybe it is not well formed."),
                    __LINE__);
    }
    const CfgXmlTree::Node root = document.DocumentElement();
    const CfgXmlTree::Node first = root == CfgXmlTree::NONE ? CfgXmlTree::NONE : document.FirstChild(root);
    if (first == CfgXmlTree::NONE)
        return fail(QStringLiteral("No node found in the document cfgarg."), __LINE__);
    // "in no element" and "in not cfgarg" are the messages as users know them, deliberately.
    if (!document.IsElement(first))
        return fail(QStringLiteral("First node in the document cfgarg in no element."), __LINE__);
    if (document.NodeName(first) != QLatin1String("cfgarg"))
        return fail(QStringLiteral("The first element in the document cfgarg in not cfgarg."), __LINE__);
    type = document.Attribute(first, document.FindName(QStringLiteral("type")));
    key = document.Attribute(first, document.FindName(QStringLiteral("key")));
}

void CfgCenter::ConfigureLogger()
{
    struct Switch
    {
        const char* name;
        bool defaultValue;
        unsigned bit;
    };
    static const Switch switches[] = {
        {"Q_TRACE", true, ErrorHandler::Q_TRACE},
        {"Q_EXPERT_TRACE", false, ErrorHandler::Q_EXPERT_TRACE},
        {"Q_ENSURE", false, ErrorHandler::Q_ENSURE},
        {"Q_KM_ASSERT", false, ErrorHandler::Q_KM_ASSERT},
        {"Q_PREMETHOD", false, ErrorHandler::Q_PREMETHOD},
        {"Q_POSTMETHOD", false, ErrorHandler::Q_POSTMETHOD},
        {"Q_KM_REQUIRE", false, ErrorHandler::Q_KM_REQUIRE},
    };
    ICfg& appCfg = GetAppCfg(ICfg::VIEW_Machine);
    const QString name = QStringLiteral("ExceptionHandling");
    if (!appCfg.HasSubCfg(name))
        return;
    const std::unique_ptr<ICfg> exceptionHandling(appCfg.CreateSubCfg(name));
    if (!exceptionHandling)
        return;
    ErrorHandler& handler = ErrorHandler::Instance();
    for (const Switch& entry : switches)
        handler.SetMessageMask(
            entry.bit, exceptionHandling->GetBoolean(QString::fromLatin1(entry.name), entry.defaultValue));
}

void CfgCenter::Exit()
{
    std::exception_ptr failure;
    auto attempt = [&failure](auto step) {
        try {
            step();
        } catch (...) {
            if (!failure)
                failure = std::current_exception();
        }
    };
    if (m_pDocCfg) {
        if (!m_pDocCfg->UsingUserConfiguration()) {
            if (m_bAutoSaveDocument)
                attempt([] { SaveDocument(); });
            attempt([] { m_pDocCfg->CloseDocument(); });
        }
        delete m_pDocCfg;
        m_pDocCfg = nullptr;
    }
    delete m_pAdminCfg;
    m_pAdminCfg = nullptr;
    delete m_pAppCfg;
    m_pAppCfg = nullptr;
    delete m_pCfgIfDllDescriptor;
    m_pCfgIfDllDescriptor = nullptr;
    delete m_pCfgEvent;
    m_pCfgEvent = nullptr;
    // Libraries still in the map belong to instances that others created and
    // must destroy: they stay loaded.
    delete m_pDllMap;
    m_pDllMap = nullptr;
    delete m_pDllInstanceList;
    m_pDllInstanceList = nullptr;
    delete m_pPostCreateParams;
    m_pPostCreateParams = nullptr;
    delete m_pMutex;
    m_pMutex = nullptr;
    m_bIsServer = false;
    m_bAutoSaveDocument = true;
    if (failure)
        std::rethrow_exception(failure);
}

// ---------------------------------------------------------------------------
// Backends

QString CfgCenter::GetType()
{
    // A served configuration answers with the default document's text, whatever it was set to.
    if (m_pCfgIfDllDescriptor)
        return DefaultCfgDoc();
    if (dynamic_cast<CfgRegistry*>(m_pAppCfg))
        return QStringLiteral("Registry");
    if (dynamic_cast<CfgXml*>(m_pAppCfg))
        return QStringLiteral("Xml");
    Throw(QStringLiteral("Application cfg object is of unknown Cfg type."), QStringLiteral("GetType"),
          __LINE__);
}

ICfg* CfgCenter::CreateAppCfg(const QString& key, const QString& type, ICfg::View view)
{
    const QString cfgDoc = type.isEmpty() ? DefaultCfgDoc() : type;
    ICfg* cfg = nullptr;
    if (cfgDoc.startsWith(QLatin1String("Xml")))
        cfg = new CfgXml(XmlFileName(cfgDoc), key, view);
    else if (cfgDoc.startsWith(QLatin1String("Registry")))
        cfg = new CfgRegistry(key, view, QString());
    else if (cfgDoc == QLatin1String("Server") || cfgDoc.startsWith(QLatin1String("Server:")))
        cfg = CreateServerAppCfg(key, cfgDoc, view);
    return cfg ? OpenAsAppCfg(cfg) : nullptr;
}

ICfg* CfgCenter::CreateServerAppCfg(const QString& key, const QString& cfgDoc, ICfg::View view)
{
    if (!m_pCfgIfDllDescriptor)
        m_pCfgIfDllDescriptor = new CfgIfDllDescriptor(ServerObjectName(cfgDoc), key, m_bIsServer);
    if (m_asyncStartup == ASYNC_Deferred)
        return nullptr; // SetAsyncStartup(ASYNC_Resume) asks for it
    return m_pCfgIfDllDescriptor->CreateCfg(key, view, QString());
}

QString CfgCenter::ServerObjectName(const QString& cfgDoc)
{
    const QString prefix = QStringLiteral("Server:");
    QString host = cfgDoc.startsWith(prefix) ? cfgDoc.mid(prefix.size()) : QString();
    if (host.isEmpty() || IsLocalAddress(host))
        host = QStringLiteral("127.0.0.1");
    // No separator between the name and the host, deliberately.
    return QStringLiteral("CfgServer") + host;
}

ICfg* CfgCenter::OpenAsAppCfg(ICfg* cfg)
{
    // Code that runs during the open already finds the new object.
    ICfg* previous = m_pAppCfg;
    m_pAppCfg = cfg;
    try {
        cfg->OpenDocument(true);
    } catch (const KVException& exception) {
        // The object stays the application configuration and is not deleted;
        // two kinds of user get two exception types, deliberately.
        if (s_usage == USAGE_1 || s_usage == USAGE_3)
            throw -7;
        throw KVException(exception);
    }
    m_pAppCfg = previous;
    return cfg;
}

ICfg* CfgCenter::CreateCfg(const QString& key, ICfg::View view, const QString& other)
{
    if (!m_pAppCfg)
        Throw(NOT_CREATED_YET, QStringLiteral("CreateCfg"), __LINE__);
    return CreateCfgBase(key, view, other);
}

ICfg* CfgCenter::CreateCfgBase(const QString& key, ICfg::View view, const QString& other)
{
    if (m_pCfgIfDllDescriptor)
        return m_pCfgIfDllDescriptor->CreateCfg(key, view, other);
    if (!m_pAppCfg)
        Throw(NOT_CREATED_YET, QStringLiteral("CreateCfgBase"), __LINE__);
    if (auto* xml = dynamic_cast<CfgXml*>(m_pAppCfg))
        return new CfgXml(xml, key, view);
    if (dynamic_cast<CfgRegistry*>(m_pAppCfg))
        return new CfgRegistry(key, view, other);
    Throw(QStringLiteral("Unknown type of application configuration m_pAppCfg."),
          QStringLiteral("CreateCfgBase"), __LINE__);
}

void CfgCenter::SaveDocument()
{
    if (!m_pAppCfg)
        Throw(QStringLiteral("CfgCenter::SaveDocument(), called, before calling CfgCenter::CfgCenter()"),
              QStringLiteral("SaveDocument"), __LINE__);
    if (GetType() == QLatin1String("Server"))
        return;
    if (!m_bDataCommitted) {
        // Components may commit here themselves.
        ForEachComponent(m_saveComponents, [](SaveComponentIf* component) { component->OnSaveDocument(); });
        if (!m_bDataCommitted) {
            SaveDocConfiguration();
            return;
        }
    }
    // After a commit only one further save writes, deliberately.
    if (s_bSaveAfterCommit) {
        SaveDocConfiguration();
        s_bSaveAfterCommit = false;
    }
}

void CfgCenter::SaveDocConfiguration()
{
    GetDocCfg(ICfg::VIEW_Current).SaveDocument();
}

void CfgCenter::SetAutoSaveDocument(bool autoSave)
{
    m_bAutoSaveDocument = autoSave;
}

void CfgCenter::ReLoadUserConfig()
{
    ForEachComponent(m_saveComponents, [](SaveComponentIf* component) { component->OnReLoadUserConfig(); });
}

void CfgCenter::Copy(ICfg* from, ICfg* to)
{
    for (int index = 0;; ++index) {
        const QString name = from->GetValueKeyAt(index);
        if (name.isEmpty())
            break;
        const QString value = from->GetString(name, QString());
        if (value.isEmpty() && from->GetAttributeType(name) != ICfg::TYPE_String)
            to->SetInteger(name, from->GetInteger(name, 0));
        else
            to->SetString(name, value);
    }
    for (int index = 0;; ++index) {
        const std::unique_ptr<ICfg> child(from->CreateSubCfgAt(index));
        if (!child)
            break;
        const QString partialKey = child->GetPartialKey();
        std::unique_ptr<ICfg> target(to->CreateSubCfg(partialKey));
        // An XML target has no object for a node it does not have yet.
        if (!target && to->AddSubCfg(partialKey))
            target.reset(to->CreateSubCfg(partialKey));
        if (target)
            Copy(child.get(), target.get());
    }
}

void CfgCenter::CopyFrom(const char* fileName, const char* fileKey, const char* cfgKey, ICfg::View view)
{
    const QString file = QString::fromLocal8Bit(fileName);
    QString error;
    int line = 0;
    int column = 0;
    const QByteArray bytes = CfgXmlFile::ReadFile(file, &error);
    if (!QFile::exists(file))
        error = QStringLiteral("No such file or directory");
    CfgXmlTree document;
    const bool parsed = error.isEmpty() && CfgXmlFile::Parse(document, bytes, &error, &line, &column);
    if (!parsed) {
        _Q_Trace(QStringLiteral("Parse error in file %1: %2 at line %3 in column %4. ")
                     .arg(file, error)
                     .arg(line)
                     .arg(column),
                 SOURCE, __LINE__);
        return;
    }
    auto source = std::make_unique<CfgXml>(file, QString::fromLocal8Bit(fileKey), view);
    // A copy file is one self-contained document.
    source->SuppressSideFiles(true);
    source->OpenDocument(false);
    const std::unique_ptr<ICfg> target(CreateCfg(QString::fromLocal8Bit(cfgKey), view));
    source->SelectView(view);
    Copy(source.get(), target.get());
    target->SaveDocument();
}

void CfgCenter::CopyTo(const char* fileName, const char* cfgKey, const char* fileKey, ICfg::View view)
{
    const std::unique_ptr<ICfg> source(CreateCfg(QString::fromLocal8Bit(cfgKey), view));
    const QString file = QString::fromLocal8Bit(fileName);
    if (!QFile::exists(file)) {
        QFile output;
        if (ZentOS::Get().CreateNewFile(output, file))
            output.write(CfgXml::s_sEmptyFile.toUtf8());
    }
    auto target = std::make_unique<CfgXml>(file, QString::fromLocal8Bit(fileKey), view);
    target->SuppressSideFiles(true);
    target->OpenDocument(false);
    Copy(source.get(), target.get());
    static_cast<ICfg*>(target.get())->SaveDocument();
}

// ---------------------------------------------------------------------------
// Plug-in libraries

CfgCenter::DllInstanceList* CfgCenter::GetDllInstanceList()
{
    return m_pDllInstanceList;
}

IDllInstance* CfgCenter::CreateDllInstanceImpl(const QString& fileName, const QString& configKey,
                                               const QString& instanceKey, const QString& additionalParams,
                                               bool createdByCenter, bool separateLoad)
{
    if (!m_pDllInstanceList)
        return nullptr;
    CfgDllDescriptor* pDll = nullptr;
    if (!separateLoad) {
        const auto found = m_pDllMap->find(fileName);
        if (found != m_pDllMap->end())
            pDll = found->second;
    }
    std::unique_ptr<CfgDllDescriptor> loaded;
    if (!pDll) {
        loaded = std::make_unique<CfgDllDescriptor>();
        loaded->CreateInstance(fileName);
        pDll = loaded.get();
    }
    _Q_assert(pDll, SOURCE, __LINE__);
    // Nothing is kept when the factory fails: the map entry follows the instance.
    auto descriptor = std::make_unique<DllInstanceDescriptor>(pDll, configKey, instanceKey, additionalParams,
                                                              createdByCenter);
    loaded.release();
    m_pDllMap->emplace(fileName, pDll); // an existing entry is kept
    m_pDllInstanceList->push_back(descriptor.get());
    IDllInstance* instance = descriptor.release()->GetInstance();
    if (s_dllExecuted)
        instance->Execute();
    return instance;
}

IDllInstance* CfgCenter::CreateDllInstance(const QString& name, const QString& key, bool createdByCenter)
{
    if (!m_pDllInstanceList || !m_pAppCfg)
        return nullptr;
    const std::unique_ptr<ICfg> additionalDlls(m_pAppCfg->CreateSubCfg(ADDITIONAL_DLLS, ICfg::VIEW_Machine));
    const std::unique_ptr<ICfg> entry(additionalDlls ? additionalDlls->CreateSubCfg(name) : nullptr);
    if (!entry)
        return nullptr;
    const QString fileName = entry->GetString(QStringLiteral("FileName"), QString());
    if (fileName.isEmpty())
        return nullptr;
    QString configKey = entry->GetString(QStringLiteral("ConfigKey"), QString());
    if (configKey.isEmpty())
        configKey = entry->GetKey() + QStringLiteral("\\Config");
    return CreateDllInstanceImpl(fileName, configKey, InstanceKeyFor(name, key), QString(), createdByCenter,
                                 false);
}

IDllInstance* CfgCenter::CreateDllInstanceByFileName(const QString& fileName, const QString& key,
                                                     bool createdByCenter, bool separateLoad)
{
    return CreateDllInstanceImpl(fileName, key, key, QString(), createdByCenter, separateLoad);
}

void CfgCenter::LoadDlls(QString list, const QString& baseKey, bool createdByCenter)
{
    while (!list.isEmpty()) {
        const int comma = list.indexOf(QLatin1Char(','));
        const QString name = comma < 0 ? list : list.left(comma);
        list = comma < 0 ? QString() : list.mid(comma + 1);
        CreateDllInstanceImpl(name, baseKey, baseKey + QLatin1Char('\\') + name, QString(), createdByCenter,
                              false);
    }
}

void CfgCenter::LoadAdditionalDlls(ICfg* cfg, bool createdByCenter)
{
    const std::unique_ptr<ICfg> additionalDlls(cfg ? cfg->CreateSubCfg(ADDITIONAL_DLLS, ICfg::VIEW_Machine)
                                                   : nullptr);
    if (additionalDlls) {
        for (int index = 0;; ++index) {
            const std::unique_ptr<ICfg> child(additionalDlls->CreateSubCfgAt(index));
            if (!child)
                break;
            LoadAdditionalDllChild(child.get(), createdByCenter);
            // Keeps the screen alive while many libraries load.
            if (QCoreApplication::instance())
                QCoreApplication::processEvents();
        }
        for (int index = 0;; ++index) {
            const QString valueKey = additionalDlls->GetValueKeyAt(index);
            if (valueKey.isEmpty())
                break;
            const QString fileName = additionalDlls->GetString(valueKey, QString());
            CreateDllInstanceImpl(fileName, valueKey, additionalDlls->GetKey() + QLatin1Char('\\') + valueKey,
                                  QString(), createdByCenter, false);
        }
    }
    LoadDlls(m_sPostLoadDlls, m_pAppCfg ? m_pAppCfg->GetKey() : QString(), createdByCenter);
}

void CfgCenter::LoadAdditionalDllChild(ICfg* child, bool createdByCenter)
{
    if (child->GetBoolean(QStringLiteral("Suspend"), false))
        return;
    // Created only on explicit request (CreateDllInstance).
    if (child->GetBoolean(QStringLiteral("ExplicitOnly"), false))
        return;
    const QString fileName = child->GetString(QStringLiteral("FileName"), QString());
    if (fileName.isEmpty())
        return;
    QString configKey = child->GetString(QStringLiteral("ConfigKey"), QString());
    if (configKey.isEmpty())
        configKey = child->GetKey() + QStringLiteral("\\Config");
    CreateDllInstanceImpl(fileName, configKey, child->GetKey(), QString(), createdByCenter, false);
}

void CfgCenter::ExecuteDlls()
{
    if (m_pDllInstanceList) {
        // Instances that an Execute creates join the walk at the end.
        for (DllInstanceDescriptor* descriptor : *m_pDllInstanceList) {
            bool executed = false;
            try {
                executed = descriptor->GetInstance() && descriptor->GetInstance()->Execute();
            } catch (const KVException& exception) {
                _Q_Trace(exception.GetMessage(), SOURCE, __LINE__);
            } catch (const std::exception& exception) {
                _Q_Trace(QString::fromLocal8Bit(exception.what()), SOURCE, __LINE__);
            }
            if (!executed)
                _Q_Trace(QStringLiteral("Dll not executed: ") + descriptor->GetDllName(), SOURCE, __LINE__);
        }
    }
    s_dllExecuted = true;
}

QString CfgCenter::InstanceKeyFor(const QString& name, const QString& key)
{
    if (!key.isEmpty())
        return key;
    const QString appKey = m_pAppCfg ? m_pAppCfg->GetKey() : QString();
    const QString entryKey = ADDITIONAL_DLLS + QLatin1Char('\\') + name;
    return appKey.isEmpty() ? entryKey : appKey + QLatin1Char('\\') + entryKey;
}

DllInstanceDescriptor* CfgCenter::FindByInstanceKey(const QString& instanceKey)
{
    if (!m_pDllInstanceList)
        return nullptr;
    for (DllInstanceDescriptor* descriptor : *m_pDllInstanceList) {
        if (descriptor->GetInstanceKey() == instanceKey)
            return descriptor;
    }
    return nullptr;
}

DllInstanceDescriptor* CfgCenter::FindByFileName(const QString& fileName, const QString& key)
{
    if (!m_pDllInstanceList)
        return nullptr;
    for (DllInstanceDescriptor* descriptor : *m_pDllInstanceList) {
        if (descriptor->GetDllName() == fileName && (key.isEmpty() || descriptor->GetInstanceKey() == key))
            return descriptor;
    }
    return nullptr;
}

DllInstanceDescriptor* CfgCenter::FindByPointer(IDllInstance* instance)
{
    if (!m_pDllInstanceList || !instance)
        return nullptr;
    for (DllInstanceDescriptor* descriptor : *m_pDllInstanceList) {
        if (descriptor->GetInstance() == instance)
            return descriptor;
    }
    return nullptr;
}

IDllInstance* CfgCenter::GetDllInstance(const QString& name, const QString& key)
{
    DllInstanceDescriptor* descriptor = FindByInstanceKey(InstanceKeyFor(name, key));
    return descriptor ? descriptor->GetInstance() : nullptr;
}

IDllInstance* CfgCenter::GetDllInstanceByFileName(const QString& fileName, const QString& key)
{
    DllInstanceDescriptor* descriptor = FindByFileName(fileName, key);
    return descriptor ? descriptor->GetInstance() : nullptr;
}

bool CfgCenter::DestroyDllInstance(const QString& name, const QString& key)
{
    return DestroyDescriptor(FindByInstanceKey(InstanceKeyFor(name, key)));
}

bool CfgCenter::DestroyDllInstanceByFileName(const QString& fileName, const QString& key)
{
    return DestroyDescriptor(FindByFileName(fileName, key));
}

bool CfgCenter::DestroyDllInstanceByPointer(IDllInstance* instance)
{
    return DestroyDescriptor(FindByPointer(instance));
}

bool CfgCenter::DestroyDescriptor(DllInstanceDescriptor* descriptor)
{
    if (!descriptor)
        return false;
    m_pDllInstanceList->remove(descriptor);
    CfgDllDescriptor* dll = descriptor->GetDll();
    const QString name = descriptor->GetDllName();
    delete descriptor;
    // A library loaded separately is not the one the map knows: it goes with
    // its last instance.
    const auto mapped = m_pDllMap->find(name);
    const bool isMapped = mapped != m_pDllMap->end() && mapped->second == dll;
    const bool stillUsed =
        std::any_of(m_pDllInstanceList->begin(), m_pDllInstanceList->end(),
                    [dll](DllInstanceDescriptor* other) { return other->GetDll() == dll; });
    if (!isMapped && !stillUsed)
        delete dll;
    UnloadDll(name);
    return true;
}

bool CfgCenter::IsLibraryUsed(const QString& name)
{
    return m_pDllInstanceList && std::any_of(m_pDllInstanceList->begin(), m_pDllInstanceList->end(),
                                             [&name](DllInstanceDescriptor* descriptor) {
                                                 return descriptor->GetDllName() == name;
                                             });
}

bool CfgCenter::UnloadDll(const QString& name)
{
    if (!m_pDllMap || IsLibraryUsed(name))
        return false;
    const auto found = m_pDllMap->find(name);
    if (found == m_pDllMap->end())
        return false;
    delete found->second;
    m_pDllMap->erase(found);
    return true;
}

void CfgCenter::DestroyAdditionalDllInstances()
{
    if (!m_pDllInstanceList)
        return;
    // KVDestroy may destroy further instances itself, so the walk goes over a
    // copy and skips what is gone already.
    const DllInstanceList snapshot = *m_pDllInstanceList;
    for (DllInstanceDescriptor* descriptor : snapshot) {
        if (std::find(m_pDllInstanceList->begin(), m_pDllInstanceList->end(), descriptor) ==
            m_pDllInstanceList->end())
            continue;
        if (descriptor->IsCreatedByCenter()) {
            DestroyDescriptor(descriptor);
            continue;
        }
        _Q_Trace(QStringLiteral(
                     "An instance of the dll \"%1\" was not created by CfgCenter, the creating instance "
                     "is responsible for destroying it.")
                     .arg(descriptor->GetDllName()),
                 SOURCE, __LINE__);
    }
}

void CfgCenter::UnloadAdditionalDlls()
{
    DestroyAdditionalDllInstances();
    if (!m_pDllMap)
        return;
    QStringList unused;
    for (const auto& entry : *m_pDllMap) {
        if (!IsLibraryUsed(entry.first))
            unused.append(entry.first);
    }
    for (const QString& name : qAsConst(unused))
        UnloadDll(name);
}

// ---------------------------------------------------------------------------
// Save components and commits

void CfgCenter::RegisterSaveComponent(SaveComponentIf* component)
{
    m_saveComponents.push_back(component);
}

void CfgCenter::UnregisterSaveComponent(SaveComponentIf* component)
{
    const auto found = std::find(m_saveComponents.begin(), m_saveComponents.end(), component);
    if (found != m_saveComponents.end())
        m_saveComponents.erase(found);
}

void CfgCenter::CommitData()
{
    if (m_bDataCommitted)
        return;
    ForEachComponent(m_saveComponents, [](SaveComponentIf* component) { component->OnCommitData(); });
    if (m_pDllInstanceList) {
        for (DllInstanceDescriptor* descriptor : *m_pDllInstanceList) {
            if (IDllInstance* instance = descriptor->GetInstance())
                instance->CommitData();
        }
    }
    m_bDataCommitted = true;
    SaveDocument();
}

void CfgCenter::PostCommitData()
{
    // After Exit there is no receiver: the request is dropped.
    if (CfgEvent* receiver = m_pCfgEvent)
        QCoreApplication::postEvent(receiver, new CustomEvent(CustomEvent::COMMIT_DATA, nullptr),
                                    Qt::NormalEventPriority);
}

bool CfgCenter::DataCommitted()
{
    return m_bDataCommitted;
}
