/// \file
/// ZentSplash: the start-up picture shown while an application loads.
#ifndef APPLICATION_ZENTSPLASH_H
#define APPLICATION_ZENTSPLASH_H

#include "zentappstartup_export.h"

#include <QPixmap>
#include <QString>
#include <QTimer>
#include <QWidget>

class QLabel;
class QProgressBar;
class QPushButton;
class QStyle;

/// The start-up picture shown while the configuration and the plug-ins load:
/// a frameless window that keeps itself above the application's windows and
/// can carry a text line, a busy bar and quit buttons below the picture.
class ZENTAPPSTARTUP_EXPORT ZentSplash : public QWidget
{
    Q_OBJECT

public:
    /// Builds the splash and shows `pixmap` in it.
    ZentSplash(const QPixmap& pixmap, QWidget* parent = nullptr);
    /// Builds the splash without a picture; setPixmap gives it one.
    explicit ZentSplash(QWidget* parent = nullptr);
    ~ZentSplash() override;

    /// Sets the picture, if the picture label exists.
    void setPixmap(const QPixmap& pixmap);
    /// Shows `text` below the picture, bold and in capitals, and repaints at
    /// once so that it shows even while the event loop is busy. An empty text
    /// removes the line.
    void Write2Splash(const QString& text);
    /// Adds a button that quits the application; "QUIT" when `text` is empty.
    /// Every call adds one more button.
    void SplashShowQuitButton(QString text);
    /// Shows a busy bar (one bar, however often this is called).
    void showMovingProgress();
    /// Removes the busy bar.
    void hideProgress();

public slots:
    /// A quit button was clicked: traces it and quits the application.
    void OnCancelClicked();
    /// Raises the splash again; a timer calls it while the splash exists.
    void onTimer();

private:
    void setUp();
    void createProgress();

    QLabel* m_pPixmapLabel = nullptr;
    QLabel* m_pTextLabel = nullptr;
    QProgressBar* m_pProgress = nullptr;
    QTimer m_timer;
    QPushButton* m_pQuitButton = nullptr;
    QStyle* m_pStyle = nullptr;
};

#endif
