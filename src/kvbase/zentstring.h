/// \file
/// Text helpers of the base library.
#ifndef KVBASE_ZENTSTRING_H
#define KVBASE_ZENTSTRING_H

#include "kvbase/kvbase_export.h"

#include <QString>

/// Free helpers of the product family.
namespace Zent {

/// True when every character of `text` is 7-bit ASCII (an empty text is ASCII).
KVBASE_EXPORT bool isAsciiString(const QString& text);

} // namespace Zent

#endif
