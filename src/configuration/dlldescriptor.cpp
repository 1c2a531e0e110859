#include "configuration/dlldescriptor.h"

#include "configuration/idllinstance.h"
#include "kvbase/errorhandler.h"
#include "kvbase/kvexception.h"
#include "kvbase/zentos.h"

#include <string>

namespace {
const char* const SOURCE = "configuration/dlldescriptor";
const QString SOURCE_FILE = QStringLiteral("configuration/dlldescriptor");
const QString INSTANCE_CLASS = QStringLiteral("DllInstanceDescriptor");

[[noreturn]] void ThrowNoInstance(const QString& dllName, int line)
{
    throw KVException(
        QStringLiteral(
            "LoadProc() returned invalid pointer. IDllInstance* is expected. Dll: %1, Procedure: KVCreate()")
            .arg(dllName),
        SOURCE_FILE, INSTANCE_CLASS, INSTANCE_CLASS, line);
}
} // namespace

IDllInstance::~IDllInstance() = default;

void IDllInstance::ApplicationEnds() {}

void IDllInstance::CommitData() {}

CfgDllDescriptor::CfgDllDescriptor() : m_hDll(nullptr) {}

CfgDllDescriptor::~CfgDllDescriptor()
{
    if (!m_hDll)
        return;
    ZentOS::Get().FreeLibrary(m_hDll);
    m_hDll = nullptr;
    _Q_Trace(QStringLiteral("Dll %1 unloaded").arg(m_sFileName), SOURCE, __LINE__);
}

void CfgDllDescriptor::CreateInstance(const QString& fileName)
{
    ZentOS& os = ZentOS::Get();
    m_sFileName = fileName;
    if (m_hDll) {
        os.FreeLibrary(m_hDll);
        m_hDll = nullptr;
    }
    os.ResetLastError();
    m_hDll = os.LoadLibrary(fileName);
    if (!m_hDll) {
        const QString message = QStringLiteral("Received invalid Dll handle while loading %1. Error: %2")
                                    .arg(fileName)
                                    .arg(os.GetLastError());
        _Q_Trace(message, SOURCE, __LINE__);
        throw KVException(message, SOURCE_FILE, QStringLiteral("CfgDllDescriptor"),
                          QStringLiteral("CreateInstance"), __LINE__);
    }
    _Q_Trace(QStringLiteral("Dll %1 loaded").arg(fileName), SOURCE, __LINE__);
}

void* CfgDllDescriptor::GetProcAddress(const char* name) const
{
    return ZentOS::Get().GetProcAddress(m_hDll, name);
}

DllInstanceDescriptor::DllInstanceDescriptor(CfgDllDescriptor* dll, const QString& configKey,
                                             const QString& instanceKey, const QString& additionalParams,
                                             bool createdByCenter)
    : m_pDll(dll), m_sConfigKey(configKey), m_sInstanceKey(instanceKey),
      m_sAdditionalParams(additionalParams), m_bCreatedByCenter(createdByCenter), m_pInstance(nullptr)
{
    m_pInstance = CreateThroughFactory();
    _Q_Trace(QStringLiteral("Dll %1, Instance %2 (AdditionalParams: %3) successfully created !")
                 .arg(GetDllName(), m_sInstanceKey, ParamsForTrace()),
             SOURCE, __LINE__);
}

DllInstanceDescriptor::DllInstanceDescriptor(CfgDllDescriptor* dll, const QString& configKey,
                                             const QString& instanceKey)
    : m_pDll(dll), m_sConfigKey(configKey), m_sInstanceKey(instanceKey), m_bCreatedByCenter(true),
      m_pInstance(nullptr)
{
}

DllInstanceDescriptor::~DllInstanceDescriptor()
{
    if (!m_pInstance)
        return;
    ZentOS& os = ZentOS::Get();
    os.ResetLastError();
    auto destroy = reinterpret_cast<KVDestroyFunction>(m_pDll->GetProcAddress("KVDestroy"));
    if (!destroy) {
        // A destructor cannot throw: the instance is left to its library.
        _Q_Trace(
            QStringLiteral("GetProcAddress() returned invalid pointer. Error: %1").arg(os.GetLastError()),
            SOURCE, __LINE__);
        return;
    }
    destroy(m_pInstance);
    m_pInstance = nullptr;
    _Q_Trace(QStringLiteral("Dll %1, Instance %2 (AdditionalParams: %3) destroyed !")
                 .arg(GetDllName(), m_sInstanceKey, ParamsForTrace()),
             SOURCE, __LINE__);
}

QString DllInstanceDescriptor::GetDllName() const
{
    return m_pDll ? m_pDll->GetName() : QString();
}

QString DllInstanceDescriptor::ParamsForTrace() const
{
    return m_sAdditionalParams.isEmpty() ? QStringLiteral("none") : m_sAdditionalParams;
}

IDllInstance* DllInstanceDescriptor::CreateThroughFactory()
{
    ZentOS& os = ZentOS::Get();
    os.ResetLastError();
    if (void* createEx = m_pDll->GetProcAddress("KVCreateEx"))
        return CreateThroughKVCreateEx(createEx);
    if (!m_sAdditionalParams.isEmpty()) {
        // The library predates additional parameters: it still loads, without them.
        _Q_Trace(
            QStringLiteral("Additional Parameter \"%1\" passed for loading dll \"%2\", but GetProcAddress() "
                           "for \"KVCreateEx( LPCTSTR, LPCTSTR )\" returned invalid pointer. Error: %3.")
                .arg(m_sAdditionalParams, GetDllName())
                .arg(os.GetLastError()),
            SOURCE, __LINE__);
    }
    return CreateThroughKVCreate();
}

IDllInstance* DllInstanceDescriptor::CreateThroughKVCreateEx(void* createEx)
{
    const std::wstring configKey = m_sConfigKey.toStdWString();
    const std::wstring params = m_sAdditionalParams.toStdWString();
    IDllInstance* instance =
        reinterpret_cast<KVCreateExFunction>(createEx)(configKey.c_str(), params.c_str());
    if (!instance) {
        _Q_Trace(
            QStringLiteral("LoadProcEx() returned invalid pointer.\nIDllInstance* is expected.\nDll: %1, "
                           "Procedure: KVCreateEx()\n")
                    .arg(GetDllName()) +
                QStringLiteral("File %1, Line %2.").arg(SOURCE_FILE).arg(__LINE__),
            SOURCE, __LINE__);
        ThrowNoInstance(GetDllName(), __LINE__);
    }
    return instance;
}

IDllInstance* DllInstanceDescriptor::CreateThroughKVCreate()
{
    ZentOS& os = ZentOS::Get();
    os.ResetLastError();
    auto create = reinterpret_cast<KVCreateFunction>(m_pDll->GetProcAddress("KVCreate"));
    if (!create) {
        throw KVException(
            QStringLiteral("GetProcAddress() returned invalid pointer while loading %1. Error: %2")
                .arg(GetDllName())
                .arg(os.GetLastError()),
            SOURCE_FILE, INSTANCE_CLASS, INSTANCE_CLASS, __LINE__);
    }
    const std::wstring configKey = m_sConfigKey.toStdWString();
    IDllInstance* instance = create(configKey.c_str());
    if (!instance)
        ThrowNoInstance(GetDllName(), __LINE__);
    return instance;
}
