// The writer of configuration documents: Qt's layout and escaping, every
// element's attributes sorted by name.

#include "configuration/cfgxmlwriter_p.h"

#include <QDomDocument>
#include <QDomImplementation>
#include <QtTest>

class TestCfgXmlWriter : public QObject
{
    Q_OBJECT

private slots:
    void writesIndentedWithSortedAttributes()
    {
        QDomDocument document(
            QDomImplementation().createDocumentType(QStringLiteral("cfg"), QString(), QString()));
        document.appendChild(document.createProcessingInstruction(
            QStringLiteral("xml"), QStringLiteral("version=\"1.0\" encoding=\"utf-8\"")));
        QDomElement root = document.createElement(QStringLiteral("Cfg"));
        document.appendChild(root);
        root.setAttribute(QStringLiteral("version"), QStringLiteral("2.3"));
        root.setAttribute(QStringLiteral("a"), QStringLiteral("1"));
        root.setAttribute(QStringLiteral("a-b"), QStringLiteral("2"));
        QDomElement value = document.createElement(QStringLiteral("Value"));
        root.appendChild(value);
        value.setAttribute(QStringLiteral("type"), QStringLiteral("string"));
        value.setAttribute(QStringLiteral("ts"), QStringLiteral("17"));
        value.appendChild(document.createTextNode(QStringLiteral("a<b>&\"c\"\r\n]]>")));
        QDomElement mixed = document.createElement(QStringLiteral("Mixed"));
        root.appendChild(mixed);
        mixed.appendChild(document.createTextNode(QStringLiteral("x")));
        mixed.appendChild(document.createElement(QStringLiteral("Inner")));
        root.appendChild(document.createComment(QStringLiteral(" ends in a dash-")));
        QDomElement special = document.createElement(QStringLiteral("Special"));
        root.appendChild(special);
        special.setAttribute(QStringLiteral("v"), QStringLiteral("<&\"'\n\r\t]]>"));
        special.appendChild(document.createCDATASection(QStringLiteral("raw <text>")));
        root.appendChild(document.createElement(QStringLiteral("Empty")));

        const QByteArray expected =
            "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
            "<!DOCTYPE cfg>\n"
            "<Cfg a-b=\"2\" a=\"1\" version=\"2.3\">\n"
            "    <Value ts=\"17\" type=\"string\">a&lt;b>&amp;\"c\"&#xd;\n]]&gt;</Value>\n"
            "    <Mixed>x<Inner/>\n"
            "    </Mixed>\n"
            "    <!-- ends in a dash- -->\n"
            "    <Special v=\"&lt;&amp;&quot;'&#xa;&#xd;&#x9;]]&gt;\"><![CDATA[raw <text>]]></Special>\n"
            "    <Empty/>\n"
            "</Cfg>\n";
        QCOMPARE(CfgXmlWriter::Serialise(document, 4), expected);
    }

    void writesTheBytesOfQtsWriter()
    {
        // With one attribute per element the order cannot differ.
        QDomDocument document;
        QVERIFY(document.setContent(QByteArray("<?xml version='1.0' encoding='utf-8'?>\n<!DOCTYPE cfg>\n"
                                               "<Cfg v='1'><A ts='2'>t \xc3\xa9 \xf0\x9f\x98\x80</A><B>"
                                               "<!--c--><C/>text<D/></B><?pi data?></Cfg>")));
        QCOMPARE(CfgXmlWriter::Serialise(document, 4), document.toByteArray(4));
        QCOMPARE(CfgXmlWriter::Serialise(document, 0), document.toByteArray(0));
        QCOMPARE(CfgXmlWriter::Serialise(document, -1), document.toByteArray(-1));
    }

    void referencesWhatTheDeclaredEncodingCannotCarry()
    {
        QDomDocument document;
        document.appendChild(document.createProcessingInstruction(
            QStringLiteral("xml"), QStringLiteral("version='1.0' encoding='iso-8859-1'")));
        QDomElement root = document.createElement(QStringLiteral("Cfg"));
        document.appendChild(root);
        root.setAttribute(QStringLiteral("price"), QStringLiteral("5 ") + QChar(0x20AC));
        root.appendChild(document.createTextNode(QChar(0xE9) + QStringLiteral(" ") + QChar(0x20AC)));
        const QByteArray expected = "<?xml version='1.0' encoding='iso-8859-1'?>\n"
                                    "<Cfg price=\"5 &#x20ac;\">\xc3\xa9 &#x20ac;</Cfg>\n";
        QCOMPARE(CfgXmlWriter::Serialise(document, 4), expected);
    }

    void writesNothingForAnEmptyDocument()
    {
        QCOMPARE(CfgXmlWriter::Serialise(QDomDocument(), 4), QByteArray());
    }
};

QTEST_GUILESS_MAIN(TestCfgXmlWriter)
#include "tst_cfgxmlwriter.moc"
