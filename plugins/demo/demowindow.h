#ifndef PLUGINS_DEMO_DEMOWINDOW_H
#define PLUGINS_DEMO_DEMOWINDOW_H

#include <QMainWindow>
#include <QString>

class ICfg;
class QCloseEvent;
class QCheckBox;
class QLabel;
class QLineEdit;
class QSpinBox;
class QTreeWidgetItem;

/// zentdemo's main window: what the start-up found (command line,
/// configuration document, language, locale, splash, plug-ins), the
/// application's configuration as read, and three settings of the user that
/// can be changed and saved.
class DemoWindow : public QMainWindow
{
    Q_OBJECT

public:
    /// `configKey` is the plug-in's own key in the configuration document.
    explicit DemoWindow(const QString& configKey, QWidget* parent = nullptr);

    /// Reads the user's settings from the configuration.
    void ReadSettings();
    /// Writes the user's settings into the configuration (not yet to disk).
    void WriteSettings();

public slots:
    /// Writes the settings and saves the configuration document.
    void Save();

protected:
    /// Ends the application: closing its main window is the user's way out.
    void closeEvent(QCloseEvent* event) override;

private:
    QWidget* CreateStartupGroup();
    QWidget* CreateConfigurationGroup();
    QWidget* CreateSettingsGroup();
    static void AddNode(ICfg& cfg, QTreeWidgetItem* parent);

    QString m_sConfigKey;
    QLineEdit* m_pGreeting = nullptr;
    QSpinBox* m_pVolume = nullptr;
    QCheckBox* m_pShowTips = nullptr;
};

#endif
