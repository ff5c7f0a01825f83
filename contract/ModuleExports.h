// What every component module exports, and the runtime too: for the description of the contract and
// for tests, which are linked with the runtime.
//
// No header that programs include can declare these: platform headers declare the first two with
// other types for the same shape. Modules define them, and whoever calls them looks them up by
// name.
#pragma once

#include "OssiraBase.h"

// Creates an object of one of the module's classes and hands out its interface *iid; *out owns one
// reference. A null `out` answers `E_INVALIDARG`, a null identifier `E_POINTER`, an unknown class
// or a missing interface `E_NOINTERFACE`. Any thread may call.
OSSIRA_API Tavrik::Ossira::Result DllGetClassObject(const CLSID* clsid, const IID* iid, void** out);

// `S_OK` when no object of the module is alive, else `S_FALSE`.
OSSIRA_API Tavrik::Ossira::Result DllCanUnloadNow();

// The number of the module's live objects.
OSSIRA_API Tavrik::Ossira::Result DLLGetOpenObjectCount();

// The number of classes in the module's table.
OSSIRA_API Tavrik::Ossira::Result DLLGetClassCount();

// Writes the identifiers of `count` classes from the table's entry `first` on. A range outside the
// table and a null `out` answer `E_INVALIDARG`.
OSSIRA_API Tavrik::Ossira::Result DLLGetClassObjectID(std::uint32_t first, std::uint32_t count,
                                                      CLSID* out);

// Writes the text of the class at `index`, zero-terminated; of a text that does not fit, or that
// the class does not have, the empty one. An index outside the table, a size below 1 and a null
// buffer answer `E_INVALIDARG`.
OSSIRA_API Tavrik::Ossira::Result DLLGetClassObjectInfo(std::uint32_t index, char* buffer,
                                                        std::uint32_t size);

// Files the module's classes in the CLSID registry, in whatever categories they belong. `argument`
// is the host's; both are borrowed.
OSSIRA_API Tavrik::Ossira::Result DLLRegisterBootstrap(Tavrik::Ossira::IUnknown* registry,
                                                       Tavrik::Ossira::IUnknown* argument);
