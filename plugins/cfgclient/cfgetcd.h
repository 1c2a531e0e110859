#ifndef CFGCLIENT_CFGETCD_H
#define CFGCLIENT_CFGETCD_H

#include "configuration/cfg.h"

#include <QDomElement>
#include <QObject>
#include <QStringList>

#include <memory>
#include <optional>
#include <vector>

#include "cfgclient/cfgetcddocument.h"

/// A configuration node served by the configuration service (etcd), with
/// the typing, time stamps, sub-configurations, protection and writability
/// of the XML backend.
///
/// Reads come from the document's cache; every write goes to etcd at once
/// and changes the cache only once etcd acknowledged it (a refused or lost
/// write throws KVException and changes nothing). SaveDocument therefore has
/// nothing to write beyond the common part.
///
/// Applications learn of changes made by other processes through the Qt
/// signal CfgChanged(int view, QString key), emitted for every element at or
/// below this node's key that another process changed. The object is also a
/// QObject, so an application reaches the signal without this header:
///
///     QObject* served = dynamic_cast<QObject*>(&CfgCenter::GetAppCfg());
///     if (served)
///         QObject::connect(served, SIGNAL(CfgChanged(int,QString)), receiver, SLOT(...));
///
/// The signal is queued to the thread that created the object, so that
/// thread needs a running event loop.
///
/// Names and texts an XML document could not hold are refused exactly as the
/// XML backend refuses them (the same KVException texts, class "CfgEtcd"), so
/// that every configuration can be copied between the backends.
///
/// Differences from the XML backend, where the XML backend's behaviour comes
/// from its file format: a type that
/// GetAttributeType derives for an untyped value is kept in memory only;
/// named user configurations and user partitions are not available (their
/// operations throw KVException, the getters answer empty); bytes that
/// MergeCfgFromStringAndApp cannot parse throw KVException instead of
/// leaving a diagnosis file (there is no document folder).
///
/// GetCfgAsStringFromApp and MergeCfgFromStringAndApp exchange the same XML
/// bytes as the XML backend: the application's element in each of the views
/// System, Domain, Machine, User and Export; merging copies missing elements,
/// gives existing values the incoming text, type and protection, merges
/// sub-configurations and removes nothing.
class CfgEtcd : public QObject, public Cfg
{
    Q_OBJECT

public:
    CfgEtcd(std::shared_ptr<CfgEtcdDocument> document, const QString& key, View view);
    ~CfgEtcd() override;

    QString GetType() override;
    /// The URL of the member in use.
    QString GetTarget() override;
    ICfg* CreateSubCfg(QString key, View view = VIEW_Current) const override;
    bool AddSubCfg(QString key, View view = VIEW_Current) override;
    bool HasSubCfg(QString key, View view = VIEW_Current) override;
    bool HasAttribute(QString key, QString name, View view = VIEW_Current) override;
    bool RemoveAttribute(QString name, View view = VIEW_Current) override;
    bool RemoveSubCfg(QString key, View view = VIEW_Current) override;
    bool RenameAttribute(QString oldName, QString newName, View view = VIEW_Current) override;
    bool MoveSubCfg(QString from, QString to, View view = VIEW_Current) override;
    bool IsProtected(QString name, View view = VIEW_Current) override;
    AttributeType GetAttributeType(QString name, View view = VIEW_Current) override;
    void SetProtected(QString name, bool isProtected, View view = VIEW_Current) override;
    void SetAttributeType(QString name, AttributeType type, View view = VIEW_Current) override;

    /// Loads the application of this key (everything for the empty key) in
    /// one range request. Throws KVException when etcd cannot be read.
    void OpenDocument(bool restoreAllowed) override;

    void SetUserViewSubkey(const QString& subkey) override;
    void SetAdditionalUserViewSubkey(const std::list<QString>& subkeys) override;
    std::list<QString> GetAdditionalUserViewSubkey() override;
    void SaveConfigurationName(const QString& name) override;
    void RenameConfigurationName(const QString& from, const QString& to) override;
    void DeleteConfigurationName(const QString& name) override;
    void LoadConfigurationName(const QString& name) override;
    QByteArray GetCfgAsStringFromApp(const QString& appKey) override;
    void MergeCfgFromStringAndApp(const QByteArray& bytes, const QString& appKey) override;

signals:
    /// Another process changed the element `key` (a full backslash path) in `view`.
    void CfgChanged(int view, const QString& key);

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
    using Changes = std::vector<CfgEtcdDocument::Change>;

    QStringList Path(const QString& relative) const;
    QStringList ValuePath(const QString& name) const;
    CfgEtcdElement* Find(View view, const QStringList& path) const;
    bool AddMissing(View view, const QStringList& path, Changes* changes, QString* invalid = nullptr) const;
    static void CheckValueName(const QString& name, const QString& operation);
    void SetValueAndType(const QString& name, const QString& value, const QString& type, View view,
                         const QString& operation);
    void AddTree(View view, const QStringList& path, const CfgEtcdElement& element, bool keepOrder,
                 Changes* changes) const;
    void WriteRecord(View view, const QStringList& path, const CfgEtcdRecord& record);
    void Write(const Changes& changes);
    bool RemoveElement(View view, const QStringList& path);
    [[noreturn]] void NotAvailable(const char* operation, int line) const;
    void MergeElement(View view, const QStringList& path, const QDomElement& source, Changes* changes) const;
    void ImportElement(View view, const QStringList& path, const QDomElement& source, Changes* changes) const;

    std::shared_ptr<CfgEtcdDocument> m_pDocument;
    QStringList m_keyParts;
};

#endif
