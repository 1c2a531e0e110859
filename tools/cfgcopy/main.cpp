// cfgcopy: copies a configuration from one backend into another.
//
//   cfgcopy SOURCE-KEY SOURCE-TYPE DESTINATION-KEY DESTINATION-TYPE
//   cfgcopy --help | --version
//
// A key of "*" copies the root with everything below it; a type is a
// configuration document string such as "Xml:Cfg.xml" or "Registry".
// Exit codes: 0 copied (or help or version shown), 1 wrong number of
// arguments, 2 the copy failed.

#include "configuration/cfgcopy.h"
#include "kvbase/kvexception.h"
#include "programoptions.h"

#include <QCoreApplication>
#include <QTextStream>

#include <cstdio>

namespace {

const char* const HELP = "Usage: cfgcopy SOURCE-KEY SOURCE-TYPE DESTINATION-KEY DESTINATION-TYPE\n"
                         "       cfgcopy --help | --version\n"
                         "\n"
                         "Copies a configuration from one backend into another, in the machine view:\n"
                         "values first, then sub-configurations, depth-first. Nothing is removed from\n"
                         "the destination; the destination is saved at the end.\n"
                         "\n"
                         "Arguments:\n"
                         "  SOURCE-KEY        the configuration key to copy; \"*\" copies the root with\n"
                         "                    everything below it\n"
                         "  SOURCE-TYPE       the backend to copy from\n"
                         "  DESTINATION-KEY   the key to copy into; \"*\" is the root\n"
                         "  DESTINATION-TYPE  the backend to copy into; an XML file that does not exist\n"
                         "                    is created as an empty document first\n"
                         "\n"
                         "Backends, one example each:\n"
                         "  Xml:FILE          an XML configuration file\n"
                         "                      cfgcopy DemoApp Xml:Cfg.xml DemoApp Xml:Copy.xml\n"
                         "  Registry          the registry below SOFTWARE\\Velkor&Amsel\\Zent (on Linux the\n"
                         "                    portable registry; zentreg imports and exports .reg files)\n"
                         "                      cfgcopy DemoApp Registry DemoApp Xml:FromRegistry.xml\n"
                         "  Server[:ADDRESS]  the configuration service on the machine ADDRESS (the local\n"
                         "                    machine when left out), port 4000\n"
                         "                      cfgcopy DemoApp Server:192.0.2.10 DemoApp Xml:Served.xml\n"
                         "\n"
                         "Exit codes:\n"
                         "  0  copied\n"
                         "  1  wrong number of arguments\n"
                         "  2  the copy failed; standard error says why\n";

const char* const USAGE = "Four arguments are expected: source key and type, destination key and type.\n";

} // namespace

int main(int argc, char* argv[])
{
    int exitCode = 0;
    if (ProgramOptions::Answer(argc, argv, "cfgcopy", HELP, exitCode))
        return exitCode;
    // The same text and exit code as CfgCopy's own check, but on standard
    // error: a script's or an editor's user sees it there, also when standard
    // output goes to a file.
    if (argc != 5) {
        std::fputs(USAGE, stderr);
        return 1;
    }
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
