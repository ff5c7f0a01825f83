// What every command of the program has in common. A command is one file: its function below, which
// stands in the list of Main.cpp, adds it with its options and with what it does.
#pragma once

#include "ExitCode.h"

#include <CLI/CLI.hpp>

#include <functional>
#include <string>
#include <vector>

namespace Tavrik::tHost
{

class CCommands
{
public:
    using Action = std::function<int()>; // answers the exit code

    explicit CCommands(CLI::App& program) noexcept : mProgram(program)
    {
    }

    // The action is called when the command was given; it has to keep its options alive itself.
    CLI::App& Add(const std::string& name, const std::string& description, Action action)
    {
        CLI::App* const command = mProgram.add_subcommand(name, description);
        mCommands.push_back({command, std::move(action)});
        return *command;
    }

    // One that the program gives to itself, and that no help names.
    CLI::App& AddHidden(const std::string& name, Action action)
    {
        CLI::App& command = Add(name, "", std::move(action));
        command.group("");
        return command;
    }

    [[nodiscard]] const CLI::App& Program() const noexcept
    {
        return mProgram;
    }

    // Does what was parsed. Without a command there is nothing to do but help.
    [[nodiscard]] int Execute() const
    {
        for (const Command& command : mCommands)
        {
            if (command.Parsed->parsed())
                return command.Do();
        }
        std::fputs(mProgram.help().c_str(), stderr);
        return Exit_NotUnderstood;
    }

private:
    struct Command
    {
        CLI::App* Parsed;
        Action Do;
    };

    CLI::App& mProgram;
    std::vector<Command> mCommands;
};

void AddCheck(CCommands& commands);
void AddExamineChild(CCommands& commands);
void AddGraph(CCommands& commands);
void AddGuid(CCommands& commands);
void AddInspect(CCommands& commands);
void AddLists(CCommands& commands);
void AddManual(CCommands& commands);
void AddNewProjects(CCommands& commands);
void AddRun(CCommands& commands);
void AddScan(CCommands& commands);

} // namespace Tavrik::tHost
