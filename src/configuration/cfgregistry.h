/// \file
/// CfgRegistry: the registry configuration backend.
#ifndef CONFIGURATION_CFGREGISTRY_H
#define CONFIGURATION_CFGREGISTRY_H

#include "configuration/cfg.h"
#include "winreg/winreg.h"
#include "zentappstartup_export.h"

/// A configuration kept in the registry instead of an XML file.
///
/// One object stands for one key below "SOFTWARE\Velkor&Amsel\Zent\": the
/// user view under HKEY_CURRENT_USER, the machine, domain and system views
/// under HKEY_LOCAL_MACHINE, with the same relative path. Sub-configurations
/// are sub-keys, values are registry values (integers as REG_DWORD, strings
/// and booleans as REG_SZ). The registry has no room for declared types or
/// protection flags: the type follows from the registry type, and a value is
/// protected when it exists in the user key.
///
/// Keys are opened on first use and created on the first write; reads of a
/// missing key or value give the caller's default and create nothing.
class ZENTAPPSTARTUP_EXPORT CfgRegistry : public Cfg
{
public:
    CfgRegistry(const CfgRegistry&) = delete;
    CfgRegistry& operator=(const CfgRegistry&) = delete;
    ~CfgRegistry() override;

    QString GetType() override;
    /// The registry path of this configuration, below the hive.
    QString GetTarget() override;
    /// A new object for `name` below this one ("/" may separate components);
    /// no registry access. The caller owns it.
    ICfg* CreateSubCfg(QString name, View view = VIEW_Current) const override;
    /// Creates the sub-key `name`; false while this configuration's own key does not exist.
    bool AddSubCfg(QString name, View view = VIEW_Current) override;
    bool HasSubCfg(QString name, View view = VIEW_Current) override;
    /// True for a string (up to 499 characters) or an integer `name`; the first argument is ignored.
    bool HasAttribute(QString key, QString name, View view = VIEW_Current) override;
    bool RemoveAttribute(QString name, View view = VIEW_Current) override;
    /// Deletes the sub-key `name`. Its sub-keys are cleared by a walk over the
    /// sub-keys of this key that skips every second one; see the source.
    bool RemoveSubCfg(QString name, View view = VIEW_Current) override;
    /// Not supported by the registry: returns false.
    bool RenameAttribute(QString oldName, QString newName, View view = VIEW_Current) override;
    /// Not supported by the registry: returns false.
    bool MoveSubCfg(QString from, QString to, View view = VIEW_Current) override;
    /// True only for VIEW_User itself (VIEW_Current is not resolved) when the user key holds `name`.
    bool IsProtected(QString name, View view = VIEW_Current) override;
    /// TYPE_Integer for REG_DWORD, TYPE_String for any other registry type, TYPE_Undefined when absent.
    AttributeType GetAttributeType(QString name, View view = VIEW_Current) override;
    /// Changes nothing; reports that the registry fixes the protection.
    void SetProtected(QString name, bool isProtected, View view = VIEW_Current) override;
    /// Changes nothing; reports that the registry fixes the type.
    void SetAttributeType(QString name, AttributeType type, View view = VIEW_Current) override;

    /// The registry needs no opening.
    void OpenDocument(bool restoreAllowed) override;
    /// Not supported by the registry: throws KVException.
    void SetUserViewSubkey(const QString& subkey) override;
    /// Not supported by the registry: throws KVException.
    void SetAdditionalUserViewSubkey(const std::list<QString>& subkeys) override;
    /// Not supported by the registry: throws KVException.
    std::list<QString> GetAdditionalUserViewSubkey() override;
    /// Not supported by the registry: throws KVException.
    void SaveConfigurationName(const QString& name) override;
    /// Not supported by the registry: throws KVException.
    void RenameConfigurationName(const QString& from, const QString& to) override;
    /// Not supported by the registry: throws KVException.
    void DeleteConfigurationName(const QString& name) override;
    /// Not supported by the registry: throws KVException.
    void LoadConfigurationName(const QString& name) override;
    /// Not implemented for the registry: returns a fixed placeholder text.
    QByteArray GetCfgAsStringFromApp(const QString& appKey) override;
    /// Not supported by the registry: throws KVException.
    void MergeCfgFromStringAndApp(const QByteArray& bytes, const QString& appKey) override;

protected:
    /// `path` is the configuration path ("/" or "\" separated) below the
    /// registry root; no registry access happens here.
    CfgRegistry(QString path, ICfg::View view, QString other);

    /// The registry needs no saving.
    void SaveDocument() override;

    /// Strings longer than 499 characters do not fit the read buffer and give `defaultValue`.
    QString GetStringImpl(QString name, QString defaultValue, View view) override;
    /// Reads a REG_DWORD; a value of any other registry type gives `defaultValue`.
    long GetIntegerImpl(QString name, long defaultValue, View view) override;
    /// Writes a REG_SZ, creating the key; throws KVException when the registry refuses.
    void SetStringImpl(QString name, QString value, View view) override;
    /// Writes a REG_DWORD, creating the key; throws KVException when the registry refuses.
    void SetIntegerImpl(QString name, long value, View view) override;
    /// Writes "true" or "false" as a string.
    void SetBooleanImpl(QString name, bool value, View view) override;
    /// Sub-keys in the registry's enumeration order.
    ICfg* CreateSubCfgAtImpl(int index, View view) override;
    /// Values in the registry's enumeration order.
    QString GetValueKeyAtImpl(int index, View view) override;
    QString GetVersion() override;

private:
    HKEY GetHandle(View view);
    HKEY CreateHandle(View view);
    bool DeleteSubsItems(HKEY key);
    [[noreturn]] void ThrowNotSupported(const char* operation, int line) const;

    QString m_sKeyPath;
    HKEY m_hUserKey;
    HKEY m_hMachineKey;
    QString m_sOther;

    friend class CfgCenter;
};

#endif
