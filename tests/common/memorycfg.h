#ifndef TESTS_COMMON_MEMORYCFG_H
#define TESTS_COMMON_MEMORYCFG_H

#include "configuration/cfg.h"

#include <QMap>
#include <QStringList>
#include <functional>

/// A configuration backend in memory, for testing what Cfg adds on top of
/// the backend primitives. Values are texts per view, key and name; the
/// primitives record the views they receive.
class MemoryCfg : public Cfg
{
public:
    using Store = QMap<QString, QString>;

    MemoryCfg(const QString& key, View view, Store* store = nullptr)
        : Cfg(key, view), m_pStore(store ? store : &m_ownStore)
    {
    }

    // The protected parts, opened for tests.
    using Cfg::GetSelectedView;
    using Cfg::IsBooleanWritable;
    using Cfg::IsIntegerWritable;
    using Cfg::IsStringWritable;
    using Cfg::NOT_FOUND_INTEGER;
    using Cfg::NOT_FOUND_STRING;
    using Cfg::SaveDocument;

    /// Called by every primitive; lets a test look at the lock while it is held.
    std::function<void()> onPrimitive;
    /// The views the primitives received, in order.
    QList<View> primitiveViews;

    void Put(View view, const QString& name, const QString& text) { m_pStore->insert(Id(view, name), text); }
    bool Has(View view, const QString& name) const { return m_pStore->contains(Id(view, name)); }
    QString Text(View view, const QString& name) const { return m_pStore->value(Id(view, name)); }
    void Remove(View view, const QString& name) { m_pStore->remove(Id(view, name)); }

    QString GetType() override { return QStringLiteral("Memory"); }
    QString GetTarget() override { return QString(); }
    ICfg* CreateSubCfg(QString key, View view) const override
    {
        const QString subKey = m_sKey.isEmpty() ? key : m_sKey + QLatin1Char('\\') + key;
        return m_children.contains(subKey)
                   ? new MemoryCfg(subKey, view == VIEW_Current ? m_view : view, m_pStore)
                   : nullptr;
    }
    bool AddSubCfg(QString key, View) override
    {
        m_children.append(m_sKey.isEmpty() ? key : m_sKey + QLatin1Char('\\') + key);
        return true;
    }
    bool HasSubCfg(QString, View) override { return false; }
    bool HasAttribute(QString, QString, View) override { return false; }
    bool RemoveAttribute(QString, View) override { return false; }
    bool RemoveSubCfg(QString, View) override { return false; }
    bool RenameAttribute(QString, QString, View) override { return false; }
    bool MoveSubCfg(QString, QString, View) override { return false; }
    bool IsProtected(QString, View) override { return false; }
    AttributeType GetAttributeType(QString, View) override { return TYPE_Undefined; }
    void SetProtected(QString, bool, View) override {}
    void SetAttributeType(QString, AttributeType, View) override {}
    void SetUserViewSubkey(const QString&) override {}
    void SetAdditionalUserViewSubkey(const std::list<QString>&) override {}
    std::list<QString> GetAdditionalUserViewSubkey() override { return {}; }
    void SaveConfigurationName(const QString&) override {}
    void RenameConfigurationName(const QString&, const QString&) override {}
    void DeleteConfigurationName(const QString&) override {}
    void LoadConfigurationName(const QString&) override {}
    QByteArray GetCfgAsStringFromApp(const QString&) override { return QByteArray(); }
    void MergeCfgFromStringAndApp(const QByteArray&, const QString&) override {}

protected:
    QString GetStringImpl(QString name, QString defaultValue, View view) override
    {
        Record(view);
        return m_pStore->value(Id(view, name), defaultValue);
    }
    long GetIntegerImpl(QString name, long defaultValue, View view) override
    {
        Record(view);
        bool ok = false;
        const qint32 value = m_pStore->value(Id(view, name)).toInt(&ok, 10);
        return ok ? value : defaultValue;
    }
    void SetStringImpl(QString name, QString value, View view) override
    {
        Record(view);
        m_pStore->insert(Id(view, name), value);
    }
    void SetIntegerImpl(QString name, long value, View view) override
    {
        Record(view);
        m_pStore->insert(Id(view, name), QString::number(value));
    }
    void SetBooleanImpl(QString name, bool value, View view) override
    {
        Record(view);
        m_pStore->insert(Id(view, name), value ? QStringLiteral("true") : QStringLiteral("false"));
    }
    ICfg* CreateSubCfgAtImpl(int index, View view) override
    {
        Record(view);
        return index < m_children.size() ? new MemoryCfg(m_children.at(index), view, m_pStore) : nullptr;
    }
    QString GetValueKeyAtImpl(int index, View view) override
    {
        Record(view);
        QStringList names;
        const QString prefix = QString::number(view) + QLatin1Char('|') + m_sKey + QLatin1Char('|');
        for (auto it = m_pStore->cbegin(); it != m_pStore->cend(); ++it) {
            if (it.key().startsWith(prefix))
                names.append(it.key().mid(prefix.size()));
        }
        return index < names.size() ? names.at(index) : QString();
    }
    QString GetVersion() override { return VERSION_2_2; }

private:
    QString Id(View view, const QString& name) const
    {
        return QString::number(view) + QLatin1Char('|') + m_sKey + QLatin1Char('|') + name;
    }
    void Record(View view)
    {
        primitiveViews.append(view);
        if (onPrimitive)
            onPrimitive();
    }

    Store m_ownStore;
    Store* m_pStore;
    QStringList m_children;
};

#endif
