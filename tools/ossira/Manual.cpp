// The manual page and the completion for bash, made from the very description that the command line
// is parsed by; the build writes them into the files that are installed.
#include "Command.h"
#include "OssiraVersion.h"
#include "Print.h"

#include <sstream>

namespace Tavrik::tHost
{

namespace
{

std::vector<const CLI::App*> VisibleCommands(const CLI::App& program)
{
    return program.get_subcommands([](const CLI::App* each) { return !each->get_group().empty(); });
}

// "--format", or of a place on the command line "PLACE...".
std::string Synopsis(const CLI::Option& option)
{
    if (option.get_positional())
        return option.get_name() + (option.get_items_expected_max() > 1 ? "..." : "");
    std::string text;
    for (const std::string& name : option.get_snames())
        text += "-" + name + ", ";
    for (const std::string& name : option.get_lnames())
        text += "--" + name;
    return option.get_items_expected_max() == 0 ? text : text + ' ' + option.get_type_name();
}

std::string Places(const CLI::App& command)
{
    std::string text;
    for (const CLI::Option* option : command.get_options())
        text += option->get_positional() ? ' ' + Synopsis(*option) : std::string();
    return text;
}

// For the formatter of manual pages: dashes that can be copied, nothing that it takes for a
// request.
std::string Roff(const std::string& text)
{
    std::string escaped;
    for (const char c : text)
    {
        if (c == '-' || c == '\\')
            escaped += '\\';
        if (c == '.' && (escaped.empty() || escaped.back() == '\n'))
            escaped += "\\&";
        escaped += c;
    }
    return escaped;
}

void DescribeOptions(std::ostream& out, const CLI::App& command)
{
    for (const CLI::Option* option : command.get_options())
        out << ".TP\n.B " << Roff(Synopsis(*option)) << '\n'
            << Roff(option->get_description()) << '\n';
}

std::string MakeManual(const CLI::App& program)
{
    std::ostringstream out;
    out << ".TH OSSIRA 1 \"\" \"ossira " OSSIRA_VERSION_TEXT "\" \"User Commands\"\n"
           ".SH NAME\nossira \\- run and examine component modules\n"
           ".SH SYNOPSIS\n.B ossira\n.I COMMAND\n.RI [ ARGUMENT ...]\n"
           ".SH DESCRIPTION\n"
        << Roff(program.get_description()) << "\n.SH OPTIONS\n";
    DescribeOptions(out, program);
    out << ".SH COMMANDS\n";
    for (const CLI::App* command : VisibleCommands(program))
    {
        out << ".SS ossira " << Roff(command->get_name() + Places(*command)) << '\n'
            << Roff(command->get_description()) << '\n';
        DescribeOptions(out, *command);
    }
    out << ".SH EXIT STATUS\n"
           ".TP\n.B 0\nAll is well.\n"
           ".TP\n.B 1\nSomething is wrong with what was looked at.\n"
           ".TP\n.B 2\nThe command line cannot be understood.\n"
           ".TP\n.B 3\nThe program could not do its work, as when its output goes nowhere.\n"
           ".SH FILES\n.TP\n.I $XDG_CACHE_HOME/ossira/verdicts.json\n"
           "What was found out about module files, kept until they change.\n"
           ".SH ENVIRONMENT\n.TP\n.B NO_COLOR\nIf it is set, nothing is coloured.\n";
    return out.str();
}

std::string MakeCompletion(const CLI::App& program)
{
    std::ostringstream out;
    std::ostringstream names;
    std::ostringstream cases;
    for (const CLI::App* command : VisibleCommands(program))
    {
        names << command->get_name() << ' ';
        cases << "    " << command->get_name() << ") words='";
        for (const CLI::Option* option : command->get_options())
        {
            for (const std::string& name : option->get_lnames())
                cases << "--" << name << ' ';
        }
        cases << "' ;;\n";
    }
    out << "# Completion of ossira's command line for bash.\n"
           "_ossira()\n{\n"
           "    local word=${COMP_WORDS[COMP_CWORD]} words=\n"
           "    case ${COMP_WORDS[1]} in\n"
        << cases.str()
        << "    esac\n"
           "    if [ \"$COMP_CWORD\" -eq 1 ]; then\n"
           "        words='--help --version "
        << names.str()
        << "'\n"
           "    elif [[ $word != -* ]]; then\n"
           "        mapfile -t COMPREPLY < <(compgen -f -- \"$word\")\n"
           "        return\n"
           "    fi\n"
           "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$word\")\n"
           "}\n"
           "complete -o filenames -F _ossira ossira\n";
    return out.str();
}

} // namespace

void AddManual(CCommands& commands)
{
    const CLI::App& program = commands.Program();
    commands.AddHidden("print-manual",
                       [&program]
                       {
                           PrintRaw(MakeManual(program));
                           return static_cast<int>(Exit_AllWell);
                       });
    commands.AddHidden("print-completion",
                       [&program]
                       {
                           PrintRaw(MakeCompletion(program));
                           return static_cast<int>(Exit_AllWell);
                       });
}

} // namespace Tavrik::tHost
