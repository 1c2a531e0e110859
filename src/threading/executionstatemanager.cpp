#include "threading/executionstatemanager.h"
#include "threading/executionstatemanager_p.h"

#include "kvbase/errorhandler.h"

#include <QMutexLocker>

#include <atomic>

namespace ThreadingHelper {

namespace {

std::atomic<unsigned long> g_waitTimeout{ExecutionStateManager::DEFAULT_WAIT_TIMEOUT_MS};

} // namespace

ExecutionStateManager::ExecutionStateManager(const QString& callerInformation)
    : m_state(Pending), m_sCallerInformation(callerInformation)
{
}

ExecutionStateManager::~ExecutionStateManager() = default;

void ExecutionStateManager::waitForExecution()
{
    QMutexLocker locker(&m_mutex);
    if (m_state >= Executed)
        return;
    // Deliberately one wait without a loop: any wake-up, even a spurious one, ends it.
    const bool woken = m_condition.wait(&m_mutex, WaitTimeout());
    if (!woken)
        _Q_TraceOld(
            ErrorHandler::Q_EXPERT_TRACE,
            QStringLiteral("Warning: ExecutionStateManager::waitForExecution(): Wait for execution timed "
                           "out! (") +
                m_sCallerInformation + QLatin1Char(')'));
}

ExecutionStateManager::ExecutionState ExecutionStateManager::GetState() const
{
    QMutexLocker locker(&m_mutex);
    return static_cast<ExecutionState>(m_state);
}

bool ExecutionStateManager::IsFinished() const
{
    return GetState() >= Executed;
}

void ExecutionStateManager::Finish(ExecutionState state)
{
    QMutexLocker locker(&m_mutex);
    m_state = state;
    m_condition.wakeAll();
}

unsigned long ExecutionStateManager::WaitTimeout()
{
    return g_waitTimeout.load();
}

void ExecutionStateManagerTestAccess::SetWaitTimeout(unsigned long milliseconds)
{
    g_waitTimeout.store(milliseconds);
}

} // namespace ThreadingHelper
