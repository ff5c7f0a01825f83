// %NAME%: starts the modules of the folders that are its arguments, and says which classes they have.
#include <Ossira.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <vector>

namespace Oss = Tavrik::Ossira;

// A key of this program's own, under which its modules find what it tells them when they start.
inline constexpr GUID Start_ProgramName = {
    %GUID%};

// A folder that is not there, or in which no module lies, would end the start-up; that is no fault
// of a program whose user has not installed any module yet.
static bool HasModules(const std::filesystem::path& folder)
{
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error))
    {
        if (entry.path().extension() == ".dll")
            return true;
    }
    return false;
}

static bool AddFolders(Oss::IMasterBootstrap& bootstrap, const std::vector<std::string>& folders)
{
    Oss::ObjectPtr<Oss::IList> list;
    if (Oss::Failed(bootstrap.GetModuleFolders(list.PutVoid())) || Oss::Failed(list->Clear()))
        return false;
    for (const std::filesystem::path folder : folders)
    {
        Oss::ObjectPtr<Oss::IValue> path;
        if (HasModules(folder) &&
            (Oss::Failed(Oss::CreateValue(path.Put())) ||
             Oss::Failed(Oss::SetValueUniString(path.Get(), folder.wstring())) ||
             Oss::Failed(list->Add(path.Get()))))
            return false;
    }
    return true;
}

static int CountClasses(Oss::IObjectFactory& factory)
{
    int count = 0;
    Oss::ObjectPtr<Oss::IEnumeratorGUID> classes;
    if (Oss::Succeeded(factory.GetClasses(Oss::IID_IEnumeratorGUID, classes.PutVoid())))
    {
        while (classes->MoveNext() == Oss::S_OK)
            ++count;
    }
    return count;
}

static bool Live(Oss::IMasterBootstrap& bootstrap, Oss::IValueSet& parameters)
{
    Oss::ObjectPtr<Oss::IObjectFactory> factory;
    Oss::ObjectPtr<Oss::ISingleton> singletons;
    if (Oss::Failed(bootstrap.Startup(&parameters)) ||
        Oss::Failed(Oss::CreateObject(Oss::CLSID_GlobalSingleton, singletons)) ||
        Oss::Failed(singletons->GetClassObject(Oss::CLSID_GlobalObjectFactory,
                                               Oss::IID_IObjectFactory, factory.PutVoid())))
        return false;
    std::printf("%NAME%: %d classes\n", CountClasses(*factory));
    return true;
} // whatever is of a module is released here, before its module goes

int main(int count, char** arguments)
try
{
    Oss::ObjectPtr<Oss::IMasterBootstrap> bootstrap;
    Oss::ObjectPtr<Oss::IValueSet> parameters;
    if (Oss::Failed(Oss::CreateObject(Oss::CLSID_MasterBootstrap, bootstrap)) ||
        Oss::Failed(Oss::CreateValueSet(parameters.Put())) ||
        Oss::Failed(Oss::SetValueUniString(parameters.Get(), Start_ProgramName, L"%NAME%")) ||
        !AddFolders(*bootstrap, {arguments + 1, arguments + count}))
        return 1;
    const bool worked = Live(*bootstrap, *parameters);
    return Oss::Succeeded(bootstrap->Cleanup(parameters.Get())) && worked ? 0 : 1;
}
catch (const std::exception& failure)
{
    std::fprintf(stderr, "%NAME%: %s\n", failure.what());
    return 1;
}
