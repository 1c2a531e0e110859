// The demo application end to end, without a display: zentdemo runs in a
// working folder with its shipped configuration, prints its trace, saves its
// configuration and ends by itself.
#include "application/cmdlinehelptestsupport.h"
#include "common/scriptrun.h"
#include "kvbase/zentos.h"
#include "zentapplication/startuptestsupport.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QDomDocument>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

namespace {

const QString DEMO_PROGRAM = QStringLiteral(ZENT_DEMO_PROGRAM);
const QString DEMO_DATA = QStringLiteral(ZENT_DEMO_DATA_DIR);
constexpr int RUN_TIMEOUT_MS = 40000;

const QByteArray DEMO_HELP =
    "Usage: zentdemo AppKey CfgDoc [--quit-after=SECONDS] [--exit-at-first-turn]\n"
    "       zentdemo /h | --help | --version\n"
    "\n"
    "The demo application of the Zent family: it starts as every application of\n"
    "the family does (configuration, splash, single instance, translations,\n"
    "plug-ins) and opens a window that shows what the start-up found. Start it in\n"
    "a folder that holds its Cfg.xml and splash.png. A second start while one\n"
    "runs brings the first to the front and ends.\n"
    "\n"
    "Arguments:\n"
    "  AppKey   CfgKey[:PreDllList[:PostDllList]]: the application's key in the\n"
    "           configuration document (DemoApp), and plug-ins to load before and\n"
    "           after those the document names (comma-separated, each *.dll)\n"
    "  CfgDoc   CfgType:CfgTarget: where the configuration lives\n"
    "\n"
    "Backends, one example each:\n"
    "  Xml:FILE          an XML configuration file\n"
    "                      zentdemo DemoApp Xml:Cfg.xml\n"
    "  Server[:ADDRESS]  the configuration service on the machine ADDRESS (the\n"
    "                    local machine when left out), port 4000\n"
    "                      zentdemo DemoApp Server:192.0.2.10\n"
    "  The registry is not chosen on an application's command line; cfgcopy\n"
    "  copies a registry configuration into an XML file:\n"
    "                      cfgcopy DemoApp Registry DemoApp Xml:Cfg.xml\n"
    "\n"
    "Options:\n"
    "  --quit-after=SECONDS  commits the configuration and ends after SECONDS\n"
    "  --exit-at-first-turn  prints \"zentdemo: first event-loop turn\" when the\n"
    "                        event loop first runs, and ends\n"
    "  /h                    the family's command-line help, shown as a command-line\n"
    "                        error is: on the terminal, in the desktop's viewer, or\n"
    "                        on standard error\n"
    "\n"
    "Exit codes:\n"
    "  0  ended, or the help or the version was shown\n"
    "  1  the start-up failed; the message says why\n"
    "  2  the command line is wrong; its error and the help are shown\n";

/// The text of every "zent.trace" line, without its source and line number.
QStringList TraceTexts(const QString& errors)
{
    static const QRegularExpression trace(QStringLiteral("^zent\\.trace: [^ ]+:\\d+ (.*)$"));
    QStringList texts;
    for (const QString& line : errors.split(QLatin1Char('\n'))) {
        const QRegularExpressionMatch match = trace.match(line);
        if (match.hasMatch())
            texts << match.captured(1);
    }
    return texts;
}

/// The text of the element at `path` ("Machine/DemoApp/Demo/StartCount") below the root.
QString ElementText(const QString& file, const QString& path)
{
    QFile xml(file);
    QDomDocument document;
    if (!xml.open(QIODevice::ReadOnly) || !document.setContent(&xml))
        return QStringLiteral("<unreadable>");
    QDomElement element = document.documentElement();
    for (const QString& name : path.split(QLatin1Char('/')))
        element = element.firstChildElement(name);
    return element.isNull() ? QStringLiteral("<missing>") : element.text();
}

class Demo
{
public:
    explicit Demo(const QString& workDir)
    {
        m_process.setWorkingDirectory(workDir);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        environment.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("zent.trace.debug=true"));
        environment.insert(QStringLiteral("XDG_DATA_HOME"), workDir + QStringLiteral("/data"));
        m_process.setProcessEnvironment(environment);
        QObject::connect(&m_process, &QProcess::readyReadStandardError,
                         [this] { m_errors += QString::fromUtf8(m_process.readAllStandardError()); });
    }
    ~Demo()
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.kill();
            m_process.waitForFinished(5000);
        }
    }
    void Start(const QStringList& options)
    {
        m_clock.start();
        m_process.start(DEMO_PROGRAM,
                        QStringList{QStringLiteral("DemoApp"), QStringLiteral("Xml:Cfg.xml")} + options);
    }
    bool WaitForTrace(const QString& text)
    {
        QElapsedTimer clock;
        clock.start();
        while (!TraceTexts(m_errors).contains(text) && m_process.state() != QProcess::NotRunning &&
               clock.elapsed() < RUN_TIMEOUT_MS)
            QTest::qWait(20);
        return TraceTexts(m_errors).contains(text);
    }
    bool WaitForEnd()
    {
        const bool ended =
            m_process.state() == QProcess::NotRunning || m_process.waitForFinished(RUN_TIMEOUT_MS);
        m_nLifeMs = m_clock.elapsed();
        m_errors += QString::fromUtf8(m_process.readAllStandardError());
        return ended && m_process.exitStatus() == QProcess::NormalExit;
    }
    int ExitCode() const { return m_process.exitCode(); }
    qint64 LifeMs() const { return m_nLifeMs; }
    QString Errors() const { return m_errors; }
    QStringList Traces() const { return TraceTexts(m_errors); }

private:
    QProcess m_process;
    QString m_errors;
    QElapsedTimer m_clock;
    qint64 m_nLifeMs = 0;
};

} // namespace

class TestZentApplicationDemo : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();

    void headlessRunTracesEveryStepSavesAndEnds();
    void savedConfigurationCarriesOverToTheNextStart();
    void secondDemoBringsTheFirstToTheFrontAndEnds();
    void commandLineHelpReachesStandardErrorWithoutTerminalOrViewer_data();
    void commandLineHelpReachesStandardErrorWithoutTerminalOrViewer();
    void helpOptionPrintsOnStandardOutput();
    void versionIsTheProjectVersion();

private:
    /// zentdemo as a link in the working folder, so that its help file lands there.
    QString LinkedDemo() const;

    QTemporaryDir m_runtimeDir;
    QByteArray m_savedRuntimeDir;
    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestZentApplicationDemo::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    QVERIFY2(m_runtimeDir.isValid(), qPrintable(m_runtimeDir.errorString()));
    QVERIFY2(QFileInfo(DEMO_PROGRAM).isExecutable(), qPrintable(DEMO_PROGRAM));
    m_savedRuntimeDir = qgetenv("XDG_RUNTIME_DIR");
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_runtimeDir.path()));
}

void TestZentApplicationDemo::cleanupTestCase()
{
    qputenv("XDG_RUNTIME_DIR", m_savedRuntimeDir);
}

void TestZentApplicationDemo::init()
{
    // A fresh copy of what the demo ships, as scripts/run-demo makes it.
    m_dir.reset(new QTemporaryDir);
    QVERIFY2(m_dir->isValid(), qPrintable(m_dir->errorString()));
    for (const QString& file :
         {QStringLiteral("Cfg.xml"), QStringLiteral("splash.png"), QStringLiteral("KVBase_de.qm")})
        QVERIFY(QFile::copy(DEMO_DATA + QLatin1Char('/') + file, m_dir->filePath(file)));
}

void TestZentApplicationDemo::headlessRunTracesEveryStepSavesAndEnds()
{
    Demo demo(m_dir->path());
    demo.Start({QStringLiteral("--quit-after=4")});
    QVERIFY(demo.WaitForEnd());
    QVERIFY2(demo.ExitCode() == 0, qPrintable(demo.Errors()));

    const QString binDir = QFileInfo(DEMO_PROGRAM).absolutePath();
    const QString logFile = m_dir->filePath(QStringLiteral("data/Velkor-Amsel/log/DemoApp.log"));
    const QString message = QString::number(ZentOS::Create().RegisterMessage(QStringLiteral("DemoApp")));
    const QString instance = QStringLiteral("Dll ZentDemo.dll, Instance DemoApp\\AdditionalDlls\\MainWindow "
                                            "(AdditionalParams: none)");
    const QStringList expected{
        QStringLiteral("Start-up: Qt application object created"),
        QStringLiteral("Start-up: CfgKey \"DemoApp\", bring-to-front message ") + message,
        QStringLiteral("Start-up: log tracer installed: ") + logFile,
        QStringLiteral("Start-up: configuration centre created"),
        QStringLiteral("Start-up: splash splash.png shown"),
        QStringLiteral("Start-up: locale ") + QLocale::system().name(),
        QStringLiteral("Start-up: single-instance lock of \"DemoApp\" held"),
        QStringLiteral("Translation: Successfully loaded the following translation files: %1/KVBase_de.qm")
            .arg(m_dir->path()),
        // Qt's own texts are the system's (run-demo copies them when they are installed).
        QStringLiteral("Translation: Could not find the following translation files: %1/qt_de.qm")
            .arg(binDir),
        QStringLiteral("Start-up: translations initialised"), QStringLiteral("Start-up: window icon set"),
        QStringLiteral("Dll ZentDemo.dll loaded"), QStringLiteral("Demo plug-in: created for DemoApp\\Demo"),
        instance + QStringLiteral(" successfully created !"),
        QStringLiteral("Start-up: additional plug-ins loaded"), QStringLiteral("Started !"),
        QStringLiteral("Demo plug-in: start number 1"), QStringLiteral("Demo plug-in: main window shown"),
        QStringLiteral("Start-up: plug-ins executed"), QStringLiteral("Demo plug-in: splash hidden"),
        QStringLiteral("Demo plug-in: data committed"), QStringLiteral("Tear-down: begins"),
        QStringLiteral("Demo plug-in: the application ends"),
        QStringLiteral("Tear-down: plug-in instances told that the application ends"),
        QStringLiteral("Demo plug-in: destroyed"), instance + QStringLiteral(" destroyed !"),
        QStringLiteral("Dll ZentDemo.dll unloaded"), QStringLiteral("Tear-down: plug-in instances destroyed"),
        QStringLiteral("Tear-down: termination targets notified"),
        QStringLiteral("Tear-down: configuration saved and closed"),
        QStringLiteral("Tear-down: Qt application object deleted")};
    QCOMPARE(demo.Traces(), expected);
    // No module of the family goes without its translation.
    for (const QString& trace : demo.Traces().filter(QStringLiteral("Could not find")))
        QVERIFY2(!trace.contains(QLatin1String("KVBase_")) && !trace.contains(QLatin1String("zentdemo_")),
                 qPrintable(trace));
    QVERIFY(
        demo.Errors().contains(QStringLiteral("zent.trace: application/zentapplication:323 Started !\n")));
    QVERIFY(
        demo.Errors().contains(QStringLiteral("Information: CfgCenter::Create: Application configuration ( "
                                              "key=DemoApp, type=Xml:Cfg.xml ) created successfully.")));

    // The log file has the lines from its own installation on, marked with
    // the module DemoApp, and the message of the configuration centre.
    QStringList logTexts;
    for (const QString& line : ReadLines(logFile)) {
        const QStringList fields = line.split(QLatin1Char('\t'));
        QVERIFY2(fields.size() >= 5 && fields.at(1) == QLatin1String("DemoApp"), qPrintable(line));
        if (!fields.last().startsWith(QLatin1String("Information: ")))
            logTexts << fields.last();
    }
    QCOMPARE(logTexts, expected.mid(2));

    // The configuration was saved: the start was counted, the user's settings written.
    const QString cfg = m_dir->filePath(QStringLiteral("Cfg.xml"));
    QCOMPARE(ElementText(cfg, QStringLiteral("Machine/DemoApp/Demo/StartCount")), QStringLiteral("1"));
    const QDateTime lastStart = QDateTime::fromString(
        ElementText(cfg, QStringLiteral("Machine/DemoApp/Demo/LastStart")), Qt::ISODate);
    QVERIFY(lastStart.isValid());
    QVERIFY(qAbs(lastStart.secsTo(QDateTime::currentDateTime())) < 120);
    QCOMPARE(ElementText(cfg, QStringLiteral("Machine/name")),
             QString::fromStdWString(ZentOS::Create().GetWorkStationName()));
    const QString user = m_dir->filePath(QStringLiteral("Cfg.usr.xml"));
    QCOMPARE(ElementText(user, QStringLiteral("User/DemoApp/Demo/Greeting")),
             QStringLiteral("Hallo aus der Demo"));
    QCOMPARE(ElementText(user, QStringLiteral("User/DemoApp/Demo/Volume")), QStringLiteral("40"));
    QCOMPARE(ElementText(user, QStringLiteral("User/DemoApp/Demo/ShowTips")), QStringLiteral("true"));
    // The shipped file stayed as it was.
    QCOMPARE(ElementText(DEMO_DATA + QStringLiteral("/Cfg.xml"),
                         QStringLiteral("Machine/DemoApp/Demo/StartCount")),
             QStringLiteral("0"));
}

void TestZentApplicationDemo::savedConfigurationCarriesOverToTheNextStart()
{
    for (int run = 1; run <= 2; ++run) {
        Demo demo(m_dir->path());
        demo.Start({QStringLiteral("--quit-after=1")});
        QVERIFY(demo.WaitForEnd());
        QVERIFY2(demo.ExitCode() == 0, qPrintable(demo.Errors()));
        QVERIFY(demo.Traces().contains(QStringLiteral("Demo plug-in: start number %1").arg(run)));
    }
    QCOMPARE(ElementText(m_dir->filePath(QStringLiteral("Cfg.xml")),
                         QStringLiteral("Machine/DemoApp/Demo/StartCount")),
             QStringLiteral("2"));
}

void TestZentApplicationDemo::secondDemoBringsTheFirstToTheFrontAndEnds()
{
    Demo first(m_dir->path());
    first.Start({QStringLiteral("--quit-after=8")});
    QVERIFY2(first.WaitForTrace(QStringLiteral("Demo plug-in: main window shown")),
             qPrintable(first.Errors()));

    Demo second(m_dir->path());
    second.Start({});
    QVERIFY(second.WaitForEnd());
    QVERIFY2(second.ExitCode() == 0, qPrintable(second.Errors()));
    QVERIFY2(second.LifeMs() >= 1000 && second.LifeMs() < 8000, qPrintable(QString::number(second.LifeMs())));
    const QStringList traces = second.Traces();
    QVERIFY(traces.contains(QStringLiteral("Start-up: another instance of \"DemoApp\" is running")));
    QCOMPARE(traces.filter(QStringLiteral("Demo plug-in")), QStringList());
    QVERIFY(!traces.contains(QStringLiteral("Started !")));

    QVERIFY(first.WaitForEnd());
    QVERIFY2(first.ExitCode() == 0, qPrintable(first.Errors()));
    QCOMPARE(first.Traces().filter(QStringLiteral("Demo plug-in: start number")),
             QStringList({QStringLiteral("Demo plug-in: start number 1")}));
}

QString TestZentApplicationDemo::LinkedDemo() const
{
    const QString link = m_dir->filePath(QStringLiteral("zentdemo"));
    if (!QFileInfo::exists(link))
        QFile::link(DEMO_PROGRAM, link);
    return link;
}

void TestZentApplicationDemo::commandLineHelpReachesStandardErrorWithoutTerminalOrViewer_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("display");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("text");
    const QString error = QStringLiteral("Command line error");
    const QString see = QStringLiteral("\nSee command line help:\n\n");
    const QString missing =
        error + QStringLiteral(", the argument AppKey is missing.") + see + ExpectedHelpText();
    QTest::newRow("no_arguments_desktop_without_viewer")
        << QStringList() << QByteArray(":97") << 2 << missing;
    QTest::newRow("no_arguments_no_desktop") << QStringList() << QByteArray() << 2 << missing;
    QTest::newRow("registry_refused")
        << QStringList{QStringLiteral("DemoApp"), QStringLiteral("Registry")} << QByteArray(":97") << 2
        << error + QStringLiteral(" in CfgDoc: Unknown CfgType.") + see + ExpectedHelpText();
    QTest::newRow("bad_key") << QStringList{QStringLiteral("--quit-after=1")} << QByteArray() << 2
                             << error +
                                    QStringLiteral(
                                        " in AppKey in CfgKey: not all characters are alphanumeric.") +
                                    see + ExpectedHelpText();
    QTest::newRow("help_asked_for") << QStringList{QStringLiteral("/h")} << QByteArray(":97") << 0
                                    << ExpectedHelpText();
}

void TestZentApplicationDemo::commandLineHelpReachesStandardErrorWithoutTerminalOrViewer()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, display);
    QFETCH(int, exitCode);
    QFETCH(QString, text);
    const QString program = LinkedDemo();
    const ScriptRun run = RunLikeAScript(program, arguments, m_dir->path(), display);
    QVERIFY(run.finished);
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.exitCode, exitCode);
    QCOMPARE(run.output, QByteArray());
    QCOMPARE(run.errors, text.toLatin1());
    // The help file beside the program holds the same bytes.
    QFile helpFile(program + QStringLiteral(".txt"));
    QVERIFY(helpFile.open(QIODevice::ReadOnly));
    QCOMPARE(helpFile.readAll(), text.toLatin1());
}

void TestZentApplicationDemo::helpOptionPrintsOnStandardOutput()
{
    const QString program = LinkedDemo();
    const ScriptRun run =
        RunLikeAScript(program, {QStringLiteral("--help")}, m_dir->path(), QByteArray(":97"));
    QVERIFY(run.finished);
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.output, DEMO_HELP);
    QCOMPARE(run.errors, QByteArray());
    // Nothing to show in a viewer, so no help file either.
    QCOMPARE(QFileInfo::exists(program + QStringLiteral(".txt")), false);
}

void TestZentApplicationDemo::versionIsTheProjectVersion()
{
    const ScriptRun run =
        RunLikeAScript(DEMO_PROGRAM, {QStringLiteral("--version")}, m_dir->path(), QByteArray());
    QVERIFY(run.finished);
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.output, QByteArray("zentdemo " ZENT_VERSION "\n"));
    QCOMPARE(run.errors, QByteArray());
}

QTEST_GUILESS_MAIN(TestZentApplicationDemo)
#include "tst_zentapplicationdemo.moc"
