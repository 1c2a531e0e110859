#ifndef CONFIGURATION_CFGXMLREADER_P_H
#define CONFIGURATION_CFGXMLREADER_P_H

#include "configuration/cfgxmltree_p.h"

#include <QByteArray>
#include <limits>

/// Reads configuration documents into a CfgXmlTree at close to the speed of
/// copying their characters.
namespace CfgXmlReader {

/// Reads `bytes` into `document` when they are a plain document whose tree
/// is certain: UTF-8, an optional standard declaration and document type, one
/// root element nested no deeper than `maxDepth` with at most `maxElements`
/// elements, elements and attributes
/// with ASCII names, text with the predefined and character references, and
/// comments inside the root. The tree is the one Qt's parser would build.
/// Returns false, leaving `document` untouched, for anything else: such bytes
/// go to Qt's parser, which then decides and explains.
bool ReadPlain(const QByteArray& bytes, int maxDepth, CfgXmlTree& document,
               int maxElements = std::numeric_limits<int>::max());

} // namespace CfgXmlReader

#endif
