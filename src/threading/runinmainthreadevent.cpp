#include "threading/runinmainthreadevent.h"

#include "kvbase/errorhandler.h"
#include "threading/threadswitchinghandler.h"
#include "threading/tsanannotations_p.h"

#include <QMutexLocker>

namespace ThreadingHelper {

QMutex RunInMainThreadEvent_Impl::s_executeSettingsMutex;
bool RunInMainThreadEvent_Impl::s_bExecuteAllowed = true;
bool RunInMainThreadEvent_Impl::s_bExecuteOnDispatchAllowed = true;
bool RunInMainThreadEvent_Impl::s_bExecuteOnDeletionAllowed = false;

RunInMainThreadEvent_Impl::RunInMainThreadEvent_Impl(ThreadSwitchingHandler* handler)
    : QEvent(static_cast<QEvent::Type>(EVENT_TYPE)),
      m_sCallerInformation(handler ? handler->GetCallerInformation() : QString()), m_pObject(nullptr),
      m_bObjectValid(true)
{
    m_pExecutionStateManager = std::make_shared<ExecutionStateManager>(m_sCallerInformation);
}

RunInMainThreadEvent_Impl::RunInMainThreadEvent_Impl(const RunInMainThreadEvent_Impl& other)
    : QEvent(other), SafeThreadSwitchingListener(other),
      m_pExecutionStateManager(other.m_pExecutionStateManager),
      m_sCallerInformation(other.m_sCallerInformation), m_pObject(other.m_pObject.load()),
      m_bObjectValid(other.m_bObjectValid.load())
{
}

RunInMainThreadEvent_Impl& RunInMainThreadEvent_Impl::operator=(const RunInMainThreadEvent_Impl& other)
{
    QEvent::operator=(other);
    m_pExecutionStateManager = other.m_pExecutionStateManager;
    m_sCallerInformation = other.m_sCallerInformation;
    m_pObject.store(other.m_pObject.load());
    m_bObjectValid.store(other.m_bObjectValid.load());
    return *this;
}

RunInMainThreadEvent_Impl::~RunInMainThreadEvent_Impl()
{
    AcceptHandOver(this);
    if (SafeThreadSwitchingBase* object = m_pObject.exchange(nullptr))
        object->removeListener(this);
}

void RunInMainThreadEvent_Impl::processEvent(bool dispatched)
{
    AcceptHandOver(this);
    if (m_pExecutionStateManager->IsFinished())
        return;
    // Held back: the event stays pending, and a waiter keeps waiting.
    if (dispatched && !isExecuteOnDispatchAllowed())
        return;
    if (m_bObjectValid.load() && isExecuteAllowed() && (dispatched || isExecuteOnDeletionAllowed())) {
        execute();
        m_pExecutionStateManager->Finish(ExecutionStateManager::Executed);
        return;
    }
    markNotExecuted();
}

void RunInMainThreadEvent_Impl::markNotExecuted()
{
    _Q_TraceOld(
        ErrorHandler::Q_EXPERT_TRACE,
        QStringLiteral("Warning: RunInMainThreadEvent_Impl::execute(): Event is not executed because either "
                       "it is not allowed to do it or the object, whose method should be called, has been "
                       "deleted (") +
            m_sCallerInformation + QLatin1Char(')'));
    m_pExecutionStateManager->Finish(ExecutionStateManager::NotExecuted);
}

void RunInMainThreadEvent_Impl::registerAtObject(SafeThreadSwitchingBase* object)
{
    m_pObject.store(object);
    if (!SafeThreadSwitchingBase::addListenerIfValid(object, this)) {
        m_bObjectValid.store(false);
        m_pObject.store(nullptr);
    }
}

void RunInMainThreadEvent_Impl::notifyDeletion()
{
    m_pObject.store(nullptr);
    m_bObjectValid.store(false);
}

bool RunInMainThreadEvent_Impl::isExecuteAllowed()
{
    QMutexLocker locker(&s_executeSettingsMutex);
    return s_bExecuteAllowed;
}

void RunInMainThreadEvent_Impl::setExecuteAllowed(bool allowed)
{
    QMutexLocker locker(&s_executeSettingsMutex);
    s_bExecuteAllowed = allowed;
}

bool RunInMainThreadEvent_Impl::isExecuteOnDispatchAllowed()
{
    QMutexLocker locker(&s_executeSettingsMutex);
    return s_bExecuteOnDispatchAllowed;
}

void RunInMainThreadEvent_Impl::setExecuteOnDispatchAllowed(bool allowed)
{
    QMutexLocker locker(&s_executeSettingsMutex);
    s_bExecuteOnDispatchAllowed = allowed;
}

bool RunInMainThreadEvent_Impl::isExecuteOnDeletionAllowed()
{
    QMutexLocker locker(&s_executeSettingsMutex);
    return s_bExecuteOnDeletionAllowed;
}

void RunInMainThreadEvent_Impl::setExecuteOnDeletionAllowed(bool allowed)
{
    QMutexLocker locker(&s_executeSettingsMutex);
    s_bExecuteOnDeletionAllowed = allowed;
}

} // namespace ThreadingHelper
