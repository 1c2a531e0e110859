// Makes QMutex (and waiting on a QWaitCondition with it) visible to ThreadSanitizer.
//
// Qt 5 is not built with ThreadSanitizer, and its mutexes wait on futexes,
// which the sanitizer does not see as synchronisation: every access guarded
// by a QMutex would be reported as a race. Linked into a test under
// ThreadSanitizer, this file puts wrappers of QMutex::lock, tryLock and
// unlock in front of Qt's own (the executable's definitions come first in
// symbol lookup) and tells the sanitizer about each acquisition and release.
// Without ThreadSanitizer it is empty.

#if defined(__SANITIZE_THREAD__)

#include <QDeadlineTimer>
#include <QMutex>
#include <QWaitCondition>

#include <dlfcn.h>

extern "C" void __tsan_acquire(void* address);
extern "C" void __tsan_release(void* address);

namespace {

template <typename Function> Function QtFunction(const char* symbol)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, symbol));
}

} // namespace

void QMutex::lock() QT_MUTEX_LOCK_NOEXCEPT
{
    static const auto qtLock = QtFunction<void (*)(QMutex*)>("_ZN6QMutex4lockEv");
    qtLock(this);
    __tsan_acquire(this);
}

bool QMutex::tryLock(int timeout) QT_MUTEX_LOCK_NOEXCEPT
{
    static const auto qtTryLock = QtFunction<bool (*)(QMutex*, int)>("_ZN6QMutex7tryLockEi");
    const bool locked = qtTryLock(this, timeout);
    if (locked)
        __tsan_acquire(this);
    return locked;
}

void QMutex::unlock() noexcept
{
    static const auto qtUnlock = QtFunction<void (*)(QMutex*)>("_ZN6QMutex6unlockEv");
    __tsan_release(this);
    qtUnlock(this);
}

// A wait releases the mutex and takes it again inside Qt, unseen; the
// wrappers announce both, so what the waker wrote under the mutex is seen
// as written before the waiter reads it.
bool QWaitCondition::wait(QMutex* lockedMutex, QDeadlineTimer deadline)
{
    static const auto qtWait = QtFunction<bool (*)(QWaitCondition*, QMutex*, QDeadlineTimer)>(
        "_ZN14QWaitCondition4waitEP6QMutex14QDeadlineTimer");
    __tsan_release(lockedMutex);
    const bool woken = qtWait(this, lockedMutex, deadline);
    __tsan_acquire(lockedMutex);
    return woken;
}

bool QWaitCondition::wait(QMutex* lockedMutex, unsigned long time)
{
    static const auto qtWait =
        QtFunction<bool (*)(QWaitCondition*, QMutex*, unsigned long)>("_ZN14QWaitCondition4waitEP6QMutexm");
    __tsan_release(lockedMutex);
    const bool woken = qtWait(this, lockedMutex, time);
    __tsan_acquire(lockedMutex);
    return woken;
}

#endif
