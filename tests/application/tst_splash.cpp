#include "application/splash.h"

#include <QFontMetrics>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QStandardPaths>
#include <QTest>
#include <QVBoxLayout>

namespace {

QPixmap makePicture()
{
    QPixmap picture(32, 24);
    picture.fill(Qt::darkGreen);
    return picture;
}

bool layoutHolds(QLayout* layout, QWidget* widget)
{
    for (int i = 0; i < layout->count(); ++i) {
        QLayoutItem* item = layout->itemAt(i);
        if (item->widget() == widget)
            return true;
        if (item->layout() && layoutHolds(item->layout(), widget))
            return true;
    }
    return false;
}

QLabel* pictureLabelOf(Splash& splash)
{
    for (QLabel* label : splash.findChildren<QLabel*>()) {
        if (!label->pixmap(Qt::ReturnByValue).isNull())
            return label;
    }
    return nullptr;
}

QHBoxLayout* titleRowOf(Splash& splash)
{
    return qobject_cast<QHBoxLayout*>(splash.layout()->itemAt(0)->layout());
}

QVBoxLayout* textColumnOf(Splash& splash)
{
    return qobject_cast<QVBoxLayout*>(titleRowOf(splash)->itemAt(2)->layout());
}

QHBoxLayout* progressRowOf(Splash& splash)
{
    return qobject_cast<QHBoxLayout*>(splash.layout()->itemAt(1)->layout());
}

QStringList textsOf(QLayout* layout)
{
    QStringList texts;
    for (int i = 0; i < layout->count(); ++i)
        texts.append(qobject_cast<QLabel*>(layout->itemAt(i)->widget())->text());
    return texts;
}

} // namespace

class TestSplash : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void constructionShowsNonModalFixedSizeDialog();
    void mainLayoutHasTitleRowAndProgressRow();
    void titleRowHoldsSpacingsAndTextColumn();
    void pictureLabelIsInNoLayout();
    void titleIsCentredBoldItalicHelvetica();
    void subtitleIsCentredInDialogFont();
    void textColumnHoldsGivenTexts_data();
    void textColumnHoldsGivenTexts();
    void progressRowHoldsLabelAndBarOfFontHeight();
    void progressTextAndValueReachTheRow();
    void withoutProgressRowTextAndValueAreIgnored();
};

void TestSplash::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
}

void TestSplash::constructionShowsNonModalFixedSizeDialog()
{
    Splash splash(makePicture(), "Title", "Subtitle", true);

    QCOMPARE(splash.objectName(), QStringLiteral("Splash"));
    QCOMPARE(splash.parentWidget(), nullptr);
    QCOMPARE(splash.isModal(), false);
    QVERIFY(splash.windowFlags().testFlag(Qt::MSWindowsFixedSizeDialogHint));
    QCOMPARE(splash.windowType(), Qt::Dialog);
    QVERIFY(splash.isVisible());
    QCOMPARE(splash.isProgressSplash(), true);
    QCOMPARE(splash.progressValue(), 0);
}

void TestSplash::mainLayoutHasTitleRowAndProgressRow()
{
    Splash splash(makePicture(), "Title", "Subtitle", true);

    auto* mainLayout = qobject_cast<QVBoxLayout*>(splash.layout());
    QVERIFY(mainLayout);
    QCOMPARE(mainLayout->contentsMargins(), QMargins(10, 10, 10, 10));
    QCOMPARE(mainLayout->count(), 2);
    QVERIFY(titleRowOf(splash));
    QVERIFY(progressRowOf(splash));
    QCOMPARE(mainLayout->stretch(0), 5);
    QCOMPARE(mainLayout->stretch(1), 0);
}

void TestSplash::titleRowHoldsSpacingsAndTextColumn()
{
    Splash splash(makePicture(), "Title", "Subtitle", false);

    QHBoxLayout* row = titleRowOf(splash);
    QVERIFY(row);
    QCOMPARE(row->count(), 3);
    QVERIFY(row->itemAt(0)->spacerItem());
    QCOMPARE(row->itemAt(0)->sizeHint().width(), 10);
    QVERIFY(row->itemAt(1)->spacerItem());
    QCOMPARE(row->itemAt(1)->sizeHint().width(), 10);
    QVERIFY(textColumnOf(splash));
    QCOMPARE(row->stretch(2), 0);
}

void TestSplash::pictureLabelIsInNoLayout()
{
    Splash splash(makePicture(), "Title", "Subtitle", true);

    QLabel* picture = pictureLabelOf(splash);
    QVERIFY(picture);
    QCOMPARE(picture->parentWidget(), &splash);
    QCOMPARE(picture->pixmap(Qt::ReturnByValue).size(), QSize(32, 24));
    QCOMPARE(layoutHolds(splash.layout(), picture), false);
}

void TestSplash::titleIsCentredBoldItalicHelvetica()
{
    Splash splash(makePicture(), "Zent Demo", "Version 1.0", false);

    QVBoxLayout* column = textColumnOf(splash);
    auto* title = qobject_cast<QLabel*>(column->itemAt(0)->widget());
    QVERIFY(title);
    QCOMPARE(title->text(), QStringLiteral("Zent Demo"));
    QCOMPARE(title->alignment(), Qt::Alignment(Qt::AlignCenter));
    QCOMPARE(title->font().family(), QStringLiteral("helvetica"));
    QCOMPARE(title->font().pointSize(), 18);
    QCOMPARE(title->font().weight(), 75);
    QCOMPARE(title->font().italic(), true);
    QCOMPARE(column->stretch(0), 2);
}

void TestSplash::subtitleIsCentredInDialogFont()
{
    Splash splash(makePicture(), "Zent Demo", "Version 1.0", false);

    QVBoxLayout* column = textColumnOf(splash);
    auto* subtitle = qobject_cast<QLabel*>(column->itemAt(1)->widget());
    QVERIFY(subtitle);
    QCOMPARE(subtitle->text(), QStringLiteral("Version 1.0"));
    QCOMPARE(subtitle->alignment(), Qt::Alignment(Qt::AlignCenter));
    QCOMPARE(subtitle->font(), splash.font());
    QCOMPARE(column->stretch(1), 3);
}

void TestSplash::textColumnHoldsGivenTexts_data()
{
    QTest::addColumn<QByteArray>("title");
    QTest::addColumn<QByteArray>("subtitle");
    QTest::addColumn<QStringList>("texts");
    QTest::addColumn<int>("labels");

    QTest::newRow("title_and_subtitle") << QByteArray("T") << QByteArray("S") << QStringList{"T", "S"} << 3;
    QTest::newRow("subtitle_only") << QByteArray() << QByteArray("S") << QStringList{"S"} << 2;
    QTest::newRow("title_only") << QByteArray("T") << QByteArray() << QStringList{"T"} << 2;
    QTest::newRow("neither") << QByteArray() << QByteArray() << QStringList() << 1;
    QTest::newRow("empty_texts_still_make_labels")
        << QByteArray("") << QByteArray("") << QStringList{"", ""} << 3;
}

void TestSplash::textColumnHoldsGivenTexts()
{
    QFETCH(QByteArray, title);
    QFETCH(QByteArray, subtitle);
    QFETCH(QStringList, texts);
    QFETCH(int, labels);

    // A null QByteArray gives a null pointer: the label is left out.
    Splash splash(makePicture(), title.isNull() ? nullptr : title.constData(),
                  subtitle.isNull() ? nullptr : subtitle.constData(), false);

    QCOMPARE(textsOf(textColumnOf(splash)), texts);
    QCOMPARE(splash.findChildren<QLabel*>().size(), labels);
}

void TestSplash::progressRowHoldsLabelAndBarOfFontHeight()
{
    Splash splash(makePicture(), "Title", "Subtitle", true);
    const int height = QFontMetrics(splash.font()).height() + 6;

    QHBoxLayout* row = progressRowOf(splash);
    QCOMPARE(row->count(), 2);
    auto* text = qobject_cast<QLabel*>(row->itemAt(0)->widget());
    auto* bar = qobject_cast<QProgressBar*>(row->itemAt(1)->widget());
    QVERIFY(text);
    QVERIFY(bar);
    QCOMPARE(text->alignment(), Qt::AlignRight | Qt::AlignVCenter);
    QCOMPARE(text->minimumHeight(), height);
    QCOMPARE(text->maximumHeight(), height);
    QCOMPARE(text->text(), QString());
    QCOMPARE(bar->minimum(), 0);
    QCOMPARE(bar->maximum(), 100);
    QCOMPARE(bar->value(), 0);
    QCOMPARE(bar->minimumHeight(), height);
    QCOMPARE(bar->maximumHeight(), height);
    QCOMPARE(row->stretch(0), 0);
    QCOMPARE(row->stretch(1), 0);
}

void TestSplash::progressTextAndValueReachTheRow()
{
    Splash splash(makePicture(), "Title", "Subtitle", true);
    splash.setProgressText(QStringLiteral("Loading plug-ins"));
    splash.setProgressValue(42);

    QHBoxLayout* row = progressRowOf(splash);
    QCOMPARE(qobject_cast<QLabel*>(row->itemAt(0)->widget())->text(), QStringLiteral("Loading plug-ins"));
    QCOMPARE(qobject_cast<QProgressBar*>(row->itemAt(1)->widget())->value(), 42);
    QCOMPARE(splash.progressValue(), 42);
}

void TestSplash::withoutProgressRowTextAndValueAreIgnored()
{
    Splash splash(makePicture(), "Title", "Subtitle", false);
    splash.setProgressText(QStringLiteral("Loading plug-ins"));
    splash.setProgressValue(42);

    QCOMPARE(splash.isProgressSplash(), false);
    QCOMPARE(splash.progressValue(), 0);
    QCOMPARE(splash.layout()->count(), 1);
    QCOMPARE(splash.findChildren<QProgressBar*>().size(), 0);
    for (QLabel* label : splash.findChildren<QLabel*>())
        QVERIFY(label->text() != QStringLiteral("Loading plug-ins"));
}

QTEST_MAIN(TestSplash)
#include "tst_splash.moc"
