// What the two helper programs of the exit tests share. Everything here leaks on purpose.
#include "ExitScenarios.h"

#include "OssiraClasses.h"
#include "OssiraPointer.h"
#include "OssiraServices.h"
#include "OssiraValue.h"
#include "TestModules.h"
#include "TestPlatform.h"

#include <chrono>
#include <cstdlib>
#include <future>
#include <thread>

// Asked by the leak detection of a sanitizer.
OSSIRA_EXPORT int __lsan_is_turned_off();

int __lsan_is_turned_off()
{
    return 1;
}

namespace Tavrik::Ossira::tTest
{

namespace
{

// Does nothing at its end, unlike a static pointer that owns.
IUnknown* gLeaked[3];

ObjectPtr<ICounter> gStaticReference;

template <class Interface>
[[nodiscard]] ObjectPtr<Interface> New(CreateClassObjectFunction create, const CLSID& clsid)
{
    ObjectPtr<Interface> object;
    create(&clsid, &Interface::Iid, object.PutVoid());
    return object;
}

// Has the module's class registered and fills `counter` with an object of it.
bool MakeCounter(ISingleton& singletons, CreateClassObjectFunction create,
                 ObjectPtr<ICounter>& counter)
{
    const std::filesystem::path file =
        ProgramPath().parent_path() / "test-modules" / "good" / "Counter.dll";
    const auto service = New<IClassRegisterService>(create, CLSID_ClassRegisterService);
    if (!service || service->RegisterModule(file.wstring().c_str(), nullptr, nullptr) != S_OK)
        return false;
    return singletons.GetClassObject(CLSID_Counter, IID_ICounter, counter.PutVoid()) == S_OK;
}

void UseTheRuntimeForEver(CreateClassObjectFunction create, std::promise<void>& isRunning)
{
    for (int round = 0;; ++round)
    {
        const auto value = New<IValue>(create, CLSID_Value);
        if (value)
            value->SetValue(DATATYPE_SINT32, &round, sizeof round);
        if (const auto singletons = New<ISingleton>(create, CLSID_GlobalSingleton); singletons)
        {
            ObjectPtr<ICounter> counter;
            singletons->GetClassObject(CLSID_Counter, IID_ICounter, counter.PutVoid());
            if (counter)
                counter->CountInModule();
        }
        if (round == 100)
            isRunning.set_value();
    }
}

void HoldTheLockForEver(CreateClassObjectFunction create, std::promise<void>& isRunning)
{
    const auto lock = New<ICriticalSection>(create, CLSID_GlobalCriticalSection);
    lock->Lock();
    isRunning.set_value();
    for (;;)
        std::this_thread::sleep_for(std::chrono::hours(1));
}

void StartForEver(void (*work)(CreateClassObjectFunction, std::promise<void>&),
                  CreateClassObjectFunction create)
{
    auto* const isRunning = new std::promise<void>;
    std::thread([=] { work(create, *isRunning); }).detach();
    isRunning->get_future().wait();
}

} // namespace

bool Populate(CreateClassObjectFunction create, bool withModule)
{
    const auto singletons = New<ISingleton>(create, CLSID_GlobalSingleton);
    ObjectPtr<IClsidRegistry> registry;
    ObjectPtr<IValueSet> set;
    if (!singletons ||
        singletons->GetClassObject(CLSID_ClsidRegistry, IID_IClsidRegistry, registry.PutVoid()) !=
            S_OK ||
        singletons->GetClassObject(CLSID_ValueSet, IID_IValueSet, set.PutVoid()) != S_OK)
        return false;
    gLeaked[0] = singletons.Get();
    gLeaked[0]->AddRef();

    auto value = New<IValue>(create, CLSID_Value);
    set->SetValueGUID(CLSID_Value, value.Get());
    gLeaked[1] = value.Detach();
    if (!withModule)
        return true;

    ObjectPtr<ICounter> counter;
    if (!MakeCounter(*singletons, create, counter))
        return false;
    const auto list = New<IList>(create, CLSID_NodeList);
    list->Add(counter.Get());
    singletons->RegisterObject(CLSID_NodeList, list.Get());
    gLeaked[2] = counter.Detach();
    return true;
}

int RunScenario(const std::string& name, CreateClassObjectFunction create)
{
    if (!Populate(create, true))
        return 10;
    if (name == "return")
        return 0;
    if (name == "exit")
        std::exit(0);
    if (name == "busy-thread")
    {
        for (int thread = 0; thread < 4; ++thread)
            StartForEver(&UseTheRuntimeForEver, create);
        return 0;
    }
    if (name == "lock-held")
    {
        StartForEver(&HoldTheLockForEver, create);
        return 0;
    }
    if (name == "static-reference")
    {
        const auto singletons = New<ISingleton>(create, CLSID_GlobalSingleton);
        return MakeCounter(*singletons, create, gStaticReference) ? 0 : 11;
    }
    return 12;
}

} // namespace Tavrik::Ossira::tTest
