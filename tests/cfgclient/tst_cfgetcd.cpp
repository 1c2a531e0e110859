// CfgEtcd against CfgXml: one table of ICfg operations, run on both
// backends, each result compared with the expected one. The etcd backend runs
// on a real etcd server started by the test.
#include "cfgbackends.h"
#include "common/etcdserver.h"
#include "common/kvexceptioncheck.h"
#include "common/memorycfg.h"
#include "configuration/cfgcentertestaccess.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <functional>

namespace {

using Script = std::function<QStringList(CfgBackend&)>;

const ICfg::View M = ICfg::VIEW_Machine;
const ICfg::View U = ICfg::VIEW_User;

QString Bool(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

QStringList ValueNames(ICfg& cfg, ICfg::View view = ICfg::VIEW_Current)
{
    QStringList names;
    for (int i = 0;; ++i) {
        const QString name = cfg.GetValueKeyAt(i, view);
        if (name.isEmpty())
            return names;
        names << name;
    }
}

QStringList SubKeys(ICfg& cfg, ICfg::View view = ICfg::VIEW_Current)
{
    QStringList keys;
    for (int i = 0;; ++i) {
        std::unique_ptr<ICfg> sub(cfg.CreateSubCfgAt(i, view));
        if (!sub)
            return keys;
        keys << sub->GetKey();
    }
}

// What a write did: "stored", or the operation and message of the
// KVException it threw. The class is left out: it names the backend.
QString Outcome(const std::function<void()>& write)
{
    const std::optional<KVException> e = CaughtKVException(write);
    return e ? e->GetOperation() + QStringLiteral(": ") + e->GetMessage() : QStringLiteral("stored");
}

// Writability asks the centre for its document configuration (a write to
// that one is always allowed); a stand-in for as long as it lives.
class StandInDocument
{
public:
    StandInDocument() { CfgCenterTestAccess::SetDocCfg(&m_document); }
    ~StandInDocument() { CfgCenterTestAccess::SetDocCfg(nullptr); }
    StandInDocument(const StandInDocument&) = delete;
    StandInDocument& operator=(const StandInDocument&) = delete;

private:
    MemoryCfg m_document{QString(), ICfg::VIEW_Machine};
};

// Everything one node holds, recursively, in enumeration order.
QStringList Dump(ICfg& cfg, ICfg::View view)
{
    QStringList lines;
    for (const QString& name : ValueNames(cfg, view)) {
        lines << QStringLiteral("%1\\%2=%3 type=%4 protected=%5")
                     .arg(cfg.GetKey(), name, cfg.GetString(name, QStringLiteral("<none>"), view),
                          ICfg::GetTypeAsString(cfg.GetAttributeType(name, view)),
                          Bool(cfg.IsProtected(name, view)));
    }
    for (int i = 0;; ++i) {
        std::unique_ptr<ICfg> sub(cfg.CreateSubCfgAt(i, view));
        if (!sub)
            break;
        lines << QStringLiteral("[%1]").arg(sub->GetKey()) << Dump(*sub, view);
    }
    return lines;
}

} // namespace

Q_DECLARE_METATYPE(Script)

class tst_CfgEtcd : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<EtcdCluster> m_etcd;

    void RunOnBoth(const Script& script, const QStringList& expected)
    {
        QTemporaryDir folder;
        XmlBackend xml(folder.path());
        const QStringList fromXml = script(xml);
        QCOMPARE(fromXml.join(QLatin1Char('|')), expected.join(QLatin1Char('|')));
        EtcdBackend etcd(m_etcd->Endpoint());
        QCOMPARE(script(etcd), expected);
    }

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY2(EtcdCluster::Available(), "etcd is not installed (Debian package etcd-server)");
        m_dir = std::make_unique<QTemporaryDir>();
        m_etcd = std::make_unique<EtcdCluster>(m_dir->path());
        QVERIFY2(m_etcd->Start(), qPrintable(m_etcd->Log()));
    }

    void cleanupTestCase() { m_etcd.reset(); }

    void operations_data()
    {
        QTest::addColumn<Script>("script");
        QTest::addColumn<QStringList>("expected");

        QTest::newRow("typed values in the machine view") << Script([](CfgBackend& b) {
            auto cfg = b.Open(QStringLiteral("App"), M);
            cfg->SetString(QStringLiteral("Text"), QStringLiteral("hello"));
            cfg->SetInteger(QStringLiteral("Number"), -42);
            cfg->SetBoolean(QStringLiteral("Flag"), true);
            return QStringList{cfg->GetString(QStringLiteral("Text"), QStringLiteral("d")),
                               QString::number(cfg->GetInteger(QStringLiteral("Number"), 7)),
                               cfg->GetString(QStringLiteral("Number"), QStringLiteral("d")),
                               Bool(cfg->GetBoolean(QStringLiteral("Flag"), false)),
                               QString::number(cfg->GetInteger(QStringLiteral("Flag"), 7)),
                               ICfg::GetTypeAsString(cfg->GetAttributeType(QStringLiteral("Text"))),
                               ICfg::GetTypeAsString(cfg->GetAttributeType(QStringLiteral("Number"))),
                               ICfg::GetTypeAsString(cfg->GetAttributeType(QStringLiteral("Flag"))),
                               Bool(cfg->IsProtected(QStringLiteral("Text")))};
        }) << QStringList{QStringLiteral("hello"),   QStringLiteral("-42"),     QStringLiteral("-42"),
                          QStringLiteral("true"),    QStringLiteral("7"),       QStringLiteral("string"),
                          QStringLiteral("integer"), QStringLiteral("boolean"), QStringLiteral("true")};

        QTest::newRow("user values are not protected; absent values give the default")
            << Script([](CfgBackend& b) {
                   auto cfg = b.Open(QStringLiteral("App"), U);
                   cfg->SetString(QStringLiteral("Mine"), QStringLiteral("x"));
                   return QStringList{Bool(cfg->IsProtected(QStringLiteral("Mine"))),
                                      cfg->GetString(QStringLiteral("Absent"), QStringLiteral("dflt")),
                                      cfg->GetString(QStringLiteral("Absent"), QStringLiteral("dflt"), U),
                                      QString::number(cfg->GetInteger(QStringLiteral("Absent"), 5)),
                                      Bool(cfg->GetBoolean(QStringLiteral("Absent"), true)),
                                      ICfg::GetTypeAsString(cfg->GetAttributeType(QStringLiteral("Absent"))),
                                      cfg->GetString(QStringLiteral("Mine"), QStringLiteral("d"), M)};
               })
            << QStringList{QStringLiteral("false"), QStringLiteral("dflt"), QStringLiteral("dflt"),
                           QStringLiteral("5"),     QStringLiteral("true"), QStringLiteral("undefined"),
                           QStringLiteral("d")};

        QTest::newRow("an existing type is kept; texts that are no number give the default")
            << Script([](CfgBackend& b) {
                   auto cfg = b.Open(QStringLiteral("App"), M);
                   cfg->SetString(QStringLiteral("Typed"), QStringLiteral("12abc"));
                   const QString before = QString::number(cfg->GetInteger(QStringLiteral("Typed"), 3));
                   cfg->SetInteger(QStringLiteral("Typed"), 12);
                   cfg->SetString(QStringLiteral("Lenient"), QStringLiteral("untrue"));
                   cfg->SetString(QStringLiteral("Maybe"), QStringLiteral("maybe"));
                   cfg->SetInteger(QStringLiteral("Zero"), 0);
                   return QStringList{before,
                                      ICfg::GetTypeAsString(cfg->GetAttributeType(QStringLiteral("Typed"))),
                                      QString::number(cfg->GetInteger(QStringLiteral("Typed"), 3)),
                                      Bool(cfg->GetBoolean(QStringLiteral("Lenient"), false)),
                                      Bool(cfg->GetBoolean(QStringLiteral("Maybe"), true)),
                                      Bool(cfg->GetBoolean(QStringLiteral("Zero"), true))};
               })
            << QStringList{QStringLiteral("3"),    QStringLiteral("string"), QStringLiteral("12"),
                           QStringLiteral("true"), QStringLiteral("false"),  QStringLiteral("false")};

        QTest::newRow("values and sub-configurations keep creation order") << Script([](CfgBackend& b) {
            auto cfg = b.Open(QStringLiteral("App"), M);
            cfg->SetString(QStringLiteral("b"), QStringLiteral("1"));
            cfg->AddSubCfg(QStringLiteral("Zeta"));
            cfg->SetString(QStringLiteral("a"), QStringLiteral("2"));
            cfg->AddSubCfg(QStringLiteral("Alpha\\Deep"));
            cfg->SetString(QStringLiteral("c"), QStringLiteral("3"));
            std::unique_ptr<ICfg> deep(cfg->CreateSubCfg(QStringLiteral("Alpha\\Deep")));
            std::unique_ptr<ICfg> missing(cfg->CreateSubCfg(QStringLiteral("Nope")));
            QStringList results = ValueNames(*cfg);
            results += SubKeys(*cfg);
            return results +
                   QStringList{deep->GetKey(),
                               deep->GetAppKey(),
                               deep->GetPartialKey(),
                               Bool(missing == nullptr),
                               Bool(cfg->HasSubCfg(QStringLiteral("Alpha"))),
                               Bool(cfg->HasSubCfg(QStringLiteral("Nope"))),
                               Bool(cfg->HasAttribute(QString(), QStringLiteral("a"))),
                               Bool(cfg->HasAttribute(QStringLiteral("Alpha"), QStringLiteral("Deep"))),
                               Bool(cfg->HasAttribute(QString(), QStringLiteral("x")))};
        }) << QStringList{QStringLiteral("b"),          QStringLiteral("a"),
                          QStringLiteral("c"),          QStringLiteral("App\\Zeta"),
                          QStringLiteral("App\\Alpha"), QStringLiteral("App\\Alpha\\Deep"),
                          QStringLiteral("App"),        QStringLiteral("Deep"),
                          QStringLiteral("true"),       QStringLiteral("true"),
                          QStringLiteral("false"),      QStringLiteral("true"),
                          QStringLiteral("true"),       QStringLiteral("false")};

        QTest::newRow("value names with a path, a node's own text, names no document can hold")
            << Script([](CfgBackend& b) {
                   auto cfg = b.Open(QStringLiteral("App"), M);
                   ICfg& c = *cfg;
                   QStringList results{
                       Outcome([&] { c.SetString(QStringLiteral("Sub\\Inner"), QStringLiteral("deep")); }),
                       Outcome([&] { c.SetString(QStringLiteral("1bad"), QStringLiteral("x")); }),
                       Outcome([&] { c.SetString(QStringLiteral("Own\\"), QStringLiteral("y")); }),
                       Outcome([&] { c.SetInteger(QStringLiteral("Bad Dir\\N"), 1); }),
                       Outcome([&] { c.SetBoolean(QStringLiteral("Sub\\a/b"), true); }),
                       Outcome([&] { c.SetProtected(QStringLiteral("1bad"), true); }),
                       Outcome([&] { c.SetAttributeType(QStringLiteral("Sub\\x y"), ICfg::TYPE_String); })};
                   std::unique_ptr<ICfg> sub(cfg->CreateSubCfg(QStringLiteral("Sub")));
                   sub->SetString(QString(), QStringLiteral("own text"));
                   std::unique_ptr<ICfg> badSub(cfg->CreateSubCfg(QStringLiteral("Sub\\bad name")));
                   results << sub->GetString(QStringLiteral("Inner"), QStringLiteral("d"))
                           << cfg->GetString(QStringLiteral("Sub\\Inner"), QStringLiteral("d"))
                           << sub->GetString(QString(), QStringLiteral("d"))
                           << cfg->GetString(QStringLiteral("1bad"), QStringLiteral("d"))
                           << Bool(badSub == nullptr) << Bool(cfg->AddSubCfg(QStringLiteral("bad name")))
                           << Bool(cfg->AddSubCfg(QString())) << Bool(cfg->AddSubCfg(QStringLiteral("Good")))
                           << Bool(cfg->AddSubCfg(QStringLiteral("Good")));
                   results += ValueNames(*cfg);
                   return results + SubKeys(*cfg);
               })
            << QStringList{
                   QStringLiteral("stored"),
                   QStringLiteral(
                       "SetString: The value \"1bad\" was not stored: \"1bad\" cannot be an XML element "
                       "name."),
                   QStringLiteral(
                       "SetString: The value \"Own\\\" was not stored: \"\" cannot be an XML element "
                       "name."),
                   QStringLiteral(
                       "SetInteger: The value \"Bad Dir\\N\" was not stored: \"Bad Dir\" cannot be an "
                       "XML element name."),
                   QStringLiteral(
                       "SetBoolean: The value \"Sub\\a/b\" was not stored: \"a/b\" cannot be an XML "
                       "element name."),
                   QStringLiteral(
                       "SetProtected: The value \"1bad\" was not stored: \"1bad\" cannot be an XML "
                       "element name."),
                   QStringLiteral(
                       "SetAttributeType: The value \"Sub\\x y\" was not stored: \"x y\" cannot be an "
                       "XML element name."),
                   QStringLiteral("deep"),
                   QStringLiteral("deep"),
                   QStringLiteral("own text"),
                   QStringLiteral("d"),
                   QStringLiteral("true"),
                   QStringLiteral("false"),
                   QStringLiteral("false"),
                   QStringLiteral("true"),
                   QStringLiteral("true"),
                   QStringLiteral("App\\Sub"),
                   QStringLiteral("App\\Good")};

        QTest::newRow("a text with a character XML cannot carry is refused")
            << Script([](CfgBackend& b) {
                   auto cfg = b.Open(QStringLiteral("App"), M);
                   ICfg& c = *cfg;
                   const QString bell = QStringLiteral("ring") + QChar(0x07);
                   const QString lone = QStringLiteral("half ") + QChar(0xD800);
                   const QString pair = QStringLiteral("clef ") + QChar(0xD834) + QChar(0xDD1E);
                   QStringList results{
                       Outcome([&] { c.SetString(QStringLiteral("Bell"), bell); }),
                       Outcome([&] { c.SetString(QStringLiteral("Sub\\Lone"), lone); }),
                       Outcome([&] { c.SetString(QStringLiteral("NotChar"), QString(QChar(0xFFFE))); }),
                       Outcome([&] { c.SetString(QStringLiteral("Pair"), pair); }), Outcome([&] {
                           c.SetString(QStringLiteral("Kept"), QStringLiteral("tab\tline\ncr\r"));
                       })};
                   results << Bool(cfg->GetString(QStringLiteral("Pair"), QString()) == pair)
                           << Bool(cfg->GetString(QStringLiteral("Kept"), QString()) ==
                                   QStringLiteral("tab\tline\ncr\r"))
                           << cfg->GetString(QStringLiteral("Bell"), QStringLiteral("d"));
                   results += ValueNames(*cfg);
                   return results + SubKeys(*cfg);
               })
            << QStringList{
                   QStringLiteral("SetString: The value \"Bell\" was not stored: its text contains the "
                                  "character U+0007, which XML cannot carry."),
                   QStringLiteral("SetString: The value \"Sub\\Lone\" was not stored: its text contains "
                                  "the character U+D800, which XML cannot carry."),
                   QStringLiteral("SetString: The value \"NotChar\" was not stored: its text contains the "
                                  "character U+FFFE, which XML cannot carry."),
                   QStringLiteral("stored"),
                   QStringLiteral("stored"),
                   QStringLiteral("true"),
                   QStringLiteral("true"),
                   QStringLiteral("d"),
                   QStringLiteral("Pair"),
                   QStringLiteral("Kept")};

        QTest::newRow("a component of the object's key that no document can hold refuses its values")
            << Script([](CfgBackend& b) {
                   auto cfg = b.Open(QStringLiteral("App\\bad key\\Deep"), M);
                   ICfg& c = *cfg;
                   QStringList results{
                       Outcome([&] { c.SetString(QStringLiteral("V"), QStringLiteral("x")); }),
                       Outcome([&] { c.SetInteger(QStringLiteral("Sub\\N"), 2); }),
                       Outcome([&] { c.SetBoolean(QString(), true); })};
                   results << cfg->GetString(QStringLiteral("V"), QStringLiteral("d"))
                           << Bool(cfg->AddSubCfg(QStringLiteral("Below")));
                   auto root = b.Open(QString(), M);
                   return results + SubKeys(*root) + Dump(*root, M);
               })
            << QStringList{
                   QStringLiteral("SetString: The value \"V\" was not stored: \"bad key\" cannot be an "
                                  "XML element name."),
                   QStringLiteral("SetInteger: The value \"Sub\\N\" was not stored: \"bad key\" cannot be "
                                  "an XML element name."),
                   QStringLiteral("SetBoolean: The value \"\" was not stored: \"bad key\" cannot be an XML "
                                  "element name."),
                   QStringLiteral("d"),
                   QStringLiteral("false"),
                   QStringLiteral("App"),
                   QStringLiteral("[App]")};

        QTest::newRow("remove and rename values") << Script([](CfgBackend& b) {
            auto cfg = b.Open(QStringLiteral("App"), M);
            for (const char* name : {"one", "two", "three"})
                cfg->SetString(QLatin1String(name), QLatin1String(name));
            QStringList results{Bool(cfg->RemoveAttribute(QStringLiteral("two"))),
                                Bool(cfg->RemoveAttribute(QStringLiteral("two"))),
                                cfg->GetString(QStringLiteral("two"), QStringLiteral("gone")),
                                Bool(cfg->RenameAttribute(QStringLiteral("one"), QStringLiteral("first"))),
                                Bool(cfg->RenameAttribute(QStringLiteral("first"), QStringLiteral("three"))),
                                Bool(cfg->RenameAttribute(QStringLiteral("first"), QStringLiteral("first"))),
                                Bool(cfg->RenameAttribute(QStringLiteral("nothing"), QStringLiteral("x"))),
                                Bool(cfg->RenameAttribute(QStringLiteral("first"), QStringLiteral("2x"))),
                                cfg->GetString(QStringLiteral("first"), QStringLiteral("d")),
                                Bool(cfg->IsProtected(QStringLiteral("first")))};
            return results + ValueNames(*cfg);
        }) << QStringList{QStringLiteral("true"),  QStringLiteral("false"), QStringLiteral("gone"),
                          QStringLiteral("true"),  QStringLiteral("false"), QStringLiteral("true"),
                          QStringLiteral("false"), QStringLiteral("false"), QStringLiteral("one"),
                          QStringLiteral("true"),  QStringLiteral("first"), QStringLiteral("three")};

        QTest::newRow("renamed and moved elements keep their places for a new reader")
            << Script([](CfgBackend& b) {
                   {
                       auto cfg = b.Open(QStringLiteral("App"), M);
                       for (const char* name : {"a", "b", "c"})
                           cfg->SetString(QLatin1String(name), QLatin1String(name));
                       cfg->SetString(QStringLiteral("S\\x"), QStringLiteral("1"));
                       cfg->SetString(QStringLiteral("S\\y"), QStringLiteral("2"));
                       cfg->AddSubCfg(QStringLiteral("T"));
                       cfg->RenameAttribute(QStringLiteral("a"), QStringLiteral("z"));
                       cfg->SetString(QStringLiteral("z"), QStringLiteral("changed"));
                       cfg->RenameAttribute(QStringLiteral("S\\x"), QStringLiteral("w"));
                       cfg->MoveSubCfg(QStringLiteral("S"), QStringLiteral("R"));
                   }
                   b.Reload();
                   auto cfg = b.Open(QStringLiteral("App"), M);
                   return Dump(*cfg, M);
               })
            << QStringList{QStringLiteral("App\\z=changed type=string protected=true"),
                           QStringLiteral("App\\b=b type=string protected=true"),
                           QStringLiteral("App\\c=c type=string protected=true"),
                           QStringLiteral("[App\\T]"),
                           QStringLiteral("[App\\R]"),
                           QStringLiteral("App\\R\\w=1 type=string protected=true"),
                           QStringLiteral("App\\R\\y=2 type=string protected=true")};

        QTest::newRow("move and remove sub-configurations")
            << Script([](CfgBackend& b) {
                   auto cfg = b.Open(QStringLiteral("App"), M);
                   cfg->SetString(QStringLiteral("A\\x"), QStringLiteral("1"));
                   cfg->SetString(QStringLiteral("A\\B\\y"), QStringLiteral("2"));
                   cfg->AddSubCfg(QStringLiteral("C"));
                   QStringList results{
                       Bool(cfg->MoveSubCfg(QStringLiteral("A"), QStringLiteral("A\\Inside"))),
                       Bool(cfg->MoveSubCfg(QStringLiteral("A"), QStringLiteral("C"))),
                       Bool(cfg->MoveSubCfg(QStringLiteral("Nope"), QStringLiteral("D"))),
                       Bool(cfg->MoveSubCfg(QStringLiteral("A"), QStringLiteral("New\\Moved")))};
                   results += Dump(*cfg, M);
                   results << Bool(cfg->RemoveSubCfg(QStringLiteral("New\\Moved\\B")))
                           << Bool(cfg->RemoveSubCfg(QStringLiteral("New\\Moved\\B")));
                   std::unique_ptr<ICfg> c(cfg->CreateSubCfg(QStringLiteral("C")));
                   results << Bool(c->RemoveSubCfg(QString())) << Bool(cfg->HasSubCfg(QStringLiteral("C")));
                   return results + Dump(*cfg, M);
               })
            << QStringList{QStringLiteral("false"),
                           QStringLiteral("false"),
                           QStringLiteral("false"),
                           QStringLiteral("true"),
                           QStringLiteral("[App\\C]"),
                           QStringLiteral("[App\\New]"),
                           QStringLiteral("[App\\New\\Moved]"),
                           QStringLiteral("App\\New\\Moved\\x=1 type=string protected=true"),
                           QStringLiteral("[App\\New\\Moved\\B]"),
                           QStringLiteral("App\\New\\Moved\\B\\y=2 type=string protected=true"),
                           QStringLiteral("true"),
                           QStringLiteral("false"),
                           QStringLiteral("true"),
                           QStringLiteral("false"),
                           QStringLiteral("[App\\New]"),
                           QStringLiteral("[App\\New\\Moved]"),
                           QStringLiteral("App\\New\\Moved\\x=1 type=string protected=true")};

        QTest::newRow("protection and declared types")
            << Script([](CfgBackend& b) {
                   auto cfg = b.Open(QStringLiteral("App"), M);
                   cfg->SetString(QStringLiteral("v"), QStringLiteral("5"));
                   cfg->SetProtected(QStringLiteral("v"), false);
                   const QString unprotected = Bool(cfg->IsProtected(QStringLiteral("v")));
                   cfg->SetAttributeType(QStringLiteral("v"), ICfg::TYPE_Integer);
                   const QString integer = ICfg::GetTypeAsString(cfg->GetAttributeType(QStringLiteral("v")));
                   cfg->SetAttributeType(QStringLiteral("v"), ICfg::TYPE_Undefined);
                   cfg->SetProtected(QStringLiteral("absent"), true);
                   cfg->SetAttributeType(QStringLiteral("absent"), ICfg::TYPE_Boolean);
                   const QStringList results{
                       unprotected, integer,
                       ICfg::GetTypeAsString(cfg->GetAttributeType(QStringLiteral("v"))),
                       Bool(cfg->HasAttribute(QString(), QStringLiteral("absent")))};
                   return results + ValueNames(*cfg);
               })
            << QStringList{QStringLiteral("false"), QStringLiteral("integer"), QStringLiteral("string"),
                           QStringLiteral("false"), QStringLiteral("v")};

        QTest::newRow("writability across views") << Script([](CfgBackend& b) {
            auto cfg = b.Open(QStringLiteral("App"), M);
            cfg->SetString(QStringLiteral("UserOnly"), QStringLiteral("u"), U);
            cfg->SetString(QStringLiteral("SystemOnly"), QStringLiteral("s"), ICfg::VIEW_System);
            cfg->SetInteger(QStringLiteral("DomainInt"), 3, ICfg::VIEW_Domain);
            cfg->SetBoolean(QStringLiteral("MachineFlag"), false, M);
            const StandInDocument document;
            return QStringList{
                Bool(WritabilityAccess::String(*cfg, QStringLiteral("UserOnly"), M)),
                Bool(WritabilityAccess::String(*cfg, QStringLiteral("SystemOnly"), M)),
                Bool(WritabilityAccess::Integer(*cfg, QStringLiteral("DomainInt"), M)),
                Bool(WritabilityAccess::Boolean(*cfg, QStringLiteral("MachineFlag"), U)),
                Bool(WritabilityAccess::Boolean(*cfg, QStringLiteral("MachineFlag"), ICfg::VIEW_Export)),
                Bool(WritabilityAccess::String(*cfg, QStringLiteral("Nothing"), U))};
        }) << QStringList{QStringLiteral("false"), QStringLiteral("true"),  QStringLiteral("false"),
                          QStringLiteral("false"), QStringLiteral("false"), QStringLiteral("true")};

        QTest::newRow("the five views are separate") << Script([](CfgBackend& b) {
            auto cfg = b.Open(QStringLiteral("App"), M);
            const ICfg::View views[] = {ICfg::VIEW_User, ICfg::VIEW_Machine, ICfg::VIEW_Domain,
                                        ICfg::VIEW_System, ICfg::VIEW_Export};
            for (const ICfg::View view : views)
                cfg->SetString(QStringLiteral("Where"), ICfg::GetViewAsString(view), view);
            QStringList results;
            for (const ICfg::View view : views) {
                cfg->SelectView(view);
                results << cfg->GetString(QStringLiteral("Where"), QStringLiteral("d"));
            }
            cfg->SelectView(ICfg::VIEW_Current);
            results << cfg->GetString(QStringLiteral("Where"), QStringLiteral("d"));
            return results;
        }) << QStringList{QStringLiteral("User"),   QStringLiteral("Machine"), QStringLiteral("Domain"),
                          QStringLiteral("System"), QStringLiteral("Export"),  QStringLiteral("Export")};

        QTest::newRow("an application's configuration as bytes, merged under another name")
            << Script([](CfgBackend& b) {
                   auto cfg = b.Open(QStringLiteral("App"), M);
                   cfg->SetInteger(QStringLiteral("N"), 5);
                   cfg->SetString(QStringLiteral("Sub\\T"), QStringLiteral("t"), U);
                   cfg->SetBoolean(QStringLiteral("F"), true, ICfg::VIEW_System);
                   auto copy = b.Open(QStringLiteral("Copy"), M);
                   copy->SetInteger(QStringLiteral("N"), 1);
                   copy->SetString(QStringLiteral("Only"), QStringLiteral("kept"));
                   QByteArray bytes = cfg->GetCfgAsStringFromApp(QStringLiteral("App"));
                   bytes.replace("<App ", "<Copy ").replace("</App>", "</Copy>");
                   copy->MergeCfgFromStringAndApp(bytes, QStringLiteral("Copy"));
                   QStringList results = Dump(*copy, M);
                   results += Dump(*copy, U);
                   results += Dump(*copy, ICfg::VIEW_System);
                   return results;
               })
            << QStringList{QStringLiteral("Copy\\N=5 type=integer protected=true"),
                           QStringLiteral("Copy\\Only=kept type=string protected=true"),
                           QStringLiteral("[Copy\\Sub]"),
                           QStringLiteral("Copy\\Sub\\T=t type=string protected=false"),
                           QStringLiteral("Copy\\F=true type=boolean protected=true")};

        QTest::newRow("the root lists applications; everything survives a new reader")
            << Script([](CfgBackend& b) {
                   {
                       auto first = b.Open(QStringLiteral("First"), M);
                       first->SetInteger(QStringLiteral("N"), 1);
                       first->SetString(QStringLiteral("Sub\\T"), QStringLiteral("t"), U);
                       auto second = b.Open(QStringLiteral("Second"), M);
                       second->SetBoolean(QStringLiteral("B"), true);
                       second->SetProtected(QStringLiteral("B"), false);
                   }
                   b.Reload();
                   auto root = b.Open(QString(), M);
                   QStringList results = SubKeys(*root);
                   results += Dump(*root, M);
                   results += Dump(*root, U);
                   return results + QStringList{root->GetAppKey(), root->GetPartialKey()};
               })
            << QStringList{QStringLiteral("First"),
                           QStringLiteral("Second"),
                           QStringLiteral("[First]"),
                           QStringLiteral("First\\N=1 type=integer protected=true"),
                           QStringLiteral("[Second]"),
                           QStringLiteral("Second\\B=true type=boolean protected=false"),
                           QStringLiteral("[First]"),
                           QStringLiteral("[First\\Sub]"),
                           QStringLiteral("First\\Sub\\T=t type=string protected=false"),
                           QStringLiteral("Configuration Service"),
                           QString()};
    }

    void operations()
    {
        QFETCH(Script, script);
        QFETCH(QStringList, expected);
        RunOnBoth(script, expected);
    }

    void typeIsKeptWithTheValueInEtcd()
    {
        EtcdBackend etcd(m_etcd->Endpoint());
        auto cfg = etcd.Open(QStringLiteral("App"), M);
        cfg->SetInteger(QStringLiteral("Sub\\Count"), 12);
        const QString listing = m_etcd->Ctl({QStringLiteral("get"), QStringLiteral("--prefix"),
                                             QStringLiteral("zent/App/Machine/Sub/Count")});
        QVERIFY2(
            listing.startsWith(QStringLiteral("zent/App/Machine/Sub/Count\n{\"protected\":\"true\",\"text\":"
                                              "\"12\",\"ts\":")),
            qPrintable(listing));
        QVERIFY(listing.contains(QStringLiteral("\"type\":\"integer\"")));
    }

    void keysWrittenByHandAreRead()
    {
        EtcdBackend etcd(m_etcd->Endpoint());
        QVERIFY(!m_etcd
                     ->Ctl({QStringLiteral("put"), QStringLiteral("zent/Hand/Machine/Deep/Value"),
                            QStringLiteral("42")})
                     .isEmpty());
        auto cfg = etcd.Open(QStringLiteral("Hand"), M);
        QCOMPARE(cfg->GetInteger(QStringLiteral("Deep\\Value"), 0), 42L);
        QCOMPARE(SubKeys(*cfg), QStringList{QStringLiteral("Hand\\Deep")});
    }

    void changesOfAnotherWriterArriveWithASignal()
    {
        EtcdBackend reader(m_etcd->Endpoint());
        auto cfg = reader.Open(QStringLiteral("App"), M);
        auto* served = dynamic_cast<QObject*>(cfg.get());
        QVERIFY(served);
        QSignalSpy spy(served, SIGNAL(CfgChanged(int, QString)));
        EtcdClientOptions options;
        options.members << m_etcd->Endpoint();
        auto writerClient = std::make_shared<EtcdClient>(options);
        CfgEtcd writer(std::make_shared<CfgEtcdDocument>(writerClient), QStringLiteral("App"), M);
        writer.SetString(QStringLiteral("Shared"), QStringLiteral("from elsewhere"));
        QTRY_COMPARE_WITH_TIMEOUT(cfg->GetString(QStringLiteral("Shared"), QString()),
                                  QStringLiteral("from elsewhere"), 1000);
        // The writer created the application's element and the value.
        QTRY_COMPARE_WITH_TIMEOUT(spy.count(), 2, 1000);
        QCOMPARE(spy.at(0), QVariantList({int(M), QStringLiteral("App")}));
        QCOMPARE(spy.at(1), QVariantList({int(M), QStringLiteral("App\\Shared")}));
        writer.RemoveAttribute(QStringLiteral("Shared"));
        QTRY_COMPARE_WITH_TIMEOUT(cfg->GetString(QStringLiteral("Shared"), QStringLiteral("gone")),
                                  QStringLiteral("gone"), 1000);
    }

    void unacknowledgedWriteThrowsAndLeavesTheCache()
    {
        QTemporaryDir folder;
        EtcdCluster lone(folder.path());
        QVERIFY2(lone.Start(), qPrintable(lone.Log()));
        EtcdClientOptions options;
        options.members << lone.Endpoint();
        options.connectTimeoutMs = 500;
        options.requestTimeoutMs = 1000;
        auto document = std::make_shared<CfgEtcdDocument>(std::make_shared<EtcdClient>(options));
        CfgEtcd cfg(document, QStringLiteral("App"), M);
        cfg.OpenDocument(true);
        cfg.SetString(QStringLiteral("Kept"), QStringLiteral("before"));
        lone.Kill(0);
        CompareKVException(
            CaughtKVException([&] { cfg.SetString(QStringLiteral("Kept"), QStringLiteral("after")); }),
            QStringLiteral("The configuration service cannot be reached at %1 (Couldn't connect to "
                           "server).")
                .arg(lone.Endpoint()),
            QStringLiteral("cfgclient/etcdclient"), QStringLiteral("EtcdClient"), QStringLiteral("Put"));
        QCOMPARE(cfg.GetString(QStringLiteral("Kept"), QString()), QStringLiteral("before"));
        QVERIFY(CaughtKVException([&] { cfg.AddSubCfg(QStringLiteral("New")); }).has_value());
        QCOMPARE(cfg.HasSubCfg(QStringLiteral("New")), false);
    }

    void unparsableBytesAreNotMerged()
    {
        EtcdBackend etcd(m_etcd->Endpoint());
        auto cfg = etcd.Open(QStringLiteral("App"), M);
        CompareKVException(
            CaughtKVException(
                [&] { cfg->MergeCfgFromStringAndApp("<Cfg><Machine><App>", QStringLiteral("App")); }),
            QStringLiteral(
                "The configuration of App could not be merged: unexpected end of file at line 1 in column "
                "20."),
            QStringLiteral("cfgclient/cfgetcd"), QStringLiteral("CfgEtcd"),
            QStringLiteral("MergeCfgFromStringAndApp"));
        QCOMPARE(SubKeys(*etcd.Open(QString(), M)), QStringList());
    }

    void refusedWritesNameTheirBackend()
    {
        EtcdBackend etcd(m_etcd->Endpoint());
        auto cfg = etcd.Open(QStringLiteral("App"), M);
        CompareKVException(
            CaughtKVException([&] { cfg->SetString(QStringLiteral("1bad"), QStringLiteral("x")); }),
            QStringLiteral("The value \"1bad\" was not stored: \"1bad\" cannot be an XML element "
                           "name."),
            QStringLiteral("cfgclient/cfgetcd"), QStringLiteral("CfgEtcd"), QStringLiteral("SetString"));
        CompareKVException(
            CaughtKVException([&] { cfg->SetString(QStringLiteral("Bell"), QString(QChar(0x1F))); }),
            QStringLiteral(
                "The value \"Bell\" was not stored: its text contains the character U+001F, which XML "
                "cannot carry."),
            QStringLiteral("cfgclient/cfgetcd"), QStringLiteral("CfgEtcd"), QStringLiteral("SetString"));
        // Nothing reached the service.
        QCOMPARE(m_etcd->Ctl({QStringLiteral("get"), QStringLiteral("--prefix"),
                              QStringLiteral("zent/App/Machine/1bad")}),
                 QString());
    }

    void namedUserConfigurationsAreRefused()
    {
        EtcdBackend etcd(m_etcd->Endpoint());
        auto cfg = etcd.Open(QStringLiteral("App"), M);
        CompareKVException(
            CaughtKVException([&] { cfg->SaveConfigurationName(QStringLiteral("Mine")); }),
            QStringLiteral("Named user configurations are not available on the configuration service."),
            QStringLiteral("cfgclient/cfgetcd"), QStringLiteral("CfgEtcd"),
            QStringLiteral("SaveConfigurationName"));
        cfg->SetUserViewSubkey(QString()); // nothing to do
        QCOMPARE(cfg->GetUserConfigurations().size(), size_t(0));
        QCOMPARE(cfg->GetType(), QStringLiteral("Server"));
        QCOMPARE(cfg->GetTarget(), QStringLiteral("http://") + m_etcd->Endpoint());
    }
};

QTEST_GUILESS_MAIN(tst_CfgEtcd)
#include "tst_cfgetcd.moc"
