/// \file
/// ZentQApplication: the family's Qt application object.
#ifndef APPLICATION_ZENTQAPPLICATION_H
#define APPLICATION_ZENTQAPPLICATION_H

#include "zentappstartup_export.h"

#include <QAbstractNativeEventFilter>
#include <QApplication>
#include <QByteArray>
#include <QString>

#include <memory>

class QSessionManager;
class ZentApplication;
class ZentQApplicationSources;

/// The process's Qt application object, created by ZentApplication::Init.
///
/// It names the organisation "Velkor-Amsel" and the application "TALVO" for
/// Qt's settings, keeps running when the last window closes (ending is
/// explicit), forwards the session manager's save request to
/// ZentApplication::CommitData and watches for three events:
/// - a later instance of the same application asking this one to come to the
///   front (ZentApplication::GetActivatedMsg),
/// - a change of the system clock or of the time zone, announced by
///   signalRereadTimeZoneOffset(),
/// - Control+Shift+Alt+F12 released, which opens the plug-in "FolderPane.dll"
///   once and runs that instance on every later press.
///
/// On Windows these arrive as window messages through nativeEventFilter. On
/// Linux a local server receives the bring-to-front requests, a clock-change
/// notifier and a watch on the time-zone file report time changes, and an
/// application-wide filter on Qt's key events reports the keys; each is
/// translated into the same message and handled by HandleMessage.
class ZENTAPPSTARTUP_EXPORT ZentQApplication : public QApplication, public QAbstractNativeEventFilter
{
    Q_OBJECT

public:
    /// Windows message numbers that HandleMessage understands besides the
    /// application's bring-to-front message.
    enum WatchedMessage : unsigned int
    {
        MSG_TimeChange = 30, ///< WM_TIMECHANGE
        MSG_KeyDown = 256,   ///< WM_KEYDOWN
        MSG_KeyUp = 257      ///< WM_KEYUP
    };
    /// Windows virtual-key codes of the watched keys.
    enum WatchedKey : unsigned int
    {
        KEY_Shift = 16,
        KEY_Control = 17,
        KEY_Alt = 18,
        KEY_F12 = 123
    };

    /// `app` may be null (no bring-to-front message then); argc is kept by value.
    ZentQApplication(ZentApplication* app, int& argc, char** argv);
    ~ZentQApplication() override;

    /// The argument count given to the constructor.
    int argc() const { return m_argc; }
    /// The argument vector given to the constructor (not copied).
    char** argv() const { return m_argv; }

    /// Windows message records of the GUI thread; true when the message is consumed.
    bool nativeEventFilter(const QByteArray& eventType, void* message, long* result) override;

    /// The logic behind every watched event, in Windows numbering: the
    /// bring-to-front message (only in this object's thread, where it is always
    /// consumed), MSG_TimeChange, and MSG_KeyDown/MSG_KeyUp with a key code in
    /// `key`. Returns true when the message is consumed.
    bool HandleMessage(unsigned int message, unsigned int key);

    /// Starts receiving the bring-to-front requests of later instances of the
    /// application `name` (Linux: a local server only this user can reach;
    /// Windows: the broadcast message arrives by itself). False when another
    /// live instance already receives them or the channel cannot be opened;
    /// a channel opened before then stays in use.
    bool ListenForActivation(const QString& name);

signals:
    /// The system time or time zone changed; receivers re-read the time-zone offset.
    void signalRereadTimeZoneOffset();

protected:
    /// Feeds key presses and releases that reach a window into HandleMessage
    /// (auto-repeats excepted); never consumes an event.
    bool eventFilter(QObject* watched, QEvent* event) override;

private slots:
    void SlotCommitData(QSessionManager& manager);

private:
    bool HandleActivation();
    void HandleKeyDown(unsigned int key);
    void HandleKeyUp(unsigned int key);
    void OpenFolderPane();
    void StartPlatformSources();

    ZentApplication* m_pApp;
    int m_argc;
    char** m_argv;
    std::unique_ptr<ZentQApplicationSources> m_pSources;

    friend class ZentQApplicationSources;
};

#endif
