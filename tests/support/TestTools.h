// Small helpers that most tests need: services, modules, folders, values.
#pragma once

#include "Ossira.h"
#include "TestPlatform.h"

#include <atomic>
#include <gtest/gtest.h>
#include <random>
#include <string_view>
#include <thread>
#include <vector>

namespace Tavrik::Ossira::tTest
{

// A new object; the test fails when there is none.
template <class Interface>
[[nodiscard]] ObjectPtr<Interface> Make(const CLSID& clsid)
{
    ObjectPtr<Interface> object;
    EXPECT_EQ(CreateObject(clsid, object), S_OK);
    return object;
}

[[nodiscard]] inline ObjectPtr<ISingleton> SingletonRegistry()
{
    return Make<ISingleton>(CLSID_GlobalSingleton);
}

// What a factory or a registry of singletons has for a class; the test fails when that is nothing.
template <class Interface>
[[nodiscard]] ObjectPtr<Interface> ObjectOf(auto& source, const CLSID& clsid)
{
    ObjectPtr<Interface> object;
    EXPECT_EQ(source.GetClassObject(clsid, Interface::Iid, object.PutVoid()), S_OK);
    return object;
}

template <class Interface>
[[nodiscard]] ObjectPtr<Interface> Singleton(const CLSID& clsid)
{
    return ObjectOf<Interface>(*SingletonRegistry(), clsid);
}

[[nodiscard]] inline ObjectPtr<IObjectFactory> GlobalFactory()
{
    return Singleton<IObjectFactory>(CLSID_GlobalObjectFactory);
}

// The folder of test modules of that name, and a module file in it. Both lie beside the program.
[[nodiscard]] inline std::filesystem::path ModuleFolder(std::string_view folder)
{
    return ProgramPath().parent_path() / "test-modules" / folder;
}

[[nodiscard]] inline std::filesystem::path ModuleFile(std::string_view folder, std::string module)
{
    return ModuleFolder(folder) / (module + ".dll");
}

[[nodiscard]] inline ObjectPtr<IClassRegisterService> RegisterService(IObjectFactory* factory)
{
    auto service = Make<IClassRegisterService>(CLSID_ClassRegisterService);
    EXPECT_EQ(service->SetFactory(factory), S_OK);
    return service;
}

// Reads modules into a factory (null: the global one), with a registry for their bootstrap classes
// (may be null) and what they are given.
[[nodiscard]] inline Result RegisterModule(const std::filesystem::path& file,
                                           IClsidRegistry* registry = nullptr,
                                           IObjectFactory* factory = nullptr,
                                           IUnknown* argument = nullptr)
{
    return RegisterService(factory)->RegisterModule(file.wstring().c_str(), registry, argument);
}

// The classes that a factory knows.
[[nodiscard]] inline std::size_t CountClasses(IObjectFactory& factory)
{
    ObjectPtr<IEnumeratorGUID> classes;
    EXPECT_EQ(factory.GetClasses(IID_IEnumeratorGUID, classes.PutVoid()), S_OK);
    std::size_t count = 0;
    while (classes->MoveNext() == S_OK)
        ++count;
    return count;
}

// The text of a narrow-string entry of a value set; empty when there is none.
[[nodiscard]] inline std::string TextOf(IValueSet& set, const GUID& key)
{
    std::string text;
    (void)GetValueCharString(&set, key, &text);
    return text;
}

// The references on an object, as its `Release` tells.
[[nodiscard]] inline std::uint32_t ReferencesOn(IUnknown& object)
{
    object.AddRef();
    return object.Release();
}

// A new empty folder that vanishes with its content.
class TempFolder
{
public:
    TempFolder()
    {
        create_directory(mPath);
    }

    ~TempFolder()
    {
        std::error_code ignored;
        remove_all(mPath, ignored);
    }

    TempFolder(const TempFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& Path() const
    {
        return mPath;
    }

    // Writes a file and answers its path.
    std::filesystem::path Write(const std::filesystem::path& name, std::string_view content) const
    {
        std::ofstream(mPath / name, std::ios::binary) << content;
        return mPath / name;
    }

private:
    const std::filesystem::path mPath = std::filesystem::temp_directory_path() /
                                        ("ossira-" + std::to_string(std::random_device()()));
};

// Lets nobody pass before all are there. (The standard library's own means for this now and then
// sleep on in the Windows build.)
inline void Meet(std::atomic<int>& missing)
{
    for (--missing; missing > 0;)
        std::this_thread::yield();
}

// Runs `work` with the numbers from 0 on, one a thread, all at once.
template <class Work>
void InThreads(std::uint32_t count, Work work)
{
    std::atomic<int> missing = static_cast<int>(count);
    const auto start = [&](std::uint32_t number)
    {
        Meet(missing);
        work(number);
    };
    std::vector<std::jthread> threads;
    for (std::uint32_t number = 0; number < count; ++number)
        threads.emplace_back(start, number);
}

} // namespace Tavrik::Ossira::tTest
