#ifndef TESTS_THREADING_THREADINGTESTSUPPORT_H
#define TESTS_THREADING_THREADINGTESTSUPPORT_H

#include "common/recordingwriter.h"
#include "kvbase/errorhandler.h"
#include "kvbase/zentos.h"
#include "threading/executionstatemanager_p.h"
#include "threading/threadinghelper.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>
#include <QtTest>

#include <atomic>
#include <functional>
#include <thread>

namespace ThreadingTest {

/// The beginning of both warnings, for the tests that compare them whole.
inline QString NotExecutedWarning(const QString& callerInformation)
{
    return QStringLiteral(
               "Warning: RunInMainThreadEvent_Impl::execute(): Event is not executed because either it "
               "is not allowed to do it or the object, whose method should be called, has been deleted (") +
           callerInformation + QLatin1Char(')');
}

inline QString TimeoutWarning(const QString& callerInformation)
{
    return QStringLiteral(
               "Warning: ExecutionStateManager::waitForExecution(): Wait for execution timed out! (") +
           callerInformation + QLatin1Char(')');
}

/// Records the traces written while it lives, with warning traces (0x40) on.
class TraceRecorder
{
public:
    explicit TraceRecorder(bool warningsOn = true)
    {
        ErrorHandler::Instance().SetLogTracer(new RecordingWriter(&m_lines));
        ErrorHandler::Instance().ResetMessageMask();
        ErrorHandler::Instance().SetMessageMask(ErrorHandler::Q_EXPERT_TRACE, warningsOn);
    }
    ~TraceRecorder()
    {
        ErrorHandler::Instance().SetLogTracer(nullptr);
        ErrorHandler::Instance().ResetMessageMask();
    }
    /// The texts, without "source:line ".
    QStringList Texts() const
    {
        QStringList texts;
        for (const QString& line : m_lines)
            texts << line.section(QLatin1Char(' '), 1);
        return texts;
    }
    /// The source names the lines carry.
    QStringList Sources() const
    {
        QStringList sources;
        for (const QString& line : m_lines)
            sources << line.section(QLatin1Char(':'), 0, 0);
        return sources;
    }

private:
    QStringList m_lines;
};

/// A target object: counts calls, keeps the arguments and the thread of the last one.
class Target : public ThreadingHelper::SafeThreadSwitchingBase
{
public:
    void Call0() { Record(QStringLiteral("0")); }
    void Call1(int a) { Record(QString::number(a)); }
    void Call2(int a, const QString& b) { Record(QStringLiteral("%1 %2").arg(a).arg(b)); }
    void Call3(int a, const QString& b, double c) { Record(QStringLiteral("%1 %2 %3").arg(a).arg(b).arg(c)); }
    void Call4(int a, const QString& b, double c, char d)
    {
        Record(QStringLiteral("%1 %2 %3 %4").arg(a).arg(b).arg(c).arg(QLatin1Char(d)));
    }
    void Call5(int a, const QString& b, double c, char d, const QStringList& e)
    {
        Record(QStringLiteral("%1 %2 %3 %4 %5")
                   .arg(a)
                   .arg(b)
                   .arg(c)
                   .arg(QLatin1Char(d))
                   .arg(e.join(QLatin1Char('+'))));
    }

    int calls() const { return m_calls.load(); }
    QString last() const { return m_last; }
    QThread* lastThread() const { return m_lastThread; }

private:
    void Record(const QString& text)
    {
        m_last = text;
        m_lastThread = QThread::currentThread();
        ++m_calls;
    }

    std::atomic<int> m_calls{0};
    QString m_last;
    QThread* m_lastThread = nullptr;
};

/// Processes the main thread's events until `done` holds or `timeoutMs` pass.
inline bool SpinUntil(const std::function<bool()>& done, int timeoutMs = 20000)
{
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() > timeoutMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        QThread::usleep(200);
    }
    return true;
}

/// Runs `work` in a new thread while the main thread keeps dispatching
/// events; true when it ended within `timeoutMs`.
inline bool RunInWorker(const std::function<void()>& work, int timeoutMs = 20000)
{
    std::atomic<bool> done{false};
    std::thread worker([&] {
        work();
        done.store(true);
    });
    const bool ended = SpinUntil([&] { return done.load(); }, timeoutMs);
    worker.join();
    return ended;
}

/// The default switches, restored between tests.
inline void RestoreDefaultSwitches()
{
    ThreadingHelper::RunInMainThreadEvent_Impl::setExecuteAllowed(true);
    ThreadingHelper::RunInMainThreadEvent_Impl::setExecuteOnDispatchAllowed(true);
    ThreadingHelper::RunInMainThreadEvent_Impl::setExecuteOnDeletionAllowed(false);
    ThreadingHelper::ThreadSwitchingHandler::setUsePostingThread(true);
    ThreadingHelper::ExecutionStateManagerTestAccess::ResetWaitTimeout();
}

} // namespace ThreadingTest

#endif
