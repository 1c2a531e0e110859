#include "kvbase/geometryarrayparser.h"

#include <QtTest>

class tst_GeometryArrayParser : public QObject
{
    Q_OBJECT

private slots:
    void readsScreens_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<int>("count");
        QTest::addColumn<int>("firstScreen");
        QTest::addColumn<int>("secondScreen");
        QTest::newRow("one_window") << "1,100,80,1024,768,0" << true << 1 << 1 << -1;
        QTest::newRow("two_windows") << "1,100,80,1024,768,0;0,0,0,400,300,2" << true << 2 << 1 << 0;
        QTest::newRow("blanks_and_trailing_separator") << " 7 , 1, 2, 3, 4, 1 ;" << true << 1 << 7 << -1;
        QTest::newRow("empty") << "" << false << 0 << -1 << -1;
        QTest::newRow("too_few_fields") << "1,2,3" << false << 0 << -1 << -1;
        QTest::newRow("not_a_number") << "1,a,3,4,5,0" << false << 0 << -1 << -1;
        QTest::newRow("negative_screen") << "-1,0,0,10,10,0" << false << 0 << -1 << -1;
        QTest::newRow("zero_width") << "0,0,0,0,10,0" << false << 0 << -1 << -1;
        QTest::newRow("unknown_state") << "0,0,0,10,10,4" << false << 0 << -1 << -1;
        QTest::newRow("one_bad_record_spoils_all") << "0,0,0,10,10,0;x" << false << 0 << -1 << -1;
    }

    void readsScreens()
    {
        QFETCH(QString, text);
        QFETCH(bool, valid);
        QFETCH(int, count);
        QFETCH(int, firstScreen);
        QFETCH(int, secondScreen);
        const GeometryArrayParser parser(text);
        QCOMPARE(parser.IsValid(), valid);
        QCOMPARE(parser.Count(), count);
        QCOMPARE(parser.GetScreen(), firstScreen);
        QCOMPARE(parser.GetScreen(1), secondScreen);
    }

    void keepsEveryField()
    {
        const GeometryArrayParser parser(QStringLiteral("2,-10,20,640,480,3"));
        const GeometryArrayParser::Geometry g = parser.At(0);
        QCOMPARE(g.screen, 2);
        QCOMPARE(g.x, -10);
        QCOMPARE(g.y, 20);
        QCOMPARE(g.width, 640);
        QCOMPARE(g.height, 480);
        QCOMPARE(g.state, 3);
        QCOMPARE(parser.At(-1).screen, -1);
    }
};

QTEST_GUILESS_MAIN(tst_GeometryArrayParser)
#include "tst_geometryarrayparser.moc"
