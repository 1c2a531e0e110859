// Writes the arguments it received, one per line, to the file named by
// ZENT_ARGV_FILE: what a started program sees of its command line.
#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv)
{
    const char* fileName = std::getenv("ZENT_ARGV_FILE");
    if (!fileName)
        return 2;
    std::FILE* file = std::fopen(fileName, "w");
    if (!file)
        return 3;
    for (int i = 1; i < argc; ++i)
        std::fprintf(file, "%s\n", argv[i]);
    std::fclose(file);
    return 0;
}
