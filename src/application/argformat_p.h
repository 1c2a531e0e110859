#ifndef APPLICATION_ARGFORMAT_P_H
#define APPLICATION_ARGFORMAT_P_H

#include <cstddef>

namespace ArgFormatPrivate {

/// The bounded copy of an argument into its freshly allocated buffer.
/// `statedSize` is the size the callers state: the text's length without its
/// terminator, one less than the buffer they allocated. What a platform does
/// with that short size is decided in its own file.
void BoundedCopy(char* dest, std::size_t statedSize, const char* src);

} // namespace ArgFormatPrivate

#endif
