#include "common/kvexceptioncheck.h"
#include "common/recordingwriter.h"
#include "common/scopedcurrentdir.h"
#include "configuration/cfgcentertestaccess.h"
#include "configuration/cfgxml.h"
#include "configuration/cfgxml_p.h"
#include "configuration/fakezentos.h"
#include "kvbase/errorhandler.h"
#include "kvbase/kvexception.h"

#include <QDir>
#include <QDomDocument>
#include <QFile>
#include <QMutex>
#include <QTemporaryDir>
#include <QtTest>
#include <functional>
#include <memory>

namespace {

/// CfgXml with its protected save opened for tests.
class OpenCfgXml : public CfgXml
{
public:
    using CfgXml::CfgXml;
    using CfgXml::GetVersion;
    using CfgXml::SaveDocument;
};

const QByteArray MAIN = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                        "<Cfg version=\"2.2\"><System/><Domain/><Machine/><Export/></Cfg>\n";

QByteArray Document(const QByteArray& views, const QByteArray& rootAttributes = " version=\"2.2\"")
{
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Cfg" + rootAttributes + ">" + views + "</Cfg>\n";
}

QByteArray Utf16(const QString& text)
{
    return QByteArray(reinterpret_cast<const char*>(text.utf16()), text.size() * 2);
}

QDomElement ParseElement(const QByteArray& bytes)
{
    QDomDocument document;
    document.setContent(bytes);
    return document.documentElement();
}

} // namespace

class tst_CfgXml : public QObject
{
    Q_OBJECT

private:
    // The export side file falls back to the current folder.
    std::unique_ptr<CurrentTemporaryDir> m_dir;
    std::unique_ptr<FakeZentOS> m_os;
    QStringList m_traces;
    QStringList m_messages;

    QString Path(const QString& name) const { return m_dir->filePath(name); }

    static void Write(const QString& fileName, const QByteArray& bytes)
    {
        QFile file(fileName);
        QVERIFY2(file.open(QIODevice::WriteOnly | QIODevice::Truncate), qPrintable(fileName));
        file.write(bytes);
    }

    static QByteArray Read(const QString& fileName)
    {
        QFile file(fileName);
        if (!file.open(QIODevice::ReadOnly))
            return QByteArray("<missing>");
        return file.readAll();
    }

    /// Opens `bytes` written as Cfg.xml in the test's folder.
    std::unique_ptr<OpenCfgXml> Open(const QByteArray& bytes, const QString& key = QStringLiteral("App"),
                                     ICfg::View view = ICfg::VIEW_Machine)
    {
        Write(Path(QStringLiteral("Cfg.xml")), bytes);
        auto cfg = std::make_unique<OpenCfgXml>(Path(QStringLiteral("Cfg.xml")), key, view);
        cfg->OpenDocument(true);
        return cfg;
    }

    static void CompareException(const std::function<void()>& call, const QString& message,
                                 const QString& operation)
    {
        CompareKVException(CaughtKVException(call), message, QStringLiteral("configuration/cfgxml"),
                           QStringLiteral("CfgXml"), operation, /*checkLine=*/false);
    }

    /// Opening `cfg` fails because Cfg.xml does not exist.
    void CompareMissingFileException(OpenCfgXml& cfg) const
    {
        CompareException([&] { cfg.OpenDocument(true); },
                         QStringLiteral("The configuration file \"") + Path(QStringLiteral("Cfg.xml")) +
                             QStringLiteral("\" does not exist.\n"),
                         QStringLiteral("OpenDocument"));
    }

    /// The exception text for a Cfg.xml that does not parse and has no usable backup.
    QString FatalParseError(const QString& problem, int line, int column) const
    {
        return QStringLiteral("Parse error in file %1: %2 at line %3 in column %4. And no valid backup "
                              "file found.\n\nTALVO terminates!")
            .arg(Path(QStringLiteral("Cfg.xml")), problem, QString::number(line), QString::number(column));
    }

    static QString ParserMessage(const QByteArray& bytes, int* line, int* column)
    {
        QDomDocument document;
        QString message;
        document.setContent(bytes, &message, line, column);
        return message;
    }

    QStringList FilesInDir() const
    {
        return QDir(m_dir->path()).entryList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    }

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void init()
    {
        m_dir = std::make_unique<CurrentTemporaryDir>();
        QVERIFY2(m_dir->isValid(), qPrintable(m_dir->errorString()));
        m_os = std::make_unique<FakeZentOS>();
        m_traces.clear();
        m_messages.clear();
        ErrorHandler::Instance().ResetMessageMask();
        ErrorHandler::Instance().SetLogTracer(new RecordingWriter(&m_traces));
        ErrorHandler::Instance().SetMessagePresenter(
            [this](ErrorHandler::MessageKind, const QString& text) { m_messages.append(text); });
        ErrorHandler::Instance().SetMessageDialog({});
        CfgCenter::SetUsage(CfgCenter::USAGE_2);
        CfgXml::SetTimeStampsEnabled(true);
    }

    void cleanup()
    {
        ErrorHandler::Instance().SetLogTracer(nullptr);
        ErrorHandler::Instance().SetMessagePresenter({});
        ErrorHandler::Instance().SetMessageDialog({});
        ErrorHandler::Instance().ResetMessageMask();
        CfgCenterTestAccess::Reset();
        CfgXml::SetTimeStampsEnabled(true);
        CfgXml::s_isLoginInstalled = false;
        OpenCfgXml partitions(QString(), QString(), ICfg::VIEW_User);
        partitions.SetUserViewSubkey(QString());
        partitions.SetAdditionalUserViewSubkey({});
        m_os.reset();
        m_dir.reset();
    }

    // ------------------------------------------------------------ format

    void constantsHaveTheirTexts()
    {
        QCOMPARE(CfgXml::VERSION_TAG, QStringLiteral("version"));
        QCOMPARE(CfgXml::TIME_STAMP_KEY, QStringLiteral("ts"));
        QCOMPARE(CfgXml::XML_INDENT, 4);
        QCOMPARE(CfgXml::s_sEmptyFile,
                 QStringLiteral("<?xml version = '1.0' encoding=\"utf-8\" ?><Cfg "
                                "version='2.2'><System/><Export/><Domain/><Machine/></Cfg>"));
        QCOMPARE(CfgXml::SUBKEY_CONTAINER, QStringLiteral("xyZ9Subkey1Zxy"));
        QCOMPARE(CfgXml::UC_PREFIX, QStringLiteral("UC___"));
    }

    void typeAndTargetNameTheBackend()
    {
        OpenCfgXml cfg(QString(), QStringLiteral("App"), ICfg::VIEW_Machine);
        QCOMPARE(cfg.GetType(), QStringLiteral("Xml"));
        QCOMPARE(cfg.GetTarget(), QStringLiteral("Cfg.xml"));
    }

    void rootNamedLowerCaseCfgIsRejected()
    {
        Write(Path(QStringLiteral("Cfg.xml")), "<cfg version=\"2.2\"><System/><Domain/><Machine/></cfg>");
        OpenCfgXml cfg(Path(QStringLiteral("Cfg.xml")), QStringLiteral("App"), ICfg::VIEW_Machine);
        CompareException([&] { cfg.OpenDocument(true); },
                         Path(QStringLiteral("Cfg.xml")) +
                             QStringLiteral(" is invalid. Element Cfg not found."),
                         QStringLiteral("OpenDocument"));
    }

    void versionIsReadAndDefaultsTo23()
    {
        QCOMPARE(Open(MAIN)->GetVersion(), QStringLiteral("2.2"));
        QCOMPARE(Open(Document("<System/><Domain/><Machine/>", QByteArray()))->GetVersion(),
                 QStringLiteral("2.3"));
        QCOMPARE(Open(Document("<System/><Domain/><Machine/>", " version=\"2.4\""))->GetVersion(),
                 QStringLiteral("2.4"));
    }

    void viewOutsideTheRangeAddressesMachine()
    {
        auto cfg = Open(MAIN);
        cfg->SetString(QStringLiteral("Name"), QStringLiteral("seven"), ICfg::View(7));
        QCOMPARE(cfg->GetString(QStringLiteral("Name"), QString(), ICfg::VIEW_Machine),
                 QStringLiteral("seven"));
    }

    void missingUserViewIsCreatedOnFirstAccess()
    {
        auto cfg = Open(MAIN);
        QCOMPARE(cfg->GetString(QStringLiteral("Name"), QStringLiteral("d"), ICfg::VIEW_User),
                 QStringLiteral("d"));
        cfg->SaveDocument();
        const QDomElement root = ParseElement(Read(Path(QStringLiteral("Cfg.xml"))));
        QVERIFY(!root.firstChildElement(QStringLiteral("User")).isNull());
    }

    void missingOtherViewFailsTheWalkAndDropsTheDocument()
    {
        auto cfg = Open(Document("<System/><Domain/><Machine><App><A>1</A></App></Machine>"));
        CompareException([&] { cfg->GetString(QStringLiteral("A"), QString(), ICfg::VIEW_Export); },
                         Path(QStringLiteral("Cfg.xml")) +
                             QStringLiteral(" is invalid. Cfg has no sub elements."),
                         QStringLiteral("GetNode"));
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QStringLiteral("gone")), QStringLiteral("gone"));
    }

    void viewThatIsNoElementFailsTheWalk()
    {
        auto cfg = Open(Document("<System/><Domain/><Machine/><?Export data?>"));
        CompareException([&] { cfg->GetString(QStringLiteral("A"), QString(), ICfg::VIEW_Export); },
                         Path(QStringLiteral("Cfg.xml")) +
                             QStringLiteral(" is invalid. Node in Cfg is not an element."),
                         QStringLiteral("GetNode"));
    }

    void pathComponentThatIsNoElementFailsACreatingWalk()
    {
        auto cfg = Open(Document("<System/><Domain/><Machine><?App data?></Machine>"));
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QStringLiteral("d")), QStringLiteral("d"));
        CompareException([&] { cfg->SetString(QStringLiteral("A"), QStringLiteral("1")); },
                         Path(QStringLiteral("Cfg.xml")) +
                             QStringLiteral(" is invalid. Node in View element is not an element."),
                         QStringLiteral("GetNode"));
    }

    void integerTypeIsReadInCapitals()
    {
        auto cfg =
            Open(Document("<System/><Domain/><Machine><App><Port type=\"Integer\">4000</Port>"
                          "<Name type=\"String\">x</Name><On type=\"Boolean\">1</On></App></Machine>"));
        QCOMPARE(cfg->GetAttributeType(QStringLiteral("Port")), ICfg::TYPE_Integer);
        QCOMPARE(cfg->GetAttributeType(QStringLiteral("Name")), ICfg::TYPE_String);
        QCOMPARE(cfg->GetAttributeType(QStringLiteral("On")), ICfg::TYPE_Boolean);
        QCOMPARE(cfg->GetInteger(QStringLiteral("Port"), 0), 4000L);
    }

    void missingTypeIsDerivedAndWrittenBack_data()
    {
        QTest::addColumn<QByteArray>("element");
        QTest::addColumn<int>("type");
        QTest::addColumn<QString>("written");
        QTest::newRow("false_is_boolean")
            << QByteArray("<V>false</V>") << int(ICfg::TYPE_Boolean) << "boolean";
        QTest::newRow("true_is_boolean") << QByteArray("<V>true</V>") << int(ICfg::TYPE_Boolean) << "boolean";
        QTest::newRow("True_is_string") << QByteArray("<V>True</V>") << int(ICfg::TYPE_String) << "string";
        QTest::newRow("number_is_string") << QByteArray("<V>12</V>") << int(ICfg::TYPE_String) << "string";
        QTest::newRow("unknown_type_is_derived")
            << QByteArray("<V type=\"float\">1.5</V>") << int(ICfg::TYPE_String) << "string";
        QTest::newRow("empty_is_undefined") << QByteArray("<V/>") << int(ICfg::TYPE_Undefined) << "";
        QTest::newRow("missing_is_undefined") << QByteArray() << int(ICfg::TYPE_Undefined) << "";
    }

    void missingTypeIsDerivedAndWrittenBack()
    {
        QFETCH(QByteArray, element);
        QFETCH(int, type);
        QFETCH(QString, written);
        auto cfg = Open(Document("<System/><Domain/><Machine><App>" + element + "</App></Machine>"));
        QCOMPARE(int(cfg->GetAttributeType(QStringLiteral("V"))), type);
        cfg->SaveDocument();
        const QDomElement value = ParseElement(Read(Path(QStringLiteral("Cfg.xml"))))
                                      .firstChildElement(QStringLiteral("Machine"))
                                      .firstChildElement(QStringLiteral("App"))
                                      .firstChildElement(QStringLiteral("V"));
        QCOMPARE(value.attribute(QStringLiteral("type")),
                 written.isEmpty() && !value.isNull() ? value.attribute(QStringLiteral("type")) : written);
        if (type == ICfg::TYPE_Undefined)
            QVERIFY(!value.hasAttribute(QStringLiteral("type")));
    }

    void sameTextTwiceKeepsTheStamp()
    {
        auto cfg = Open(MAIN);
        m_os->time = 5000;
        cfg->SetString(QStringLiteral("Name"), QStringLiteral("a"));
        m_os->time = 6000;
        cfg->SetString(QStringLiteral("Name"), QStringLiteral("a"));
        cfg->SaveDocument();
        const QDomElement name = ParseElement(Read(Path(QStringLiteral("Cfg.xml"))))
                                     .firstChildElement(QStringLiteral("Machine"))
                                     .firstChildElement(QStringLiteral("App"))
                                     .firstChildElement(QStringLiteral("Name"));
        QCOMPARE(name.attribute(QStringLiteral("ts")), QStringLiteral("5000"));
    }

    void changedTextWithinOneSecondRaisesTheStampByOne()
    {
        auto cfg = Open(MAIN);
        m_os->time = 5000;
        cfg->SetString(QStringLiteral("Name"), QStringLiteral("a"));
        cfg->SetString(QStringLiteral("Name"), QStringLiteral("b"));
        cfg->SetString(QStringLiteral("Name"), QStringLiteral("c"));
        QDomElement name = ParseElement(cfg->GetCfgAsStringFromApp(QStringLiteral("App")))
                               .firstChildElement(QStringLiteral("Machine"))
                               .firstChildElement(QStringLiteral("App"))
                               .firstChildElement(QStringLiteral("Name"));
        QCOMPARE(name.attribute(QStringLiteral("ts")), QStringLiteral("5002"));
        m_os->time = 7000;
        cfg->SetString(QStringLiteral("Name"), QStringLiteral("d"));
        name = ParseElement(cfg->GetCfgAsStringFromApp(QStringLiteral("App")))
                   .firstChildElement(QStringLiteral("Machine"))
                   .firstChildElement(QStringLiteral("App"))
                   .firstChildElement(QStringLiteral("Name"));
        QCOMPARE(name.attribute(QStringLiteral("ts")), QStringLiteral("7000"));
    }

    void walkStampsElementsWithoutStamp()
    {
        m_os->time = 4242;
        auto cfg =
            Open(Document("<System/><Domain/><Machine><App><A>1</A><B ts=\"17\">2</B></App></Machine>"));
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QString()), QStringLiteral("1"));
        const QDomElement app = ParseElement(cfg->GetCfgAsStringFromApp(QStringLiteral("App")))
                                    .firstChildElement(QStringLiteral("Machine"))
                                    .firstChildElement(QStringLiteral("App"));
        QCOMPARE(app.attribute(QStringLiteral("ts")), QStringLiteral("4242"));
        QCOMPARE(app.firstChildElement(QStringLiteral("A")).attribute(QStringLiteral("ts")),
                 QStringLiteral("4242"));
        QCOMPARE(app.firstChildElement(QStringLiteral("B")).attribute(QStringLiteral("ts")),
                 QStringLiteral("17"));
    }

    void stampModes()
    {
        QDomDocument document;
        document.setContent(QByteArray("<R ts=\"9\"><A ts=\"3\">x</A><B/></R>"));
        QDomElement root = document.documentElement();
        m_os->time = 100;
        CfgXml::SetTimeStamp(root, CfgXml::TS_IfMissing, false);
        QCOMPARE(root.attribute(QStringLiteral("ts")), QStringLiteral("9"));
        QVERIFY(!root.firstChildElement(QStringLiteral("B")).hasAttribute(QStringLiteral("ts")));
        CfgXml::SetTimeStamp(root, CfgXml::TS_IfMissing, true);
        QCOMPARE(root.firstChildElement(QStringLiteral("B")).attribute(QStringLiteral("ts")),
                 QStringLiteral("100"));
        CfgXml::SetTimeStamp(root.firstChildElement(QStringLiteral("A")).firstChild(), CfgXml::TS_Advance,
                             false);
        QCOMPARE(root.firstChildElement(QStringLiteral("A")).attribute(QStringLiteral("ts")),
                 QStringLiteral("100"));
        m_os->time = 50;
        CfgXml::SetTimeStamp(root, CfgXml::TS_Advance, false);
        QCOMPARE(root.attribute(QStringLiteral("ts")), QStringLiteral("50"));
        CfgXml::SetTimeStamp(root, CfgXml::TS_Advance, false);
        QCOMPARE(root.attribute(QStringLiteral("ts")), QStringLiteral("51"));
        m_os->time = 20;
        CfgXml::SetTimeStamp(root, CfgXml::TS_Advance, false);
        QCOMPARE(root.attribute(QStringLiteral("ts")), QStringLiteral("52"));
        CfgXml::SetTimeStamp(root, CfgXml::TS_Remove, true);
        QCOMPARE(document.toByteArray(-1), QByteArray("<R><A>x</A><B/></R>"));
    }

    void unknownStampModeThrows()
    {
        QDomDocument document;
        document.setContent(QByteArray("<R/>"));
        CompareException([&] { CfgXml::SetTimeStamp(document.documentElement(), 3, false); },
                         QStringLiteral("Undefinied enum used ..."), QStringLiteral("SetTimeStamp"));
    }

    void stampsCanBeSwitchedOff()
    {
        CfgXml::SetTimeStampsEnabled(false);
        QCOMPARE(CfgXml::AreTimeStampsEnabled(), false);
        auto cfg = Open(MAIN);
        cfg->SetString(QStringLiteral("Name"), QStringLiteral("a"));
        QVERIFY(!cfg->GetCfgAsStringFromApp(QStringLiteral("App")).contains("ts="));
    }

    void protectedOnlyOutsideTheUserView()
    {
        auto cfg = Open(MAIN);
        cfg->SetString(QStringLiteral("M"), QStringLiteral("x"), ICfg::VIEW_Machine);
        cfg->SetString(QStringLiteral("U"), QStringLiteral("x"), ICfg::VIEW_User);
        cfg->SetString(QStringLiteral("S"), QStringLiteral("x"), ICfg::VIEW_System);
        QCOMPARE(cfg->IsProtected(QStringLiteral("M"), ICfg::VIEW_Machine), true);
        QCOMPARE(cfg->IsProtected(QStringLiteral("U"), ICfg::VIEW_User), false);
        QCOMPARE(cfg->IsProtected(QStringLiteral("S"), ICfg::VIEW_System), true);
        const QDomElement root = ParseElement(cfg->GetCfgAsStringFromApp(QStringLiteral("App")));
        QVERIFY(!root.firstChildElement(QStringLiteral("User"))
                     .firstChildElement(QStringLiteral("App"))
                     .firstChildElement(QStringLiteral("U"))
                     .hasAttribute(QStringLiteral("protected")));
        cfg->SetProtected(QStringLiteral("M"), false);
        QCOMPARE(cfg->IsProtected(QStringLiteral("M")), false);
    }

    void savedDocumentIsIndentedByFour()
    {
        CfgXml::SetTimeStampsEnabled(false);
        auto cfg = Open(MAIN, QStringLiteral("App"), ICfg::VIEW_User);
        cfg->SetString(QStringLiteral("Name"), QStringLiteral("x"));
        cfg->SaveDocument();
        QCOMPARE(Read(Path(QStringLiteral("Cfg.xml"))),
                 QByteArray("<?xml version='1.0' encoding='utf-8'?>\n"
                            "<Cfg version=\"2.2\">\n"
                            "    <System/>\n"
                            "    <Domain/>\n"
                            "    <Machine/>\n"
                            "    <Export/>\n"
                            "    <User>\n"
                            "        <App>\n"
                            "            <Name type=\"string\">x</Name>\n"
                            "        </App>\n"
                            "    </User>\n"
                            "</Cfg>\n"));
    }

    void lineEndsBecomeCrLfForUsages1And3_data()
    {
        QTest::addColumn<int>("usage");
        QTest::addColumn<bool>("crlf");
        QTest::newRow("usage_0_keeps_lf") << 0 << false;
        QTest::newRow("usage_1_writes_crlf") << 1 << true;
        QTest::newRow("usage_2_keeps_lf") << 2 << false;
        QTest::newRow("usage_3_writes_crlf") << 3 << true;
        QTest::newRow("usage_4_keeps_lf") << 4 << false;
    }

    void lineEndsBecomeCrLfForUsages1And3()
    {
        QFETCH(int, usage);
        QFETCH(bool, crlf);
        CfgCenter::SetUsage(CfgCenter::CfgCenterUsage(usage));
        CfgXml::SetTimeStampsEnabled(false);
        auto cfg = Open(Document("<System/><Domain/><Machine/>"));
        cfg->SetString(QStringLiteral("Text"), QStringLiteral("a\nb\r\nc"), ICfg::VIEW_Machine);
        cfg->SaveDocument();
        QByteArray expected = "<?xml version='1.0' encoding='utf-8'?>\n"
                              "<Cfg version=\"2.2\">\n"
                              "    <System/>\n"
                              "    <Domain/>\n"
                              "    <Machine>\n"
                              "        <App>\n"
                              "            <Text PROTECTED_AND_TYPE>a\nb&#xd;\nc</Text>\n"
                              "        </App>\n"
                              "    </Machine>\n"
                              "</Cfg>\n";
        const QByteArray written = Read(Path(QStringLiteral("Cfg.xml")));
        const int start = written.indexOf("<Text ") + 6;
        const QByteArray attributes = written.mid(start, written.indexOf('>', start) - start);
        QVERIFY(attributes == "protected=\"true\" type=\"string\"" ||
                attributes == "type=\"string\" protected=\"true\"");
        expected.replace("PROTECTED_AND_TYPE", attributes);
        if (crlf)
            expected.replace("\n", "\r\n");
        QCOMPARE(written, expected);
    }

    void sideFileNames()
    {
        OpenCfgXml cfg(Path(QStringLiteral("Cfg.xml")), QStringLiteral("App"), ICfg::VIEW_Machine);
        QCOMPARE(cfg.GetUserSideFileName(), Path(QStringLiteral("Cfg.usr.xml")));
        QCOMPARE(cfg.GetExportSideFileName(), QDir::currentPath() + QStringLiteral("/Cfg.exp.xml"));
        OpenCfgXml bare(QStringLiteral("Cfg.xml"), QStringLiteral("App"), ICfg::VIEW_Machine);
        QCOMPARE(bare.GetUserSideFileName(), QStringLiteral("Cfg.usr.xml"));
        QCOMPARE(bare.GetExportSideFileName(),
                 QDir::currentPath() + QDir::separator() + QStringLiteral("Cfg.exp.xml"));
        OpenCfgXml noExtension(Path(QStringLiteral("Config")), QStringLiteral("App"), ICfg::VIEW_Machine);
        QCOMPARE(noExtension.GetUserSideFileName(), QString());
        OpenCfgXml leadingDot(QStringLiteral(".cfg"), QStringLiteral("App"), ICfg::VIEW_Machine);
        QCOMPARE(leadingDot.GetUserSideFileName(), QString());
    }

    void exportSideFileLivesInTheDataDirectory()
    {
        QVERIFY(QDir(m_dir->path()).mkdir(QStringLiteral("data")));
        const QByteArray main =
            Document("<System/><Domain/><Machine><Administration><TalvoDataDir>" +
                     Path(QStringLiteral("data")).toUtf8() + "</TalvoDataDir></Administration></Machine>");
        CfgCenter::SetUsage(CfgCenter::USAGE_0);
        auto cfg = Open(main);
        QCOMPARE(cfg->GetExportSideFileName(), Path(QStringLiteral("data/Cfg.exp.xml")));
        CfgXml::SetTimeStampsEnabled(false);
        cfg->SetString(QStringLiteral("E"), QStringLiteral("1"), ICfg::VIEW_Export);
        cfg->SetString(QStringLiteral("U"), QStringLiteral("2"), ICfg::VIEW_User);
        cfg->SaveDocument();
        QCOMPARE(
            Read(Path(QStringLiteral("data/Cfg.exp.xml"))),
            QByteArray("<?xml version='1.0'?>\n"
                       "<Cfg version=\"2.2\">\n"
                       "    <Export>\n"
                       "        <App>\n"
                       "            <E protected=\"true\" type=\"string\">1</E>\n"
                       "        </App>\n"
                       "    </Export>\n"
                       "</Cfg>\n")
                .replace("protected=\"true\" type=\"string\"",
                         Read(Path(QStringLiteral("data/Cfg.exp.xml"))).contains("type=\"string\" protected")
                             ? "type=\"string\" protected=\"true\""
                             : "protected=\"true\" type=\"string\""));
        QCOMPARE(Read(Path(QStringLiteral("Cfg.usr.xml"))),
                 QByteArray("<?xml version='1.0'?>\n"
                            "<Cfg version=\"2.2\">\n"
                            "    <User>\n"
                            "        <App>\n"
                            "            <U type=\"string\">2</U>\n"
                            "        </App>\n"
                            "    </User>\n"
                            "</Cfg>\n"));
        const QByteArray mainWritten = Read(Path(QStringLiteral("Cfg.xml")));
        QVERIFY(!mainWritten.contains("<User"));
        QVERIFY(!mainWritten.contains("<Export"));
        // The views are back in memory after the save.
        QCOMPARE(cfg->GetString(QStringLiteral("U"), QString(), ICfg::VIEW_User), QStringLiteral("2"));
        QCOMPARE(cfg->GetString(QStringLiteral("E"), QString(), ICfg::VIEW_Export), QStringLiteral("1"));

        OpenCfgXml reopened(Path(QStringLiteral("Cfg.xml")), QStringLiteral("App"), ICfg::VIEW_Machine);
        reopened.OpenDocument(true);
        QCOMPARE(reopened.GetString(QStringLiteral("U"), QString(), ICfg::VIEW_User), QStringLiteral("2"));
        QCOMPARE(reopened.GetString(QStringLiteral("E"), QString(), ICfg::VIEW_Export), QStringLiteral("1"));
    }

    void sideFilesOnlyForUsages0And4_data()
    {
        QTest::addColumn<int>("usage");
        QTest::addColumn<bool>("sideFiles");
        QTest::newRow("usage_0") << 0 << true;
        QTest::newRow("usage_1") << 1 << false;
        QTest::newRow("usage_2") << 2 << false;
        QTest::newRow("usage_3") << 3 << false;
        QTest::newRow("usage_4") << 4 << true;
    }

    void sideFilesOnlyForUsages0And4()
    {
        QFETCH(int, usage);
        QFETCH(bool, sideFiles);
        CfgCenter::SetUsage(CfgCenter::CfgCenterUsage(usage));
        auto cfg = Open(MAIN);
        cfg->SetString(QStringLiteral("U"), QStringLiteral("2"), ICfg::VIEW_User);
        cfg->SaveDocument();
        QCOMPARE(QFile::exists(Path(QStringLiteral("Cfg.usr.xml"))), sideFiles);
        QCOMPARE(Read(Path(QStringLiteral("Cfg.xml"))).contains("<User"), !sideFiles);
    }

    void suppressedSideFilesStayInTheMainFile()
    {
        CfgCenter::SetUsage(CfgCenter::USAGE_0);
        Write(Path(QStringLiteral("Cfg.xml")), MAIN);
        OpenCfgXml cfg(Path(QStringLiteral("Cfg.xml")), QStringLiteral("App"), ICfg::VIEW_User);
        cfg.SuppressSideFiles(true);
        cfg.OpenDocument(true);
        cfg.SetString(QStringLiteral("U"), QStringLiteral("2"));
        cfg.SaveDocument();
        QVERIFY(!QFile::exists(Path(QStringLiteral("Cfg.usr.xml"))));
        QVERIFY(Read(Path(QStringLiteral("Cfg.xml"))).contains("<User"));
    }

    void oneFileDocumentKeepsItsUserViewWithoutSideFile()
    {
        CfgCenter::SetUsage(CfgCenter::USAGE_0);
        auto cfg = Open(
            Document("<System/><Domain/><Machine/><User><App><U>old</U></App></User>", " version=\"2.0\""));
        QCOMPARE(cfg->GetString(QStringLiteral("U"), QString(), ICfg::VIEW_User), QStringLiteral("old"));
    }

    void emptiedUserViewIsWrittenAsTemplate()
    {
        CfgCenter::SetUsage(CfgCenter::USAGE_0);
        Write(Path(QStringLiteral("Cfg.usr.xml")),
              "<?xml version = '1.0'?><Cfg version='2.2'><User><App><U>1</U></App>"
              "</User></Cfg>");
        auto cfg = Open(MAIN, QString());
        QVERIFY(cfg->RemoveSubCfg(QStringLiteral("App"), ICfg::VIEW_User));
        cfg->SaveDocument();
        QCOMPARE(Read(Path(QStringLiteral("Cfg.usr.xml"))),
                 QByteArray("<?xml version = '1.0'?><Cfg version='2.2'><User/></Cfg>"));
    }

    void loginSubConfigurationSetsTheFlag()
    {
        Open(MAIN);
        QCOMPARE(CfgXml::s_isLoginInstalled, false);
        Open(Document("<System/><Domain/><Machine><Login/></Machine>"));
        QCOMPARE(CfgXml::s_isLoginInstalled, true);
        Open(MAIN);
        QCOMPARE(CfgXml::s_isLoginInstalled, true);
    }

    // ------------------------------------------------------------ open

    void missingFileWithBackupIsRestoredWithoutAsking()
    {
        const QByteArray backup = Document("<System/><Domain/><Machine><App><A>bak</A></App></Machine>");
        Write(Path(QStringLiteral("Cfg.xml.bak")), backup);
        bool asked = false;
        ErrorHandler::Instance().SetMessageDialog([&](const QString&) { return asked = true; });
        OpenCfgXml cfg(Path(QStringLiteral("Cfg.xml")), QStringLiteral("App"), ICfg::VIEW_Machine);
        cfg.OpenDocument(true);
        QCOMPARE(asked, false);
        QCOMPARE(cfg.GetString(QStringLiteral("A"), QString()), QStringLiteral("bak"));
        QCOMPARE(Read(Path(QStringLiteral("Cfg.xml"))), backup);
        QVERIFY(m_traces.last().endsWith(
            QStringLiteral("The configuration file \"") + Path(QStringLiteral("Cfg.xml")) +
            QStringLiteral("\" does not exist, but a backup file was found.The system "
                           "restores it.\n")));
    }

    void missingFileWithoutDialogThrows()
    {
        OpenCfgXml cfg(Path(QStringLiteral("Cfg.xml")), QStringLiteral("App"), ICfg::VIEW_Machine);
        CompareMissingFileException(cfg);
        QVERIFY(!QFile::exists(Path(QStringLiteral("Cfg.xml"))));
    }

    void missingFileIsCreatedWhenTheUserContinues()
    {
        QString shown;
        ErrorHandler::Instance().SetMessageDialog([&](const QString& text) {
            shown = text;
            return true;
        });
        OpenCfgXml cfg(Path(QStringLiteral("Cfg.xml")), QStringLiteral("App"), ICfg::VIEW_Machine);
        cfg.OpenDocument(true);
        QCOMPARE(shown, QStringLiteral("The configuration file \"") + Path(QStringLiteral("Cfg.xml")) +
                            QStringLiteral(
                                "\" does not exist.\nPress \"Continue\" if the system should create it."));
        QCOMPARE(Read(Path(QStringLiteral("Cfg.xml"))), CfgXml::s_sEmptyFile.toUtf8());
        cfg.SetString(QStringLiteral("A"), QStringLiteral("1"));
        QCOMPARE(cfg.GetString(QStringLiteral("A"), QString()), QStringLiteral("1"));
    }

    void missingFileIsNotCreatedWhenTheUserDeclines()
    {
        ErrorHandler::Instance().SetMessageDialog([](const QString&) { return false; });
        OpenCfgXml cfg(Path(QStringLiteral("Cfg.xml")), QStringLiteral("App"), ICfg::VIEW_Machine);
        CompareMissingFileException(cfg);
        QVERIFY(!QFile::exists(Path(QStringLiteral("Cfg.xml"))));
    }

    void emptyBackupIsNeverRestored()
    {
        Write(Path(QStringLiteral("Cfg.xml.bak")), QByteArray());
        OpenCfgXml cfg(Path(QStringLiteral("Cfg.xml")), QStringLiteral("App"), ICfg::VIEW_Machine);
        CompareMissingFileException(cfg);
        Write(Path(QStringLiteral("Cfg.xml")), MAIN);
        cfg.RestoreBackup();
        QCOMPARE(Read(Path(QStringLiteral("Cfg.xml"))), MAIN);
    }

    void missingFileInTheUserViewBuildsAUserOnlyDocument()
    {
        CfgCenter::SetUsage(CfgCenter::USAGE_0);
        Write(Path(QStringLiteral("Cfg.usr.xml")),
              "<?xml version = '1.0'?><Cfg version='2.2'><User><App><U>mine</U></App></User></Cfg>");
        OpenCfgXml cfg(Path(QStringLiteral("Cfg.xml")), QStringLiteral("App"), ICfg::VIEW_User);
        cfg.OpenDocument(true);
        QVERIFY(!QFile::exists(Path(QStringLiteral("Cfg.xml"))));
        QCOMPARE(cfg.GetString(QStringLiteral("U"), QString()), QStringLiteral("mine"));
        QCOMPARE(cfg.GetVersion(), QStringLiteral("2.2"));
    }

    void parseErrorWithBackupSetsTheFileAsideAndRestores()
    {
        const QByteArray broken = "<Cfg><System></Cfg>";
        const QByteArray backup = Document("<System/><Domain/><Machine><App><A>bak</A></App></Machine>");
        Write(Path(QStringLiteral("Cfg.xml.bak")), backup);
        m_os->time = 1700000000; // 2023-11-14 22:13:20 UTC
        auto cfg = Open(broken);
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QString()), QStringLiteral("bak"));
        QCOMPARE(Read(Path(QStringLiteral("Cfg.xml.corrupt.20231114_221320"))), broken);
        QCOMPARE(Read(Path(QStringLiteral("Cfg.xml"))), backup);
        QVERIFY(m_traces.last().endsWith(Path(QStringLiteral("Cfg.xml")) +
                                         QStringLiteral(" defect, restoring backup file")));
    }

    void parseErrorWithoutRestoreThrowsTheParseText_data()
    {
        QTest::addColumn<bool>("restoreAllowed");
        QTest::addColumn<int>("usage");
        QTest::addColumn<bool>("backup");
        QTest::newRow("restore_not_allowed") << false << 2 << true;
        QTest::newRow("usage_1_never_restores") << true << 1 << true;
        QTest::newRow("no_backup") << true << 2 << false;
    }

    void parseErrorWithoutRestoreThrowsTheParseText()
    {
        QFETCH(bool, restoreAllowed);
        QFETCH(int, usage);
        QFETCH(bool, backup);
        CfgCenter::SetUsage(CfgCenter::CfgCenterUsage(usage));
        const QByteArray broken = "<Cfg>\n  <System>\n</Cfg>";
        Write(Path(QStringLiteral("Cfg.xml")), broken);
        if (backup)
            Write(Path(QStringLiteral("Cfg.xml.bak")), MAIN);
        int line = 0;
        int column = 0;
        const QString message = ParserMessage(broken, &line, &column);
        OpenCfgXml cfg(Path(QStringLiteral("Cfg.xml")), QStringLiteral("App"), ICfg::VIEW_Machine);
        CompareException([&] { cfg.OpenDocument(restoreAllowed); }, FatalParseError(message, line, column),
                         QStringLiteral("OpenDocument"));
        QCOMPARE(Read(Path(QStringLiteral("Cfg.xml"))), broken);
    }

    void structureIsValidated_data()
    {
        QTest::addColumn<QByteArray>("views");
        QTest::addColumn<QString>("problem");
        QTest::newRow("system_not_an_element")
            << QByteArray("<?System x?><Domain/><Machine/>")
            << " is invalid. Sub node System of element Cfg is not an element.";
        QTest::newRow("domain_missing")
            << QByteArray("<System/><Machine/>") << " is invalid. Element Cfg has no sub node Domain.";
        QTest::newRow("domain_not_an_element")
            << QByteArray("<System/><?Domain x?><Machine/>")
            << " is invalid. Sub node Domain of element Cfg is not an element.";
        QTest::newRow("machine_missing")
            << QByteArray("<System/><Domain/>") << " is invalid. Element Cfg has no sub node Machine.";
        QTest::newRow("machine_not_an_element")
            << QByteArray("<System/><Domain/><?Machine x?>")
            << " is invalid. Sub node Machine of element Cfg is not an element.";
    }

    void structureIsValidated()
    {
        QFETCH(QByteArray, views);
        QFETCH(QString, problem);
        Write(Path(QStringLiteral("Cfg.xml")), Document(views));
        OpenCfgXml cfg(Path(QStringLiteral("Cfg.xml")), QStringLiteral("App"), ICfg::VIEW_Machine);
        CompareException([&] { cfg.OpenDocument(true); }, Path(QStringLiteral("Cfg.xml")) + problem,
                         QStringLiteral("OpenDocument"));
    }

    void documentWithoutSystemIsAUserDocument()
    {
        CfgCenter::SetUsage(CfgCenter::USAGE_0);
        Write(Path(QStringLiteral("Cfg.usr.xml")),
              "<?xml version = '1.0'?><Cfg version='2.2'><User><App><U>side</U></App></User></Cfg>");
        auto cfg = Open("<Cfg version='2.2'><User/></Cfg>", QStringLiteral("App"), ICfg::VIEW_User);
        QCOMPARE(cfg->GetString(QStringLiteral("U"), QString()), QStringLiteral("side"));
    }

    void unopenableFileThrows()
    {
        QVERIFY(QDir(m_dir->path()).mkdir(QStringLiteral("Cfg.xml")));
        OpenCfgXml cfg(Path(QStringLiteral("Cfg.xml")), QStringLiteral("App"), ICfg::VIEW_Machine);
        CompareException([&] { cfg.OpenDocument(true); },
                         QStringLiteral("Can neither open nor create the file ") +
                             Path(QStringLiteral("Cfg.xml")) + QStringLiteral("."),
                         QStringLiteral("OpenDocument"));
    }

    void unparsableSideFileIsReportedAndRecoveredFromItsBackup()
    {
        CfgCenter::SetUsage(CfgCenter::USAGE_0);
        const QByteArray broken = "<Cfg><User>";
        Write(Path(QStringLiteral("Cfg.usr.xml")), broken);
        Write(Path(QStringLiteral("Cfg.usr.xml.bak")),
              "<?xml version = '1.0'?><Cfg version='2.2'><User><App><U>saved</U></App></User></Cfg>");
        int line = 0;
        int column = 0;
        const QString message = ParserMessage(broken, &line, &column);
        auto cfg = Open(MAIN);
        QCOMPARE(m_messages, QStringList{QStringLiteral("Parse error in file %1: %2 at line %3 in column %4.")
                                             .arg(Path(QStringLiteral("Cfg.usr.xml")), message,
                                                  QString::number(line), QString::number(column))});
        QCOMPARE(cfg->GetString(QStringLiteral("U"), QString(), ICfg::VIEW_User), QStringLiteral("saved"));
        QVERIFY(FilesInDir().filter(QStringLiteral("Cfg.usr.xml.corrupt.")).size() == 1);
    }

    void unparsableSideFileWithoutBackupStartsEmpty()
    {
        CfgCenter::SetUsage(CfgCenter::USAGE_0);
        Write(Path(QStringLiteral("Cfg.usr.xml")), "garbage");
        auto cfg = Open(MAIN);
        QCOMPARE(m_messages.size(), 1);
        QVERIFY(m_messages.first().startsWith(QStringLiteral("Parse error in file ") +
                                              Path(QStringLiteral("Cfg.usr.xml")) + QStringLiteral(": ")));
        QCOMPARE(cfg->GetString(QStringLiteral("U"), QStringLiteral("d"), ICfg::VIEW_User),
                 QStringLiteral("d"));
    }

    void unreadableSideFileIsReported()
    {
        CfgCenter::SetUsage(CfgCenter::USAGE_0);
        // A folder in the file's place cannot be opened, also not by root.
        QVERIFY(QDir(m_dir->path()).mkdir(QStringLiteral("Cfg.usr.xml")));
        auto cfg = Open(MAIN);
        QCOMPARE(m_messages,
                 QStringList{QStringLiteral("Cannot open the file ") + Path(QStringLiteral("Cfg.usr.xml"))});
        QCOMPARE(cfg->GetString(QStringLiteral("U"), QStringLiteral("d"), ICfg::VIEW_User),
                 QStringLiteral("d"));
    }

    void closeDocumentLeavesDefaults()
    {
        auto cfg =
            Open(Document("<System/><Domain/><Machine><App><A>1</A><Sub><B>2</B></Sub></App></Machine>"));
        std::unique_ptr<ICfg> sub(cfg->CreateSubCfg(QStringLiteral("Sub")));
        QVERIFY(sub);
        cfg->CloseDocument();
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QStringLiteral("d")), QStringLiteral("d"));
        QCOMPARE(sub->GetString(QStringLiteral("B"), QStringLiteral("d")), QStringLiteral("d"));
        sub->SetString(QStringLiteral("B"), QStringLiteral("3"));
        QVERIFY(!cfg->HasSubCfg(QStringLiteral("Sub")));
    }

    // ------------------------------------------------------------ save

    void savingTwiceWithoutChangesWritesOnce()
    {
        auto cfg = Open(MAIN);
        cfg->SetString(QStringLiteral("A"), QStringLiteral("1"));
        cfg->SaveDocument();
        const QByteArray first = Read(Path(QStringLiteral("Cfg.xml")));
        QVERIFY(first.contains(">1</A>"));
        Write(Path(QStringLiteral("Cfg.xml")), "untouched");
        const int syncs = m_os->syncedFiles.size();
        cfg->SaveDocument();
        QCOMPARE(Read(Path(QStringLiteral("Cfg.xml"))), QByteArray("untouched"));
        QCOMPARE(m_os->syncedFiles.size(), syncs);
        cfg->SetString(QStringLiteral("A"), QStringLiteral("2"));
        cfg->SaveDocument();
        QVERIFY(Read(Path(QStringLiteral("Cfg.xml"))).contains(">2</A>"));
        QCOMPARE(Read(Path(QStringLiteral("Cfg.xml.bak"))), QByteArray("untouched"));
    }

    void unchangedSaveAfterAnotherDocumentWroteTheFileWritesAgain()
    {
        auto cfg = Open(MAIN);
        cfg->SetString(QStringLiteral("A"), QStringLiteral("mine"));
        cfg->SaveDocument();
        const QByteArray mine = Read(Path(QStringLiteral("Cfg.xml")));
        OpenCfgXml other(Path(QStringLiteral("Cfg.xml")), QStringLiteral("App"), ICfg::VIEW_Machine);
        other.OpenDocument(false);
        other.SetString(QStringLiteral("A"), QStringLiteral("theirs"));
        other.SaveDocument();
        QVERIFY(Read(Path(QStringLiteral("Cfg.xml"))).contains(">theirs</A>"));
        cfg->SaveDocument();
        QCOMPARE(Read(Path(QStringLiteral("Cfg.xml"))), mine);
    }

    void unchangedSaveInAnotherUsageWritesTheNewLineEnds()
    {
        auto cfg = Open(MAIN);
        cfg->SaveDocument();
        QVERIFY(!Read(Path(QStringLiteral("Cfg.xml"))).contains("\r\n"));
        CfgCenter::SetUsage(CfgCenter::USAGE_3);
        cfg->SaveDocument();
        QVERIFY(Read(Path(QStringLiteral("Cfg.xml"))).contains("\r\n"));
    }

    void everyKindOfChangeIsSaved_data()
    {
        QTest::addColumn<int>("change");
        QTest::newRow("set_string") << 0;
        QTest::newRow("set_protected") << 1;
        QTest::newRow("set_attribute_type") << 2;
        QTest::newRow("remove_attribute") << 3;
        QTest::newRow("rename_attribute") << 4;
        QTest::newRow("add_sub_cfg") << 5;
        QTest::newRow("remove_sub_cfg") << 6;
        QTest::newRow("move_sub_cfg") << 7;
        QTest::newRow("merge") << 8;
        QTest::newRow("change_through_sub_cfg") << 9;
        QTest::newRow("own_text") << 10;
    }

    void everyKindOfChangeIsSaved()
    {
        QFETCH(int, change);
        m_os->time = 100;
        auto cfg =
            Open(Document("<System/><Domain/><Machine><App><A>1</A><Sub><B>2</B></Sub></App></Machine>"));
        cfg->SaveDocument();
        const QByteArray before = Read(Path(QStringLiteral("Cfg.xml")));
        cfg->SaveDocument();
        QCOMPARE(Read(Path(QStringLiteral("Cfg.xml"))), before);
        std::unique_ptr<ICfg> sub(cfg->CreateSubCfg(QStringLiteral("Sub")));
        switch (change) {
        case 0:
            cfg->SetString(QStringLiteral("A"), QStringLiteral("changed"));
            break;
        case 1:
            cfg->SetProtected(QStringLiteral("A"), true);
            break;
        case 2:
            cfg->SetAttributeType(QStringLiteral("A"), ICfg::TYPE_Integer);
            break;
        case 3:
            cfg->RemoveAttribute(QStringLiteral("A"));
            break;
        case 4:
            cfg->RenameAttribute(QStringLiteral("A"), QStringLiteral("Z"));
            break;
        case 5:
            cfg->AddSubCfg(QStringLiteral("New"));
            break;
        case 6:
            cfg->RemoveSubCfg(QStringLiteral("Sub"));
            break;
        case 7:
            cfg->MoveSubCfg(QStringLiteral("Sub"), QStringLiteral("Moved"));
            break;
        case 8:
            cfg->MergeCfgFromStringAndApp(Document("<Machine><App><C>3</C></App></Machine>"),
                                          QStringLiteral("App"));
            break;
        case 9:
            sub->SetString(QStringLiteral("B"), QStringLiteral("changed"));
            break;
        case 10:
            cfg->SetString(QString(), QStringLiteral("own"));
            break;
        }
        cfg->SaveDocument();
        QVERIFY(Read(Path(QStringLiteral("Cfg.xml"))) != before);
    }

    void rotationKeepsThePreviousDocumentAsBackup()
    {
        auto cfg = Open(MAIN);
        cfg->SaveDocument();
        const QByteArray first = Read(Path(QStringLiteral("Cfg.xml")));
        QCOMPARE(Read(Path(QStringLiteral("Cfg.xml.bak"))), MAIN);
        cfg->SetString(QStringLiteral("A"), QStringLiteral("1"));
        cfg->SaveDocument();
        QCOMPARE(Read(Path(QStringLiteral("Cfg.xml.bak"))), first);
        QCOMPARE(FilesInDir(), (QStringList{QStringLiteral("Cfg.xml"), QStringLiteral("Cfg.xml.bak")}));
        QVERIFY(m_os->syncedFiles.contains(Path(QStringLiteral("Cfg.xml.temp"))));
        QVERIFY(m_os->syncedDirectories.contains(m_dir->path()));
    }

    void firstSaveCreatesAnEmptyBackupWhenTheFileIsNew()
    {
        ErrorHandler::Instance().SetMessageDialog([](const QString&) { return true; });
        OpenCfgXml cfg(Path(QStringLiteral("Cfg.xml")), QStringLiteral("App"), ICfg::VIEW_Machine);
        cfg.OpenDocument(true);
        QFile::remove(Path(QStringLiteral("Cfg.xml")));
        cfg.SaveDocument();
        QCOMPARE(Read(Path(QStringLiteral("Cfg.xml.bak"))), QByteArray());
        QVERIFY(Read(Path(QStringLiteral("Cfg.xml"))).startsWith("<?xml"));
    }

    void interruptedRotationIsCompletedBeforeOpening_data()
    {
        QTest::addColumn<bool>("withTemp");
        QTest::addColumn<QString>("expected");
        QTest::newRow("new_document_in_temp_wins") << true << "new";
        QTest::newRow("previous_document_in_bak_temp") << false << "old";
    }

    void interruptedRotationIsCompletedBeforeOpening()
    {
        QFETCH(bool, withTemp);
        QFETCH(QString, expected);
        Write(Path(QStringLiteral("Cfg.xml.bak")),
              Document("<System/><Domain/><Machine><App><A>older</A></App></Machine>"));
        Write(Path(QStringLiteral("Cfg.xml.bak.temp")),
              Document("<System/><Domain/><Machine><App><A>old</A></App></Machine>"));
        if (withTemp)
            Write(Path(QStringLiteral("Cfg.xml.temp")),
                  Document("<System/><Domain/><Machine><App><A>new</A></App></Machine>"));
        OpenCfgXml cfg(Path(QStringLiteral("Cfg.xml")), QStringLiteral("App"), ICfg::VIEW_Machine);
        cfg.OpenDocument(true);
        QCOMPARE(cfg.GetString(QStringLiteral("A"), QString()), expected);
        const QString source =
            Path(withTemp ? QStringLiteral("Cfg.xml.temp") : QStringLiteral("Cfg.xml.bak.temp"));
        QVERIFY(m_traces.first().endsWith(
            Path(QStringLiteral("Cfg.xml")) +
            QStringLiteral(" was missing after an interrupted save; completed from ") + source));
        if (!withTemp)
            return;
        // The stale previous document is dropped by the next save.
        cfg.SetString(QStringLiteral("A"), QStringLiteral("newer"));
        cfg.SaveDocument();
        QCOMPARE(FilesInDir(), (QStringList{QStringLiteral("Cfg.xml"), QStringLiteral("Cfg.xml.bak")}));
        QVERIFY(Read(Path(QStringLiteral("Cfg.xml.bak"))).contains(">new</A>"));
    }

    void staleBakTempIsRemovedByTheNextSave()
    {
        auto cfg = Open(MAIN);
        Write(Path(QStringLiteral("Cfg.xml.bak.temp")), "stale");
        cfg->SetString(QStringLiteral("A"), QStringLiteral("1"));
        cfg->SaveDocument();
        QVERIFY(!QFile::exists(Path(QStringLiteral("Cfg.xml.bak.temp"))));
        QCOMPARE(Read(Path(QStringLiteral("Cfg.xml.bak"))), MAIN);
    }

    void unopenableTempFileThrowsWithTheBakTempName()
    {
        CfgCenter::SetUsage(CfgCenter::USAGE_0);
        auto cfg = Open(MAIN);
        cfg->SetString(QStringLiteral("U"), QStringLiteral("1"), ICfg::VIEW_User);
        QVERIFY(QDir(m_dir->path()).mkdir(QStringLiteral("Cfg.xml.temp")));
        CompareException([&] { cfg->SaveDocument(); },
                         QStringLiteral("Cannot open ") + Path(QStringLiteral("Cfg.xml")) +
                             QStringLiteral(".bak.temp for writing."),
                         QStringLiteral("SaveDocument"));
        QCOMPARE(cfg->GetString(QStringLiteral("U"), QString(), ICfg::VIEW_User), QStringLiteral("1"));
        QCOMPARE(Read(Path(QStringLiteral("Cfg.xml"))), MAIN);
    }

    void unopenableSideFileThrows()
    {
        CfgCenter::SetUsage(CfgCenter::USAGE_0);
        auto cfg = Open(MAIN);
        cfg->SetString(QStringLiteral("U"), QStringLiteral("1"), ICfg::VIEW_User);
        QVERIFY(QDir(m_dir->path()).mkdir(QStringLiteral("Cfg.usr.xml.temp")));
        CompareException([&] { cfg->SaveDocument(); },
                         QStringLiteral("Cannot open ") + Path(QStringLiteral("Cfg.usr.xml")) +
                             QStringLiteral(" for writing."),
                         QStringLiteral("SaveDocumentExtra"));
        QCOMPARE(cfg->GetString(QStringLiteral("U"), QString(), ICfg::VIEW_User), QStringLiteral("1"));
    }

    void sideFileNameTakenByAFolderIsNeverMoved_data()
    {
        QTest::addColumn<QString>("folder");
        QTest::newRow("side_file") << "Cfg.usr.xml";
        QTest::newRow("temp") << "Cfg.usr.xml.temp";
        QTest::newRow("backup") << "Cfg.usr.xml.bak";
        QTest::newRow("backup_temp") << "Cfg.usr.xml.bak.temp";
    }

    void sideFileNameTakenByAFolderIsNeverMoved()
    {
        QFETCH(QString, folder);
        CfgCenter::SetUsage(CfgCenter::USAGE_0);
        auto cfg = Open(MAIN);
        QVERIFY(QDir(m_dir->path()).mkdir(folder));
        Write(Path(folder + QStringLiteral("/inside")), "kept");
        const QStringList before = FilesInDir();
        cfg->SetString(QStringLiteral("U"), QStringLiteral("1"), ICfg::VIEW_User);
        CompareException([&] { cfg->SaveDocument(); },
                         QStringLiteral("Cannot open ") + Path(QStringLiteral("Cfg.usr.xml")) +
                             QStringLiteral(" for writing."),
                         QStringLiteral("SaveDocumentExtra"));
        QCOMPARE(FilesInDir(), before);
        QCOMPARE(Read(Path(folder + QStringLiteral("/inside"))), QByteArray("kept"));
        QCOMPARE(cfg->GetString(QStringLiteral("U"), QString(), ICfg::VIEW_User), QStringLiteral("1"));
    }

    void mainFileNameTakenByAFolderIsNeverMoved_data()
    {
        QTest::addColumn<QString>("folder");
        QTest::newRow("backup") << "Cfg.xml.bak";
        QTest::newRow("backup_temp") << "Cfg.xml.bak.temp";
    }

    void mainFileNameTakenByAFolderIsNeverMoved()
    {
        QFETCH(QString, folder);
        auto cfg = Open(MAIN);
        QVERIFY(QDir(m_dir->path()).mkdir(folder));
        Write(Path(folder + QStringLiteral("/inside")), "kept");
        const QStringList before = FilesInDir();
        cfg->SetString(QStringLiteral("A"), QStringLiteral("1"));
        CompareException([&] { cfg->SaveDocument(); },
                         QStringLiteral("Cannot open ") + Path(QStringLiteral("Cfg.xml.bak.temp")) +
                             QStringLiteral(" for writing."),
                         QStringLiteral("SaveDocument"));
        QCOMPARE(FilesInDir(), before);
        QCOMPARE(Read(Path(QStringLiteral("Cfg.xml"))), MAIN);
        QCOMPARE(Read(Path(folder + QStringLiteral("/inside"))), QByteArray("kept"));
    }

    void userSideFileIsReadInEveryUsage_data()
    {
        QTest::addColumn<int>("usage");
        for (int usage = 0; usage <= 4; ++usage)
            QTest::newRow(qPrintable(QStringLiteral("usage_%1").arg(usage))) << usage;
    }

    void userSideFileIsReadInEveryUsage()
    {
        QFETCH(int, usage);
        CfgCenter::SetUsage(CfgCenter::CfgCenterUsage(usage));
        Write(Path(QStringLiteral("Cfg.usr.xml")),
              "<?xml version=\"1.0\"?><Cfg version=\"2.2\"><User><App><U>from side "
              "file</U></App></User></Cfg>");
        auto cfg = Open(MAIN);
        QCOMPARE(cfg->GetString(QStringLiteral("U"), QString(), ICfg::VIEW_User),
                 QStringLiteral("from side file"));
    }

    void saveOutsideTheMainThreadIsAsserted()
    {
        auto cfg = Open(MAIN);
        m_os->isAppThread = false;
        cfg->SaveDocument();
        const QRegularExpression line(QStringLiteral(
            "^configuration/cfgxml:\\d+ Assertion failed: ZentOS::Get\\(\\)\\.IsAppThread\\(\\)$"));
        QCOMPARE(m_traces.filter(line).size(), 1);
        m_traces.clear();
        m_os->isAppThread = true;
        cfg->SaveDocument();
        QCOMPARE(m_traces.filter(QStringLiteral("Assertion failed")).size(), 0);
    }

    void saveWritesTheMachineNameIntoTheDocumentConfiguration()
    {
        m_os->workStationName = L"HOST42";
        auto cfg = Open(MAIN, QString());
        CfgCenterTestAccess::SetDocCfg(cfg.get());
        cfg->SaveDocument();
        QCOMPARE(cfg->GetString(QStringLiteral("name"), QString(), ICfg::VIEW_Machine),
                 QStringLiteral("HOST42"));
        QVERIFY(Read(Path(QStringLiteral("Cfg.xml"))).contains(">HOST42</name>"));
    }

    void restoreBackupSetsTheFileAside()
    {
        Write(Path(QStringLiteral("Cfg.xml")), "current");
        Write(Path(QStringLiteral("Cfg.xml.bak")), "backup");
        m_os->time = 0;
        OpenCfgXml cfg(Path(QStringLiteral("Cfg.xml")), QStringLiteral("App"), ICfg::VIEW_Machine);
        cfg.RestoreBackup();
        QCOMPARE(Read(Path(QStringLiteral("Cfg.xml"))), QByteArray("backup"));
        QCOMPARE(Read(Path(QStringLiteral("Cfg.xml.corrupt.19700101_000000"))), QByteArray("current"));
    }

    void backupDocumentName()
    {
        OpenCfgXml cfg(Path(QStringLiteral("Cfg.xml")), QStringLiteral("App"), ICfg::VIEW_Machine);
        const QByteArray name = Path(QStringLiteral("Cfg.xml")).toUtf8();
        QCOMPARE(cfg.GetBackupDocumentName(name.constData()), QString());
        Write(Path(QStringLiteral("Cfg.xml.bak")), "x");
        QCOMPARE(cfg.GetBackupDocumentName(name.constData()), Path(QStringLiteral("Cfg.xml.bak")));
    }

    void operationsHoldTheCentresMutex()
    {
        QMutex mutex(QMutex::Recursive);
        CfgCenterTestAccess::SetMutex(&mutex);
        auto cfg = Open(MAIN);
        cfg->SetBoolean(QStringLiteral("B"), true);
        QCOMPARE(cfg->GetBoolean(QStringLiteral("B"), false), true);
        cfg->SaveDocument();
        QVERIFY(mutex.tryLock());
        mutex.unlock();
    }

    // ------------------------------------------------------------ values

    void valuesAndSubConfigurationsAreToldApart()
    {
        auto cfg = Open(Document("<System/><Domain/><Machine><App>"
                                 "<Mixed>text<Child/></Mixed>"
                                 "<Sub><X>1</X></Sub>"
                                 "<Empty protected=\"true\"/>"
                                 "<Bare/>"
                                 "<Plain>2</Plain>"
                                 "</App></Machine>"));
        QStringList values;
        for (int index = 0; !cfg->GetValueKeyAt(index).isEmpty(); ++index)
            values.append(cfg->GetValueKeyAt(index));
        QCOMPARE(values,
                 (QStringList{QStringLiteral("Mixed"), QStringLiteral("Empty"), QStringLiteral("Plain")}));
        QStringList subs;
        for (int index = 0;; ++index) {
            std::unique_ptr<ICfg> sub(cfg->CreateSubCfgAt(index));
            if (!sub)
                break;
            subs.append(sub->GetKey());
        }
        QCOMPARE(subs, (QStringList{QStringLiteral("App\\Sub"), QStringLiteral("App\\Bare")}));
        QCOMPARE(cfg->GetString(QStringLiteral("Mixed"), QString()), QStringLiteral("text"));
        QCOMPARE(cfg->GetString(QStringLiteral("Empty"), QStringLiteral("d")), QStringLiteral("d"));
    }

    void createSubCfgAtOnValuesOnlyIsNull()
    {
        auto cfg = Open(Document("<System/><Domain/><Machine><App><A>1</A><B>2</B></App></Machine>"));
        QCOMPARE(cfg->CreateSubCfgAt(0), static_cast<ICfg*>(nullptr));
        QCOMPARE(cfg->GetValueKeyAt(2), QString());
        OpenCfgXml missing(Path(QStringLiteral("Cfg.xml")), QStringLiteral("Nothing"), ICfg::VIEW_Machine);
        QCOMPARE(missing.CreateSubCfgAt(0), static_cast<ICfg*>(nullptr));
    }

    void childThatIsNoElementFailsTheEnumeration_data()
    {
        QTest::addColumn<QByteArray>("child");
        QTest::newRow("text") << QByteArray("text");
        QTest::newRow("comment") << QByteArray("<!-- a comment -->");
        QTest::newRow("processing_instruction") << QByteArray("<?pi data?>");
    }

    void childThatIsNoElementFailsTheEnumeration()
    {
        QFETCH(QByteArray, child);
        auto cfg =
            Open(Document("<System/><Domain/><Machine><App><Sub/>" + child + "<Next/></App></Machine>"));
        std::unique_ptr<ICfg> first(cfg->CreateSubCfgAt(0));
        QVERIFY(first);
        QCOMPARE(first->GetPartialKey(), QStringLiteral("Sub"));
        CompareException([&] { delete cfg->CreateSubCfgAt(1); },
                         QStringLiteral("Not all childs are elements."),
                         QStringLiteral("CreateSubCfgAtImpl"));
    }

    void setIntegerKeepsAnExistingType()
    {
        auto cfg = Open(Document("<System/><Domain/><Machine><App><V type=\"string\">x</V></App></Machine>"));
        cfg->SetInteger(QStringLiteral("V"), 12);
        QCOMPARE(cfg->GetAttributeType(QStringLiteral("V")), ICfg::TYPE_String);
        QCOMPARE(cfg->GetInteger(QStringLiteral("V"), 0), 12L);
        cfg->SetInteger(QStringLiteral("N"), 5);
        cfg->SetBoolean(QStringLiteral("B"), false);
        cfg->SetString(QStringLiteral("S"), QStringLiteral("s"));
        QCOMPARE(cfg->GetAttributeType(QStringLiteral("N")), ICfg::TYPE_Integer);
        QCOMPARE(cfg->GetAttributeType(QStringLiteral("B")), ICfg::TYPE_Boolean);
        QCOMPARE(cfg->GetAttributeType(QStringLiteral("S")), ICfg::TYPE_String);
        QCOMPARE(cfg->GetString(QStringLiteral("B"), QString()), QStringLiteral("false"));
    }

    void integerParsing_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<long>("expected");
        QTest::newRow("plain") << "4000" << 4000L;
        QTest::newRow("negative") << "-12" << -12L;
        QTest::newRow("trailing_letters_give_default") << "12abc" << 99L;
        QTest::newRow("hex_gives_default") << "0x10" << 99L;
        QTest::newRow("beyond_32_bits_gives_default") << "4294967296" << 99L;
    }

    void integerParsing()
    {
        QFETCH(QString, text);
        QFETCH(long, expected);
        auto cfg = Open(MAIN);
        cfg->SetString(QStringLiteral("V"), text);
        QCOMPARE(cfg->GetInteger(QStringLiteral("V"), 99), expected);
    }

    void nodesOwnTextHasAnEmptyName()
    {
        auto cfg = Open(MAIN);
        cfg->SetString(QString(), QStringLiteral("own"));
        QCOMPARE(cfg->GetString(QString(), QString()), QStringLiteral("own"));
        cfg->SetString(QString(), QStringLiteral("changed"));
        QCOMPARE(cfg->GetString(QString(), QString()), QStringLiteral("changed"));
    }

    void setAttributeTypeWritesTheLowerCaseName_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QString>("written");
        QTest::newRow("string") << 0 << "string";
        QTest::newRow("boolean") << 1 << "boolean";
        QTest::newRow("integer") << 2 << "integer";
        QTest::newRow("undefined_becomes_string") << 3 << "string";
    }

    void setAttributeTypeWritesTheLowerCaseName()
    {
        QFETCH(int, type);
        QFETCH(QString, written);
        auto cfg = Open(MAIN);
        m_os->time = 10;
        cfg->SetString(QStringLiteral("V"), QStringLiteral("1"));
        cfg->SetAttributeType(QStringLiteral("V"), ICfg::AttributeType(type));
        const QDomElement value = ParseElement(cfg->GetCfgAsStringFromApp(QStringLiteral("App")))
                                      .firstChildElement(QStringLiteral("Machine"))
                                      .firstChildElement(QStringLiteral("App"))
                                      .firstChildElement(QStringLiteral("V"));
        QCOMPARE(value.attribute(QStringLiteral("type")), written);
        QCOMPARE(value.attribute(QStringLiteral("ts")), QStringLiteral("11"));
    }

    void attributesAreFoundRemovedAndRenamed()
    {
        auto cfg = Open(
            Document("<System/><Domain/><Machine><App><A>1</A><B>2</B><Sub><C>3</C></Sub></App></Machine>"));
        QCOMPARE(cfg->HasAttribute(QString(), QStringLiteral("A")), true);
        QCOMPARE(cfg->HasAttribute(QStringLiteral("Sub"), QStringLiteral("C")), true);
        QCOMPARE(cfg->HasAttribute(QStringLiteral("Sub"), QStringLiteral("A")), false);
        QCOMPARE(cfg->RenameAttribute(QStringLiteral("A"), QStringLiteral("B")), false);
        QCOMPARE(cfg->GetString(QStringLiteral("B"), QString()), QStringLiteral("2"));
        QCOMPARE(cfg->RenameAttribute(QStringLiteral("A"), QStringLiteral("1bad")), false);
        QCOMPARE(cfg->RenameAttribute(QStringLiteral("A"), QStringLiteral("Z")), true);
        QCOMPARE(cfg->GetString(QStringLiteral("Z"), QString()), QStringLiteral("1"));
        QCOMPARE(cfg->HasAttribute(QString(), QStringLiteral("A")), false);
        QCOMPARE(cfg->RenameAttribute(QStringLiteral("A"), QStringLiteral("Y")), false);
        QCOMPARE(cfg->RemoveAttribute(QStringLiteral("Z")), true);
        QCOMPARE(cfg->RemoveAttribute(QStringLiteral("Z")), false);
        QCOMPARE(cfg->GetString(QStringLiteral("Z"), QStringLiteral("d")), QStringLiteral("d"));
    }

    void valueNameMayCarryAPath()
    {
        auto cfg = Open(MAIN);
        cfg->SetString(QStringLiteral("Sub\\Deep\\V"), QStringLiteral("x"));
        QCOMPARE(cfg->HasSubCfg(QStringLiteral("Sub\\Deep")), true);
        QCOMPARE(cfg->GetString(QStringLiteral("Sub\\Deep\\V"), QString()), QStringLiteral("x"));
        std::unique_ptr<ICfg> deep(cfg->CreateSubCfg(QStringLiteral("Sub\\Deep")));
        QCOMPARE(deep->GetKey(), QStringLiteral("App\\Sub\\Deep"));
        QCOMPARE(deep->GetString(QStringLiteral("V"), QString()), QStringLiteral("x"));
    }

    void writesThatCannotBeStoredAreRefused_data()
    {
        QTest::addColumn<QString>("setter");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("message");
        const QString notAName =
            QStringLiteral("The value \"%1\" was not stored: \"%2\" cannot be an XML element name.");
        for (const QString& setter :
             {QStringLiteral("SetString"), QStringLiteral("SetInteger"), QStringLiteral("SetBoolean"),
              QStringLiteral("SetProtected"), QStringLiteral("SetAttributeType")}) {
            const QByteArray prefix = setter.toLatin1() + "_";
            QTest::newRow(prefix + "space")
                << setter << "has space" << notAName.arg("has space", "has space");
            QTest::newRow(prefix + "leading_digit") << setter << "1st" << notAName.arg("1st", "1st");
            QTest::newRow(prefix + "slash") << setter << "a/b" << notAName.arg("a/b", "a/b");
            QTest::newRow(prefix + "bad_path")
                << setter << "Sub\\1st\\V" << notAName.arg("Sub\\1st\\V", "1st");
            QTest::newRow(prefix + "empty_after_path") << setter << "Sub\\" << notAName.arg("Sub\\", "");
        }
        QTest::newRow("SetString_control_character")
            << "SetString"
            << "V"
            << QStringLiteral("The value \"V\" was not stored: its text contains the character U+0001, "
                              "which XML cannot carry.");
        QTest::newRow("SetString_noncharacter")
            << "SetString"
            << "V"
            << QStringLiteral("The value \"V\" was not stored: its text contains the character U+FFFF, "
                              "which XML cannot carry.");
        QTest::newRow("SetString_unpaired_surrogate")
            << "SetString"
            << "V"
            << QStringLiteral("The value \"V\" was not stored: its text contains the character U+D800, "
                              "which XML cannot carry.");
    }

    void writesThatCannotBeStoredAreRefused()
    {
        QFETCH(QString, setter);
        QFETCH(QString, name);
        QFETCH(QString, message);
        auto cfg = Open(MAIN);
        QString text = QStringLiteral("ok");
        if (QTest::currentDataTag() == QByteArray("SetString_control_character"))
            text = QStringLiteral("a") + QChar(0x01) + QStringLiteral("b");
        else if (QTest::currentDataTag() == QByteArray("SetString_noncharacter"))
            text = QStringLiteral("a") + QChar(0xFFFF);
        else if (QTest::currentDataTag() == QByteArray("SetString_unpaired_surrogate"))
            text = QStringLiteral("a") + QChar(0xD800) + QStringLiteral("b");
        CompareException(
            [&] {
                if (setter == QLatin1String("SetString"))
                    cfg->SetString(name, text);
                else if (setter == QLatin1String("SetInteger"))
                    cfg->SetInteger(name, 5);
                else if (setter == QLatin1String("SetBoolean"))
                    cfg->SetBoolean(name, true);
                else if (setter == QLatin1String("SetProtected"))
                    cfg->SetProtected(name, true);
                else
                    cfg->SetAttributeType(name, ICfg::TYPE_Integer);
            },
            message, setter);
        // Nothing of the refused write is left behind, not even its path.
        QCOMPARE(cfg->GetValueKeyAt(0), QString());
        QCOMPARE(cfg->HasSubCfg(QStringLiteral("Sub")), false);
        cfg->SaveDocument();
        QDomDocument reread;
        QVERIFY(reread.setContent(Read(Path(QStringLiteral("Cfg.xml")))));
        QCOMPARE(ParseElement(Read(Path(QStringLiteral("Cfg.xml"))))
                     .firstChildElement(QStringLiteral("Machine"))
                     .firstChildElement(QStringLiteral("App"))
                     .childNodes()
                     .size(),
                 0);
    }

    void writesBelowAKeyThatCannotBeAnElementAreRefused()
    {
        Write(Path(QStringLiteral("Cfg.xml")), MAIN);
        OpenCfgXml cfg(Path(QStringLiteral("Cfg.xml")), QStringLiteral("App\\My Part"), ICfg::VIEW_Machine);
        cfg.OpenDocument(false);
        CompareException(
            [&] { cfg.SetInteger(QStringLiteral("V"), 1); },
            QStringLiteral("The value \"V\" was not stored: \"My Part\" cannot be an XML element name."),
            QStringLiteral("SetInteger"));
    }

    void writesToAUserPartitionThatCannotBeAnElementAreRefused()
    {
        auto cfg = Open(MAIN, QStringLiteral("App"), ICfg::VIEW_User);
        CfgCenterTestAccess::SetAppCfg(cfg.get());
        cfg->SetUserViewSubkey(QStringLiteral("DOMAIN\\john"));
        QCOMPARE(cfg->GetString(QStringLiteral("V"), QStringLiteral("d")), QStringLiteral("d"));
        CompareException(
            [&] { cfg->SetString(QStringLiteral("V"), QStringLiteral("x")); },
            QStringLiteral("The value \"V\" was not stored: \"DOMAIN\\john\" cannot be an XML element "
                           "name."),
            QStringLiteral("SetString"));
    }

    void subConfigurationNamesThatCannotBeElementsAreReported_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("invalid");
        QTest::newRow("space") << "has space"
                               << "has space";
        QTest::newRow("leading_digit") << "1st"
                                       << "1st";
        QTest::newRow("slash") << "a/b"
                               << "a/b";
        QTest::newRow("bad_component") << "Sub\\a<b"
                                       << "a<b";
    }

    void subConfigurationNamesThatCannotBeElementsAreReported()
    {
        QFETCH(QString, key);
        QFETCH(QString, invalid);
        auto cfg = Open(MAIN);
        m_traces.clear();
        QCOMPARE(cfg->AddSubCfg(key), false);
        QCOMPARE(m_traces.size(), 1);
        QVERIFY2(m_traces[0].contains(
                     QStringLiteral("The sub-configuration \"%1\" was not stored: \"%2\" cannot be "
                                    "an XML element name.")
                         .arg(key, invalid)),
                 qPrintable(m_traces[0]));
        QCOMPARE(cfg->HasSubCfg(QStringLiteral("Sub")), false);
        m_traces.clear();
        QVERIFY(!cfg->CreateSubCfg(key));
        QCOMPARE(m_traces.size(), 1);
        QVERIFY2(m_traces[0].contains(
                     QStringLiteral("The sub-configuration \"%1\" does not exist: \"%2\" cannot be "
                                    "an XML element name.")
                         .arg(key, invalid)),
                 qPrintable(m_traces[0]));
    }

    void addSubCfgWithoutANameIsReported()
    {
        auto cfg = Open(MAIN);
        m_traces.clear();
        QCOMPARE(cfg->AddSubCfg(QString()), false);
        QCOMPARE(m_traces.size(), 1);
        QVERIFY2(m_traces[0].contains(QStringLiteral(
                     "The sub-configuration \"\" was not stored: \"\" cannot be an XML element name.")),
                 qPrintable(m_traces[0]));
    }

    void textsThatXmlCanCarryAreKeptAsGiven()
    {
        auto cfg = Open(MAIN);
        const QString text = QStringLiteral("ab\tc") + QString::fromUtf8("\xf0\x9f\x98\x80") +
                             QStringLiteral("\r\nd <&> \"'") + QChar(0xFFFD);
        cfg->SetString(QStringLiteral("V"), text);
        QCOMPARE(cfg->GetString(QStringLiteral("V"), QString()), text);
        cfg->SaveDocument();
        OpenCfgXml reopened(Path(QStringLiteral("Cfg.xml")), QStringLiteral("App"), ICfg::VIEW_Machine);
        reopened.OpenDocument(false);
        QCOMPARE(reopened.GetString(QStringLiteral("V"), QString()), text);
    }

    void subConfigurationsAreAddedFoundAndRemoved()
    {
        auto cfg = Open(MAIN);
        QCOMPARE(cfg->HasSubCfg(QStringLiteral("Sub")), false);
        QCOMPARE(cfg->CreateSubCfg(QStringLiteral("Sub")), static_cast<ICfg*>(nullptr));
        QCOMPARE(cfg->AddSubCfg(QStringLiteral("Sub")), true);
        QCOMPARE(cfg->AddSubCfg(QStringLiteral("Sub")), true);
        QCOMPARE(cfg->HasSubCfg(QStringLiteral("Sub")), true);
        QCOMPARE(cfg->HasSubCfg(QStringLiteral("Sub"), ICfg::VIEW_User), false);
        std::unique_ptr<ICfg> sub(cfg->CreateSubCfg(QStringLiteral("Sub"), ICfg::VIEW_Current));
        QVERIFY(sub);
        QCOMPARE(sub->GetKey(), QStringLiteral("App\\Sub"));
        QCOMPARE(sub->GetTarget(), Path(QStringLiteral("Cfg.xml")));
        sub->SetString(QStringLiteral("V"), QStringLiteral("1"));
        QCOMPARE(cfg->GetString(QStringLiteral("Sub\\V"), QString()), QStringLiteral("1"));
        QCOMPARE(cfg->RemoveSubCfg(QStringLiteral("Sub")), true);
        QCOMPARE(cfg->RemoveSubCfg(QStringLiteral("Sub")), false);
        QCOMPARE(sub->GetString(QStringLiteral("V"), QStringLiteral("d")), QStringLiteral("d"));
    }

    void removeSubCfgWithEmptyNameRemovesTheNodeItself()
    {
        auto cfg = Open(Document("<System/><Domain/><Machine><App><V>1</V><Sub><W>2</W></Sub></App>"
                                 "<Other><X>3</X></Other></Machine>"));
        std::unique_ptr<ICfg> sub(cfg->CreateSubCfg(QStringLiteral("Sub")));
        QVERIFY(sub);
        QCOMPARE(sub->RemoveSubCfg(QString()), true);
        QCOMPARE(cfg->HasSubCfg(QStringLiteral("Sub")), false);
        QCOMPARE(cfg->GetString(QStringLiteral("V"), QString()), QStringLiteral("1"));
        QCOMPARE(cfg->RemoveSubCfg(QString()), true);
        QCOMPARE(cfg->GetString(QStringLiteral("V"), QStringLiteral("gone")), QStringLiteral("gone"));
        QCOMPARE(cfg->RemoveSubCfg(QString()), false);
    }

    void viewElementIsNotRemovable()
    {
        auto whole = Open(Document("<System/><Domain/><Machine><App><V>1</V></App></Machine>"), QString());
        QCOMPARE(whole->RemoveSubCfg(QString()), false);
        QCOMPARE(whole->HasSubCfg(QStringLiteral("App")), true);
    }

    void moveSubCfg()
    {
        auto cfg =
            Open(Document("<System/><Domain/><Machine><App><From><V>1</V></From><Taken/></App></Machine>"));
        QCOMPARE(cfg->MoveSubCfg(QStringLiteral("From"), QStringLiteral("Taken")), false);
        QCOMPARE(cfg->MoveSubCfg(QStringLiteral("From"), QStringLiteral("From\\Inner")), false);
        QCOMPARE(cfg->MoveSubCfg(QStringLiteral("Missing"), QStringLiteral("Else")), false);
        QCOMPARE(cfg->MoveSubCfg(QStringLiteral("From"), QStringLiteral("New\\Place")), true);
        QCOMPARE(cfg->HasSubCfg(QStringLiteral("From")), false);
        QCOMPARE(cfg->GetString(QStringLiteral("New\\Place\\V"), QString()), QStringLiteral("1"));
    }

    void assignDefaultsTypesProtectedValues()
    {
        auto cfg =
            Open(Document("<System><App><S protected=\"true\">x</S></App></System><Domain/><Machine><App>"
                          "<B protected=\"true\">false</B><I protected=\"true\">-42</I>"
                          "<T protected=\"true\">text</T><E protected=\"true\"/>"
                          "<Free>true</Free><Typed protected=\"true\" type=\"string\">1</Typed>"
                          "</App></Machine>"));
        const QDomElement root = ParseElement(cfg->GetCfgAsStringFromApp(QStringLiteral("App")));
        const QDomElement app =
            root.firstChildElement(QStringLiteral("Machine")).firstChildElement(QStringLiteral("App"));
        QCOMPARE(app.firstChildElement(QStringLiteral("B")).attribute(QStringLiteral("type")),
                 QStringLiteral("boolean"));
        QCOMPARE(app.firstChildElement(QStringLiteral("I")).attribute(QStringLiteral("type")),
                 QStringLiteral("integer"));
        QCOMPARE(app.firstChildElement(QStringLiteral("T")).attribute(QStringLiteral("type")),
                 QStringLiteral("string"));
        QCOMPARE(app.firstChildElement(QStringLiteral("E")).attribute(QStringLiteral("type")),
                 QStringLiteral("string"));
        QCOMPARE(app.firstChildElement(QStringLiteral("Free")).hasAttribute(QStringLiteral("type")), false);
        QCOMPARE(app.firstChildElement(QStringLiteral("Typed")).attribute(QStringLiteral("type")),
                 QStringLiteral("string"));
        QCOMPARE(root.firstChildElement(QStringLiteral("System"))
                     .firstChildElement(QStringLiteral("App"))
                     .firstChildElement(QStringLiteral("S"))
                     .attribute(QStringLiteral("type")),
                 QStringLiteral("string"));
    }

    void recursiveCloneCopiesChildren()
    {
        QDomDocument source;
        source.setContent(QByteArray("<S><A x=\"1\">t<B/></A><C/></S>"));
        QDomDocument target;
        target.setContent(QByteArray("<T><Old/></T>"));
        const QDomElement result = CfgXml::RecursiveClone(source.documentElement(), target.documentElement());
        QCOMPARE(result, target.documentElement());
        QCOMPARE(target.toByteArray(-1), QByteArray("<T><Old/><A x=\"1\">t<B/></A><C/></T>"));
    }

    void manySiblingsStayConsistent()
    {
        CfgXml::SetTimeStampsEnabled(false);
        auto cfg = Open(MAIN);
        for (int i = 0; i < 2000; ++i)
            cfg->SetInteger(QStringLiteral("V%1").arg(i), i);
        QCOMPARE(cfg->GetInteger(QStringLiteral("V1999"), -1), 1999L);
        QCOMPARE(cfg->RemoveAttribute(QStringLiteral("V5")), true);
        QCOMPARE(cfg->GetInteger(QStringLiteral("V5"), -1), -1L);
        QCOMPARE(cfg->RenameAttribute(QStringLiteral("V6"), QStringLiteral("V5")), true);
        QCOMPARE(cfg->GetInteger(QStringLiteral("V5"), -1), 6L);
        QCOMPARE(cfg->GetInteger(QStringLiteral("V6"), -1), -1L);
        cfg->SetInteger(QStringLiteral("V6"), 66);
        QCOMPARE(cfg->GetInteger(QStringLiteral("V6"), -1), 66L);
        QCOMPARE(cfg->GetValueKeyAt(1999), QStringLiteral("V6"));
        QElapsedTimer timer;
        timer.start();
        for (int i = 0; i < 20000; ++i)
            cfg->GetInteger(QStringLiteral("V%1").arg(i % 2000), 0);
        QVERIFY2(timer.elapsed() < 5000, "reads are linear in the number of siblings");
    }

    // ------------------------------------------------------------ user partitions

    void userSubkeySelectsItsPartition_data()
    {
        QTest::addColumn<QString>("subkey");
        QTest::addColumn<QString>("partition");
        QTest::newRow("spaces_become_dots") << "John Smith"
                                            << "John.Smith";
        QTest::newRow("leading_digit_gets_underscore") << "1st"
                                                       << "_1st";
    }

    void userSubkeySelectsItsPartition()
    {
        QFETCH(QString, subkey);
        QFETCH(QString, partition);
        auto cfg = Open(Document("<System/><Domain/><Machine/><User><App><U>plain</U></App></User>"),
                        QStringLiteral("App"), ICfg::VIEW_User);
        CfgCenterTestAccess::SetAppCfg(cfg.get());
        cfg->SetUserViewSubkey(subkey);
        QCOMPARE(cfg->GetString(QStringLiteral("U"), QString()), QStringLiteral("plain"));
        cfg->SetString(QStringLiteral("U"), QStringLiteral("mine"));
        QCOMPARE(cfg->GetUsers(), std::list<QString>{partition});
        cfg->SaveDocument();
        const QDomElement user =
            ParseElement(Read(Path(QStringLiteral("Cfg.xml")))).firstChildElement(QStringLiteral("User"));
        const QDomElement login =
            user.firstChildElement(QStringLiteral("xyZ9Subkey1Zxy")).firstChildElement(partition);
        QCOMPARE(login.attribute(QStringLiteral("nodeType")), QStringLiteral("loginUser"));
        QCOMPARE(login.firstChildElement(QStringLiteral("App")).firstChildElement(QStringLiteral("U")).text(),
                 QStringLiteral("mine"));
        QCOMPARE(user.firstChildElement(QStringLiteral("App")).firstChildElement(QStringLiteral("U")).text(),
                 QStringLiteral("plain"));
    }

    void namedConfigurations()
    {
        auto cfg = Open(MAIN, QStringLiteral("App"), ICfg::VIEW_User);
        QVERIFY(cfg->GetUserConfigurations().empty());
        CfgCenterTestAccess::SetAppCfg(cfg.get());
        cfg->SetUserViewSubkey(QStringLiteral("Ann"));
        cfg->SetString(QStringLiteral("V"), QStringLiteral("base"));
        cfg->SaveConfigurationName(QStringLiteral("A"));
        cfg->SaveConfigurationName(QStringLiteral("B"));
        QCOMPARE(cfg->GetAdditionalUserViewSubkey(), std::list<QString>{QStringLiteral("UC___B")});
        QCOMPARE(cfg->GetUserConfigurations(),
                 (std::list<QString>{QStringLiteral("A"), QStringLiteral("B")}));
        QCOMPARE(cfg->GetActiveUserConfiguraton(), QStringLiteral("B"));
        QCOMPARE(cfg->UsingUserConfiguration(), true);
        cfg->SetString(QStringLiteral("V"), QStringLiteral("in B"));
        cfg->SetUserViewSubkey(QStringLiteral("Bob"));
        QCOMPARE(cfg->UsingUserConfiguration(), false);
        // A partition starts as a copy of the plain user view on first access.
        QCOMPARE(cfg->GetString(QStringLiteral("V"), QStringLiteral("d")), QStringLiteral("d"));
        cfg->SetUserViewSubkey(QStringLiteral("Ann"));
        QCOMPARE(cfg->GetAdditionalUserViewSubkey(), std::list<QString>{QStringLiteral("UC___B")});
        QCOMPARE(cfg->GetString(QStringLiteral("V"), QString()), QStringLiteral("in B"));
        cfg->RenameConfigurationName(QStringLiteral("B"), QStringLiteral("C"));
        QCOMPARE(cfg->GetAdditionalUserViewSubkey(), std::list<QString>{QStringLiteral("UC___C")});
        QCOMPARE(cfg->GetString(QStringLiteral("V"), QString()), QStringLiteral("in B"));
        cfg->DeleteConfigurationName(QStringLiteral("C"));
        QCOMPARE(cfg->GetUserConfigurations(), std::list<QString>{QStringLiteral("A")});
        // Deleting leaves the list of partitions alone.
        QCOMPARE(cfg->UsingUserConfiguration(), true);
        QCOMPARE(cfg->GetUsers(), (std::list<QString>{QStringLiteral("Ann"), QStringLiteral("Bob")}));
        cfg->DeleteUser(QStringLiteral("Bob"));
        QCOMPARE(cfg->GetUsers(), std::list<QString>{QStringLiteral("Ann")});
    }

    // Reads remember where they found a value; the next tests read a value,
    // change the document's structure, and read again.
    void readAfterRemovingASubConfigurationReturnsTheDefault()
    {
        auto cfg = Open(Document("<System/><Domain/><Machine><App><Sub><A>1</A></Sub></App></Machine>"));
        QCOMPARE(cfg->GetString(QStringLiteral("Sub\\A"), QStringLiteral("d")), QStringLiteral("1"));
        QCOMPARE(cfg->RemoveSubCfg(QStringLiteral("Sub")), true);
        QCOMPARE(cfg->GetString(QStringLiteral("Sub\\A"), QStringLiteral("d")), QStringLiteral("d"));
        QCOMPARE(cfg->GetInteger(QStringLiteral("Sub\\A"), 7), 7L);
    }

    void readAfterMovingASubConfigurationFollowsTheMove()
    {
        auto cfg = Open(Document("<System/><Domain/><Machine><App><Sub><A>1</A></Sub></App></Machine>"));
        QCOMPARE(cfg->GetString(QStringLiteral("Sub\\A"), QStringLiteral("d")), QStringLiteral("1"));
        QCOMPARE(cfg->GetString(QStringLiteral("Moved\\A"), QStringLiteral("d")), QStringLiteral("d"));
        QCOMPARE(cfg->MoveSubCfg(QStringLiteral("Sub"), QStringLiteral("Moved")), true);
        QCOMPARE(cfg->GetString(QStringLiteral("Sub\\A"), QStringLiteral("d")), QStringLiteral("d"));
        QCOMPARE(cfg->GetString(QStringLiteral("Moved\\A"), QStringLiteral("d")), QStringLiteral("1"));
    }

    void readAfterRenamingAValueFindsTheNewName()
    {
        auto cfg = Open(Document("<System/><Domain/><Machine><App><A>1</A></App></Machine>"));
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QStringLiteral("d")), QStringLiteral("1"));
        QCOMPARE(cfg->GetString(QStringLiteral("Z"), QStringLiteral("d")), QStringLiteral("d"));
        QCOMPARE(cfg->RenameAttribute(QStringLiteral("A"), QStringLiteral("Z")), true);
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QStringLiteral("d")), QStringLiteral("d"));
        QCOMPARE(cfg->GetString(QStringLiteral("Z"), QStringLiteral("d")), QStringLiteral("1"));
    }

    void readAfterWritingFindsTheNewValue()
    {
        auto cfg = Open(Document("<System/><Domain/><Machine><App><A>1</A></App></Machine>"));
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QStringLiteral("d")), QStringLiteral("1"));
        QCOMPARE(cfg->GetString(QStringLiteral("Sub\\B"), QStringLiteral("d")), QStringLiteral("d"));
        cfg->SetString(QStringLiteral("A"), QStringLiteral("2"));
        cfg->SetString(QStringLiteral("Sub\\B"), QStringLiteral("3"));
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QStringLiteral("d")), QStringLiteral("2"));
        QCOMPARE(cfg->GetString(QStringLiteral("Sub\\B"), QStringLiteral("d")), QStringLiteral("3"));
        QCOMPARE(cfg->RemoveAttribute(QStringLiteral("A")), true);
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QStringLiteral("d")), QStringLiteral("d"));
    }

    // Writes go straight to a value that a read or write found before; the
    // next tests check that they still follow the document's changes.
    void writeAfterRemovingAValueCreatesItAgain()
    {
        auto cfg = Open(Document("<System/><Domain/><Machine><App><Sub><A>1</A></Sub></App></Machine>"));
        QCOMPARE(cfg->GetString(QStringLiteral("Sub\\A"), QStringLiteral("d")), QStringLiteral("1"));
        QCOMPARE(cfg->RemoveAttribute(QStringLiteral("Sub\\A")), true);
        cfg->SetString(QStringLiteral("Sub\\A"), QStringLiteral("2"));
        QCOMPARE(cfg->GetString(QStringLiteral("Sub\\A"), QStringLiteral("d")), QStringLiteral("2"));
        // Made afresh in the document (found without the remembered place),
        // outside the user view, so protected as every new value there.
        QCOMPARE(cfg->HasAttribute(QStringLiteral("Sub"), QStringLiteral("A")), true);
        QCOMPARE(cfg->IsProtected(QStringLiteral("Sub\\A")), true);
    }

    void writeAfterRemovingItsSubConfigurationCreatesThePathAgain()
    {
        auto cfg = Open(Document("<System/><Domain/><Machine><App><Sub><A>1</A></Sub></App></Machine>"));
        cfg->SetString(QStringLiteral("Sub\\A"), QStringLiteral("2"));
        QCOMPARE(cfg->RemoveSubCfg(QStringLiteral("Sub")), true);
        cfg->SetString(QStringLiteral("Sub\\A"), QStringLiteral("3"));
        QCOMPARE(cfg->GetString(QStringLiteral("Sub\\A"), QStringLiteral("d")), QStringLiteral("3"));
        QCOMPARE(cfg->HasSubCfg(QStringLiteral("Sub")), true);
    }

    void writeToARememberedValueStillRefusesATextXmlCannotCarry()
    {
        auto cfg = Open(Document("<System/><Domain/><Machine><App><A>1</A></App></Machine>"));
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QStringLiteral("d")), QStringLiteral("1"));
        CompareKVException(
            CaughtKVException([&] { cfg->SetString(QStringLiteral("A"), QString(QChar(0x0001))); }),
            QStringLiteral("The value \"A\" was not stored: its text contains the character U+0001, "
                           "which XML cannot carry."),
            QStringLiteral("configuration/cfgxml"), QStringLiteral("CfgXml"), QStringLiteral("SetString"));
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QStringLiteral("d")), QStringLiteral("1"));
    }

    void readAfterReopeningFindsTheRestoredBackup()
    {
        auto cfg = Open(Document("<System/><Domain/><Machine><App><A>current</A></App></Machine>"));
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QStringLiteral("d")), QStringLiteral("current"));
        Write(Path(QStringLiteral("Cfg.xml.bak")),
              Document("<System/><Domain/><Machine><App><B><A>backup</A></B></App></Machine>"));
        cfg->RestoreBackup();
        // The document in memory stays as it was until it is opened again.
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QStringLiteral("d")), QStringLiteral("current"));
        cfg->OpenDocument(true);
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QStringLiteral("d")), QStringLiteral("d"));
        QCOMPARE(cfg->GetString(QStringLiteral("B\\A"), QStringLiteral("d")), QStringLiteral("backup"));
        Write(Path(QStringLiteral("Cfg.xml")),
              Document("<System/><Domain/><Machine><App><A>again</A></App></Machine>"));
        cfg->OpenDocument(true);
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QStringLiteral("d")), QStringLiteral("again"));
        QCOMPARE(cfg->GetString(QStringLiteral("B\\A"), QStringLiteral("d")), QStringLiteral("d"));
    }

    void readAfterClosingFindsNoDocument()
    {
        auto cfg = Open(Document("<System/><Domain/><Machine><App><A>1</A></App></Machine>"));
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QStringLiteral("d")), QStringLiteral("1"));
        cfg->CloseDocument();
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QStringLiteral("d")), QStringLiteral("d"));
    }

    void readInTheUserViewFollowsAPartitionChangedThroughAnotherDocument()
    {
        CfgCenter::SetUsage(CfgCenter::USAGE_0);
        Write(Path(QStringLiteral("Cfg.usr.xml")),
              "<?xml version = '1.0'?><Cfg version='2.2'><User><xyZ9Subkey1Zxy><P1><A>one</A></P1>"
              "<P2><A>two</A></P2></xyZ9Subkey1Zxy><A>plain</A></User></Cfg>");
        auto cfg = Open(MAIN, QString(), ICfg::VIEW_User);
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QStringLiteral("d")), QStringLiteral("plain"));
        OpenCfgXml other(Path(QStringLiteral("Other.xml")), QString(), ICfg::VIEW_User);
        other.SetAdditionalUserViewSubkey({QStringLiteral("P1")});
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QStringLiteral("d")), QStringLiteral("one"));
        other.SetAdditionalUserViewSubkey({QStringLiteral("P2")});
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QStringLiteral("d")), QStringLiteral("two"));
        other.SetAdditionalUserViewSubkey({});
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QStringLiteral("d")), QStringLiteral("plain"));
    }

    void readsThroughSeveralObjectsOfOneDocumentKeepTheirOwnKeys()
    {
        auto cfg =
            Open(Document("<System/><Domain/><Machine><App><A>app</A><Sub><A>sub</A></Sub></App></Machine>"));
        std::unique_ptr<ICfg> sub(cfg->CreateSubCfg(QStringLiteral("Sub")));
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QStringLiteral("d")), QStringLiteral("app"));
        QCOMPARE(sub->GetString(QStringLiteral("A"), QStringLiteral("d")), QStringLiteral("sub"));
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QStringLiteral("d"), ICfg::VIEW_System),
                 QStringLiteral("d"));
        QCOMPARE(cfg->RemoveSubCfg(QStringLiteral("Sub")), true);
        QCOMPARE(sub->GetString(QStringLiteral("A"), QStringLiteral("d")), QStringLiteral("d"));
        QCOMPARE(cfg->GetString(QStringLiteral("A"), QStringLiteral("d")), QStringLiteral("app"));
    }

    void enumerationsFollowChangesOnCrowdedNodes()
    {
        QByteArray children;
        for (int i = 0; i < 20; ++i)
            children += "<S" + QByteArray::number(i) + "/><V" + QByteArray::number(i) + ">v</V" +
                        QByteArray::number(i) + ">";
        auto cfg = Open(Document("<System/><Domain/><Machine><App>" + children + "</App></Machine>"));
        const auto subNames = [&] {
            QStringList names;
            for (int index = 0;; ++index) {
                std::unique_ptr<ICfg> sub(cfg->CreateSubCfgAt(index));
                if (!sub)
                    return names;
                names.append(sub->GetPartialKey());
            }
        };
        const auto valueNames = [&] {
            QStringList names;
            for (int index = 0; !cfg->GetValueKeyAt(index).isEmpty(); ++index)
                names.append(cfg->GetValueKeyAt(index));
            return names;
        };
        QCOMPARE(subNames().size(), 20);
        QCOMPARE(valueNames().size(), 20);
        cfg->SetString(QStringLiteral("S0"), QStringLiteral("now a value"));
        QCOMPARE(subNames().first(), QStringLiteral("S1"));
        QCOMPARE(valueNames().first(), QStringLiteral("S0"));
        cfg->SetProtected(QStringLiteral("S1"), false);
        QCOMPARE(subNames().first(), QStringLiteral("S2"));
        QCOMPARE(valueNames().size(), 22);
        cfg->AddSubCfg(QStringLiteral("New"));
        cfg->SetString(QStringLiteral("NewValue"), QStringLiteral("x"));
        QCOMPARE(subNames().last(), QStringLiteral("New"));
        QCOMPARE(valueNames().last(), QStringLiteral("NewValue"));
        cfg->RemoveSubCfg(QStringLiteral("S2"));
        cfg->RemoveAttribute(QStringLiteral("V0"));
        QCOMPARE(subNames().first(), QStringLiteral("S3"));
        QCOMPARE(valueNames().value(2), QStringLiteral("V1"));
        cfg->SetString(QString(), QStringLiteral("own text"));
        CompareException([&] { delete cfg->CreateSubCfgAt(int(subNames().size())); },
                         QStringLiteral("Not all childs are elements."),
                         QStringLiteral("CreateSubCfgAtImpl"));
    }

    // ------------------------------------------------------------ exchange

    void exchangeBetweenApplications()
    {
        CfgXml::SetTimeStampsEnabled(false);
        auto source =
            Open(Document("<System/><Domain/><Machine><App><A type=\"string\">1</A><Sub><B>2</B></Sub></App>"
                          "<Other><X>9</X></Other></Machine>"));
        const QByteArray bytes = source->GetCfgAsStringFromApp(QStringLiteral("App"));
        QCOMPARE(bytes, QByteArray("<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                                   "<Cfg version=\"2.2\">\n"
                                   "    <Machine>\n"
                                   "        <App>\n"
                                   "            <A type=\"string\">1</A>\n"
                                   "            <Sub>\n"
                                   "                <B>2</B>\n"
                                   "            </Sub>\n"
                                   "        </App>\n"
                                   "    </Machine>\n"
                                   "</Cfg>\n"));
        Write(
            Path(QStringLiteral("Target.xml")),
            Document(
                "<System/><Domain/><Machine><App><A>0</A><Keep>k</Keep><Sub><C>3</C></Sub></App></Machine>"));
        OpenCfgXml target(Path(QStringLiteral("Target.xml")), QStringLiteral("App"), ICfg::VIEW_Machine);
        target.OpenDocument(true);
        target.MergeCfgFromStringAndApp(bytes, QStringLiteral("App"));
        QCOMPARE(target.GetString(QStringLiteral("A"), QString()), QStringLiteral("1"));
        QCOMPARE(target.GetAttributeType(QStringLiteral("A")), ICfg::TYPE_String);
        QCOMPARE(target.GetString(QStringLiteral("Keep"), QString()), QStringLiteral("k"));
        QCOMPARE(target.GetString(QStringLiteral("Sub\\B"), QString()), QStringLiteral("2"));
        QCOMPARE(target.GetString(QStringLiteral("Sub\\C"), QString()), QStringLiteral("3"));
    }

    void unparsableExchangeBytesAreKeptForDiagnosis()
    {
        auto cfg = Open(MAIN);
        m_os->time = 777;
        const QByteArray bytes = "<Cfg><Machine>";
        int line = 0;
        int column = 0;
        const QString message = ParserMessage(bytes, &line, &column);
        cfg->MergeCfgFromStringAndApp(bytes, QStringLiteral("Peer"));
        const QString name = Path(QStringLiteral("Invalid_cfg_from_Peer_777.xml"));
        QCOMPARE(Read(name), bytes + "<ErrorInfo> <LineNumber>" + QByteArray::number(line) +
                                 "</LineNumber> <ColumnNumber>" + QByteArray::number(column) +
                                 "</ColumnNumber> <Message>" + message.toUtf8() + "</Message></ErrorInfo>");
        cfg->MergeCfgFromStringAndApp(bytes, QStringLiteral("Peer"));
        QVERIFY(QFile::exists(Path(QStringLiteral("Invalid_cfg_from_Peer_778.xml"))));
        QVERIFY(m_traces.last().endsWith(QStringLiteral("Configuration of Peer not merged; see ") +
                                         Path(QStringLiteral("Invalid_cfg_from_Peer_778.xml"))));
    }

    void interruptedSideFileRotationIsCompleted()
    {
        CfgCenter::SetUsage(CfgCenter::USAGE_0);
        Write(Path(QStringLiteral("Cfg.usr.xml.temp")),
              "<?xml version = '1.0'?><Cfg version='2.2'><User><App><U>saved</U></App></User></Cfg>");
        auto cfg = Open(MAIN);
        QCOMPARE(cfg->GetString(QStringLiteral("U"), QString(), ICfg::VIEW_User), QStringLiteral("saved"));
        QVERIFY(!QFile::exists(Path(QStringLiteral("Cfg.usr.xml.temp"))));
    }

    void lineEndNormalisation_data()
    {
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<QByteArray>("output");
        QTest::newRow("lf_gets_cr") << QByteArray("a\nb\n") << QByteArray("a\r\nb\r\n");
        QTest::newRow("crlf_stays") << QByteArray("a\r\nb") << QByteArray("a\r\nb");
        QTest::newRow("cr_runs_collapse") << QByteArray("a\r\r\r\nb\r\rc") << QByteArray("a\r\nb\rc");
        QTest::newRow("leading_lf") << QByteArray("\n\n") << QByteArray("\r\n\r\n");
        QTest::newRow("empty") << QByteArray() << QByteArray();
    }

    void lineEndNormalisation()
    {
        QFETCH(QByteArray, input);
        QFETCH(QByteArray, output);
        QCOMPARE(CfgXmlFile::NormaliseLineEnds(input), output);
    }

    void quickDepthScan_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("shallow");
        QTest::newRow("flat") << QByteArray("<?xml version='1.0' encoding='UTF-8'?><a><b/><c>x</c></a>")
                              << true;
        QTest::newRow("at_the_limit") << QByteArray("<a><b><c/></b></a>") << true;
        QTest::newRow("beyond_the_limit") << QByteArray("<a><b><c><d></d></c></b></a>") << false;
        QTest::newRow("quoted_markup_is_no_tag")
            << QByteArray("<a x='/>'><b y=\"<c>\"><c></c></b></a>") << true;
        QTest::newRow("comments_and_cdata_are_skipped")
            << QByteArray("<a><!-- <b><c><d> --><![CDATA[<b><c><d>]]><?pi <b><c>?></a>") << true;
        QTest::newRow("stray_end_tags_do_not_hide_depth") << QByteArray("</x></x></x><a><b><c><d>") << false;
        QTest::newRow("plain_document_type") << QByteArray("<!DOCTYPE a><a/>") << true;
        QTest::newRow("internal_subset_needs_the_exact_check") << QByteArray("<!DOCTYPE a []><a/>") << false;
        QTest::newRow("quoted_identifier_needs_the_exact_check")
            << QByteArray("<!DOCTYPE a SYSTEM \"x>\" [<!ENTITY e 'v'>]><a/>") << false;
        QTest::newRow("second_document_type_with_subset_needs_the_exact_check")
            << QByteArray("<!DOCTYPE a><!DOCTYPE b [<!ENTITY e 'v'>]><a/>") << false;
        QTest::newRow("utf16_needs_the_exact_check") << QByteArray("<\0a\0/\0>\0", 8) << false;
        QTest::newRow("other_encodings_need_the_exact_check")
            << QByteArray("<?xml version=\"1.0\" encoding=\"IBM037\"?><a/>") << false;
    }

    void quickDepthScan()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, shallow);
        QCOMPARE(CfgXmlFile::IsShallow(bytes, 3), shallow);
    }

    // ------------------------------------------------------------ robustness

    void garbageNeverCrashes_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("binary") << QByteArray("\x00\x01\xff\xfe<\x00C", 7);
        QTest::newRow("entity_bomb") << QByteArray(
            "<?xml version=\"1.0\"?><!DOCTYPE Cfg [<!ENTITY a \"aaaaaaaaaa\">"
            "<!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;\">"
            "<!ENTITY c \"&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;\">"
            "<!ENTITY d \"&c;&c;&c;&c;&c;&c;&c;&c;&c;&c;\">"
            "<!ENTITY e \"&d;&d;&d;&d;&d;&d;&d;&d;&d;&d;\">"
            "<!ENTITY f \"&e;&e;&e;&e;&e;&e;&e;&e;&e;&e;\">"
            "<!ENTITY g \"&f;&f;&f;&f;&f;&f;&f;&f;&f;&f;\">]>"
            "<Cfg><System/><Domain/><Machine><App><A>&g;</A></App></Machine></Cfg>");
        QTest::newRow("deep_nesting")
            << QByteArray("<Cfg><System/><Domain/><Machine>") + QByteArray("<a>").repeated(5000) +
                   QByteArray("</a>").repeated(5000) + QByteArray("</Machine></Cfg>");
        QTest::newRow("very_deep_nesting")
            << QByteArray("<Cfg><System/><Domain/><Machine>") + QByteArray("<a x='>'>").repeated(200000) +
                   QByteArray("</a>").repeated(200000) + QByteArray("</Machine></Cfg>");
        QTest::newRow("deep_nesting_behind_stray_end_tags")
            << QByteArray("<Cfg>") + QByteArray("</x>").repeated(300000) + QByteArray("<a>").repeated(200000);
        QTest::newRow("deep_nesting_in_utf16")
            << QByteArray("\xff\xfe", 2) +
                   Utf16(QStringLiteral("<Cfg>") + QStringLiteral("<a>").repeated(200000));
        QTest::newRow("deep_nesting_through_entities")
            << QByteArray("<!DOCTYPE Cfg [<!ENTITY x \"") + QByteArray("<a>").repeated(100000) +
                   QByteArray("</a>").repeated(100000) + QByteArray("\">]><Cfg>&x;</Cfg>");
        QTest::newRow("empty") << QByteArray();
    }

    void entityDeclarationsAreRejected()
    {
        const QByteArray bytes =
            "<!DOCTYPE Cfg [<!ENTITY x \"v\">]>\n<Cfg><System/><Domain/><Machine/></Cfg>";
        Write(Path(QStringLiteral("Cfg.xml")), bytes);
        OpenCfgXml cfg(Path(QStringLiteral("Cfg.xml")), QStringLiteral("App"), ICfg::VIEW_Machine);
        CompareException([&] { cfg.OpenDocument(false); },
                         FatalParseError(QStringLiteral("entity declarations are not allowed"), 1, 32),
                         QStringLiteral("OpenDocument"));
    }

    void deepNestingIsAParseError()
    {
        const QByteArray bytes =
            "<Cfg>" + QByteArray("<a>").repeated(1000) + QByteArray("</a>").repeated(1000) + "</Cfg>";
        Write(Path(QStringLiteral("Cfg.xml")), bytes);
        OpenCfgXml cfg(Path(QStringLiteral("Cfg.xml")), QStringLiteral("App"), ICfg::VIEW_Machine);
        CompareException([&] { cfg.OpenDocument(false); },
                         FatalParseError(QStringLiteral("elements nested too deeply"), 1, 3005),
                         QStringLiteral("OpenDocument"));
        Write(Path(QStringLiteral("Cfg.xml")),
              Document("<System/><Domain/><Machine>" + QByteArray("<a>").repeated(990) + "<V>deep</V>" +
                       QByteArray("</a>").repeated(990) + "</Machine>"));
        cfg.OpenDocument(false);
        QCOMPARE(cfg.HasSubCfg(QStringLiteral("a")), false);
        QCOMPARE(cfg.GetString(QStringLiteral("V"), QStringLiteral("d"), ICfg::VIEW_Machine),
                 QStringLiteral("d"));
    }

    void garbageNeverCrashes()
    {
        QFETCH(QByteArray, bytes);
        Write(Path(QStringLiteral("Cfg.xml")), bytes);
        OpenCfgXml cfg(Path(QStringLiteral("Cfg.xml")), QStringLiteral("App"), ICfg::VIEW_Machine);
        bool opened = false;
        try {
            cfg.OpenDocument(false);
            opened = true;
        } catch (const KVException& e) {
            QVERIFY(e.GetMessage().startsWith(QStringLiteral("Parse error in file ")) ||
                    e.GetMessage().endsWith(QStringLiteral(" is invalid. Element Cfg not found.")));
        }
        if (opened)
            QCOMPARE(cfg.GetString(QStringLiteral("A"), QStringLiteral("none")), QStringLiteral("none"));
        QCOMPARE(Read(Path(QStringLiteral("Cfg.xml"))), bytes);
    }
};

QTEST_GUILESS_MAIN(tst_CfgXml)
#include "tst_cfgxml.moc"
