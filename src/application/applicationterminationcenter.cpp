#include "application/applicationterminationcenter.h"

#include "application/iabstractterminationtarget.h"

ApplicationTerminationCenter::ApplicationTerminationCenter()
    : m_pTargets(std::make_unique<std::list<IAbstractTerminationTarget*>>())
{
}

ApplicationTerminationCenter::~ApplicationTerminationCenter() = default;

ApplicationTerminationCenter& ApplicationTerminationCenter::instance()
{
    static ApplicationTerminationCenter center;
    return center;
}

void ApplicationTerminationCenter::registerTerminationTarget(IAbstractTerminationTarget* target)
{
    m_pTargets->push_back(target);
}

void ApplicationTerminationCenter::deregisterTerminationTarget(IAbstractTerminationTarget* target)
{
    m_pTargets->remove(target);
}

void ApplicationTerminationCenter::aboutToTerminate() const
{
    // The list is looked at anew each turn: a target may register or
    // deregister others from inside its notification.
    while (!m_pTargets->empty()) {
        IAbstractTerminationTarget* target = m_pTargets->back();
        m_pTargets->pop_back();
        target->aboutToTerminate();
    }
}
