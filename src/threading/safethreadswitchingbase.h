/// \file
/// SafeThreadSwitchingBase: objects whose deletion cancels the calls queued for them.
#ifndef THREADING_SAFETHREADSWITCHINGBASE_H
#define THREADING_SAFETHREADSWITCHINGBASE_H

#include "zentappstartup_export.h"

#include <QMutex>

#include <list>
#include <set>
#include <unordered_map>

namespace ThreadingHelper {

/// Told by a SafeThreadSwitchingBase object that it is being destroyed.
/// In practice the listeners are calls still queued for the main thread.
class ZENTAPPSTARTUP_EXPORT SafeThreadSwitchingListener
{
public:
    /// Called from the dying object's destructor, with no lock held.
    virtual void notifyDeletion() = 0;

protected:
    ~SafeThreadSwitchingListener() = default;
};

/// Base of every class whose methods are called in the main thread from
/// other threads: while the object lives it is in one process-wide set of
/// valid objects, and its destructor tells its listeners that it is gone, so
/// that no queued call ever runs on a deleted object.
class ZENTAPPSTARTUP_EXPORT SafeThreadSwitchingBase
{
public:
    /// Enters the object in the set of valid objects.
    SafeThreadSwitchingBase();
    /// Leaves the set of valid objects first, then tells every listener;
    /// the listeners are not owned and not deleted.
    virtual ~SafeThreadSwitchingBase();
    SafeThreadSwitchingBase(const SafeThreadSwitchingBase&) = delete;
    SafeThreadSwitchingBase& operator=(const SafeThreadSwitchingBase&) = delete;

    /// Adds `listener` to `object` if the object is alive (in the set of
    /// valid objects); false otherwise. `object` is only compared, never
    /// dereferenced, unless it is alive.
    static bool addListenerIfValid(SafeThreadSwitchingBase* object, SafeThreadSwitchingListener* listener);
    /// Removes every occurrence of `listener`; absent listeners are ignored.
    void removeListener(SafeThreadSwitchingListener* listener);

private:
    void addListener(SafeThreadSwitchingListener* listener);
    void notifyListeners();
    static void registerSafeObject(SafeThreadSwitchingBase* object);
    static void unregisterSafeObject(SafeThreadSwitchingBase* object);

    using ListenerList = std::list<SafeThreadSwitchingListener*>;
    ListenerList m_listeners;
    // Where each listener stands in the list: an object with thousands of
    // pending calls removes each finished one without walking the list.
    std::unordered_multimap<SafeThreadSwitchingListener*, ListenerList::iterator> m_listenerPositions;
    QMutex m_listenerMutex;

    static std::set<SafeThreadSwitchingBase*> s_validObjects;
    static QMutex s_validObjectMutex;
};

} // namespace ThreadingHelper

#endif
