// The child's side: goes through everything that the runtime asks of a module file, in the order in
// which the runtime asks, and takes nothing that the module answers for granted.
#include "ExamineChild.h"

#include "ChildProcess.h"
#include "Command.h"
#include "Examine.h"
#include "ModuleLibrary.h"
#include "OssiraBullets.h"
#include "Print.h"
#include "RecordingRegistry.h"
#include "Survey.h"

#include <cstring>
#include <map>
#include <memory>
#include <optional>

namespace Tavrik::tHost
{

using namespace Ossira;

namespace
{

// No module has it.
constexpr CLSID UnknownClass = {
    0x6B0B1D6E, 0x3D27, 0x4C0A, {0x9C, 0x55, 0x0B, 0x3A, 0x81, 0x77, 0xE4, 0x12}};

constexpr Result ClassLimit = 10'000; // more than anybody writes

class CExamination
{
public:
    CExamination(std::FILE* reports, std::string path) noexcept
        : mReports(reports), mPath(std::move(path))
    {
    }

    void Execute()
    {
        Step("load");
        auto owner = std::make_unique<CModuleLibrary>(mPath);
        const CModuleLibrary& library = *owner;
        if (!library.Reason().empty())
        {
            // Another library that is missing now may be there the next time.
            Report({{LastingKey, library.IsOtherLibrary()}});
            const std::string crash = tSystem::PassedOverCrash();
            Complain(library.IsOtherLibrary() ? "notes" : "problems",
                     library.Reason() +
                         (crash.empty() ? "" : "; its start-up code crashed: " + crash));
            Finish(library.IsOtherLibrary() ? tVerdict::OtherLibrary : tVerdict::Broken);
            return;
        }
        Report({{"loadMilliseconds", library.LoadMilliseconds()}});
        const ModuleExports& exports = library.Exports();
        if (HasAttached(exports))
        {
            ReadClasses(exports);
            TryUnknownClass(exports);
            ReadFiled(exports);
            if (!MayUnload(exports))
                static_cast<void>(owner.release()); // it stays loaded, as it would anywhere
        }
        Step("unload");
        static_cast<void>(tSystem::PassedOverCrash());
        owner.reset();
        if (const std::string crash = tSystem::PassedOverCrash(); !crash.empty())
            Complain("problems", "crashed in the step \"unload\": " + crash);
        Finish(mHasProblems ? tVerdict::Broken : tVerdict::Module);
    }

private:
    void Report(const Json& findings)
    {
        const std::string line =
            findings.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
        std::fwrite(line.data(), 1, line.size(), mReports);
    }

    void Step(const char* name)
    {
        Report({{StepKey, name}});
    }

    void Complain(const char* kind, const std::string& sentence)
    {
        mHasProblems = mHasProblems || std::strcmp(kind, "problems") == 0;
        mFindings[kind].push_back(sentence);
        Report({{kind, mFindings[kind]}});
    }

    // What runs when the process ends is a step too.
    void Finish(const char* verdict)
    {
        Report({{"verdict", verdict}});
        Step("end of the process");
    }

    // Nothing when an exception came out.
    template <class Export, class... Arguments>
    std::optional<Result> Call(const char* name, Export export_, Arguments... arguments)
    {
        Step(name);
        try
        {
            return export_(arguments...);
        }
        catch (const std::exception& exception)
        {
            Complain("problems",
                     std::string("let an exception out of ") + name + ": " + exception.what());
        }
        catch (...)
        {
            Complain("problems", std::string("let an exception out of ") + name);
        }
        return std::nullopt;
    }

    bool HasAttached(const ModuleExports& exports)
    {
        const auto count = Call("DLLGetOpenObjectCount", exports.GetOpenObjectCount);
        if (count == E_ACCESSDENIED)
            Complain("problems", "was loaded, but its own start-up failed: it refuses every call");
        else if (count && Failed(*count))
            Complain("problems", "answers for its number of objects: " + CodeText(*count));
        return count != E_ACCESSDENIED;
    }

    void ReadClasses(const ModuleExports& exports)
    {
        const auto count = Call("DLLGetClassCount", exports.GetClassCount);
        if (!count)
            return;
        if (Failed(*count))
            return Complain("problems", "answers for its number of classes: " + CodeText(*count));
        if (*count == 0)
            Complain("notes", "has no class in the table: is OSSIRA_CLASS missing?");
        if (*count > ClassLimit)
            Complain("problems", "says that it has " + std::to_string(*count) +
                                     " classes, which nobody will believe");
        Json classes = Json::array();
        for (Result index = 0; index < std::min(*count, ClassLimit); ++index)
        {
            if (!ReadClass(exports, static_cast<std::uint32_t>(index), *count, classes))
                break;
        }
        Report({{"classes", classes}});
    }

    bool ReadClass(const ModuleExports& exports, std::uint32_t index, Result count, Json& classes)
    {
        const std::string which =
            "class " + std::to_string(index + 1) + " of " + std::to_string(count);
        CLSID clsid = GUID_Null;
        const auto read = Call("DLLGetClassObjectID", exports.GetClassObjectID, index, 1U, &clsid);
        if (!read)
            return false;
        if (Failed(*read))
        {
            Complain("problems",
                     "does not tell the identifier of its " + which + ": " + CodeText(*read));
            return false;
        }
        constexpr std::uint32_t textLimit = 255;
        char text[textLimit + 1] = {};
        const auto told =
            Call("DLLGetClassObjectInfo", exports.GetClassObjectInfo, index, text, textLimit);
        if (!told)
            return false;
        if (Failed(*told))
            Complain("problems", "does not tell the text of its " + which + ": " + CodeText(*told));
        text[textLimit] = '\0';
        if (SameGuid(clsid, GUID_Null))
            Complain("problems", "has the null identifier for its " + which + ", \"" + text + '"');
        const std::string id = BracedGuid(clsid);
        if (const auto [first, isNew] = mTexts.emplace(id, text); !isNew)
            Complain("problems", "has the identifier " + id + " twice: for \"" + first->second +
                                     "\" and for \"" + text + '"');
        classes.push_back({{"id", id}, {"text", text}});
        return true;
    }

    // A class is not created: its objects may need what is started before them.
    void TryUnknownClass(const ModuleExports& exports)
    {
        void* object = nullptr;
        const auto created = Call("DllGetClassObject", exports.GetClassObject, &UnknownClass,
                                  &IID_IUnknown, &object);
        if (!created || Failed(*created) || object == nullptr)
            return;
        Complain("notes", "creates an object also of a class that it does not have");
        static_cast<IUnknown*>(object)->Release();
    }

    void ReadFiled(const ModuleExports& exports)
    {
        if (exports.RegisterBootstrap == nullptr)
            return;
        ObjectPtr<ISingleton> singletons;
        ObjectPtr<IValueSet> parameters;
        Require(CreateObject(CLSID_GlobalSingleton, singletons),
                "Asking for the singleton registry");
        Require(CreateValueSet(parameters.Put()), "Creating a value set");
        const auto registry =
            GetSingleton<IClsidRegistry>(*singletons, CLSID_ClsidRegistry, "the CLSID registry");
        CRecordingRegistry recorder(*registry);
        const auto done =
            Call("DLLRegisterBootstrap", exports.RegisterBootstrap,
                 static_cast<IUnknown*>(&recorder), static_cast<IUnknown*>(parameters.Get()));
        if (done && Failed(*done))
            Complain("problems",
                     "fails to file its classes (DLLRegisterBootstrap): " + CodeText(*done));
        Json filed = Json::array();
        for (const CRecordingRegistry::Entry& entry : recorder.Entries())
        {
            const std::string name = CategoryName(entry.Category);
            Json item = {{"category", name.empty() ? BracedGuid(entry.Category) : name}};
            if (!SameGuid(entry.Group, GUID_Null))
                item["group"] = BracedGuid(entry.Group);
            item["class"] = BracedGuid(entry.Class);
            filed.push_back(item);
        }
        Report({{"filed", filed}});
    }

    bool MayUnload(const ModuleExports& exports)
    {
        const auto agrees = Call("DllCanUnloadNow", exports.CanUnloadNow);
        if (agrees && Failed(*agrees))
            Complain("problems", "answers for whether it may be unloaded: " + CodeText(*agrees));
        else if (agrees && *agrees != S_OK)
            Complain("notes", "does not let itself be unloaded, though nobody has an object of it");
        return agrees == S_OK;
    }

    std::FILE* mReports;
    std::string mPath;
    Json mFindings;
    std::map<std::string, std::string> mTexts; // of the classes, by their identifiers
    bool mHasProblems = false;
};

// The child's last word, after what a module leaves for the end of the process has run. When it is
// a module that ends the process, before the examination is through, nothing is said.
std::FILE* gReports = nullptr;
bool gIsThrough = false;

void SayDone()
{
    if (gIsThrough)
        std::fprintf(gReports, "{\"%s\":\"%s\"}\n", StepKey, DoneStep);
}

} // namespace

void AddExamineChild(CCommands& commands)
{
    const auto path = std::make_shared<std::string>();
    commands
        .AddHidden(ExamineCommand,
                   [path]
                   {
                       gReports = tSystem::BecomeChild();
                       std::atexit(&SayDone);
                       CExamination(gReports, *path).Execute();
                       gIsThrough = true;
                       return static_cast<int>(Exit_AllWell);
                   })
        .add_option("FILE", *path)
        ->required();
}

} // namespace Tavrik::tHost
