// The helpers of the tests that need no platform of their own.
#include "TestTools.h"

#include "TestPlatform.h"

#include <atomic>
#include <fstream>
#include <random>

namespace Tavrik::Ossira::tTest
{

ObjectPtr<ISingleton> SingletonRegistry()
{
    return Make<ISingleton>(CLSID_GlobalSingleton);
}

std::filesystem::path ModuleFolder(std::string_view folder)
{
    return ProgramPath().parent_path() / "test-modules" / folder;
}

std::filesystem::path ModuleFile(std::string_view folder, std::string_view module)
{
    return ModuleFolder(folder) / (std::string(module) + ".dll");
}

namespace
{

ObjectPtr<IClassRegisterService> RegisterService(IObjectFactory* factory)
{
    auto service = Make<IClassRegisterService>(CLSID_ClassRegisterService);
    EXPECT_EQ(service->SetFactory(factory), S_OK);
    return service;
}

} // namespace

Result RegisterModule(const std::filesystem::path& file, IClsidRegistry* registry,
                      IObjectFactory* factory, IUnknown* argument)
{
    return RegisterService(factory)->RegisterModule(file.wstring().c_str(), registry, argument);
}

Result RegisterFolder(const std::filesystem::path& folder, IClsidRegistry* registry,
                      IObjectFactory* factory)
{
    return RegisterService(factory)->RegisterFolder(folder.wstring().c_str(), nullptr, registry,
                                                    nullptr);
}

std::size_t CountClasses(IObjectFactory& factory)
{
    ObjectPtr<IEnumeratorGUID> classes;
    EXPECT_EQ(factory.GetClasses(IID_IEnumeratorGUID, classes.PutVoid()), S_OK);
    std::size_t count = 0;
    while (classes->MoveNext() == S_OK)
        ++count;
    return count;
}

std::string TextOf(IValueSet& set, const GUID& key)
{
    const Result size = set.GetValueData(key, DATATYPE_CharString, nullptr, 0);
    if (Failed(size))
        return {};
    std::string text(static_cast<std::size_t>(size), '\0');
    EXPECT_EQ(set.GetValueData(key, DATATYPE_CharString, text.data(), size), size);
    return text;
}

std::uint32_t ReferencesOn(IUnknown& object)
{
    object.AddRef();
    return object.Release();
}

TempFolder::TempFolder()
{
    static std::random_device random;
    do
        mPath = std::filesystem::temp_directory_path() / ("ossira-" + std::to_string(random()));
    while (!std::filesystem::create_directory(mPath));
}

TempFolder::~TempFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
}

std::filesystem::path TempFolder::Write(const std::filesystem::path& name,
                                        std::string_view content) const
{
    std::filesystem::path file = mPath / name;
    std::ofstream(file, std::ios::binary) << content;
    return file;
}

std::string ReadFile(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

} // namespace Tavrik::Ossira::tTest
