// Reads the folder that is its argument and has the module's class name itself.
#include <Ossira.h>
#include <OssiraVersion.h>

#include <cstdio>
#include <cstring>

using namespace Tavrik::Ossira;

static_assert(OSSIRA_VERSION_MAJOR == 1);

constexpr CLSID CLSID_Hello = {
    0x3D1C5C55, 0x0B9E, 0x4D0F, {0x9A, 0x3E, 0x77, 0x4C, 0x12, 0x5B, 0xE0, 0x61}};

static bool AddFolder(IMasterBootstrap& bootstrap, const char* folder)
{
    ObjectPtr<IList> folders;
    ObjectPtr<IValue> path;
    return Succeeded(bootstrap.GetModuleFolders(folders.PutVoid())) && folders->Clear() == S_OK &&
           Succeeded(CreateValue(path.Put())) &&
           Succeeded(
               SetValueUniString(path.Get(), std::wstring(folder, folder + std::strlen(folder)))) &&
           Succeeded(folders->Add(path.Get()));
}

static bool Greet()
{
    ObjectPtr<IObjectIdentity> hello;
    char name[64] = {};
    if (Failed(CreateObject(CLSID_Hello, hello)) ||
        Failed(hello->GetObjectClassName(name, sizeof name)))
        return false;
    std::printf("%s says hello\n", name);
    return true;
}

int main(int count, char** arguments)
{
    ObjectPtr<IMasterBootstrap> bootstrap;
    if (count != 2 || Failed(CreateObject(CLSID_MasterBootstrap, bootstrap)))
        return 1;
    const bool worked =
        AddFolder(*bootstrap, arguments[1]) && Succeeded(bootstrap->Startup(nullptr)) && Greet();
    return Succeeded(bootstrap->Cleanup(nullptr)) && worked ? 0 : 1;
}
