#include "configuration/icfg.h"

namespace {
const QChar KEY_SEPARATOR = QLatin1Char('\\');
}

ICfg::~ICfg() = default;

QString ICfg::GetPartialKey()
{
    const QString key = GetKey();
    const int separator = key.lastIndexOf(KEY_SEPARATOR);
    return separator >= 0 ? key.mid(separator + 1) : key;
}

QString ICfg::GetAppKey()
{
    const QString key = GetKey();
    const int separator = key.indexOf(KEY_SEPARATOR);
    if (separator >= 0)
        return key.left(separator);
    if (key.isEmpty())
        return QStringLiteral("Configuration Service");
    return key;
}

std::list<QString> ICfg::GetUserConfigurations()
{
    return {};
}

std::list<QString> ICfg::GetUsers()
{
    return {};
}

void ICfg::DeleteUser(const QString&) {}

QString ICfg::GetActiveUserConfiguraton()
{
    return QString();
}

bool ICfg::UsingUserConfiguration() const
{
    return false;
}

QString ICfg::GetTypeAsString(AttributeType type)
{
    switch (type) {
    case TYPE_String:
        return QStringLiteral("string");
    case TYPE_Boolean:
        return QStringLiteral("boolean");
    case TYPE_Integer:
        return QStringLiteral("integer");
    case TYPE_Undefined:
        return QStringLiteral("undefined");
    }
    return QStringLiteral("something_wrong");
}

QString ICfg::GetViewAsString(View view)
{
    switch (view) {
    case VIEW_User:
        return QStringLiteral("User");
    case VIEW_Machine:
        return QStringLiteral("Machine");
    case VIEW_Domain:
        return QStringLiteral("Domain");
    case VIEW_System:
        return QStringLiteral("System");
    case VIEW_Export:
        return QStringLiteral("Export");
    case VIEW_Current:
        break;
    }
    return QStringLiteral("something_wrong");
}
