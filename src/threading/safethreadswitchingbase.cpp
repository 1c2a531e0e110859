#include "threading/safethreadswitchingbase.h"

#include <QMutexLocker>

namespace ThreadingHelper {

std::set<SafeThreadSwitchingBase*> SafeThreadSwitchingBase::s_validObjects;
QMutex SafeThreadSwitchingBase::s_validObjectMutex;

SafeThreadSwitchingBase::SafeThreadSwitchingBase()
{
    registerSafeObject(this);
}

SafeThreadSwitchingBase::~SafeThreadSwitchingBase()
{
    // Leaving the set first means no listener can be added from now on, and
    // every listener added before is in the list copied for notification.
    unregisterSafeObject(this);
    notifyListeners();
}

bool SafeThreadSwitchingBase::addListenerIfValid(SafeThreadSwitchingBase* object,
                                                 SafeThreadSwitchingListener* listener)
{
    // The set's mutex stays held while the listener is added, so the object
    // cannot leave the set (start dying) between the look-up and the insertion.
    QMutexLocker locker(&s_validObjectMutex);
    if (s_validObjects.find(object) == s_validObjects.end())
        return false;
    object->addListener(listener);
    return true;
}

void SafeThreadSwitchingBase::removeListener(SafeThreadSwitchingListener* listener)
{
    QMutexLocker locker(&m_listenerMutex);
    m_listeners.remove(listener);
}

void SafeThreadSwitchingBase::addListener(SafeThreadSwitchingListener* listener)
{
    QMutexLocker locker(&m_listenerMutex);
    m_listeners.push_back(listener);
}

void SafeThreadSwitchingBase::notifyListeners()
{
    std::list<SafeThreadSwitchingListener*> listeners;
    {
        QMutexLocker locker(&m_listenerMutex);
        listeners = m_listeners;
    }
    // No lock held: a listener may call removeListener from its notification.
    for (SafeThreadSwitchingListener* listener : listeners)
        listener->notifyDeletion();
}

void SafeThreadSwitchingBase::registerSafeObject(SafeThreadSwitchingBase* object)
{
    QMutexLocker locker(&s_validObjectMutex);
    s_validObjects.insert(object);
}

void SafeThreadSwitchingBase::unregisterSafeObject(SafeThreadSwitchingBase* object)
{
    QMutexLocker locker(&s_validObjectMutex);
    s_validObjects.erase(object);
}

} // namespace ThreadingHelper
