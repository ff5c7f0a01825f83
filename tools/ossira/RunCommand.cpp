// `ossira run` on the command line.
#include "Command.h"
#include "OssiraDiagnostics.h"
#include "Run.h"

#include <algorithm>
#include <memory>

namespace Tavrik::tHost
{

namespace
{

struct DiagnosticsLevel
{
    std::string_view Name;
    std::uint32_t Mask;
};

constexpr DiagnosticsLevel DiagnosticsLevels[] = {
    {"trace", Ossira::PRINT_TRACE},
    {"progress", Ossira::PRINT_PROGRESS},
    {"warnings", Ossira::PRINT_WARN},
    {"errors", Ossira::PRINT_ERROR},
    {"all",
     Ossira::PRINT_TRACE | Ossira::PRINT_PROGRESS | Ossira::PRINT_WARN | Ossira::PRINT_ERROR},
    {"none", 0},
};

std::uint32_t ParseLevels(const std::string& text)
{
    std::uint32_t mask = 0;
    for (const std::string& name : CLI::detail::split(text, ','))
    {
        const auto level =
            std::find_if(std::begin(DiagnosticsLevels), std::end(DiagnosticsLevels),
                         [&](const DiagnosticsLevel& each) { return each.Name == name; });
        if (level == std::end(DiagnosticsLevels))
            throw CLI::ValidationError("--diagnostics",
                                       '"' + name +
                                           "\" is no level; the levels are trace, progress, "
                                           "warnings, errors, all, none");
        mask |= level->Mask;
    }
    return mask;
}

} // namespace

void AddRun(CCommands& commands)
{
    const auto options = std::make_shared<RunOptions>();
    CLI::App& command = commands.Add(
        "run",
        "Start the modules of some folders, create an object of each of their classes, clean "
        "up,\nand say what was found and done. The exit code is 0 when everything worked and "
        "nothing\nwas left over, else 1.",
        [options] { return Run(*options); });
    command.add_option("FOLDER", options->Folders, "Folders whose modules (*.dll) are to be read")
        ->required()
        ->type_name("");
    command
        .add_option_function<std::string>(
            "--diagnostics",
            [options](const std::string& text) { options->DiagnosticsMask = ParseLevels(text); },
            "Which diagnostics lines to print on standard error: a list, with\ncommas, of trace, "
            "progress, warnings, errors; or all, or none.\nWithout this option: warnings,errors")
        ->type_name("LEVELS");
}

} // namespace Tavrik::tHost
