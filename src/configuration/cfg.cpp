#include "configuration/cfg.h"

#include "configuration/cfgcenter.h"
#include "kvbase/kvexception.h"

#include <QMutexLocker>

const QString Cfg::VERSION_2_0 = QStringLiteral("2.0");
const QString Cfg::VERSION_2_1 = QStringLiteral("2.1");
const QString Cfg::VERSION_2_2 = QStringLiteral("2.2");
const QString Cfg::VERSION_2_3 = QStringLiteral("2.3");
const QString Cfg::VERSION_2_4 = QStringLiteral("2.4");
const QString Cfg::NOT_FOUND_STRING = QStringLiteral("#+uookjhuzr6cv342AXCUZ");
constexpr long Cfg::NOT_FOUND_INTEGER;

Cfg::Cfg(const QString& key, View view, const QString&) : m_view(view), m_sKey(key) {}

Cfg::Cfg(const Cfg& other) : ICfg(other), m_view(other.m_view), m_sKey(other.m_sKey) {}

Cfg& Cfg::operator=(const Cfg& other)
{
    m_view = other.m_view;
    m_sKey = other.m_sKey;
    return *this;
}

Cfg::~Cfg() = default;

QString Cfg::GetKey()
{
    QMutexLocker locker(CfgCenter::GetMutex());
    return m_sKey;
}

ICfg* Cfg::CreateSubCfgAt(int index, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    return CreateSubCfgAtImpl(index, ResolveView(view));
}

void Cfg::SelectView(View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    if (view != VIEW_Current)
        m_view = view;
}

QString Cfg::GetString(QString name, QString defaultValue, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    if (view != VIEW_Current)
        return GetStringImpl(name, defaultValue, view);
    const QString value = GetStringImpl(name, NOT_FOUND_STRING, m_view);
    return value == NOT_FOUND_STRING ? defaultValue : value;
}

long Cfg::GetInteger(QString name, long defaultValue, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    if (view != VIEW_Current)
        return GetIntegerImpl(name, defaultValue, view);
    const long value = GetIntegerImpl(name, NOT_FOUND_INTEGER, m_view);
    return value == NOT_FOUND_INTEGER ? defaultValue : value;
}

bool Cfg::GetBoolean(QString name, bool defaultValue, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    const long number = GetInteger(name, NOT_FOUND_INTEGER, view);
    if (number != NOT_FOUND_INTEGER)
        return number != 0;
    const QString text = GetString(name, NOT_FOUND_STRING, view);
    if (text == NOT_FOUND_STRING)
        return defaultValue;
    // Deliberately lenient: any text containing "true" counts, so "untrue" is true.
    return text.contains(QLatin1String("true"), Qt::CaseInsensitive);
}

void Cfg::SetString(QString name, QString value, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    SetStringImpl(name, value, ResolveView(view));
}

void Cfg::SetInteger(QString name, long value, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    SetIntegerImpl(name, static_cast<qint32>(value), ResolveView(view));
}

void Cfg::SetBoolean(QString name, bool value, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    SetBooleanImpl(name, value, ResolveView(view));
}

QString Cfg::GetValueKeyAt(int index, View view)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    return GetValueKeyAtImpl(index, ResolveView(view));
}

void Cfg::OpenDocument(bool) {}

void Cfg::CloseDocument() {}

void Cfg::RestoreBackup() {}

QString Cfg::GetBackupDocumentName(const char*)
{
    return QString();
}

bool Cfg::IsStringWritable(QString name, View view)
{
    return IsWritable(name, view, &Cfg::HasString);
}

bool Cfg::IsIntegerWritable(QString name, View view)
{
    return IsWritable(name, view, &Cfg::HasInteger);
}

bool Cfg::IsBooleanWritable(QString name, View view)
{
    return IsWritable(name, view, &Cfg::HasBoolean);
}

bool Cfg::IsWritable(const QString& name, View view, Presence isPresent)
{
    QMutexLocker locker(CfgCenter::GetMutex());
    // Without a document configuration the centre's exception reaches the caller.
    if (&CfgCenter::GetDocCfg(VIEW_Machine) == this)
        return true;
    view = ResolveView(view);
    // Deliberately asymmetric: machine values are masked by the user and the
    // domain view, every other view only by the machine view.
    if (view == VIEW_Machine)
        return !(this->*isPresent)(name, VIEW_User) && !(this->*isPresent)(name, VIEW_Domain);
    return !(this->*isPresent)(name, VIEW_Machine);
}

bool Cfg::HasString(const QString& name, View view)
{
    return GetString(name, NOT_FOUND_STRING, view) != NOT_FOUND_STRING;
}

bool Cfg::HasInteger(const QString& name, View view)
{
    return GetInteger(name, NOT_FOUND_INTEGER, view) != NOT_FOUND_INTEGER;
}

bool Cfg::HasBoolean(const QString& name, View view)
{
    return GetBoolean(name, true, view) == GetBoolean(name, false, view);
}

void Cfg::SaveDocument()
{
    ICfg* docCfg = nullptr;
    try {
        docCfg = &CfgCenter::GetDocCfg(VIEW_Current);
    } catch (const KVException&) {
        return;
    }
    docCfg->SetString(QStringLiteral("name"), CfgCenter::GetMachineName(), VIEW_Current);
}
