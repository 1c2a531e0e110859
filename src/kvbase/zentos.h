#ifndef KVBASE_ZENTOS_H
#define KVBASE_ZENTOS_H

#include "kvbase/kvbase_export.h"

#include <QIcon>
#include <QString>

#include <string>

class QFileDevice;
class QWidget;

/// The operating-system abstraction: every call into the operating system
/// that the family's libraries make goes through this one object, so that a
/// port only adds the platform file behind it (zentos_unix.cpp, zentos_win.cpp).
///
/// The operations are virtual so that tests can put a scripted system in
/// place with SetInstance().
class KVBASE_EXPORT ZentOS
{
public:
    /// Placement of a process's main window: its edges on the screen and
    /// its show state, numbered as on Windows (1 normal, 2 minimised,
    /// 3 maximised); -1 when unknown.
    struct WindowPlacement
    {
        int left = -1;
        int top = -1;
        int right = -1;
        int bottom = -1;
        int showState = -1;
    };

    /// The process's instance, made on first use.
    static ZentOS& Create();
    /// The same instance as Create().
    static ZentOS& Get();
    /// Replaces the instance (tests); nullptr restores the platform's own. Not owned.
    static void SetInstance(ZentOS* instance);

    ZentOS();
    virtual ~ZentOS();
    ZentOS(const ZentOS&) = delete;
    ZentOS& operator=(const ZentOS&) = delete;

    // Libraries. Handles are opaque; null means failure, and the reason is then
    // GetLastError()/GetLastErrorText().
    virtual void* LoadLibrary(const QString& fileName);
    virtual bool FreeLibrary(void* handle);
    virtual void* GetProcAddress(void* handle, const char* name);
    virtual unsigned long GetLastError() const;
    virtual void ResetLastError();
    virtual QString GetLastErrorText() const;

    // The machine.
    /// The local machine's address number `index` (IPv4 and IPv6, loopback
    /// included); an empty text when there are no more. Index 0 takes a fresh
    /// look at the system; higher indexes read from what it found.
    virtual QString GetLocalAddress(int index) const;
    /// The workstation's name; empty when it cannot be determined.
    virtual std::wstring GetWorkStationName() const;

    // Threads.
    /// Set-up for GUI processes: the calling thread becomes the main thread.
    virtual void InitGuiProcess();
    /// The main thread's identity; 0 when not known.
    virtual unsigned long GetMainThreadId() const;
    /// True when the calling thread is the main thread (also when none is known
    /// and the calling thread is the Qt application's).
    virtual bool IsAppThread() const;
    /// The calling thread's identity.
    virtual unsigned long GetCurrentThreadId() const;

    // Environment and folders.
    /// The variable's value in the process's 8-bit encoding; nullptr when unset.
    virtual const char* GetEnvironmentVar(const char* name) const;
    /// The folder of the system's shared libraries (on Windows, System32).
    virtual std::wstring GetSystemDir() const;
    /// The temporary folder, without a trailing separator.
    virtual std::wstring GetTempDir() const;
    /// The product's installation folder; empty when the product is not installed.
    virtual QString GetProductDir() const;

    // Processes and windows.
    /// The placement of the main window of the process `processId`; false
    /// (and `placement` untouched) when there is no such window or no display.
    virtual bool GetWindowPlacement(qint64 processId, WindowPlacement& placement) const;
    /// Moves, resizes and shows the process's main window as `placement` says.
    virtual bool SetWindowPlacement(qint64 processId, const WindowPlacement& placement);
    /// Starts a program without a window; `result` receives its process id.
    virtual bool StartHiddenLegacyProgram(const std::u16string& program, const std::u16string& params,
                                          int& result);
    /// Starts a program with one argument, detached from this process.
    virtual bool StartProgram(const QString& program, const QString& argument);
    /// Shows a text file to the user: printed when standard output is a
    /// terminal, otherwise opened with the desktop's viewer.
    virtual bool DisplayTextFile(const QString& fileName);

    // One instance per application and user. The lock of a name exists while
    // a live process holds it: the system drops it with its holder, so a
    // crashed instance never blocks a new start.
    /// True when some process (this one included) holds the lock `name`.
    virtual bool NamedLockExists(const QString& name) const;
    /// Holds the lock `name` until CloseNamedLock or the process's end; several
    /// holders may share it. Null when the lock cannot be made.
    virtual void* CreateNamedLock(const QString& name);
    virtual void CloseNamedLock(void* handle);
    /// The message number of `name`: the same in every process, 0xC000 to 0xFFFF.
    virtual unsigned int RegisterMessage(const QString& name);
    /// Where the first instance of `name` listens for the messages of later
    /// ones: a local socket only this user can reach.
    virtual QString GetMessageChannel(const QString& name) const;
    /// Delivers `message` to the instance listening for `name` (posted: it does
    /// not wait for it to be handled). Above 0 when delivered.
    virtual long BroadcastMessage(const QString& name, unsigned int message);
    /// True when the peer of the connected local socket `descriptor` runs as this process's user.
    virtual bool IsPeerSameUser(qintptr descriptor) const;
    /// Shows a minimised top-level window again without giving it the focus.
    virtual void ShowWindowNoActivate(QWidget* window);

    // Changes of the wall clock and the time zone.
    /// A descriptor that becomes readable when the wall clock is set; -1 when
    /// the system cannot tell.
    virtual int OpenClockChangeNotifier();
    /// Consumes what made the descriptor readable and re-arms it; true when
    /// the clock was set.
    virtual bool AcknowledgeClockChange(int descriptor);
    virtual void CloseClockChangeNotifier(int descriptor);
    /// The file that names the system's time zone; empty when there is none.
    virtual QString GetTimeZoneFile() const;

    /// Ends the process at once with `exitCode`: no destructors, no exit
    /// handlers, no event loop. For failures after which nothing may run.
    virtual void ExitProcess(int exitCode);

    /// The product icon with this number; a null icon when unknown.
    virtual QIcon GetIcon(int number) const;

    /// The wall clock in seconds since 1970.
    virtual qint64 GetTime() const;

    // Durability.
    /// Flushes an open file's data to the storage device.
    virtual bool SyncFile(QFileDevice& file);
    /// Flushes a folder's entries (renames, creations) to the storage device.
    virtual bool SyncDirectory(const QString& path);
};

#endif
