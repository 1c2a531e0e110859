// The user partitions and named user configurations of CfgXml, with the
// configuration centre that saves and reloads them.

#include "common/kvexceptioncheck.h"
#include "common/scopedcurrentdir.h"
#include "configuration/cfgcentertestaccess.h"
#include "configuration/cfgxml.h"
#include "configuration/fakezentos.h"
#include "configuration/savecomponentif.h"
#include "kvbase/errorhandler.h"

#include <QDomDocument>
#include <QFile>
#include <QtTest>
#include <memory>

namespace {

/// CfgXml with its protected save opened for tests.
class OpenCfgXml : public CfgXml
{
public:
    using CfgXml::CfgXml;
    using CfgXml::SaveDocument;
};

/// Counts what the centre tells its save components.
class CountingComponent : public SaveComponentIf
{
public:
    void OnSaveDocument() override { ++saves; }
    void OnReLoadUserConfig() override { ++reloads; }
    void OnCommitData() override {}
    int saves = 0;
    int reloads = 0;
};

const QByteArray START =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
    "<Cfg version=\"2.2\"><System/><Domain/><Machine/><Export/>"
    "<User><App><U>plain</U></App>"
    "<xyZ9Subkey1Zxy>"
    "<Ann nodeType=\"loginUser\" ActiveUser=\"UC___X\">"
    "<UC___X nodeType=\"addSubKey\" UserConfiguration=\"active\"><App><V>x</V></App></UC___X>"
    "<UC___Y nodeType=\"addSubKey\" UserConfiguration=\"active\"><App><V>y</V></App></UC___Y>"
    "</Ann>"
    "<Bob nodeType=\"loginUser\"><Extra><App><V>e</V></App></Extra></Bob>"
    "</xyZ9Subkey1Zxy>"
    "</User></Cfg>\n";

const QString CONTAINER = QStringLiteral("User/xyZ9Subkey1Zxy");

QDomElement At(const QDomElement& root, const QString& path)
{
    QDomElement element = root;
    for (const QString& tag : path.split(QLatin1Char('/')))
        element = element.firstChildElement(tag);
    return element;
}

QString ChildrenAt(const QDomElement& root, const QString& path)
{
    QStringList names;
    for (QDomElement child = At(root, path).firstChildElement(); !child.isNull();
         child = child.nextSiblingElement())
        names.append(child.tagName() + QLatin1Char('[') + child.attribute(QStringLiteral("nodeType")) +
                     QLatin1Char(']'));
    return names.join(QLatin1Char(','));
}

} // namespace

class tst_CfgXmlUsers : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<CurrentTemporaryDir> m_dir;
    std::unique_ptr<FakeZentOS> m_os;
    std::unique_ptr<OpenCfgXml> m_cfg;
    std::unique_ptr<OpenCfgXml> m_doc;
    CountingComponent m_component;

    QString FileName() const { return m_dir->filePath(QStringLiteral("Cfg.xml")); }

    QDomElement Saved() const
    {
        QFile file(FileName());
        if (!file.open(QIODevice::ReadOnly))
            return QDomElement();
        QDomDocument document;
        document.setContent(file.readAll());
        return document.documentElement();
    }

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void init()
    {
        m_dir = std::make_unique<CurrentTemporaryDir>();
        QVERIFY2(m_dir->isValid(), qPrintable(m_dir->errorString()));
        m_os = std::make_unique<FakeZentOS>();
        ErrorHandler::Instance().ResetMessageMask(0);
        CfgCenter::SetUsage(CfgCenter::USAGE_2);
        QFile file(FileName());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(START);
        file.close();
        m_cfg = std::make_unique<OpenCfgXml>(FileName(), QStringLiteral("App"), ICfg::VIEW_User);
        m_cfg->OpenDocument(false);
        // The document configuration shares the document, in the machine
        // view, so that the machine name a save writes stays out of the user
        // partitions.
        m_doc = std::make_unique<OpenCfgXml>(m_cfg.get(), QStringLiteral("App"), ICfg::VIEW_Machine);
        CfgCenterTestAccess::SetAppCfg(m_cfg.get());
        CfgCenterTestAccess::SetDocCfg(m_doc.get());
        m_component = CountingComponent();
        CfgCenter::RegisterSaveComponent(&m_component);
    }

    void cleanup()
    {
        CfgCenter::UnregisterSaveComponent(&m_component);
        CfgCenterTestAccess::Reset();
        OpenCfgXml partitions(QString(), QString(), ICfg::VIEW_User);
        partitions.SetUserViewSubkey(QString());
        partitions.SetAdditionalUserViewSubkey({});
        m_doc.reset();
        m_cfg.reset();
        ErrorHandler::Instance().ResetMessageMask();
        m_os.reset();
        m_dir.reset();
    }

    void setUserViewSubkeyCreatesTheUsersPartitionAtOnce()
    {
        m_cfg->SetUserViewSubkey(QStringLiteral("Cleo Smith"));
        QCOMPARE(m_cfg->GetUsers(), (std::list<QString>{QStringLiteral("Ann"), QStringLiteral("Bob"),
                                                        QStringLiteral("Cleo.Smith")}));
        QCOMPARE(m_cfg->UsingUserConfiguration(), false);
        QVERIFY(m_cfg->GetAdditionalUserViewSubkey().empty());
        m_cfg->SaveDocument();
        QCOMPARE(At(Saved(), CONTAINER + QStringLiteral("/Cleo.Smith/App/U")).text(),
                 QStringLiteral("plain"));
    }

    void setUserViewSubkeyReactivatesTheUsersLastConfiguration()
    {
        m_cfg->SetUserViewSubkey(QStringLiteral("Ann"));
        QCOMPARE(m_cfg->GetAdditionalUserViewSubkey(), std::list<QString>{QStringLiteral("UC___X")});
        QCOMPARE(m_cfg->UsingUserConfiguration(), true);
        QCOMPARE(m_cfg->GetActiveUserConfiguraton(), QStringLiteral("X"));
        QCOMPARE(m_cfg->GetString(QStringLiteral("V"), QString()), QStringLiteral("x"));
        m_cfg->SetUserViewSubkey(QStringLiteral("Bob"));
        QVERIFY(m_cfg->GetAdditionalUserViewSubkey().empty());
        QCOMPARE(m_cfg->UsingUserConfiguration(), false);
        QCOMPARE(m_cfg->GetActiveUserConfiguraton(), QString());
    }

    void setUserViewSubkeyAsksTheCentreForTheApplication()
    {
        CfgCenterTestAccess::SetAppCfg(nullptr);
        CompareKVException(
            CaughtKVException([&] { m_cfg->SetUserViewSubkey(QStringLiteral("Ann")); }),
            QStringLiteral("CfgCenter::GetAppCfg() called, before calling CfgCenter::CfgCenter()"),
            QStringLiteral("configuration/cfgcenter"), QStringLiteral("CfgCenter"),
            QStringLiteral("GetAppCfg"));
    }

    void setAdditionalUserViewSubkeyBringsThePartitionsInLine()
    {
        m_cfg->SetUserViewSubkey(QStringLiteral("Ann"));
        m_cfg->SetAdditionalUserViewSubkey({QStringLiteral("P1"), QStringLiteral("P2")});
        QCOMPARE(m_cfg->GetAdditionalUserViewSubkey(),
                 (std::list<QString>{QStringLiteral("P1"), QStringLiteral("P2")}));
        m_cfg->SaveDocument();
        QCOMPARE(ChildrenAt(Saved(), CONTAINER + QStringLiteral("/Ann")),
                 QStringLiteral("UC___X[addSubKey],UC___Y[addSubKey],P1[addSubKey]"));
        QCOMPARE(ChildrenAt(Saved(), CONTAINER + QStringLiteral("/Ann/P1")), QStringLiteral("P2[addSubKey]"));
    }

    void setAdditionalUserViewSubkeyMarksAnExistingElementAsPartition()
    {
        m_cfg->SetUserViewSubkey(QStringLiteral("Bob"));
        m_cfg->SetAdditionalUserViewSubkey({QStringLiteral("Extra")});
        m_cfg->SaveDocument();
        QCOMPARE(ChildrenAt(Saved(), CONTAINER + QStringLiteral("/Bob")), QStringLiteral("Extra[addSubKey]"));
        QCOMPARE(m_cfg->GetString(QStringLiteral("V"), QString()), QStringLiteral("e"));
    }

    void setAdditionalUserViewSubkeyWithoutUserChangesNoPartition()
    {
        m_cfg->SaveDocument();
        const QString before = ChildrenAt(Saved(), CONTAINER);
        m_cfg->SetAdditionalUserViewSubkey({QStringLiteral("P1")});
        QCOMPARE(m_cfg->GetAdditionalUserViewSubkey(), std::list<QString>{QStringLiteral("P1")});
        m_cfg->SaveDocument();
        QCOMPARE(ChildrenAt(Saved(), CONTAINER), before);
    }

    void saveConfigurationNameSavesThroughTheCentre()
    {
        m_cfg->SetUserViewSubkey(QStringLiteral("Ann"));
        m_cfg->SaveConfigurationName(QStringLiteral("A"));
        m_cfg->SaveConfigurationName(QStringLiteral("B"));
        QCOMPARE(m_cfg->GetAdditionalUserViewSubkey(), std::list<QString>{QStringLiteral("UC___B")});
        QCOMPARE(m_component.saves, 2);
        const QDomElement saved = Saved();
        QCOMPARE(ChildrenAt(saved, CONTAINER + QStringLiteral("/Ann")),
                 QStringLiteral("UC___X[addSubKey],UC___Y[addSubKey],UC___A[addSubKey],UC___B[addSubKey]"));
        QCOMPARE(At(saved, CONTAINER + QStringLiteral("/Ann")).attribute(QStringLiteral("ActiveUser")),
                 QStringLiteral("UC___B"));
        QCOMPARE(At(saved, CONTAINER + QStringLiteral("/Ann/UC___B"))
                     .attribute(QStringLiteral("UserConfiguration")),
                 QStringLiteral("active"));
        QCOMPARE(m_cfg->GetUserConfigurations(),
                 (std::list<QString>{QStringLiteral("X"), QStringLiteral("Y"), QStringLiteral("A"),
                                     QStringLiteral("B")}));
    }

    void loadConfigurationNameSwitchesAndReloads()
    {
        m_cfg->SetUserViewSubkey(QStringLiteral("Ann"));
        m_cfg->LoadConfigurationName(QStringLiteral("Y"));
        QCOMPARE(m_cfg->GetAdditionalUserViewSubkey(), std::list<QString>{QStringLiteral("UC___Y")});
        QCOMPARE(m_cfg->UsingUserConfiguration(), true);
        QCOMPARE(m_component.reloads, 1);
        QCOMPARE(m_cfg->GetActiveUserConfiguraton(), QStringLiteral("Y"));
        QCOMPARE(m_cfg->GetString(QStringLiteral("V"), QString()), QStringLiteral("y"));
        m_cfg->SaveDocument();
        QCOMPARE(At(Saved(), CONTAINER + QStringLiteral("/Ann")).attribute(QStringLiteral("ActiveUser")),
                 QStringLiteral("UC___Y"));
    }

    void loadConfigurationNameOfAnUnknownNameDoesNothing()
    {
        m_cfg->SetUserViewSubkey(QStringLiteral("Ann"));
        m_cfg->LoadConfigurationName(QStringLiteral("y"));
        m_cfg->LoadConfigurationName(QStringLiteral("Nope"));
        QCOMPARE(m_cfg->GetAdditionalUserViewSubkey(), std::list<QString>{QStringLiteral("UC___X")});
        QCOMPARE(m_component.reloads, 0);
        QCOMPARE(m_cfg->GetActiveUserConfiguraton(), QStringLiteral("X"));
    }

    void renameConfigurationName()
    {
        m_cfg->SetUserViewSubkey(QStringLiteral("Ann"));
        m_cfg->RenameConfigurationName(QStringLiteral("Y"), QStringLiteral("Q"));
        QCOMPARE(m_cfg->GetAdditionalUserViewSubkey(), std::list<QString>{QStringLiteral("UC___X")});
        m_cfg->RenameConfigurationName(QStringLiteral("X"), QStringLiteral("W"));
        QCOMPARE(m_cfg->GetAdditionalUserViewSubkey(), std::list<QString>{QStringLiteral("UC___W")});
        QCOMPARE(m_cfg->GetString(QStringLiteral("V"), QString()), QStringLiteral("x"));
        QCOMPARE(m_cfg->GetUserConfigurations(),
                 (std::list<QString>{QStringLiteral("W"), QStringLiteral("Q")}));
    }

    // The configuration is saved marked "delete" for the listeners, then
    // removed; the list of partitions is left as it is.
    void deleteConfigurationNameDoesWhatItSaysAndNoMore()
    {
        m_cfg->SetUserViewSubkey(QStringLiteral("Ann"));
        m_cfg->DeleteConfigurationName(QStringLiteral("X"));
        QCOMPARE(m_component.saves, 1);
        QCOMPARE(At(Saved(), CONTAINER + QStringLiteral("/Ann/UC___X"))
                     .attribute(QStringLiteral("UserConfiguration")),
                 QStringLiteral("delete"));
        QCOMPARE(m_cfg->GetUserConfigurations(), std::list<QString>{QStringLiteral("Y")});
        QCOMPARE(m_cfg->UsingUserConfiguration(), true);
        QCOMPARE(m_cfg->GetAdditionalUserViewSubkey(), std::list<QString>{QStringLiteral("UC___X")});
        m_cfg->SaveDocument();
        QCOMPARE(ChildrenAt(Saved(), CONTAINER + QStringLiteral("/Ann")),
                 QStringLiteral("UC___Y[addSubKey]"));
    }

    void deleteConfigurationNameOfAnUnknownNameSavesNothing()
    {
        m_cfg->SetUserViewSubkey(QStringLiteral("Ann"));
        m_cfg->DeleteConfigurationName(QStringLiteral("Nope"));
        QCOMPARE(m_component.saves, 0);
        QCOMPARE(m_cfg->GetUserConfigurations(),
                 (std::list<QString>{QStringLiteral("X"), QStringLiteral("Y")}));
    }

    void configurationNamesThatCannotBeElementsAreRefused()
    {
        m_cfg->SetUserViewSubkey(QStringLiteral("Ann"));
        CompareKVException(
            CaughtKVException([&] { m_cfg->SaveConfigurationName(QStringLiteral("my settings")); }),
            QStringLiteral("The configuration \"my settings\" was not stored: \"UC___my settings\" "
                           "cannot be an XML element name."),
            QStringLiteral("configuration/cfgxml"), QStringLiteral("CfgXml"),
            QStringLiteral("SaveConfigurationName"));
        CompareKVException(
            CaughtKVException(
                [&] { m_cfg->RenameConfigurationName(QStringLiteral("Y"), QStringLiteral("a/b")); }),
            QStringLiteral(
                "The configuration \"a/b\" was not stored: \"UC___a/b\" cannot be an XML element name."),
            QStringLiteral("configuration/cfgxml"), QStringLiteral("CfgXml"),
            QStringLiteral("RenameConfigurationName"));
        QCOMPARE(m_cfg->GetAdditionalUserViewSubkey(), std::list<QString>{QStringLiteral("UC___X")});
        QCOMPARE(m_cfg->GetUserConfigurations(),
                 (std::list<QString>{QStringLiteral("X"), QStringLiteral("Y")}));
        QCOMPARE(m_component.saves, 0);
    }

    void userConfigurationsNeedAUser()
    {
        QVERIFY(m_cfg->GetUserConfigurations().empty());
        QCOMPARE(m_cfg->GetActiveUserConfiguraton(), QString());
        QCOMPARE(m_cfg->UsingUserConfiguration(), false);
    }

    void usersAreListedAndDeleted()
    {
        QCOMPARE(m_cfg->GetUsers(), (std::list<QString>{QStringLiteral("Ann"), QStringLiteral("Bob")}));
        m_cfg->DeleteUser(QStringLiteral("UC___X"));
        m_cfg->DeleteUser(QStringLiteral("Bob"));
        QCOMPARE(m_cfg->GetUsers(), std::list<QString>{QStringLiteral("Ann")});
        m_cfg->SaveDocument();
        QCOMPARE(ChildrenAt(Saved(), CONTAINER), QStringLiteral("Ann[loginUser]"));
    }
};

QTEST_GUILESS_MAIN(tst_CfgXmlUsers)
#include "tst_cfgxmlusers.moc"
