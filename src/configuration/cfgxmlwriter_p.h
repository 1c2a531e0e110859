#ifndef CONFIGURATION_CFGXMLWRITER_P_H
#define CONFIGURATION_CFGXMLWRITER_P_H

#include "configuration/cfgxmltree_p.h"

#include <QByteArray>
#include <vector>

/// Writes configuration documents: the bytes Qt's DOM writes with an indent
/// for the same tree, with every element's attributes sorted by name, so that
/// the saved bytes depend on the content alone.
namespace CfgXmlWriter {

/// The document in UTF-8 (Qt's DOM layout with `indent`, attributes sorted),
/// written as if the nodes `leftOut` were not in it.
QByteArray Serialise(const CfgXmlTree& tree, int indent, const std::vector<CfgXmlTree::Node>& leftOut = {});

} // namespace CfgXmlWriter

#endif
