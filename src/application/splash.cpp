#include "application/splash.h"

#include <QFont>
#include <QFontMetrics>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QVBoxLayout>

Splash::Splash(const QPixmap& pixmap, const char* title, const char* subtitle, bool progress)
    : QDialog(nullptr, Qt::MSWindowsFixedSizeDialogHint), m_bProgress(progress)
{
    setObjectName(QStringLiteral("Splash"));
    setModal(false);

    auto* mainLayout = new QVBoxLayout;
    mainLayout->setContentsMargins(10, 10, 10, 10);
    setLayout(mainLayout);

    addTitleRow(mainLayout, pixmap, title, subtitle);
    if (m_bProgress)
        addProgressRow(mainLayout);

    mainLayout->activate();
    show();
}

Splash::~Splash() = default;

void Splash::addTitleRow(QVBoxLayout* mainLayout, const QPixmap& pixmap, const char* title,
                         const char* subtitle)
{
    auto* row = new QHBoxLayout;
    mainLayout->addLayout(row, 5);
    row->addSpacing(10);
    // Deliberately in no layout: the picture sits where the dialog places it.
    auto* pictureLabel = new QLabel(this);
    pictureLabel->setPixmap(pixmap);
    row->addSpacing(10);
    auto* texts = new QVBoxLayout;
    row->addLayout(texts, 0);

    if (title) {
        auto* titleLabel = new QLabel(this);
        titleLabel->setAlignment(Qt::AlignCenter);
        titleLabel->setFont(QFont(QStringLiteral("helvetica"), 18, QFont::Bold, true));
        titleLabel->setText(QString::fromUtf8(title));
        texts->addWidget(titleLabel, 2);
    }
    if (subtitle) {
        auto* subtitleLabel = new QLabel(this);
        subtitleLabel->setAlignment(Qt::AlignCenter);
        subtitleLabel->setText(QString::fromUtf8(subtitle));
        texts->addWidget(subtitleLabel, 3);
    }
}

void Splash::addProgressRow(QVBoxLayout* mainLayout)
{
    auto* row = new QHBoxLayout;
    mainLayout->addLayout(row, 0);
    const int rowHeight = QFontMetrics(font()).height() + 6;

    m_pProgressText = new QLabel(this);
    m_pProgressText->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    m_pProgressText->setFixedHeight(rowHeight);
    row->addWidget(m_pProgressText);

    m_pProgressBar = new QProgressBar(this);
    m_pProgressBar->setMaximum(100);
    m_pProgressBar->setFixedHeight(rowHeight);
    m_pProgressBar->setValue(0);
    row->addWidget(m_pProgressBar);
}

void Splash::setProgressText(const QString& text)
{
    if (m_pProgressText)
        m_pProgressText->setText(text);
}

void Splash::setProgressValue(int value)
{
    if (!m_pProgressBar)
        return;
    m_pProgressBar->setValue(value);
    m_nProgressValue = value;
}
