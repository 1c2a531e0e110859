// zentdemo's "Configurations" menu on a real configuration centre and XML
// document: the user's settings saved under names, switched, renamed and
// deleted, and the last one used back at the next start.
#include "configuration/cfgcenter.h"
#include "configuration/icfg.h"
#include "democonfigurationsmenu.h"

#include <QAction>
#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

namespace {

const QString APP = QStringLiteral("App");
const QString GREETING = QStringLiteral("Greeting");

const QByteArray DOCUMENT = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                            "<Cfg version=\"2.2\"><System/><Export/><Domain/>"
                            "<Machine><App><Name>Menu test</Name></App></Machine>"
                            "<User><App><Greeting>shipped</Greeting></App></User></Cfg>\n";

QString UserValue()
{
    std::unique_ptr<ICfg> user(CfgCenter::CreateCfg(APP, ICfg::VIEW_User));
    return user->GetString(GREETING, QStringLiteral("default"));
}

/// The menu's entries as shown: text, and "[x]" for a checked, "(off)" for a disabled one.
QStringList Entries(QMenu& menu)
{
    emit menu.aboutToShow();
    QStringList entries;
    for (QAction* action : menu.actions()) {
        QString entry = action->text();
        if (action->menu()) {
            QStringList inner;
            for (QAction* sub : action->menu()->actions())
                inner << sub->text() + (sub->isChecked() ? QStringLiteral(" [x]") : QString());
            entry += QStringLiteral(" {") + inner.join(QStringLiteral(", ")) + QLatin1Char('}');
        }
        if (!action->isEnabled())
            entry += QStringLiteral(" (off)");
        entries << entry;
    }
    return entries;
}

} // namespace

class TestDemoConfigurationsMenu : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void namedConfigurationsAreSavedSwitchedRenamedAndDeleted();
    void theLastConfigurationUsedIsBackAtTheNextStart();

private:
    void StartCentre();
    std::unique_ptr<DemoConfigurationsMenu> NewMenu();

    QTemporaryDir m_dir;
    QString m_previousDir;
    QByteArray m_previousUser;
    std::unique_ptr<CfgCenter> m_centre;
    QString m_sCurrent; // the window's greeting
    QString m_sShown;   // what the window last read
};

void TestDemoConfigurationsMenu::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    QVERIFY2(m_dir.isValid(), qPrintable(m_dir.errorString()));
    QFile file(m_dir.filePath(QStringLiteral("Cfg.xml")));
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(DOCUMENT) == DOCUMENT.size());
    file.close();
    m_previousDir = QDir::currentPath();
    QVERIFY(QDir::setCurrent(m_dir.path()));
    m_previousUser = qgetenv("USER");
    qputenv("USER", "Tess Ter");
    StartCentre();
}

void TestDemoConfigurationsMenu::cleanupTestCase()
{
    m_centre.reset();
    qputenv("USER", m_previousUser);
    QDir::setCurrent(m_previousDir);
}

void TestDemoConfigurationsMenu::StartCentre()
{
    m_centre.reset();
    m_centre = std::make_unique<CfgCenter>(APP, QStringLiteral("Xml:Cfg.xml"), ICfg::VIEW_Machine, false,
                                           false, true);
}

std::unique_ptr<DemoConfigurationsMenu> TestDemoConfigurationsMenu::NewMenu()
{
    return std::make_unique<DemoConfigurationsMenu>(
        [this] {
            std::unique_ptr<ICfg> user(CfgCenter::CreateCfg(APP, ICfg::VIEW_User));
            user->SetString(GREETING, m_sCurrent);
        },
        [this] { m_sShown = UserValue(); });
}

void TestDemoConfigurationsMenu::namedConfigurationsAreSavedSwitchedRenamedAndDeleted()
{
    QCOMPARE(DemoConfigurationsMenu::LoginUser(), QStringLiteral("Tess Ter"));
    auto menu = NewMenu();
    QSignalSpy reports(menu.get(), &DemoConfigurationsMenu::reported);
    // No configurations yet: only saving is offered.
    QCOMPARE(menu->title(), QStringLiteral("&Configurations"));
    QCOMPARE(Entries(*menu),
             (QStringList{QStringLiteral("&Save settings as..."), QStringLiteral("S&witch to {} (off)"),
                          QStringLiteral("&Rename... (off)"), QStringLiteral("&Delete (off)")}));
    QCOMPARE(menu->Configurations(), QStringList());
    QCOMPARE(menu->Active(), QString());

    m_sCurrent = QStringLiteral("good morning");
    QVERIFY(menu->SaveAs(QStringLiteral("Morning")));
    QCOMPARE(reports.takeLast().at(0).toString(), QStringLiteral("Settings saved as \"Morning\"."));
    // The partition started as a copy of the user's settings.
    QCOMPARE(m_sShown, QStringLiteral("shipped"));
    m_sCurrent = QStringLiteral("good evening");
    QVERIFY(menu->SaveAs(QStringLiteral("Evening")));
    QCOMPARE(menu->Configurations(), (QStringList{QStringLiteral("Morning"), QStringLiteral("Evening")}));
    QCOMPARE(menu->Active(), QStringLiteral("Evening"));
    QCOMPARE(UserValue(), QStringLiteral("good evening"));
    QCOMPARE(Entries(*menu),
             (QStringList{QStringLiteral("&Save settings as..."),
                          QStringLiteral("S&witch to {Morning, Evening [x]}"),
                          QStringLiteral("&Rename \"Evening\"..."), QStringLiteral("&Delete \"Evening\"")}));

    QVERIFY(menu->SwitchTo(QStringLiteral("Morning")));
    QCOMPARE(reports.takeLast().at(0).toString(), QStringLiteral("Using the configuration \"Morning\"."));
    QCOMPARE(m_sShown, QStringLiteral("good morning"));
    QCOMPARE(menu->Active(), QStringLiteral("Morning"));
    // The greeting edited in "Morning" stays with it.
    m_sCurrent = QStringLiteral("early");
    QVERIFY(menu->SwitchTo(QStringLiteral("Evening")));
    QCOMPARE(m_sShown, QStringLiteral("good evening"));
    QVERIFY(!menu->SwitchTo(QStringLiteral("Noon")));
    QCOMPARE(reports.takeLast().at(0).toString(), QStringLiteral("There is no configuration \"Noon\"."));
    QCOMPARE(menu->Active(), QStringLiteral("Evening"));

    QVERIFY(menu->RenameActive(QStringLiteral("Night")));
    QCOMPARE(reports.takeLast().at(0).toString(),
             QStringLiteral("The configuration \"Evening\" is now called \"Night\"."));
    QCOMPARE(menu->Configurations(), (QStringList{QStringLiteral("Morning"), QStringLiteral("Night")}));
    QCOMPARE(menu->Active(), QStringLiteral("Night"));
    QCOMPARE(UserValue(), QStringLiteral("good evening"));
    QVERIFY(!menu->RenameActive(QStringLiteral("Morning")));
    QCOMPARE(reports.takeLast().at(0).toString(),
             QStringLiteral("There is a configuration \"Morning\" already."));

    // Names become part of element names.
    for (const QString& bad : {QStringLiteral("two words"), QStringLiteral("a/b"), QString()}) {
        QVERIFY(!menu->SaveAs(bad));
        QCOMPARE(
            reports.takeLast().at(0).toString(),
            QStringLiteral("\"%1\" cannot name a configuration: use letters, digits, \"_\", \"-\" and \".\".")
                .arg(bad));
        QVERIFY(!menu->RenameActive(bad));
    }
    QCOMPARE(menu->Configurations(), (QStringList{QStringLiteral("Morning"), QStringLiteral("Night")}));

    QVERIFY(menu->DeleteActive());
    QCOMPARE(reports.takeLast().at(0).toString(),
             QStringLiteral("The configuration \"Night\" is deleted; your own settings are shown."));
    QCOMPARE(menu->Configurations(), QStringList{QStringLiteral("Morning")});
    QCOMPARE(menu->Active(), QString());
    QCOMPARE(m_sShown, QStringLiteral("shipped"));
    QVERIFY(!menu->DeleteActive());
    QCOMPARE(Entries(*menu),
             (QStringList{QStringLiteral("&Save settings as..."), QStringLiteral("S&witch to {Morning}"),
                          QStringLiteral("&Rename... (off)"), QStringLiteral("&Delete (off)")}));
    QVERIFY(menu->SwitchTo(QStringLiteral("Morning")));
    QCOMPARE(m_sShown, QStringLiteral("early"));
}

void TestDemoConfigurationsMenu::theLastConfigurationUsedIsBackAtTheNextStart()
{
    // The document as the previous test left it, read afresh.
    StartCentre();
    m_sShown.clear();
    auto menu = NewMenu();
    QCOMPARE(menu->Configurations(), QStringList{QStringLiteral("Morning")});
    QCOMPARE(menu->Active(), QStringLiteral("Morning"));
    QCOMPARE(m_sShown, QStringLiteral("early"));
}

QTEST_MAIN(TestDemoConfigurationsMenu)
#include "tst_democonfigurationsmenu.moc"
