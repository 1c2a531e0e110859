/// \file
/// CfgCenter: the process's configuration centre.
#ifndef CONFIGURATION_CFGCENTER_H
#define CONFIGURATION_CFGCENTER_H

#include "configuration/icfg.h"
#include "zentappstartup_export.h"

#include <QString>

#include <list>
#include <map>

class QMutex;
class CfgDllDescriptor;
class CfgEvent;
class CfgIfDllDescriptor;
class DllInstanceDescriptor;
class IDllInstance;
class SaveComponentIf;

/// The process-wide owner of an application's configuration objects.
///
/// All state is static and exists from library load on, before any centre is
/// constructed and after it is destroyed. Constructing a centre creates the
/// configuration objects and the mutex; destroying it releases them. The
/// accessors below take no lock: the pointers change only during creation and
/// tear-down in the main thread.
///
/// The configuration document string chooses the backend: "Xml:" and a file
/// name (CfgXml), "Registry" (CfgRegistry), "Server" or "Server:" and a host
/// (the configuration service, reached through its client plug-in). The
/// application key ("CfgKey:PreDlls:PostDlls:suffix") names the application's
/// key in the document and the plug-in libraries loaded before and after the
/// configuration. Creation and tear-down run in the main thread.
class ZENTAPPSTARTUP_EXPORT CfgCenter
{
public:
    /// The application's usage tag, set before the centre is constructed.
    /// The values are tested, never interpreted further: 1 and 3 turn a
    /// failed open into the integer exception -7 and make XML files use CR LF;
    /// 0 and 4 keep the user and export views in side files; every value but 1
    /// lets a damaged XML file be restored from its backup.
    enum CfgCenterUsage : qint32
    {
        USAGE_0 = 0,
        USAGE_1 = 1,
        USAGE_2 = 2,
        USAGE_3 = 3,
        USAGE_4 = 4
    };

    /// Start-up mode: 0 and 2 run the post-creation step at once, 1 defers it
    /// until SetAsyncStartup(2).
    enum AsyncStartup : qint32
    {
        ASYNC_Off = 0,
        ASYNC_Deferred = 1,
        ASYNC_Resume = 2,
        /// Set by the service when the application already runs on it; like
        /// 1 it defers the post-creation step.
        ASYNC_RunningOnServer = 3
    };

    /// Library name to loaded library, in QString order.
    using DllMap = std::map<QString, CfgDllDescriptor*>;
    /// Plug-in instances in creation order.
    using DllInstanceList = std::list<DllInstanceDescriptor*>;

    /// The document string used when none is given; "Server" unless the
    /// application points it elsewhere before constructing the centre.
    static const char* s_pDefaultCfgDoc;

    /// Command-line start: argument 1 (after the program name) is the
    /// application key, argument 2 the document string; a missing argument 2,
    /// or one beginning with '-', gives the default document.
    /// `loadAdditionalDlls` loads the "AdditionalDlls" plug-ins and the
    /// post-load list during creation. `reserved` is kept for existing callers
    /// and has no effect. Throws KVException when a centre exists already.
    CfgCenter(int argc, char** argv, ICfg::View view, bool reserved, bool loadAdditionalDlls);
    /// Explicit key and document. This is the one constructor that does not
    /// refuse to run while a centre exists. With `noKeyQuestion` a key missing
    /// from the document is accepted without asking the user.
    CfgCenter(QString appKey, QString cfgDoc, ICfg::View view, bool reserved, bool loadAdditionalDlls,
              bool noKeyQuestion);
    /// Server-backed start: the key on the default document, machine view,
    /// no additional plug-ins.
    explicit CfgCenter(QString& appKey);
    /// The key given, the document string from the "type" of "cfgarg.xml" in
    /// the working directory (the default document when there is no such
    /// file). Loads the additional plug-ins.
    CfgCenter(QString appKey, ICfg::View view, bool reserved);
    /// Key and document string from "cfgarg.xml" in the working directory;
    /// throws KVException when the file is missing, malformed or names no type.
    CfgCenter(ICfg::View view, bool reserved);
    /// Destroys the instances the centre created, unloads the plug-ins and
    /// runs Exit. A failed save is thrown after everything was released.
    ~CfgCenter() noexcept(false);
    CfgCenter(const CfgCenter&) = delete;
    CfgCenter& operator=(const CfgCenter&) = delete;

    /// Releases what a construction created, in this order: saves (unless
    /// switched off, and not while a named user configuration is in use) and
    /// closes the document configuration, deletes the configuration objects,
    /// the service client, the event object, the plug-in bookkeeping and the
    /// mutex. The destructor runs it; after a constructor threw, the caller
    /// runs UnloadAdditionalDlls and Exit before constructing again.
    static void Exit();

    /// The application configuration; selects `view` on it first unless it is
    /// VIEW_Current. Throws KVException when no centre exists.
    static ICfg& GetAppCfg(ICfg::View view = ICfg::VIEW_Current);
    /// The configuration of the whole document; as GetAppCfg.
    static ICfg& GetDocCfg(ICfg::View view = ICfg::VIEW_Current);
    /// The administration configuration (key "Administration"); as GetAppCfg.
    static ICfg& GetAdminCfg(ICfg::View view = ICfg::VIEW_Current);
    /// The string value "Name" of the application configuration.
    static QString GetAppName();
    /// The workstation's name; throws KVException when the system has none.
    static QString GetMachineName();
    /// The recursive mutex that guards every configuration operation; null
    /// while no centre exists (configuration operations then run unlocked).
    static QMutex* GetMutex();
    /// The usage tag set by SetUsage; USAGE_0 until then.
    static CfgCenterUsage GetUsage();
    /// Sets the usage tag; set it before constructing the centre, which reads it.
    static void SetUsage(CfgCenterUsage usage);
    /// The start-up mode last stored by SetAsyncStartup; ASYNC_Off until then.
    static AsyncStartup GetAsyncStartup();
    /// True when the application key began with '*' or ':'.
    static bool IsServer();

    /// "Server" (the default document text) when the configuration service
    /// serves the application, else "Registry" or "Xml" by the application
    /// configuration's backend. Throws KVException for any other backend.
    static QString GetType();
    /// A further configuration object for `key` in the application
    /// configuration's backend; the caller owns it. Throws KVException when
    /// there is no application configuration.
    static ICfg* CreateCfg(const QString& key, ICfg::View view, const QString& other = QString());
    /// Creates and opens the configuration of `key` in the backend that the
    /// document string `type` names (an empty string is the default
    /// document); null for an unknown backend, and for the service while the
    /// start-up is deferred. The caller owns the result. While the document
    /// opens, the new object stands as the application configuration. A
    /// failed open leaves it there and throws: the integer -7 in usages 1 and
    /// 3, the KVException otherwise.
    static ICfg* CreateAppCfg(const QString& key, const QString& type, ICfg::View view);
    /// Stores the start-up mode. Mode 2 first completes a deferred creation:
    /// the service's application configuration, then the post-creation step.
    static void SetAsyncStartup(AsyncStartup mode);
    /// Saves the document configuration unless the service serves it. Before
    /// any commit the save components are asked first; after a commit only
    /// one further save writes.
    static void SaveDocument();
    /// Whether Exit saves the document configuration (on by default; Exit
    /// switches it on again).
    static void SetAutoSaveDocument(bool autoSave);
    /// Asks every save component to read its state again.
    static void ReLoadUserConfig();
    /// Copies the values and, recursively, the sub-configurations of `from`
    /// into `to`. Nothing is removed from `to`.
    static void Copy(ICfg* from, ICfg* to);
    /// Copies the key `fileKey` of the XML file `fileName` into the key
    /// `cfgKey` of the application's backend and saves it. An unparsable file
    /// is traced and copies nothing.
    static void CopyFrom(const char* fileName, const char* fileKey, const char* cfgKey, ICfg::View view);
    /// Copies the key `cfgKey` of the application's backend into the key
    /// `fileKey` of the XML file `fileName` (created when missing) and saves the file.
    static void CopyTo(const char* fileName, const char* cfgKey, const char* fileKey, ICfg::View view);

    // Plug-in libraries and their instances.
    /// The instances in creation order; null while no centre exists.
    static DllInstanceList* GetDllInstanceList();
    /// Creates an instance of the library configured in the entry `name` of
    /// the application configuration's "AdditionalDlls" (its "FileName" and
    /// "ConfigKey", the latter defaulting to the entry's key followed by
    /// "\Config"), typically one marked "ExplicitOnly". The instance key is
    /// `key`, or the entry's key when `key` is empty. `createdByCenter` makes
    /// the centre destroy it at the end. Null without a centre or entry.
    static IDllInstance* CreateDllInstance(const QString& name, const QString& key, bool createdByCenter);
    /// Creates an instance of the library `fileName`; `key` is both the
    /// configuration key and the instance key. `separateLoad` loads the
    /// library again even when it is loaded already.
    static IDllInstance* CreateDllInstanceByFileName(const QString& fileName, const QString& key,
                                                     bool createdByCenter, bool separateLoad);
    /// The one creation path: loads (or reuses) the library, creates the
    /// instance through its factory and appends it to the list; executes it
    /// at once when ExecuteDlls has run. Null without a centre. Throws
    /// KVException when the library or its instance cannot be had; nothing
    /// is then kept.
    static IDllInstance* CreateDllInstanceImpl(const QString& fileName, const QString& configKey,
                                               const QString& instanceKey, const QString& additionalParams,
                                               bool createdByCenter, bool separateLoad);
    /// The first instance that CreateDllInstance(name, key) would have created, or null.
    static IDllInstance* GetDllInstance(const QString& name, const QString& key);
    /// The first instance of the library `fileName` whose instance key is
    /// `key` (any instance of it when `key` is empty), or null.
    static IDllInstance* GetDllInstanceByFileName(const QString& fileName, const QString& key);
    /// Destroys the instance GetDllInstance finds and unloads its library
    /// when no other instance uses it; false when there is none.
    static bool DestroyDllInstance(const QString& name, const QString& key);
    /// As DestroyDllInstance, finding the instance as GetDllInstanceByFileName does.
    static bool DestroyDllInstanceByFileName(const QString& fileName, const QString& key);
    /// As DestroyDllInstance, for the instance itself.
    static bool DestroyDllInstanceByPointer(IDllInstance* instance);
    /// Creates the instances that the "AdditionalDlls" sub-configuration of
    /// `cfg` lists (children not marked "Suspend" or "ExplicitOnly", then plain
    /// values naming a file), then those of the post-load list.
    static void LoadAdditionalDlls(ICfg* cfg, bool createdByCenter = true);
    /// Executes every instance in list order; instances created afterwards
    /// are executed as they are created.
    static void ExecuteDlls();
    /// Unloads the library `name`; false while an instance of it exists or
    /// when it is not loaded.
    static bool UnloadDll(const QString& name);
    /// Destroys the instances the centre created and unloads libraries that
    /// no instance uses any more.
    static void UnloadAdditionalDlls();
    /// Destroys every instance the centre created and unloads its library;
    /// instances created by others are traced and left to their creators.
    static void DestroyAdditionalDllInstances();

    // Save components and commits.
    /// Appends a component; the same one may be registered more than once.
    static void RegisterSaveComponent(SaveComponentIf* component);
    /// Removes the first registration of `component`, if any.
    static void UnregisterSaveComponent(SaveComponentIf* component);
    /// Once per process: lets every save component and plug-in instance
    /// write its state, then saves the document. Main thread only.
    static void CommitData();
    /// Asks the main thread to run CommitData; callable from any thread.
    static void PostCommitData();
    /// True once CommitData has run.
    static bool DataCommitted();

private:
    struct PostCreateParams;

    void Create(const QString& key, const QString& cfgDoc, ICfg::View view, bool loadAdditionalDlls,
                bool noKeyQuestion, bool reserved);
    static void CheckNotCreated();
    static QString DefaultCfgDoc();
    static void PostCreate(const PostCreateParams& params);
    static void RunDeferredPostCreate();
    static bool AppKeyExists();
    static void AskToCreateAppKey(const QString& key);
    static void RetrieveOfFile(QString& key, QString& type, bool throwOnError);
    static void ConfigureLogger();
    static ICfg* CreateCfgBase(const QString& key, ICfg::View view, const QString& other);
    static ICfg* CreateServerAppCfg(const QString& key, const QString& cfgDoc, ICfg::View view);
    static QString ServerObjectName(const QString& cfgDoc);
    static ICfg* OpenAsAppCfg(ICfg* cfg);
    static void SaveDocConfiguration();

    static void LoadDlls(QString list, const QString& baseKey, bool createdByCenter);
    static void LoadAdditionalDllChild(ICfg* child, bool createdByCenter);
    static QString InstanceKeyFor(const QString& name, const QString& key);
    static DllInstanceDescriptor* FindByInstanceKey(const QString& instanceKey);
    static DllInstanceDescriptor* FindByFileName(const QString& fileName, const QString& key);
    static DllInstanceDescriptor* FindByPointer(IDllInstance* instance);
    static bool DestroyDescriptor(DllInstanceDescriptor* descriptor);
    static bool IsLibraryUsed(const QString& name);

    static CfgEvent* m_pCfgEvent;
    static DllMap* m_pDllMap;
    static DllInstanceList* m_pDllInstanceList;
    static CfgIfDllDescriptor* m_pCfgIfDllDescriptor;
    static QString m_sPreLoadDlls;
    static QString m_sPostLoadDlls;
    static PostCreateParams* m_pPostCreateParams;
    static bool m_bDataCommitted;
    static std::list<SaveComponentIf*> m_saveComponents;
    static bool m_bAutoSaveDocument;
    static bool s_dllExecuted;
    // Whether the one save allowed after a commit is still to come.
    static bool s_bSaveAfterCommit;

    // Set by creation and cleared by tear-down. Tests of code that needs a
    // centre set them through the friend below (tests/configuration/cfgcentertestaccess.h).
    static ICfg* m_pAppCfg;
    static ICfg* m_pDocCfg;
    static ICfg* m_pAdminCfg;
    static QMutex* m_pMutex;
    static AsyncStartup m_asyncStartup;
    static CfgCenterUsage s_usage;
    static bool m_bIsServer;

    friend class CfgCenterTestAccess;
    friend class CfgCenterLifecycleTestAccess;
};

#endif
