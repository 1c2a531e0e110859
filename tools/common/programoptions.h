#ifndef TOOLS_COMMON_PROGRAMOPTIONS_H
#define TOOLS_COMMON_PROGRAMOPTIONS_H

// The options every program of the family answers as Linux users expect:
// "--help" and "--version" as the first argument print to standard output
// and end the program with exit code 0.

#include <cstdio>
#include <cstring>

#ifndef ZENT_VERSION
#error "ZENT_VERSION names the project's version; link the target zentprogramoptions"
#endif

namespace ProgramOptions {

/// Writes `text` to standard output as it is; the exit code 0.
inline int PrintHelp(const char* text)
{
    std::fputs(text, stdout);
    std::fflush(stdout);
    return 0;
}

/// Writes "<program> <version>" to standard output; the exit code 0.
inline int PrintVersion(const char* program)
{
    std::printf("%s %s\n", program, ZENT_VERSION);
    std::fflush(stdout);
    return 0;
}

/// Answers "--help" (with `helpText`) and "--version" in argument 1: true,
/// with the program's exit code in `exitCode`, when one of them was asked for.
inline bool Answer(int argc, char** argv, const char* program, const char* helpText, int& exitCode)
{
    if (argc < 2 || !argv || !argv[1])
        return false;
    if (std::strcmp(argv[1], "--help") == 0) {
        exitCode = PrintHelp(helpText);
        return true;
    }
    if (std::strcmp(argv[1], "--version") == 0) {
        exitCode = PrintVersion(program);
        return true;
    }
    return false;
}

} // namespace ProgramOptions

#endif
