// A library as a component module: loads it, says why it is none, and finds its exports.
#pragma once

#include "OssiraBase.h"
#include "Platform.h"

#include <string>

namespace Tavrik::tHost
{

// The entry points of a module, null where it has none.
struct ModuleExports
{
    Ossira::Result (*GetClassObject)(const CLSID*, const IID*, void**);
    Ossira::Result (*CanUnloadNow)();
    Ossira::Result (*GetOpenObjectCount)();
    Ossira::Result (*GetClassCount)();
    Ossira::Result (*GetClassObjectID)(std::uint32_t, std::uint32_t, CLSID*);
    Ossira::Result (*GetClassObjectInfo)(std::uint32_t, char*, std::uint32_t);
    Ossira::Result (*RegisterBootstrap)(Ossira::IUnknown*, Ossira::IUnknown*); // may be missing
};

class CModuleLibrary
{
public:
    // Looks at the file and loads it. Afterwards `Reason` is empty, or says as the rest of a
    // sentence about the file why it cannot be loaded or is no module.
    explicit CModuleLibrary(const std::string& path);

    [[nodiscard]] const std::string& Reason() const noexcept
    {
        return mReason;
    }

    // Whether the reason is no fault: a library that is none of ours and lies beside the modules.
    [[nodiscard]] bool IsOtherLibrary() const noexcept
    {
        return mIsOtherLibrary;
    }

    [[nodiscard]] const ModuleExports& Exports() const noexcept
    {
        return mExports;
    }

    [[nodiscard]] double LoadMilliseconds() const noexcept
    {
        return mLoadMilliseconds;
    }

private:
    void FindExports();

    tSystem::CLibrary mLibrary;
    ModuleExports mExports = {};
    std::string mReason;
    bool mIsOtherLibrary = false;
    double mLoadMilliseconds = 0;
};

} // namespace Tavrik::tHost
