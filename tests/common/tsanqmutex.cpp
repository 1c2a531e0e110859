// Makes QMutex visible to ThreadSanitizer.
//
// Qt 5 is not built with ThreadSanitizer, and its mutexes wait on futexes,
// which the sanitizer does not see as synchronisation: every access guarded
// by a QMutex would be reported as a race. Linked into a test under
// ThreadSanitizer, this file puts wrappers of QMutex::lock, tryLock and
// unlock in front of Qt's own (the executable's definitions come first in
// symbol lookup) and tells the sanitizer about each acquisition and release.
// Without ThreadSanitizer it is empty.

#if defined(__SANITIZE_THREAD__)

#include <QMutex>

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

#endif
