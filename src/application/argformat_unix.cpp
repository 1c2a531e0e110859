#include "application/argformat_p.h"

namespace ArgFormatPrivate {

// The Windows runtime rejects the one-short size, empties the entry and, by
// default, ends the process. Here the buffer's real size (statedSize + 1) is
// used, so the copy is complete and the vectors hold what they were built from.
void BoundedCopy(char* dest, std::size_t statedSize, const char* src)
{
    const std::size_t bufferSize = statedSize + 1;
    std::size_t i = 0;
    for (; i + 1 < bufferSize && src[i] != '\0'; ++i)
        dest[i] = src[i];
    dest[i] = '\0';
}

} // namespace ArgFormatPrivate
