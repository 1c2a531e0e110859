#ifndef THREADING_EXECUTIONSTATEMANAGER_H
#define THREADING_EXECUTIONSTATEMANAGER_H

#include "zentappstartup_export.h"

#include <QMutex>
#include <QString>
#include <QWaitCondition>

namespace ThreadingHelper {

/// The outcome of one call queued for the main thread, shared between the
/// event that carries the call and the caller that waits for it.
class ZENTAPPSTARTUP_EXPORT ExecutionStateManager
{
public:
    enum ExecutionState : qint32
    {
        Pending = 0,
        Executed = 1,
        NotExecuted = 3
    };

    /// How long a blocking caller waits at most: five minutes.
    static constexpr unsigned long DEFAULT_WAIT_TIMEOUT_MS = 300000;

    explicit ExecutionStateManager(const QString& callerInformation);
    virtual ~ExecutionStateManager();
    ExecutionStateManager(const ExecutionStateManager&) = delete;
    ExecutionStateManager& operator=(const ExecutionStateManager&) = delete;

    /// Waits once for the call to finish (executed or refused), at most the
    /// wait time-out. A single wake-up ends the wait; the outcome is not returned.
    void waitForExecution();

    ExecutionState GetState() const;
    /// True once the state is Executed or NotExecuted.
    bool IsFinished() const;
    /// Sets a finished state and wakes every waiter.
    void Finish(ExecutionState state);
    QString GetCallerInformation() const { return m_sCallerInformation; }

    /// The time-out waitForExecution() uses.
    static unsigned long WaitTimeout();

private:
    friend class ExecutionStateManagerTestAccess;

    qint32 m_state;
    mutable QMutex m_mutex;
    QWaitCondition m_condition;
    QString m_sCallerInformation;
};

} // namespace ThreadingHelper

#endif
