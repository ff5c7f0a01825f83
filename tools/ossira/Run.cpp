// The run is also the longest example of a host: everything goes through public interfaces, and
// whatever fails on the way, clean-up comes at the end and the counts are shown.
#include "Run.h"

#include "Ask.h"
#include "BulletDirectoryService.h"
#include "OssiraBullets.h"
#include "OssiraDiagnostics.h"
#include "Print.h"
#include "Services.h"
#include "Survey.h"
#include "WideText.h"

#include <algorithm>
#include <cstdio>

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

std::wstring BareName(const std::wstring& fileName)
{
    return fileName.substr(fileName.find_last_of(L"/\\") + 1);
}

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
        Try([&] { ListFiles(options.Folders); });
        if (mFailures != 0)
            return;
        PrintLine("Starting up with the modules of " + FolderNames());
        if (options.DiagnosticsMask)
            Try([&] { SetDiagnostics(*options.DiagnosticsMask); });
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
        return mFailures == 0 ? 0 : 1;
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
        std::fprintf(stderr, "ossira: %s\n", text.c_str());
        ++mFailures;
    }

    void ListFiles(const std::vector<std::string>& folders)
    {
        for (const std::string& folder : folders)
        {
            mFolders.push_back(tSystem::FromUtf8(folder));
            mFiles.push_back(ListModuleFiles(*mSingletons, mFolders.back()));
        }
    }

    [[nodiscard]] std::string FolderNames() const
    {
        std::string names;
        for (const std::wstring& folder : mFolders)
            names += (names.empty() ? "\"" : ", \"") + tSystem::ToUtf8(folder) + '"';
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

        ObjectPtr<IList> folders;
        Require(mBootstrap->GetModuleFolders(folders.PutVoid()), "Asking for the folder list");
        Require(folders->Clear(), "Emptying the folder list");
        for (const std::wstring& folder : mFolders)
        {
            ObjectPtr<IValue> value;
            Require(CreateValue(value.Put()), "Creating a value");
            Require(SetValueUniString(value.Get(), folder), "Storing a folder's name");
            Require(folders->Add(value.Get()), "Adding a module folder");
        }
    }

    void Live()
    {
        const Result started = mBootstrap->Startup(mParameters.Get());
        mModules = ReadModules(*mFactory);
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
        for (std::size_t index = 0; index < mFolders.size(); ++index)
        {
            for (const std::wstring& file : mFiles[index])
                CheckWasRead(mFolders[index], file);
        }
    }

    // The scan passes over what is no module, as it should; a person wants to know of it.
    void CheckWasRead(const std::wstring& folder, const std::wstring& file)
    {
        const bool isKnown = std::any_of(mModules.begin(), mModules.end(),
                                         [&](const KnownModule& module) {
                                             return module.FileName.starts_with(folder) &&
                                                    BareName(module.FileName) == file;
                                         });
        if (!isKnown && !IsRuntimeFile(file.c_str()))
            Complain("No class could be read from \"" + tSystem::ToUtf8(file) + "\" in \"" +
                     tSystem::ToUtf8(folder) + "\"; --diagnostics trace shows each step");
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

    // What each bootstrap class of each level did: in its own words, if it left some.
    template <std::size_t Count>
    void ShowLevels(const Level (&levels)[Count], const char* otherwise)
    {
        CTable table;
        for (const Level& level : levels)
        {
            const auto category = std::find_if(mCategories.begin(), mCategories.end(),
                                               [&](const KnownCategory& each)
                                               { return SameGuid(each.Id, level.Category); });
            if (category == mCategories.end())
            {
                table.AddRow({level.Name, "(no class)"});
                continue;
            }
            for (const CLSID& clsid : category->Classes)
            {
                std::wstring words;
                const Result said = GetValueUniString(mParameters.Get(), clsid, &words);
                table.AddRow({level.Name, ClassName(clsid),
                              Failed(said) ? otherwise : tSystem::ToUtf8(words)});
            }
        }
        table.Print(2);
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
                mFailures += answer.IsFailure ? 1 : 0;
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
            mLiveObjects += ReadLiveObjects(*mFactory, module.FileName).value_or(0);
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
        for (const KnownModule& module : mModules)
        {
            for (const KnownClass& known : module.Classes)
            {
                if (SameGuid(known.Id, clsid) && !known.Text.empty())
                    return known.Text;
            }
        }
        return BracedGuid(clsid);
    }

    int mFailures = 0;
    std::vector<std::wstring> mFolders;
    std::vector<std::vector<std::wstring>> mFiles; // for each folder what could be a module
    ObjectPtr<ISingleton> mSingletons;
    std::uint32_t mObjectsAtStart;
    ObjectPtr<IObjectFactory> mFactory;
    ObjectPtr<IClsidRegistry> mRegistry;
    ObjectPtr<IValueSet> mParameters;
    ObjectPtr<IMasterBootstrap> mBootstrap;
    std::vector<KnownModule> mModules;
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
