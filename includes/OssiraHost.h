// For hosts: the folders from which start-up reads its modules. Compiled into the host; it needs
// nothing but the runtime's exports, and nothing is thrown out of it.
#pragma once

#include "OssiraBullets.h"
#include "OssiraServices.h"

#include <initializer_list>
#include <string>

namespace Tavrik::Ossira
{

namespace tDetail
{

// `S_OK` when start-up will find a file to look at, `E_FAIL` when it will not.
[[nodiscard]] inline Result FindModules(const std::wstring& folder)
{
    ObjectPtr<IDirectoryService> directory;
    ObjectPtr<IValueSet> where;
    ObjectPtr<ICollection> found;
    Result result = CreateObject(CLSID_DirectoryService, directory);
    if (!Failed(result))
        result = CreateValueSet(where.Put());
    if (!Failed(result))
        result = SetValueUniString(where.Get(), DirectoryServiceParam_Path, folder);
    if (!Failed(result))
        result = SetValueUniString(where.Get(), DirectoryServiceParam_Pattern, L"*.dll");
    if (!Failed(result))
        result = directory->GetDirectoryCollection(where.Get(), IID_ICollection, found.PutVoid());
    return !Failed(result) && found->GetCount() == 0 ? E_FAIL : result; // all is hidden
}

} // namespace tDetail

// Lets a master bootstrap read its modules from these folders, in this order, and from no others.
// One that is absent, cannot be read or has no module in it is passed over: it would end start-up
// with a failure. Answers `S_OK`, or `S_FALSE` when some were passed over; with none left start-up
// reads no modules. After a failure the list may be incomplete. Null answers `E_POINTER`, exhausted
// memory `E_OUTOFMEMORY`. Call it before `Startup`, on the same thread. It lists each folder as
// start-up does.
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
                result = tDetail::FindModules(folder);
                if (result == E_FAIL)
                {
                    arePassedOver = true;
                    result = S_OK;
                    continue;
                }
                ObjectPtr<IValue> value;
                if (!Failed(result))
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
