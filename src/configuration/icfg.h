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
        VIEW_Current = 0,
        VIEW_User = 1,
        VIEW_Machine = 2,
        VIEW_Domain = 3,
        VIEW_System = 4,
        VIEW_Export = 5
    };

    /// The declared type of a value.
    enum AttributeType : qint32
    {
        TYPE_String = 0,
        TYPE_Boolean = 1,
        TYPE_Integer = 2,
        TYPE_Undefined = 3
    };

    ICfg() = default;
    ICfg(const ICfg&) = default;
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
    virtual bool AddSubCfg(QString key, View view = VIEW_Current) = 0;
    virtual bool HasSubCfg(QString key, View view = VIEW_Current) = 0;
    /// True when the node `key` (relative to this one) has a value `name`.
    virtual bool HasAttribute(QString key, QString name, View view = VIEW_Current) = 0;
    /// Removes the value `name`.
    virtual bool RemoveAttribute(QString name, View view = VIEW_Current) = 0;
    virtual bool RemoveSubCfg(QString key, View view = VIEW_Current) = 0;
    /// Renames the value `oldName`.
    virtual bool RenameAttribute(QString oldName, QString newName, View view = VIEW_Current) = 0;
    virtual bool MoveSubCfg(QString from, QString to, View view = VIEW_Current) = 0;
    virtual bool IsProtected(QString name, View view = VIEW_Current) = 0;
    virtual AttributeType GetAttributeType(QString name, View view = VIEW_Current) = 0;
    /// The stored text, or `defaultValue` when the value is absent.
    virtual QString GetString(QString name, QString defaultValue, View view = VIEW_Current) = 0;
    /// The stored integer (32-bit), or `defaultValue` when absent or not a number.
    virtual long GetInteger(QString name, long defaultValue, View view = VIEW_Current) = 0;
    /// A stored integer is true when non-zero; a stored text is true when it
    /// contains "true" in any case; `defaultValue` when absent.
    virtual bool GetBoolean(QString name, bool defaultValue, View view = VIEW_Current) = 0;
    virtual void SetProtected(QString name, bool isProtected, View view = VIEW_Current) = 0;
    virtual void SetAttributeType(QString name, AttributeType type, View view = VIEW_Current) = 0;
    virtual void SetString(QString name, QString value, View view = VIEW_Current) = 0;
    virtual void SetInteger(QString name, long value, View view = VIEW_Current) = 0;
    virtual void SetBoolean(QString name, bool value, View view = VIEW_Current) = 0;
    /// The name of the value at `index` (document order); empty past the last one.
    virtual QString GetValueKeyAt(int index, View view = VIEW_Current) = 0;

protected:
    /// Whether a value may be written in `view` without being masked by
    /// another view (see Cfg for the rule).
    virtual bool IsStringWritable(QString name, View view = VIEW_Current) = 0;
    virtual bool IsIntegerWritable(QString name, View view = VIEW_Current) = 0;
    virtual bool IsBooleanWritable(QString name, View view = VIEW_Current) = 0;
    /// Writes the document to its store; reached through the configuration
    /// centre and the configuration commands.
    virtual void SaveDocument() = 0;

public:
    /// Opens the document; `restoreAllowed` permits falling back to a backup.
    virtual void OpenDocument(bool restoreAllowed) = 0;
    virtual void CloseDocument() = 0;
    /// Sets a damaged document aside and puts its backup in its place.
    virtual void RestoreBackup() = 0;
    /// The backup's file name when a backup of `name` exists, else empty.
    virtual QString GetBackupDocumentName(const char* name) = 0;
    virtual void SetUserViewSubkey(const QString& subkey) = 0;
    virtual void SetAdditionalUserViewSubkey(const std::list<QString>& subkeys) = 0;
    virtual std::list<QString> GetAdditionalUserViewSubkey() = 0;
    virtual void SaveConfigurationName(const QString& name) = 0;
    virtual void RenameConfigurationName(const QString& from, const QString& to) = 0;
    virtual void DeleteConfigurationName(const QString& name) = 0;
    virtual void LoadConfigurationName(const QString& name) = 0;
    virtual std::list<QString> GetUserConfigurations();
    virtual std::list<QString> GetUsers();
    virtual void DeleteUser(const QString& name);
    /// The active named user configuration (the spelling of the name is fixed).
    virtual QString GetActiveUserConfiguraton();
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
