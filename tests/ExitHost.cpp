// A host that ends without clean-up, in the way that its argument names; the process must all the
// same end with what the host answers, and in time. It is built twice: linked to the runtime, and
// loading it while it runs. Everything here leaks on purpose.
#include "Ossira.h"
#include "Platform.h"
#include "TestItem.h"
#include "TestModules.h"
#include "TestPlatform.h"

#include <cstdlib>
#include <future>
#include <thread>

// Asked by the leak detection of a sanitizer.
OSSIRA_EXPORT int __lsan_is_turned_off()
{
    return 1;
}

namespace Tavrik::Ossira::tTest
{

namespace
{

decltype(&CreateClassObject) gCreate = nullptr;
ObjectPtr<ICounter> gStaticReference;

// What the host entered as a singleton: it is not to be called any more when the process ends.
class HostObject final : public Uncounted<IUnknown>
{
public:
    std::uint32_t Release() override
    {
        if (IsOver)
            std::_Exit(12);
        return 1;
    }

    bool IsOver = false;
};
HostObject& gHostObject = *new HostObject; // outlives the host's static objects

template <class Interface>
[[nodiscard]] ObjectPtr<Interface> New(const CLSID& clsid)
{
    ObjectPtr<Interface> object;
    gCreate(&clsid, &Interface::Iid, object.PutVoid());
    return object;
}

[[nodiscard]] ObjectPtr<ICounter> NewCounter(const CLSID& clsid = CLSID_Counter)
{
    ObjectPtr<ICounter> counter;
    if (const auto singletons = New<ISingleton>(CLSID_GlobalSingleton); singletons)
        singletons->GetClassObject(clsid, IID_ICounter, counter.PutVoid());
    return counter;
}

// Leaves a pool behind that has just had work.
[[nodiscard, maybe_unused]] bool UsePool()
{
    auto* const box = New<ICommonThreadPoolBox>(CLSID_CommonThreadPoolBox).Detach();
    tSystem::tThreads::IThreadPool* pool = nullptr;
    tSystem::tThreads::CThreadJob job([](tSystem::tThreads::CAbortFlag) {});
    return box->Create(8) == S_OK && box->GetThreadPool(&pool) == S_OK &&
           pool->Run(&job, nullptr, 1, "short") == S_OK;
}

[[nodiscard]] bool Register(const char* folder, const char* module)
{
    const auto file = ProgramPath().parent_path() / "test-modules" / folder / module;
    const auto service = New<IClassRegisterService>(CLSID_ClassRegisterService);
    return service->RegisterModule(file.wstring().c_str(), nullptr, nullptr) == S_OK;
}

// Brings singletons and objects of the runtime to life, and maybe those of a module; they stay.
[[nodiscard]] bool Populate(bool withModule)
{
    const auto singletons = New<ISingleton>(CLSID_GlobalSingleton);
    ObjectPtr<IList> list;
    if (singletons->GetClassObject(CLSID_NodeList, IID_IList, list.PutVoid()) != S_OK ||
        list->Add(New<IValue>(CLSID_Value).Detach()) != S_OK)
        return false;
    singletons->AddRef();
    return !withModule ||
           (Register("good", "Counter.dll") && list->Add(NewCounter().Detach()) == S_OK);
}

// Calls objects and, if it is to, creates others all the time; calling alone takes no memory.
void WorkForEver(bool creates, std::promise<void>& isRunning)
{
    auto value = New<IValue>(CLSID_Value);
    auto counter = NewCounter();
    for (std::int32_t round = 0;; ++round)
    {
        if (value && counter)
        {
            value->SetValue(DATATYPE_SINT32, &round, sizeof round);
            counter->CountInModule();
        }
        if (creates)
        {
            value = New<IValue>(CLSID_Value);
            counter = NewCounter();
        }
        if (round == 100)
            isRunning.set_value();
    }
}

int Run(const std::string& scenario)
{
    if (scenario == "host-object") // without a module: one that was torn down keeps everything
    {
        const auto singletons = New<ISingleton>(CLSID_GlobalSingleton);
        gHostObject.IsOver = singletons->RegisterObject(Numbered(1), &gHostObject) == S_OK;
        return gHostObject.IsOver ? 0 : 13;
    }
    if (!Populate(true))
        return 10;
    if (scenario.ends_with("-threads"))
    {
        static std::promise<void> isRunning[4];
        for (std::promise<void>& isWorking : isRunning)
            std::thread(WorkForEver, scenario == "creating-threads", std::ref(isWorking)).detach();
        for (std::promise<void>& isWorking : isRunning)
            isWorking.get_future().wait();
    }
    else if (scenario == "lock-held") // by a thread that will not give it back
        std::thread([] { New<ICriticalSection>(CLSID_GlobalCriticalSection).Detach()->Lock(); })
            .join();
    else if (scenario == "pool-in-module")
        return Register("pool", "PoolHolder.dll") &&
                       NewCounter(CLSID_PoolHolder)->CountInModule() >= 3
                   ? 0
                   : 11;
    else if (scenario == "static-reference")
        gStaticReference = NewCounter();
    return 0;
}

} // namespace

} // namespace Tavrik::Ossira::tTest

// Unloads the runtime while its objects live, twice: what a process did once it can do again. The
// runtime's own objects do not keep it; a module of it may.
int main(int argumentCount, char** arguments)
{
    using namespace Tavrik::Ossira::tTest;
    const std::string scenario = argumentCount == 2 ? arguments[1] : "";
#ifdef OSSIRA_LINKED
    gCreate = &CreateClassObject;
    return Run(scenario);
#else
    const std::filesystem::path file = ProgramPath().parent_path() / "TavrikOssira.dll";
    for (int round = 0; round < 2; ++round)
    {
        // Never destroyed, which would unload it before the process ends.
        static auto& runtime = *new Tavrik::tSystem::CLibrary;
        if (!runtime.Open(file.wstring().c_str()))
            return 20;
        gCreate = reinterpret_cast<decltype(gCreate)>(runtime.Find("CreateClassObject"));
        if (!scenario.starts_with("unload"))
            return Run(scenario);
        if (!Populate(scenario == "unload-with-module") ||
            (scenario == "unload-with-pool" && !UsePool()))
            return 21;
        runtime.Close();
        if (scenario != "unload-with-module" && IsMapped(file))
            return 22;
    }
    AwaitOtherThreads(); // the workers, which end after the library that they ran
    return 0;
#endif
}
