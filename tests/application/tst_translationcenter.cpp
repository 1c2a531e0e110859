#include "application/applicationterminationcenter.h"
#include "application/translationcenter.h"

#include "common/memorycfg.h"
#include "common/recordingwriter.h"
#include "configuration/cfg.h"
#include "configuration/cfgcentertestaccess.h"
#include "kvbase/errorhandler.h"
#include "kvbase/kvexception.h"
#include "kvbase/zentos.h"

#include <QDir>
#include <QFile>
#include <QLibraryInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QTranslator>

#include <cstdio>
#include <memory>

/// Reads the centre's private state for exact comparisons.
class TranslationCenterTestAccess
{
public:
    static QString Language() { return TranslationCenter::Instance().m_strLanguage; }
    static std::map<QString, TrEntry> Entries() { return TranslationCenter::Instance().m_entries; }
    static QStringList RegisteredNames()
    {
        QStringList names;
        for (const auto& entry : Entries())
            names.append(entry.first);
        return names;
    }
    static int RefCount(const QString& name) { return Entries().at(name).m_nRefCount; }
    static bool HasTranslator(const QString& name) { return Entries().at(name).m_pTranslator != nullptr; }
    static void SetTranslator(const QString& name, QTranslator* translator)
    {
        TranslationCenter::Instance().m_entries.at(name).m_pTranslator = translator;
    }
};

namespace {

using Access = TranslationCenterTestAccess;

const char* const MODULE = "TrCenterModule";

/// A system whose product directory the test chooses.
class ScriptedOS : public ZentOS
{
public:
    QString GetProductDir() const override { return m_sProductDir; }
    QString m_sProductDir;
};

QString qmSource(const QString& fileName)
{
    return QStringLiteral(ZENT_TEST_QM_DIR) + QLatin1Char('/') + fileName;
}

QString besideExe(const QString& fileName)
{
    return QCoreApplication::applicationDirPath() + QLatin1Char('/') + fileName;
}

QString loadedLine(const QStringList& paths)
{
    return QStringLiteral("application/translationcenter:193 Translation: Successfully loaded the following "
                          "translation files: ") +
           paths.join(QStringLiteral(", "));
}

QString failedLine(const QStringList& paths)
{
    return QStringLiteral("application/translationcenter:193 Translation: Could not load the following "
                          "translation files: ") +
           paths.join(QStringLiteral(", "));
}

QString notFoundLine(const QStringList& paths)
{
    return QStringLiteral("application/translationcenter:193 Translation: Could not find the following "
                          "translation files: ") +
           paths.join(QStringLiteral(", "));
}

QString translated(const char* context, const char* text, const char* disambiguation = nullptr)
{
    return TranslationCenter::Instance().translate(context, QString::fromUtf8(text), disambiguation);
}

} // namespace

class TestTranslationCenter : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();

    void firstUseRegistersQtAndKVBaseWithoutTranslators();
    void emptyLanguageLoadsNothingAndTracesNothing();
    void initLoadsFromCurrentDirectoryAndTracesFoundAndMissing();
    void missingFileIsTracedWithLastPathTried_data();
    void missingFileIsTracedWithLastPathTried();
    void searchTakesFirstPlaceThatHasTheFile_data();
    void searchTakesFirstPlaceThatHasTheFile();
    void fileOnlyBesideExecutableIsFoundBySecondStep();
    void damagedFileIsTracedAsNotLoaded();
    void tracesComeInOrderLoadedFailedMissing();
    void tracingOffStillEmptiesCollectedMessages();
    void registerLoadsAtOnceButTracesWithNextLoad();
    void registerTwiceUnregisterOnceKeepsTranslator();
    void unregisterOfUnknownNameIsIgnored();
    void languageChangeReplacesTranslators();
    void initWithoutArgumentUsesConfiguredLanguage();
    void debianQtTranslationIsFoundAndUnloaded();
    void translateHonoursDisambiguation();
    void translateReturnsNonAsciiTextUnchanged();
    void translateWithoutTranslationReturnsSource();
    void translateWithoutApplicationGivesEmptyText();
    void aboutToTerminateUnloadsButKeepsRegistrations();
    void loadAssertsThatNoTranslatorIsLeftOver();
    void configurationValuesComeFromAppThenAdmin_data();
    void configurationValuesComeFromAppThenAdmin();
    void configurationIsReadInMachineView();
    void configurationReadWithoutCentreThrows();
    void terminationCentreUnloadsTranslators();

private:
    void copyQm(const QString& fileName, const QString& directory);
    QString inCwd(const QString& fileName) const { return m_cwd->path() + QLatin1Char('/') + fileName; }
    QString inProduct(const QString& fileName) const
    {
        return m_product->path() + QLatin1Char('/') + fileName;
    }

    ScriptedOS m_os;
    MemoryCfg m_appCfg{QStringLiteral("TrCenterApp"), ICfg::VIEW_Machine};
    MemoryCfg m_adminCfg{QStringLiteral("Administration"), ICfg::VIEW_Machine};
    std::unique_ptr<QTemporaryDir> m_cwd;
    std::unique_ptr<QTemporaryDir> m_product;
    QString m_savedCwd;
    unsigned m_savedMask = 0;
    QStringList m_traces;
};

void TestTranslationCenter::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    QVERIFY2(QFile::exists(qmSource(QStringLiteral("KVBase_de.qm"))), "the build makes the test's .qm files");
    QVERIFY2(QFile::exists(besideExe(QStringLiteral("TrCenterBesideExe_de.qm"))),
             "the build puts one .qm file beside the test program");
    ZentOS::SetInstance(&m_os);
    CfgCenterTestAccess::SetAppCfg(&m_appCfg);
    CfgCenterTestAccess::SetAdminCfg(&m_adminCfg);
}

void TestTranslationCenter::cleanupTestCase()
{
    CfgCenterTestAccess::Reset();
    ZentOS::SetInstance(nullptr);
}

void TestTranslationCenter::init()
{
    m_cwd = std::make_unique<QTemporaryDir>();
    m_product = std::make_unique<QTemporaryDir>();
    QVERIFY2(m_cwd->isValid(), qPrintable(m_cwd->errorString()));
    QVERIFY2(m_product->isValid(), qPrintable(m_product->errorString()));
    m_savedCwd = QDir::currentPath();
    QVERIFY(QDir::setCurrent(m_cwd->path()));
    m_os.m_sProductDir.clear();
    m_traces.clear();
    m_savedMask = ErrorHandler::Instance().GetMessageMask();
    ErrorHandler::Instance().ResetMessageMask(ErrorHandler::DEFAULT_MESSAGE_MASK);
    ErrorHandler::Instance().SetLogTracer(new RecordingWriter(&m_traces));
}

void TestTranslationCenter::cleanup()
{
    // Back to the state of first use: no language, "qt" and "KVBase" once.
    TranslationCenter& center = TranslationCenter::Instance();
    center.Init(QString());
    for (const QString& name : Access::RegisteredNames()) {
        while (Access::Entries().count(name) && Access::RefCount(name) > 1)
            center.Unregister(name);
        if (name != QLatin1String("qt") && name != QLatin1String("KVBase"))
            center.Unregister(name);
    }
    for (const char* name : {"qt", "KVBase"}) {
        if (!Access::Entries().count(QLatin1String(name)))
            center.Register(QLatin1String(name));
    }
    ErrorHandler::Instance().SetLogTracer(nullptr);
    ErrorHandler::Instance().ResetMessageMask(m_savedMask);
    m_appCfg.Remove(ICfg::VIEW_Machine, QStringLiteral("Language"));
    m_adminCfg.Remove(ICfg::VIEW_Machine, QStringLiteral("Language"));
    QVERIFY(QDir::setCurrent(m_savedCwd));
    m_cwd.reset();
    m_product.reset();
}

void TestTranslationCenter::copyQm(const QString& fileName, const QString& directory)
{
    QVERIFY2(QFile::copy(qmSource(fileName), directory + QLatin1Char('/') + fileName), qPrintable(fileName));
}

void TestTranslationCenter::firstUseRegistersQtAndKVBaseWithoutTranslators()
{
    TranslationCenter::Instance();

    QCOMPARE(Access::RegisteredNames(), (QStringList{"KVBase", "qt"}));
    QCOMPARE(Access::RefCount(QStringLiteral("qt")), 1);
    QCOMPARE(Access::RefCount(QStringLiteral("KVBase")), 1);
    QCOMPARE(Access::HasTranslator(QStringLiteral("qt")), false);
    QCOMPARE(Access::HasTranslator(QStringLiteral("KVBase")), false);
    QCOMPARE(Access::Language(), QString());
    QCOMPARE(m_traces, QStringList());
}

void TestTranslationCenter::emptyLanguageLoadsNothingAndTracesNothing()
{
    copyQm(QStringLiteral("KVBase_de.qm"), m_cwd->path());
    TranslationCenter& center = TranslationCenter::Instance();
    center.Register(QLatin1String(MODULE));
    center.Register(QStringLiteral("NoSuchModule"));
    center.Init(QString());

    QCOMPARE(m_traces, QStringList());
    QCOMPARE(Access::HasTranslator(QLatin1String(MODULE)), false);
    QCOMPARE(Access::HasTranslator(QStringLiteral("KVBase")), false);
    QCOMPARE(Access::RefCount(QStringLiteral("NoSuchModule")), 1);
    QCOMPARE(translated("KVBase", "Continue"), QStringLiteral("Continue"));
}

void TestTranslationCenter::initLoadsFromCurrentDirectoryAndTracesFoundAndMissing()
{
    copyQm(QStringLiteral("KVBase_de.qm"), m_cwd->path());
    copyQm(QStringLiteral("TrCenterModule_de.qm"), m_cwd->path());
    TranslationCenter& center = TranslationCenter::Instance();
    center.Register(QLatin1String(MODULE));
    center.Init(QStringLiteral("de"));

    // Names in QString order: upper case before lower case.
    QCOMPARE(m_traces, (QStringList{loadedLine({inCwd("KVBase_de.qm"), inCwd("TrCenterModule_de.qm")}),
                                    notFoundLine({besideExe("qt_de.qm")})}));
    QCOMPARE(Access::Language(), QStringLiteral("de"));
    QCOMPARE(Access::HasTranslator(QStringLiteral("KVBase")), true);
    QCOMPARE(Access::HasTranslator(QLatin1String(MODULE)), true);
    QCOMPARE(Access::HasTranslator(QStringLiteral("qt")), false);
    QCOMPARE(translated("KVBase", "Continue"), QStringLiteral("Weiter"));
    QCOMPARE(translated(MODULE, "Settings"), QStringLiteral("Einstellungen"));
}

void TestTranslationCenter::missingFileIsTracedWithLastPathTried_data()
{
    QTest::addColumn<bool>("withProductDir");
    QTest::newRow("no_product_dir_ends_beside_executable") << false;
    QTest::newRow("product_dir_is_the_last_place") << true;
}

void TestTranslationCenter::missingFileIsTracedWithLastPathTried()
{
    QFETCH(bool, withProductDir);
    if (withProductDir)
        m_os.m_sProductDir = m_product->path();
    TranslationCenter& center = TranslationCenter::Instance();
    center.Unregister(QStringLiteral("qt"));
    center.Init(QStringLiteral("de"));

    const QString lastPath = withProductDir ? inProduct("KVBase_de.qm") : besideExe("KVBase_de.qm");
    QCOMPARE(m_traces, QStringList{notFoundLine({lastPath})});
}

void TestTranslationCenter::searchTakesFirstPlaceThatHasTheFile_data()
{
    QTest::addColumn<bool>("inCurrentDir");
    QTest::addColumn<bool>("inProductDir");
    QTest::addColumn<QString>("expectedPlace");

    QTest::newRow("current_dir_before_product_dir") << true << true << "cwd";
    QTest::newRow("only_product_dir") << false << true << "product";
    QTest::newRow("only_current_dir") << true << false << "cwd";
}

void TestTranslationCenter::searchTakesFirstPlaceThatHasTheFile()
{
    QFETCH(bool, inCurrentDir);
    QFETCH(bool, inProductDir);
    QFETCH(QString, expectedPlace);
    const QString file = QStringLiteral("TrCenterModule_de.qm");
    if (inCurrentDir)
        copyQm(file, m_cwd->path());
    if (inProductDir)
        copyQm(file, m_product->path());
    m_os.m_sProductDir = m_product->path();
    TranslationCenter& center = TranslationCenter::Instance();
    center.Unregister(QStringLiteral("qt"));
    center.Unregister(QStringLiteral("KVBase"));
    center.Register(QLatin1String(MODULE));
    center.Init(QStringLiteral("de"));

    const QString expectedPath = expectedPlace == QLatin1String("cwd") ? inCwd(file) : inProduct(file);
    QCOMPARE(m_traces, QStringList{loadedLine({expectedPath})});
    QCOMPARE(translated(MODULE, "Settings"), QStringLiteral("Einstellungen"));
}

void TestTranslationCenter::fileOnlyBesideExecutableIsFoundBySecondStep()
{
    const QString file = QStringLiteral("TrCenterBesideExe_de.qm");
    QVERIFY(QFile::copy(besideExe(file), inProduct(file)));
    m_os.m_sProductDir = m_product->path();
    TranslationCenter& center = TranslationCenter::Instance();
    center.Unregister(QStringLiteral("qt"));
    center.Unregister(QStringLiteral("KVBase"));
    center.Register(QStringLiteral("TrCenterBesideExe"));
    center.Init(QStringLiteral("de"));

    QCOMPARE(m_traces, QStringList{loadedLine({besideExe(file)})});
    QCOMPARE(translated("TrCenterBesideExe", "Beside the program"), QStringLiteral("Neben dem Programm"));
}

void TestTranslationCenter::damagedFileIsTracedAsNotLoaded()
{
    QFile damaged(inCwd("TrCenterDamaged_de.qm"));
    QVERIFY(damaged.open(QIODevice::WriteOnly));
    damaged.write("this is no translation file");
    damaged.close();
    TranslationCenter& center = TranslationCenter::Instance();
    center.Unregister(QStringLiteral("qt"));
    center.Unregister(QStringLiteral("KVBase"));
    center.Register(QStringLiteral("TrCenterDamaged"));
    center.Init(QStringLiteral("de"));

    QCOMPARE(m_traces, QStringList{failedLine({inCwd("TrCenterDamaged_de.qm")})});
    QCOMPARE(Access::HasTranslator(QStringLiteral("TrCenterDamaged")), false);
}

void TestTranslationCenter::tracesComeInOrderLoadedFailedMissing()
{
    copyQm(QStringLiteral("TrCenterModule_de.qm"), m_cwd->path());
    for (const char* name : {"TrCenterBroken1_de.qm", "TrCenterBroken2_de.qm"}) {
        QFile damaged(inCwd(QLatin1String(name)));
        QVERIFY(damaged.open(QIODevice::WriteOnly));
        damaged.write("garbage");
    }
    TranslationCenter& center = TranslationCenter::Instance();
    center.Register(QStringLiteral("TrCenterBroken2"));
    center.Register(QLatin1String(MODULE));
    center.Register(QStringLiteral("TrCenterBroken1"));
    center.Init(QStringLiteral("de"));

    QCOMPARE(m_traces,
             (QStringList{loadedLine({inCwd("TrCenterModule_de.qm")}),
                          failedLine({inCwd("TrCenterBroken1_de.qm"), inCwd("TrCenterBroken2_de.qm")}),
                          notFoundLine({besideExe("KVBase_de.qm"), besideExe("qt_de.qm")})}));
}

void TestTranslationCenter::tracingOffStillEmptiesCollectedMessages()
{
    TranslationCenter& center = TranslationCenter::Instance();
    ErrorHandler::Instance().SetMessageMask(ErrorHandler::Q_TRACE, false);
    center.Init(QStringLiteral("de"));
    QCOMPARE(m_traces, QStringList());

    ErrorHandler::Instance().SetMessageMask(ErrorHandler::Q_TRACE, true);
    center.Unregister(QStringLiteral("qt"));
    center.Init(QStringLiteral("de"));
    QCOMPARE(m_traces, QStringList{notFoundLine({besideExe("KVBase_de.qm")})});
}

void TestTranslationCenter::registerLoadsAtOnceButTracesWithNextLoad()
{
    copyQm(QStringLiteral("TrCenterModule_de.qm"), m_cwd->path());
    TranslationCenter& center = TranslationCenter::Instance();
    center.Unregister(QStringLiteral("qt"));
    center.Unregister(QStringLiteral("KVBase"));
    center.Init(QStringLiteral("de"));
    QCOMPARE(m_traces, QStringList());

    center.Register(QLatin1String(MODULE));
    QCOMPARE(translated(MODULE, "Settings"), QStringLiteral("Einstellungen"));
    QCOMPARE(m_traces, QStringList());

    // The next complete load reports the registration's file and its own.
    center.Init(QStringLiteral("de"));
    QCOMPARE(m_traces,
             QStringList{loadedLine({inCwd("TrCenterModule_de.qm"), inCwd("TrCenterModule_de.qm")})});
}

void TestTranslationCenter::registerTwiceUnregisterOnceKeepsTranslator()
{
    copyQm(QStringLiteral("TrCenterModule_de.qm"), m_cwd->path());
    TranslationCenter& center = TranslationCenter::Instance();
    center.Init(QStringLiteral("de"));
    center.Register(QLatin1String(MODULE));
    center.Register(QLatin1String(MODULE));
    QCOMPARE(Access::RefCount(QLatin1String(MODULE)), 2);

    center.Unregister(QLatin1String(MODULE));
    QCOMPARE(Access::RefCount(QLatin1String(MODULE)), 1);
    QCOMPARE(Access::HasTranslator(QLatin1String(MODULE)), true);
    QCOMPARE(translated(MODULE, "Settings"), QStringLiteral("Einstellungen"));

    center.Unregister(QLatin1String(MODULE));
    QCOMPARE(Access::Entries().count(QLatin1String(MODULE)), size_t(0));
    QCOMPARE(translated(MODULE, "Settings"), QStringLiteral("Settings"));
}

void TestTranslationCenter::unregisterOfUnknownNameIsIgnored()
{
    TranslationCenter& center = TranslationCenter::Instance();
    center.Unregister(QStringLiteral("NeverRegistered"));

    QCOMPARE(Access::RegisteredNames(), (QStringList{"KVBase", "qt"}));
    QCOMPARE(Access::RefCount(QStringLiteral("qt")), 1);
    QCOMPARE(Access::RefCount(QStringLiteral("KVBase")), 1);
}

void TestTranslationCenter::languageChangeReplacesTranslators()
{
    copyQm(QStringLiteral("TrCenterModule_de.qm"), m_cwd->path());
    copyQm(QStringLiteral("TrCenterModule_fr.qm"), m_cwd->path());
    TranslationCenter& center = TranslationCenter::Instance();
    center.Unregister(QStringLiteral("qt"));
    center.Unregister(QStringLiteral("KVBase"));
    center.Register(QLatin1String(MODULE));
    center.Init(QStringLiteral("de"));
    QCOMPARE(translated(MODULE, "Settings"), QStringLiteral("Einstellungen"));
    m_traces.clear();

    center.Init(QStringLiteral("fr"));
    QCOMPARE(translated(MODULE, "Settings"), QStringLiteral("Paramètres"));
    QCOMPARE(Access::Language(), QStringLiteral("fr"));
    QCOMPARE(m_traces, QStringList{loadedLine({inCwd("TrCenterModule_fr.qm")})});

    center.Init(QString());
    QCOMPARE(translated(MODULE, "Settings"), QStringLiteral("Settings"));
    QCOMPARE(Access::RefCount(QLatin1String(MODULE)), 1);
}

void TestTranslationCenter::initWithoutArgumentUsesConfiguredLanguage()
{
    copyQm(QStringLiteral("TrCenterModule_fr.qm"), m_cwd->path());
    m_appCfg.SetString(QStringLiteral("Language"), QStringLiteral("fr"), ICfg::VIEW_Machine);
    TranslationCenter& center = TranslationCenter::Instance();
    center.Register(QLatin1String(MODULE));
    center.Init();

    QCOMPARE(Access::Language(), QStringLiteral("fr"));
    QCOMPARE(translated(MODULE, "Settings"), QStringLiteral("Paramètres"));
}

void TestTranslationCenter::debianQtTranslationIsFoundAndUnloaded()
{
    // Qt's catalogue qt_de.qm only names the module files (qtbase_de.qm and
    // others); they are copied along so that it loads.
    const QDir qtTranslations(QLibraryInfo::location(QLibraryInfo::TranslationsPath));
    if (!qtTranslations.exists(QStringLiteral("qt_de.qm")))
        QSKIP("Qt's German translation is not installed (Debian: qttranslations5-l10n)");
    for (const QString& file : qtTranslations.entryList({QStringLiteral("qt*_de.qm")}, QDir::Files))
        QVERIFY(QFile::copy(qtTranslations.filePath(file), inCwd(file)));
    TranslationCenter& center = TranslationCenter::Instance();
    center.Unregister(QStringLiteral("KVBase"));
    center.Init(QStringLiteral("de"));

    QCOMPARE(m_traces, QStringList{loadedLine({inCwd("qt_de.qm")})});
    QCOMPARE(translated("QPlatformTheme", "Cancel"), QStringLiteral("Abbrechen"));

    center.aboutToTerminate();
    QCOMPARE(translated("QPlatformTheme", "Cancel"), QStringLiteral("Cancel"));
}

void TestTranslationCenter::translateHonoursDisambiguation()
{
    copyQm(QStringLiteral("TrCenterModule_de.qm"), m_cwd->path());
    TranslationCenter& center = TranslationCenter::Instance();
    center.Register(QLatin1String(MODULE));
    center.Init(QStringLiteral("de"));

    QCOMPARE(translated(MODULE, "Open", "verb"), QStringLiteral("Öffnen"));
    QCOMPARE(translated(MODULE, "Open", "adjective"), QStringLiteral("Offen"));
}

void TestTranslationCenter::translateReturnsNonAsciiTextUnchanged()
{
    copyQm(QStringLiteral("TrCenterModule_de.qm"), m_cwd->path());
    TranslationCenter& center = TranslationCenter::Instance();
    center.Register(QLatin1String(MODULE));
    center.Init(QStringLiteral("de"));

    QCOMPARE(translated(MODULE, "Größe"), QStringLiteral("Größe"));
    QCOMPARE(translated(MODULE, "Settings\u00a0"), QStringLiteral("Settings\u00a0"));
}

void TestTranslationCenter::translateWithoutTranslationReturnsSource()
{
    QCOMPARE(translated(MODULE, "Settings"), QStringLiteral("Settings"));
    QCOMPARE(translated(MODULE, ""), QString());
}

void TestTranslationCenter::aboutToTerminateUnloadsButKeepsRegistrations()
{
    copyQm(QStringLiteral("KVBase_de.qm"), m_cwd->path());
    copyQm(QStringLiteral("TrCenterModule_de.qm"), m_cwd->path());
    TranslationCenter& center = TranslationCenter::Instance();
    center.Register(QLatin1String(MODULE));
    center.Register(QLatin1String(MODULE));
    center.Init(QStringLiteral("de"));

    center.aboutToTerminate();
    QCOMPARE(translated(MODULE, "Settings"), QStringLiteral("Settings"));
    QCOMPARE(translated("KVBase", "Continue"), QStringLiteral("Continue"));
    QCOMPARE(Access::RegisteredNames(), (QStringList{"KVBase", "TrCenterModule", "qt"}));
    QCOMPARE(Access::RefCount(QLatin1String(MODULE)), 2);
    QCOMPARE(Access::HasTranslator(QLatin1String(MODULE)), false);
    QCOMPARE(Access::Language(), QStringLiteral("de"));

    // A later load brings them back.
    m_traces.clear();
    center.Init(QStringLiteral("de"));
    QCOMPARE(translated(MODULE, "Settings"), QStringLiteral("Einstellungen"));
    QCOMPARE(m_traces, (QStringList{loadedLine({inCwd("KVBase_de.qm"), inCwd("TrCenterModule_de.qm")}),
                                    notFoundLine({besideExe("qt_de.qm")})}));
}

void TestTranslationCenter::loadAssertsThatNoTranslatorIsLeftOver()
{
    TranslationCenter& center = TranslationCenter::Instance();
    QTranslator leftOver;
    Access::SetTranslator(QStringLiteral("qt"), &leftOver);
    QTest::ignoreMessage(QtWarningMsg,
                         "application/translationcenter:222 Assertion failed: ! it->second.m_pTranslator");
    center.Init(QString());

    QCOMPARE(m_traces,
             QStringList{QStringLiteral(
                 "application/translationcenter:222 Assertion failed: ! it->second.m_pTranslator")});
    QCOMPARE(Access::HasTranslator(QStringLiteral("qt")), false);
}

void TestTranslationCenter::configurationValuesComeFromAppThenAdmin_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("appValue");
    QTest::addColumn<QString>("adminValue");
    QTest::addColumn<QString>("expected");

    const QStringList names{"Language", "Font", "WindowsFont"};
    for (const QString& name : names) {
        const QByteArray row = name.toLatin1();
        QTest::newRow(row + "_from_app") << name << "app"
                                         << "admin"
                                         << "app";
        QTest::newRow(row + "_empty_app_falls_back_to_admin") << name << ""
                                                              << "admin"
                                                              << "admin";
        QTest::newRow(row + "_absent_everywhere_is_empty") << name << QString() << QString() << "";
        QTest::newRow(row + "_app_only") << name << "app" << QString() << "app";
    }
}

void TestTranslationCenter::configurationValuesComeFromAppThenAdmin()
{
    QFETCH(QString, name);
    QFETCH(QString, appValue);
    QFETCH(QString, adminValue);
    QFETCH(QString, expected);
    MemoryCfg app(QStringLiteral("TrCenterApp"), ICfg::VIEW_Machine);
    MemoryCfg admin(QStringLiteral("Administration"), ICfg::VIEW_Machine);
    if (!appValue.isNull())
        app.SetString(name, appValue, ICfg::VIEW_Machine);
    if (!adminValue.isNull())
        admin.SetString(name, adminValue, ICfg::VIEW_Machine);
    CfgCenterTestAccess::SetAppCfg(&app);
    CfgCenterTestAccess::SetAdminCfg(&admin);

    QString value;
    if (name == QLatin1String("Language"))
        value = TranslationCenter::GetLanguageFromCfg();
    else if (name == QLatin1String("Font"))
        value = TranslationCenter::GetFontFromCfg();
    else
        value = TranslationCenter::GetWindowsFontFromCfg();
    CfgCenterTestAccess::SetAppCfg(&m_appCfg);
    CfgCenterTestAccess::SetAdminCfg(&m_adminCfg);

    QCOMPARE(value, expected);
}

void TestTranslationCenter::configurationIsReadInMachineView()
{
    m_appCfg.SelectView(ICfg::VIEW_User);
    m_appCfg.SetString(QStringLiteral("Font"), QStringLiteral("user font"), ICfg::VIEW_User);
    m_adminCfg.SelectView(ICfg::VIEW_User);
    m_adminCfg.SetString(QStringLiteral("Font"), QStringLiteral("admin font"), ICfg::VIEW_Machine);

    QCOMPARE(TranslationCenter::GetFontFromCfg(), QStringLiteral("admin font"));
    QCOMPARE(m_appCfg.GetSelectedView(), ICfg::VIEW_Machine);
    QCOMPARE(m_adminCfg.GetSelectedView(), ICfg::VIEW_Machine);
    m_appCfg.Remove(ICfg::VIEW_User, QStringLiteral("Font"));
    m_adminCfg.Remove(ICfg::VIEW_Machine, QStringLiteral("Font"));
}

void TestTranslationCenter::configurationReadWithoutCentreThrows()
{
    CfgCenterTestAccess::SetAppCfg(nullptr);
    QString message;
    try {
        TranslationCenter::Instance().Init();
    } catch (const KVException& e) {
        message = e.GetMessage();
    }
    CfgCenterTestAccess::SetAppCfg(&m_appCfg);

    QCOMPARE(message, QStringLiteral("CfgCenter::GetAppCfg() called, before calling CfgCenter::CfgCenter()"));
    QCOMPARE(m_traces, QStringList());
}

void TestTranslationCenter::terminationCentreUnloadsTranslators()
{
    // Last test: the termination centre notifies the translation centre once
    // and then forgets it.
    copyQm(QStringLiteral("KVBase_de.qm"), m_cwd->path());
    TranslationCenter& center = TranslationCenter::Instance();
    center.Init(QStringLiteral("de"));
    QCOMPARE(translated("KVBase", "Continue"), QStringLiteral("Weiter"));

    ApplicationTerminationCenter::instance().aboutToTerminate();
    QCOMPARE(translated("KVBase", "Continue"), QStringLiteral("Continue"));
    QCOMPARE(Access::RegisteredNames(), (QStringList{"KVBase", "qt"}));
    QCOMPARE(Access::HasTranslator(QStringLiteral("KVBase")), false);
}

namespace {

const char* const WITHOUT_APPLICATION = "--translate-without-application";

/// Helper mode: translates before any Qt application object exists and
/// prints the results, separated by "|", in UTF-8.
int translateWithoutApplication()
{
    TranslationCenter& center = TranslationCenter::Instance();
    const QString ascii = center.translate("KVBase", QStringLiteral("Continue"), nullptr);
    const QString nonAscii = center.translate("KVBase", QStringLiteral("Größe"), nullptr);
    const QByteArray output = (ascii + QLatin1Char('|') + nonAscii).toUtf8();
    return std::fwrite(output.constData(), 1, output.size(), stdout) == size_t(output.size()) ? 0 : 1;
}

} // namespace

void TestTranslationCenter::translateWithoutApplicationGivesEmptyText()
{
    QProcess helper;
    helper.start(QCoreApplication::applicationFilePath(), {QLatin1String(WITHOUT_APPLICATION)});
    QVERIFY(helper.waitForFinished(30000));
    QCOMPARE(helper.exitStatus(), QProcess::NormalExit);
    QCOMPARE(helper.exitCode(), 0);
    QCOMPARE(QString::fromUtf8(helper.readAllStandardOutput()), QStringLiteral("|Größe"));
}

// The centre needs no widgets: a core application keeps the test free of any
// window system, and the helper mode runs before any application exists.
int main(int argc, char** argv)
{
    if (argc == 2 && qstrcmp(argv[1], WITHOUT_APPLICATION) == 0)
        return translateWithoutApplication();
    QCoreApplication app(argc, argv);
    TestTranslationCenter test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_translationcenter.moc"
