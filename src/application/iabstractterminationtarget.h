/// \file
/// IAbstractTerminationTarget: the base of objects told that the application ends.
#ifndef APPLICATION_IABSTRACTTERMINATIONTARGET_H
#define APPLICATION_IABSTRACTTERMINATIONTARGET_H

#include "zentappstartup_export.h"

/// Base of every object that wants to be told that the application ends. It
/// is on the termination centre's list from construction to destruction.
class ZENTAPPSTARTUP_EXPORT IAbstractTerminationTarget
{
public:
    IAbstractTerminationTarget();
    // Deliberately not registered: only the default constructor registers.
    /// A copy is not put on the termination centre's list.
    IAbstractTerminationTarget(const IAbstractTerminationTarget&) {}
    /// Assigning leaves the list as it is.
    IAbstractTerminationTarget& operator=(const IAbstractTerminationTarget&) { return *this; }
    virtual ~IAbstractTerminationTarget();

    /// The application is about to end; configuration and Qt still exist.
    /// Called once, in the main thread.
    virtual void aboutToTerminate() = 0;
};

#endif
