// `ossira check` on the command line. The steps run in children, one for the module and one for
// each class; where a child ends in a step, or finds something, another one goes on behind that
// step, so that no step sees what a failed one has left behind.
#include "CheckSteps.h"
#include "ChildProcess.h"
#include "Command.h"
#include "Json.h"
#include "Print.h"
#include "WideText.h"

#include <memory>
#include <sstream>

namespace Tavrik::tHost
{

namespace
{

constexpr const char* CheckInChild = "check-in-child";

struct Options
{
    std::vector<std::string> Files; // in UTF-8
    double Limit = 60;              // seconds
    bool IsJson = false;
};

enum class EVerdict
{
    Passed,
    Failed,
    NotChecked
};

struct Verdict
{
    const CheckStep* Step;
    EVerdict Kind = EVerdict::Passed;
    std::string Text; // what is wrong, or why it is not checked
};

struct CheckedClass
{
    std::string Id; // in braces
    std::string Text;
    std::vector<Verdict> Verdicts;
};

struct CheckedFile
{
    std::string Name;
    std::string Failure; // why it could not be checked at all
    std::vector<Verdict> Verdicts;
    std::vector<CheckedClass> Classes;

    template <class Visit>
    void ForEachVerdict(Visit visit) const
    {
        for (const Verdict& verdict : Verdicts)
            visit(verdict);
        for (const CheckedClass& each : Classes)
        {
            for (const Verdict& verdict : each.Verdicts)
                visit(verdict);
        }
    }

    [[nodiscard]] std::size_t Count(EVerdict kind) const
    {
        std::size_t count = 0;
        ForEachVerdict([&](const Verdict& verdict) { count += verdict.Kind == kind ? 1 : 0; });
        return count;
    }
};

// --- The child ---------------------------------------------------------------------------------

struct ChildTask
{
    std::string File;
    int Class = -1; // its place in the module's table; -1: the module itself
    std::size_t First = 0;
};

void RunStep(const CheckStep& step, const CCheckScene& scene)
try
{
    scene.Say("begin", step.Name);
    step.Run(scene);
    scene.Say("passed", step.Name);
}
catch (const CNotChecked& reason)
{
    scene.Say("not", reason.what());
}
catch (const std::exception& failure)
{
    scene.Say("failed", failure.what());
    throw;
}

int DoInChild(const ChildTask& task)
{
    std::FILE* const reports = tSystem::BecomeChild();
    const std::wstring path = tSystem::AbsolutePath(tSystem::FromUtf8(task.File));
    KnownClass checked = {};
    try
    {
        PrepareSteps();
        const std::vector<KnownClass> classes = CCheckedModule(path).Classes();
        if (task.Class >= 0)
            checked = classes.at(static_cast<std::size_t>(task.Class));
        for (const KnownClass& known : classes)
            std::fprintf(reports, "class %s %s\n", BracedGuid(known.Id).c_str(),
                         known.Text.c_str());
    }
    catch (const std::exception& failure)
    {
        std::fprintf(reports, "unusable %s\n", failure.what());
        return Exit_Found;
    }
    const CCheckScene scene(path, checked, reports);
    try
    {
        const auto steps = task.Class < 0 ? ModuleSteps() : ClassSteps();
        for (const CheckStep& step : steps.subspan(std::min(task.First, steps.size())))
            RunStep(step, scene);
    }
    catch (const std::exception&)
    {
        return Exit_Found;
    }
    return Exit_AllWell;
}

// --- The parent --------------------------------------------------------------------------------

// What the reports of one child say.
struct Reading
{
    std::vector<CheckedClass> Classes;
    std::string Unusable;
    std::vector<Verdict> Verdicts;
    bool IsInStep = false; // it ended there
    std::string Doing;
};

Reading Read(const std::string& reports, std::span<const CheckStep> steps)
{
    Reading reading;
    std::istringstream stream(reports);
    for (std::string line; std::getline(stream, line);)
    {
        if (line.ends_with('\r'))
            line.pop_back();
        const std::size_t space = std::min(line.find(' '), line.size() - 1);
        const std::string kind = line.substr(0, space);
        const std::string text = line.substr(space + 1);
        if (kind == "class")
            reading.Classes.push_back({text.substr(0, 38), text.substr(39), {}});
        else if (kind == "unusable")
            reading.Unusable = text;
        else if (kind == "doing")
            reading.Doing = text;
        else if (kind == "begin" && reading.Verdicts.size() < steps.size())
        {
            reading.Verdicts.push_back({&steps[reading.Verdicts.size()], EVerdict::Passed, {}});
            reading.IsInStep = true;
            reading.Doing.clear();
        }
        else if (!reading.Verdicts.empty())
        {
            reading.IsInStep = false;
            if (kind == "passed")
                continue;
            reading.Verdicts.back().Kind = kind == "not" ? EVerdict::NotChecked : EVerdict::Failed;
            reading.Verdicts.back().Text = text;
        }
    }
    return reading;
}

// The module's steps, or those of one of its classes; why the child could not begin, if so.
std::string RunSteps(ChildTask task, std::chrono::milliseconds limit,
                     std::vector<Verdict>& verdicts, std::vector<CheckedClass>* classes)
{
    const std::span<const CheckStep> all = task.Class < 0 ? ModuleSteps() : ClassSteps();
    while (verdicts.size() < all.size())
    {
        const auto outcome =
            tSystem::RunChild({CheckInChild, task.File, "--class=" + std::to_string(task.Class),
                               "--first=" + std::to_string(verdicts.size())},
                              limit);
        Reading reading = Read(outcome.Reports, all.subspan(verdicts.size()));
        if (!reading.Unusable.empty())
            return reading.Unusable;
        if (reading.Verdicts.empty())
            return "loading it and listing its classes " + tSystem::DescribeEnd(outcome);
        if (reading.IsInStep)
        {
            Verdict& last = reading.Verdicts.back();
            last.Kind = EVerdict::Failed;
            last.Text = tSystem::DescribeEnd(outcome) + "; it was " + reading.Doing;
        }
        verdicts.insert(verdicts.end(), reading.Verdicts.begin(), reading.Verdicts.end());
        if (classes != nullptr && classes->empty())
            *classes = std::move(reading.Classes);
    }
    return {};
}

CheckedFile CheckFile(const std::string& name, std::chrono::milliseconds limit)
{
    CheckedFile file = {name, {}, {}, {}};
    file.Failure = RunSteps({name}, limit, file.Verdicts, &file.Classes);
    for (std::size_t index = 0; file.Failure.empty() && index < file.Classes.size(); ++index)
    {
        file.Failure =
            RunSteps({name, static_cast<int>(index)}, limit, file.Classes[index].Verdicts, nullptr);
    }
    return file;
}

// --- The report --------------------------------------------------------------------------------

void PrintVerdicts(const std::string& title, const std::vector<Verdict>& verdicts)
{
    std::string passed;
    for (const Verdict& verdict : verdicts)
    {
        if (verdict.Kind == EVerdict::Passed)
            passed += (passed.empty() ? "" : ", ") + std::string(verdict.Step->Name);
    }
    PrintLine("  " + title);
    if (!passed.empty())
        PrintLine("    passed       " + passed);
    for (const Verdict& verdict : verdicts)
    {
        if (verdict.Kind == EVerdict::NotChecked)
            PrintLine("    not checked  " + std::string(verdict.Step->Name) + ": " + verdict.Text);
        if (verdict.Kind != EVerdict::Failed)
            continue;
        PrintLine("    FAILED       " + std::string(verdict.Step->Name) + ": " + verdict.Text);
        PrintLine("      why it matters: " + std::string(verdict.Step->Why));
        PrintLine("      where to look: " + std::string(verdict.Step->Where));
    }
}

void Print(const CheckedFile& file)
{
    PrintLine(file.Name);
    if (!file.Failure.empty())
        PrintLine("  FAILED  " + file.Failure);
    if (!file.Verdicts.empty())
        PrintVerdicts("the module", file.Verdicts);
    for (const CheckedClass& each : file.Classes)
    {
        if (!each.Verdicts.empty())
            PrintVerdicts(each.Text + " " + each.Id, each.Verdicts);
    }
}

Json ToJson(const std::vector<Verdict>& verdicts)
{
    static constexpr const char* names[] = {"passed", "failed", "not checked"};
    auto list = Json::array();
    for (const Verdict& verdict : verdicts)
    {
        Json item = {{"step", verdict.Step->Name},
                     {"verdict", names[static_cast<int>(verdict.Kind)]}};
        if (verdict.Kind != EVerdict::Passed)
            item["text"] = verdict.Text;
        if (verdict.Kind == EVerdict::Failed)
            item.update({{"why", verdict.Step->Why}, {"where", verdict.Step->Where}});
        list.push_back(std::move(item));
    }
    return list;
}

Json ToJson(const CheckedFile& file)
{
    Json json = {
        {"file", file.Name}, {"module", ToJson(file.Verdicts)}, {"classes", Json::array()}};
    if (!file.Failure.empty())
        json["failure"] = file.Failure;
    for (const CheckedClass& each : file.Classes)
    {
        json["classes"].push_back(
            {{"class", each.Id}, {"text", each.Text}, {"steps", ToJson(each.Verdicts)}});
    }
    return json;
}

int Check(const Options& options)
{
    const std::chrono::milliseconds limit(static_cast<std::int64_t>(options.Limit * 1000));
    auto report = Json::array();
    std::size_t faults = 0;
    for (const std::string& name : options.Files)
    {
        const CheckedFile file = CheckFile(name, limit);
        faults += file.Count(EVerdict::Failed) + (file.Failure.empty() ? 0 : 1);
        if (options.IsJson)
            report.push_back(ToJson(file));
        else
            Print(file);
    }
    if (options.IsJson)
        std::puts(report.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
    else
        PrintLine(faults == 0 ? "No fault found" : Counted(faults, "fault", "faults") + " found");
    return faults == 0 ? Exit_AllWell : Exit_Found;
}

} // namespace

void AddCheck(CCommands& commands)
{
    const auto options = std::make_shared<Options>();
    CLI::App& command =
        commands.Add("check",
                     "Put the classes of modules through what every class must stand, and say what "
                     "failed, why it\nmatters and where to look. Each class is tried in processes "
                     "of its own. The exit code is 0\nwhen no fault was found, else 1.",
                     [options] { return Check(*options); });
    command.add_option("FILE", options->Files, "Module files")->required()->type_name("");
    command.add_flag("--json", options->IsJson, "Print the report as JSON");
    command
        .add_option("--time-limit", options->Limit,
                    "For how many seconds the steps of a class may run together\nbefore they are "
                    "taken to hang. Without this option: 60")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.1, 86400.0));

    const auto task = std::make_shared<ChildTask>();
    CLI::App& child = commands.AddHidden(CheckInChild, [task] { return DoInChild(*task); });
    child.add_option("FILE", task->File)->required();
    child.add_option("--class", task->Class);
    child.add_option("--first", task->First);
}

} // namespace Tavrik::tHost
