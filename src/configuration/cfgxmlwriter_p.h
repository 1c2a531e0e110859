#ifndef CONFIGURATION_CFGXMLWRITER_P_H
#define CONFIGURATION_CFGXMLWRITER_P_H

#include <QByteArray>
#include <QDomDocument>

/// Writes configuration documents: the bytes Qt's DOM writes with an indent,
/// with every element's attributes sorted by name, so that the saved bytes
/// depend on the content alone.
namespace CfgXmlWriter {

/// The document in UTF-8 (Qt's DOM writer with `indent`, attributes sorted).
QByteArray Serialise(const QDomDocument& document, int indent);

} // namespace CfgXmlWriter

#endif
