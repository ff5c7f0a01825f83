// The command line of the host program.
#include "OssiraDiagnostics.h"
#include "OssiraVersion.h"
#include "Program.h"
#include "Run.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>

namespace
{

using namespace Tavrik;

constexpr int CommandLineError = 2;

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

int Main(std::vector<std::string> arguments)
{
    tHost::RunOptions options;
    CLI::App program("Runs component modules.", "ossira");
    program.set_version_flag("--version", "ossira " OSSIRA_VERSION_TEXT);
    CLI::App& run = *program.add_subcommand(
        "run",
        "Start the modules of some folders, create an object of each of their classes, clean "
        "up,\nand say what was found and done. The exit code is 0 when everything worked and "
        "nothing\nwas left over, 1 when not, 2 for a command line that cannot be understood.");
    run.add_option("FOLDER", options.Folders, "Folders whose modules (*.dll) are to be read")
        ->required()
        ->type_name("");
    run.add_option_function<std::string>(
           "--diagnostics",
           [&](const std::string& text) { options.DiagnosticsMask = ParseLevels(text); },
           "Which diagnostics lines to print on standard error: a list, with\ncommas, of trace, "
           "progress, warnings, errors; or all, or none.\nWithout this option: errors")
        ->type_name("LEVELS");
    try
    {
        std::reverse(arguments.begin(), arguments.end()); // the parser takes them from the back
        program.parse(arguments);
    }
    catch (const CLI::ParseError& error)
    {
        return program.exit(error) == 0 ? 0 : CommandLineError;
    }
    if (!run.parsed())
    {
        std::fputs(program.help().c_str(), stderr);
        return CommandLineError;
    }
    return tHost::Run(options);
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        tSystem::PrepareOutput();
        return Main(tSystem::ProgramArguments(argc, argv));
    }
    catch (const std::exception& failure)
    {
        std::fprintf(stderr, "ossira: %s\n", failure.what());
        return 1;
    }
}
