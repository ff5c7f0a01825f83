// Everything here goes through public interfaces: it is also an example of how to read lists,
// value sets and enumerators.
#include "Survey.h"

#include "OssiraBullets.h"
#include "OssiraDatatypes.h"
#include "Print.h"
#include "WideText.h"

#include <algorithm>
#include <array>
#include <map>

namespace Tavrik::tHost
{

using namespace Ossira;

namespace
{

struct NamedCategory
{
    const GUID& Id;
    const char* Name;
};

constexpr std::array RuntimeCategories = {
    NamedCategory{BootstrapRegistryStartup_Level0, "BootstrapRegistryStartup_Level0"},
    NamedCategory{BootstrapRegistryStartup_Level1, "BootstrapRegistryStartup_Level1"},
    NamedCategory{BootstrapRegistryStartup_Level2, "BootstrapRegistryStartup_Level2"},
    NamedCategory{BootstrapRegistryCleanup_Level2, "BootstrapRegistryCleanup_Level2"},
    NamedCategory{BootstrapRegistryCleanup_Level1, "BootstrapRegistryCleanup_Level1"},
    NamedCategory{BootstrapRegistryCleanup_Level0, "BootstrapRegistryCleanup_Level0"},
    NamedCategory{REGCAT_Datatypes, "REGCAT_Datatypes"},
};

auto FindRuntimeCategory(const GUID& category)
{
    return std::find_if(RuntimeCategories.begin(), RuntimeCategories.end(),
                        [&](const NamedCategory& named) { return SameGuid(named.Id, category); });
}

std::vector<GUID> ReadGuids(IEnumeratorGUID& enumerator)
{
    std::vector<GUID> guids;
    Result moved = enumerator.MoveNext();
    for (; moved == S_OK; moved = enumerator.MoveNext())
    {
        GUID guid = {};
        Require(enumerator.GetCurrentGUID(&guid), "Reading a list of identifiers");
        guids.push_back(guid);
    }
    Require(moved, "Walking a list of identifiers");
    return guids;
}

} // namespace

void Require(Result code, const std::string& attempt)
{
    if (Failed(code))
        throw CFailure(attempt + " failed: " + CodeText(code));
}

void SetModuleFolders(IMasterBootstrap& bootstrap, const std::vector<std::string>& folders)
{
    ObjectPtr<IList> list;
    Require(bootstrap.GetModuleFolders(list.PutVoid()), "Asking for the folder list");
    Require(list->Clear(), "Emptying the folder list");
    for (const std::string& folder : folders)
    {
        ObjectPtr<IValue> value;
        Require(CreateValue(value.Put()), "Creating a value");
        Require(SetValueUniString(value.Get(), tSystem::FromUtf8(folder)),
                "Storing a folder's name");
        Require(list->Add(value.Get()), "Adding a module folder");
    }
}

std::vector<KnownModule> ReadModules(IObjectFactory& factory)
{
    std::vector<KnownModule> modules;
    std::map<std::wstring, std::size_t> indices;
    ObjectPtr<IList> files;
    Require(factory.GetModules(IList::Iid, files.PutVoid()), "Listing the modules");
    for (std::int32_t index = 0; index < files->GetCount(); ++index)
    {
        ObjectPtr<IValue> file;
        Require(files->GetItemAt(index, IValue::Iid, file.PutVoid()), "Listing the modules");
        KnownModule module;
        Require(GetValueUniString(file.Get(), &module.FileName), "Reading a module's file name");
        indices[module.FileName] = modules.size();
        modules.push_back(module);
    }

    ObjectPtr<IEnumeratorGUID> classes;
    Require(factory.GetClasses(IEnumeratorGUID::Iid, classes.PutVoid()), "Listing the classes");
    for (const CLSID& clsid : ReadGuids(*classes))
    {
        ObjectPtr<IValueSet> description;
        Require(factory.GetClassValue(clsid, IValueSet::Iid, description.PutVoid()),
                "Reading a class's description");
        std::wstring fileName;
        Require(GetValueUniString(description.Get(), ObjectFactoryItem_FileName, &fileName),
                "Reading a class's file name");
        KnownClass known = {clsid, {}};
        Require(GetValueCharString(description.Get(), ObjectFactoryItem_InfoText, &known.Text),
                "Reading a class's text");
        if (const auto index = indices.find(fileName); index != indices.end())
            modules[index->second].Classes.push_back(known);
    }
    return modules;
}

std::vector<KnownCategory> ReadCategories(IClsidRegistry& registry)
{
    ObjectPtr<IEnumeratorGUID> enumerator;
    Require(registry.GetCategories(IEnumeratorGUID::Iid, enumerator.PutVoid()),
            "Listing the categories");
    std::vector<KnownCategory> categories;
    for (const GUID& id : ReadGuids(*enumerator))
    {
        KnownCategory category = {id, {}};
        ObjectPtr<IEnumeratorGUID> classes;
        const Result found = registry.GetClasses(id, IEnumeratorGUID::Iid, classes.PutVoid());
        if (found != E_NOT_FOUND)
        {
            Require(found, "Listing a category's classes");
            category.Classes = ReadGuids(*classes);
        }
        categories.push_back(category);
    }
    std::stable_sort(categories.begin(), categories.end(),
                     [](const KnownCategory& a, const KnownCategory& b)
                     { return FindRuntimeCategory(a.Id) < FindRuntimeCategory(b.Id); });
    return categories;
}

std::optional<std::uint32_t> ReadLiveObjects(IObjectFactory& factory, const std::wstring& fileName)
{
    ObjectPtr<IValueSet> description;
    Require(factory.GetModuleValue(fileName.c_str(), IValueSet::Iid, description.PutVoid()),
            "Reading a module's description");
    std::int32_t count = 0;
    const Result found =
        GetValueSINT32(description.Get(), ObjectFactoryItem_OpenObjectCount, &count);
    if (found == E_NOT_FOUND)
        return std::nullopt;
    Require(found, "Reading a module's number of objects");
    return static_cast<std::uint32_t>(count);
}

std::string CategoryName(const GUID& category)
{
    const auto found = FindRuntimeCategory(category);
    return found != RuntimeCategories.end() ? found->Name : std::string();
}

std::size_t CategoryRank(const std::string& name)
{
    const auto found = std::find_if(RuntimeCategories.begin(), RuntimeCategories.end(),
                                    [&](const NamedCategory& named) { return named.Name == name; });
    return static_cast<std::size_t>(found - RuntimeCategories.begin());
}

} // namespace Tavrik::tHost
