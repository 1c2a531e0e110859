#ifndef THREADING_TSANANNOTATIONS_P_H
#define THREADING_TSANANNOTATIONS_P_H

// Qt is not built with ThreadSanitizer, so the hand-over of an event through
// Qt's posted-event queue (locked inside Qt) is invisible to it. The event's
// address marks the hand-over: released before posting, acquired where the
// event is dispatched or deleted. Without ThreadSanitizer these are empty.

#if defined(__SANITIZE_THREAD__)
extern "C" void __tsan_acquire(void* address);
extern "C" void __tsan_release(void* address);
#endif

namespace ThreadingHelper {

inline void AnnounceHandOver(void* address)
{
#if defined(__SANITIZE_THREAD__)
    __tsan_release(address);
#else
    (void)address;
#endif
}

inline void AcceptHandOver(void* address)
{
#if defined(__SANITIZE_THREAD__)
    __tsan_acquire(address);
#else
    (void)address;
#endif
}

} // namespace ThreadingHelper

#endif
