#include "common/recordingwriter.h"
#include "kvbase/errorhandler.h"

#include <QtTest>

#include <thread>
#include <vector>

class tst_ErrorHandler : public QObject
{
    Q_OBJECT

private:
    QStringList m_lines;

private slots:
    void init()
    {
        m_lines.clear();
        ErrorHandler::Instance().ResetMessageMask();
        ErrorHandler::Instance().SetLogTracer(new RecordingWriter(&m_lines));
    }

    void cleanup()
    {
        ErrorHandler::Instance().SetLogTracer(nullptr);
        ErrorHandler::Instance().SetMessageDialog({});
        ErrorHandler::Instance().SetMessagePresenter({});
        ErrorHandler::Instance().ResetMessageMask();
    }

    void defaultMaskHasRequireAssertAndTrace()
    {
        QCOMPARE(ErrorHandler::DEFAULT_MESSAGE_MASK, 35u);
        QCOMPARE(ErrorHandler::Instance().GetMessageMask(), 35u);
    }

    void categoryBitsHaveTheirNumbers()
    {
        QCOMPARE(unsigned(ErrorHandler::Q_KM_REQUIRE), 1u);
        QCOMPARE(unsigned(ErrorHandler::Q_KM_ASSERT), 2u);
        QCOMPARE(unsigned(ErrorHandler::Q_ENSURE), 4u);
        QCOMPARE(unsigned(ErrorHandler::Q_PREMETHOD), 8u);
        QCOMPARE(unsigned(ErrorHandler::Q_POSTMETHOD), 16u);
        QCOMPARE(unsigned(ErrorHandler::Q_TRACE), 32u);
        QCOMPARE(unsigned(ErrorHandler::Q_EXPERT_TRACE), 64u);
    }

    void setMessageMaskSetsAndClearsOneBit()
    {
        ErrorHandler& handler = ErrorHandler::Instance();
        handler.ResetMessageMask(0);
        handler.SetMessageMask(ErrorHandler::Q_EXPERT_TRACE, true);
        QCOMPARE(handler.GetMessageMask(), 64u);
        handler.SetMessageMask(ErrorHandler::Q_ENSURE, true);
        QCOMPARE(handler.GetMessageMask(), 68u);
        handler.SetMessageMask(ErrorHandler::Q_EXPERT_TRACE, false);
        QCOMPARE(handler.GetMessageMask(), 4u);
        handler.SetMessageMask(ErrorHandler::Q_EXPERT_TRACE, false);
        QCOMPARE(handler.GetMessageMask(), 4u);
    }

    void traceIsWrittenOnlyWhenItsBitIsSet()
    {
        ErrorHandler& handler = ErrorHandler::Instance();
        handler.ResetMessageMask(ErrorHandler::Q_TRACE);
        _Q_Trace(QStringLiteral("Started !"), "application/zentapplication", 323);
        handler.SetMessageMask(ErrorHandler::Q_TRACE, false);
        _Q_Trace(QStringLiteral("not written"), "application/zentapplication", 324);
        QCOMPARE(m_lines, QStringList{QStringLiteral("application/zentapplication:323 Started !")});
    }

    void oldTraceUsesTheCallersCategory()
    {
        ErrorHandler& handler = ErrorHandler::Instance();
        handler.ResetMessageMask(ErrorHandler::Q_TRACE);
        _Q_TraceOld(ErrorHandler::Q_EXPERT_TRACE, QStringLiteral("Warning: not written"));
        handler.SetMessageMask(ErrorHandler::Q_EXPERT_TRACE, true);
        _Q_TraceOld(ErrorHandler::Q_EXPERT_TRACE, QStringLiteral("Warning: written"));
        QCOMPARE(m_lines.size(), 1);
        QVERIFY2(m_lines.at(0).startsWith(QStringLiteral("kvbase/tst_errorhandler:")),
                 qPrintable(m_lines.at(0)));
        QVERIFY(m_lines.at(0).endsWith(QStringLiteral(" Warning: written")));
    }

    void traceOfEveryCategoryFollowsItsBit_data()
    {
        QTest::addColumn<unsigned>("category");
        QTest::newRow("require") << unsigned(ErrorHandler::Q_KM_REQUIRE);
        QTest::newRow("assert") << unsigned(ErrorHandler::Q_KM_ASSERT);
        QTest::newRow("ensure") << unsigned(ErrorHandler::Q_ENSURE);
        QTest::newRow("premethod") << unsigned(ErrorHandler::Q_PREMETHOD);
        QTest::newRow("postmethod") << unsigned(ErrorHandler::Q_POSTMETHOD);
        QTest::newRow("trace") << unsigned(ErrorHandler::Q_TRACE);
        QTest::newRow("expert_trace") << unsigned(ErrorHandler::Q_EXPERT_TRACE);
    }

    void traceOfEveryCategoryFollowsItsBit()
    {
        QFETCH(unsigned, category);
        ErrorHandler& handler = ErrorHandler::Instance();
        handler.ResetMessageMask(ErrorHandler::ALL_CATEGORIES & ~category);
        handler.Trace(category, QStringLiteral("off"), "x/y", 1);
        QCOMPARE(m_lines, QStringList());
        handler.ResetMessageMask(category);
        handler.Trace(category, QStringLiteral("on"), "x/y", 2);
        QCOMPARE(m_lines, QStringList{QStringLiteral("x/y:2 on")});
    }

    void assertionWritesTheConditionWhenItFails()
    {
        ErrorHandler& handler = ErrorHandler::Instance();
        const unsigned nMsg = 0;
        _Q_assert((nMsg != 0), "application/zentapplication", 466);
        _Q_assert((nMsg == 0), "application/zentapplication", 467);
        handler.SetMessageMask(ErrorHandler::Q_KM_ASSERT, false);
        _Q_assert((nMsg != 0), "application/zentapplication", 468);
        QCOMPARE(m_lines, QStringList{QStringLiteral(
                              "application/zentapplication:466 Assertion failed: (nMsg != 0)")});
    }

    void sourceNameDropsFolderAndExtension_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("name");
        QTest::newRow("given_name") << QByteArray("configuration/cfgxml")
                                    << QStringLiteral("configuration/cfgxml");
        QTest::newRow("compiler_path") << QByteArray("/usr/src/zent/src/configuration/cfgxml.cpp")
                                       << QStringLiteral("configuration/cfgxml");
        QTest::newRow("relative_path")
            << QByteArray("src/application/splash.cpp") << QStringLiteral("application/splash");
        QTest::newRow("no_extension_dot_in_folder") << QByteArray("x/a.b/c") << QStringLiteral("a.b/c");
        QTest::newRow("bare_file") << QByteArray("main.cpp") << QStringLiteral("main");
        QTest::newRow("empty") << QByteArray() << QString();
    }

    void sourceNameDropsFolderAndExtension()
    {
        QFETCH(QByteArray, file);
        QFETCH(QString, name);
        QCOMPARE(ErrorHandler::SourceName(file.isNull() ? nullptr : file.constData()), name);
    }

    void dialogHookDecidesContinue()
    {
        ErrorHandler& handler = ErrorHandler::Instance();
        QString asked;
        handler.SetMessageDialog([&asked](const QString& text) {
            asked = text;
            return true;
        });
        QVERIFY(handler.HasMessageDialog());
        QCOMPARE(
            handler.ShowMessageDialog(QStringLiteral("Press \"Continue\" if the system should create it.")),
            true);
        QCOMPARE(asked, QStringLiteral("Press \"Continue\" if the system should create it."));
        handler.SetMessageDialog([](const QString&) { return false; });
        QCOMPARE(handler.ShowMessageDialog(QStringLiteral("again")), false);
    }

    void withoutDialogTheAnswerIsNo()
    {
        ErrorHandler& handler = ErrorHandler::Instance();
        handler.SetMessageDialog({});
        QVERIFY(!handler.HasMessageDialog());
        QCOMPARE(handler.ShowMessageDialog(QStringLiteral("Continue?")), false);
    }

    void messageIsPresentedAndLogged()
    {
        ErrorHandler& handler = ErrorHandler::Instance();
        QList<QPair<int, QString>> shown;
        handler.SetMessagePresenter([&shown](ErrorHandler::MessageKind kind, const QString& text) {
            shown.append({int(kind), text});
        });
        QTest::ignoreMessage(QtCriticalMsg, "Error: An instance is already running. ");
        handler.Message(QStringLiteral("An instance is already running. "));
        QTest::ignoreMessage(QtWarningMsg, "Warning: CfgRegistry::SetProtected: fixed");
        handler.Message(QStringLiteral("fixed"), ErrorHandler::MSG_Warning, QStringLiteral("SetProtected"),
                        QStringLiteral("CfgRegistry"));
        QTest::ignoreMessage(QtInfoMsg, "Information: CfgCenter::Create: created");
        handler.Message(QStringLiteral("created"), ErrorHandler::MSG_Information, QStringLiteral("Create"),
                        QStringLiteral("CfgCenter"), 255);
        QCOMPARE(shown.size(), 3);
        QCOMPARE(shown.at(0), qMakePair(0, QStringLiteral("An instance is already running. ")));
        QCOMPARE(shown.at(1), qMakePair(1, QStringLiteral("fixed")));
        QCOMPARE(shown.at(2), qMakePair(2, QStringLiteral("created")));
        QCOMPARE(m_lines,
                 (QStringList{QStringLiteral(":0 Error: An instance is already running. "),
                              QStringLiteral("CfgRegistry:0 Warning: CfgRegistry::SetProtected: fixed"),
                              QStringLiteral("CfgCenter:0 Information: CfgCenter::Create: created")}));
    }

    void messageWithMaskNeedsOneOfItsBits()
    {
        ErrorHandler& handler = ErrorHandler::Instance();
        int shown = 0;
        handler.SetMessagePresenter([&shown](ErrorHandler::MessageKind, const QString&) { ++shown; });
        handler.ResetMessageMask(0);
        handler.Message(QStringLiteral("hidden"), ErrorHandler::MSG_Information, QString(), QString(), 255);
        QCOMPARE(shown, 0);
        handler.ResetMessageMask(ErrorHandler::Q_ENSURE);
        QTest::ignoreMessage(QtInfoMsg, "Information: shown");
        handler.Message(QStringLiteral("shown"), ErrorHandler::MSG_Information, QString(), QString(), 255);
        QCOMPARE(shown, 1);
    }

    void logTracerIsOwnedAndReplaced()
    {
        ErrorHandler& handler = ErrorHandler::Instance();
        QStringList second;
        auto* writer = new RecordingWriter(&second);
        handler.SetLogTracer(writer);
        QCOMPARE(handler.GetLogTracer(), static_cast<CLogWriter*>(writer));
        _Q_Trace(QStringLiteral("to the second"), "a/b", 3);
        QCOMPARE(second, QStringList{QStringLiteral("a/b:3 to the second")});
        QCOMPARE(m_lines, QStringList());
        handler.SetLogTracer(nullptr);
        QCOMPARE(handler.GetLogTracer(), static_cast<CLogWriter*>(nullptr));
        _Q_Trace(QStringLiteral("nowhere"), "a/b", 4);
        QCOMPARE(second.size(), 1);
    }

    void traceReachesQtLogging()
    {
        QLoggingCategory::setFilterRules(QStringLiteral("zent.trace.debug=true"));
        QTest::ignoreMessage(QtDebugMsg, "a/b:9 routed");
        _Q_Trace(QStringLiteral("routed"), "a/b", 9);
        QLoggingCategory::setFilterRules(QString());
        QCOMPARE(m_lines, QStringList{QStringLiteral("a/b:9 routed")});
    }

    void tracesFromManyThreadsAreAllWritten()
    {
        // std::thread, so that ThreadSanitizer sees the joins.
        std::vector<std::thread> threads;
        QStringList lines;
        ErrorHandler::Instance().SetLogTracer(new RecordingWriter(&lines));
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([t] {
                for (int i = 0; i < 250; ++i)
                    _Q_Trace(QStringLiteral("t%1 i%2").arg(t).arg(i), "a/b", i);
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        QCOMPARE(lines.size(), 1000);
        QVERIFY(lines.contains(QStringLiteral("a/b:249 t3 i249")));
    }
};

QTEST_MAIN(tst_ErrorHandler)
#include "tst_errorhandler.moc"
