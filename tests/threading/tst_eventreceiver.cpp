#include "threadingtestsupport.h"

#include "threading/eventreceiver.h"

#include <QtTest>

using namespace ThreadingHelper;
using namespace ThreadingTest;

namespace {

using Event0 = RunInMainThreadEvent0<Target, void (Target::*)()>;

} // namespace

class tst_EventReceiver : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void cleanup() { RestoreDefaultSwitches(); }

    void receiverLivesInTheMainThreadWithoutParent()
    {
        QVERIFY(EventReceiver::receiver());
        QCOMPARE(EventReceiver::receiver(), EventReceiver::receiver());
        QCOMPARE(EventReceiver::receiver()->thread(), QCoreApplication::instance()->thread());
        QCOMPARE(EventReceiver::receiver()->parent(), nullptr);
    }

    void postedEventIsExecutedAtDispatchAndDeleted()
    {
        TraceRecorder traces;
        Target target;
        auto* event = new Event0(nullptr, &target, &Target::Call0);
        event->registerAtObject(&target);
        auto state = event->GetExecutionStateManager();
        QCoreApplication::postEvent(EventReceiver::receiver(), event);
        QCoreApplication::sendPostedEvents(EventReceiver::receiver());
        QCOMPARE(target.calls(), 1);
        QCOMPARE(state->GetState(), ExecutionStateManager::Executed);
        QCOMPARE(state.use_count(), 1l);
        QCOMPARE(traces.Texts(), QStringList());
    }

    void otherEventsAreIgnored()
    {
        TraceRecorder traces;
        QEvent other(QEvent::User);
        QCoreApplication::sendEvent(EventReceiver::receiver(), &other);
        QCOMPARE(other.type(), QEvent::User);
        QCOMPARE(traces.Texts(), QStringList());
    }

    void dispatchRefusedThenDeletionDecides_data()
    {
        QTest::addColumn<bool>("executeOnDeletion");
        QTest::newRow("refused_at_deletion") << false;
        QTest::newRow("executed_at_deletion") << true;
    }

    void dispatchRefusedThenDeletionDecides()
    {
        QFETCH(bool, executeOnDeletion);
        TraceRecorder traces;
        Target target;
        RunInMainThreadEvent_Impl::setExecuteOnDispatchAllowed(false);
        RunInMainThreadEvent_Impl::setExecuteOnDeletionAllowed(executeOnDeletion);
        auto* event = new Event0(nullptr, &target, &Target::Call0);
        event->registerAtObject(&target);
        auto state = event->GetExecutionStateManager();
        QCoreApplication::postEvent(EventReceiver::receiver(), event);
        // Qt deletes the event after dispatch; its destructor decides.
        QCoreApplication::sendPostedEvents(EventReceiver::receiver());
        QCOMPARE(target.calls(), executeOnDeletion ? 1 : 0);
        QCOMPARE(state->GetState(),
                 executeOnDeletion ? ExecutionStateManager::Executed : ExecutionStateManager::NotExecuted);
        QCOMPARE(traces.Texts(),
                 executeOnDeletion ? QStringList() : QStringList{NotExecutedWarning(QString())});
    }
};

QTEST_GUILESS_MAIN(tst_EventReceiver)
#include "tst_eventreceiver.moc"
