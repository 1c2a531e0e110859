#ifndef TESTS_CFGCLIENT_CFGBACKENDS_H
#define TESTS_CFGCLIENT_CFGBACKENDS_H

#include "cfgclient/cfgetcd.h"
#include "cfgclient/cfgetcddocument.h"
#include "cfgclient/etcdclient.h"
#include "configuration/cfgxml.h"

#include <QDir>
#include <QFile>
#include <QString>

#include <memory>

/// Reaches the protected writability tests of any ICfg.
struct WritabilityAccess : ICfg
{
    static bool String(ICfg& cfg, const QString& name, View view)
    {
        return (cfg.*(&WritabilityAccess::IsStringWritable))(name, view);
    }
    static bool Integer(ICfg& cfg, const QString& name, View view)
    {
        return (cfg.*(&WritabilityAccess::IsIntegerWritable))(name, view);
    }
    static bool Boolean(ICfg& cfg, const QString& name, View view)
    {
        return (cfg.*(&WritabilityAccess::IsBooleanWritable))(name, view);
    }
};

/// A configuration backend as the shared operation table sees it: a fresh,
/// empty store, objects on it, and a way to read everything back as a new
/// process would (after saving, for the XML file).
class CfgBackend
{
public:
    virtual ~CfgBackend() = default;
    virtual std::unique_ptr<ICfg> Open(const QString& key, ICfg::View view) = 0;
    /// Drops every object's cached state and reads the store again.
    virtual void Reload() = 0;
};

class XmlBackend : public CfgBackend
{
public:
    explicit XmlBackend(const QString& folder) : m_sFile(QDir(folder).filePath(QStringLiteral("Cfg.xml")))
    {
        QFile file(m_sFile);
        file.open(QIODevice::WriteOnly | QIODevice::Truncate);
        file.write("<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                   "<Cfg version=\"2.2\"><System/><Domain/><Machine/><Export/><User/></Cfg>\n");
        file.close();
        Reload();
    }

    std::unique_ptr<ICfg> Open(const QString& key, ICfg::View view) override
    {
        return std::make_unique<CfgXml>(m_pRoot.get(), key, view);
    }

    void Reload() override
    {
        if (m_pRoot)
            Save(*m_pRoot);
        m_pRoot = std::make_unique<CfgXml>(m_sFile, QString(), ICfg::VIEW_Machine);
        m_pRoot->SuppressSideFiles(true);
        m_pRoot->OpenDocument(true);
    }

private:
    struct Saver : CfgXml
    {
        static void Save(CfgXml& cfg) { (cfg.*(&Saver::SaveDocument))(); }
    };
    static void Save(CfgXml& cfg) { Saver::Save(cfg); }

    QString m_sFile;
    std::unique_ptr<CfgXml> m_pRoot;
};

class EtcdBackend : public CfgBackend
{
public:
    /// Starts from an empty prefix on the server at `member`.
    explicit EtcdBackend(const QString& member, const QByteArray& prefix = CfgEtcdDocument::DEFAULT_PREFIX)
        : m_prefix(prefix)
    {
        EtcdClientOptions options;
        options.members << member;
        m_pClient = std::make_shared<EtcdClient>(options);
        m_pClient->Commit({{EtcdOperation::DeletePrefix, m_prefix, QByteArray()}});
        Reload();
    }

    std::unique_ptr<ICfg> Open(const QString& key, ICfg::View view) override
    {
        auto cfg = std::make_unique<CfgEtcd>(m_pDocument, key, view);
        cfg->OpenDocument(true);
        return cfg;
    }

    void Reload() override { m_pDocument = std::make_shared<CfgEtcdDocument>(m_pClient, m_prefix); }

    EtcdClient& Client() { return *m_pClient; }
    std::shared_ptr<CfgEtcdDocument> Document() { return m_pDocument; }

private:
    QByteArray m_prefix;
    std::shared_ptr<EtcdClient> m_pClient;
    std::shared_ptr<CfgEtcdDocument> m_pDocument;
};

#endif
