// The exports of every module, here the runtime's own. No public header declares them: whoever
// calls them looks them up by name.
#pragma once

#include "OssiraBase.h"

OSSIRA_API Tavrik::Ossira::Result DllGetClassObject(const CLSID* clsid, const IID* iid, void** out);
OSSIRA_API Tavrik::Ossira::Result DllCanUnloadNow();
OSSIRA_API Tavrik::Ossira::Result DLLGetOpenObjectCount();
OSSIRA_API Tavrik::Ossira::Result DLLGetClassCount();
OSSIRA_API Tavrik::Ossira::Result DLLGetClassObjectID(std::uint32_t first, std::uint32_t count,
                                                      CLSID* out);
OSSIRA_API Tavrik::Ossira::Result DLLGetClassObjectInfo(std::uint32_t index, char* buffer,
                                                        std::uint32_t size);
OSSIRA_API Tavrik::Ossira::Result DLLRegisterBootstrap(Tavrik::Ossira::IUnknown* registry,
                                                       Tavrik::Ossira::IUnknown* argument);
