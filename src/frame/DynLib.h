// A component module in another library file, asked through the exports that every module has. It
// has the face of a component server. Libraries are opened and closed under the process-wide
// section. Calls may come from any thread; the owner keeps opening and destruction apart from them.
#pragma once

#include "ComServer.h"
#include "Library.h"
#include "LinkedList.h"
#include "Platform.h"

#include <array>
#include <string>

namespace Tavrik::Ossira
{

class CDynLib final : public OssiraComServer, public tSystem::CLinkedList<CDynLib>::CLinks
{
public:
    CDynLib() = default;

    // Unloads the library.
    ~CDynLib() override;

    // Loads a library, after unloading the one before. `E_FAIL` when it cannot be loaded, lacks one
    // of the six exports of a component module, or did not attach and refuses them all;
    // `E_OUTOFMEMORY` when there is no memory to load it. Nothing stays loaded then. Throws
    // `std::bad_alloc`.
    [[nodiscard]] Result Open(const wchar_t* path);

    // Whether the last `Open` failed for want of memory or descriptors or because the file could
    // not be read: then nobody knows whether the file is a module.
    [[nodiscard]] bool LacksResources() const noexcept;

    // A warning that says why the last `Open` failed; `name` is what the library is called there.
    void ReportFailure(const wchar_t* name) const;

    // The following answer `E_NOINTERFACE` while nothing is loaded, and otherwise what the module
    // answers. What a module throws is reported and becomes a code here, while the module that owns
    // the thrown object is still loaded.
    Result GetClassObject(const CLSID& clsid, const IID& iid, void** out) override;
    Result CanUnloadNow() override;
    Result GetOpenObjectCount() override;
    Result GetClassCount() override;
    Result GetClassObjectID(std::uint32_t first, std::uint32_t count, CLSID* out) override;
    Result GetClassObjectInfo(std::uint32_t index, char* buffer, std::uint32_t size) override;

    // Lets the module file its bootstrap classes; a module without that export answers `S_FALSE`.
    Result RegisterBootstrap(IUnknown* registry, IUnknown* argument);

    // A module counts its objects itself and ends with its library.
    void Destroy() override;
    Result RemoveObject(IUnknown* privateUnknown) override;
    Result AddObject(IUnknown* privateUnknown, const CLSID& clsid) override;
    Result IsForeignClass(const CLSID& clsid) override;

    // Whether a library that is loaded here has been torn down already, as happens to modules when
    // the process ends. Code of such a module must not run any more. When another thread holds the
    // process-wide section, which nobody waits for at that time, the answer is true.
    [[nodiscard]] static bool AnyTornDown() noexcept;

private:
    struct Exports
    {
        Result (*GetClassObject)(const CLSID*, const IID*, void**) = nullptr;
        Result (*CanUnloadNow)() = nullptr;
        Result (*GetOpenObjectCount)() = nullptr;
        Result (*GetClassCount)() = nullptr;
        Result (*GetClassObjectID)(std::uint32_t, std::uint32_t, CLSID*) = nullptr;
        Result (*GetClassObjectInfo)(std::uint32_t, char*, std::uint32_t) = nullptr;
    };

    template <class Export, class... Arguments>
    Result Call(Export Exports::*export_, Arguments... arguments);

    template <class Export>
    [[nodiscard]] bool Resolve(const char* name, Export& export_) const noexcept;

    template <class Export>
    void Require(const char* name, Export& export_) noexcept;

    [[nodiscard]] std::string WhyNot() const;

    [[nodiscard]] bool IsAttached() const noexcept;
    void ResolveExports() noexcept;
    void Close() noexcept;

    tSystem::CLibrary mLibrary;
    Exports mExports;
    std::array<const char*, 6> mMissing = {}; // the exports that the last library lacks
    std::size_t mMissingCount = 0;
};

} // namespace Tavrik::Ossira
