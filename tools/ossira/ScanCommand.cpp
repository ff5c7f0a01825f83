// `ossira scan` on the command line.
#include "Command.h"
#include "Scan.h"

#include <memory>

namespace Tavrik::tHost
{

void AddScan(CCommands& commands)
{
    const auto options = std::make_shared<ScanOptions>();
    CLI::App& command = commands.Add(
        "scan",
        "Examine module files, each in a process of its own, and say of every one whether it is\na "
        "module, what is wrong with it, and which classes it has. The exit code is 0 when nothing\n"
        "is wrong, else 1. What was found is kept in the user's cache until a file changes.",
        [options] { return Scan(*options); });
    command
        .add_option("PLACE", options->Places, "Folders, whose modules (*.dll) are meant, and files")
        ->required()
        ->type_name("");
    command
        .add_option("--limit", options->LimitSeconds,
                    "How long a file may take before it is stopped; 10 without this option")
        ->check(CLI::Range(0.01, 86'400.0))
        ->type_name("SECONDS");
    command
        .add_option("--jobs", options->Jobs,
                    "How many files to examine at a time; one for each processor without this")
        ->check(CLI::Range(1, 1000))
        ->type_name("NUMBER");
    command.add_flag("--again", options->IsAgain, "Examine also what is known from before");
    command.add_flag("--json", options->IsJson, "Print what was found as JSON");
}

} // namespace Tavrik::tHost
