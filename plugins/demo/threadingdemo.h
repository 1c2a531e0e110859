#ifndef PLUGINS_DEMO_THREADINGDEMO_H
#define PLUGINS_DEMO_THREADINGDEMO_H

#include "threading/safethreadswitchingbase.h"

#include <QGroupBox>

#include <atomic>
#include <thread>

class QLabel;
class QLineEdit;

/// The part of zentdemo's main window that shows thread switching and the
/// process handler: a counter that a worker thread updates in the main
/// thread, in turn through a blocking and a non-blocking call, and a button
/// that starts a program.
class ThreadingDemo : public QGroupBox, public ThreadingHelper::SafeThreadSwitchingBase
{
    Q_OBJECT

public:
    explicit ThreadingDemo(QWidget* parent = nullptr);
    ~ThreadingDemo() override;

    /// Called in the main thread by the worker's calls.
    void ShowCount(int count, bool blocking);

private slots:
    void StartProgram();

private:
    void Work();

    QLabel* m_pCounter = nullptr;
    QLineEdit* m_pProgram = nullptr;
    QLineEdit* m_pParams = nullptr;
    QLabel* m_pProgramState = nullptr;
    int m_blockingCalls = 0;
    int m_nonBlockingCalls = 0;
    std::atomic<bool> m_bStop{false};
    std::atomic<bool> m_bWorkerDone{false};
    std::thread m_worker;
};

#endif
