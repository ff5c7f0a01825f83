// A module file as `ossira check` works with it: nothing stands between the two, so that what the
// module answers and throws arrives as it is.
#pragma once

#include "ModuleLibrary.h"
#include "OssiraPointer.h"
#include "Survey.h"

#include <string>
#include <vector>

namespace Tavrik::tHost
{

class CCheckedModule
{
public:
    // Throws a `CFailure` that says why, if the file cannot be loaded or is no component module.
    explicit CCheckedModule(const std::wstring& path);

    [[nodiscard]] const ModuleExports& Calls() const noexcept
    {
        return mLibrary.Exports();
    }

    // Throws a `CFailure` when the module does not say.
    [[nodiscard]] std::vector<KnownClass> Classes() const;

    [[nodiscard]] Ossira::Result Create(const CLSID& clsid, const IID& iid, void** out) const
    {
        return Calls().GetClassObject(&clsid, &iid, out);
    }

    // A new object; throws a `CFailure` when there is none.
    [[nodiscard]] Ossira::ObjectPtr<Ossira::IUnknown> Create(const CLSID& clsid) const;

    [[nodiscard]] std::int32_t OpenObjects() const
    {
        return Calls().GetOpenObjectCount();
    }

private:
    CModuleLibrary mLibrary;
};

} // namespace Tavrik::tHost
