/// \file
/// Splash: a small progress dialog with title and subtitle.
#ifndef APPLICATION_SPLASH_H
#define APPLICATION_SPLASH_H

#include "zentappstartup_export.h"

#include <QDialog>
#include <QPixmap>

class QLabel;
class QProgressBar;
class QVBoxLayout;

/// A small non-modal dialog for applications that show their own title,
/// subtitle and, optionally, a progress bar with a text while they work.
class ZENTAPPSTARTUP_EXPORT Splash : public QDialog
{
    Q_OBJECT

public:
    /// Builds and shows the dialog. A null `title` or `subtitle` leaves its
    /// label out; `progress` adds the progress row for the dialog's lifetime.
    Splash(const QPixmap& pixmap, const char* title, const char* subtitle, bool progress);
    ~Splash() override;

    /// True when the dialog has the progress row.
    bool isProgressSplash() const { return m_bProgress; }
    /// The last value given to setProgressValue(); 0 initially.
    int progressValue() const { return m_nProgressValue; }
    /// Ignored without a progress row.
    void setProgressText(const QString& text);
    /// Ignored without a progress row.
    void setProgressValue(int value);

private:
    void addTitleRow(QVBoxLayout* mainLayout, const QPixmap& pixmap, const char* title, const char* subtitle);
    void addProgressRow(QVBoxLayout* mainLayout);

    bool m_bProgress;
    int m_nProgressValue = 0;
    QProgressBar* m_pProgressBar = nullptr;
    QLabel* m_pProgressText = nullptr;
};

#endif
