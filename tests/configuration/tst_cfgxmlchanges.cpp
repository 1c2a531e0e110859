// Every change of a CfgXml document reaches the disk with the next save, and
// a save after nothing but reads writes nothing.

#include "common/scopedcurrentdir.h"
#include "configuration/cfgcentertestaccess.h"
#include "configuration/cfgxml.h"
#include "configuration/fakezentos.h"
#include "kvbase/errorhandler.h"

#include <QDir>
#include <QDomDocument>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QtTest>
#include <functional>
#include <memory>
#include <sys/stat.h>
#include <vector>

namespace {

/// CfgXml with its protected save opened for tests.
class OpenCfgXml : public CfgXml
{
public:
    using CfgXml::CfgXml;
    using CfgXml::IsStringWritable;
    using CfgXml::SaveDocument;
};

const QByteArray START =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
    "<Cfg version=\"2.2\">"
    "<System><App><S>1</S></App></System>"
    "<Domain><App><D>1</D></App></Domain>"
    "<Machine><App>"
    "<A protected=\"true\" type=\"string\">1</A>"
    "<Plain>text</Plain>"
    "<Sub><B type=\"string\">2</B></Sub>"
    "</App></Machine>"
    "<Export><App><E>1</E></App></Export>"
    "<User><App><U>1</U></App>"
    "<xyZ9Subkey1Zxy>"
    "<Ann nodeType=\"loginUser\" ActiveUser=\"UC___X\">"
    "<UC___X nodeType=\"addSubKey\" UserConfiguration=\"active\"><App><V>x</V></App></UC___X>"
    "<UC___Y nodeType=\"addSubKey\" UserConfiguration=\"active\"><App><V>y</V></App></UC___Y>"
    "</Ann>"
    "<Bob nodeType=\"loginUser\"/>"
    "</xyZ9Subkey1Zxy>"
    "</User></Cfg>\n";

/// The element at a path of tag names separated by "/" below the root.
QDomElement At(const QDomElement& root, const QString& path)
{
    QDomElement element = root;
    for (const QString& tag : path.split(QLatin1Char('/')))
        element = element.firstChildElement(tag);
    return element;
}

/// The text of the element at `path`, or "<none>" when it is missing.
QString TextAt(const QDomElement& root, const QString& path)
{
    const QDomElement element = At(root, path);
    return element.isNull() ? QStringLiteral("<none>") : element.text();
}

/// An attribute of the element at `path`, or "<none>" when either is missing.
QString AttributeAt(const QDomElement& root, const QString& path, const QString& name)
{
    const QDomElement element = At(root, path);
    return element.hasAttribute(name) ? element.attribute(name) : QStringLiteral("<none>");
}

/// The tag names of the children of the element at `path`, joined by ",".
QString ChildrenAt(const QDomElement& root, const QString& path)
{
    QStringList names;
    for (QDomElement child = At(root, path).firstChildElement(); !child.isNull();
         child = child.nextSiblingElement())
        names.append(child.tagName());
    return names.join(QLatin1Char(','));
}

const QString ANN = QStringLiteral("User/xyZ9Subkey1Zxy/Ann");

struct Change
{
    QByteArray name;
    /// Runs before the save that the change must not be hidden behind.
    std::function<void(OpenCfgXml&)> prepare;
    std::function<void(OpenCfgXml&)> change;
    /// What the saved file (and its backup) show of the change.
    std::function<QString(const QDomElement& saved, const QDomElement& backup)> probe;
    QString expected;
    /// Whether the file differs from `expected` already before the change
    /// (a restore changes the file, not the document).
    bool changesTheDocument = true;
};

void NoPreparation(OpenCfgXml&) {}

void SelectAnn(OpenCfgXml& cfg)
{
    cfg.SetUserViewSubkey(QStringLiteral("Ann"));
}

std::vector<Change> SetterChanges()
{
    std::vector<Change> changes;
    for (const ICfg::View view :
         {ICfg::VIEW_User, ICfg::VIEW_Machine, ICfg::VIEW_Domain, ICfg::VIEW_System, ICfg::VIEW_Export}) {
        const QString viewName = ICfg::GetViewAsString(view);
        const QString path = viewName + QStringLiteral("/App/N");
        const auto probe = [path](const QDomElement& saved, const QDomElement&) {
            return TextAt(saved, path) + QLatin1Char(' ') + AttributeAt(saved, path, QStringLiteral("type"));
        };
        changes.push_back(
            {"set_string_" + viewName.toLatin1().toLower(), NoPreparation,
             [view](OpenCfgXml& cfg) { cfg.SetString(QStringLiteral("N"), QStringLiteral("s"), view); },
             probe, QStringLiteral("s string")});
        changes.push_back({"set_integer_" + viewName.toLatin1().toLower(), NoPreparation,
                           [view](OpenCfgXml& cfg) { cfg.SetInteger(QStringLiteral("N"), -42, view); }, probe,
                           QStringLiteral("-42 integer")});
        changes.push_back({"set_boolean_" + viewName.toLatin1().toLower(), NoPreparation,
                           [view](OpenCfgXml& cfg) { cfg.SetBoolean(QStringLiteral("N"), false, view); },
                           probe, QStringLiteral("false boolean")});
    }
    return changes;
}

const std::vector<Change>& Changes()
{
    static const std::vector<Change> changes = [] {
        std::vector<Change> all = SetterChanges();
        const std::vector<Change> others = {
            {"set_existing_value", NoPreparation,
             [](OpenCfgXml& cfg) { cfg.SetString(QStringLiteral("A"), QStringLiteral("changed")); },
             [](const QDomElement& saved, const QDomElement&) { return TextAt(saved, "Machine/App/A"); },
             QStringLiteral("changed")},
            {"set_own_text", NoPreparation,
             [](OpenCfgXml& cfg) { cfg.SetString(QString(), QStringLiteral("own")); },
             [](const QDomElement& saved, const QDomElement&) {
                 QDomNode child = At(saved, "Machine/App").firstChild();
                 while (!child.isNull() && !child.isText())
                     child = child.nextSibling();
                 return child.nodeValue();
             },
             QStringLiteral("own")},
            {"set_through_sub_cfg", NoPreparation,
             [](OpenCfgXml& cfg) {
                 std::unique_ptr<ICfg> sub(cfg.CreateSubCfg(QStringLiteral("Sub")));
                 sub->SetString(QStringLiteral("B"), QStringLiteral("changed"));
             },
             [](const QDomElement& saved, const QDomElement&) { return TextAt(saved, "Machine/App/Sub/B"); },
             QStringLiteral("changed")},
            {"set_through_enumerated_sub_cfg", NoPreparation,
             [](OpenCfgXml& cfg) {
                 std::unique_ptr<ICfg> sub(cfg.CreateSubCfgAt(0));
                 sub->SetInteger(QStringLiteral("B"), 7);
             },
             [](const QDomElement& saved, const QDomElement&) { return TextAt(saved, "Machine/App/Sub/B"); },
             QStringLiteral("7")},
            {"set_protected", NoPreparation,
             [](OpenCfgXml& cfg) { cfg.SetProtected(QStringLiteral("A"), false); },
             [](const QDomElement& saved, const QDomElement&) {
                 return AttributeAt(saved, "Machine/App/A", "protected");
             },
             QStringLiteral("false")},
            {"set_attribute_type", NoPreparation,
             [](OpenCfgXml& cfg) { cfg.SetAttributeType(QStringLiteral("A"), ICfg::TYPE_Boolean); },
             [](const QDomElement& saved, const QDomElement&) {
                 return AttributeAt(saved, "Machine/App/A", "type");
             },
             QStringLiteral("boolean")},
            {"get_attribute_type_writes_the_derived_type", NoPreparation,
             [](OpenCfgXml& cfg) { cfg.GetAttributeType(QStringLiteral("Plain")); },
             [](const QDomElement& saved, const QDomElement&) {
                 return AttributeAt(saved, "Machine/App/Plain", "type");
             },
             QStringLiteral("string")},
            {"remove_attribute", NoPreparation,
             [](OpenCfgXml& cfg) { cfg.RemoveAttribute(QStringLiteral("A")); },
             [](const QDomElement& saved, const QDomElement&) { return ChildrenAt(saved, "Machine/App"); },
             QStringLiteral("Plain,Sub,name")},
            {"rename_attribute", NoPreparation,
             [](OpenCfgXml& cfg) { cfg.RenameAttribute(QStringLiteral("A"), QStringLiteral("Z")); },
             [](const QDomElement& saved, const QDomElement&) { return ChildrenAt(saved, "Machine/App"); },
             QStringLiteral("Z,Plain,Sub,name")},
            {"add_sub_cfg", NoPreparation, [](OpenCfgXml& cfg) { cfg.AddSubCfg(QStringLiteral("New")); },
             [](const QDomElement& saved, const QDomElement&) { return ChildrenAt(saved, "Machine/App"); },
             QStringLiteral("A,Plain,Sub,name,New")},
            {"remove_sub_cfg", NoPreparation,
             [](OpenCfgXml& cfg) { cfg.RemoveSubCfg(QStringLiteral("Sub")); },
             [](const QDomElement& saved, const QDomElement&) { return ChildrenAt(saved, "Machine/App"); },
             QStringLiteral("A,Plain,name")},
            {"move_sub_cfg", NoPreparation,
             [](OpenCfgXml& cfg) { cfg.MoveSubCfg(QStringLiteral("Sub"), QStringLiteral("Moved")); },
             [](const QDomElement& saved, const QDomElement&) { return ChildrenAt(saved, "Machine/App"); },
             QStringLiteral("A,Plain,name,Moved")},
            {"merge_changed_value", NoPreparation,
             [](OpenCfgXml& cfg) {
                 cfg.MergeCfgFromStringAndApp("<Cfg><Machine><App><A>merged</A></App></Machine></Cfg>",
                                              QStringLiteral("App"));
             },
             [](const QDomElement& saved, const QDomElement&) { return TextAt(saved, "Machine/App/A"); },
             QStringLiteral("merged")},
            {"merge_new_value", NoPreparation,
             [](OpenCfgXml& cfg) {
                 cfg.MergeCfgFromStringAndApp("<Cfg><Domain><App><M>3</M></App></Domain></Cfg>",
                                              QStringLiteral("App"));
             },
             [](const QDomElement& saved, const QDomElement&) { return TextAt(saved, "Domain/App/M"); },
             QStringLiteral("3")},
            {"merge_type_only", NoPreparation,
             [](OpenCfgXml& cfg) {
                 cfg.MergeCfgFromStringAndApp(
                     "<Cfg><Machine><App><A type=\"integer\">1</A></App></Machine></Cfg>",
                     QStringLiteral("App"));
             },
             [](const QDomElement& saved, const QDomElement&) {
                 return AttributeAt(saved, "Machine/App/A", "type");
             },
             QStringLiteral("integer")},
            {"restore_backup",
             [](OpenCfgXml& cfg) {
                 cfg.SetString(QStringLiteral("A"), QStringLiteral("kept"));
                 cfg.SaveDocument();
             },
             [](OpenCfgXml& cfg) { cfg.RestoreBackup(); },
             [](const QDomElement& saved, const QDomElement&) { return TextAt(saved, "Machine/App/A"); },
             QStringLiteral("kept"), false},
            {"assign_defaults", [](OpenCfgXml& cfg) { cfg.SetProtected(QStringLiteral("Plain"), true); },
             [](OpenCfgXml& cfg) { cfg.AssignDefaults(); },
             [](const QDomElement& saved, const QDomElement&) {
                 return AttributeAt(saved, "Machine/App/Plain", "type");
             },
             QStringLiteral("string")},
            {"save_configuration_name", SelectAnn,
             [](OpenCfgXml& cfg) { cfg.SaveConfigurationName(QStringLiteral("Z")); },
             [](const QDomElement& saved, const QDomElement&) {
                 return ChildrenAt(saved, ANN) + QLatin1Char(' ') + AttributeAt(saved, ANN, "ActiveUser");
             },
             QStringLiteral("UC___X,UC___Y,UC___Z UC___Z")},
            {"load_configuration_name", SelectAnn,
             [](OpenCfgXml& cfg) { cfg.LoadConfigurationName(QStringLiteral("Y")); },
             [](const QDomElement& saved, const QDomElement&) {
                 return AttributeAt(saved, ANN, "ActiveUser");
             },
             QStringLiteral("UC___Y")},
            {"rename_configuration_name", SelectAnn,
             [](OpenCfgXml& cfg) { cfg.RenameConfigurationName(QStringLiteral("Y"), QStringLiteral("W")); },
             [](const QDomElement& saved, const QDomElement&) { return ChildrenAt(saved, ANN); },
             QStringLiteral("UC___X,UC___W")},
            // The configuration is saved marked before it goes, so the backup
            // of the last save shows the mark.
            {"delete_configuration_name", SelectAnn,
             [](OpenCfgXml& cfg) { cfg.DeleteConfigurationName(QStringLiteral("Y")); },
             [](const QDomElement& saved, const QDomElement& backup) {
                 return ChildrenAt(saved, ANN) + QLatin1Char(' ') +
                        AttributeAt(backup, ANN + QStringLiteral("/UC___Y"), "UserConfiguration");
             },
             QStringLiteral("UC___X delete")},
            {"set_user_view_subkey", NoPreparation,
             [](OpenCfgXml& cfg) { cfg.SetUserViewSubkey(QStringLiteral("Cleo")); },
             [](const QDomElement& saved, const QDomElement&) {
                 return ChildrenAt(saved, "User/xyZ9Subkey1Zxy");
             },
             QStringLiteral("Ann,Bob,Cleo")},
            {"set_additional_user_view_subkey", SelectAnn,
             [](OpenCfgXml& cfg) { cfg.SetAdditionalUserViewSubkey({QStringLiteral("P")}); },
             [](const QDomElement& saved, const QDomElement&) { return ChildrenAt(saved, ANN); },
             QStringLiteral("UC___X,UC___Y,P")},
            {"delete_user", NoPreparation, [](OpenCfgXml& cfg) { cfg.DeleteUser(QStringLiteral("Bob")); },
             [](const QDomElement& saved, const QDomElement&) {
                 return ChildrenAt(saved, "User/xyZ9Subkey1Zxy");
             },
             QStringLiteral("Ann")},
            {"write_in_a_new_user_partition",
             [](OpenCfgXml& cfg) { cfg.SetUserViewSubkey(QStringLiteral("Cleo")); },
             [](OpenCfgXml& cfg) {
                 cfg.SetString(QStringLiteral("U"), QStringLiteral("c"), ICfg::VIEW_User);
             },
             [](const QDomElement& saved, const QDomElement&) {
                 return TextAt(saved, "User/xyZ9Subkey1Zxy/Cleo/App/U");
             },
             QStringLiteral("c")},
        };
        all.insert(all.end(), others.begin(), others.end());
        return all;
    }();
    return changes;
}

struct FileState
{
    bool exists = false;
    quint64 inode = 0;
    qint64 size = 0;
    qint64 mtimeSeconds = 0;
    qint64 mtimeNanoseconds = 0;
    bool operator==(const FileState& other) const
    {
        return exists == other.exists && inode == other.inode && size == other.size &&
               mtimeSeconds == other.mtimeSeconds && mtimeNanoseconds == other.mtimeNanoseconds;
    }
};

FileState StateOf(const QString& fileName)
{
    FileState state;
    struct stat buffer;
    if (::stat(QFile::encodeName(fileName).constData(), &buffer) != 0)
        return state;
    state.exists = true;
    state.inode = quint64(buffer.st_ino);
    state.size = qint64(buffer.st_size);
    state.mtimeSeconds = qint64(buffer.st_mtim.tv_sec);
    state.mtimeNanoseconds = qint64(buffer.st_mtim.tv_nsec);
    return state;
}

} // namespace

class tst_CfgXmlChanges : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<CurrentTemporaryDir> m_dir;
    std::unique_ptr<FakeZentOS> m_os;

    QString Path(const QString& name) const { return m_dir->filePath(name); }

    static QDomElement Parse(const QString& fileName)
    {
        QFile file(fileName);
        if (!file.open(QIODevice::ReadOnly))
            return QDomElement();
        QDomDocument document;
        document.setContent(file.readAll());
        return document.documentElement();
    }

    std::unique_ptr<OpenCfgXml> Open()
    {
        QFile file(Path(QStringLiteral("Cfg.xml")));
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return nullptr;
        file.write(START);
        file.close();
        auto cfg = std::make_unique<OpenCfgXml>(Path(QStringLiteral("Cfg.xml")), QStringLiteral("App"),
                                                ICfg::VIEW_Machine);
        cfg->OpenDocument(true);
        // Named configurations save through the centre.
        CfgCenterTestAccess::SetAppCfg(cfg.get());
        CfgCenterTestAccess::SetDocCfg(cfg.get());
        CfgCenter::SetUsage(CfgCenter::USAGE_2);
        return cfg;
    }

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void init()
    {
        m_dir = std::make_unique<CurrentTemporaryDir>();
        QVERIFY2(m_dir->isValid(), qPrintable(m_dir->errorString()));
        m_os = std::make_unique<FakeZentOS>();
        m_os->time = 5000;
        ErrorHandler::Instance().ResetMessageMask(0);
    }

    void cleanup()
    {
        CfgCenterTestAccess::Reset();
        OpenCfgXml partitions(QString(), QString(), ICfg::VIEW_User);
        partitions.SetUserViewSubkey(QString());
        partitions.SetAdditionalUserViewSubkey({});
        ErrorHandler::Instance().ResetMessageMask();
        m_os.reset();
        m_dir.reset();
    }

    void everyChangeIsSaved_data()
    {
        QTest::addColumn<int>("index");
        for (size_t i = 0; i < Changes().size(); ++i)
            QTest::newRow(Changes()[i].name.constData()) << int(i);
    }

    void everyChangeIsSaved()
    {
        QFETCH(int, index);
        const Change& change = Changes()[size_t(index)];
        auto cfg = Open();
        QVERIFY(cfg);
        change.prepare(*cfg);
        cfg->SaveDocument();
        cfg->SaveDocument();
        const QString fileName = Path(QStringLiteral("Cfg.xml"));
        const auto probeBefore = [&] {
            const QString before = change.probe(Parse(fileName), Parse(fileName + QStringLiteral(".bak")));
            QVERIFY2(before != change.expected, qPrintable(before));
        };
        if (change.changesTheDocument)
            probeBefore();
        m_os->time += 10;
        change.change(*cfg);
        if (!change.changesTheDocument)
            probeBefore();
        cfg->SaveDocument();
        QCOMPARE(change.probe(Parse(fileName), Parse(fileName + QStringLiteral(".bak"))), change.expected);
        // The saved file is the document: opened again it saves nothing new.
        const QByteArray saved = [&] {
            QFile file(fileName);
            return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
        }();
        cfg->SaveDocument();
        QFile file(fileName);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), saved);
    }

    void readsAndEnumerationsWriteNothing_data()
    {
        QTest::addColumn<int>("usage");
        QTest::newRow("one_file") << int(CfgCenter::USAGE_2);
        QTest::newRow("side_files") << int(CfgCenter::USAGE_0);
    }

    void readsAndEnumerationsWriteNothing()
    {
        QFETCH(int, usage);
        auto cfg = Open();
        QVERIFY(cfg);
        CfgCenter::SetUsage(CfgCenter::CfgCenterUsage(usage));
        cfg->SetUserViewSubkey(QStringLiteral("Ann"));
        cfg->SaveDocument();
        // The first reads stamp the nodes they walk for the first time; the
        // save after them writes those stamps.
        ReadEverything(cfg.get());
        cfg->SaveDocument();
        QStringList names;
        for (const QString& name :
             {QStringLiteral("Cfg.xml"), QStringLiteral("Cfg.usr.xml"), QStringLiteral("Cfg.exp.xml")}) {
            names.append(Path(name));
            names.append(Path(name + QStringLiteral(".bak")));
        }
        std::vector<FileState> states;
        for (const QString& name : names)
            states.push_back(StateOf(name));
        QVERIFY(states[0].exists);
        QVERIFY(states[1].exists);
        QCOMPARE(states[2].exists, usage == CfgCenter::USAGE_0);
        QCOMPARE(states[4].exists, usage == CfgCenter::USAGE_0);
        const int syncs = m_os->syncedFiles.size();
        m_os->time += 10;
        ReadEverything(cfg.get());
        cfg->SaveDocument();
        cfg->SaveDocument();
        for (int i = 0; i < names.size(); ++i)
            QVERIFY2(StateOf(names[i]) == states[size_t(i)], qPrintable(names[i]));
        QCOMPARE(m_os->syncedFiles.size(), syncs);
    }

    // Attributes in many orders: the hash that Qt keeps them in is seeded
    // per process.
    void sameContentSavesTheSameBytesInEveryProcess()
    {
        QByteArray elements;
        for (int i = 0; i < 20; ++i)
            elements += "<V" + QByteArray::number(i) +
                        " zeta=\"z\" alpha=\"a&quot;>\" mid=\"m\" beta=\"b\" protected=\"true\" "
                        "type=\"string\" ts=\"1\">" +
                        QByteArray::number(i) + "</V" + QByteArray::number(i) + ">";
        const QByteArray content = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Cfg version=\"2.2\">"
                                   "<System/><Domain/><Machine><App b=\"1\" a=\"2\" c=\"3\">" +
                                   elements +
                                   "</App></Machine><Export/><User><App b=\"1\" a=\"2\" c=\"3\" d=\"4\">" +
                                   elements + "</App></User></Cfg>\n";
        QStringList saved;
        for (const QString& folder : {QStringLiteral("first"), QStringLiteral("second")}) {
            QVERIFY(QDir(m_dir->path()).mkdir(folder));
            const QString fileName = Path(folder + QStringLiteral("/Cfg.xml"));
            QFile file(fileName);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(content);
            file.close();
            QProcess helper;
            helper.setWorkingDirectory(Path(folder));
            QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
            environment.remove(QStringLiteral("QT_HASH_SEED"));
            helper.setProcessEnvironment(environment);
            helper.start(
                QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("cfgxmlsavehelper")),
                {fileName});
            QVERIFY2(helper.waitForFinished(30000), qPrintable(helper.errorString()));
            QCOMPARE(helper.readAllStandardError(), QByteArray());
            QCOMPARE(helper.exitCode(), 0);
            saved.append(fileName);
        }
        for (const QString& suffix : {QString(), QStringLiteral(".exchange")}) {
            const QByteArray first = ReadAll(saved[0] + suffix);
            QCOMPARE(ReadAll(saved[1] + suffix), first);
            QVERIFY(first.contains("<V7 alpha=\"a&quot;>\" beta=\"b\" mid=\"m\" protected=\"true\" ts=\"1\" "
                                   "type=\"string\" zeta=\"z\">7</V7>"));
        }
        const QByteArray user = ReadAll(Path(QStringLiteral("first/Cfg.usr.xml")));
        QVERIFY(user.contains("<App a=\"2\" b=\"1\" c=\"3\" d=\"4\">"));
        QCOMPARE(ReadAll(Path(QStringLiteral("second/Cfg.usr.xml"))), user);
    }

    // Only start tags are touched: comments, character data and processing
    // instructions that look like tags stay as they are.
    void sortingTouchesOnlyStartTags()
    {
        const QByteArray content =
            "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Cfg version=\"2.2\"><System/><Domain/><Machine>"
            "<!-- <X b=\"1\" a=\"2\"> -->"
            "<App z=\"1\" y=\"&lt;&gt;&quot;&amp;\" x=\"3\"><V c=\"1\" b=\"2\"><![CDATA[<Y b=\"1\" "
            "a=\"2\">]]></V>"
            "<?pi b=\"1\" a=\"2\"?><Empty q=\"1\" p=\"2\"/></App></Machine></Cfg>\n";
        QFile file(Path(QStringLiteral("Cfg.xml")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(content);
        file.close();
        OpenCfgXml cfg(Path(QStringLiteral("Cfg.xml")), QStringLiteral("App"), ICfg::VIEW_Machine);
        CfgXml::SetTimeStampsEnabled(false);
        cfg.OpenDocument(false);
        cfg.SaveDocument();
        CfgXml::SetTimeStampsEnabled(true);
        QCOMPARE(ReadAll(Path(QStringLiteral("Cfg.xml"))),
                 QByteArray("<?xml version='1.0' encoding='utf-8'?>\n"
                            "<Cfg version=\"2.2\">\n"
                            "    <System/>\n"
                            "    <Domain/>\n"
                            "    <Machine>\n"
                            "        <!-- <X b=\"1\" a=\"2\"> -->\n"
                            "        <App x=\"3\" y=\"&lt;>&quot;&amp;\" z=\"1\">\n"
                            "            <V b=\"2\" c=\"1\"><![CDATA[<Y b=\"1\" a=\"2\">]]></V>\n"
                            "<?pi b=\"1\" a=\"2\"?>\n"
                            "            <Empty p=\"2\" q=\"1\"/>\n"
                            "        </App>\n"
                            "    </Machine>\n"
                            "</Cfg>\n"));
    }

private:
    static QByteArray ReadAll(const QString& fileName)
    {
        QFile file(fileName);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
    }

    static void ReadEverything(OpenCfgXml* cfg)
    {
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QString()), QStringLiteral("1"));
        QCOMPARE(cfg->GetInteger(QStringLiteral("Sub\\B"), 0), 2L);
        QCOMPARE(cfg->GetBoolean(QStringLiteral("Missing"), true), true);
        for (const ICfg::View view :
             {ICfg::VIEW_User, ICfg::VIEW_Machine, ICfg::VIEW_Domain, ICfg::VIEW_System, ICfg::VIEW_Export})
            QCOMPARE(cfg->GetString(QStringLiteral("Missing\\Value"), QStringLiteral("d"), view),
                     QStringLiteral("d"));
        QCOMPARE(cfg->GetString(QStringLiteral("V"), QString(), ICfg::VIEW_User), QStringLiteral("x"));
        QCOMPARE(cfg->HasAttribute(QString(), QStringLiteral("A")), true);
        QCOMPARE(cfg->HasSubCfg(QStringLiteral("Sub")), true);
        QCOMPARE(cfg->HasSubCfg(QStringLiteral("None")), false);
        QCOMPARE(cfg->IsProtected(QStringLiteral("A")), true);
        QCOMPARE(cfg->GetAttributeType(QStringLiteral("A")), ICfg::TYPE_String);
        QCOMPARE(cfg->IsStringWritable(QStringLiteral("A"), ICfg::VIEW_Machine), true);
        QStringList values;
        for (int i = 0; !cfg->GetValueKeyAt(i).isEmpty(); ++i)
            values.append(cfg->GetValueKeyAt(i));
        QCOMPARE(values, (QStringList{QStringLiteral("A"), QStringLiteral("Plain"), QStringLiteral("name")}));
        std::unique_ptr<ICfg> first(cfg->CreateSubCfgAt(0));
        QVERIFY(first);
        QCOMPARE(first->GetPartialKey(), QStringLiteral("Sub"));
        std::unique_ptr<ICfg> none(cfg->CreateSubCfgAt(1));
        QVERIFY(!none);
        std::unique_ptr<ICfg> missing(cfg->CreateSubCfg(QStringLiteral("None")));
        QVERIFY(!missing);
        QCOMPARE(cfg->GetUserConfigurations(),
                 (std::list<QString>{QStringLiteral("X"), QStringLiteral("Y")}));
        QCOMPARE(cfg->GetUsers(), (std::list<QString>{QStringLiteral("Ann"), QStringLiteral("Bob")}));
        QCOMPARE(cfg->GetActiveUserConfiguraton(), QStringLiteral("X"));
        QCOMPARE(cfg->UsingUserConfiguration(), true);
        QVERIFY(cfg->GetCfgAsStringFromApp(QStringLiteral("App")).contains("<A "));
        // Setting what is already there is a read, too.
        cfg->SetString(QStringLiteral("A"), QStringLiteral("1"));
    }
};

QTEST_GUILESS_MAIN(tst_CfgXmlChanges)
#include "tst_cfgxmlchanges.moc"
