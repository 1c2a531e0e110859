// Opens a configuration document, changes one value and saves it, so that a
// test can compare what separate processes write for the same content.
//
//   cfgxmlsavehelper <file>
//
// The user view goes to its side file (usage 0), time stamps are off so that
// the clock does not enter the bytes, and the exchange bytes of the
// application "App" are written to <file>.exchange.

#include "configuration/cfgcenter.h"
#include "configuration/cfgxml.h"
#include "kvbase/kvexception.h"

#include <QCoreApplication>
#include <QFile>

#include <cstdio>

namespace {

class SavingCfgXml : public CfgXml
{
public:
    using CfgXml::CfgXml;
    using CfgXml::SaveDocument;
};

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: cfgxmlsavehelper <file>\n");
        return 2;
    }
    CfgCenter::SetUsage(CfgCenter::USAGE_0);
    CfgXml::SetTimeStampsEnabled(false);
    const QString fileName = QFile::decodeName(argv[1]);
    try {
        SavingCfgXml document(fileName, QStringLiteral("App"), ICfg::VIEW_Machine);
        document.OpenDocument(false);
        document.SetString(QStringLiteral("Saved"), QStringLiteral("yes"));
        document.SetString(QStringLiteral("Saved"), QStringLiteral("yes"), ICfg::VIEW_User);
        document.SaveDocument();
        QFile exchange(fileName + QStringLiteral(".exchange"));
        if (!exchange.open(QIODevice::WriteOnly) ||
            exchange.write(document.GetCfgAsStringFromApp(QStringLiteral("App"))) < 0) {
            std::fprintf(stderr, "cannot write %s\n", qPrintable(exchange.fileName()));
            return 1;
        }
    } catch (const KVException& e) {
        std::fprintf(stderr, "%s\n", qPrintable(e.GetMessage()));
        return 1;
    }
    return 0;
}
