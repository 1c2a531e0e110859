/// \file
/// ThreadSwitchingHandler: hands packed calls to the main thread.
#ifndef THREADING_THREADSWITCHINGHANDLER_H
#define THREADING_THREADSWITCHINGHANDLER_H

#include "zentappstartup_export.h"

#include <QMutex>
#include <QString>

class QEvent;

namespace ThreadingHelper {

/// Hands calls packed as RunInMainThreadEvent_Impl to the main thread:
/// executed at once when already there (unless posting is forced), otherwise
/// posted, through the event posting thread or directly, and waited for when
/// the handler is blocking.
class ZENTAPPSTARTUP_EXPORT ThreadSwitchingHandler
{
public:
    /// `file` and `line` name the caller (the compiler's __FILE__ and __LINE__).
    ThreadSwitchingHandler(bool forcePosting, bool waitForExecution, const char* file, unsigned int line);

    /// "file: F, line: L" with the caller's file F and line L; names the
    /// caller in warnings.
    QString GetCallerInformation() const { return m_sCallerInformation; }
    /// True when events are always posted, even from the main thread. A
    /// blocking handler that posts from the main thread waits out the full
    /// time-out, since the event cannot be dispatched meanwhile.
    bool IsForcePosting() const { return m_bForcePosting; }
    /// True when RunInMainThread_Impl() waits until the call was executed or
    /// refused, or the wait timed out.
    bool IsWaitForExecution() const { return m_bWaitForExecution; }

    /// Takes ownership of `event`, which must be a RunInMainThreadEvent_Impl;
    /// any other event, or null, is ignored and not deleted.
    void RunInMainThread_Impl(QEvent* event);

    /// Whether worker threads hand their events to the event posting thread.
    static bool isUsePostingThread();
    /// Sets the switch isUsePostingThread() reads; any thread.
    static void setUsePostingThread(bool use);

private:
    QString m_sCallerInformation;
    bool m_bForcePosting;
    bool m_bWaitForExecution;

    static QMutex s_usePostingThreadMutex;
    static bool s_bUsePostingThread;
};

} // namespace ThreadingHelper

#endif
