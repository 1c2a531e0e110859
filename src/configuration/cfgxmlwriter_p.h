#ifndef CONFIGURATION_CFGXMLWRITER_P_H
#define CONFIGURATION_CFGXMLWRITER_P_H

#include "configuration/cfgxmltree_p.h"

#include <QByteArray>

/// Writes configuration documents: the bytes Qt's DOM writes with an indent
/// for the same tree, with every element's attributes sorted by name, so that
/// the saved bytes depend on the content alone.
namespace CfgXmlWriter {

/// The document in UTF-8 (Qt's DOM layout with `indent`, attributes sorted).
QByteArray Serialise(const CfgXmlTree& tree, int indent);

} // namespace CfgXmlWriter

#endif
