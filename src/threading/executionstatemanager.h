/// \file
/// ExecutionStateManager: the outcome of one call queued for the main thread.
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
    /// Where a call stands. Executed and NotExecuted are final; any value
    /// of 1 or more counts as finished, and 2 is not used.
    enum ExecutionState : qint32
    {
        /// Neither run nor refused yet; the initial state.
        Pending = 0,
        /// The method was called.
        Executed = 1,
        /// Refused: execution was switched off, the object was deleted, or
        /// the event was deleted undelivered without execution on deletion.
        NotExecuted = 3
    };

    /// How long a blocking caller waits at most: five minutes.
    static constexpr unsigned long DEFAULT_WAIT_TIMEOUT_MS = 300000;

    /// A Pending state; `callerInformation` names the caller in the
    /// time-out warning.
    explicit ExecutionStateManager(const QString& callerInformation);
    /// Freed by the last holder, the event or the waiting caller, whichever lets go later.
    virtual ~ExecutionStateManager();
    ExecutionStateManager(const ExecutionStateManager&) = delete;
    ExecutionStateManager& operator=(const ExecutionStateManager&) = delete;

    /// Waits once for the call to finish (executed or refused), at most the
    /// wait time-out. A single wake-up ends the wait; the outcome is not returned.
    void waitForExecution();

    /// The current state, read under the manager's lock; callable from any thread.
    ExecutionState GetState() const;
    /// True once the state is Executed or NotExecuted.
    bool IsFinished() const;
    /// Sets a finished state and wakes every waiter.
    void Finish(ExecutionState state);
    /// The calling file and line, as the handler recorded them.
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
