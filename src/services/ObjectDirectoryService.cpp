// Lists one folder as a collection of value sets, and is the only class that enumerates files. It
// keeps nothing between calls, so one object serves every caller.
#include "OssiraBullets.h"
#include "OssiraFrame.h"
#include "OssiraServices.h"
#include "Platform.h"

namespace Tavrik::Ossira
{

namespace
{

// One scan of a folder.
class T_DirectoryScanner
{
public:
    // `E_FAIL` when the folder cannot be read, or when nothing in it matches; `E_OUTOFMEMORY` when
    // there is no memory to read it.
    [[nodiscard]] Result Open(const std::wstring& path, const std::wstring& pattern);

    // To the next entry that is listed; `S_FALSE` at the end, a failure when the platform fails.
    [[nodiscard]] Result Next(tSystem::CFolderSearch::Entry& entry);

private:
    // Tells what the platform failed with.
    [[nodiscard]] Result Failure() const;

    tSystem::CFolderSearch mSearch;
    std::wstring mSearchText;
};

class T_DirectoryService : public IDirectoryService,
                           public CObjectIdentity<T_DirectoryService>,
                           public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_DirectoryService;
    static constexpr std::string_view ClassName = "DirectoryService";

    OSSIRA_INTERFACES(IDirectoryService, IObjectIdentity)

    Result GetDirectoryCollection(IValueSet* param, const IID& riid, void** ppv) override;

private:
    [[nodiscard]] static Result ScanDirectory(ICollection* list, const std::wstring& path,
                                              const std::wstring& pattern);
};

// A slash at the end of the path gets its backslash too: it need not be a separator everywhere.
Result T_DirectoryScanner::Open(const std::wstring& path, const std::wstring& pattern)
{
    mSearchText = path.empty() ? L"." : path;
    if (mSearchText.back() != L'\\')
        mSearchText += L'\\';
    mSearchText += pattern.empty() ? L"*.*" : pattern;

    if (!mSearch.Open(mSearchText))
        return Failure();
    OSSIRA_PRINT(CurrentLevelMask(), PRINT_TRACE, "Scan Path \"%ls\"\n", mSearchText.c_str());
    return S_OK;
}

Result T_DirectoryScanner::Failure() const
{
    OSSIRA_PRINT(CurrentLevelMask(), PRINT_TRACE, "Scan Path \"%ls\" failed: LastError: %d\n",
                 mSearchText.c_str(), static_cast<std::int32_t>(mSearch.LastError()));
    return mSearch.IsShortage() ? E_OUTOFMEMORY : E_FAIL;
}

Result T_DirectoryScanner::Next(tSystem::CFolderSearch::Entry& entry)
{
    while (mSearch.Next(entry))
    {
        if (entry.Name != L"." && entry.Name != L".." && !entry.IsHidden)
            return S_OK;
    }
    return mSearch.LastError() == 0 ? S_FALSE : Failure();
}

Result T_DirectoryService::ScanDirectory(ICollection* list, const std::wstring& path,
                                         const std::wstring& pattern)
{
    const std::uint32_t mask = CurrentLevelMask();
    T_DirectoryScanner scanner;
    if (const Result opened = scanner.Open(path, pattern); Failed(opened))
        return opened;

    tSystem::CFolderSearch::Entry entry;
    Result found = scanner.Next(entry);
    for (; found == S_OK; found = scanner.Next(entry))
    {
        OSSIRA_PRINT(mask, PRINT_TRACE, "  \"%ls\"\n", entry.Name.c_str());
        ObjectPtr<IValueSet> item;
        OSSIRA_CHECK_CALL_TWICE(CreateValueSet(item.Put()), "CreateValueSet(&ValueSet)");
        OSSIRA_CHECK_CALL_TWICE(
            SetValueUniString(item.Get(), DirectoryServiceParam_Path, entry.Name),
            "SetValueUniString(ValueSet, DirectoryServiceParam_Path, PartName)");
        OSSIRA_CHECK_CALL_TWICE(list->Add(item.Get()), "Add(ValueSet)");
    }
    return Failed(found) ? found : S_OK;
}

Result T_DirectoryService::GetDirectoryCollection(IValueSet* param, const IID& riid, void** ppv)
try
{
    OSSIRA_CHECK_POINTER(param);
    OSSIRA_CHECK_POINTER(ppv);
    *ppv = nullptr;
    OSSIRA_CHECK_REFERENCE(riid);
    std::wstring path;
    OSSIRA_CHECK_CALL_TWICE(GetValueUniString(param, DirectoryServiceParam_Path, &path),
                            "GetValueUniString(param, DirectoryServiceParam_Path, &Path)");
    std::wstring pattern;
    if (param->ContainsGUID(DirectoryServiceParam_Pattern) == S_OK)
    {
        OSSIRA_CHECK_CALL_TWICE(
            GetValueUniString(param, DirectoryServiceParam_Pattern, &pattern),
            "GetValueUniString(param, DirectoryServiceParam_Pattern, &Pattern)");
    }

    ObjectPtr<IList> list;
    OSSIRA_CHECK_CALL_TWICE(CreateNodeList(list.Put()), "CreateNodeList()");
    ObjectPtr<ICollection> collection;
    OSSIRA_CHECK_CALL_TWICE(list.QueryTo(collection), "List->QueryInterface(IID_ICollection, )");
    const Result scanned = ScanDirectory(collection.Get(), path, pattern);
    if (Failed(scanned))
        return scanned;
    OSSIRA_CHECK_CALL_TWICE(list->QueryInterface(riid, ppv), "List->QueryInterface(riid, ppv)");
    return S_OK;
}
OSSIRA_CATCH_RETURN

} // namespace

OSSIRA_CLASS(T_DirectoryService, "DirectoryService")

} // namespace Tavrik::Ossira
