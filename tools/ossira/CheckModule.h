// A module file as `ossira check` works with it: nothing stands between the two, so that what the
// module answers and throws arrives as it is.
#pragma once

#include "OssiraPointer.h"
#include "Platform.h"
#include "Survey.h"

#include <string>
#include <vector>

namespace Tavrik::tHost
{

class CCheckedModule
{
public:
    struct Exports
    {
        Ossira::Result (*GetClassObject)(const CLSID*, const IID*, void**);
        Ossira::Result (*CanUnloadNow)();
        Ossira::Result (*GetOpenObjectCount)();
        Ossira::Result (*GetClassCount)();
        Ossira::Result (*GetClassObjectID)(std::uint32_t, std::uint32_t, CLSID*);
        Ossira::Result (*GetClassObjectInfo)(std::uint32_t, char*, std::uint32_t);
        Ossira::Result (*RegisterBootstrap)(Ossira::IUnknown*, Ossira::IUnknown*); // may be null
    };

    // Throws a `CFailure` that says why, if the file cannot be loaded or is no component module.
    explicit CCheckedModule(const std::wstring& path);

    [[nodiscard]] const Exports& Calls() const noexcept
    {
        return mExports;
    }

    // Throws a `CFailure` when the module does not say.
    [[nodiscard]] std::vector<KnownClass> Classes() const;

    [[nodiscard]] Ossira::Result Create(const CLSID& clsid, const IID& iid, void** out) const
    {
        return mExports.GetClassObject(&clsid, &iid, out);
    }

    // A new object; throws a `CFailure` when there is none.
    [[nodiscard]] Ossira::ObjectPtr<Ossira::IUnknown> Create(const CLSID& clsid) const;

    [[nodiscard]] std::int32_t OpenObjects() const
    {
        return mExports.GetOpenObjectCount();
    }

private:
    template <class Export>
    void Find(const char* name, Export& found, std::string& missing) const;

    tSystem::CLibrary mLibrary;
    Exports mExports = {};
};

} // namespace Tavrik::tHost
