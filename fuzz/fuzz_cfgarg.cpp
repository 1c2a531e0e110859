// Feeds arbitrary bytes to the start-up argument document (cfgarg.xml in the
// working directory) as the configuration centre reads it. Every input either
// gives a key and a type or one of the documented failures; none may crash,
// recurse without bound or take unbounded memory.

#include "configuration/cfgcenter.h"
#include "kvbase/errorhandler.h"
#include "kvbase/kvexception.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

// The centre lets its test access class reach the reading of cfgarg.xml; the
// fuzzer is such a test.
class CfgCenterTestAccess
{
public:
    static void RetrieveOfFile(QString& key, QString& type) { CfgCenter::RetrieveOfFile(key, type, true); }
};

namespace {

struct Environment
{
    Environment()
    {
        static int argc = 1;
        static char name[] = "fuzz_cfgarg";
        static char* argv[] = {name, nullptr};
        app = std::make_unique<QCoreApplication>(argc, argv);
        ErrorHandler::Instance().SetMessagePresenter([](ErrorHandler::MessageKind, const QString&) {});
        QLoggingCategory::setFilterRules(QStringLiteral("zent.*=false"));
        if (!dir.isValid())
            std::abort();
    }

    std::unique_ptr<QCoreApplication> app;
    QTemporaryDir dir;
};

const QString FAILURES[] = {
    QStringLiteral("File cfgarg.xml not found."),
    QStringLiteral("Not able to set document cfgarg. Maybe it is not well formed."),
    QStringLiteral("No node found in the document cfgarg."),
    QStringLiteral("First node in the document cfgarg in no element."),
    QStringLiteral("The first element in the document cfgarg in not cfgarg."),
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Environment environment;
    // The document is read from the working directory; libFuzzer's own paths
    // may be relative to the one it was started in.
    const QString started = QDir::currentPath();
    if (!QDir::setCurrent(environment.dir.path()))
        std::abort();
    {
        QFile file(QStringLiteral("cfgarg.xml"));
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            std::abort();
        file.write(reinterpret_cast<const char*>(data), static_cast<qint64>(size));
    }
    QString key;
    QString type;
    try {
        CfgCenterTestAccess::RetrieveOfFile(key, type);
    } catch (const KVException& e) {
        bool known = false;
        for (const QString& failure : FAILURES)
            known = known || e.GetMessage() == failure;
        if (!known)
            std::abort();
    }
    QDir::setCurrent(started);
    return 0;
}
