#include "application/zentsplash.h"

#include "kvbase/errorhandler.h"

#include <QCoreApplication>
#include <QFont>
#include <QLabel>
#include <QLayout>
#include <QProgressBar>
#include <QPushButton>
#include <QStyle>
#include <QStyleFactory>
#include <QVBoxLayout>

namespace {
const char* const SOURCE_NAME = "application/zentsplash";
const int RAISE_INTERVAL_MS = 100;
} // namespace

ZentSplash::ZentSplash(const QPixmap& pixmap, QWidget* parent)
    : QWidget(parent, Qt::SplashScreen | Qt::FramelessWindowHint), m_timer(this)
{
    setUp();
    setPixmap(pixmap);
}

ZentSplash::ZentSplash(QWidget* parent)
    : QWidget(parent, Qt::SplashScreen | Qt::FramelessWindowHint), m_timer(this)
{
    setUp();
}

ZentSplash::~ZentSplash()
{
    // The bar uses the style: it goes first.
    hideProgress();
}

void ZentSplash::setUp()
{
    setObjectName(QStringLiteral("SplashScreen"));

    // The timer is a child so that it follows the widget into another thread.
    // Raising on a timer keeps the splash above the application's windows
    // for as long as it exists.
    connect(&m_timer, &QTimer::timeout, this, &ZentSplash::onTimer);
    m_timer.start(RAISE_INTERVAL_MS);

    if (layout() || m_pPixmapLabel)
        return;
    auto* box = new QVBoxLayout(this);
    box->setSpacing(0);
    box->setContentsMargins(0, 0, 0, 0);
    m_pPixmapLabel = new QLabel(this);
    m_pPixmapLabel->setIndent(0);
    m_pPixmapLabel->setMargin(0);
    box->addWidget(m_pPixmapLabel);
}

void ZentSplash::setPixmap(const QPixmap& pixmap)
{
    if (m_pPixmapLabel)
        m_pPixmapLabel->setPixmap(pixmap);
}

void ZentSplash::Write2Splash(const QString& text)
{
    if (!m_pTextLabel) {
        m_pTextLabel = new QLabel(this);
        QFont font = m_pPixmapLabel ? m_pPixmapLabel->font() : this->font();
        font.setWeight(QFont::Bold);
        font.setCapitalization(QFont::AllUppercase);
        m_pTextLabel->setFont(font);
        layout()->addWidget(m_pTextLabel);
        m_pTextLabel->show();
    }
    if (text.isEmpty()) {
        delete m_pTextLabel;
        m_pTextLabel = nullptr;
        return;
    }
    m_pTextLabel->setText(text);
    repaint();
}

void ZentSplash::SplashShowQuitButton(QString text)
{
    // Deliberately no check for an existing button: every call adds one.
    m_pQuitButton = new QPushButton(this);
    m_pQuitButton->setText(text.isEmpty() ? QStringLiteral("QUIT") : text);
    m_pQuitButton->setFixedSize(150, 30);
    layout()->addWidget(m_pQuitButton);
    connect(m_pQuitButton, &QPushButton::clicked, this, &ZentSplash::OnCancelClicked);
}

void ZentSplash::createProgress()
{
    if (!layout() || m_pProgress)
        return;
    m_pProgress = new QProgressBar(this);
    // Where the style does not exist the bar keeps the application's style.
    m_pStyle = QStyleFactory::create(QStringLiteral("windowsxp"));
    if (m_pStyle)
        m_pProgress->setStyle(m_pStyle);
    layout()->addWidget(m_pProgress);
}

void ZentSplash::showMovingProgress()
{
    createProgress();
    if (!m_pProgress)
        return;
    m_pProgress->setValue(0);
    m_pProgress->setRange(0, 0);
    m_pProgress->setTextVisible(false);
}

void ZentSplash::hideProgress()
{
    delete m_pProgress;
    m_pProgress = nullptr;
    delete m_pStyle;
    m_pStyle = nullptr;
}

void ZentSplash::OnCancelClicked()
{
    _Q_Trace(QStringLiteral("Cancel button was hit"), SOURCE_NAME, 217);
    QCoreApplication::quit();
}

void ZentSplash::onTimer()
{
    raise();
}
