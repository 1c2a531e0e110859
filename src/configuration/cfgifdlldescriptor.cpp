#include "configuration/cfgifdlldescriptor.h"

#include "configuration/icfgcenterserverifif.h"
#include "kvbase/errorhandler.h"
#include "kvbase/kvexception.h"
#include "kvbase/zentos.h"

namespace {
const QString CLASS_NAME = QStringLiteral("CfgIfDllDescriptor");
} // namespace

const char* CfgIfDllDescriptor::s_pDllFileName = "CfgClient.dll";

ICfgCenterServerIfIf::~ICfgCenterServerIfIf() = default;

CfgIfDllDescriptor::CfgIfDllDescriptor(const QString& serverObjectName, const QString& appName,
                                       bool asServerApplication)
    : m_pServerIf(nullptr), m_sAppName(appName)
{
    CreateInstance(QString::fromLocal8Bit(s_pDllFileName));
    m_pInstanceDescriptor =
        std::make_unique<DllInstanceDescriptor>(this, serverObjectName, serverObjectName, QString(), true);
    m_pServerIf = dynamic_cast<ICfgCenterServerIfIf*>(m_pInstanceDescriptor->GetInstance());
    if (!m_pServerIf) {
        throw KVException(
            QStringLiteral("The dll instance created by a call of KVCreate()/KVCreateEx() from dll "
                           "\"%1\" is not of the expected type \"ICfgCenterServerIfIf\" !")
                .arg(GetName()),
            QStringLiteral("configuration/cfgifdlldescriptor"), CLASS_NAME, CLASS_NAME, __LINE__);
    }
    ConnectOrExit(asServerApplication);
}

CfgIfDllDescriptor::~CfgIfDllDescriptor()
{
    if (m_pServerIf)
        m_pServerIf->Disconnect(m_sAppName);
    m_pServerIf = nullptr;
    m_pInstanceDescriptor.reset();
    // The base class unloads the library afterwards.
}

ICfg* CfgIfDllDescriptor::CreateCfg(const QString& key, ICfg::View view, const QString& other)
{
    return m_pServerIf->CreateCfg(key, view, other);
}

void CfgIfDllDescriptor::ConnectOrExit(bool asServerApplication)
{
    if (m_pServerIf->Connect(m_sAppName, asServerApplication))
        return;
    ErrorHandler::Instance().Message(
        QStringLiteral(
            "Application \"%1\" can't connect to TALVO Configuration Service.\nPlease make sure that "
            "Configuration Service is running and start the application again.")
            .arg(m_sAppName),
        ErrorHandler::MSG_Error, CLASS_NAME, CLASS_NAME);
    // Deliberately no exception and no tear-down: the process ends here.
    ZentOS::Get().ExitProcess(-1);
}
