// cfgdelete: deletes a configuration, or all configurations of one type.
//
//   cfgdelete KEY TYPE
//   cfgdelete --help | --version
//
// A key of "*" deletes every configuration of the type; a type is a
// configuration document string such as "Xml:Cfg.xml" or "Registry". Both
// the machine and the user view are cleared.
// Exit codes: 0 deleted (or help or version shown), 1 wrong number of
// arguments, 2 the deletion failed.

#include "configuration/cfgdelete.h"
#include "kvbase/kvexception.h"
#include "programoptions.h"

#include <QCoreApplication>
#include <QTextStream>

#include <cstdio>

namespace {

const char* const HELP = "Usage: cfgdelete KEY TYPE\n"
                         "       cfgdelete --help | --version\n"
                         "\n"
                         "Deletes a configuration, or every configuration of one backend, in the\n"
                         "machine view and in the user view, and saves.\n"
                         "\n"
                         "Arguments:\n"
                         "  KEY               the configuration key; \"*\" deletes every configuration\n"
                         "  TYPE              the backend\n"
                         "\n"
                         "Backends, one example each:\n"
                         "  Xml:FILE          an XML configuration file\n"
                         "                      cfgdelete DemoApp Xml:Cfg.xml\n"
                         "  Registry          the registry below SOFTWARE\\Velkor&Amsel\\Zent (on Linux the\n"
                         "                    portable registry; zentreg imports and exports .reg files)\n"
                         "                      cfgdelete DemoApp Registry\n"
                         "  Server[:ADDRESS]  the configuration service on the machine ADDRESS (the local\n"
                         "                    machine when left out), port 4000\n"
                         "                      cfgdelete DemoApp Server:192.0.2.10\n"
                         "\n"
                         "Exit codes:\n"
                         "  0  deleted\n"
                         "  1  wrong number of arguments\n"
                         "  2  the deletion failed; standard error says why\n";

const char* const USAGE = "Two arguments are expected: key and type.\n";

} // namespace

int main(int argc, char* argv[])
{
    int exitCode = 0;
    if (ProgramOptions::Answer(argc, argv, "cfgdelete", HELP, exitCode))
        return exitCode;
    // The same text and exit code as CfgDelete's own check, but on standard
    // error: a script's or an editor's user sees it there, also when standard
    // output goes to a file.
    if (argc != 3) {
        std::fputs(USAGE, stderr);
        return 1;
    }
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
