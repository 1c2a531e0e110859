#include "kvbase/kvexception.h"

#include <QtTest>

class tst_KVException : public QObject
{
    Q_OBJECT

private slots:
    void carriesWhereItWasRaised()
    {
        const KVException e(QStringLiteral("Cannot open F for writing"),
                            QStringLiteral("configuration/cfgxml"), QStringLiteral("CfgXml"),
                            QStringLiteral("SaveDocument"), 412);
        QCOMPARE(e.GetMessage(), QStringLiteral("Cannot open F for writing"));
        QCOMPARE(e.GetSourceFile(), QStringLiteral("configuration/cfgxml"));
        QCOMPARE(e.GetClassName(), QStringLiteral("CfgXml"));
        QCOMPARE(e.GetOperation(), QStringLiteral("SaveDocument"));
        QCOMPARE(e.GetLine(), 412);
        QCOMPARE(e.GetCode(), -1);
    }

    void whatIsTheUtf8Message()
    {
        const KVException e(QStringLiteral("Größe \"x\" fehlt"));
        QCOMPARE(QByteArray(e.what()), QByteArray("Gr\xc3\xb6\xc3\x9f"
                                                  "e \"x\" fehlt"));
        QCOMPARE(e.GetSourceFile(), QString());
        QCOMPARE(e.GetLine(), 0);
    }

    void isCaughtAsStdException()
    {
        try {
            throw KVException(QStringLiteral("boom"), QString(), QString(), QString(), 1, 7);
        } catch (const std::exception& e) {
            QCOMPARE(QByteArray(e.what()), QByteArray("boom"));
            QCOMPARE(static_cast<const KVException&>(e).GetCode(), 7);
            return;
        }
        QFAIL("not caught");
    }
};

QTEST_GUILESS_MAIN(tst_KVException)
#include "tst_kvexception.moc"
