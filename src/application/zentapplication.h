/// \file
/// ZentApplication: the object every application of the family starts on.
#ifndef APPLICATION_ZENTAPPLICATION_H
#define APPLICATION_ZENTAPPLICATION_H

#include "zentappstartup_export.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

class CfgCenter;
class QSessionManager;
class ZentQApplication;
class ZentSplash;

/// The one object every application of the family creates first in `main`.
///
/// Init runs the whole start-up: the Qt application object, the log tracer,
/// the configuration centre, the splash screen, the locale, the refusal of a
/// second instance of the same application (CfgKey) for this user, the
/// translations, the window icon and the plug-ins; Exec then runs the event
/// loop. The destructor tears everything down in a fixed order. There is at
/// most one instance per process; Get() returns it.
///
/// The object is copyable; a copy shares (and would tear down) the same
/// parts, as the family's applications expect.
class ZENTAPPSTARTUP_EXPORT ZentApplication
{
public:
    /// Sets every pointer and number to zero and makes this the instance of Get().
    ZentApplication();
    /// Shares `other`'s parts (see the class comment); Get() stays as it was.
    ZentApplication(const ZentApplication& other);
    /// Shares `other`'s parts (see the class comment); Get() stays as it was.
    ZentApplication& operator=(const ZentApplication& other);
    /// Not virtual, deliberately: applications create the object on the stack of `main`.
    ~ZentApplication();

    /// The start-up sequence for the command line `AppKey CfgDoc`; `flag` is
    /// handed to the configuration centre. Exceptions of the configuration
    /// centre, of HandleStartedTwice and of the plug-ins propagate.
    virtual void Init(int& argc, char** argv, bool flag);
    /// For applications with a fixed AppKey: argument 0 immediately followed
    /// by `appKey` is inserted as argument 1 before the virtual Init runs.
    void Init(const char* appKey, int argc, char** argv, bool flag);
    /// Starts with the command line "appKey cfgDoc".
    void Init(const char* appKey, const char* cfgDoc, bool flag);
    /// Keeps a wide-character argument vector for the application; not owned.
    void InitUnicode(unsigned short** argv);
    /// The vector given to InitUnicode; null before.
    unsigned short** UnicodeArgv() const { return m_ppUnicodeArgv; }

    /// The session manager's save request: commits the configuration and
    /// notifies the termination centre.
    virtual void CommitData(QSessionManager& manager);
    /// A second start of a running application: asks the running instance to
    /// come to the front and quits 1000 ms later (true); throws KVException
    /// when no running instance could be reached.
    virtual bool HandleStartedTwice();
    /// Ends the event loop.
    virtual void Quit();
    /// Runs the Qt event loop and returns its result.
    int Exec();

    /// The process's application object: the one constructed last; null
    /// before the first and after its destruction.
    static ZentApplication* Get();

    /// The argument count of the Qt application object; 0 before Init made it.
    int Argc() const;
    /// The argument vector of the Qt application object; null before Init made it.
    char** Argv() const;
    /// The command line as Qt keeps it (QCoreApplication::arguments).
    QStringList Arguments() const;
    /// The number of the bring-to-front message named by the CfgKey.
    unsigned int GetActivatedMsg() const { return m_nActivatedMsg; }

    // The splash screen; each does nothing when no splash is shown.
    /// Deletes the splash.
    void HideSplash();
    /// Brings the splash above the other windows.
    void RaiseSplash();
    /// Shows the splash's busy bar.
    void SplashBusy();
    /// Shows `text` on the splash; see ZentSplash::Write2Splash.
    void Write2Splash(const QString& text);
    /// Adds a quit button to the splash; see ZentSplash::SplashShowQuitButton.
    void SplashShowQuitButton(QString text);
    /// When the splash was shown, in seconds since 1970.
    qint64 SplashShowTime() const { return m_tSplashShown; }
    /// The configured splash time-out ("SplashTimeout" × 1000), despite the
    /// name deliberately not the time shown.
    int SplashShowTimeInMSec() const { return m_nSplashTimeoutMs; }

    /// Throws KVException when the "FileName" values of the application's
    /// "AdditionalDlls" entries differ from `dlls`, entry by entry. `dlls` must
    /// have at least as many entries as the configuration.
    static void CheckListOfAdditonalDlls(const QStringList& dlls);

private:
    void processEvents();
    static CfgCenter* CreateCfgCenter(int argc, char** argv, bool flag);
    void ShowSplash();
    void ChooseLocale();
    void CheckSingleInstance(bool& startedTwice);
    void SetWindowIcon();
    void RunInitOnOwnedArgs(int& argc, char** argv, bool flag);
    void TearDown();

    ZentQApplication* m_pQApp;
    CfgCenter* m_pCfgCenter;
    QByteArray m_strCfgKey;
    void* m_hSemaphore;
    unsigned short** m_ppUnicodeArgv;
    ZentSplash* m_pSplash;
    qint64 m_tSplashShown;
    int m_nSplashTimeoutMs;
    unsigned int m_nActivatedMsg;

    static ZentApplication* m_pThis;
};

#endif
