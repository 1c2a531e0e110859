/// \file
/// CfgDelete: the configuration delete command.
#ifndef CONFIGURATION_CFGDELETE_H
#define CONFIGURATION_CFGDELETE_H

#include "zentappstartup_export.h"

/// The configuration delete command: constructing it deletes one
/// configuration, or with the key "*" every configuration of one type, in
/// the machine view and then in the user view, saving after each.
///
/// The command line is "key type", the type being a document string of the
/// configuration centre ("Xml:<file>", "Registry", ...). Any other number of
/// arguments prints the usage text on standard output and ends the process
/// with exit code 1. Backend failures are thrown as KVException.
class ZENTAPPSTARTUP_EXPORT CfgDelete
{
public:
    /// Runs the command on `argv` (`argv[0]` being the program), see the
    /// class comment; throws KVException when a backend fails.
    CfgDelete(int argc, char** argv);
    ~CfgDelete();
};

#endif
