/// \file
/// ICfg: the interface of every configuration node.
#ifndef CONFIGURATION_ICFG_H
#define CONFIGURATION_ICFG_H

#include "zentappstartup_export.h"

#include <QByteArray>
#include <QString>
#include <list>

/// One node of a hierarchical configuration: a document's root or any
/// sub-configuration below it, seen in one of several parallel views.
///
/// The order of the virtual operations is binary interface: plug-in libraries
/// compiled against this header call through the table, so operations are
/// never reordered, inserted or removed. Every operation that takes a view
/// accepts VIEW_Current, which stands for the object's selected view.
class ZENTAPPSTARTUP_EXPORT ICfg
{
public:
    /// The views of a document; the numbers are stored and compared as numbers.
    enum View : qint32
    {
        /// The object's selected view; never a view of its own.
        VIEW_Current = 0,
        /// "User": the view that can be partitioned per login user and
        /// named configuration.
        VIEW_User = 1,
        /// "Machine": its values are masked by those of the user and domain views.
        VIEW_Machine = 2,
        /// "Domain".
        VIEW_Domain = 3,
        /// "System".
        VIEW_System = 4,
        /// "Export": in XML documents kept in a side file in the data directory.
        VIEW_Export = 5
    };

    /// The declared type of a value.
    enum AttributeType : qint32
    {
        /// Free text.
        TYPE_String = 0,
        /// "true" or "false".
        TYPE_Boolean = 1,
        /// A 32-bit signed integer.
        TYPE_Integer = 2,
        /// No value, or an empty one.
        TYPE_Undefined = 3
    };

    /// An interface has no state of its own.
    ICfg() = default;
    /// Copies nothing; derived classes copy their own state.
    ICfg(const ICfg&) = default;
    /// Assigns nothing; derived classes assign their own state.
    ICfg& operator=(const ICfg&) = default;

    /// Deleting an object frees a sub-configuration made by CreateSubCfg/CreateSubCfgAt.
    virtual ~ICfg();

    /// The node's full path from the document root, backslash-separated.
    virtual QString GetKey() = 0;
    /// The backend's name: "Xml" or "Registry".
    virtual QString GetType() = 0;
    /// Where the backend keeps the document (the file name for XML).
    virtual QString GetTarget() = 0;
    /// The last component of the key (after its last backslash).
    virtual QString GetPartialKey();
    /// The first component of the key; "Configuration Service" for an empty key.
    virtual QString GetAppKey();
    /// A new object for the sub-configuration `key` below this node, or null
    /// when it does not exist. The caller owns it.
    virtual ICfg* CreateSubCfg(QString key, View view = VIEW_Current) const = 0;
    /// A new object for the sub-configuration at `index` (document order), or
    /// null past the last one. The caller owns it.
    virtual ICfg* CreateSubCfgAt(int index, View view = VIEW_Current) = 0;
    /// Selects the view that VIEW_Current stands for; VIEW_Current itself changes nothing.
    virtual void SelectView(View view) = 0;
    /// Creates the sub-configuration `key` below this node, with any missing
    /// parents; an existing one is left as it is. True when it exists afterwards.
    virtual bool AddSubCfg(QString key, View view = VIEW_Current) = 0;
    /// True when the sub-configuration `key` exists below this node.
    virtual bool HasSubCfg(QString key, View view = VIEW_Current) = 0;
    /// True when the node `key` (relative to this one) has a value `name`.
    virtual bool HasAttribute(QString key, QString name, View view = VIEW_Current) = 0;
    /// Removes the value `name`; false when there was none.
    virtual bool RemoveAttribute(QString name, View view = VIEW_Current) = 0;
    /// Removes the sub-configuration `key` with everything below it; false
    /// when there was none.
    virtual bool RemoveSubCfg(QString key, View view = VIEW_Current) = 0;
    /// Renames the value `oldName` to `newName`; false when nothing was renamed.
    virtual bool RenameAttribute(QString oldName, QString newName, View view = VIEW_Current) = 0;
    /// Moves the sub-configuration `from` with its contents to `to` (both
    /// relative to this node); false when nothing was moved.
    virtual bool MoveSubCfg(QString from, QString to, View view = VIEW_Current) = 0;
    /// True when the value `name` is marked protected.
    virtual bool IsProtected(QString name, View view = VIEW_Current) = 0;
    /// The declared type of the value `name`; TYPE_Undefined when it is
    /// absent or empty.
    virtual AttributeType GetAttributeType(QString name, View view = VIEW_Current) = 0;
    /// The stored text, or `defaultValue` when the value is absent.
    virtual QString GetString(QString name, QString defaultValue, View view = VIEW_Current) = 0;
    /// The stored integer (32-bit), or `defaultValue` when absent or not a number.
    virtual long GetInteger(QString name, long defaultValue, View view = VIEW_Current) = 0;
    /// A stored integer is true when non-zero; a stored text is true when it
    /// contains "true" in any case (so "untrue" is true and "yes" false, a
    /// lenient test on purpose); `defaultValue` when absent.
    virtual bool GetBoolean(QString name, bool defaultValue, View view = VIEW_Current) = 0;
    /// Marks the value `name` protected or not.
    virtual void SetProtected(QString name, bool isProtected, View view = VIEW_Current) = 0;
    /// Declares the type of the value `name`.
    virtual void SetAttributeType(QString name, AttributeType type, View view = VIEW_Current) = 0;
    /// Writes the text value `name`, creating it (and its node) when missing.
    /// Neither protection nor writability is checked.
    virtual void SetString(QString name, QString value, View view = VIEW_Current) = 0;
    /// Writes the integer value `name`; only the lower 32 bits are kept.
    virtual void SetInteger(QString name, long value, View view = VIEW_Current) = 0;
    /// Writes the boolean value `name` ("true" or "false").
    virtual void SetBoolean(QString name, bool value, View view = VIEW_Current) = 0;
    /// The name of the value at `index` (document order); empty past the last one.
    virtual QString GetValueKeyAt(int index, View view = VIEW_Current) = 0;

protected:
    /// Whether a text value may be written in `view` without being masked by
    /// another view (see Cfg for the rule).
    virtual bool IsStringWritable(QString name, View view = VIEW_Current) = 0;
    /// Whether an integer value may be written in `view` without being masked
    /// by another view.
    virtual bool IsIntegerWritable(QString name, View view = VIEW_Current) = 0;
    /// Whether a boolean value may be written in `view` without being masked
    /// by another view.
    virtual bool IsBooleanWritable(QString name, View view = VIEW_Current) = 0;
    /// Writes the document to its store; reached through the configuration
    /// centre and the configuration commands.
    virtual void SaveDocument() = 0;

public:
    /// Opens the document; `restoreAllowed` permits falling back to a backup.
    virtual void OpenDocument(bool restoreAllowed) = 0;
    /// Releases the document; unsaved changes are lost.
    virtual void CloseDocument() = 0;
    /// Sets a damaged document aside and puts its backup in its place.
    virtual void RestoreBackup() = 0;
    /// The backup's file name when a backup of `name` exists, else empty.
    virtual QString GetBackupDocumentName(const char* name) = 0;
    /// Partitions the user view by login user: from now on user-view accesses
    /// of every document go to the partition `subkey` (spaces become ".", a
    /// leading digit gets a "_" in front). The user's last named configuration
    /// becomes active again; process-wide.
    virtual void SetUserViewSubkey(const QString& subkey) = 0;
    /// Sets the additional partitions of the user view below the login user's,
    /// outermost first; process-wide.
    virtual void SetAdditionalUserViewSubkey(const std::list<QString>& subkeys) = 0;
    /// The additional partitions of the user view, outermost first; the
    /// active named configuration, when there is one, stands at the front.
    virtual std::list<QString> GetAdditionalUserViewSubkey() = 0;
    /// Creates the named user configuration `name` when missing, makes it
    /// active and saves the document. User-view accesses then go into it.
    virtual void SaveConfigurationName(const QString& name) = 0;
    /// Renames the named user configuration `from` to `to`; an active one stays active.
    virtual void RenameConfigurationName(const QString& from, const QString& to) = 0;
    /// Marks the named user configuration `name` deleted, saves the document
    /// so that listeners see the mark, then removes it.
    virtual void DeleteConfigurationName(const QString& name) = 0;
    /// Makes the existing named user configuration `name` active and has the
    /// configuration centre reload the user configuration; an unknown name
    /// changes nothing.
    virtual void LoadConfigurationName(const QString& name) = 0;
    /// The names of the login user's named configurations, in document order.
    /// This default returns an empty list.
    virtual std::list<QString> GetUserConfigurations();
    /// The login users that have a partition of the user view, in document
    /// order. This default returns an empty list.
    virtual std::list<QString> GetUsers();
    /// Removes the partition of the login user `name`. This default does nothing.
    virtual void DeleteUser(const QString& name);
    /// The active named user configuration (the spelling of the name is fixed);
    /// empty when there is none. This default returns an empty string.
    virtual QString GetActiveUserConfiguraton();
    /// True while a named user configuration is active. This default returns false.
    virtual bool UsingUserConfiguration() const;
    /// The sub-tree of one application key as bytes, for another application.
    virtual QByteArray GetCfgAsStringFromApp(const QString& appKey) = 0;
    /// Merges bytes made by GetCfgAsStringFromApp into this document.
    virtual void MergeCfgFromStringAndApp(const QByteArray& bytes, const QString& appKey) = 0;

    /// "string", "boolean", "integer", "undefined"; "something_wrong" for other values.
    static QString GetTypeAsString(AttributeType type);
    /// "User", "Machine", "Domain", "System", "Export"; "something_wrong" for other values.
    static QString GetViewAsString(View view);

    // Saving is reserved to the owners of documents.
    friend class CfgCenter;
    friend class CfgCopy;
    friend class CfgDelete;
};

#endif
