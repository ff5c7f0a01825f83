// Small helpers that most tests need: services, modules, folders, values.
#pragma once

#include "OssiraClasses.h"
#include "OssiraPointer.h"
#include "OssiraServices.h"
#include "OssiraValue.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
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

[[nodiscard]] ObjectPtr<ISingleton> SingletonRegistry();

// The one object of a class; the test fails when there is none.
template <class Interface>
[[nodiscard]] ObjectPtr<Interface> Singleton(const CLSID& clsid)
{
    ObjectPtr<Interface> object;
    EXPECT_EQ(SingletonRegistry()->GetClassObject(clsid, Interface::Iid, object.PutVoid()), S_OK);
    return object;
}

[[nodiscard]] inline ObjectPtr<IObjectFactory> GlobalFactory()
{
    return Singleton<IObjectFactory>(CLSID_GlobalObjectFactory);
}

// The folder of test modules of that name, and a module file in it. Both lie beside the program.
[[nodiscard]] std::filesystem::path ModuleFolder(std::string_view folder);
[[nodiscard]] std::filesystem::path ModuleFile(std::string_view folder, std::string_view module);

// Reads modules into a factory (null: the global one), with a registry for their bootstrap classes
// (may be null).
[[nodiscard]] Result RegisterModule(const std::filesystem::path& file,
                                    IClsidRegistry* registry = nullptr,
                                    IObjectFactory* factory = nullptr,
                                    IUnknown* argument = nullptr);
[[nodiscard]] Result RegisterFolder(const std::filesystem::path& folder,
                                    IClsidRegistry* registry = nullptr,
                                    IObjectFactory* factory = nullptr);

// The classes that a factory knows.
[[nodiscard]] std::size_t CountClasses(IObjectFactory& factory);

// The text of a narrow-string entry of a value set; empty when there is none.
[[nodiscard]] std::string TextOf(IValueSet& set, const GUID& key);

// The references on an object, as its `Release` tells.
[[nodiscard]] std::uint32_t ReferencesOn(IUnknown& object);

// A new empty folder that vanishes with its content.
class TempFolder
{
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& Path() const
    {
        return mPath;
    }

    // Writes a file and answers its path.
    std::filesystem::path Write(const std::filesystem::path& name, std::string_view content) const;

private:
    std::filesystem::path mPath;
};

[[nodiscard]] std::string ReadFile(const std::filesystem::path& file);

// The value of `--name=number` on the command line, or the default. Filled by the test programs'
// entry.
[[nodiscard]] int CommandLineNumber(std::string_view name, int otherwise);

} // namespace Tavrik::Ossira::tTest
