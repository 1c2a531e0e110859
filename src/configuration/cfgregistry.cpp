#include "configuration/cfgregistry.h"

#include "configuration/cfgcenter.h"
#include "kvbase/errorhandler.h"
#include "kvbase/kvexception.h"

#include <QMutexLocker>

namespace {

const char* const SourceFile = "configuration/cfgregistry";
const QString ClassName = QStringLiteral("CfgRegistry");
const QString RegistryRoot = QStringLiteral("SOFTWARE\\Velkor&Amsel\\Zent\\");
const QString NotSupported = QStringLiteral("operation is not supported for Registry configuration");

// "Not opened yet": all bits set, the invalid-handle value.
const HKEY NotOpened = reinterpret_cast<HKEY>(~static_cast<uintptr_t>(0));

// The read buffers: 1000 bytes hold 499 characters and the terminating zero.
constexpr DWORD StringBufferBytes = 1000;
constexpr DWORD EnumNameChars = 1000;
constexpr DWORD SubsItemsNameChars = 260;
constexpr DWORD SubsItemsClassChars = 260;

LPCWSTR Wide(const QString& text)
{
    return reinterpret_cast<LPCWSTR>(text.utf16());
}

bool IsOpen(HKEY key)
{
    return key != nullptr && key != NotOpened;
}

bool IsStringType(DWORD type)
{
    return type == REG_SZ || type == REG_EXPAND_SZ;
}

[[noreturn]] void Throw(const QString& message, const QString& className, const char* operation, int line)
{
    throw KVException(message, QString::fromLatin1(SourceFile), className, QString::fromLatin1(operation),
                      line);
}

} // namespace

CfgRegistry::CfgRegistry(QString path, ICfg::View view, QString other)
    : Cfg(path, view, other), m_hUserKey(NotOpened), m_hMachineKey(NotOpened), m_sOther(other)
{
    SelectView(view);
    m_sKey.replace(QLatin1Char('/'), QLatin1Char('\\'));
    m_sKeyPath = RegistryRoot + m_sKey;
}

CfgRegistry::~CfgRegistry()
{
    if (IsOpen(m_hUserKey))
        RegCloseKey(m_hUserKey);
    if (IsOpen(m_hMachineKey))
        RegCloseKey(m_hMachineKey);
}

HKEY CfgRegistry::GetHandle(View view)
{
    view = ResolveView(view);
    HKEY* cached = nullptr;
    HKEY root = nullptr;
    QString message;
    if (view == VIEW_User) {
        cached = &m_hUserKey;
        root = HKEY_CURRENT_USER;
        message = QStringLiteral("RegOpenKeyEx(\"HKEY_CURRENT_USER\\%1\") failed: %2 !");
    } else if (view == VIEW_Machine || view == VIEW_Domain || view == VIEW_System) {
        cached = &m_hMachineKey;
        root = HKEY_LOCAL_MACHINE;
        // The root is named HKEY_CURRENT_MACHINE in this message deliberately, although the key is under
        // HKEY_LOCAL_MACHINE.
        message = QStringLiteral("RegOpenKeyEx(\"HKEY_CURRENT_MACHINE\\%1\") failed: %2 !");
    } else {
        Throw(QStringLiteral("The argument view is neither VIEW_User nor VIEW_Machine."), ClassName,
              "GetHandle", __LINE__);
    }
    if (*cached != NotOpened)
        return *cached;
    HKEY key = nullptr;
    const LONG result = RegOpenKeyExW(root, Wide(m_sKeyPath), 0, KEY_READ | KEY_WRITE, &key);
    if (result == ERROR_SUCCESS || result == ERROR_FILE_NOT_FOUND) {
        // A missing key is remembered as null and not looked for again; only a write creates it.
        *cached = result == ERROR_SUCCESS ? key : nullptr;
        return *cached;
    }
    Throw(message.arg(m_sKeyPath).arg(result), ClassName, "GetHandle", __LINE__);
}

HKEY CfgRegistry::CreateHandle(View view)
{
    view = ResolveView(view);
    const HKEY existing = GetHandle(view);
    if (existing)
        return existing;
    HKEY* cached = nullptr;
    HKEY root = nullptr;
    QString message;
    if (view == VIEW_Machine) {
        cached = &m_hMachineKey;
        root = HKEY_LOCAL_MACHINE;
        message = QStringLiteral("RegCreateKey(\"HKEY_LOCAL_MACHINE\\%1\") failed: %2 !");
    } else if (view == VIEW_User || view == VIEW_Domain || view == VIEW_System) {
        // Deliberately asymmetric: domain and system values are read from the machine key but created
        // in the user key.
        cached = &m_hUserKey;
        root = HKEY_CURRENT_USER;
        message = QStringLiteral("RegCreateKey(\"HKEY_CURRENT_USER\\%1\") failed: %2 !");
    } else {
        Throw(QStringLiteral("The argument \"view\" is neither \"VIEW_User\" nor \"VIEW_Machine\"."),
              ClassName, "CreateHandle", __LINE__);
    }
    HKEY key = nullptr;
    const LONG result = RegCreateKeyW(root, Wide(m_sKeyPath), &key);
    if (result != ERROR_SUCCESS)
        Throw(message.arg(m_sKeyPath).arg(result), ClassName, "CreateHandle", __LINE__);
    if (IsOpen(*cached))
        RegCloseKey(*cached);
    *cached = key;
    return key;
}

bool CfgRegistry::DeleteSubsItems(HKEY key)
{
    WCHAR className[SubsItemsClassChars] = {};
    DWORD classLength = SubsItemsClassChars;
    DWORD subKeys = 0;
    DWORD maxSubKeyLength = 0;
    DWORD maxClassLength = 0;
    DWORD values = 0;
    DWORD maxValueNameLength = 0;
    DWORD maxValueLength = 0;
    DWORD securityDescriptor = 0;
    FILETIME lastWrite = {};
    RegQueryInfoKeyW(key, className, &classLength, nullptr, &subKeys, &maxSubKeyLength, &maxClassLength,
                     &values, &maxValueNameLength, &maxValueLength, &securityDescriptor, &lastWrite);
    // Deliberate: the index keeps growing while keys are removed, so every second sub-key of each level
    // is skipped.
    for (DWORD i = 0;; ++i) {
        WCHAR name[SubsItemsNameChars] = {};
        DWORD nameLength = SubsItemsNameChars;
        if (RegEnumKeyExW(key, i, name, &nameLength, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            break;
        HKEY sub = nullptr;
        if (RegOpenKeyW(key, name, &sub) == ERROR_SUCCESS) {
            DeleteSubsItems(sub);
            if (sub != key)
                RegCloseKey(sub);
        }
        RegDeleteKeyW(key, name);
    }
    return true;
}

QString CfgRegistry::GetType()
{
    return QStringLiteral("Registry");
}

QString CfgRegistry::GetTarget()
{
    QMutexLocker locker(CfgCenter::GetMutex());
    return m_sKeyPath;
}

ICfg* CfgRegistry::CreateSubCfg(QString name, View view) const
{
    QMutexLocker locker(CfgCenter::GetMutex());
    name.replace(QLatin1Char('/'), QLatin1Char('\\'));
    const bool separate = !m_sKey.isEmpty() && !name.isEmpty() && !name.startsWith(QLatin1Char('\\'));
    const QString path = m_sKey + (separate ? QStringLiteral("\\") : QString()) + name;
    return new CfgRegistry(path, ResolveView(view), m_sOther);
}

bool CfgRegistry::AddSubCfg(QString name, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    const HKEY handle = GetHandle(view);
    if (!handle)
        return false;
    HKEY sub = nullptr;
    const LONG result = RegCreateKeyW(handle, Wide(name), &sub);
    if (result == ERROR_SUCCESS && sub != handle)
        RegCloseKey(sub);
    return result == ERROR_SUCCESS;
}

bool CfgRegistry::HasSubCfg(QString name, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    const HKEY handle = GetHandle(view);
    if (!handle)
        return false;
    HKEY sub = nullptr;
    const LONG result = RegOpenKeyW(handle, Wide(name), &sub);
    if (result == ERROR_SUCCESS && sub != handle)
        RegCloseKey(sub);
    return result == ERROR_SUCCESS;
}

bool CfgRegistry::HasAttribute(QString, QString name, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    const HKEY handle = GetHandle(view);
    if (!handle)
        return false;
    BYTE text[StringBufferBytes];
    DWORD size = StringBufferBytes;
    DWORD type = REG_NONE;
    if (RegQueryValueExW(handle, Wide(name), nullptr, &type, text, &size) == ERROR_SUCCESS &&
        IsStringType(type))
        return true;
    DWORD number = 0;
    size = sizeof(number);
    return RegQueryValueExW(handle, Wide(name), nullptr, &type, reinterpret_cast<LPBYTE>(&number), &size) ==
               ERROR_SUCCESS &&
           type == REG_DWORD;
}

bool CfgRegistry::RemoveAttribute(QString name, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    const HKEY handle = GetHandle(view);
    if (!handle)
        return false;
    return RegDeleteValueW(handle, Wide(name)) == ERROR_SUCCESS;
}

bool CfgRegistry::RemoveSubCfg(QString name, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    const HKEY handle = GetHandle(view);
    if (!handle)
        return false;
    ICfg* sub = CreateSubCfg(name, view);
    // Deliberate: the walk starts at this key (the parent), not at `name`, and so also clears
    // sub-keys of siblings as it reaches them.
    DeleteSubsItems(handle);
    delete sub;
    return RegDeleteKeyW(handle, Wide(name)) == ERROR_SUCCESS;
}

bool CfgRegistry::RenameAttribute(QString, QString, View)
{
    return false;
}

bool CfgRegistry::MoveSubCfg(QString, QString, View)
{
    return false;
}

bool CfgRegistry::IsProtected(QString name, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    // Deliberately only the explicit user view: VIEW_Current is not resolved here.
    if (view != VIEW_User)
        return false;
    const HKEY handle = GetHandle(VIEW_User);
    return handle &&
           RegQueryValueExW(handle, Wide(name), nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
}

ICfg::AttributeType CfgRegistry::GetAttributeType(QString name, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    const HKEY handle = GetHandle(view);
    if (!handle)
        return TYPE_Undefined;
    DWORD type = REG_NONE;
    if (RegQueryValueExW(handle, Wide(name), nullptr, &type, nullptr, nullptr) != ERROR_SUCCESS)
        return TYPE_Undefined;
    return type == REG_DWORD ? TYPE_Integer : TYPE_String;
}

void CfgRegistry::SetProtected(QString, bool, View)
{
    ErrorHandler::Instance().Message(
        QStringLiteral("The protected flag is fixed in the windows registry and cannot be changed !"),
        ErrorHandler::MSG_Warning, QStringLiteral("SetProtected"), ClassName);
}

void CfgRegistry::SetAttributeType(QString, AttributeType, View)
{
    ErrorHandler::Instance().Message(
        QStringLiteral("The type is fixed in the windows registry and cannot be changed !"),
        ErrorHandler::MSG_Warning, QStringLiteral("SetAttributeType"), ClassName);
}

QString CfgRegistry::GetStringImpl(QString name, QString defaultValue, View view)
{
    const HKEY handle = GetHandle(view);
    if (!handle)
        return defaultValue;
    WCHAR text[StringBufferBytes / sizeof(WCHAR)] = {};
    DWORD size = StringBufferBytes;
    DWORD type = REG_NONE;
    if (RegQueryValueExW(handle, Wide(name), nullptr, &type, reinterpret_cast<LPBYTE>(text), &size) !=
            ERROR_SUCCESS ||
        !IsStringType(type))
        return defaultValue;
    // The stored size counts the terminating zero; environment references stay unexpanded.
    const int length = static_cast<int>(size / 2) - 1;
    return QString::fromUtf16(text, length > 0 ? length : 0);
}

long CfgRegistry::GetIntegerImpl(QString name, long defaultValue, View view)
{
    const HKEY handle = GetHandle(view);
    if (!handle)
        return defaultValue;
    DWORD number = 0;
    DWORD size = sizeof(number);
    DWORD type = REG_NONE;
    if (RegQueryValueExW(handle, Wide(name), nullptr, &type, reinterpret_cast<LPBYTE>(&number), &size) !=
            ERROR_SUCCESS ||
        type != REG_DWORD)
        return defaultValue;
    return static_cast<qint32>(number);
}

void CfgRegistry::SetStringImpl(QString name, QString value, View view)
{
    const HKEY handle = CreateHandle(view);
    const DWORD size = static_cast<DWORD>((value.size() + 1) * sizeof(WCHAR));
    const LONG result =
        RegSetValueExW(handle, Wide(name), 0, REG_SZ, reinterpret_cast<const BYTE*>(value.utf16()), size);
    if (result != ERROR_SUCCESS)
        Throw(QStringLiteral("RegSetValueEx() failed: %1 !").arg(result), ClassName, "SetStringImpl",
              __LINE__);
}

void CfgRegistry::SetIntegerImpl(QString name, long value, View view)
{
    const HKEY handle = CreateHandle(view);
    const qint32 number = static_cast<qint32>(value);
    const LONG result = RegSetValueExW(handle, Wide(name), 0, REG_DWORD,
                                       reinterpret_cast<const BYTE*>(&number), sizeof(number));
    // The class name is misspelt here deliberately; callers match it as it stands.
    if (result != ERROR_SUCCESS)
        Throw(QStringLiteral("RegSetValueEx() failed: %1 !").arg(result), QStringLiteral("CfgRetistry"),
              "SetIntegerImpl", __LINE__);
}

void CfgRegistry::SetBooleanImpl(QString name, bool value, View view)
{
    SetStringImpl(name, value ? QStringLiteral("true") : QStringLiteral("false"), view);
}

ICfg* CfgRegistry::CreateSubCfgAtImpl(int index, View view)
{
    const HKEY handle = GetHandle(view);
    if (!handle || index < 0)
        return nullptr;
    WCHAR name[EnumNameChars] = {};
    DWORD length = EnumNameChars;
    if (RegEnumKeyExW(handle, static_cast<DWORD>(index), name, &length, nullptr, nullptr, nullptr, nullptr) !=
        ERROR_SUCCESS)
        return nullptr;
    return CreateSubCfg(QString::fromUtf16(name, static_cast<int>(length)), view);
}

QString CfgRegistry::GetValueKeyAtImpl(int index, View view)
{
    const HKEY handle = GetHandle(view);
    if (!handle || index < 0)
        return QString();
    WCHAR name[EnumNameChars] = {};
    DWORD length = EnumNameChars;
    if (RegEnumValueW(handle, static_cast<DWORD>(index), name, &length, nullptr, nullptr, nullptr, nullptr) !=
        ERROR_SUCCESS)
        return QString();
    return QString::fromUtf16(name, static_cast<int>(length));
}

QString CfgRegistry::GetVersion()
{
    return Cfg::VERSION_2_0;
}

void CfgRegistry::OpenDocument(bool) {}

void CfgRegistry::SaveDocument() {}

void CfgRegistry::ThrowNotSupported(const char* operation, int line) const
{
    Throw(NotSupported, ClassName, operation, line);
}

void CfgRegistry::SetUserViewSubkey(const QString&)
{
    ThrowNotSupported("SetUserViewSubkey", __LINE__);
}

void CfgRegistry::SetAdditionalUserViewSubkey(const std::list<QString>&)
{
    ThrowNotSupported("SetAdditionalUserViewSubkey", __LINE__);
}

std::list<QString> CfgRegistry::GetAdditionalUserViewSubkey()
{
    ThrowNotSupported("GetAdditionalUserViewSubkey", __LINE__);
}

void CfgRegistry::SaveConfigurationName(const QString&)
{
    ThrowNotSupported("SaveConfigurationName", __LINE__);
}

void CfgRegistry::RenameConfigurationName(const QString&, const QString&)
{
    ThrowNotSupported("RenameConfigurationName", __LINE__);
}

void CfgRegistry::DeleteConfigurationName(const QString&)
{
    ThrowNotSupported("DeleteConfigurationName", __LINE__);
}

void CfgRegistry::LoadConfigurationName(const QString&)
{
    ThrowNotSupported("LoadConfigurationName", __LINE__);
}

QByteArray CfgRegistry::GetCfgAsStringFromApp(const QString&)
{
    return QByteArrayLiteral("Not yet implemented!!!!");
}

void CfgRegistry::MergeCfgFromStringAndApp(const QByteArray&, const QString&)
{
    Throw(QStringLiteral("Server operation is not supported for Registry configuration"), ClassName,
          "MergeCfgFromStringAndApp", __LINE__);
}
