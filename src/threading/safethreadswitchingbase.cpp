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
    const auto positions = m_listenerPositions.equal_range(listener);
    for (auto position = positions.first; position != positions.second; ++position)
        m_listeners.erase(position->second);
    m_listenerPositions.erase(positions.first, positions.second);
}

void SafeThreadSwitchingBase::addListener(SafeThreadSwitchingListener* listener)
{
    QMutexLocker locker(&m_listenerMutex);
    m_listenerPositions.emplace(listener, m_listeners.insert(m_listeners.end(), listener));
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
