/// \file
/// The process-wide list of objects told that the application ends.
#ifndef APPLICATION_APPLICATIONTERMINATIONCENTER_H
#define APPLICATION_APPLICATIONTERMINATIONCENTER_H

#include "zentappstartup_export.h"

#include <list>
#include <memory>

class IAbstractTerminationTarget;

/// The process-wide list of objects that must hear, once, that the
/// application is about to end while configuration and Qt still exist.
/// Meant for the main thread; only the creation of the singleton is thread-safe.
class ZENTAPPSTARTUP_EXPORT ApplicationTerminationCenter
{
public:
    /// The one centre, made on first use.
    static ApplicationTerminationCenter& instance();

    /// Appends the target; no check for duplicates or null.
    void registerTerminationTarget(IAbstractTerminationTarget* target);
    /// Removes every entry equal to `target`.
    void deregisterTerminationTarget(IAbstractTerminationTarget* target);
    /// Notifies the targets, latest registered first, and empties the list.
    void aboutToTerminate() const;

private:
    ApplicationTerminationCenter();
    ~ApplicationTerminationCenter();
    ApplicationTerminationCenter(const ApplicationTerminationCenter&) = delete;
    ApplicationTerminationCenter& operator=(const ApplicationTerminationCenter&) = delete;

    // Owned through a pointer so that the const notification can still empty it.
    std::unique_ptr<std::list<IAbstractTerminationTarget*>> m_pTargets;
};

#endif
