/// \file
/// RunInMainThreadEvent_Impl and its typed subclasses: a member-function call packed into a Qt event.
#ifndef THREADING_RUNINMAINTHREADEVENT_H
#define THREADING_RUNINMAINTHREADEVENT_H

#include "threading/executionstatemanager.h"
#include "threading/safethreadswitchingbase.h"
#include "zentappstartup_export.h"

#include <QEvent>
#include <QMutex>
#include <QString>

#include <atomic>
#include <memory>

namespace ThreadingHelper {

class ThreadSwitchingHandler;

/// One member-function call packed into a Qt event for the main thread's
/// EventReceiver. The typed subclasses (RunInMainThreadEvent0 to 5) hold the
/// object, the method and the bound arguments; this base decides whether the
/// call may run and records the outcome in the shared ExecutionStateManager.
class ZENTAPPSTARTUP_EXPORT RunInMainThreadEvent_Impl : public QEvent, public SafeThreadSwitchingListener
{
public:
    /// The event type; a fixed number, not registered with Qt. Qt 5 keeps
    /// types in 16 bits, so events carry it as 35463 (100999 - 65536).
    static constexpr int EVENT_TYPE = 100999;

    /// An event of type EVENT_TYPE with a new ExecutionStateManager in state
    /// Pending. The caller information is copied from `handler`; empty when
    /// `handler` is null. No object is tracked yet (see registerAtObject()).
    explicit RunInMainThreadEvent_Impl(ThreadSwitchingHandler* handler);
    /// Copies member-wise: the copy shares `other`'s ExecutionStateManager
    /// and tracked object, but is not registered as a listener of that
    /// object, so it is not told of its deletion.
    RunInMainThreadEvent_Impl(const RunInMainThreadEvent_Impl& other);
    /// Assigns member-wise, as the copy constructor copies.
    RunInMainThreadEvent_Impl& operator=(const RunInMainThreadEvent_Impl& other);
    /// Stops listening to the tracked object. The ExecutionStateManager lives
    /// on while a waiting caller still holds it.
    ~RunInMainThreadEvent_Impl() override;

    /// Calls the bound method; implemented by the typed subclasses.
    virtual void execute() = 0;

    /// A new reference to the call's outcome, shared with the event; it
    /// stays valid after the event is deleted.
    std::shared_ptr<ExecutionStateManager> GetExecutionStateManager() const
    {
        return m_pExecutionStateManager;
    }
    /// The calling file and line, as the handler recorded them.
    QString GetCallerInformation() const { return m_sCallerInformation; }
    /// False once the tracked object was deleted or could not be registered.
    bool IsObjectValid() const { return m_bObjectValid.load(); }

    /// Runs the call, or refuses it, once. `dispatched` is true at dispatch
    /// (and for immediate execution), false from the destructor of an event
    /// that was never dispatched.
    void processEvent(bool dispatched);

    /// Tracks `object`: its deletion makes this event invalid. An object
    /// that is already gone leaves the event invalid from the start.
    void registerAtObject(SafeThreadSwitchingBase* object);
    /// Objects that are not SafeThreadSwitchingBase are not tracked.
    void registerAtObject(void*) {}

    void notifyDeletion() override;

    /// Process-wide: whether events may run at all (default true). When
    /// false, events are refused and marked NotExecuted. Any thread.
    static bool isExecuteAllowed();
    /// Switches execution of all events on or off; see isExecuteAllowed().
    static void setExecuteAllowed(bool allowed);
    /// Process-wide: whether a dispatched event runs (default true). When
    /// false, a dispatched event does nothing and stays Pending, so that its
    /// deletion decides; a blocking caller keeps waiting. Any thread.
    static bool isExecuteOnDispatchAllowed();
    /// Switches execution at dispatch on or off; see isExecuteOnDispatchAllowed().
    static void setExecuteOnDispatchAllowed(bool allowed);
    /// Process-wide: whether an event deleted undelivered still runs, in
    /// the deleting thread (default false). Any thread.
    static bool isExecuteOnDeletionAllowed();
    /// Switches execution on deletion on or off; see isExecuteOnDeletionAllowed().
    static void setExecuteOnDeletionAllowed(bool allowed);

private:
    void markNotExecuted();

    std::shared_ptr<ExecutionStateManager> m_pExecutionStateManager;
    QString m_sCallerInformation;
    // Atomic because the object's destructor may clear them from another
    // thread than the one dispatching; still no lock, as the listener's
    // callback must never block a dying object.
    std::atomic<SafeThreadSwitchingBase*> m_pObject;
    std::atomic<bool> m_bObjectValid;

    static QMutex s_executeSettingsMutex;
    static bool s_bExecuteAllowed;
    static bool s_bExecuteOnDispatchAllowed;
    static bool s_bExecuteOnDeletionAllowed;
};

/// The typed events: the object's pointer, the method and copies of the
/// arguments. Each destructor first gives an undelivered event its chance to
/// run (processEvent(false)) while the arguments still exist.
///
/// RunInMainThreadEvent0 calls a method without arguments; RunInMainThreadEvent1
/// to RunInMainThreadEvent5 bind one to five. They are made by
/// ThreadSwitchingHandler_TemplateWrapper::RunInMainThread().
template <typename T, typename Method> class RunInMainThreadEvent0 : public RunInMainThreadEvent_Impl
{
public:
    /// Binds `method` of `object`; `handler` names the caller.
    RunInMainThreadEvent0(ThreadSwitchingHandler* handler, T* object, Method method)
        : RunInMainThreadEvent_Impl(handler), m_pTarget(object), m_method(method)
    {
    }
    /// Lets an undelivered event run or be refused before its arguments go.
    ~RunInMainThreadEvent0() override { processEvent(false); }
    void execute() override { (m_pTarget->*m_method)(); }

private:
    T* m_pTarget;
    Method m_method;
};

/// A call with one bound argument; see RunInMainThreadEvent0.
template <typename T, typename Method, typename A1>
class RunInMainThreadEvent1 : public RunInMainThreadEvent_Impl
{
public:
    /// Binds `method` of `object` and a copy of `a1`; `handler` names the caller.
    RunInMainThreadEvent1(ThreadSwitchingHandler* handler, T* object, Method method, const A1& a1)
        : RunInMainThreadEvent_Impl(handler), m_pTarget(object), m_method(method), m_a1(a1)
    {
    }
    /// Lets an undelivered event run or be refused before its arguments go.
    ~RunInMainThreadEvent1() override { processEvent(false); }
    void execute() override { (m_pTarget->*m_method)(m_a1); }

private:
    T* m_pTarget;
    Method m_method;
    A1 m_a1;
};

/// A call with two bound arguments; see RunInMainThreadEvent0.
template <typename T, typename Method, typename A1, typename A2>
class RunInMainThreadEvent2 : public RunInMainThreadEvent_Impl
{
public:
    /// Binds `method` of `object` and copies of `a1` and `a2`; `handler` names the caller.
    RunInMainThreadEvent2(ThreadSwitchingHandler* handler, T* object, Method method, const A1& a1,
                          const A2& a2)
        : RunInMainThreadEvent_Impl(handler), m_pTarget(object), m_method(method), m_a1(a1), m_a2(a2)
    {
    }
    /// Lets an undelivered event run or be refused before its arguments go.
    ~RunInMainThreadEvent2() override { processEvent(false); }
    void execute() override { (m_pTarget->*m_method)(m_a1, m_a2); }

private:
    T* m_pTarget;
    Method m_method;
    A1 m_a1;
    A2 m_a2;
};

/// A call with three bound arguments; see RunInMainThreadEvent0.
template <typename T, typename Method, typename A1, typename A2, typename A3>
class RunInMainThreadEvent3 : public RunInMainThreadEvent_Impl
{
public:
    /// Binds `method` of `object` and copies of `a1` to `a3`; `handler` names the caller.
    RunInMainThreadEvent3(ThreadSwitchingHandler* handler, T* object, Method method, const A1& a1,
                          const A2& a2, const A3& a3)
        : RunInMainThreadEvent_Impl(handler), m_pTarget(object), m_method(method), m_a1(a1), m_a2(a2),
          m_a3(a3)
    {
    }
    /// Lets an undelivered event run or be refused before its arguments go.
    ~RunInMainThreadEvent3() override { processEvent(false); }
    void execute() override { (m_pTarget->*m_method)(m_a1, m_a2, m_a3); }

private:
    T* m_pTarget;
    Method m_method;
    A1 m_a1;
    A2 m_a2;
    A3 m_a3;
};

/// A call with four bound arguments; see RunInMainThreadEvent0.
template <typename T, typename Method, typename A1, typename A2, typename A3, typename A4>
class RunInMainThreadEvent4 : public RunInMainThreadEvent_Impl
{
public:
    /// Binds `method` of `object` and copies of `a1` to `a4`; `handler` names the caller.
    RunInMainThreadEvent4(ThreadSwitchingHandler* handler, T* object, Method method, const A1& a1,
                          const A2& a2, const A3& a3, const A4& a4)
        : RunInMainThreadEvent_Impl(handler), m_pTarget(object), m_method(method), m_a1(a1), m_a2(a2),
          m_a3(a3), m_a4(a4)
    {
    }
    /// Lets an undelivered event run or be refused before its arguments go.
    ~RunInMainThreadEvent4() override { processEvent(false); }
    void execute() override { (m_pTarget->*m_method)(m_a1, m_a2, m_a3, m_a4); }

private:
    T* m_pTarget;
    Method m_method;
    A1 m_a1;
    A2 m_a2;
    A3 m_a3;
    A4 m_a4;
};

/// A call with five bound arguments; see RunInMainThreadEvent0.
template <typename T, typename Method, typename A1, typename A2, typename A3, typename A4, typename A5>
class RunInMainThreadEvent5 : public RunInMainThreadEvent_Impl
{
public:
    /// Binds `method` of `object` and copies of `a1` to `a5`; `handler` names the caller.
    RunInMainThreadEvent5(ThreadSwitchingHandler* handler, T* object, Method method, const A1& a1,
                          const A2& a2, const A3& a3, const A4& a4, const A5& a5)
        : RunInMainThreadEvent_Impl(handler), m_pTarget(object), m_method(method), m_a1(a1), m_a2(a2),
          m_a3(a3), m_a4(a4), m_a5(a5)
    {
    }
    /// Lets an undelivered event run or be refused before its arguments go.
    ~RunInMainThreadEvent5() override { processEvent(false); }
    void execute() override { (m_pTarget->*m_method)(m_a1, m_a2, m_a3, m_a4, m_a5); }

private:
    T* m_pTarget;
    Method m_method;
    A1 m_a1;
    A2 m_a2;
    A3 m_a3;
    A4 m_a4;
    A5 m_a5;
};

} // namespace ThreadingHelper

#endif
