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

    QString GetCallerInformation() const { return m_sCallerInformation; }
    bool IsForcePosting() const { return m_bForcePosting; }
    bool IsWaitForExecution() const { return m_bWaitForExecution; }

    /// Takes ownership of `event`, which must be a RunInMainThreadEvent_Impl;
    /// any other event, or null, is ignored and not deleted.
    void RunInMainThread_Impl(QEvent* event);

    /// Whether worker threads hand their events to the event posting thread.
    static bool isUsePostingThread();
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
