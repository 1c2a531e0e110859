// XmlNames: the names and texts every configuration backend refuses, and the
// words it refuses them with.
#include "configuration/xmlnames_p.h"

#include <QtTest>

class tst_XmlNames : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void elementNames_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("valid");
        QTest::newRow("letters") << QStringLiteral("Name") << true;
        QTest::newRow("underscore first") << QStringLiteral("_x") << true;
        QTest::newRow("colon first") << QStringLiteral(":x") << true;
        QTest::newRow("digits, dash and dot after the first") << QStringLiteral("a1-b.c") << true;
        QTest::newRow("beyond ASCII") << QStringLiteral("Grüße") << true;
        QTest::newRow("empty") << QString() << false;
        QTest::newRow("digit first") << QStringLiteral("1st") << false;
        QTest::newRow("dash first") << QStringLiteral("-x") << false;
        QTest::newRow("dot first") << QStringLiteral(".x") << false;
        QTest::newRow("space") << QStringLiteral("has space") << false;
        QTest::newRow("slash") << QStringLiteral("a/b") << false;
        QTest::newRow("backslash") << QStringLiteral("a\\b") << false;
        QTest::newRow("tab") << QStringLiteral("a\tb") << false;
        QTest::newRow("no-break space") << QStringLiteral("a") + QChar(0xA0) + QStringLiteral("b") << false;
    }

    void elementNames()
    {
        QFETCH(QString, name);
        QFETCH(bool, valid);
        QCOMPARE(XmlNames::IsElementName(name), valid);
    }

    void nonXmlCharacters_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("position");
        QTest::newRow("empty") << QString() << -1;
        QTest::newRow("tab, line feed, carriage return") << QStringLiteral("a\tb\nc\rd") << -1;
        QTest::newRow("a pair of surrogates") << QStringLiteral("x") + QChar(0xD834) + QChar(0xDD1E) << -1;
        QTest::newRow("NUL") << QStringLiteral("ab") + QChar(0) << 2;
        QTest::newRow("bell") << QStringLiteral("a\ab") << 1;
        QTest::newRow("unit separator") << QString(QChar(0x1F)) << 0;
        QTest::newRow("U+FFFE") << QStringLiteral("ok") + QChar(0xFFFE) << 2;
        QTest::newRow("U+FFFF") << QString(QChar(0xFFFF)) << 0;
        QTest::newRow("lone high surrogate")
            << QStringLiteral("a") + QChar(0xD800) + QStringLiteral("b") << 1;
        QTest::newRow("high surrogate at the end") << QStringLiteral("a") + QChar(0xD800) << 1;
        QTest::newRow("lone low surrogate") << QString(QChar(0xDC00)) << 0;
    }

    void nonXmlCharacters()
    {
        QFETCH(QString, text);
        QFETCH(int, position);
        QCOMPARE(XmlNames::FirstNonXmlChar(text), position);
    }

    void invalidComponents()
    {
        QString invalid = QStringLiteral("untouched");
        QCOMPARE(XmlNames::FindInvalidComponent(QStringLiteral("A\\\\B\\"), &invalid), false);
        QCOMPARE(invalid, QStringLiteral("untouched"));
        QCOMPARE(XmlNames::FindInvalidComponent(QString(), &invalid), false);
        QCOMPARE(XmlNames::FindInvalidComponent(QStringLiteral("A\\1st\\b c"), &invalid), true);
        QCOMPARE(invalid, QStringLiteral("1st"));
    }

    void messages()
    {
        QCOMPARE(
            XmlNames::NotAnElementName(QStringLiteral("The sub-configuration"), QStringLiteral("a b"),
                                       QStringLiteral("a b")),
            QStringLiteral("The sub-configuration \"a b\" was not stored: \"a b\" cannot be an XML element "
                           "name."));
        QCOMPARE(XmlNames::NoSuchSubConfiguration(QStringLiteral("S\\x y"), QStringLiteral("x y")),
                 QStringLiteral("The sub-configuration \"S\\x y\" does not exist: \"x y\" cannot be an XML "
                                "element name."));
    }

    void refusedValueNames_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("refusal");
        const auto refused = [](const char* name, const char* part) {
            return QStringLiteral("The value \"%1\" was not stored: \"%2\" cannot be an XML element name.")
                .arg(QLatin1String(name), QLatin1String(part));
        };
        QTest::newRow("plain") << QStringLiteral("Name") << QString();
        QTest::newRow("the node's own text") << QString() << QString();
        QTest::newRow("a path") << QStringLiteral("Sub\\Deep\\Name") << QString();
        QTest::newRow("doubled separators") << QStringLiteral("Sub\\\\Name") << QString();
        QTest::newRow("a bad name") << QStringLiteral("1bad") << refused("1bad", "1bad");
        QTest::newRow("a bad component") << QStringLiteral("a b\\c d") << refused("a b\\c d", "a b");
        QTest::newRow("a bad last component") << QStringLiteral("Sub\\c d") << refused("Sub\\c d", "c d");
        QTest::newRow("nothing after the separator") << QStringLiteral("Own\\") << refused("Own\\", "");
        QTest::newRow("a separator alone") << QStringLiteral("\\") << refused("\\", "");
    }

    void refusedValueNames()
    {
        QFETCH(QString, name);
        QFETCH(QString, refusal);
        const QString result = XmlNames::RefusedValueName(name);
        QCOMPARE(result, refusal);
        QCOMPARE(result.isNull(), refusal.isNull());
    }

    void refusedValueTexts()
    {
        QVERIFY(XmlNames::RefusedValueText(QStringLiteral("V"), QStringLiteral("fine\ttext")).isNull());
        QCOMPARE(
            XmlNames::RefusedValueText(QStringLiteral("Sub\\V"), QStringLiteral("a") + QChar(0x1B)),
            QStringLiteral("The value \"Sub\\V\" was not stored: its text contains the character U+001B, "
                           "which XML cannot carry."));
        QCOMPARE(
            XmlNames::RefusedValueText(QStringLiteral("V"), QString(QChar(0xFFFF)) + QChar(0)),
            QStringLiteral("The value \"V\" was not stored: its text contains the character U+FFFF, which "
                           "XML cannot carry."));
        QCOMPARE(
            XmlNames::RefusedValueText(QStringLiteral("V"), QString(QChar(0xDBFF))),
            QStringLiteral("The value \"V\" was not stored: its text contains the character U+DBFF, which "
                           "XML cannot carry."));
    }
};

QTEST_GUILESS_MAIN(tst_XmlNames)
#include "tst_xmlnames.moc"
