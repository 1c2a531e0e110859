#include "kvbase/clogtracer.h"
#include "kvbase/errorhandler.h"

#include <QTemporaryDir>
#include <QtTest>

class tst_CLogTracer : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void writesOneTabSeparatedLinePerTrace()
    {
        QTemporaryDir dir;
        QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
        const QString fileName = dir.filePath(QStringLiteral("app.log"));
        CLogTracer tracer(fileName);
        tracer.SetModuleName(QStringLiteral("DemoApp"));
        tracer.Write(QStringLiteral("application/zentapplication"), 323, QStringLiteral("Started !"));
        tracer.Write(QStringLiteral("configuration/cfgxml"), 12, QStringLiteral("two\nlines"));

        QFile file(fileName);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QList<QByteArray> lines = file.readAll().split('\n');
        QCOMPARE(lines.size(), 3);
        QCOMPARE(lines.at(2), QByteArray());
        const QList<QByteArray> first = lines.at(0).split('\t');
        QCOMPARE(first.size(), 5);
        QVERIFY2(
            QDateTime::fromString(QString::fromLatin1(first.at(0)), QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"))
                .isValid(),
            first.at(0).constData());
        QCOMPARE(first.mid(1),
                 (QList<QByteArray>{"DemoApp", "application/zentapplication", "323", "Started !"}));
        QCOMPARE(lines.at(1).split('\t').mid(1),
                 (QList<QByteArray>{"DemoApp", "configuration/cfgxml", "12", "two\\nlines"}));
    }

    void appendsToAnExistingLog()
    {
        QTemporaryDir dir;
        QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
        const QString fileName = dir.filePath(QStringLiteral("app.log"));
        {
            QFile file(fileName);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write("earlier\n");
        }
        CLogTracer tracer(fileName);
        tracer.Write(QStringLiteral("a/b"), 1, QStringLiteral("later"));
        QFile file(fileName);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray bytes = file.readAll();
        QVERIFY(bytes.startsWith("earlier\n"));
        QVERIFY(bytes.endsWith("\t\ta/b\t1\tlater\n"));
    }

    void defaultFileIsNamedAfterTheModule()
    {
        CLogTracer tracer;
        QCOMPARE(tracer.GetFileName(), CLogTracer::DefaultDirectory() + QStringLiteral("/zent.log"));
        tracer.SetModuleName(QStringLiteral("DemoApp"));
        QCOMPARE(tracer.GetFileName(), CLogTracer::DefaultDirectory() + QStringLiteral("/DemoApp.log"));
        QVERIFY(CLogTracer::DefaultDirectory().endsWith(QStringLiteral("/Velkor-Amsel/log")));
    }

    void separatorsInTheModuleNameStayInTheLogFolder()
    {
        CLogTracer tracer;
        tracer.SetModuleName(QStringLiteral("../../App/x\\y"));
        QCOMPARE(tracer.GetFileName(), CLogTracer::DefaultDirectory() + QStringLiteral("/.._.._App_x_y.log"));
    }

    void theLogIsNeverAppendedThroughALink()
    {
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QString victim = dir.filePath(QStringLiteral("victim"));
        {
            QFile file(victim);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write("victim's bytes");
        }
        QVERIFY(QFile::link(victim, dir.filePath(QStringLiteral("app.log"))));
        QVERIFY(QFile::link(dir.filePath(QStringLiteral("created")),
                            dir.filePath(QStringLiteral("dangling.log"))));
        CLogTracer linked(dir.filePath(QStringLiteral("app.log")));
        linked.Write(QStringLiteral("a/b"), 1, QStringLiteral("lost"));
        CLogTracer dangling(dir.filePath(QStringLiteral("dangling.log")));
        dangling.Write(QStringLiteral("a/b"), 1, QStringLiteral("lost"));
        QFile file(victim);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), QByteArray("victim's bytes"));
        QVERIFY(!QFile::exists(dir.filePath(QStringLiteral("created"))));
    }

    void unwritableLogIsIgnored()
    {
        CLogTracer tracer(QStringLiteral("/proc/zent-no-such-dir/app.log"));
        tracer.Write(QStringLiteral("a/b"), 1, QStringLiteral("lost"));
        QVERIFY(!QFile::exists(tracer.GetFileName()));
    }

    void errorHandlerWritesThroughTheTracer()
    {
        QTemporaryDir dir;
        QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
        auto* tracer = new CLogTracer(dir.filePath(QStringLiteral("h.log")));
        tracer->SetModuleName(QStringLiteral("Mod"));
        ErrorHandler::Instance().SetLogTracer(tracer);
        _Q_Trace(QStringLiteral("hello"), "application/x", 5);
        ErrorHandler::Instance().SetLogTracer(nullptr);
        QFile file(dir.filePath(QStringLiteral("h.log")));
        QVERIFY(file.open(QIODevice::ReadOnly));
        QVERIFY(file.readAll().endsWith("\tMod\tapplication/x\t5\thello\n"));
    }
};

QTEST_GUILESS_MAIN(tst_CLogTracer)
#include "tst_clogtracer.moc"
