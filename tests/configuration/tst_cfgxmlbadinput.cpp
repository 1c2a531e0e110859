// Broken configuration files: each one gives its exact exception or opens
// through a bounded, clean recovery; none crashes or hangs.

#include "common/recordingwriter.h"
#include "common/scopedcurrentdir.h"
#include "configuration/cfgcenter.h"
#include "configuration/cfgcentertestaccess.h"
#include "configuration/cfgxml.h"
#include "kvbase/errorhandler.h"
#include "kvbase/kvexception.h"

#include <QDir>
#include <QDomDocument>
#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <functional>
#include <memory>

namespace {

/// Generous even for sanitizer builds; a hang would take for ever.
constexpr qint64 BOUND_MS = 30000;

const QString PARSE_ERROR = QStringLiteral("Parse error in file %1: %2 at line %3 in column %4. And no valid "
                                           "backup file found.\n\nTALVO terminates!");
const QString SIDE_PARSE_ERROR = QStringLiteral("Parse error in file %1: %2 at line %3 in column %4.");

const QByteArray GOOD_BACKUP =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Cfg version=\"2.2\"><System/><Domain/>"
    "<Machine><App><Port type=\"integer\" protected=\"true\">4000</Port></App></Machine>"
    "</Cfg>\n";

class OpenCfgXml : public CfgXml
{
public:
    using CfgXml::CfgXml;
    using CfgXml::SaveDocument;
};

QByteArray Fixture(const QString& name)
{
    QFile file(QStringLiteral(":/badinput/") + name);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray("<missing fixture>");
    return file.readAll();
}

/// The parse error text as the document would report it: the parser's own
/// message, line and column for these bytes.
QString QtParseError(const QString& format, const QString& fileName, const QByteArray& bytes)
{
    QDomDocument document;
    QString message;
    int line = 0;
    int column = 0;
    if (document.setContent(bytes, &message, &line, &column))
        return QStringLiteral("<parses>");
    return format.arg(fileName, message, QString::number(line), QString::number(column));
}

/// Ten entities, each ten times the one before: a billion copies of "lol".
QByteArray EntityBomb()
{
    QByteArray bytes = "<?xml version=\"1.0\"?>\n<!DOCTYPE Cfg [\n<!ENTITY lol0 \"lol\">\n";
    for (int level = 1; level < 10; ++level) {
        bytes += "<!ENTITY lol" + QByteArray::number(level) + " \"";
        for (int i = 0; i < 10; ++i)
            bytes += "&lol" + QByteArray::number(level - 1) + ";";
        bytes += "\">\n";
    }
    bytes += "]>\n<Cfg "
             "version=\"2.2\"><System/><Domain/><Machine><App><Name>&lol9;</Name></App></Machine></Cfg>\n";
    return bytes;
}

/// One entity of 100 KB referenced 10,000 times: a gigabyte without nesting.
QByteArray QuadraticBlowup()
{
    return "<?xml version=\"1.0\"?>\n<!DOCTYPE Cfg [<!ENTITY big \"" + QByteArray(100000, 'x') +
           "\">]>\n<Cfg version=\"2.2\"><System/><Domain/><Machine><App><Name>" +
           QByteArray("&big;").repeated(10000) + "</Name></App></Machine></Cfg>\n";
}

constexpr int FIFTY_MB = 50 * 1024 * 1024;

QByteArray FiftyMegabyteValueDocument()
{
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Cfg version=\"2.2\"><System/><Domain/><Machine><App>"
           "<Blob protected=\"true\">" +
           QByteArray(FIFTY_MB, 'b') + "</Blob></App></Machine></Cfg>\n";
}

} // namespace

class tst_CfgXmlBadInput : public QObject
{
    Q_OBJECT

private:
    // The export side file falls back to the current folder.
    std::unique_ptr<CurrentTemporaryDir> m_dir;
    QStringList m_traces;
    QStringList m_messages;

    QString FileName() const { return m_dir->filePath(QStringLiteral("Cfg.xml")); }

    static void Write(const QString& fileName, const QByteArray& bytes)
    {
        QFile file(fileName);
        QVERIFY2(file.open(QIODevice::WriteOnly | QIODevice::Truncate), qPrintable(fileName));
        QCOMPARE(file.write(bytes), qint64(bytes.size()));
    }

    static QByteArray Read(const QString& fileName)
    {
        QFile file(fileName);
        if (!file.open(QIODevice::ReadOnly))
            return QByteArray("<missing>");
        return file.readAll();
    }

    QStringList CorruptFiles() const
    {
        return QDir(m_dir->path()).entryList({QStringLiteral("Cfg.xml.corrupt.*")}, QDir::Files);
    }

    /// Opens `fileName` and returns the exception's message, or "" when the
    /// document opened; the exception's other fields are checked on the way.
    static QString OpenError(CfgXml& cfg, bool restoreAllowed)
    {
        try {
            cfg.OpenDocument(restoreAllowed);
        } catch (const KVException& e) {
            if (e.GetSourceFile() != QStringLiteral("configuration/cfgxml") ||
                e.GetClassName() != QStringLiteral("CfgXml") ||
                e.GetOperation() != QStringLiteral("OpenDocument") || e.GetCode() != -1)
                return QStringLiteral("unexpected fields: %1 %2 %3 %4")
                    .arg(e.GetSourceFile(), e.GetClassName(), e.GetOperation())
                    .arg(e.GetCode());
            return e.GetMessage();
        }
        return QString();
    }

    /// The bounded open: its error (or "") and a check that it took no longer than the bound.
    QString BoundedOpenError(CfgXml& cfg, bool restoreAllowed)
    {
        QElapsedTimer timer;
        timer.start();
        const QString error = OpenError(cfg, restoreAllowed);
        if (timer.elapsed() > BOUND_MS)
            return QStringLiteral("took %1 ms").arg(timer.elapsed());
        return error;
    }

    static QString GetNodeError(const std::function<void()>& call)
    {
        try {
            call();
        } catch (const KVException& e) {
            return e.GetOperation() + QLatin1Char(' ') + e.GetMessage();
        }
        return QStringLiteral("no exception");
    }

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void init()
    {
        m_dir = std::make_unique<CurrentTemporaryDir>();
        QVERIFY2(m_dir->isValid(), qPrintable(m_dir->errorString()));
        m_traces.clear();
        m_messages.clear();
        CfgCenterTestAccess::Reset();
        CfgCenter::SetUsage(CfgCenter::USAGE_2);
        ErrorHandler::Instance().ResetMessageMask();
        ErrorHandler::Instance().SetMessageMask(ErrorHandler::Q_TRACE, true);
        ErrorHandler::Instance().SetLogTracer(new RecordingWriter(&m_traces));
        ErrorHandler::Instance().SetMessagePresenter(
            [this](ErrorHandler::MessageKind, const QString& text) { m_messages.append(text); });
        ErrorHandler::Instance().SetMessageDialog({});
    }

    void cleanup()
    {
        ErrorHandler::Instance().SetLogTracer(nullptr);
        ErrorHandler::Instance().SetMessagePresenter({});
        ErrorHandler::Instance().ResetMessageMask();
        CfgCenterTestAccess::Reset();
        m_dir.reset();
    }

    // ------------------------------------------------------------ unparsable files

    void unparsableFileThrowsTheParseError_data()
    {
        QTest::addColumn<QString>("fixture");
        QTest::newRow("truncated_inside_a_value") << QStringLiteral("truncated.xml");
        QTest::newRow("plain_text") << QStringLiteral("plain-text.txt");
        QTest::newRow("binary_image") << QStringLiteral("binary.png");
        QTest::newRow("empty_file") << QStringLiteral("empty.xml");
        QTest::newRow("mismatched_end_tag") << QStringLiteral("mismatched-end-tag.xml");
        QTest::newRow("second_root_element") << QStringLiteral("two-roots.xml");
    }

    void unparsableFileThrowsTheParseError()
    {
        QFETCH(QString, fixture);
        const QByteArray bytes = Fixture(fixture);
        Write(FileName(), bytes);
        CfgXml cfg(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
        QCOMPARE(BoundedOpenError(cfg, true), QtParseError(PARSE_ERROR, FileName(), bytes));
        QCOMPARE(Read(FileName()), bytes);
        QCOMPARE(CorruptFiles(), QStringList());
        QCOMPARE(cfg.GetString(QStringLiteral("Port"), QStringLiteral("none")), QStringLiteral("none"));
    }

    void unparsableFileIsSetAsideAndRestoredFromItsBackup_data() { unparsableFileThrowsTheParseError_data(); }

    void unparsableFileIsSetAsideAndRestoredFromItsBackup()
    {
        QFETCH(QString, fixture);
        const QByteArray bytes = Fixture(fixture);
        Write(FileName(), bytes);
        Write(FileName() + QStringLiteral(".bak"), GOOD_BACKUP);
        CfgXml cfg(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
        QCOMPARE(BoundedOpenError(cfg, true), QString());
        QCOMPARE(cfg.GetInteger(QStringLiteral("Port"), -1), 4000L);
        QCOMPARE(Read(FileName()), GOOD_BACKUP);
        const QStringList corrupt = CorruptFiles();
        QCOMPARE(corrupt.size(), 1);
        QVERIFY2(QRegularExpression(QStringLiteral("^Cfg\\.xml\\.corrupt\\.\\d{8}_\\d{6}$"))
                     .match(corrupt.front())
                     .hasMatch(),
                 qPrintable(corrupt.front()));
        QCOMPARE(Read(m_dir->filePath(corrupt.front())), bytes);
        QVERIFY(m_traces.last().endsWith(FileName() + QStringLiteral(" defect, restoring backup file")));
    }

    // ------------------------------------------------------------ lenient parsing

    void lenientlyParsedFileOpensAndSurvivesASave_data()
    {
        QTest::addColumn<QString>("fixture");
        QTest::addColumn<QString>("name");
        QTest::newRow("invalid_utf8_becomes_a_replacement_character")
            << QStringLiteral("invalid-utf8.xml")
            << QStringLiteral("caf") + QChar(0xFFFD) + QStringLiteral("(");
        QTest::newRow("undeclared_entity_is_no_text")
            << QStringLiteral("undeclared-entity.xml") << QStringLiteral("none");
        QTest::newRow("nul_byte_is_kept") << QStringLiteral("nul-byte.xml")
                                          << QStringLiteral("before") + QChar(0) + QStringLiteral("after");
    }

    void lenientlyParsedFileOpensAndSurvivesASave()
    {
        QFETCH(QString, fixture);
        QFETCH(QString, name);
        Write(FileName(), Fixture(fixture));
        {
            OpenCfgXml cfg(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
            QCOMPARE(BoundedOpenError(cfg, false), QString());
            QCOMPARE(cfg.GetString(QStringLiteral("Name"), QStringLiteral("none")), name);
            cfg.SetString(QStringLiteral("Saved"), QStringLiteral("yes"));
            cfg.SaveDocument();
        }
        CfgXml reopened(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
        QCOMPARE(BoundedOpenError(reopened, false), QString());
        QCOMPARE(reopened.GetString(QStringLiteral("Name"), QStringLiteral("none")), name);
        QCOMPARE(reopened.GetString(QStringLiteral("Saved"), QString()), QStringLiteral("yes"));
    }

    void declaredEncodingWithAnApostropheSurvivesASave()
    {
        // Found by fuzzing: the declaration is written back between
        // apostrophes, so an apostrophe in its encoding name ended it early.
        Write(FileName(), Fixture(QStringLiteral("apostrophe-in-encoding.xml")));
        {
            OpenCfgXml cfg(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
            QCOMPARE(BoundedOpenError(cfg, false), QString());
            QCOMPARE(cfg.GetInteger(QStringLiteral("Port"), -1), 4000L);
            cfg.SetString(QStringLiteral("Saved"), QStringLiteral("yes"));
            cfg.SaveDocument();
        }
        CfgXml reopened(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
        QCOMPARE(BoundedOpenError(reopened, false), QString());
        QCOMPARE(reopened.GetString(QStringLiteral("Saved"), QString()), QStringLiteral("yes"));
        QCOMPARE(reopened.GetInteger(QStringLiteral("Port"), -1), 4000L);
    }

    // ------------------------------------------------------------ hostile files

    void hostileFileIsRefusedInBoundedTime_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("message");
        QTest::addColumn<int>("line");
        QTest::addColumn<int>("column");
        QTest::newRow("entity_expansion_bomb")
            << EntityBomb() << QStringLiteral("entity declarations are not allowed") << 13 << 2;
        QTest::newRow("quadratic_entity_blowup")
            << QuadraticBlowup() << QStringLiteral("entity declarations are not allowed") << 2 << 100033;
        QTest::newRow("external_entity") << Fixture(QStringLiteral("external-entity.xml"))
                                         << QStringLiteral("entity declarations are not allowed") << 4 << 2;
        QTest::newRow("hundred_thousand_levels_deep")
            << QByteArray("<Cfg>") + QByteArray("<a>").repeated(100000) +
                   QByteArray("</a>").repeated(100000) + QByteArray("</Cfg>")
            << QStringLiteral("elements nested too deeply") << 1 << 3005;
    }

    void hostileFileIsRefusedInBoundedTime()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, message);
        QFETCH(int, line);
        QFETCH(int, column);
        Write(FileName(), bytes);
        CfgXml cfg(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
        QCOMPARE(BoundedOpenError(cfg, false),
                 PARSE_ERROR.arg(FileName(), message, QString::number(line), QString::number(column)));
        QCOMPARE(cfg.GetString(QStringLiteral("Name"), QStringLiteral("none")), QStringLiteral("none"));
    }

    void fiftyMegabyteValueOpensWhole()
    {
        const QByteArray bytes = FiftyMegabyteValueDocument();
        Write(FileName(), bytes);
        CfgXml cfg(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
        QCOMPARE(BoundedOpenError(cfg, false), QString());
        const QString blob = cfg.GetString(QStringLiteral("Blob"), QString());
        QCOMPARE(blob.size(), FIFTY_MB);
        QCOMPARE(blob.count(QLatin1Char('b')), FIFTY_MB);
        QCOMPARE(cfg.GetAttributeType(QStringLiteral("Blob")), ICfg::TYPE_String);
    }

    void truncatedFiftyMegabyteFileThrowsTheParseError()
    {
        const QByteArray bytes = FiftyMegabyteValueDocument().left(FIFTY_MB);
        Write(FileName(), bytes);
        CfgXml cfg(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
        QCOMPARE(BoundedOpenError(cfg, false), QtParseError(PARSE_ERROR, FileName(), bytes));
    }

    void fileBeyondTheSizeLimitIsAParseError()
    {
        // A sparse file: large to the reader, nothing on the disk.
        QFile file(FileName());
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(file.resize(qint64(300) * 1024 * 1024));
        file.close();
        CfgXml cfg(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
        QCOMPARE(BoundedOpenError(cfg, false), PARSE_ERROR.arg(FileName(), QStringLiteral("file too large"),
                                                               QStringLiteral("0"), QStringLiteral("0")));
    }

    // ------------------------------------------------------------ wrong structure

    void wrongStructureThrowsItsMessage_data()
    {
        QTest::addColumn<QString>("fixture");
        QTest::addColumn<QString>("problem");
        QTest::newRow("other_root") << QStringLiteral("wrong-root.xml")
                                    << QStringLiteral(" is invalid. Element Cfg not found.");
        QTest::newRow("lower_case_root")
            << QStringLiteral("lower-case-root.xml") << QStringLiteral(" is invalid. Element Cfg not found.");
        QTest::newRow("missing_domain") << QStringLiteral("missing-domain.xml")
                                        << QStringLiteral(" is invalid. Element Cfg has no sub node Domain.");
        QTest::newRow("missing_machine")
            << QStringLiteral("missing-machine.xml")
            << QStringLiteral(" is invalid. Element Cfg has no sub node Machine.");
        QTest::newRow("system_not_an_element")
            << QStringLiteral("system-not-element.xml")
            << QStringLiteral(" is invalid. Sub node System of element Cfg is not an element.");
        QTest::newRow("domain_not_an_element")
            << QStringLiteral("domain-not-element.xml")
            << QStringLiteral(" is invalid. Sub node Domain of element Cfg is not an element.");
        QTest::newRow("machine_not_an_element")
            << QStringLiteral("machine-not-element.xml")
            << QStringLiteral(" is invalid. Sub node Machine of element Cfg is not an element.");
    }

    void wrongStructureThrowsItsMessage()
    {
        QFETCH(QString, fixture);
        QFETCH(QString, problem);
        const QByteArray bytes = Fixture(fixture);
        Write(FileName(), bytes);
        CfgXml cfg(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
        QCOMPARE(BoundedOpenError(cfg, true), FileName() + problem);
        QCOMPARE(cfg.GetString(QStringLiteral("Port"), QStringLiteral("none")), QStringLiteral("none"));
        QCOMPARE(Read(FileName()), bytes);
    }

    void wrongStructureIsNotRepairedFromTheBackup_data() { wrongStructureThrowsItsMessage_data(); }

    void wrongStructureIsNotRepairedFromTheBackup()
    {
        QFETCH(QString, fixture);
        QFETCH(QString, problem);
        const QByteArray bytes = Fixture(fixture);
        Write(FileName(), bytes);
        Write(FileName() + QStringLiteral(".bak"), GOOD_BACKUP);
        CfgXml cfg(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
        QCOMPARE(BoundedOpenError(cfg, true), FileName() + problem);
        QCOMPARE(Read(FileName()), bytes);
        QCOMPARE(Read(FileName() + QStringLiteral(".bak")), GOOD_BACKUP);
        QCOMPARE(CorruptFiles(), QStringList());
    }

    void documentWithoutSystemOpensAsUserDocument()
    {
        Write(FileName(), Fixture(QStringLiteral("missing-system.xml")));
        CfgXml cfg(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
        QCOMPARE(BoundedOpenError(cfg, false), QString());
        QCOMPARE(cfg.GetInteger(QStringLiteral("Port"), -1), 1L);
        // The views that only the main file holds are missing.
        QCOMPARE(GetNodeError([&] { cfg.GetString(QStringLiteral("Port"), QString(), ICfg::VIEW_System); }),
                 QStringLiteral("GetNode ") + FileName() +
                     QStringLiteral(" is invalid. Cfg has no sub elements."));
    }

    void userViewThatIsNoElementFailsItsAccess()
    {
        Write(FileName(), Fixture(QStringLiteral("user-not-element.xml")));
        CfgXml cfg(FileName(), QStringLiteral("App"), ICfg::VIEW_User);
        QCOMPARE(BoundedOpenError(cfg, false), QString());
        QCOMPARE(GetNodeError([&] { cfg.GetString(QStringLiteral("Port"), QString()); }),
                 QStringLiteral("GetNode ") + FileName() +
                     QStringLiteral(" is invalid. Node in Cfg is not an element."));
        // The failed walk dropped the document: reads give their defaults.
        QCOMPARE(cfg.GetString(QStringLiteral("Port"), QStringLiteral("none")), QStringLiteral("none"));
    }

    void keyThatIsNoElementFailsOnlyWrites()
    {
        Write(FileName(), Fixture(QStringLiteral("key-not-element.xml")));
        CfgXml cfg(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
        QCOMPARE(BoundedOpenError(cfg, false), QString());
        QCOMPARE(cfg.GetString(QStringLiteral("Port"), QStringLiteral("none")), QStringLiteral("none"));
        QCOMPARE(cfg.HasSubCfg(QString()), false);
        QCOMPARE(GetNodeError([&] { cfg.SetString(QStringLiteral("Port"), QStringLiteral("1")); }),
                 QStringLiteral("GetNode ") + FileName() +
                     QStringLiteral(" is invalid. Node in View element is not an element."));
        QCOMPARE(cfg.GetString(QStringLiteral("Port"), QStringLiteral("none")), QStringLiteral("none"));
    }

    void textAmongSubConfigurationsFailsTheEnumeration()
    {
        Write(FileName(), Fixture(QStringLiteral("text-among-sub-configurations.xml")));
        CfgXml cfg(FileName(), QStringLiteral("App"), ICfg::VIEW_Machine);
        QCOMPARE(BoundedOpenError(cfg, false), QString());
        std::unique_ptr<ICfg> first(cfg.CreateSubCfgAt(0));
        QVERIFY(first);
        QCOMPARE(first->GetKey(), QStringLiteral("App\\Sub"));
        try {
            std::unique_ptr<ICfg> second(cfg.CreateSubCfgAt(1));
            QFAIL("no exception");
        } catch (const KVException& e) {
            QCOMPARE(e.GetMessage(), QStringLiteral("Not all childs are elements."));
            QCOMPARE(e.GetOperation(), QStringLiteral("CreateSubCfgAtImpl"));
            QCOMPARE(e.GetClassName(), QStringLiteral("CfgXml"));
            QCOMPARE(e.GetSourceFile(), QStringLiteral("configuration/cfgxml"));
        }
        QCOMPARE(first->GetInteger(QStringLiteral("Port"), -1), 1L);
    }

    // ------------------------------------------------------------ side files

    void unparsableUserSideFileStartsFromItsTemplate_data()
    {
        QTest::addColumn<QString>("fixture");
        QTest::newRow("truncated") << QStringLiteral("truncated.xml");
        QTest::newRow("binary_image") << QStringLiteral("binary.png");
        QTest::newRow("empty_file") << QStringLiteral("empty.xml");
    }

    void unparsableUserSideFileStartsFromItsTemplate()
    {
        QFETCH(QString, fixture);
        CfgCenter::SetUsage(CfgCenter::USAGE_0);
        const QString sideFile = m_dir->filePath(QStringLiteral("Cfg.usr.xml"));
        const QByteArray bytes = Fixture(fixture);
        Write(FileName(), GOOD_BACKUP);
        Write(sideFile, bytes);
        CfgXml cfg(FileName(), QStringLiteral("App"), ICfg::VIEW_User);
        QCOMPARE(BoundedOpenError(cfg, false), QString());
        QCOMPARE(m_messages, QStringList{QtParseError(SIDE_PARSE_ERROR, sideFile, bytes)});
        QCOMPARE(cfg.GetString(QStringLiteral("Port"), QStringLiteral("none")), QStringLiteral("none"));
        QCOMPARE(cfg.GetInteger(QStringLiteral("Port"), -1, ICfg::VIEW_Machine), 4000L);
    }

    void unparsableUserSideFileIsRecoveredFromItsBackup()
    {
        CfgCenter::SetUsage(CfgCenter::USAGE_0);
        const QString sideFile = m_dir->filePath(QStringLiteral("Cfg.usr.xml"));
        const QByteArray bytes = Fixture(QStringLiteral("truncated.xml"));
        Write(FileName(), GOOD_BACKUP);
        Write(sideFile, bytes);
        Write(sideFile + QStringLiteral(".bak"),
              "<?xml version=\"1.0\"?><Cfg version=\"2.2\"><User><App><Port>5000</Port></App></User></Cfg>");
        CfgXml cfg(FileName(), QStringLiteral("App"), ICfg::VIEW_User);
        QCOMPARE(BoundedOpenError(cfg, false), QString());
        QCOMPARE(m_messages, QStringList{QtParseError(SIDE_PARSE_ERROR, sideFile, bytes)});
        QCOMPARE(cfg.GetInteger(QStringLiteral("Port"), -1), 5000L);
    }
};

QTEST_GUILESS_MAIN(tst_CfgXmlBadInput)
#include "tst_cfgxmlbadinput.moc"
