// `ossira inspect`: all about one class. Its object is created in a child process, which starts all
// the modules of the folders up before, because a class may use others.
#include "ChildProcess.h"
#include "Command.h"
#include "Guid.h"
#include "InterfaceTable.h"
#include "OssiraBullets.h"
#include "Print.h"
#include "Scan.h"
#include "Survey.h"
#include "WideText.h"

#include <algorithm>
#include <memory>

namespace Tavrik::tHost
{

using namespace Ossira;

namespace
{

constexpr const char* InspectInChild = "inspect-object";

struct InspectOptions
{
    std::string Class;
    ScanOptions Scan;
    double LimitSeconds = 10;
};

// --- The child ----------------------------------------------------------------------------------

Json AskForInterfaces(IObjectFactory& factory, const CLSID& clsid)
{
    ObjectPtr<IUnknown> object;
    const Result created = factory.GetClassObject(clsid, IID_IUnknown, object.PutVoid());
    if (Failed(created))
        return {{"problem", "cannot be created: " + CodeText(created)}};
    Json names = {"IUnknown"};
    for (const KnownInterface& known : KnownInterfaces)
    {
        ObjectPtr<IUnknown> answer;
        if (Succeeded(object->QueryInterface(known.Id, answer.PutVoid())) && answer)
            names.push_back(known.Name);
    }
    return {{"interfaces", names}};
}

Json StartAndAsk(const std::string& text, const std::vector<std::string>& places)
{
    const CLSID clsid = ParseGuid(text).value_or(GUID_Null);
    ObjectPtr<ISingleton> singletons;
    Require(CreateObject(CLSID_GlobalSingleton, singletons), "Asking for the singleton registry");
    ObjectPtr<IMasterBootstrap> bootstrap;
    Require(CreateObject(CLSID_MasterBootstrap, bootstrap), "Creating the master bootstrap");
    SetModuleFolders(*bootstrap, places);
    ObjectPtr<IValueSet> parameters;
    Require(CreateValueSet(parameters.Put()), "Creating the parameters");
    Json answer;
    if (const Result started = bootstrap->Startup(parameters.Get()); Failed(started))
        answer = {{"problem", "cannot be asked: the start-up failed, " + CodeText(started)}};
    else
        answer = AskForInterfaces(*GetSingleton<IObjectFactory>(
                                      *singletons, CLSID_GlobalObjectFactory, "the object factory"),
                                  clsid);
    static_cast<void>(bootstrap->Cleanup(parameters.Get()));
    return answer;
}

// --- The parent --------------------------------------------------------------------------------

// The last report that is whole is the answer, whatever came after it.
void AddInterfaces(const InspectOptions& options, Json& described)
{
    std::vector<std::string> arguments = {InspectInChild, options.Class};
    arguments.insert(arguments.end(), options.Scan.Places.begin(), options.Scan.Places.end());
    const tSystem::ChildOutcome outcome = tSystem::RunChild(
        arguments, std::chrono::milliseconds(static_cast<long long>(options.LimitSeconds * 1000)));
    const Json answer = Json::parse(outcome.Reports, nullptr, false);
    if (answer.is_object())
        described.update(answer);
    if (!outcome.Succeeded())
        described["problem"] = "was asked, and the process " + DescribeEnd(outcome);
}

void PrintDescribed(const Json& described)
{
    CTable table;
    table.AddRow({"class", described["id"]});
    table.AddRow({"text", described["text"]});
    table.AddRow({"module", described["module"]});
    for (const Json& entry : described["filed"])
        table.AddRow({"filed under", entry["category"].get<std::string>() +
                                         (entry.contains("group")
                                              ? " in group " + entry["group"].get<std::string>()
                                              : "")});
    for (const Json& name : described.value("interfaces", Json::array()))
        table.AddRow({"answers", name});
    table.Print(0);
    if (described.contains("problem"))
        PrintLine("The class " + described["problem"].get<std::string>(), ETone::Bad);
}

int Inspect(const InspectOptions& options)
{
    const std::string id = BracedGuid(*ParseGuid(options.Class));
    const Json found = ScanPlaces(options.Scan);
    const Json classes = ListClasses(found);
    const auto each = std::find_if(classes.begin(), classes.end(),
                                   [&](const Json& known) { return known["id"] == id; });
    if (each == classes.end())
    {
        static_cast<void>(ComplainOf(found));
        std::fprintf(stderr, "ossira: No module there has the class %s\n", id.c_str());
        return Exit_Found;
    }
    Json described = *each;
    AddInterfaces(options, described);
    if (options.Scan.IsJson)
        PrintJson(described);
    else
        PrintDescribed(described);
    return described.contains("problem") ? Exit_Found : Exit_AllWell;
}

} // namespace

void AddInspect(CCommands& commands)
{
    const auto options = std::make_shared<InspectOptions>();
    options->Scan.AreFolders = true;
    CLI::App& command =
        commands.Add("inspect",
                     "Tell all about a class: its module, where it is filed, and which of the "
                     "runtime's\ninterfaces its objects answer.",
                     [options] { return Inspect(*options); });
    command.add_option("CLSID", options->Class, "The class's identifier")
        ->required()
        ->type_name("")
        ->check(CLI::Validator(
            [](std::string& text)
            { return ParseGuid(text) ? std::string() : '"' + text + "\" is no identifier"; },
            ""));
    command.add_option("FOLDER", options->Scan.Places, "Folders whose modules (*.dll) are meant")
        ->required()
        ->type_name("");
    command
        .add_option("--limit", options->LimitSeconds,
                    "How long it may take to ask the object; 10 without this option")
        ->check(CLI::Range(0.01, 86'400.0))
        ->type_name("SECONDS");
    command.add_flag("--json", options->Scan.IsJson, "Print what was found as JSON");

    const auto child = std::make_shared<InspectOptions>();
    CLI::App& hidden =
        commands.AddHidden(InspectInChild,
                           [child]
                           {
                               std::FILE* const reports = tSystem::BecomeChild();
                               const std::string line =
                                   StartAndAsk(child->Class, child->Scan.Places).dump();
                               std::fputs(line.c_str(), reports);
                               return static_cast<int>(Exit_AllWell);
                           });
    hidden.add_option("CLSID", child->Class)->required();
    hidden.add_option("FOLDER", child->Scan.Places)->required();
}

} // namespace Tavrik::tHost
