#include "application/processoutputhandler.h"

#include <QtTest>

#include <memory>

class tst_ProcessOutputHandler : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void keepsProcessAndDescription()
    {
        QProcess process;
        ProcessOutputHandler handler(&process, QStringLiteral("/bin/echo a b"));
        QCOMPARE(handler.GetProcess(), &process);
        QCOMPARE(handler.GetDescription(), QStringLiteral("/bin/echo a b"));
    }

    void bothStreamsAreReadAndDiscarded()
    {
        QProcess process;
        ProcessOutputHandler handler(&process, QStringLiteral("sh"));
        int outputSignals = 0;
        int errorSignals = 0;
        connect(&process, &QProcess::readyReadStandardOutput, [&] { ++outputSignals; });
        connect(&process, &QProcess::readyReadStandardError, [&] { ++errorSignals; });
        process.start(QStringLiteral("/bin/sh"),
                      {QStringLiteral("-c"), QStringLiteral("echo out; echo err >&2")});
        QVERIFY(process.waitForStarted(5000));
        QTRY_VERIFY_WITH_TIMEOUT(outputSignals > 0 && errorSignals > 0, 10000);
        QTRY_COMPARE_WITH_TIMEOUT(process.state(), QProcess::NotRunning, 10000);
        QCOMPARE(process.readAllStandardOutput(), QByteArray());
        QCOMPARE(process.readAllStandardError(), QByteArray());
    }

    void deletedProcessIsIgnored()
    {
        auto process = std::make_unique<QProcess>();
        ProcessOutputHandler handler(process.get(), QStringLiteral("gone"));
        process.reset();
        QCOMPARE(handler.GetProcess(), nullptr);
        handler.OnStdOut();
        handler.OnStdError();
        QCOMPARE(handler.GetDescription(), QStringLiteral("gone"));
    }
};

QTEST_GUILESS_MAIN(tst_ProcessOutputHandler)
#include "tst_processoutputhandler.moc"
