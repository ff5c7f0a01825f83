// A host that loads the runtime while it runs and ends, or unloads it, as its argument says.
#include "ExitScenarios.h"
#include "Platform.h"
#include "TestPlatform.h"

using namespace Tavrik::Ossira::tTest;

namespace
{

const std::filesystem::path RuntimeFile = ProgramPath().parent_path() / "TavrikOssira.dll";

CreateClassObjectFunction Load(Tavrik::tSystem::CLibrary& runtime)
{
    if (!runtime.Open(RuntimeFile.wstring().c_str()))
        return nullptr;
    return reinterpret_cast<CreateClassObjectFunction>(runtime.Find("CreateClassObject"));
}

// Unloads the runtime while its objects live, twice: what a process did once it can do again.
int Unload(bool withModule)
{
    for (int round = 0; round < 2; ++round)
    {
        Tavrik::tSystem::CLibrary runtime;
        const CreateClassObjectFunction create = Load(runtime);
        if (create == nullptr)
            return 20;
        if (!Populate(create, withModule))
            return 21;
        runtime.Close();
        // The runtime's own objects do not keep it; a module of it may.
        if (!withModule && IsMapped(RuntimeFile))
            return 22;
    }
    return 0;
}

} // namespace

int main(int argumentCount, char** arguments)
{
    if (argumentCount != 2)
        return 1;
    const std::string scenario = arguments[1];
    if (scenario == "unload" || scenario == "unload-with-module")
        return Unload(scenario == "unload-with-module");

    static Tavrik::tSystem::CLibrary runtime;
    const CreateClassObjectFunction create = Load(runtime);
    return create == nullptr ? 20 : RunScenario(scenario, create);
}
