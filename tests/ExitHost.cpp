// A host that ends without clean-up, in the way that its argument names; the process must all the
// same end with what the host answers, and in time. It is built twice: linked to the runtime, and
// loading it while it runs. Everything here leaks on purpose, but where memory runs short.
#include "AllocationWatch.h"
#include "Ossira.h"
#include "Platform.h"
#include "TestItem.h"
#include "TestModules.h"
#include "TestPlatform.h"

#include <cstdio>
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

#ifndef OSSIRA_LINKED

[[nodiscard]] bool Load(tSystem::CLibrary& runtime, const std::wstring& file)
try
{
    const bool isOpen = runtime.Open(file.c_str());
    gCreate = reinterpret_cast<decltype(gCreate)>(runtime.Find("CreateClassObject"));
    return isOpen && tSystem::WatchAllocations(file.c_str());
}
catch (const std::bad_alloc&)
{
    return false; // the host's own
}

// From the start-up of a folder of modules to the clean-up; answers the first failure.
Result Live(const std::wstring& modules, ObjectPtr<IBootstrap>& host)
try
{
    const auto demand = [](Result answer)
    {
        if (Failed(answer))
            throw answer;
    };
    const auto make = [&]<class Interface>(const CLSID& clsid, ObjectPtr<Interface>& object)
    {
        demand(gCreate(&clsid, &Interface::Iid, object.PutVoid()));
    };
    ObjectPtr<IMasterBootstrap> master;
    ObjectPtr<IList> folders;
    ObjectPtr<IValue> folder;
    ObjectPtr<IValueSet> traces;
    std::string trace;
    make(CLSID_MasterBootstrap, master);
    make(CLSID_Value, folder);
    make(CLSID_ValueSet, traces);
    demand(master.QueryTo(host));
    demand(master->GetModuleFolders(folders.PutVoid()));
    demand(folders->Clear());
    demand(SetValueUniString(folder.Get(), modules));
    demand(folders->Add(folder.Get()));
    const Result started = master->Startup(traces.Get());
    const Result cleaned = host->Cleanup(traces.Get());
    demand(started);
    demand(cleaned);
    demand(GetValueCharString(traces.Get(), BootstrapTrace, &trace));
    return trace == "A+B+C+D+D-C-A-B-" ? S_OK : E_UNEXPECTED;
}
catch (Result failure)
{
    return failure;
}
catch (const std::bad_alloc&)
{
    return E_OUTOFMEMORY; // the host's own
}

// Memory runs out at every point of a life of the runtime, from its being loaded on. Each time the
// answer is a failure, or all was done; then it cleans up, lives again, and leaves nothing behind.
int RunShort(const std::filesystem::path& file)
{
    const std::wstring path = file.wstring();
    const std::wstring modules = (file.parent_path() / "test-modules" / "bootstrap").wstring();
    int points = 0, wrong = 0;
    std::int64_t usual = 0;
    for (const bool andLater : {false, true})
    {
        bool isShort = true;
        for (std::int64_t which = -2; which <= 0 || isShort; ++which)
        {
            Result first = E_OUTOFMEMORY, over = S_OK, second = E_FAIL;
            std::int64_t left = -tSystem::LiveAllocations();
            {
                tSystem::CLibrary runtime;
                ObjectPtr<IBootstrap> host;
                tSystem::FailAllocations(which < 0 ? 1'000'000 : which, andLater);
                if (Load(runtime, path))
                    first = Live(modules, host);
                isShort = tSystem::EndFailing();
                if (host)
                    over = host->Cleanup(nullptr);
                host.Reset();
                // Where the system loads what could not be attached, it is to be loaded anew.
                const bool isAttached = runtime.IsOpen() && first != E_ACCESSDENIED;
                if (isAttached || Load(runtime, path))
                    second = Live(modules, host);
            }
            left += tSystem::LiveAllocations();
            if (which < 0) // twice, since what is made only once is made in the first life
                usual = left;
            points += isShort ? 1 : 0;
            const bool isRight =
                first == S_OK || (isShort && (first == E_OUTOFMEMORY || first == E_ACCESSDENIED));
            if (isRight && over == S_OK && second == S_OK && left == usual && !IsMapped(file))
                continue;
            ++wrong;
            std::printf("%d%s: %x, %x, %x, %d blocks left\n", static_cast<int>(which),
                        andLater ? " and later" : "", static_cast<unsigned>(first),
                        static_cast<unsigned>(over), static_cast<unsigned>(second),
                        static_cast<int>(left - usual));
        }
    }
    std::printf("%d points, %d wrong\n", points, wrong);
    return points > 200 && wrong == 0 ? 0 : 30;
}

#endif

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
    if (scenario == "memory-short")
        return RunShort(file);
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
