// The command line of the program.
#include "Command.h"
#include "OssiraVersion.h"
#include "Program.h"

#include <algorithm>
#include <cstdio>

namespace
{

using namespace Tavrik;

// In the order in which the help lists them.
constexpr void (*Commands[])(tHost::CCommands&) = {
    &tHost::AddRun,     &tHost::AddScan,        &tHost::AddCheck,       &tHost::AddLists,
    &tHost::AddInspect, &tHost::AddGraph,       &tHost::AddNewProjects, &tHost::AddGuid,
    &tHost::AddManual,  &tHost::AddExamineChild};

int Main(std::vector<std::string> arguments)
{
    CLI::App program("Runs and examines component modules.", "ossira");
    program.allow_windows_style_options(false); // what begins with a slash is a path, everywhere
    program.set_version_flag("--version", "ossira " OSSIRA_VERSION_TEXT);
    program.set_help_flag("-h,--help", "Print this help message and exit");
    program.footer("Every command has a --help of its own. Exit codes: 0 all is well, 1 something "
                   "is wrong\nwith what was looked at, 2 the command line cannot be understood, 3 "
                   "the program could\nnot do its work.");
    tHost::CCommands commands(program);
    for (const auto add : Commands)
        add(commands);
    try
    {
        std::reverse(arguments.begin(), arguments.end()); // the parser takes them from the back
        program.parse(arguments);
    }
    catch (const CLI::ParseError& error)
    {
        return program.exit(error) == 0 ? tHost::Exit_AllWell : tHost::Exit_NotUnderstood;
    }
    return commands.Execute();
}

// What was written may have gone nowhere: a full disk says so late.
int AfterOutput(int code)
{
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return code;
    std::fputs("ossira: the output could not be written\n", stderr);
    return tHost::Exit_Broken;
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        tSystem::PrepareOutput();
        return AfterOutput(Main(tSystem::ProgramArguments(argc, argv)));
    }
    catch (const std::exception& failure)
    {
        std::fprintf(stderr, "ossira: %s\n", failure.what());
        return tHost::Exit_Broken;
    }
}
