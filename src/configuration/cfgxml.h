/// \file
/// CfgXml: the XML configuration backend.
#ifndef CONFIGURATION_CFGXML_H
#define CONFIGURATION_CFGXML_H

#include "configuration/cfg.h"
#include "zentappstartup_export.h"

#include <QDomElement>
#include <QStringList>
#include <memory>

struct CfgXmlData;
class CfgXmlTree;

/// The XML configuration backend: a whole document kept in memory in a
/// compact tree of its own and written back with a crash-safe file rotation.
///
/// The main file F holds the System, Domain and Machine views. With the
/// configuration centre's usage 0 or 4 the User view lives in a side file
/// beside F (Cfg.xml gives Cfg.usr.xml) and the Export view in a side file in
/// the data directory (the machine value `Administration\TalvoDataDir`, else the
/// current directory). Every element carries a time stamp "ts" that grows when
/// its value changes.
///
/// Saving writes F.temp, flushes it to disk, then renames F to F.bak.temp,
/// F.temp to F and F.bak.temp to F.bak, and syncs the folder. Opening first
/// completes a rotation that a crash interrupted while F was missing, then
/// restores F from F.bak when F is missing or cannot be parsed. An empty
/// backup is never restored over a document. Saving bytes equal to the last
/// written ones writes nothing; a document unchanged since its last save is
/// not even serialised again.
///
/// Every public operation holds the configuration centre's mutex; reads may
/// add missing time stamps, so even reads need it when several threads share
/// a document.
///
/// Decisions on points the format leaves open:
/// - A write is stored as given or refused, never dropped or altered: SetString,
///   SetInteger and SetBoolean (SetProtected and SetAttributeType for the
///   name) throw KVException (class "CfgXml", the
///   setter's name as operation) when a component of the name cannot be an
///   XML element name ("has space", "1st", "a/b", an empty name after a
///   backslash; also a component of the object's key or, in the user view, a
///   user partition's name) or when the text holds a character that XML 1.0 cannot carry
///   (control characters other than tab, line feed and carriage return,
///   U+FFFE, U+FFFF, unpaired surrogates). AddSubCfg returns false and
///   CreateSubCfg null for such a name (an empty one too, for AddSubCfg),
///   each with a trace naming it. SaveConfigurationName and
///   RenameConfigurationName throw for a name that cannot follow "UC___" in
///   an element name ("my settings"), before anything changes.
/// - A value name may be a relative path (`Sub\Name`); the value then lives
///   in that sub-configuration.
/// - Lookups by name (HasAttribute, RemoveAttribute, RenameAttribute, the
///   getters and setters) find the first child element of that name, value
///   or not; only the enumerations tell values from sub-configurations.
/// - RenameAttribute onto an existing name, MoveSubCfg onto an existing
///   target or into its own sub-tree, and names that are not valid XML
///   element names change nothing and return false.
/// - When F is missing and the selected view is VIEW_User, no main file is
///   created: the document is built from the user template and the user side
///   file, and the first save writes F.
/// - Side files are written only in usages 0 and 4; the export side file is
///   read only in these, the user side file in every usage; neither unless
///   SuppressSideFiles() was called. A save stops with KVException before
///   its rotation when the file or one of its ".temp", ".bak", ".bak.temp"
///   names is something other than a regular file (a folder, a link). When a side file does not exist, the
///   view found in the main file (an older one-file document) is kept. An emptied view is written as the
///   template only when its side file exists.
/// - An unparsable side file is reported, set aside as ".corrupt." like the
///   main file and replaced by its ".bak" when that parses; otherwise the view
///   starts from its template.
/// - GetCfgAsStringFromApp exchanges the element of the application key in
///   each of the views System, Domain, Machine, User and Export (the plain
///   User view, not a user partition). MergeCfgFromStringAndApp merges those
///   sub-trees: missing elements are copied, values take the incoming text and
///   their "type" and "protected" attributes (a changed text advances its
///   stamp), sub-configurations are merged recursively, and nothing the bytes
///   do not mention is removed. Unparsable bytes change nothing: they are
///   written with the parser's diagnosis to `Invalid_cfg_from_<appKey>_<n>.xml`
///   beside F and a trace names that file.
/// - Attributes are written sorted by name, so that the saved bytes depend on
///   the content alone and not on the process that saved them.
/// - Files larger than 256 MiB, documents nested deeper than 1000 levels and
///   documents that declare entities are treated as parse errors.
class ZENTAPPSTARTUP_EXPORT CfgXml : public Cfg
{
public:
    static const QString VERSION_TAG;    ///< "version"
    static const QString TIME_STAMP_KEY; ///< "ts"
    /// Spaces per level in written files.
    static const int XML_INDENT = 4;
    /// The content of a new main file.
    static const QString s_sEmptyFile;

    static const QString NODE_TYPE;          ///< "nodeType"
    static const QString LOGIN_USER;         ///< "loginUser"
    static const QString ADD_SUB_KEY;        ///< "addSubKey"
    static const QString SUBKEY_CONTAINER;   ///< "xyZ9Subkey1Zxy"
    static const QString PROTECTED;          ///< "protected"
    static const QString TYPE;               ///< "type"
    static const QString BUILD;              ///< "build"
    static const QString ACTIVE;             ///< "active"
    static const QString DELETE_MARK;        ///< "delete"
    static const QString USER_CONFIGURATION; ///< "UserConfiguration"
    static const QString ACTIVE_USER;        ///< "ActiveUser"
    static const QString UC_PREFIX;          ///< "UC___"

    /// Set when an opened document has the machine sub-configuration "Login";
    /// never cleared by opening.
    static bool s_isLoginInstalled;

    /// Modes of SetTimeStamp.
    enum TimeStampMode
    {
        TS_IfMissing = 0,
        TS_Remove = 1,
        TS_Advance = 2
    };

    /// A root document in `fileName` ("Cfg.xml" when empty).
    CfgXml(QString fileName, QString key, View view);
    /// A sub-configuration sharing `parent`'s document and file name.
    CfgXml(const CfgXml* parent, QString key, View view);
    ~CfgXml() override;

    QString GetType() override;
    /// The main file's name.
    QString GetTarget() override;
    ICfg* CreateSubCfg(QString key, View view = VIEW_Current) const override;
    bool AddSubCfg(QString key, View view = VIEW_Current) override;
    bool HasSubCfg(QString key, View view = VIEW_Current) override;
    bool HasAttribute(QString key, QString name, View view = VIEW_Current) override;
    bool RemoveAttribute(QString name, View view = VIEW_Current) override;
    bool RemoveSubCfg(QString key, View view = VIEW_Current) override;
    bool RenameAttribute(QString oldName, QString newName, View view = VIEW_Current) override;
    /// Moves the sub-configuration `from` to the path `to` (its new name is the
    /// last component); missing parents of `to` are created.
    bool MoveSubCfg(QString from, QString to, View view = VIEW_Current) override;
    bool IsProtected(QString name, View view = VIEW_Current) override;
    /// The "type" attribute; without one the type is derived from the text and
    /// written back ("true"/"false" boolean, other text string).
    AttributeType GetAttributeType(QString name, View view = VIEW_Current) override;
    void SetProtected(QString name, bool isProtected, View view = VIEW_Current) override;
    void SetAttributeType(QString name, AttributeType type, View view = VIEW_Current) override;

    /// Opens F (see the class comment); throws KVException on a document that
    /// cannot be used.
    void OpenDocument(bool restoreAllowed) override;
    void CloseDocument() override;
    /// Sets F aside as `F.corrupt.<UTC time>` and writes F.bak's bytes to F.
    void RestoreBackup() override;
    QString GetBackupDocumentName(const char* name) override;

    /// Selects the login user's partition and walks to the application's node
    /// in it (creating the partition), so an open document needs the
    /// configuration centre's application configuration for its name.
    void SetUserViewSubkey(const QString& subkey) override;
    /// With a user selected, creates the partitions of the list below the
    /// user's element and marks existing elements of their names as
    /// partitions; other partitions stay.
    void SetAdditionalUserViewSubkey(const std::list<QString>& subkeys) override;
    std::list<QString> GetAdditionalUserViewSubkey() override;
    void SaveConfigurationName(const QString& name) override;
    void RenameConfigurationName(const QString& from, const QString& to) override;
    /// Saves the configuration marked "delete", then removes it; the list of
    /// partitions is not changed.
    void DeleteConfigurationName(const QString& name) override;
    void LoadConfigurationName(const QString& name) override;
    std::list<QString> GetUserConfigurations() override;
    std::list<QString> GetUsers() override;
    void DeleteUser(const QString& name) override;
    QString GetActiveUserConfiguraton() override;
    bool UsingUserConfiguration() const override;

    QByteArray GetCfgAsStringFromApp(const QString& appKey) override;
    void MergeCfgFromStringAndApp(const QByteArray& bytes, const QString& appKey) override;

    /// Keeps the user and export views in the main document and skips the side
    /// files (documents not created by the configuration centre).
    void SuppressSideFiles(bool suppress);
    /// The user side file's name; empty when F has no extension.
    QString GetUserSideFileName() const;
    /// The export side file's name in the data directory; empty when F has no extension.
    QString GetExportSideFileName() const;

    /// Types every protected element without "type" in the views User,
    /// Domain, System and Machine from its text.
    void AssignDefaults();

    /// Stamps `node` (the parent element of a text node) with `mode`; with
    /// `recursive` every element below as well. Throws KVException for an
    /// unknown mode. Does nothing while stamping is switched off.
    static void SetTimeStamp(QDomNode node, int mode, bool recursive);
    /// The process-wide switch of time stamps (on by default).
    static void SetTimeStampsEnabled(bool enabled);
    /// Whether time stamps are written (see SetTimeStampsEnabled).
    static bool AreTimeStampsEnabled();

    /// Deep-copies the children of `source` into `target` and returns `target`.
    static QDomElement RecursiveClone(const QDomElement& source, QDomElement target);

protected:
    void SaveDocument() override;

    QString GetStringImpl(QString name, QString defaultValue, View view) override;
    long GetIntegerImpl(QString name, long defaultValue, View view) override;
    void SetStringImpl(QString name, QString value, View view) override;
    void SetIntegerImpl(QString name, long value, View view) override;
    void SetBooleanImpl(QString name, bool value, View view) override;
    ICfg* CreateSubCfgAtImpl(int index, View view) override;
    QString GetValueKeyAtImpl(int index, View view) override;
    QString GetVersion() override;

private:
    /// A node of the document tree (CfgXmlTree::Node).
    using TreeNode = quint32;

    struct SideView
    {
        TreeNode element;
        QString fileName;
    };

    CfgXmlTree* Document() const;
    TreeNode GetNode(QStringView path, View view, bool create) const;
    TreeNode ViewElement(TreeNode root, View view) const;
    TreeNode UserPartition(TreeNode user) const;
    TreeNode ChildForWalk(TreeNode parent, QStringView name, bool create) const;
    [[noreturn]] void FailWalk(const QString& problem, int line) const;
    TreeNode FindValue(const QString& name, View view, bool create) const;
    TreeNode FindValueToRead(const QString& name, View view) const;
    void WriteValueText(TreeNode node, TreeNode element, const QString& value);
    TreeNode SetStringImplPrivate(const QString& name, const QString& value, View view,
                                  const QString& operation);
    void SetValueAndType(const QString& name, const QString& value, const QString& type, View view,
                         const QString& operation);
    bool FindInvalidNodeName(View view, QString* invalid) const;
    void Stamp(TreeNode node, int mode, bool recursive) const;
    void StampSubTree(TreeNode node) const;
    void AdvanceStamp(TreeNode node) const;

    void OpenUserOnlyDocument();
    void HandleMissingFile();
    QByteArray ReadOrCreateFile(bool existed, QString* unreadable);
    bool ParseMainFile(const QByteArray& bytes, const QString& unreadable, bool restoreAllowed);
    void ValidateViews(TreeNode root);
    void GraftSideView(const QString& viewName, const QString& fileName, const char* emptyTemplate);
    TreeNode ReadSideView(const QString& fileName, const QString& viewName, const char* emptyTemplate);
    bool UsesSideFiles() const;
    QString SideFileName(const QString& tag) const;
    QString DataDirectory() const;

    std::list<SideView> SideViews() const;
    bool WriteSideView(const SideView& view, const QString& viewName);
    static bool RotationFindsOnlyFiles(const QString& fileName);
    bool IsSavedUnchanged() const;
    void RememberSaved();

    TreeNode UserElement();
    TreeNode LoginUserElement();
    void DropActiveConfiguration();
    static void CheckConfigurationName(const QString& name, const QString& operation);
    void SaveThroughCentre();

    std::shared_ptr<CfgXmlData> m_pData;
    QString m_sFileName;
    bool m_bNoSideFiles;
    QStringList m_keyParts;

    static QByteArray s_sBackupString;
    static QByteArray s_sBackupExport;
    static QString s_Version;
    static QString s_sUserSubkey;
    static std::list<QString> s_addtionalSubkeys;
    static QString s_sLastConfiguration;
};

#endif
