#include "application/iabstractterminationtarget.h"

#include "application/applicationterminationcenter.h"

IAbstractTerminationTarget::IAbstractTerminationTarget()
{
    ApplicationTerminationCenter::instance().registerTerminationTarget(this);
}

IAbstractTerminationTarget::~IAbstractTerminationTarget()
{
    ApplicationTerminationCenter::instance().deregisterTerminationTarget(this);
}
