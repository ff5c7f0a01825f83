// Everything here goes through public interfaces: it is also an example of how to read lists,
// value sets and enumerators.
#include "Survey.h"

#include "OssiraBullets.h"
#include "OssiraDatatypes.h"
#include "Print.h"
#include "WideText.h"

#include <algorithm>
#include <array>
#include <filesystem>

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

// Why nothing was found, in a person's words; the service has one code for all of it.
std::string WhyUnreadable(const std::wstring& folder)
{
    const std::string name = tSystem::ToUtf8(folder);
    std::u8string pathText(name.begin(), name.end());
    std::replace(pathText.begin(), pathText.end(), u8'\\', u8'/'); // both separate, everywhere
    const std::filesystem::path path(pathText);
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (status.type() == std::filesystem::file_type::not_found)
        return "The folder \"" + name + "\" does not exist";
    if (error)
        return "The folder \"" + name + "\" cannot be read: " + error.message();
    if (!std::filesystem::is_directory(status))
        return '"' + name + "\" is no folder";
    std::filesystem::directory_iterator entries(path, error);
    if (error)
        return "The folder \"" + name + "\" cannot be read: " + error.message();
    return "There is no module (*.dll) in the folder \"" + name + '"';
}

} // namespace

void Require(Result code, const std::string& attempt)
{
    if (Failed(code))
        throw CFailure(attempt + " failed: " + CodeText(code));
}

std::vector<std::wstring> ListModuleFiles(ISingleton& singletons, const std::wstring& folder)
{
    const auto service = GetSingleton<IDirectoryService>(singletons, CLSID_DirectoryService,
                                                         "the directory service");
    ObjectPtr<IValueSet> query;
    Require(CreateValueSet(query.Put()), "Creating a value set");
    Require(SetValueUniString(query.Get(), DirectoryServiceParam_Path, folder),
            "Storing a folder's name");
    Require(SetValueUniString(query.Get(), DirectoryServiceParam_Pattern, L"*.dll"),
            "Storing a pattern");
    ObjectPtr<IList> entries;
    if (Failed(service->GetDirectoryCollection(query.Get(), IList::Iid, entries.PutVoid())))
        throw CFailure(WhyUnreadable(folder));

    std::vector<std::wstring> names;
    for (std::int32_t index = 0; index < entries->GetCount(); ++index)
    {
        ObjectPtr<IValueSet> entry;
        Require(entries->GetItemAt(index, IValueSet::Iid, entry.PutVoid()), "Reading a folder");
        std::wstring name;
        Require(GetValueUniString(entry.Get(), DirectoryServiceParam_Path, &name),
                "Reading a file's name");
        names.push_back(name);
    }
    return names;
}

std::vector<KnownModule> ReadModules(IObjectFactory& factory)
{
    std::vector<KnownModule> modules;
    ObjectPtr<IList> files;
    Require(factory.GetModules(IList::Iid, files.PutVoid()), "Listing the modules");
    for (std::int32_t index = 0; index < files->GetCount(); ++index)
    {
        ObjectPtr<IValue> file;
        Require(files->GetItemAt(index, IValue::Iid, file.PutVoid()), "Listing the modules");
        KnownModule module;
        Require(GetValueUniString(file.Get(), &module.FileName), "Reading a module's file name");
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
        const auto module =
            std::find_if(modules.begin(), modules.end(),
                         [&](const KnownModule& each) { return each.FileName == fileName; });
        if (module != modules.end())
            module->Classes.push_back(known);
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

} // namespace Tavrik::tHost
