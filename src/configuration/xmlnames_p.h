/// \file
/// XmlNames: which names and texts a configuration document can hold.
/// Internal to the product family (not installed): the backends share it so
/// that every backend refuses exactly what an XML document could not store,
/// with the same words.
#ifndef CONFIGURATION_XMLNAMES_P_H
#define CONFIGURATION_XMLNAMES_P_H

#include "zentappstartup_export.h"

#include <QString>

/// Checks of names and texts against what an XML document can carry, and the
/// messages that refuse them. Every configuration must be copyable between
/// the backends, so a backend that is not XML still refuses what XML cannot
/// hold.
///
/// A path is backslash-separated; components left empty by doubled
/// separators are skipped, as the backends' walks skip them. A value name is
/// a path ending in the value's own name ("Sub\Name"); an empty one is the
/// node's own text.
class ZENTAPPSTARTUP_EXPORT XmlNames
{
public:
    /// True when `name` can be an XML element name ("has space", "1st", "a/b"
    /// and "" cannot).
    static bool IsElementName(const QString& name);

    /// The position of the first character that XML 1.0 cannot carry
    /// (control characters other than tab, line feed and carriage return,
    /// U+FFFE, U+FFFF, unpaired surrogates); -1 when there is none.
    static int FirstNonXmlChar(const QString& text);

    /// The first component of `path` that cannot be an element name, in
    /// `invalid`; false when every component can.
    static bool FindInvalidComponent(const QString& path, QString* invalid);

    /// `<what> "<name>" was not stored: "<invalid>" cannot be an XML element name.`
    static QString NotAnElementName(const QString& what, const QString& name, const QString& invalid);

    /// `The sub-configuration "<key>" does not exist: "<invalid>" cannot be an
    /// XML element name.`
    static QString NoSuchSubConfiguration(const QString& key, const QString& invalid);

    /// Why the value `name` cannot be stored because of its name; a null
    /// string when its name can be written as elements.
    static QString RefusedValueName(const QString& name);

    /// Why the value `name` cannot be stored with the text `text`; a null
    /// string when XML can carry the text.
    static QString RefusedValueText(const QString& name, const QString& text);
};

#endif
