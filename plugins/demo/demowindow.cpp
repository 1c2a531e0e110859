#include "demowindow.h"
#include "threadingdemo.h"

#include "democonfigurationsmenu.h"

#include "application/translationcenter.h"
#include "application/zentapplication.h"
#include "application/zentqapplication.h"
#include "configuration/cfgcenter.h"
#include "configuration/dlldescriptor.h"
#include "configuration/icfg.h"
#include "kvbase/errorhandler.h"
#include "kvbase/kvexception.h"

#include <QCheckBox>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QMenuBar>
#include <QPushButton>
#include <QSpinBox>
#include <QStatusBar>
#include <QTime>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <memory>

namespace {

const QString GREETING = QString::fromLatin1("Greeting");
const QString VOLUME = QString::fromLatin1("Volume");
const QString SHOW_TIPS = QString::fromLatin1("ShowTips");

QLabel* Selectable(const QString& text)
{
    auto* label = new QLabel(text);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return label;
}

} // namespace

DemoWindow::DemoWindow(const QString& configKey, QWidget* parent)
    : QMainWindow(parent), m_sConfigKey(configKey)
{
    setObjectName(QString::fromLatin1("DemoWindow"));
    setWindowTitle(tr("Zent Demo"));
    auto* central = new QWidget;
    auto* layout = new QVBoxLayout(central);
    layout->addWidget(CreateStartupGroup());
    layout->addWidget(CreateConfigurationGroup(), 1);
    layout->addWidget(CreateSettingsGroup());
    layout->addWidget(new ThreadingDemo);
    setCentralWidget(central);
    auto* configurations =
        new DemoConfigurationsMenu([this] { WriteSettings(); }, [this] { ReadSettings(); }, this);
    connect(configurations, &DemoConfigurationsMenu::reported, this,
            [this](const QString& text) { statusBar()->showMessage(text); });
    menuBar()->addMenu(configurations);
    resize(620, 560);
    ReadSettings();
    statusBar()->showMessage(tr("Ready"));
    if (auto* app = qobject_cast<ZentQApplication*>(QCoreApplication::instance())) {
        connect(app, &ZentQApplication::signalRereadTimeZoneOffset, this, [this] {
            statusBar()->showMessage(
                tr("The clock or the time zone changed at %1").arg(QTime::currentTime().toString()));
        });
    }
}

QWidget* DemoWindow::CreateStartupGroup()
{
    auto* group = new QGroupBox(tr("Start-up"));
    auto* form = new QFormLayout(group);
    ICfg& appCfg = CfgCenter::GetAppCfg();
    form->addRow(tr("Command line:"),
                 Selectable(QCoreApplication::arguments().mid(1).join(QLatin1Char(' '))));
    form->addRow(tr("Configuration:"),
                 Selectable(CfgCenter::GetType() + QString::fromLatin1(": ") + appCfg.GetTarget()));
    form->addRow(tr("Application key:"), Selectable(appCfg.GetKey()));
    form->addRow(tr("Application name:"), Selectable(CfgCenter::GetAppName()));
    form->addRow(tr("Language:"), Selectable(TranslationCenter::GetLanguageFromCfg()));
    form->addRow(tr("Locale:"), Selectable(QLocale().name()));
    if (ZentApplication* app = ZentApplication::Get())
        form->addRow(tr("Splash time-out:"), Selectable(tr("%1 ms").arg(app->SplashShowTimeInMSec())));
    QStringList plugins;
    if (const CfgCenter::DllInstanceList* instances = CfgCenter::GetDllInstanceList()) {
        for (const DllInstanceDescriptor* instance : *instances)
            plugins << QString::fromLatin1("%1 (%2)").arg(instance->GetDllName(), instance->GetInstanceKey());
    }
    form->addRow(tr("Plug-ins:"), Selectable(plugins.join(QLatin1Char('\n'))));
    std::unique_ptr<ICfg> own(CfgCenter::CreateCfg(m_sConfigKey, ICfg::VIEW_Machine));
    form->addRow(tr("Starts:"),
                 Selectable(QString::number(own->GetInteger(QString::fromLatin1("StartCount"), 0))));
    return group;
}

QWidget* DemoWindow::CreateConfigurationGroup()
{
    auto* group = new QGroupBox(tr("Configuration read at start-up (machine view)"));
    auto* layout = new QVBoxLayout(group);
    auto* tree = new QTreeWidget;
    tree->setObjectName(QString::fromLatin1("ConfigurationTree"));
    tree->setHeaderLabels({tr("Name"), tr("Value")});
    ICfg& appCfg = CfgCenter::GetAppCfg();
    std::unique_ptr<ICfg> machine(CfgCenter::CreateCfg(appCfg.GetKey(), ICfg::VIEW_Machine));
    auto* root = new QTreeWidgetItem(tree, {appCfg.GetKey()});
    AddNode(*machine, root);
    tree->expandAll();
    tree->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    layout->addWidget(tree);
    return group;
}

void DemoWindow::AddNode(ICfg& cfg, QTreeWidgetItem* parent)
{
    for (int index = 0;; ++index) {
        const QString name = cfg.GetValueKeyAt(index);
        if (name.isEmpty())
            break;
        new QTreeWidgetItem(parent, {name, cfg.GetString(name, QString())});
    }
    for (int index = 0;; ++index) {
        std::unique_ptr<ICfg> child(cfg.CreateSubCfgAt(index));
        if (!child)
            break;
        AddNode(*child, new QTreeWidgetItem(parent, {child->GetPartialKey()}));
    }
}

QWidget* DemoWindow::CreateSettingsGroup()
{
    auto* group = new QGroupBox(tr("Your settings (user view)"));
    auto* layout = new QVBoxLayout(group);
    auto* form = new QFormLayout;
    m_pGreeting = new QLineEdit;
    m_pGreeting->setObjectName(GREETING);
    form->addRow(tr("Greeting:"), m_pGreeting);
    m_pVolume = new QSpinBox;
    m_pVolume->setObjectName(VOLUME);
    m_pVolume->setRange(0, 100);
    m_pVolume->setSuffix(QString::fromLatin1(" %"));
    form->addRow(tr("Volume:"), m_pVolume);
    m_pShowTips = new QCheckBox(tr("Show tips at start"));
    m_pShowTips->setObjectName(SHOW_TIPS);
    form->addRow(QString(), m_pShowTips);
    layout->addLayout(form);

    auto* buttons = new QDialogButtonBox;
    QPushButton* save = buttons->addButton(tr("&Save"), QDialogButtonBox::AcceptRole);
    QPushButton* quit = buttons->addButton(tr("&Quit"), QDialogButtonBox::RejectRole);
    connect(save, &QPushButton::clicked, this, &DemoWindow::Save);
    connect(quit, &QPushButton::clicked, this, &QWidget::close);
    layout->addWidget(buttons);
    return group;
}

void DemoWindow::ReadSettings()
{
    std::unique_ptr<ICfg> user(CfgCenter::CreateCfg(m_sConfigKey, ICfg::VIEW_User));
    m_pGreeting->setText(user->GetString(GREETING, tr("Hello")));
    m_pVolume->setValue(static_cast<int>(user->GetInteger(VOLUME, 50)));
    m_pShowTips->setChecked(user->GetBoolean(SHOW_TIPS, true));
}

void DemoWindow::WriteSettings()
{
    std::unique_ptr<ICfg> user(CfgCenter::CreateCfg(m_sConfigKey, ICfg::VIEW_User));
    user->SetString(GREETING, m_pGreeting->text());
    user->SetInteger(VOLUME, m_pVolume->value());
    user->SetBoolean(SHOW_TIPS, m_pShowTips->isChecked());
}

void DemoWindow::Save()
{
    try {
        WriteSettings();
        CfgCenter::SaveDocument();
        statusBar()->showMessage(tr("Saved to %1").arg(CfgCenter::GetAppCfg().GetTarget()));
    } catch (const KVException& e) {
        ErrorHandler::Instance().Message(e.GetMessage(), ErrorHandler::MSG_Error, QString::fromLatin1("Save"),
                                         QString::fromLatin1("DemoWindow"));
    }
}

void DemoWindow::closeEvent(QCloseEvent* event)
{
    // Closing the window does not end a Zent application by itself; here it should.
    event->accept();
    if (ZentApplication* app = ZentApplication::Get())
        app->Quit();
}
