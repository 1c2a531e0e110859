// Saves a changing configuration document in a loop until it is killed.
//
//   cfgxmlcrashhelper <file>
//
// Each round raises the value "Generation" by one, rewrites every "Item"
// value with the new generation in its text and saves; only after
// SaveDocument has returned is the generation printed on its own line. The
// document is opened first, so a restart continues from what survived.

#include "cfgxmlcrashdocument.h"

#include "configuration/cfgxml.h"
#include "kvbase/kvexception.h"
#include "kvbase/zentos.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>

#include <cstdio>

namespace {

class SavingCfgXml : public CfgXml
{
public:
    using CfgXml::CfgXml;
    using CfgXml::SaveDocument;
};

// An orphaned helper must not run for ever when its test dies.
constexpr qint64 MAX_LIFETIME_MS = 60000;

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: cfgxmlcrashhelper <file>\n");
        return 2;
    }
    ZentOS::Get().InitGuiProcess();
    QElapsedTimer lifetime;
    lifetime.start();
    try {
        SavingCfgXml document(QFile::decodeName(argv[1]), CrashDocument::KEY, ICfg::VIEW_Machine);
        document.OpenDocument(true);
        long generation = document.GetInteger(CrashDocument::GENERATION, 0);
        while (lifetime.elapsed() < MAX_LIFETIME_MS) {
            ++generation;
            document.SetInteger(CrashDocument::GENERATION, generation);
            for (int item = 0; item < CrashDocument::ITEMS; ++item)
                document.SetString(CrashDocument::ItemName(item), CrashDocument::ItemText(generation, item));
            document.SaveDocument();
            std::printf("%ld\n", generation);
            std::fflush(stdout);
        }
    } catch (const KVException& e) {
        std::fprintf(stderr, "%s\n", qPrintable(e.GetMessage()));
        return 1;
    }
    return 0;
}
