/// \file
/// ThreadSwitchingHandler_TemplateWrapper: the typed RunInMainThread calls.
#ifndef THREADING_THREADSWITCHINGHANDLER_TEMPLATEWRAPPER_H
#define THREADING_THREADSWITCHINGHANDLER_TEMPLATEWRAPPER_H

#include "threading/runinmainthreadevent.h"
#include "threading/threadswitchinghandler.h"

#include <type_traits>

namespace ThreadingHelper {

/// A ThreadSwitchingHandler with the typed calls: RunInMainThread(object,
/// method, arguments...) for zero to five bound arguments. The arguments are
/// copied at the call; the object is tracked when it is a
/// SafeThreadSwitchingBase, so that its deletion cancels the call.
class ThreadSwitchingHandler_TemplateWrapper : public ThreadSwitchingHandler
{
public:
    using ThreadSwitchingHandler::ThreadSwitchingHandler;

    /// Has `method` called on `object` in the main thread with copies of the
    /// arguments given here, zero to five of them: at once in the calling
    /// thread when that is the main thread or no main thread is known (unless
    /// posting is forced), otherwise posted, and then waited for when the
    /// handler is blocking. Callable from any thread. Nothing about the
    /// outcome is returned; a refused call is only traced as a warning. An
    /// exception thrown by the method propagates out of whatever runs it
    /// (this call, or Qt's dispatch in the main thread).
    ///@{
    template <typename T, typename Method> void RunInMainThread(T* object, Method method)
    {
        Send(new RunInMainThreadEvent0<T, Method>(this, object, method), object);
    }

    template <typename T, typename Method, typename A1>
    void RunInMainThread(T* object, Method method, const A1& a1)
    {
        Send(new RunInMainThreadEvent1<T, Method, Stored<A1>>(this, object, method, a1), object);
    }

    template <typename T, typename Method, typename A1, typename A2>
    void RunInMainThread(T* object, Method method, const A1& a1, const A2& a2)
    {
        Send(new RunInMainThreadEvent2<T, Method, Stored<A1>, Stored<A2>>(this, object, method, a1, a2),
             object);
    }

    template <typename T, typename Method, typename A1, typename A2, typename A3>
    void RunInMainThread(T* object, Method method, const A1& a1, const A2& a2, const A3& a3)
    {
        Send(new RunInMainThreadEvent3<T, Method, Stored<A1>, Stored<A2>, Stored<A3>>(this, object, method,
                                                                                      a1, a2, a3),
             object);
    }

    template <typename T, typename Method, typename A1, typename A2, typename A3, typename A4>
    void RunInMainThread(T* object, Method method, const A1& a1, const A2& a2, const A3& a3, const A4& a4)
    {
        Send(new RunInMainThreadEvent4<T, Method, Stored<A1>, Stored<A2>, Stored<A3>, Stored<A4>>(
                 this, object, method, a1, a2, a3, a4),
             object);
    }

    template <typename T, typename Method, typename A1, typename A2, typename A3, typename A4, typename A5>
    void RunInMainThread(T* object, Method method, const A1& a1, const A2& a2, const A3& a3, const A4& a4,
                         const A5& a5)
    {
        Send(new RunInMainThreadEvent5<T, Method, Stored<A1>, Stored<A2>, Stored<A3>, Stored<A4>, Stored<A5>>(
                 this, object, method, a1, a2, a3, a4, a5),
             object);
    }
    ///@}

private:
    // Arrays (string literals) are kept as pointers, everything else by value.
    template <typename A> using Stored = std::decay_t<A>;

    // The overload of registerAtObject that matches the object's static type
    // decides whether it is tracked.
    template <typename T> void Send(RunInMainThreadEvent_Impl* event, T* object)
    {
        event->registerAtObject(object);
        RunInMainThread_Impl(event);
    }
};

} // namespace ThreadingHelper

#endif
