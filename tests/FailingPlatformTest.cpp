// Every call that the runtime makes of the platform, and of the heap, fails in turn: the first one
// of a kind, then the second, and so on until what was tried succeeds; once with only that one
// failing, once with all after it, with each error that the call may have. Each time the answer
// must be the error's code, or all is done as if nothing had been, and nothing stays open; then the
// next try succeeds.
#include "ComServer.h"
#include "FailingCalls.h"
#include "FailingMemory.h"
#include "Library.h"
#include "OssiraDatatypes.h"
#include "OssiraFrame.h"
#include "ServiceTools.h"
#include "threads/ThreadPool.h"
#include "threads/WorkerSlot.h"

namespace Tavrik::Ossira::tTest
{

namespace
{

using namespace tSystem::tThreads;

// What is tried works on these.
struct World
{
    explicit World(Stream stream) : Lines(stream)
    {
        EXPECT_EQ(SetValueUniString(Where.Get(), DirectoryServiceParam_Path,
                                    ModuleFolder("dependent").wstring()),
                  S_OK);
        for (int depth = 0; depth < 8; ++depth)
        {
            const auto inner = std::exchange(Nested, Make<IList>(CLSID_NodeList));
            EXPECT_EQ(Nested->Add(inner.Get()), S_OK);
        }
    }

    // A folder with one module, whose class starts and is cleaned up.
    [[nodiscard]] static std::wstring OneModule()
    {
        static const TempFolder folder;
        static const auto module =
            folder.Write("One.dll", ReadFile(ModuleFile("bootstrap", "BootstrapInner")));
        return folder.Path().wstring();
    }

    // What a caller sees of them.
    [[nodiscard]] std::string State()
    {
        const std::string line = Lines.Text().substr(Told);
        Told += line.size();
        return std::to_string(CountClasses(*Factory)) + ' ' + TextOf(*Trace, BootstrapTrace) + ' ' +
               std::to_string(Number) + (TellsLines ? line : "");
    }

    DiagnosticsCapture Lines;
    const std::wstring Bootstrap = OneModule();
    const std::wstring Relative = std::filesystem::proximate(ModuleFolder("dependent")).wstring();
    std::size_t Told = 0; // of the lines
    bool TellsLines = false;
    std::int32_t Number = 0;
    ObjectPtr<IValueSet> Trace = Make<IValueSet>(CLSID_ValueSet);
    ObjectPtr<IValueSet> Where = Make<IValueSet>(CLSID_ValueSet);
    ObjectPtr<IDirectoryService> Directory = Make<IDirectoryService>(CLSID_DirectoryService);
    ObjectPtr<IObjectFactory> Factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    ObjectPtr<IClsidRegistry> Registry = Make<IClsidRegistry>(CLSID_ClsidRegistry);
    ObjectPtr<IClassRegisterService> Reader = RegisterService(Factory.Get());
    ObjectPtr<IList> Nested = Make<IList>(CLSID_NodeList);
    ObjectPtr<IDatatypesService> Types = Make<IDatatypesService>(CLSID_DatatypesService);
    ObjectPtr<ICommonThreadPoolBox> Box = Make<ICommonThreadPoolBox>(CLSID_CommonThreadPoolBox);
};

// --- What is tried -------------------------------------------------------------------------------

Result Load(const std::wstring& file)
{
    tSystem::CLibrary library;
    if (library.Open(file.c_str()) && library.Find("OssiraTestHelperAnswer") != nullptr)
        return S_OK;
    return library.Failure() == tSystem::ELoadFailure::NoMemory ? E_OUTOFMEMORY : E_FAIL;
}

Result StartAndCleanUp(World& w)
{
    ObjectPtr<IMasterBootstrap> host;
    Result prepared = SetValueCharString(w.Trace.Get(), BootstrapTrace, "");
    if (prepared == S_OK)
        prepared = CreateObject(CLSID_MasterBootstrap, host);
    if (prepared == S_OK)
        prepared = SetModuleFolders(host.Get(), {w.Bootstrap.c_str()});
    if (prepared != S_OK)
        return Failed(prepared) ? prepared : E_FAIL; // the folder was passed over
    host->SetFactory(w.Factory.Get());
    host->SetClsidRegistry(w.Registry.Get());
    const Result started = host->Startup(w.Trace.Get());
    const Result cleaned = host->Cleanup(w.Trace.Get());
    return Failed(started) ? started : cleaned;
}

Result ListFolder(World& w)
{
    ObjectPtr<ICollection> list;
    const Result listed =
        w.Directory->GetDirectoryCollection(w.Where.Get(), IID_ICollection, list.PutVoid());
    w.Number = list ? list->GetCount() : 0;
    return listed;
}

Result WriteLine(World& w)
{
    w.TellsLines = true;
    DebugOutputF("a line of %s\n", "its own");
    return S_OK;
}

Result CreateFromModule(World& w)
{
    ObjectPtr<IUnknown> object;
    Result created = w.Factory->RegisterClass(CLSID_RawSecond,
                                              ModuleFile("raw", "Decent").wstring().c_str(), "");
    if (Succeeded(created))
        created = w.Factory->GetClassObject(CLSID_RawSecond, IID_IUnknown, object.PutVoid());
    object.Reset();
    return Failed(created) ? created : w.Factory->FlushModules();
}

Result RunThread(World&)
{
    CThreadJob job([](CAbortFlag) {});
    const std::unique_ptr<WinThread, CWorkerSlot::ReleaseThread> thread(WinThread::Create());
    const Result started = thread ? thread->TryStart(&job, nullptr) : E_OUTOFMEMORY;
    if (Failed(started))
        return started;
    thread->Suspend();
    thread->Resume();
    thread->Wait();
    return thread->GetState() == ThreadFinished ? S_OK : E_UNEXPECTED;
}

Result WaitForATime(World&)
{
    CEvent event;
    if (!event.Create())
        return E_FAIL;
    const auto begin = std::chrono::steady_clock::now();
    SetPlatformError(77);
    const bool isSet = event.WaitFor(3);
    const auto passed = std::chrono::steady_clock::now() - begin;
    event.Set();
    event.Set();
    const bool isKept = PlatformError() == 77 || !tSystem::FileNamesAreBytes;
    const bool isSetOnce = event.WaitFor(3) && !event.WaitFor(1);
    event.Set();
    event.Reset();
    return !isSet && passed > std::chrono::milliseconds(2) && isSetOnce && !event.WaitFor(0) &&
                   isKept
               ? S_OK
               : E_UNEXPECTED;
}

struct Trial
{
    const char* Name;
    Result (*Run)(World& w);
    Effect PassesOver = Effect::Unnoticed; // up to that it answers success and does nothing
    bool IsWhole = true;                   // of a failure no part is left done
    Stream DebugOutput = Stream::File;
    bool IsRefused = false; // always
    std::uint32_t Levels = 0xFF;
};

// Of what causes many lines: each line makes the same calls.
constexpr std::uint32_t FewLines = PRINT_ERROR | PRINT_WARN;

using enum Effect;

const Trial Trials[] = {
    {"a pool",
     [](World& w)
     {
         IThreadPool* pool = nullptr;
         const Result made = w.Box->Create(3);
         const bool isThere = made != S_OK || w.Box->GetThreadPool(&pool) == S_OK;
         return isThere && (pool == nullptr || pool->GetThreadCount() == 3) ? made : E_UNEXPECTED;
     }},
    {"a library of a folder",
     [](World&)
     {
         return Load(ModuleFile("dependent", "Helper").wstring());
     }},
    {"a library by its name",
     [](World&)
     {
         return Load(L"Helper.dll");
     }},
    {"a missing library", [](World&) { return Load(ModuleFile("dependent", "none").wstring()); },
     Unnoticed, true, Stream::File, true},
    {"a listing", ListFolder},
    {"a module",
     [](World& w)
     {
         const auto file = ModuleFile("dependent", "Dependent").wstring();
         return w.Reader->RegisterModule(file.c_str(), nullptr, nullptr);
     },
     Unnoticed, false},
    {"a folder",
     [](World& w)
     { return w.Reader->RegisterFolder(w.Relative.c_str(), nullptr, nullptr, nullptr); },
     Refused, false, Stream::File, false, FewLines},
    {"an object of a module", CreateFromModule, Unnoticed, false},
    {"start-up and clean-up", StartAndCleanUp, Refused, false, Stream::File, false, FewLines},
    {"a line to a file", WriteLine, Lacking},
    {"a line to a pipe", WriteLine, Lacking, true, Stream::Pipe},
    {"a line to a socket", WriteLine, Lacking, true, Stream::Socket},
    {"a thread", RunThread},
    {"a wait", WaitForATime},
    {"nested lists",
     [](World& w)
     {
         return w.Nested.Reset(), S_OK;
     }},
    {"processors",
     [](World&)
     {
         return CountProcessors() > 0 ? S_OK : E_FAIL;
     }},
    {"numbers",
     [](World&)
     {
         return tSystem::UnguessableNumber() != tSystem::UnguessableNumber() ? S_OK : E_FAIL;
     }},
    {"a datum between two",
     [](World& w)
     {
         const std::int32_t from = 10, to = 30;
         return w.Types->ValueLerp(DATATYPE_SINT32, &from, 4, &to, 4, 0.5, &w.Number, 4);
     },
     Unnoticed, true, Stream::File, false, FewLines},
    {"a long text",
     [](World& w)
     {
         return SetValueCharString(w.Trace.Get(), BootstrapTrace, std::string(300, 't'));
     }},
    {"every class",
     [](World&)
     {
         Result result = S_OK;
         for (std::int32_t index = 0; index < ModuleServer()->GetClassCount(); ++index)
         {
             CLSID clsid = {};
             ObjectPtr<IUnknown> object;
             (void)ModuleServer()->GetClassObjectID(static_cast<std::uint32_t>(index), 1, &clsid);
             if (Succeeded(result))
                 result = ModuleServer()->GetClassObject(clsid, IID_IUnknown, object.PutVoid());
         }
         return result;
     },
     Unnoticed, true, Stream::File, false, FewLines},
};

// --- Failing -------------------------------------------------------------------------------------

struct TrialOutcome
{
    Result Answer;
    bool HasFailed;
    std::string Before, After;
    Result Again;
    std::string AfterAgain;
};

Result Run(const Trial& trial, World& world)
try
{
    return trial.Run(world);
}
OSSIRA_CATCH_RETURN

// Tries once more what was not done.
TrialOutcome Attempt(const Trial& trial, const FailableCall& kind, const Fault& fault,
                     std::int64_t which, bool andLater, const std::string& done)
{
    World world(trial.DebugOutput);
    TrialOutcome outcome = {S_OK, false, world.State(), "", S_OK, ""};
    {
        const ObserverMaskScope levels(trial.Levels);
        FailingCall call(kind, fault.Error, which, andLater);
        outcome.Answer = Run(trial, world);
        outcome.HasFailed = call.Stop();
    }
    outcome.After = world.State();
    if (Failed(outcome.Answer) || outcome.After != done)
    {
        outcome.Again = Run(trial, world);
        outcome.AfterAgain = world.State();
    }
    (void)Singleton<IValue>(CLSID_Value); // so that the registry has its table, as before
    EXPECT_EQ(SingletonRegistry()->ClearObjects(), S_OK);
    return outcome;
}

// Whether nothing more is open, after a second at the latest: what was waited for may still be
// counted for a moment.
bool HasNoMoreThan(const OpenThings& former)
{
    for (int look = 0; look < 1000 && !CountOpenThings().IsWithin(former); ++look)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return CountOpenThings().IsWithin(former);
}

struct Tally
{
    int Points = 0;
    int Wrong = 0;
};

// Whether the call is made at all.
bool Sweep(const Trial& trial, const FailableCall& kind, const Fault& fault, bool andLater,
           Tally& tally)
{
    const Result code = fault.Means == NoMemory ? E_OUTOFMEMORY : E_FAIL;
    if (!Attempt(trial, kind, fault, 0, andLater, "")
             .HasFailed) // also where something is made only once
        return false;
    const TrialOutcome usual = Attempt(trial, kind, fault, 1'000'000, false, "");
    EXPECT_EQ(Failed(usual.Answer), trial.IsRefused) << trial.Name;
    std::string wrong;
    wrong.reserve(1000); // it is none of the memory that is looked at
    bool hasFailed = true;
    for (int which = 0; hasFailed && wrong.empty(); ++which)
    {
        const auto expect = [&wrong](bool isRight, const std::string& text)
        {
            wrong += isRight ? "" : text + "; ";
        };
        const std::uint32_t objects = GetObjectOpenCount();
        const std::int64_t allocations = LiveAllocations();
        const OpenThings things = CountOpenThings();
        {
            const TrialOutcome outcome = Attempt(trial, kind, fault, which, andLater, usual.After);
            hasFailed = outcome.HasFailed;
            const bool isDone = outcome.Answer == usual.Answer && outcome.After == usual.After;
            const bool isPassedOver = fault.Means <= trial.PassesOver && Succeeded(outcome.Answer);
            const bool isRefused = hasFailed && (isPassedOver || outcome.Answer == code) &&
                                   (outcome.After == outcome.Before || !trial.IsWhole);
            expect(isDone || (fault.Means != Unnoticed && isRefused),
                   "answers " + std::string(ErrorText(outcome.Answer)) + " and leaves " +
                       outcome.After);
            expect(isDone || (outcome.Again == usual.Answer && outcome.AfterAgain == usual.After),
                   "the next time answers " + std::string(ErrorText(outcome.Again)) +
                       " and leaves " + outcome.AfterAgain);
        }
        expect(HasNoMoreThan(things), "something stays open");
        expect(GetObjectOpenCount() == objects && GetExceptionOpenCount() == 0, "objects stay");
        expect(LiveAllocations() == allocations, "memory leaks");
        tally.Points += hasFailed ? 1 : 0;
        tally.Wrong += wrong.empty() ? 0 : 1;
        EXPECT_EQ(wrong, "") << trial.Name << ": " << kind.Name << ' ' << which
                             << (andLater ? " and later" : " alone") << " with error "
                             << fault.Error;
    }
    return true;
}

TEST(FailingPlatform, EveryFailureIsItsCodeOrMadeGoodAndLeavesNothing)
{
    tSystem::CLibrary runtime; // what modules need
    ASSERT_TRUE(runtime.Open(L"TavrikOssira.dll"));
    Tally tally;
    for (const Trial& trial : Trials)
        for (const FailableCall& kind : FailableCalls())
        {
            bool isMade = true;
            for (const Fault& fault : kind.Faults)
                for (const bool andLater : {false, true})
                    if (isMade && (!andLater || fault.Means != Unnoticed))
                        isMade = Sweep(trial, kind, fault, andLater, tally);
        }
    std::printf("%d points, %d wrong\n", tally.Points, tally.Wrong);
}

} // namespace

} // namespace Tavrik::Ossira::tTest
