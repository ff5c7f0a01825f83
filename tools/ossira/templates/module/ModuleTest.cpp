// Starts the modules of the folder that is its argument, and tries an object of class %NAME%.
#include "%NAME%.h"

#include <Ossira.h>

#include <cstdio>
#include <string>

namespace Oss = Tavrik::Ossira;

static bool Check(bool isTrue, const char* what)
{
    if (!isTrue)
        std::fprintf(stderr, "failed: %s\n", what);
    return isTrue;
}

static bool StartFolder(Oss::IMasterBootstrap& bootstrap, const std::string& folder)
{
    Oss::ObjectPtr<Oss::IList> folders;
    Oss::ObjectPtr<Oss::IValue> path;
    return Oss::Succeeded(bootstrap.GetModuleFolders(folders.PutVoid())) &&
           Oss::Succeeded(folders->Clear()) && Oss::Succeeded(Oss::CreateValue(path.Put())) &&
           Oss::Succeeded(Oss::SetValueUniString(
               path.Get(), std::wstring(folder.begin(), folder.end()))) &&
           Oss::Succeeded(folders->Add(path.Get())) &&
           Oss::Succeeded(bootstrap.Startup(nullptr));
}

static bool TryObject()
{
    Oss::ObjectPtr<%NAME%Module::I%NAME%> object;
    return Check(Oss::Succeeded(Oss::CreateObject(%NAME%Module::CLSID_%NAME%, object)),
                 "an object is created") &&
           Check(object->Count() == 1 && object->Count() == 2, "it counts");
} // the object is released here, before its module goes

int main(int count, char** arguments)
{
    Oss::ObjectPtr<Oss::IMasterBootstrap> bootstrap;
    if (!Check(count == 2, "the argument is a folder") ||
        !Check(Oss::Succeeded(Oss::CreateObject(Oss::CLSID_MasterBootstrap, bootstrap)),
               "the runtime is there"))
        return 1;
    const bool worked =
        Check(StartFolder(*bootstrap, arguments[1]), "the modules start") && TryObject();
    return Check(Oss::Succeeded(bootstrap->Cleanup(nullptr)), "clean-up") && worked ? 0 : 1;
}
