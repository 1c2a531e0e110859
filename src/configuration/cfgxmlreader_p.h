#ifndef CONFIGURATION_CFGXMLREADER_P_H
#define CONFIGURATION_CFGXMLREADER_P_H

#include <QByteArray>
#include <QDomDocument>

/// Reads configuration documents into a DOM much faster than Qt's parser,
/// which spends most of an open on its general machinery.
namespace CfgXmlReader {

/// Reads `bytes` into `document` when they are a plain document whose tree
/// is certain: UTF-8, an optional standard declaration and document type, one
/// root element nested no deeper than `maxDepth`, elements and attributes
/// with ASCII names, text with the predefined and character references, and
/// comments inside the root. The tree is the one Qt's parser would build.
/// Returns false, leaving `document` untouched, for anything else: such bytes
/// go to Qt's parser, which then decides and explains.
bool ReadPlain(const QByteArray& bytes, int maxDepth, QDomDocument& document);

} // namespace CfgXmlReader

#endif
