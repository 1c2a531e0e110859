#include "application/argformat.h"

#include "application/argformat_p.h"
#include "kvbase/errorhandler.h"

#include <cstring>

namespace {

const char* const SOURCE_NAME = "application/argformat";

// Length of the run of non-blank characters at `pos`; only the blank separates.
std::size_t RunLength(const char* text, std::size_t pos)
{
    return std::strcspn(text + pos, " ");
}

// A null entry (left by a refused insertion) stays null.
char* NewCopy(const char* text)
{
    if (!text)
        return nullptr;
    const std::size_t length = std::strlen(text);
    char* copy = new char[length + 1];
    // The stated size leaves out the terminator (deliberate, as on Windows);
    // the platform's copy decides what that means.
    ArgFormatPrivate::BoundedCopy(copy, length, text);
    return copy;
}

char* NewProgramName()
{
    char* name = new char[5];
    ArgFormatPrivate::BoundedCopy(name, 4, "zent");
    return name;
}

int CountArguments(const char* cmdLine, std::size_t length)
{
    int count = 0;
    std::size_t pos = 0;
    while (pos < length) {
        const std::size_t run = RunLength(cmdLine, pos);
        if (run == 0)
            break;
        ++count;
        pos += run + 1;
    }
    return count;
}

void CopyArguments(const char* cmdLine, std::size_t length, int argc, char** argv)
{
    std::size_t pos = 0;
    for (int index = 1; index < argc && pos < length; ++index) {
        const std::size_t run = RunLength(cmdLine, pos);
        if (run == 0)
            break;
        char* entry = new char[run + 1];
        std::memcpy(entry, cmdLine + pos, run);
        entry[run] = '\0';
        argv[index] = entry;
        if (pos + run >= length)
            break;
        pos += run + 1;
    }
}

void DeleteEntries(int argc, char** argv)
{
    for (int i = 0; i < argc; ++i)
        delete[] argv[i];
    delete[] argv;
}

} // namespace

void ArgFormat::CreateArgs(int& argc, char**& argv, const char* cmdLine)
{
    const char* text = cmdLine ? cmdLine : "";
    const std::size_t length = std::strlen(text);
    argc = CountArguments(text, length) + 1;
    argv = new char*[argc];
    // The vector never holds the real program's name.
    argv[0] = NewProgramName();
    CopyArguments(text, length, argc, argv);
}

void ArgFormat::CopyArgs(int argcIn, char** argvIn, int& argcOut, char**& argvOut)
{
    argcOut = argcIn;
    argvOut = new char*[argcIn];
    for (int i = 0; i < argcIn; ++i)
        argvOut[i] = NewCopy(argvIn[i]);
}

void ArgFormat::InsertArg(const char* sArg, int iPos, int& argc, char**& argv)
{
    _Q_assert(iPos != 0, SOURCE_NAME, 146);
    _Q_assert(iPos <= argc, SOURCE_NAME, 147);
    _Q_assert(sArg, SOURCE_NAME, 148);

    const int oldCount = argc;
    char** oldArgs = argv;
    argc = oldCount + 1;
    // One spare slot that is never written; value-initialised so that a
    // refused position leaves a null entry rather than garbage.
    char** newArgs = new char*[oldCount + 2]();
    int slot = 0;
    for (int k = 0; k < oldCount; ++k) {
        newArgs[slot++] = NewCopy(oldArgs[k]);
        if (k + 1 == iPos)
            newArgs[slot++] = NewCopy(sArg ? sArg : "");
    }
    DeleteEntries(oldCount, oldArgs);
    argv = newArgs;
}

std::string ArgFormat::GetCmdLine(int argc, char** argv)
{
    // ".exe" is appended even when the name already ends in it (deliberate).
    std::string line = argv && argv[0] ? argv[0] : "";
    line += ".exe";
    for (int i = 1; i < argc; ++i) {
        line += ' ';
        line += argv[i] ? argv[i] : "";
    }
    return line;
}

void ArgFormat::DeleteArgs(int& argc, char**& argv)
{
    DeleteEntries(argc, argv);
    argc = 0;
}
