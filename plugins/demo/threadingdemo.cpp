#include "threadingdemo.h"

#include "application/processhandler.h"
#include "threading/eventpostingthread.h"
#include "threading/threadswitchingadministration.h"

#include <QCoreApplication>
#include <QDir>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QThread>

namespace {

constexpr int TICK_MS = 250;

} // namespace

ThreadingDemo::ThreadingDemo(QWidget* parent) : QGroupBox(tr("Threads and programs"), parent)
{
    setObjectName(QStringLiteral("ThreadingDemo"));
    auto* layout = new QFormLayout(this);
    m_pCounter = new QLabel(tr("Waiting for the worker thread"));
    m_pCounter->setObjectName(QStringLiteral("WorkerCounter"));
    layout->addRow(tr("Worker thread:"), m_pCounter);

    auto* programRow = new QHBoxLayout;
    m_pProgram = new QLineEdit(QStringLiteral("sleep"));
    m_pParams = new QLineEdit(QStringLiteral("30"));
    auto* start = new QPushButton(tr("Start"));
    start->setObjectName(QStringLiteral("StartProgram"));
    programRow->addWidget(m_pProgram, 2);
    programRow->addWidget(m_pParams, 1);
    programRow->addWidget(start);
    layout->addRow(tr("Program:"), programRow);
    m_pProgramState = new QLabel(tr("No program started"));
    m_pProgramState->setObjectName(QStringLiteral("ProgramState"));
    layout->addRow(QString(), m_pProgramState);
    connect(start, &QPushButton::clicked, this, &ThreadingDemo::StartProgram);

    m_worker = std::thread([this] { Work(); });
}

ThreadingDemo::~ThreadingDemo()
{
    // The worker may wait in a blocking call for this thread: keep
    // dispatching until it has seen the stop.
    m_bStop.store(true);
    while (!m_bWorkerDone.load())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    m_worker.join();
}

void ThreadingDemo::Work()
{
    // Once the application terminates, calls from threads are no longer delivered.
    for (int count = 1; !m_bStop.load() && !ThreadingHelper::EventPostingThread::isTerminating(); ++count) {
        const bool blocking = count % 2 == 1;
        ZENT_THREAD_SWITCHING_HANDLER(false, blocking)
            ->RunInMainThread(this, &ThreadingDemo::ShowCount, count, blocking);
        QThread::msleep(TICK_MS);
    }
    m_bWorkerDone.store(true);
}

void ThreadingDemo::ShowCount(int count, bool blocking)
{
    ++(blocking ? m_blockingCalls : m_nonBlockingCalls);
    m_pCounter->setText(tr("%1 (blocking calls: %2, non-blocking calls: %3)")
                            .arg(count)
                            .arg(m_blockingCalls)
                            .arg(m_nonBlockingCalls));
}

void ThreadingDemo::StartProgram()
{
    ProcessHandler& handler = ProcessHandler::Instance();
    // Tracked: the program ends with the application.
    QProcess* process =
        handler.StartProgram(m_pProgram->text(), m_pParams->text(), QDir::homePath(), true, false);
    if (handler.IsProcessAlive(process))
        m_pProgramState->setText(
            tr("Started %1 (process %2)").arg(m_pProgram->text()).arg(process->processId()));
    else
        m_pProgramState->setText(tr("Could not start %1").arg(m_pProgram->text()));
    connect(process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), process,
            &QObject::deleteLater);
}
