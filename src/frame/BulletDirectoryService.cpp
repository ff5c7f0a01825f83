// The client's side of a folder scan: puts the parameters together, asks the directory service,
// which every module reaches as a singleton, and keeps the result to walk over.
#include "BulletDirectoryService.h"

#include "OssiraBullets.h"
#include "PublicUtil.h"

#include <algorithm>
#include <string_view>

namespace Tavrik::Ossira
{

bool IsRuntimeFile(const wchar_t* fileName) noexcept
{
    constexpr std::wstring_view own = L"tavrikossira.dll";
    return fileName != nullptr &&
           std::ranges::equal(std::wstring_view(fileName), own,
                              [](wchar_t a, wchar_t b)
                              { return (a >= L'A' && a <= L'Z' ? a + (L'a' - L'A') : a) == b; });
}

Result CDirectoryCollection::ScanDirectory(const wchar_t* path, const wchar_t* pattern)
{
    return InternalScanDirectory(path, pattern);
}

Result CDirectoryCollection::InternalScanDirectory(const wchar_t* path, const wchar_t* pattern)
{
    ObjectPtr<IDirectoryService> directoryService;
    OSSIRA_CHECK_CALL_TWICE(CreateSingleton(CLSID_DirectoryService, directoryService),
                            "CreateSingletonDirectoryService(&DirectoryService)");
    mEnumerator.Reset();
    ObjectPtr<IValueSet> param;
    OSSIRA_CHECK_CALL_TWICE(CreateValueSet(param.Put()), "CreateValueSet(&ValueSet)");
    if (path != nullptr)
    {
        OSSIRA_CHECK_CALL_TWICE(SetValueUniString(param.Get(), DirectoryServiceParam_Path, path),
                                "SetValueUniString(ValueSet, DirectoryServiceParam_Path, path)");
    }
    if (pattern != nullptr)
    {
        OSSIRA_CHECK_CALL_TWICE(
            SetValueUniString(param.Get(), DirectoryServiceParam_Pattern, pattern),
            "SetValueUniString(ValueSet, DirectoryServiceParam_Pattern, pattern)");
    }

    ObjectPtr<ICollection> found;
    const Result result =
        directoryService->GetDirectoryCollection(param.Get(), IID_ICollection, found.PutVoid());
    if (Failed(result))
        return result;
    return found->GetEnumerator(IID_IEnumerator, mEnumerator.PutVoid());
}

Result CDirectoryCollection::MoveNext()
{
    return mEnumerator ? mEnumerator->MoveNext() : E_FAIL;
}

Result CDirectoryCollection::CurrentItemPath(std::wstring* out)
{
    if (!mEnumerator)
        return E_FAIL;
    ObjectPtr<IValueSet> item;
    const Result result = mEnumerator->GetCurrent(IID_IValueSet, item.PutVoid());
    if (Failed(result))
        return result;
    return GetValueUniString(item.Get(), DirectoryServiceParam_Path, out);
}

} // namespace Tavrik::Ossira
