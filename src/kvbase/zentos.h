/// \file
/// ZentOS: the operating-system abstraction.
#ifndef KVBASE_ZENTOS_H
#define KVBASE_ZENTOS_H

#include "kvbase/kvbase_export.h"

#include <QIcon>
#include <QString>

#include <string>

class QFile;
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
        /// Left edge in pixels; -1 when unknown.
        int left = -1;
        /// Top edge in pixels; -1 when unknown.
        int top = -1;
        /// Right edge in pixels; -1 when unknown.
        int right = -1;
        /// Bottom edge in pixels; -1 when unknown.
        int bottom = -1;
        /// 1 normal, 2 minimised, 3 maximised; -1 when unknown.
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
    /// Loads the library `fileName`, looked for beside the program first and
    /// then on the system's search path. A Windows name "X.dll" is also found
    /// as libX.so or X.so. Null on failure.
    virtual void* LoadLibrary(const QString& fileName);
    /// Releases a handle of LoadLibrary; false on failure.
    virtual bool FreeLibrary(void* handle);
    /// The exported symbol `name` of the library `handle`; null when missing.
    virtual void* GetProcAddress(void* handle, const char* name);
    /// The system's error number of the calling thread's last failed library
    /// call; 0 after a success or ResetLastError().
    virtual unsigned long GetLastError() const;
    /// Clears the calling thread's last error and its text.
    virtual void ResetLastError();
    /// The system's description of the calling thread's last error; empty when none.
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
    /// terminal, otherwise opened with the desktop's viewer when a desktop
    /// session is there. False when it could not be shown that way (no
    /// terminal and no desktop, the viewer missing or failing, the file
    /// unreadable): the caller then writes the text to standard error.
    virtual bool DisplayTextFile(const QString& fileName);
    /// Writes `bytes` to standard error as they are; true when all were written.
    virtual bool WriteStandardError(const QByteArray& bytes);

    // One instance per application and user. The lock of a name exists while
    // a live process holds it: the system drops it with its holder, so a
    // crashed instance never blocks a new start.
    /// True when some process (this one included) holds the lock `name`.
    virtual bool NamedLockExists(const QString& name) const;
    /// Holds the lock `name` until CloseNamedLock or the process's end; several
    /// holders may share it. Null when the lock cannot be made.
    virtual void* CreateNamedLock(const QString& name);
    /// Releases a lock of CreateNamedLock; null is ignored.
    virtual void CloseNamedLock(void* handle);
    /// Holds the lock `name` alone, until CloseNamedLock or the process's end;
    /// null at once when another holder has it (or it cannot be made).
    virtual void* TryExclusiveLock(const QString& name);
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
    /// Closes a descriptor of OpenClockChangeNotifier; -1 is ignored.
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

    // Files on a shared machine: nothing is created or written through a link
    // that another user planted, and nothing is read that is not a plain file.
    // Modes are the Unix permission bits (0600); they are set exactly, whatever the umask.
    /// The outcome of ReadRegularFile(); the bytes are empty unless Read.
    enum class ReadResult
    {
        /// The whole file was read.
        Read,
        /// Nothing has that name.
        Missing,
        /// Not a regular file (a pipe, a device, a socket); left unread.
        NotRegular,
        /// Larger than the limit, or grew beyond it while being read.
        TooLarge,
        /// Any other failure: no permission, a folder, a read error.
        Failed
    };
    /// Creates `fileName` afresh and opens `file` on it for writing. Fails
    /// when anything has that name already, a link included.
    virtual bool CreateNewFile(QFile& file, const QString& fileName, int mode = 0600);
    /// Removes whatever has the name `fileName` (a link itself, never its
    /// target), then creates it afresh as CreateNewFile does.
    virtual bool ReplaceWithNewFile(QFile& file, const QString& fileName, int mode = 0600);
    /// Opens `fileName` for appending; made with `mode` when missing. Only a
    /// regular file of this process's user is appended to, never through a link.
    virtual bool OpenForAppend(QFile& file, const QString& fileName, int mode = 0600);
    /// Renames `from` to `to`, replacing what has the name `to` (a link
    /// itself, never its target).
    virtual bool ReplaceFile(const QString& from, const QString& to);
    /// Reads the regular file `fileName` (links followed) when it holds at most `maxSize` bytes.
    virtual ReadResult ReadRegularFile(const QString& fileName, qint64 maxSize, QByteArray& bytes) const;
    /// Gives the newly made, open `file` the mode and owner of the regular
    /// file `model`, so that replacing a file keeps them. True when kept or
    /// when `model` is no regular file (nothing to keep).
    virtual bool KeepModeAndOwner(QFileDevice& file, const QString& model);
    /// Makes the folder `path` and its missing parents; folders made here get
    /// exactly `mode`.
    virtual bool CreateDirectories(const QString& path, int mode);
    /// The folder of this user's runtime files (locks, sockets), private to
    /// the user: the session's runtime folder, else one made for the user in
    /// the temporary folder and checked to be the user's own. Empty when no
    /// safe folder can be had; `problem` then or after a fallback says why.
    virtual QString GetRuntimeDir(QString* problem = nullptr) const;
    /// An environment variable that moves files: like GetEnvironmentVar, but
    /// nullptr in a process that runs with privileges its caller lacks (set-user-id).
    virtual const char* GetTrustedEnvironmentVar(const char* name) const;
};

#endif
