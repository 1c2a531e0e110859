/// \file
/// SaveComponentIf: components saved with the configuration document.
#ifndef CONFIGURATION_SAVECOMPONENTIF_H
#define CONFIGURATION_SAVECOMPONENTIF_H

#include "zentappstartup_export.h"

/// A component whose state is saved with the configuration document.
///
/// Components register with CfgCenter::RegisterSaveComponent and are called
/// in registration order. The slot order (OnSaveDocument, OnReLoadUserConfig,
/// OnCommitData) is binary interface. The centre never deletes a component:
/// the destructor is protected and not virtual, so nobody deletes one through
/// this interface either.
class ZENTAPPSTARTUP_EXPORT SaveComponentIf
{
public:
    /// The document is about to be saved and nothing was committed yet.
    virtual void OnSaveDocument() = 0;
    /// The user configuration was exchanged (CfgCenter::ReLoadUserConfig): read state again.
    virtual void OnReLoadUserConfig() = 0;
    /// The application commits its data (CfgCenter::CommitData): write state now.
    virtual void OnCommitData() = 0;

protected:
    SaveComponentIf() = default;
    /// An interface has no state: copying copies nothing.
    SaveComponentIf(const SaveComponentIf&) = default;
    /// An interface has no state: assigning changes nothing.
    SaveComponentIf& operator=(const SaveComponentIf&) = default;
    ~SaveComponentIf() = default;
};

#endif
