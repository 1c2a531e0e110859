// Writes lines through Log for tst_log, in a process of its own:
//   zentlogwriter default TEXT        one line to the default log file
//   zentlogwriter FILE WRITER COUNT   COUNT numbered lines to FILE

#include "application/log.h"

#include <QString>

#include <cstdlib>
#include <cstring>

int main(int argc, char** argv)
{
    if (argc == 3 && std::strcmp(argv[1], "default") == 0) {
        Log::WriteLine(QString::fromLatin1(argv[2]));
        return 0;
    }
    if (argc != 4)
        return 2;
    Log::SetFileName(QString::fromLocal8Bit(argv[1]));
    const QString writer = QString::fromLatin1(argv[2]);
    const int count = std::atoi(argv[3]);
    // Long enough that a torn write would show as a broken line.
    const QString padding(100, QLatin1Char('x'));
    for (int line = 0; line < count; ++line)
        Log::WriteLine(QStringLiteral("writer %1 line %2 %3").arg(writer).arg(line).arg(padding));
    return 0;
}
