#ifndef TESTS_CONFIGURATION_CFGXMLCRASHDOCUMENT_H
#define TESTS_CONFIGURATION_CFGXMLCRASHDOCUMENT_H

#include <QString>

/// The document that the crash test's helper saves over and over: a
/// generation number and items whose texts carry the same generation, so
/// that a document mixed from two saves shows.
namespace CrashDocument {

const QString KEY = QStringLiteral("CrashTest");
const QString GENERATION = QStringLiteral("Generation");
constexpr int ITEMS = 100;

inline QString ItemName(int item)
{
    return QStringLiteral("Item%1").arg(item, 3, 10, QLatin1Char('0'));
}

/// About 300 bytes, so that a save takes long enough to be hit.
inline QString ItemText(long generation, int item)
{
    return QStringLiteral("generation %1 item %2 ").arg(generation).arg(item) +
           QString(260, QLatin1Char('x'));
}

} // namespace CrashDocument

#endif
