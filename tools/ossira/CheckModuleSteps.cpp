// What is asked of a module as a whole: its exports, and the categories in which it files its
// classes.
#include "CheckObject.h"
#include "CheckSteps.h"
#include "Print.h"

namespace Tavrik::tHost
{

using namespace Ossira;

namespace
{

void CheckExports(const CCheckScene& scene)
{
    const CCheckedModule module(scene.Path());
    const auto& calls = module.Calls();
    const std::vector<KnownClass> classes = module.Classes();
    Demand(!classes.empty(), "no class in the table: is OSSIRA_CLASS missing?");
    for (std::size_t index = 1; index < classes.size(); ++index)
    {
        Demand(!SameGuid(classes[index].Id, classes[index - 1].Id),
               BracedGuid(classes[index].Id) + " stands twice in the class table, as \"" +
                   classes[index - 1].Text + "\" and as \"" + classes[index].Text + '"');
    }
    const CLSID& first = classes.front().Id;
    const auto count = static_cast<std::uint32_t>(classes.size());
    CLSID clsid = {};
    char text[16];
    void* out = &out;
    const auto refuses = [&](const char* what, auto call)
    {
        scene.Doing(what);
        Demand(Failed(Guarded(what, call)), std::string(what) + " is answered with success");
    };
    refuses("DllGetClassObject without a place for the object",
            [&] { return calls.GetClassObject(&first, &IID_IUnknown, nullptr); });
    refuses("DllGetClassObject without a class identifier",
            [&] { return calls.GetClassObject(nullptr, &IID_IUnknown, &out); });
    refuses("DllGetClassObject without an interface identifier",
            [&] { return calls.GetClassObject(&first, nullptr, &out); });
    out = &out;
    refuses("DllGetClassObject for a class that it does not have",
            [&] { return calls.GetClassObject(&IID_OfNobody, &IID_IUnknown, &out); });
    Demand(out == nullptr, "DllGetClassObject refuses a class and leaves *out as it was");
    refuses("DLLGetClassObjectID behind the last class",
            [&] { return calls.GetClassObjectID(count, 1, &clsid); });
    refuses("DLLGetClassObjectID without a place for the identifier",
            [&] { return calls.GetClassObjectID(0, 1, nullptr); });
    refuses("DLLGetClassObjectInfo behind the last class",
            [&] { return calls.GetClassObjectInfo(count, text, sizeof text); });
    refuses("DLLGetClassObjectInfo without a place for the text",
            [&] { return calls.GetClassObjectInfo(0, nullptr, sizeof text); });
}

// What a class must offer that is filed in a category of the runtime.
struct Duty
{
    GUID Category;
    const char* Name;
    IID Interface;
    const char* InterfaceName;
};

constexpr Duty Duties[] = {
    {BootstrapRegistryStartup_Level0, "start-up, level 0", IID_IBootstrap, "IBootstrap"},
    {BootstrapRegistryStartup_Level1, "start-up, level 1", IID_IBootstrap, "IBootstrap"},
    {BootstrapRegistryStartup_Level2, "start-up, level 2", IID_IBootstrap, "IBootstrap"},
    {BootstrapRegistryCleanup_Level0, "clean-up, level 0", IID_IBootstrap, "IBootstrap"},
    {BootstrapRegistryCleanup_Level1, "clean-up, level 1", IID_IBootstrap, "IBootstrap"},
    {BootstrapRegistryCleanup_Level2, "clean-up, level 2", IID_IBootstrap, "IBootstrap"},
    {REGCAT_Datatypes, "the datatypes", IID_IDatatypes, "IDatatypes"},
};

void CheckCategories(const CCheckScene& scene)
{
    const CCheckedModule module(scene.Path());
    if (module.Calls().RegisterBootstrap == nullptr)
        throw CNotChecked("the module has no DLLRegisterBootstrap");
    ObjectPtr<IClsidRegistry> registry;
    Require(CreateObject(CLSID_ClsidRegistry, registry), "Creating a CLSID registry");
    for (const char* const time : {"DLLRegisterBootstrap", "DLLRegisterBootstrap, a second time,"})
    {
        scene.Doing(time);
        const Result filed = Guarded(
            time, [&] { return module.Calls().RegisterBootstrap(registry.Get(), nullptr); });
        Demand(Succeeded(filed), std::string(time) + " answers " + CodeText(filed));
    }
    const std::vector<KnownClass> classes = module.Classes();
    for (const Duty& duty : Duties)
    {
        for (const KnownClass& known : classes)
        {
            if (registry->ContainsClass(duty.Category, known.Id) != S_OK)
                continue;
            Demand(Has(*module.Create(known.Id), duty.Interface),
                   "class \"" + known.Text + "\" is filed for " + duty.Name + ", and has no " +
                       duty.InterfaceName);
        }
    }
}

constexpr CheckStep StepsOfModule[] = {
    {"exports", &CheckExports, "a host, of whatever language, asks these with what it has",
     "the class table (OSSIRA_CLASS), or the exports if they are the module's own"},
    {"categories", &CheckCategories,
     "a class without the interface of its category ends the start-up of every host",
     "OSSIRA_BOOTSTRAP, and the class's OSSIRA_INTERFACES"},
};

} // namespace

std::span<const CheckStep> ModuleSteps()
{
    return StepsOfModule;
}

} // namespace Tavrik::tHost
