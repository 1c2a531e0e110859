#include "kvbase/zentstring.h"

#include <QtTest>

class tst_ZentString : public QObject
{
    Q_OBJECT

private slots:
    void isAsciiString_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("ascii");
        QTest::newRow("empty") << QString() << true;
        QTest::newRow("plain") << QStringLiteral("Configuration") << true;
        QTest::newRow("control_and_del") << QString::fromLatin1("\t\x7f") << true;
        QTest::newRow("latin1_umlaut") << QStringLiteral("Größe") << false;
        QTest::newRow("first_non_ascii_0x80") << QString(QChar(0x80)) << false;
        QTest::newRow("cjk") << QStringLiteral("設定") << false;
    }

    void isAsciiString()
    {
        QFETCH(QString, text);
        QFETCH(bool, ascii);
        QCOMPARE(Zent::isAsciiString(text), ascii);
    }
};

QTEST_GUILESS_MAIN(tst_ZentString)
#include "tst_zentstring.moc"
