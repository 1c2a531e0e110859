#ifndef PLUGINS_DEMO_DEMOCONFIGURATIONSMENU_H
#define PLUGINS_DEMO_DEMOCONFIGURATIONSMENU_H

#include <QMenu>
#include <QString>
#include <QStringList>

#include <functional>

/// zentdemo's "Configurations" menu: the user's settings saved under a name,
/// and those named configurations switched, renamed and deleted, through the
/// user configurations of the application's configuration. They live in the
/// login user's partition of the user view, which the menu takes on first use
/// and, once the user has one, at every start.
class DemoConfigurationsMenu : public QMenu
{
    Q_OBJECT

public:
    /// `writeSettings` puts the window's settings into the configuration,
    /// `readSettings` shows the configuration's settings in the window.
    DemoConfigurationsMenu(std::function<void()> writeSettings, std::function<void()> readSettings,
                           QWidget* parent = nullptr);

    /// The login user, whose partition holds the named configurations.
    static QString LoginUser();

    /// The names of the user's configurations, in the order they were made.
    QStringList Configurations() const;
    /// The configuration in use; empty when the user's own settings are.
    QString Active() const;

    // The menu's operations, without their dialogs; true when done.
    /// Saves the window's settings as the configuration `name` and uses it.
    bool SaveAs(const QString& name);
    /// Keeps the window's settings in the configuration in use and shows
    /// those of the configuration `name`.
    bool SwitchTo(const QString& name);
    /// Renames the configuration in use.
    bool RenameActive(const QString& to);
    /// Deletes the configuration in use; the user's own settings are shown again.
    bool DeleteActive();

signals:
    /// What an operation did or why it did nothing, for the status bar.
    void reported(const QString& text);

private slots:
    void Rebuild();
    void AskSaveAs();
    void AskRename();
    void AskDelete();

private:
    void UseUserPartition();
    void LeaveDeletedConfiguration();
    bool CheckName(const QString& name);

    std::function<void()> m_writeSettings;
    std::function<void()> m_readSettings;
    bool m_bUserPartition = false;
};

#endif
