// No QStringLiteral here either: see demoplugin.cpp.
#include "democonfigurationsmenu.h"

#include "configuration/cfgcenter.h"
#include "configuration/icfg.h"
#include "kvbase/errorhandler.h"
#include "kvbase/kvexception.h"

#include <QActionGroup>
#include <QDir>
#include <QInputDialog>
#include <QMessageBox>
#include <QRegularExpression>

#include <algorithm>

namespace {

// What the configuration puts before a configuration's name in its element name.
const QString ELEMENT_PREFIX = QString::fromLatin1("UC___");

ICfg& AppCfg()
{
    return CfgCenter::GetAppCfg();
}

// The element name the configuration gives the user's partition.
QString PartitionName(const QString& user)
{
    QString name = user;
    name.replace(QLatin1Char(' '), QLatin1Char('.'));
    if (!name.isEmpty() && name.at(0).isDigit())
        name.prepend(QLatin1Char('_'));
    return name;
}

QStringList ToStringList(const std::list<QString>& names)
{
    return QStringList(names.begin(), names.end());
}

// A menu's action must not throw into the event loop: a failure is shown instead.
template <typename Operation> void Guarded(Operation operation)
{
    try {
        operation();
    } catch (const KVException& e) {
        ErrorHandler::Instance().Message(e.GetMessage(), ErrorHandler::MSG_Error,
                                         QString::fromLatin1("Configurations"),
                                         QString::fromLatin1("DemoConfigurationsMenu"));
    }
}

} // namespace

DemoConfigurationsMenu::DemoConfigurationsMenu(std::function<void()> writeSettings,
                                               std::function<void()> readSettings, QWidget* parent)
    : QMenu(tr("&Configurations"), parent), m_writeSettings(std::move(writeSettings)),
      m_readSettings(std::move(readSettings))
{
    setObjectName(QString::fromLatin1("ConfigurationsMenu"));
    // A user who has named configurations gets the last one used back.
    if (ToStringList(AppCfg().GetUsers()).contains(PartitionName(LoginUser())))
        UseUserPartition();
    connect(this, &QMenu::aboutToShow, this, &DemoConfigurationsMenu::Rebuild);
    Rebuild();
}

QString DemoConfigurationsMenu::LoginUser()
{
    QString user = qEnvironmentVariable("USER");
    if (user.isEmpty())
        user = QDir::home().dirName();
    return user.isEmpty() ? QString::fromLatin1("user") : user;
}

QStringList DemoConfigurationsMenu::Configurations() const
{
    return ToStringList(AppCfg().GetUserConfigurations());
}

QString DemoConfigurationsMenu::Active() const
{
    // The configuration in force stands at the front of the partitions, by
    // its element name.
    ICfg& cfg = AppCfg();
    const std::list<QString> partitions = cfg.GetAdditionalUserViewSubkey();
    if (!cfg.UsingUserConfiguration() || partitions.empty() || !partitions.front().startsWith(ELEMENT_PREFIX))
        return QString();
    const QString active = partitions.front().mid(ELEMENT_PREFIX.size());
    return Configurations().contains(active) ? active : QString();
}

void DemoConfigurationsMenu::UseUserPartition()
{
    if (m_bUserPartition)
        return;
    AppCfg().SetUserViewSubkey(LoginUser());
    LeaveDeletedConfiguration();
    m_bUserPartition = true;
    // The window shows the partition's settings now; reading them also makes
    // the partition, a copy of the user's settings until then.
    m_readSettings();
}

// The user's element still names a deleted configuration as the last one
// used, and choosing the user's partition makes it active again: without its
// element, the user's own settings apply instead.
void DemoConfigurationsMenu::LeaveDeletedConfiguration()
{
    ICfg& cfg = AppCfg();
    if (cfg.UsingUserConfiguration() && Active().isEmpty())
        cfg.SetAdditionalUserViewSubkey({});
}

bool DemoConfigurationsMenu::CheckName(const QString& name)
{
    // The name becomes part of an element name in the document.
    static const QRegularExpression allowed(QString::fromLatin1("^[A-Za-z0-9_.-]+$"));
    if (allowed.match(name).hasMatch())
        return true;
    emit reported(
        tr("\"%1\" cannot name a configuration: use letters, digits, \"_\", \"-\" and \".\".").arg(name));
    return false;
}

bool DemoConfigurationsMenu::SaveAs(const QString& name)
{
    if (!CheckName(name))
        return false;
    UseUserPartition();
    AppCfg().SaveConfigurationName(name);
    // The settings go into the new configuration, which is in use now.
    m_writeSettings();
    CfgCenter::SaveDocument();
    if (Active() != name) {
        emit reported(tr("The settings could not be saved as \"%1\".").arg(name));
        return false;
    }
    emit reported(tr("Settings saved as \"%1\".").arg(name));
    return true;
}

bool DemoConfigurationsMenu::SwitchTo(const QString& name)
{
    UseUserPartition();
    if (!Configurations().contains(name)) {
        emit reported(tr("There is no configuration \"%1\".").arg(name));
        return false;
    }
    m_writeSettings();
    AppCfg().LoadConfigurationName(name);
    m_readSettings();
    // Both the edits and the choice are kept for the next start.
    CfgCenter::SaveDocument();
    if (Active() != name) {
        emit reported(tr("The configuration \"%1\" could not be used.").arg(name));
        return false;
    }
    emit reported(tr("Using the configuration \"%1\".").arg(name));
    return true;
}

bool DemoConfigurationsMenu::RenameActive(const QString& to)
{
    const QString from = Active();
    if (from.isEmpty() || !CheckName(to))
        return false;
    if (Configurations().contains(to)) {
        emit reported(tr("There is a configuration \"%1\" already.").arg(to));
        return false;
    }
    AppCfg().RenameConfigurationName(from, to);
    // Loading it marks it as the user's last one, under its new name.
    AppCfg().LoadConfigurationName(to);
    CfgCenter::SaveDocument();
    if (Active() != to) {
        emit reported(tr("The configuration \"%1\" could not be renamed.").arg(from));
        return false;
    }
    emit reported(tr("The configuration \"%1\" is now called \"%2\".").arg(from, to));
    return true;
}

bool DemoConfigurationsMenu::DeleteActive()
{
    const QString name = Active();
    if (name.isEmpty())
        return false;
    AppCfg().DeleteConfigurationName(name);
    LeaveDeletedConfiguration();
    m_readSettings();
    CfgCenter::SaveDocument();
    if (Configurations().contains(name)) {
        emit reported(tr("The configuration \"%1\" could not be deleted.").arg(name));
        return false;
    }
    emit reported(tr("The configuration \"%1\" is deleted; your own settings are shown.").arg(name));
    return true;
}

void DemoConfigurationsMenu::Rebuild()
{
    clear();
    addAction(tr("&Save settings as..."), this, &DemoConfigurationsMenu::AskSaveAs);
    QMenu* switchMenu = addMenu(tr("S&witch to"));
    const QStringList names = Configurations();
    const QString active = Active();
    auto* group = new QActionGroup(switchMenu);
    for (const QString& name : names) {
        QAction* action =
            switchMenu->addAction(name, this, [this, name] { Guarded([this, name] { SwitchTo(name); }); });
        action->setCheckable(true);
        action->setChecked(name == active);
        group->addAction(action);
    }
    switchMenu->setEnabled(!names.isEmpty());
    QAction* rename = addAction(active.isEmpty() ? tr("&Rename...") : tr("&Rename \"%1\"...").arg(active),
                                this, &DemoConfigurationsMenu::AskRename);
    rename->setEnabled(!active.isEmpty());
    QAction* remove = addAction(active.isEmpty() ? tr("&Delete") : tr("&Delete \"%1\"").arg(active), this,
                                &DemoConfigurationsMenu::AskDelete);
    remove->setEnabled(!active.isEmpty());
}

void DemoConfigurationsMenu::AskSaveAs()
{
    bool ok = false;
    const QString name = QInputDialog::getText(parentWidget(), tr("Save settings as"), tr("Name:"),
                                               QLineEdit::Normal, QString(), &ok);
    if (ok)
        Guarded([this, name] { SaveAs(name.trimmed()); });
}

void DemoConfigurationsMenu::AskRename()
{
    bool ok = false;
    const QString name = QInputDialog::getText(parentWidget(), tr("Rename configuration"), tr("New name:"),
                                               QLineEdit::Normal, Active(), &ok);
    if (ok)
        Guarded([this, name] { RenameActive(name.trimmed()); });
}

void DemoConfigurationsMenu::AskDelete()
{
    const QString name = Active();
    if (QMessageBox::question(parentWidget(), tr("Delete configuration"),
                              tr("Delete the configuration \"%1\"?").arg(name)) == QMessageBox::Yes)
        Guarded([this] { DeleteActive(); });
}
