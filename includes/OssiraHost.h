// For hosts: the folders from which start-up reads its modules. Compiled into the host; it needs
// nothing but the runtime's exports, and nothing is thrown out of it.
#pragma once

#include "OssiraBullets.h"
#include "OssiraServices.h"

#include <algorithm>
#include <filesystem>
#include <initializer_list>

namespace Tavrik::Ossira
{

namespace tDetail
{

[[nodiscard]] inline bool IsModuleName(const std::filesystem::path& name)
{
    const std::filesystem::path extension = name.extension();
    std::wstring ending;
    for (const auto unit : extension.native())
        ending += static_cast<wchar_t>(unit >= 'A' && unit <= 'Z' ? unit - 'A' + 'a' : unit);
    return ending == L".dll" && name.native().front() != '.';
}

// As start-up scans it: both separators, no hidden files, "*.dll" in any case.
[[nodiscard]] inline bool HasModules(std::wstring folder)
try
{
    std::replace(folder.begin(), folder.end(), L'\\', L'/');
    std::error_code error;
    std::filesystem::directory_iterator at(folder.empty() ? L"." : folder, error);
    for (; !error && at != std::filesystem::directory_iterator(); at.increment(error))
    {
        if (IsModuleName(at->path().filename()))
            return true;
    }
    return false;
}
catch (const std::system_error&)
{
    return true; // a name that only the system itself can spell: start-up will see
}

} // namespace tDetail

// Lets a master bootstrap read its modules from these folders, in this order, and from no others.
// One that is absent, cannot be read or has no module in it is passed over: it would end start-up
// with a failure. Answers `S_OK`, or `S_FALSE` when some were passed over; with none left start-up
// reads no modules. After a failure the list may be incomplete. Null answers `E_POINTER`, exhausted
// memory `E_OUTOFMEMORY`. Call it before `Startup`, on the same thread. It looks at the entries of
// each folder up to the first module.
template <class Folders>
Result SetModuleFolders(IMasterBootstrap* bootstrap, const Folders& folders)
{
    if (bootstrap == nullptr)
        return E_POINTER;
    return tDetail::WithMemory(
        [&]() -> Result
        {
            ObjectPtr<IList> list;
            Result result = bootstrap->GetModuleFolders(list.PutVoid());
            if (!Failed(result))
                result = list->Clear();
            bool arePassedOver = false;
            for (auto at = std::begin(folders); !Failed(result) && at != std::end(folders); ++at)
            {
                const std::wstring folder(*at);
                if (!tDetail::HasModules(folder))
                {
                    arePassedOver = true;
                    continue;
                }
                ObjectPtr<IValue> value;
                result = CreateValue(value.Put());
                if (!Failed(result))
                    result = SetValueUniString(value.Get(), folder);
                if (!Failed(result))
                    result = list->Add(value.Get());
            }
            return Failed(result) ? result : arePassedOver ? S_FALSE : S_OK;
        });
}

inline Result SetModuleFolders(IMasterBootstrap* bootstrap,
                               std::initializer_list<const wchar_t*> folders)
{
    return SetModuleFolders<std::initializer_list<const wchar_t*>>(bootstrap, folders);
}

} // namespace Tavrik::Ossira
