#include "kvbase/zentstring.h"

#include <algorithm>

namespace Zent {

bool isAsciiString(const QString& text)
{
    return std::all_of(text.cbegin(), text.cend(), [](QChar c) { return c.unicode() < 0x80; });
}

} // namespace Zent
