/// \file
/// ArgFormat: argument vectors of the family's command lines.
#ifndef APPLICATION_ARGFORMAT_H
#define APPLICATION_ARGFORMAT_H

#include "zentappstartup_export.h"

#include <string>

/// Builds, copies, extends, flattens and frees C-style argument vectors: a
/// count and an array of that many separately allocated, NUL-terminated byte
/// strings (no null entry follows the last one). Every vector made here
/// belongs to the caller and is released with DeleteArgs().
class ZENTAPPSTARTUP_EXPORT ArgFormat
{
public:
    /// Builds a vector from a line that holds the arguments only. Entry 0 is
    /// always "zent". Only the blank separates; there is no quoting. A second
    /// blank in a row, or a leading blank, ends the parse. A null line counts
    /// as an empty one.
    static void CreateArgs(int& argc, char**& argv, const char* cmdLine);
    /// Deep copy.
    static void CopyArgs(int argcIn, char** argvIn, int& argcOut, char**& argvOut);
    /// Replaces the vector by one with a copy of `sArg` at index `iPos`
    /// (1 <= iPos <= argc; iPos == argc appends). Outside that range an
    /// assertion is reported and nothing is inserted; the extra entry is then
    /// null. A null `sArg` is reported as well and inserted as an empty text.
    static void InsertArg(const char* sArg, int iPos, int& argc, char**& argv);
    /// argv[0] + ".exe", then each further entry behind one blank, unquoted.
    /// argv[0] is read even when argc is 0.
    static std::string GetCmdLine(int argc, char** argv);
    /// Frees every entry and the array and sets argc to 0. The array pointer
    /// is left as it was and must not be used afterwards.
    static void DeleteArgs(int& argc, char**& argv);
};

#endif
