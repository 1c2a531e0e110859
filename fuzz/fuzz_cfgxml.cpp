// Feeds arbitrary bytes to CfgXml::OpenDocument as the main configuration
// file and, in a second round, as the user side file beside a valid main
// file. A document that opens is read, enumerated, changed and saved, and
// what was saved must open again with the same values.

#include "configuration/cfgcenter.h"
#include "configuration/cfgxml.h"
#include "kvbase/errorhandler.h"
#include "kvbase/kvexception.h"
#include "kvbase/zentos.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileDevice>
#include <QLoggingCategory>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace {

class SavingCfgXml : public CfgXml
{
public:
    using CfgXml::CfgXml;
    using CfgXml::SaveDocument;
};

/// The fuzzer's files need no durability; syncing them would only slow it.
class NoSyncZentOS : public ZentOS
{
public:
    bool SyncFile(QFileDevice&) override { return true; }
    bool SyncDirectory(const QString&) override { return true; }
    bool IsAppThread() const override { return true; }
};

const QByteArray VALID_MAIN =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Cfg version=\"2.2\"><System/><Domain/>"
    "<Machine><App><Port>4000</Port></App></Machine></Cfg>\n";

struct Environment
{
    Environment()
    {
        static int argc = 1;
        static char name[] = "fuzz_cfgxml";
        static char* argv[] = {name, nullptr};
        app = std::make_unique<QCoreApplication>(argc, argv);
        ZentOS::SetInstance(&os);
        // Reports of broken side files are expected by the thousand.
        ErrorHandler::Instance().SetMessagePresenter([](ErrorHandler::MessageKind, const QString&) {});
        QLoggingCategory::setFilterRules(QStringLiteral("zent.*=false"));
        mainFile = dir.filePath(QStringLiteral("Cfg.xml"));
        userFile = dir.filePath(QStringLiteral("Cfg.usr.xml"));
    }

    std::unique_ptr<QCoreApplication> app;
    NoSyncZentOS os;
    QTemporaryDir dir;
    QString mainFile;
    QString userFile;
};

Environment& Env()
{
    static Environment environment;
    return environment;
}

void Write(const QString& fileName, const QByteArray& bytes)
{
    QFile file(fileName);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        std::abort();
    file.write(bytes);
}

/// Removes every file a round may have left (backups, corrupt copies, side files).
void ClearFolder()
{
    QDir dir(Env().dir.path());
    for (const QString& name : dir.entryList(QDir::Files | QDir::Hidden))
        dir.remove(name);
}

/// Reads everything reachable below `cfg`, a bounded number of nodes.
void Walk(ICfg& cfg, int& budget)
{
    for (int index = 0; budget > 0; ++index, --budget) {
        const QString name = cfg.GetValueKeyAt(index);
        if (name.isEmpty())
            break;
        cfg.GetString(name, QString());
        cfg.GetAttributeType(name);
        cfg.IsProtected(name);
        cfg.GetBoolean(name, false);
    }
    for (int index = 0; budget > 0; ++index, --budget) {
        std::unique_ptr<ICfg> sub(cfg.CreateSubCfgAt(index));
        if (!sub)
            break;
        sub->GetKey();
        Walk(*sub, budget);
    }
}

enum class Outcome
{
    NotOpened,
    StructureRejected,
    Saved
};

/// Opens, reads, changes and saves the document.
Outcome Exercise(SavingCfgXml& cfg)
{
    try {
        cfg.OpenDocument(true);
    } catch (const KVException&) {
        return Outcome::NotOpened;
    }
    try {
        int budget = 2000;
        Walk(cfg, budget);
        cfg.SetString(QStringLiteral("FuzzWritten"), QStringLiteral("value"));
        cfg.SetInteger(QStringLiteral("FuzzNumber"), 42);
        // Saves of equal bytes to the same name are skipped, and each round
        // replaces the files behind the document's back.
        static int round = 0;
        cfg.SetInteger(QStringLiteral("FuzzRound"), ++round);
        cfg.SaveDocument();
    } catch (const KVException&) {
        // Structural errors found by a walk (a text among sub-configurations,
        // a view that is no element) are reported this way.
        return Outcome::StructureRejected;
    }
    return Outcome::Saved;
}

/// A saved document opens again and holds what was written.
void CheckReopens(const QString& fileName, ICfg::View view)
{
    SavingCfgXml reopened(fileName, QStringLiteral("App"), view);
    try {
        reopened.OpenDocument(false);
    } catch (const KVException&) {
        std::abort();
    }
    if (reopened.GetString(QStringLiteral("FuzzWritten"), QString()) != QStringLiteral("value") ||
        reopened.GetInteger(QStringLiteral("FuzzNumber"), 0) != 42)
        std::abort();
}

void FuzzMainFile(const QByteArray& input)
{
    ClearFolder();
    CfgCenter::SetUsage(CfgCenter::USAGE_2);
    Write(Env().mainFile, input);
    // A valid backup lets the open take the recovery path for broken input.
    if (!input.isEmpty() && (input.at(0) & 1))
        Write(Env().mainFile + QStringLiteral(".bak"), VALID_MAIN);
    SavingCfgXml cfg(Env().mainFile, QStringLiteral("App"), ICfg::VIEW_Machine);
    if (Exercise(cfg) == Outcome::Saved) {
        cfg.CloseDocument();
        CheckReopens(Env().mainFile, ICfg::VIEW_Machine);
    }
}

void FuzzUserSideFile(const QByteArray& input)
{
    ClearFolder();
    CfgCenter::SetUsage(CfgCenter::USAGE_0);
    Write(Env().mainFile, VALID_MAIN);
    Write(Env().userFile, input);
    SavingCfgXml cfg(Env().mainFile, QStringLiteral("App"), ICfg::VIEW_User);
    // A side file never keeps the document from opening.
    const Outcome outcome = Exercise(cfg);
    if (outcome == Outcome::NotOpened)
        std::abort();
    if (outcome == Outcome::Saved) {
        cfg.CloseDocument();
        CheckReopens(Env().mainFile, ICfg::VIEW_User);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray input(reinterpret_cast<const char*>(data), static_cast<int>(size));
    Env();
    FuzzMainFile(input);
    FuzzUserSideFile(input);
    return 0;
}
