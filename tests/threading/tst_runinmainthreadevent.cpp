#include "threadingtestsupport.h"

#include <QtTest>

#include <memory>

using namespace ThreadingHelper;
using namespace ThreadingTest;

namespace {

using Event0 = RunInMainThreadEvent0<Target, void (Target::*)()>;

std::unique_ptr<Event0> MakeEvent(Target* target, ThreadSwitchingHandler* handler = nullptr)
{
    auto event = std::make_unique<Event0>(handler, target, &Target::Call0);
    event->registerAtObject(target);
    return event;
}

/// An event on an object that is not tracked.
struct Plain
{
    int calls = 0;
    void Call() { ++calls; }
};

} // namespace

class tst_RunInMainThreadEvent : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void cleanup() { RestoreDefaultSwitches(); }

    void switchesHaveTheirDefaults()
    {
        QCOMPARE(RunInMainThreadEvent_Impl::isExecuteAllowed(), true);
        QCOMPARE(RunInMainThreadEvent_Impl::isExecuteOnDispatchAllowed(), true);
        QCOMPARE(RunInMainThreadEvent_Impl::isExecuteOnDeletionAllowed(), false);
    }

    void switchesAreSetAndRead()
    {
        RunInMainThreadEvent_Impl::setExecuteAllowed(false);
        RunInMainThreadEvent_Impl::setExecuteOnDispatchAllowed(false);
        RunInMainThreadEvent_Impl::setExecuteOnDeletionAllowed(true);
        QCOMPARE(RunInMainThreadEvent_Impl::isExecuteAllowed(), false);
        QCOMPARE(RunInMainThreadEvent_Impl::isExecuteOnDispatchAllowed(), false);
        QCOMPARE(RunInMainThreadEvent_Impl::isExecuteOnDeletionAllowed(), true);
    }

    void eventHasTypeAndCallerInformation()
    {
        Target target;
        ThreadSwitchingHandler handler(false, true, "/src/x/caller.cpp", 42);
        auto event = MakeEvent(&target, &handler);
        // Qt keeps event types in 16 bits: the literal arrives as 100999 - 65536.
        QCOMPARE(RunInMainThreadEvent_Impl::EVENT_TYPE, 100999);
        QCOMPARE(int(event->type()), 35463);
        QCOMPARE(event->GetCallerInformation(), QStringLiteral("file: /src/x/caller.cpp, line: 42"));
        QCOMPARE(event->GetExecutionStateManager()->GetCallerInformation(),
                 QStringLiteral("file: /src/x/caller.cpp, line: 42"));
        QCOMPARE(event->GetExecutionStateManager()->GetState(), ExecutionStateManager::Pending);
        QCOMPARE(event->IsObjectValid(), true);
    }

    void eventWithoutHandlerHasEmptyCallerInformation()
    {
        Target target;
        auto event = MakeEvent(&target);
        QCOMPARE(event->GetCallerInformation(), QString());
        event->processEvent(true);
    }

    void dispatchedEventExecutesOnce()
    {
        Target target;
        auto event = MakeEvent(&target);
        event->processEvent(true);
        QCOMPARE(target.calls(), 1);
        QCOMPARE(event->GetExecutionStateManager()->GetState(), ExecutionStateManager::Executed);
        event->processEvent(true);
        event.reset();
        QCOMPARE(target.calls(), 1);
    }

    void typedEventsBindTheirArguments()
    {
        Target target;
        RunInMainThreadEvent1<Target, void (Target::*)(int), int> e1(nullptr, &target, &Target::Call1, 7);
        e1.processEvent(true);
        QCOMPARE(target.last(), QStringLiteral("7"));
        RunInMainThreadEvent2<Target, void (Target::*)(int, const QString&), int, QString> e2(
            nullptr, &target, &Target::Call2, 1, QStringLiteral("b"));
        e2.processEvent(true);
        QCOMPARE(target.last(), QStringLiteral("1 b"));
        RunInMainThreadEvent3<Target, void (Target::*)(int, const QString&, double), int, QString, double> e3(
            nullptr, &target, &Target::Call3, 1, QStringLiteral("b"), 2.5);
        e3.processEvent(true);
        QCOMPARE(target.last(), QStringLiteral("1 b 2.5"));
        RunInMainThreadEvent4<Target, void (Target::*)(int, const QString&, double, char), int, QString,
                              double, char>
            e4(nullptr, &target, &Target::Call4, 1, QStringLiteral("b"), 2.5, 'd');
        e4.processEvent(true);
        QCOMPARE(target.last(), QStringLiteral("1 b 2.5 d"));
        RunInMainThreadEvent5<Target, void (Target::*)(int, const QString&, double, char, const QStringList&),
                              int, QString, double, char, QStringList>
            e5(nullptr, &target, &Target::Call5, 1, QStringLiteral("b"), 2.5, 'd', QStringList{"e", "f"});
        e5.processEvent(true);
        QCOMPARE(target.last(), QStringLiteral("1 b 2.5 d e+f"));
        QCOMPARE(target.calls(), 5);
    }

    void deletedObjectIsNeverCalled()
    {
        TraceRecorder traces;
        auto target = std::make_unique<Target>();
        ThreadSwitchingHandler handler(false, true, "caller.cpp", 5);
        auto event = MakeEvent(target.get(), &handler);
        target.reset();
        QCOMPARE(event->IsObjectValid(), false);
        event->processEvent(true);
        QCOMPARE(event->GetExecutionStateManager()->GetState(), ExecutionStateManager::NotExecuted);
        QCOMPARE(traces.Texts(),
                 QStringList{NotExecutedWarning(QStringLiteral("file: caller.cpp, line: 5"))});
        QCOMPARE(traces.Texts().first(),
                 QStringLiteral(
                     "Warning: RunInMainThreadEvent_Impl::execute(): Event is not executed because either "
                     "it is not allowed to do it or the object, whose method should be called, has been "
                     "deleted (file: caller.cpp, line: 5)"));
        QCOMPARE(traces.Sources(), QStringList{QStringLiteral("threading/runinmainthreadevent")});
    }

    void objectAlreadyDestroyedLeavesEventInvalid()
    {
        TraceRecorder traces;
        auto target = std::make_unique<Target>();
        volatile quintptr address = reinterpret_cast<quintptr>(target.get());
        target.reset();
        Event0 event(nullptr, reinterpret_cast<Target*>(address), &Target::Call0);
        event.registerAtObject(reinterpret_cast<Target*>(address));
        QCOMPARE(event.IsObjectValid(), false);
        event.processEvent(true);
        QCOMPARE(event.GetExecutionStateManager()->GetState(), ExecutionStateManager::NotExecuted);
        QCOMPARE(traces.Texts(), QStringList{NotExecutedWarning(QString())});
    }

    void untrackedObjectStaysValid()
    {
        Plain plain;
        RunInMainThreadEvent0<Plain, void (Plain::*)()> event(nullptr, &plain, &Plain::Call);
        event.registerAtObject(&plain);
        QCOMPARE(event.IsObjectValid(), true);
        event.processEvent(true);
        QCOMPARE(plain.calls, 1);
    }

    void executionSwitchedOffRefuses()
    {
        TraceRecorder traces;
        Target target;
        RunInMainThreadEvent_Impl::setExecuteAllowed(false);
        auto event = MakeEvent(&target);
        event->processEvent(true);
        QCOMPARE(target.calls(), 0);
        QCOMPARE(event->GetExecutionStateManager()->GetState(), ExecutionStateManager::NotExecuted);
        QCOMPARE(traces.Texts(), QStringList{NotExecutedWarning(QString())});
    }

    void refusalIsSilentWithoutWarningTraces()
    {
        TraceRecorder traces(false);
        Target target;
        RunInMainThreadEvent_Impl::setExecuteAllowed(false);
        auto event = MakeEvent(&target);
        event->processEvent(true);
        QCOMPARE(event->GetExecutionStateManager()->GetState(), ExecutionStateManager::NotExecuted);
        QCOMPARE(traces.Texts(), QStringList());
    }

    void dispatchNotAllowedLeavesEventPending()
    {
        TraceRecorder traces;
        Target target;
        RunInMainThreadEvent_Impl::setExecuteOnDispatchAllowed(false);
        auto event = MakeEvent(&target);
        event->processEvent(true);
        QCOMPARE(target.calls(), 0);
        QCOMPARE(event->GetExecutionStateManager()->GetState(), ExecutionStateManager::Pending);
        QCOMPARE(traces.Texts(), QStringList());
        auto state = event->GetExecutionStateManager();
        event.reset();
        QCOMPARE(state->GetState(), ExecutionStateManager::NotExecuted);
        QCOMPARE(traces.Texts(), QStringList{NotExecutedWarning(QString())});
    }

    void undeliveredEventIsRefusedByDefault()
    {
        TraceRecorder traces;
        Target target;
        auto state = MakeEvent(&target)->GetExecutionStateManager();
        QCOMPARE(target.calls(), 0);
        QCOMPARE(state->GetState(), ExecutionStateManager::NotExecuted);
        QCOMPARE(traces.Texts(), QStringList{NotExecutedWarning(QString())});
    }

    void undeliveredEventRunsWhenExecutionOnDeletionIsAllowed()
    {
        TraceRecorder traces;
        Target target;
        RunInMainThreadEvent_Impl::setExecuteOnDeletionAllowed(true);
        auto state = MakeEvent(&target)->GetExecutionStateManager();
        QCOMPARE(target.calls(), 1);
        QCOMPARE(state->GetState(), ExecutionStateManager::Executed);
        QCOMPARE(traces.Texts(), QStringList());
    }

    void destroyedEventLeavesItsObject()
    {
        Target* target = new Target;
        auto state = MakeEvent(target)->GetExecutionStateManager();
        // The event removed itself from the object: deleting it calls nobody.
        delete target;
        QCOMPARE(state->GetState(), ExecutionStateManager::NotExecuted);
    }

    void copySharesTheStateManager()
    {
        Target target;
        auto event = MakeEvent(&target);
        Event0 copy(*event);
        QCOMPARE(copy.GetExecutionStateManager(), event->GetExecutionStateManager());
        QCOMPARE(copy.type(), event->type());
        copy.processEvent(true);
        QCOMPARE(event->GetExecutionStateManager()->GetState(), ExecutionStateManager::Executed);
        QCOMPARE(target.calls(), 1);
    }

    void exceptionLeavesEventPending()
    {
        struct Thrower
        {
            void Throw() { throw std::runtime_error("thrown"); }
        } thrower;
        auto event = std::make_unique<RunInMainThreadEvent0<Thrower, void (Thrower::*)()>>(nullptr, &thrower,
                                                                                           &Thrower::Throw);
        QVERIFY_EXCEPTION_THROWN(event->processEvent(true), std::runtime_error);
        QCOMPARE(event->GetExecutionStateManager()->GetState(), ExecutionStateManager::Pending);
        // Undelivered at deletion, refused by default: marked not executed, no second throw.
        TraceRecorder traces;
        auto state = event->GetExecutionStateManager();
        event.reset();
        QCOMPARE(state->GetState(), ExecutionStateManager::NotExecuted);
    }
};

QTEST_GUILESS_MAIN(tst_RunInMainThreadEvent)
#include "tst_runinmainthreadevent.moc"
