// cfgcopy: copies a configuration from one backend into another.
//
//   cfgcopy SOURCE-KEY SOURCE-TYPE DESTINATION-KEY DESTINATION-TYPE
//
// A key of "*" copies the root with everything below it; a type is a
// configuration document string such as "Xml:Cfg.xml" or "Registry".
// Exit codes: 0 copied, 1 wrong number of arguments, 2 the copy failed.

#include "configuration/cfgcopy.h"
#include "kvbase/kvexception.h"

#include <QCoreApplication>
#include <QTextStream>

int main(int argc, char* argv[])
{
    // Saving belongs to the application's main thread; this is it.
    QCoreApplication app(argc, argv);
    try {
        CfgCopy copy(argc, argv);
    } catch (const KVException& e) {
        QTextStream(stderr) << "cfgcopy: " << e.GetMessage() << '\n';
        return 2;
    } catch (int code) {
        QTextStream(stderr) << "cfgcopy: the configuration could not be opened (" << code << ")\n";
        return 2;
    }
    return 0;
}
