/// \file
/// IDllInstance and the entry points every plug-in library exports.
#ifndef CONFIGURATION_IDLLINSTANCE_H
#define CONFIGURATION_IDLLINSTANCE_H

#include "zentappstartup_export.h"

#include <QtGlobal>

/// The object a plug-in library hands to the configuration centre.
///
/// A plug-in is a shared library that exports, with C linkage and by these
/// exact names, a factory and a destroy function (ZENT_PLUGIN_EXPORT below
/// gives them the right linkage and visibility):
///
///     IDllInstance* KVCreateEx(const wchar_t* configKey, const wchar_t* additionalParams);
///     IDllInstance* KVCreate(const wchar_t* configKey);
///     void KVDestroy(IDllInstance* instance);
///
/// The centre looks up KVCreateEx first and uses it whenever the library has
/// it; KVCreate is the fallback (additional parameters are then dropped).
/// Strings are null-terminated wide strings (QString::fromWCharArray reads
/// them); `configKey` is the configuration key the instance reads its own
/// settings from. A factory returning null makes the load fail. The centre
/// releases an instance only through the same library's KVDestroy.
///
/// The order of the virtual operations is binary interface (plug-ins built
/// against this header call through the table): slot 0 is the destructor,
/// slot 1 Execute, slot 2 ApplicationEnds, slot 3 CommitData. Never reorder
/// or insert operations.
///
/// Plug-ins are usually named in configurations as "Name.dll"; on Linux the
/// loader finds them as libName.so or Name.so in the application's folder or
/// on the library path.
class ZENTAPPSTARTUP_EXPORT IDllInstance
{
protected:
    /// Only the plug-in's own KVDestroy deletes an instance.
    virtual ~IDllInstance();

public:
    /// Runs the plug-in once the application's start-up is over (or at once
    /// when it is created later). Returns true when the plug-in ran.
    virtual bool Execute() = 0;
    /// The application is about to end; called on every instance at the
    /// start of the tear-down, before any instance is destroyed.
    virtual void ApplicationEnds();
    /// The application commits its data: write configuration state now.
    virtual void CommitData();
};

/// Declares a plug-in entry point: C linkage, exported from the library.
#define ZENT_PLUGIN_EXPORT extern "C" Q_DECL_EXPORT

/// The factory a plug-in exports: a new instance reading its settings from
/// `configKey`, given the application's `additionalParams`; null on failure.
ZENT_PLUGIN_EXPORT IDllInstance* KVCreateEx(const wchar_t* configKey, const wchar_t* additionalParams);
/// The factory of plug-ins without additional parameters; used when the
/// library has no KVCreateEx.
ZENT_PLUGIN_EXPORT IDllInstance* KVCreate(const wchar_t* configKey);
/// Destroys an instance made by the same library's factory.
ZENT_PLUGIN_EXPORT void KVDestroy(IDllInstance* instance);

/// The entry points as the centre looks them up.
///@{
using KVCreateExFunction = IDllInstance* (*)(const wchar_t*, const wchar_t*);
using KVCreateFunction = IDllInstance* (*)(const wchar_t*);
using KVDestroyFunction = void (*)(IDllInstance*);
///@}

#endif
