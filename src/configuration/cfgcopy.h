/// \file
/// CfgCopy: the configuration copy command.
#ifndef CONFIGURATION_CFGCOPY_H
#define CONFIGURATION_CFGCOPY_H

#include "zentappstartup_export.h"

#include <QString>

class ICfg;

/// The configuration copy command: constructing it copies one configuration
/// (or the root with everything below it) from a source of one type to a
/// destination of another, value by value and sub-configuration by
/// sub-configuration, and saves the destination.
///
/// The command line is "source-key source-type destination-key
/// destination-type"; a key of "*" stands for the root. Types are document
/// strings of the configuration centre ("Xml:<file>", "Registry", ...). A
/// missing destination file is first created as an empty document. Nothing
/// is removed from the destination.
///
/// Any other number of arguments prints the usage text on standard output
/// and ends the process with exit code 1. Backend failures are thrown as
/// KVException; what was copied until then is not saved.
class ZENTAPPSTARTUP_EXPORT CfgCopy
{
public:
    /// Runs the command on `argv` (`argv[0]` being the program), see the
    /// class comment; throws KVException when a backend fails.
    CfgCopy(int argc, char** argv);
    /// A command holds no state: copying copies nothing and runs nothing.
    CfgCopy(const CfgCopy& other);
    /// A command holds no state: assigning changes nothing.
    CfgCopy& operator=(const CfgCopy& other);
    ~CfgCopy();

private:
    /// Copies the values of `source` (text, then type, then protection) and
    /// then, depth first, its sub-configurations into `destination`.
    void Copy(ICfg* source, ICfg* destination);
    static void CopyValue(ICfg* source, ICfg* destination, const QString& name);
};

#endif
