/// \file
/// Cfg: the common base of the configuration backends.
#ifndef CONFIGURATION_CFG_H
#define CONFIGURATION_CFG_H

#include "configuration/icfg.h"
#include "zentappstartup_export.h"

/// The common base of the configuration backends.
///
/// Cfg keeps the node's key and selected view, takes the configuration
/// centre's recursive mutex around every public operation (unlocked while the
/// centre has none), resolves VIEW_Current to the selected view and builds the
/// typed getters on a small set of backend primitives. The primitives never
/// lock and never receive VIEW_Current.
///
/// Configuration integers are 32-bit signed on every platform; `long` stays in
/// the signatures for the plug-ins' sake, and values beyond 32 bits are cut to
/// their lower 32 bits when written.
class ZENTAPPSTARTUP_EXPORT Cfg : public ICfg
{
public:
    /// The document version "2.0"; versions compare as strings.
    static const QString VERSION_2_0;
    /// The document version "2.1"; versions compare as strings.
    static const QString VERSION_2_1;
    /// The document version "2.2"; versions compare as strings.
    static const QString VERSION_2_2;
    /// The document version "2.3"; versions compare as strings.
    static const QString VERSION_2_3;
    /// The document version "2.4"; versions compare as strings.
    static const QString VERSION_2_4;

    /// `view` is a real view (1 to 5). The third argument lets backends pass a
    /// descriptive extra through their own constructors; Cfg does not keep it.
    Cfg(const QString& key, View view, const QString& other = QString());
    /// Copies key and selected view.
    Cfg(const Cfg& other);
    /// Copies key and selected view.
    Cfg& operator=(const Cfg& other);
    ~Cfg() override;

    QString GetKey() override;
    ICfg* CreateSubCfgAt(int index, View view = VIEW_Current) override;
    void SelectView(View view) override;
    QString GetString(QString name, QString defaultValue, View view = VIEW_Current) override;
    long GetInteger(QString name, long defaultValue, View view = VIEW_Current) override;
    bool GetBoolean(QString name, bool defaultValue, View view = VIEW_Current) override;
    void SetString(QString name, QString value, View view = VIEW_Current) override;
    void SetInteger(QString name, long value, View view = VIEW_Current) override;
    void SetBoolean(QString name, bool value, View view = VIEW_Current) override;
    QString GetValueKeyAt(int index, View view = VIEW_Current) override;

    /// Does nothing; file backends open their document here.
    void OpenDocument(bool restoreAllowed) override;
    /// Does nothing; file backends release their document here.
    void CloseDocument() override;
    /// Does nothing; file backends restore their backup here.
    void RestoreBackup() override;
    /// Always empty; file backends name their backup here.
    QString GetBackupDocumentName(const char* name) override;

protected:
    /// Writability, the same rule for all three types: the centre's document
    /// configuration is always writable; a machine value is masked by a value
    /// in the user or the domain view; a value in any other view is masked by
    /// a machine value. System and export values never mask the machine view.
    bool IsStringWritable(QString name, View view = VIEW_Current) override;
    bool IsIntegerWritable(QString name, View view = VIEW_Current) override;
    bool IsBooleanWritable(QString name, View view = VIEW_Current) override;
    /// The part every backend runs: writes the computer's name as "name" into
    /// the centre's document configuration; does nothing when there is none.
    void SaveDocument() override;

    /// Backend primitive of GetString: the stored text of `name` in `view`, or
    /// `defaultValue` when absent. Runs under the caller's lock.
    virtual QString GetStringImpl(QString name, QString defaultValue, View view) = 0;
    /// Backend primitive of GetInteger: the stored integer of `name` in
    /// `view`, or `defaultValue` when absent or not a number.
    virtual long GetIntegerImpl(QString name, long defaultValue, View view) = 0;
    /// Backend primitive of SetString: writes the text `value` as `name` in `view`.
    virtual void SetStringImpl(QString name, QString value, View view) = 0;
    /// Backend primitive of SetInteger: writes the integer `value` as `name` in `view`.
    virtual void SetIntegerImpl(QString name, long value, View view) = 0;
    /// Backend primitive of SetBoolean: writes the boolean `value` as `name` in `view`.
    virtual void SetBooleanImpl(QString name, bool value, View view) = 0;
    /// Backend primitive of CreateSubCfgAt: a new object for the
    /// sub-configuration at `index` in `view`, or null past the last one.
    virtual ICfg* CreateSubCfgAtImpl(int index, View view) = 0;
    /// Backend primitive of GetValueKeyAt: the name of the value at `index`
    /// in `view`, or empty past the last one.
    virtual QString GetValueKeyAtImpl(int index, View view) = 0;
    /// The document's version text.
    virtual QString GetVersion() = 0;

    /// The selected view for VIEW_Current, else `view` itself.
    View ResolveView(View view) const { return view == VIEW_Current ? m_view : view; }
    /// The view VIEW_Current stands for.
    View GetSelectedView() const { return m_view; }

    /// Markers that tell an absent value from a stored one. A stored value
    /// equal to a marker reads as absent; that is accepted. This is the text
    /// marker, "#+uookjhuzr6cv342AXCUZ".
    static const QString NOT_FOUND_STRING;
    /// The integer marker, 0xAFAFAFAF as a signed 32-bit value.
    static constexpr long NOT_FOUND_INTEGER = -1347440721; // 0xAFAFAFAF as a signed 32-bit value

    /// The selected view; never VIEW_Current.
    View m_view;
    /// The node's full path from the document root, backslash-separated.
    QString m_sKey;

private:
    using Presence = bool (Cfg::*)(const QString& name, View view);
    bool IsWritable(const QString& name, View view, Presence isPresent);
    bool HasString(const QString& name, View view);
    bool HasInteger(const QString& name, View view);
    bool HasBoolean(const QString& name, View view);
};

#endif
