// cfgdelete: deletes a configuration, or all configurations of one type.
//
//   cfgdelete KEY TYPE
//
// A key of "*" deletes every configuration of the type; a type is a
// configuration document string such as "Xml:Cfg.xml" or "Registry". Both
// the machine and the user view are cleared.
// Exit codes: 0 deleted, 1 wrong number of arguments, 2 the deletion failed.

#include "configuration/cfgdelete.h"
#include "kvbase/kvexception.h"

#include <QCoreApplication>
#include <QTextStream>

int main(int argc, char* argv[])
{
    // Saving belongs to the application's main thread; this is it.
    QCoreApplication app(argc, argv);
    try {
        CfgDelete deletion(argc, argv);
    } catch (const KVException& e) {
        QTextStream(stderr) << "cfgdelete: " << e.GetMessage() << '\n';
        return 2;
    } catch (int code) {
        QTextStream(stderr) << "cfgdelete: the configuration could not be opened (" << code << ")\n";
        return 2;
    }
    return 0;
}
