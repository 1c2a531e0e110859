// The strict reader of configuration documents: the trees it builds, the
// same as Qt's parser builds, and the inputs it leaves to Qt's parser.

#include "common/xmltreedescription.h"
#include "configuration/cfgxmlreader_p.h"

#include <QDomDocument>
#include <QtTest>

namespace {

const int LIMIT = 1000;

using XmlTreeDescription::Describe;

} // namespace

class TestCfgXmlReader : public QObject
{
    Q_OBJECT

private slots:
    void readsPlainDocument()
    {
        const QByteArray bytes = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<!DOCTYPE cfg>\n"
                                 "<Cfg b='q' a=\"x&amp;y&#65;&#x42;\">\n"
                                 "    <A ts=\"1\">  t &lt;&gt;&quot;&apos; \xc3\xa9 </A>\n"
                                 "    <!-- note -->\n"
                                 "    <B/>\n"
                                 "</Cfg>\n";
        CfgXmlTree document;
        QVERIFY(CfgXmlReader::ReadPlain(bytes, LIMIT, document));
        const QStringList expected{
            QStringLiteral("doctype [cfg]"),
            QStringLiteral("7 xml [version='1.0' encoding='utf-8']"),
            QStringLiteral("1 Cfg [] a=x&yAB b=q"),
            QStringLiteral("  1 A [] ts=1"),
            QStringLiteral("    3 #text [  t <>\"' ") + QChar(0xE9) + QStringLiteral(" ]"),
            QStringLiteral("  8 #comment [ note ]"),
            QStringLiteral("  1 B []"),
        };
        QCOMPARE(Describe(document), expected);
    }

    void buildsTheTreeOfQtsParser_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("no declaration") << QByteArray("<Cfg>x</Cfg>");
        QTest::newRow("declaration without encoding") << QByteArray("<?xml version=\"1.0\"?><Cfg/>");
        QTest::newRow("declaration in apostrophes, upper case")
            << QByteArray("<?xml version='1.0' encoding='UTF-8' ?>\n<Cfg/>\n");
        QTest::newRow("document type with spaces") << QByteArray("<!DOCTYPE  cfg >\n<Cfg/>");
        QTest::newRow("white space between elements dropped")
            << QByteArray("<Cfg>\n\t<A/>  \n  <B> </B>\n</Cfg>\n\n");
        QTest::newRow("text around a comment") << QByteArray("<Cfg>a<!--c-->b</Cfg>");
        QTest::newRow("duplicate attribute: the last one") << QByteArray("<Cfg a='1' a='2'/>");
        QTest::newRow("greater-than in text and values") << QByteArray("<Cfg a='>'>a>b</Cfg>");
        QTest::newRow("quote of the other kind in a value") << QByteArray("<Cfg a='\"' b=\"'\"/>");
        QTest::newRow("spaces around equals and before the end") << QByteArray("<Cfg a = \"1\"  ></Cfg  >");
        QTest::newRow("character outside the BMP") << QByteArray("<Cfg>\xf0\x9f\x98\x80</Cfg>");
        QTest::newRow("no-break space beside text") << QByteArray("<Cfg>a\xc2\xa0</Cfg>");
        QTest::newRow("names with digits, dots, dashes") << QByteArray("<_a.b-1><x-y.z_2/></_a.b-1>");
    }

    void buildsTheTreeOfQtsParser()
    {
        QFETCH(QByteArray, bytes);
        QDomDocument byQt;
        QVERIFY(byQt.setContent(bytes));
        CfgXmlTree document;
        QVERIFY(CfgXmlReader::ReadPlain(bytes, LIMIT, document));
        QCOMPARE(Describe(document), Describe(byQt));
    }

    void leavesTheRestToQtsParser_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("carriage return in text") << QByteArray("<Cfg>a\r\nb</Cfg>");
        QTest::newRow("carriage return between elements") << QByteArray("<Cfg>\r\n<A/></Cfg>");
        QTest::newRow("tab in an attribute value") << QByteArray("<Cfg a='x\ty'/>");
        QTest::newRow("line feed in an attribute value") << QByteArray("<Cfg a='x\ny'/>");
        QTest::newRow("less-than in an attribute value") << QByteArray("<Cfg a='<'/>");
        QTest::newRow("CDATA section") << QByteArray("<Cfg><![CDATA[x]]></Cfg>");
        QTest::newRow("processing instruction in content") << QByteArray("<Cfg><?pi x?></Cfg>");
        QTest::newRow("undeclared entity") << QByteArray("<Cfg>&foo;</Cfg>");
        QTest::newRow("character reference to a control") << QByteArray("<Cfg>&#1;</Cfg>");
        QTest::newRow("character reference to a surrogate") << QByteArray("<Cfg>&#xD800;</Cfg>");
        QTest::newRow("character reference outside the BMP") << QByteArray("<Cfg>&#x1F600;</Cfg>");
        QTest::newRow("reference to white space alone") << QByteArray("<Cfg>&#32;</Cfg>");
        QTest::newRow("no-break space alone") << QByteArray("<Cfg>\xc2\xa0</Cfg>");
        QTest::newRow("byte order mark") << QByteArray("\xef\xbb\xbf<Cfg/>");
        QTest::newRow("byte order mark in text") << QByteArray("<Cfg>\xef\xbb\xbfx</Cfg>");
        QTest::newRow("invalid UTF-8") << QByteArray("<Cfg>\xc3</Cfg>");
        QTest::newRow("encoded surrogate") << QByteArray("<Cfg>\xed\xa0\x80</Cfg>");
        QTest::newRow("other encoding")
            << QByteArray("<?xml version=\"1.0\" encoding=\"iso-8859-1\"?><Cfg/>");
        QTest::newRow("standalone") << QByteArray("<?xml version=\"1.0\" standalone=\"yes\"?><Cfg/>");
        QTest::newRow("document type with a subset")
            << QByteArray("<!DOCTYPE cfg [<!ELEMENT Cfg ANY>]><Cfg/>");
        QTest::newRow("comment before the root") << QByteArray("<!--c--><Cfg/>");
        QTest::newRow("comment with a double dash") << QByteArray("<Cfg><!-- a -- b --></Cfg>");
        QTest::newRow("namespace prefix") << QByteArray("<a:Cfg/>");
        QTest::newRow("non-ASCII name") << QByteArray("<Cfg\xc3\xa9/>");
        QTest::newRow("mismatched end tag") << QByteArray("<Cfg><A></B></Cfg>");
        QTest::newRow("two roots") << QByteArray("<Cfg/><Cfg/>");
        QTest::newRow("truncated") << QByteArray("<Cfg><A>");
        QTest::newRow("text after the root") << QByteArray("<Cfg/>x");
        QTest::newRow("double bracket and greater-than") << QByteArray("<Cfg>a]]>b</Cfg>");
        QTest::newRow("attributes without space") << QByteArray("<Cfg a='1'b='2'/>");
    }

    void leavesTheRestToQtsParser()
    {
        QFETCH(QByteArray, bytes);
        CfgXmlTree document;
        document.Append(document.Document(), document.CreateElement(QStringLiteral("Untouched")));
        QVERIFY(!CfgXmlReader::ReadPlain(bytes, LIMIT, document));
        QCOMPARE(document.NodeName(document.DocumentElement()), QStringLiteral("Untouched"));
        QCOMPARE(document.NextSibling(document.DocumentElement()), CfgXmlTree::NONE);
    }

    void declinesNestingBeyondTheLimit()
    {
        CfgXmlTree document;
        QVERIFY(CfgXmlReader::ReadPlain("<a><b><c/></b></a>", 3, document));
        QVERIFY(!CfgXmlReader::ReadPlain("<a><b><c><d/></c></b></a>", 3, document));
        QVERIFY(!CfgXmlReader::ReadPlain("<a><b><c><d></d></c></b></a>", 3, document));
    }
};

QTEST_GUILESS_MAIN(TestCfgXmlReader)
#include "tst_cfgxmlreader.moc"
