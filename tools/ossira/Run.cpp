// The run is also the longest example of a host: everything goes through public interfaces, and
// whatever fails on the way, clean-up comes at the end and the counts are shown.
#include "Run.h"

#include "Ask.h"
#include "ExitCode.h"
#include "OssiraBullets.h"
#include "OssiraDiagnostics.h"
#include "Print.h"
#include "Scan.h"
#include "Services.h"
#include "Survey.h"
#include "WideText.h"

#include <algorithm>
#include <cstdio>
#include <map>

namespace Tavrik::tHost
{

using namespace Ossira;

namespace
{

struct Level
{
    const char* Name;
    const GUID& Category;
};

constexpr Level StartupLevels[] = {{"level 0", BootstrapRegistryStartup_Level0},
                                   {"level 1", BootstrapRegistryStartup_Level1},
                                   {"level 2", BootstrapRegistryStartup_Level2}};
constexpr Level CleanupLevels[] = {{"level 2", BootstrapRegistryCleanup_Level2},
                                   {"level 1", BootstrapRegistryCleanup_Level1},
                                   {"level 0", BootstrapRegistryCleanup_Level0}};

ObjectPtr<ISingleton> TheSingletons()
{
    ObjectPtr<ISingleton> singletons;
    Require(CreateObject(CLSID_GlobalSingleton, singletons), "Asking for the singleton registry");
    return singletons;
}

class CRun
{
public:
    // The runtime's own two objects, the observer and the singleton registry, live as long as the
    // runtime does; what is there when a run begins is not left over by it.
    CRun() : mSingletons(TheSingletons()), mObjectsAtStart(GetObjectOpenCount())
    {
    }

    void Execute(const RunOptions& options)
    {
        if (!CheckFiles(options.Folders))
            return;
        PrintLine("Starting up with the modules of " + FolderNames());
        Try([&] { SetDiagnostics(options.DiagnosticsMask); });
        Try(
            [&]
            {
                Prepare();
                Live();
            });
        Try([&] { CleanUp(); });
        Try([&] { CountModules(); });
        LetGo();
        CountRest();
    }

    [[nodiscard]] int ExitCode() const
    {
        return mFailures == 0 ? Exit_AllWell : Exit_Found;
    }

private:
    template <class Step>
    void Try(Step step)
    {
        try
        {
            step();
        }
        catch (const std::exception& failure)
        {
            Complain(failure.what());
        }
    }

    void Complain(const std::string& text)
    {
        Say(text);
        ++mFailures;
    }

    static void Say(const std::string& text)
    {
        std::fprintf(stderr, "ossira: %s\n", text.c_str());
    }

    // The runtime passes over what is no module, and over what is wrong with one of many; a person
    // wants to know of it. False when there is a folder with nothing in it to start.
    bool CheckFiles(const std::vector<std::string>& folders)
    {
        ScanOptions options;
        options.Places = folders;
        options.AreFolders = true;
        const Json found = ScanPlaces(options);
        for (const Json& problem : found["problems"])
            Complain(problem.get<std::string>());
        for (const Json& file : found["files"])
        {
            const auto name = file["file"].get<std::string>();
            for (const Json& problem : file.value("problems", Json::array()))
                Complain('"' + name + "\" " + problem.get<std::string>());
            for (const Json& note : file.value("notes", Json::array()))
                Say("note: \"" + name + "\" " + note.get<std::string>());
        }
        mFolders = folders;
        return !found.contains("unreadable");
    }

    [[nodiscard]] std::string FolderNames() const
    {
        std::string names;
        for (const std::string& folder : mFolders)
            names += (names.empty() ? "\"" : ", \"") + folder + '"';
        return names;
    }

    void SetDiagnostics(std::uint32_t mask)
    {
        ObjectPtr<IObserverPrint> observer;
        Require(GetGlobalObserver(observer.Put()), "Asking for the diagnostics observer");
        Require(observer->SetLevelMask(mask, ~mask), "Setting the diagnostics levels");
    }

    void Prepare()
    {
        mFactory = GetSingleton<IObjectFactory>(*mSingletons, CLSID_GlobalObjectFactory,
                                                "the object factory");
        mRegistry =
            GetSingleton<IClsidRegistry>(*mSingletons, CLSID_ClsidRegistry, "the CLSID registry");
        Require(CreateValueSet(mParameters.Put()), "Creating the parameters");
        Require(CreateObject(CLSID_MasterBootstrap, mBootstrap), "Creating the master bootstrap");

        SetModuleFolders(*mBootstrap, mFolders);
    }

    void Live()
    {
        const Result started = mBootstrap->Startup(mParameters.Get());
        mModules = ReadModules(*mFactory);
        for (const KnownModule& module : mModules)
        {
            for (const KnownClass& known : module.Classes)
                mNames.emplace(BracedGuid(known.Id), known.Text);
        }
        mCategories = ReadCategories(*mRegistry);
        ShowModules();
        ShowCategories();
        PrintHeading("Start-up");
        ShowLevels(StartupLevels, Failed(started) ? "(did not say)" : "started");
        if (Failed(started))
            throw CFailure("Start-up failed: " + CodeText(started) +
                           "; --diagnostics trace shows which class");
        ShowObjects();
        ShowServices();
    }

    void ShowModules()
    {
        PrintHeading("Modules: " + std::to_string(mModules.size()));
        for (const KnownModule& module : mModules)
        {
            CTable classes;
            for (const KnownClass& known : module.Classes)
                classes.AddRow({known.Text, BracedGuid(known.Id)});
            CTable title;
            title.AddRow({tSystem::ToUtf8(module.FileName),
                          module.Classes.empty()
                              ? "its classes are known from another file already"
                              : Counted(module.Classes.size(), "class", "classes")});
            title.Print(2);
            classes.Print(4);
        }
    }

    void ShowCategories()
    {
        PrintHeading("Categories: " + std::to_string(mCategories.size()));
        for (const KnownCategory& category : mCategories)
        {
            const std::string name = CategoryName(category.Id);
            CTable title;
            title.AddRow({name.empty() ? BracedGuid(category.Id) : name});
            title.Print(2);
            CTable classes;
            for (const CLSID& clsid : category.Classes)
                classes.AddRow({ClassName(clsid)});
            if (category.Classes.empty())
                classes.AddRow({"(only classes in groups)"});
            classes.Print(4);
        }
    }

    // What each bootstrap class of each level did: in its own words, if it left some. It has one
    // place to leave them, so those of a class at several levels are from the last.
    template <std::size_t Count>
    void ShowLevels(const Level (&levels)[Count], const char* otherwise)
    {
        std::map<std::string, const char*> lastLevels;
        for (const Level& level : levels)
        {
            for (const CLSID& clsid : ClassesOf(level))
                lastLevels[BracedGuid(clsid)] = level.Name;
        }
        CTable table;
        for (const Level& level : levels)
        {
            const std::vector<CLSID> classes = ClassesOf(level);
            if (classes.empty())
                table.AddRow({level.Name, "(no class)"});
            for (const CLSID& clsid : classes)
            {
                const char* const last = lastLevels[BracedGuid(clsid)];
                std::wstring words;
                const Result said = GetValueUniString(mParameters.Get(), clsid, &words);
                table.AddRow({level.Name, ClassName(clsid),
                              Failed(said)         ? otherwise
                              : last == level.Name ? tSystem::ToUtf8(words)
                                                   : std::string("(see ") + last + ')'});
            }
        }
        table.Print(2);
    }

    [[nodiscard]] std::vector<CLSID> ClassesOf(const Level& level) const
    {
        const auto category = std::find_if(mCategories.begin(), mCategories.end(),
                                           [&](const KnownCategory& each)
                                           { return SameGuid(each.Id, level.Category); });
        return category == mCategories.end() ? std::vector<CLSID>() : category->Classes;
    }

    void ShowObjects()
    {
        PrintHeading("Objects, one of each class, and what they answer");
        CTable table;
        for (const KnownModule& module : mModules)
        {
            for (const KnownClass& known : module.Classes)
            {
                const Answer answer = AskNewObject(*mFactory, known.Id);
                if (answer.IsFailure)
                    Complain('"' + ClassName(known.Id) + "\" " + answer.Text);
                table.AddRow({ClassName(known.Id), answer.Text});
            }
        }
        table.Print(2);
    }

    void ShowServices()
    {
        PrintHeading("Services at work");
        CTable table;
        for (const ServiceAtWork& service : ServicesAtWork())
        {
            std::string outcome = "(failed)";
            Try([&] { outcome = service.Work(*mSingletons); });
            table.AddRow({service.Name, outcome});
        }
        table.Print(2);
    }

    void CleanUp()
    {
        if (!mBootstrap)
            return;
        Require(mParameters->Clear(), "Emptying the parameters");
        const Result cleaned = mBootstrap->Cleanup(mParameters.Get());
        PrintHeading("Clean-up");
        ShowLevels(CleanupLevels, Failed(cleaned) ? "(did not say)" : "cleaned up");
        Require(cleaned, "Clean-up");
    }

    // The factory that the run still holds knows the modules' counts, and unloads what it can.
    void CountModules()
    {
        if (!mFactory)
            return;
        for (const KnownModule& module : mModules)
        {
            const std::uint32_t count = ReadLiveObjects(*mFactory, module.FileName).value_or(0);
            if (count != 0)
                Complain(Counted(count, "object", "objects") + " of \"" +
                         tSystem::ToUtf8(module.FileName) + "\" outlived the clean-up");
            mLiveObjects += count;
        }
        Require(mFactory->FlushModules(), "Unloading the modules");
        for (const KnownModule& module : mModules)
            mLoadedModules += ReadLiveObjects(*mFactory, module.FileName) ? 1u : 0u;
    }

    void LetGo()
    {
        mBootstrap.Reset();
        mParameters.Reset();
        mRegistry.Reset();
        mFactory.Reset();
    }

    void CountRest()
    {
        mLiveObjects += GetObjectOpenCount() - mObjectsAtStart;
        const std::int32_t exceptions = GetExceptionOpenCount();
        PrintHeading("Left over");
        CTable table;
        table.AddRow({"live objects", std::to_string(mLiveObjects)});
        table.AddRow({"live exceptions", std::to_string(exceptions)});
        table.AddRow({"loaded modules", std::to_string(mLoadedModules)});
        table.Print(2);
        if (mLiveObjects != 0 || exceptions != 0 || mLoadedModules != 0)
            Complain("Something was left over");
        if (mFailures != 0)
            std::fprintf(
                stderr, "ossira: %s\n",
                (Counted(static_cast<std::size_t>(mFailures), "thing", "things") + " went wrong")
                    .c_str());
    }

    std::string ClassName(const CLSID& clsid) const
    {
        const std::string id = BracedGuid(clsid);
        const auto name = mNames.find(id);
        return name == mNames.end() || name->second.empty() ? id : name->second;
    }

    int mFailures = 0;
    std::vector<std::string> mFolders;
    ObjectPtr<ISingleton> mSingletons;
    std::uint32_t mObjectsAtStart;
    ObjectPtr<IObjectFactory> mFactory;
    ObjectPtr<IClsidRegistry> mRegistry;
    ObjectPtr<IValueSet> mParameters;
    ObjectPtr<IMasterBootstrap> mBootstrap;
    std::vector<KnownModule> mModules;
    std::map<std::string, std::string> mNames; // the classes' texts by their identifiers
    std::vector<KnownCategory> mCategories;
    std::uint32_t mLiveObjects = 0;
    std::uint32_t mLoadedModules = 0;
};

} // namespace

int Run(const RunOptions& options)
{
    CRun run;
    run.Execute(options);
    return run.ExitCode();
}

} // namespace Tavrik::tHost
