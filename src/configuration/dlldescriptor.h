/// \file
/// Loaded plug-in libraries and the instances created from them.
#ifndef CONFIGURATION_DLLDESCRIPTOR_H
#define CONFIGURATION_DLLDESCRIPTOR_H

#include "zentappstartup_export.h"

#include <QString>

class IDllInstance;

/// One loaded plug-in library. Its name is the file name it was loaded by.
class ZENTAPPSTARTUP_EXPORT CfgDllDescriptor
{
public:
    CfgDllDescriptor();
    /// Frees the library when one is loaded (traces "Dll <name> unloaded").
    virtual ~CfgDllDescriptor();
    CfgDllDescriptor(const CfgDllDescriptor&) = delete;
    CfgDllDescriptor& operator=(const CfgDllDescriptor&) = delete;

    /// Loads `fileName` through ZentOS, freeing a library loaded before.
    /// Throws KVException when the system returns no handle.
    void CreateInstance(const QString& fileName);

    /// The file name the library was loaded by; empty before CreateInstance.
    QString GetName() const { return m_sFileName; }
    /// The system's handle of the library; null before CreateInstance.
    void* GetHandle() const { return m_hDll; }
    /// The exported symbol `name`, or null.
    void* GetProcAddress(const char* name) const;

private:
    void* m_hDll;
    QString m_sFileName;
};

/// One plug-in instance created from a loaded library.
///
/// The constructor asks the library's factory (KVCreateEx, else KVCreate)
/// for the instance and throws KVException when there is none; the
/// destructor hands the instance to the library's KVDestroy. The library
/// itself is not owned.
class ZENTAPPSTARTUP_EXPORT DllInstanceDescriptor
{
public:
    /// `configKey` is handed to the factory, `instanceKey` names the instance
    /// among others of the same library. `createdByCenter` marks instances
    /// that the configuration centre destroys at the end; the others belong
    /// to whoever created them.
    DllInstanceDescriptor(CfgDllDescriptor* dll, const QString& configKey, const QString& instanceKey,
                          const QString& additionalParams, bool createdByCenter);
    ~DllInstanceDescriptor();
    DllInstanceDescriptor(const DllInstanceDescriptor&) = delete;
    DllInstanceDescriptor& operator=(const DllInstanceDescriptor&) = delete;

    /// The library the instance was created from (not owned).
    CfgDllDescriptor* GetDll() const { return m_pDll; }
    /// The library's name.
    QString GetDllName() const;
    /// The configuration key handed to the factory.
    QString GetConfigKey() const { return m_sConfigKey; }
    /// The name of the instance among others of the same library.
    QString GetInstanceKey() const { return m_sInstanceKey; }
    /// The additional parameters handed to the factory.
    QString GetAdditionalParams() const { return m_sAdditionalParams; }
    /// True when the configuration centre destroys the instance at the end.
    bool IsCreatedByCenter() const { return m_bCreatedByCenter; }
    /// The instance; null only for a descriptor that holds none.
    IDllInstance* GetInstance() const { return m_pInstance; }

private:
    // A descriptor without an instance; reached only by tests.
    DllInstanceDescriptor(CfgDllDescriptor* dll, const QString& configKey, const QString& instanceKey);

    IDllInstance* CreateThroughFactory();
    IDllInstance* CreateThroughKVCreateEx(void* createEx);
    IDllInstance* CreateThroughKVCreate();
    QString ParamsForTrace() const;

    CfgDllDescriptor* m_pDll;
    QString m_sConfigKey;
    QString m_sInstanceKey;
    QString m_sAdditionalParams;
    bool m_bCreatedByCenter;
    IDllInstance* m_pInstance;

    friend class DllInstanceDescriptorTestAccess;
};

#endif
