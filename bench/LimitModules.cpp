// The limit of registering a folder: its listing, and for each module the loader calls that the
// registration takes. The module is opened twice, once to be read and once to be kept for creating
// objects, and the first opening ends with the reading, as in the runtime. What the module itself
// does when it is asked is part of both.
#include "Limits.h"

#include <algorithm>
#include <dirent.h>
#include <dlfcn.h>
#include <stdexcept>

namespace Tavrik::Ossira::tBench
{

namespace
{

struct CloseLibrary
{
    void operator()(void* handle) const noexcept
    {
        dlclose(handle);
    }
};

using Library = std::unique_ptr<void, CloseLibrary>;

struct Entries
{
    void* GetClassObject;
    void* CanUnloadNow;
    void* GetOpenObjectCount;
    Result (*GetClassCount)();
    Result (*GetClassObjectID)(std::uint32_t first, std::uint32_t count, CLSID* out);
    Result (*GetClassObjectInfo)(std::uint32_t index, char* buffer, std::uint32_t size);
};

template <class Entry>
void Find(void* library, const char* name, Entry& entry)
{
    entry = reinterpret_cast<Entry>(dlsym(library, name));
    if (entry == nullptr)
        throw std::runtime_error(std::string("the module lacks ") + name);
}

[[nodiscard]] Library Open(const std::string& path, Entries& entries)
{
    Library library(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL));
    if (library == nullptr)
        throw std::runtime_error(dlerror());
    Find(library.get(), "DllGetClassObject", entries.GetClassObject);
    Find(library.get(), "DllCanUnloadNow", entries.CanUnloadNow);
    Find(library.get(), "DLLGetOpenObjectCount", entries.GetOpenObjectCount);
    Find(library.get(), "DLLGetClassCount", entries.GetClassCount);
    Find(library.get(), "DLLGetClassObjectID", entries.GetClassObjectID);
    Find(library.get(), "DLLGetClassObjectInfo", entries.GetClassObjectInfo);
    return library;
}

[[nodiscard]] std::vector<std::string> SortedNames(const std::string& folder)
{
    const auto close = [](DIR* open)
    {
        closedir(open);
    };
    const std::unique_ptr<DIR, decltype(close)> open(opendir(folder.c_str()), close);
    if (open == nullptr)
        throw std::runtime_error("cannot read " + folder);
    std::vector<std::string> names;
    while (const dirent* const entry = readdir(open.get()))
    {
        if (std::string name = entry->d_name; name.ends_with(".dll"))
            names.push_back(std::move(name));
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace

LimitModules::LimitModules(const std::string& folder, IUnknown* registry)
{
    for (const std::string& name : SortedNames(folder))
        Register(folder + '/' + name, registry);
}

LimitModules::~LimitModules()
{
    for (void* const handle : mHandles)
        dlclose(handle);
}

void LimitModules::Register(const std::string& path, IUnknown* registry)
{
    Entries entries;
    const Library read = Open(path, entries);
    const Result count = entries.GetClassCount();
    for (std::uint32_t index = 0; static_cast<Result>(index) < count; ++index)
    {
        CLSID clsid;
        char info[255];
        entries.GetClassObjectID(index, 1, &clsid);
        entries.GetClassObjectInfo(index, info, sizeof info);
        if (index == 0)
            mHandles.push_back(Open(path, entries).release());
        ++mClassCount;
    }
    Result (*registerBootstrap)(IUnknown * registry, IUnknown * argument);
    Find(read.get(), "DLLRegisterBootstrap", registerBootstrap);
    registerBootstrap(registry, nullptr);
}

} // namespace Tavrik::Ossira::tBench
