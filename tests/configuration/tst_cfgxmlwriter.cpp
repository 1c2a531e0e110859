// The writer of configuration documents: Qt's layout and escaping, every
// element's attributes sorted by name.

#include "configuration/cfgxmltree_p.h"
#include "configuration/cfgxmlwriter_p.h"

#include <QDomDocument>
#include <QtTest>

class TestCfgXmlWriter : public QObject
{
    Q_OBJECT

private slots:
    void writesIndentedWithSortedAttributes()
    {
        CfgXmlTree tree;
        tree.SetDocumentTypeText(QStringLiteral("<!DOCTYPE cfg>\n"));
        const CfgXmlTree::Node document = tree.Document();
        tree.Append(document,
                    tree.CreateProcessingInstruction(QStringLiteral("xml"),
                                                     QStringLiteral("version=\"1.0\" encoding=\"utf-8\"")));
        const CfgXmlTree::Node root = tree.CreateElement(QStringLiteral("Cfg"));
        tree.Append(document, root);
        tree.SetAttribute(root, QStringLiteral("version"), QStringLiteral("2.3"));
        tree.SetAttribute(root, QStringLiteral("a"), QStringLiteral("1"));
        tree.SetAttribute(root, QStringLiteral("a-b"), QStringLiteral("2"));
        const CfgXmlTree::Node value = tree.CreateElement(QStringLiteral("Value"));
        tree.Append(root, value);
        tree.SetAttribute(value, QStringLiteral("type"), QStringLiteral("string"));
        tree.SetAttribute(value, QStringLiteral("ts"), QStringLiteral("17"));
        tree.Append(value, tree.CreateText(QStringLiteral("a<b>&\"c\"\r\n]]>")));
        const CfgXmlTree::Node mixed = tree.CreateElement(QStringLiteral("Mixed"));
        tree.Append(root, mixed);
        tree.Append(mixed, tree.CreateText(QStringLiteral("x")));
        tree.Append(mixed, tree.CreateElement(QStringLiteral("Inner")));
        tree.Append(root, tree.CreateComment(QStringLiteral(" ends in a dash-")));
        const CfgXmlTree::Node special = tree.CreateElement(QStringLiteral("Special"));
        tree.Append(root, special);
        tree.SetAttribute(special, QStringLiteral("v"), QStringLiteral("<&\"'\n\r\t]]>"));
        tree.Append(special, tree.CreateCData(QStringLiteral("raw <text>")));
        tree.Append(root, tree.CreateElement(QStringLiteral("Empty")));

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
        QCOMPARE(CfgXmlWriter::Serialise(tree, 4), expected);
    }

    void writesTheBytesOfQtsWriter_data()
    {
        // With one attribute per element the order cannot differ.
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("declaration, document type, every node kind in content")
            << QByteArray("<?xml version='1.0' encoding='utf-8'?>\n<!DOCTYPE cfg>\n"
                          "<Cfg v='1'><A ts='2'>t \xc3\xa9 \xf0\x9f\x98\x80</A><B>"
                          "<!--c--><C/>text<D/></B><?pi data?><E><![CDATA[<raw>]]></E></Cfg>");
        QTest::newRow("another declared encoding")
            << QByteArray("<?xml version='1.0' encoding='ISO-8859-1'?>\n"
                          "<Cfg price='5 &#x20AC;'>\xe9 &#8364;<A>&#x20ac;</A></Cfg>");
        QTest::newRow("no declaration") << QByteArray("<Cfg v='&lt;'><A>a &amp; b</A><B/></Cfg>");
        QTest::newRow("document type without declaration") << QByteArray("<!DOCTYPE cfg><Cfg><A/></Cfg>");
        QTest::newRow("document type with a public identifier")
            << QByteArray("<!DOCTYPE cfg PUBLIC \"-//Zent//Cfg//EN\" \"cfg.dtd\"><Cfg/>");
        QTest::newRow("internal subset, external entity left as a reference") << QByteArray(
            "<!DOCTYPE cfg [<!NOTATION n SYSTEM 'n'><!ENTITY e SYSTEM 'f.xml'>]><Cfg>a&e;b<A/></Cfg>");
        QTest::newRow("comment and instruction after the root")
            << QByteArray("<?xml version='1.0'?><!--before--><Cfg><A/></Cfg><!--after--><?pi after?>");
    }

    void writesTheBytesOfQtsWriter()
    {
        QFETCH(QByteArray, bytes);
        QDomDocument document;
        QVERIFY(document.setContent(bytes));
        CfgXmlTree tree;
        CfgXmlTree::FromDom(document, tree);
        QCOMPARE(CfgXmlWriter::Serialise(tree, 4), document.toByteArray(4));
        QCOMPARE(CfgXmlWriter::Serialise(tree, 0), document.toByteArray(0));
        QCOMPARE(CfgXmlWriter::Serialise(tree, -1), document.toByteArray(-1));
    }

    void writesEditedTreesAsQtWritesTheSameEdits()
    {
        QDomDocument document;
        QVERIFY(document.setContent(QByteArray("<Cfg><A>text</A><B>x<C/>y</B><D/><F/></Cfg>")));
        CfgXmlTree tree;
        CfgXmlTree::FromDom(document, tree);

        // Text taken out, an element put before text, an element replaced by text.
        QDomElement root = document.documentElement();
        QDomElement a = root.firstChildElement(QStringLiteral("A"));
        a.removeChild(a.firstChild());
        QDomElement b = root.firstChildElement(QStringLiteral("B"));
        b.removeChild(b.firstChild());
        b.insertBefore(document.createElement(QStringLiteral("E")), b.lastChild());
        root.replaceChild(document.createTextNode(QStringLiteral("tail")),
                          root.firstChildElement(QStringLiteral("D")));

        const CfgXmlTree::Node treeRoot = tree.DocumentElement();
        const CfgXmlTree::Node treeA = tree.FirstChildElement(treeRoot, tree.FindName(QStringLiteral("A")));
        tree.Unlink(tree.FirstChild(treeA));
        const CfgXmlTree::Node treeB = tree.FirstChildElement(treeRoot, tree.FindName(QStringLiteral("B")));
        tree.Unlink(tree.FirstChild(treeB));
        tree.InsertBefore(treeB, tree.CreateElement(QStringLiteral("E")), tree.LastChild(treeB));
        tree.Replace(tree.FirstChildElement(treeRoot, tree.FindName(QStringLiteral("D"))),
                     tree.CreateText(QStringLiteral("tail")));

        const QByteArray expected = "<Cfg>\n"
                                    "    <A/>\n"
                                    "    <B>\n"
                                    "        <C/>\n"
                                    "        <E/>y</B>tail<F/>\n"
                                    "</Cfg>\n";
        QCOMPARE(document.toByteArray(4), expected);
        QCOMPARE(CfgXmlWriter::Serialise(tree, 4), expected);
    }

    void writesAnotherEncodingsReferencesAsQtDoes()
    {
        QDomDocument document;
        QVERIFY(document.setContent(QByteArray("<?xml version='1.0' encoding='ISO-8859-1'?>\n"
                                               "<Cfg price='5 &#x20AC;'>\xe9 &#8364;</Cfg>")));
        CfgXmlTree tree;
        CfgXmlTree::FromDom(document, tree);
        const QByteArray expected = "<?xml version='1.0' encoding='ISO-8859-1'?>\n"
                                    "<Cfg price=\"5 &#x20ac;\">\xc3\xa9 &#x20ac;</Cfg>\n";
        QCOMPARE(CfgXmlWriter::Serialise(tree, 4), expected);
        QCOMPARE(document.toByteArray(4), expected);
    }

    void referencesWhatTheDeclaredEncodingCannotCarry()
    {
        CfgXmlTree tree;
        tree.Append(tree.Document(),
                    tree.CreateProcessingInstruction(QStringLiteral("xml"),
                                                     QStringLiteral("version='1.0' encoding='iso-8859-1'")));
        const CfgXmlTree::Node root = tree.CreateElement(QStringLiteral("Cfg"));
        tree.Append(tree.Document(), root);
        tree.SetAttribute(root, QStringLiteral("price"), QStringLiteral("5 ") + QChar(0x20AC));
        tree.Append(root, tree.CreateText(QChar(0xE9) + QStringLiteral(" ") + QChar(0x20AC)));
        const QByteArray expected = "<?xml version='1.0' encoding='iso-8859-1'?>\n"
                                    "<Cfg price=\"5 &#x20ac;\">\xc3\xa9 &#x20ac;</Cfg>\n";
        QCOMPARE(CfgXmlWriter::Serialise(tree, 4), expected);
    }

    void writesNothingForAnEmptyDocument()
    {
        QCOMPARE(CfgXmlWriter::Serialise(CfgXmlTree(), 4), QByteArray());
    }
};

QTEST_GUILESS_MAIN(TestCfgXmlWriter)
#include "tst_cfgxmlwriter.moc"
