// `ossira new-module` and `ossira new-host`: a project that builds as it stands, from templates in
// which a word between percent signs stands for what is different in each.
#include "Command.h"
#include "FilePath.h"
#include "Guid.h"
#include "Print.h"
#include "Templates.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <memory>

namespace Tavrik::tHost
{

namespace
{

namespace fs = std::filesystem;

struct ProjectKind
{
    const char* Command;
    const char* Description;
    std::string_view Folder; // of the templates
};

constexpr ProjectKind Kinds[] = {
    {"new-module",
     "Make the project of a component module: an interface, a class that offers it, and a test.",
     "module/"},
    {"new-host", "Make the project of a program that runs component modules, with a test.",
     "host/"}};

// What file systems, the build, and the runtime itself have given a meaning, in small letters.
constexpr std::string_view TakenNames[] = {
    "all",  "clean", "con",  "aux",  "prn",  "nul",     "help",    "install", "main",
    "test", "tests", "com1", "com2", "lpt1", "package", "modules", "ossira",  "tavrikossira"};

// Empty when it is fit: it becomes part of names in C++, of targets and of files.
std::string WhyUnfit(const std::string& name)
{
    constexpr std::size_t limit = 40;
    const auto isLetterOrDigit = [](unsigned char c)
    {
        return c < 0x80 && std::isalnum(c) != 0;
    };
    if (name.empty() || name.front() < 'A' || name.front() > 'Z' || name.size() > limit ||
        !std::all_of(name.begin(), name.end(), isLetterOrDigit))
        return '"' + name +
               "\" is no fit name: take letters and digits, a capital one first, at most 40";
    std::string small = name;
    std::transform(small.begin(), small.end(), small.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (std::find(std::begin(TakenNames), std::end(TakenNames), small) != std::end(TakenNames))
        return '"' + name + "\" means something else to the system or to the build already";
    return "";
}

std::string Replace(std::string text, std::string_view from, const std::string& to)
{
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

// Without the outer braces, which the templates have.
std::string FreshInitializer()
{
    const std::string text = GuidInitializer(NewGuid());
    return text.substr(1, text.size() - 2);
}

// "Module.cpp" becomes the name with the ending, "CMakeLists.txt" stays.
std::string FileName(const Template& each, const ProjectKind& kind, const std::string& name)
{
    const std::string bare(each.Name.substr(kind.Folder.size()));
    const std::string_view kinds = kind.Folder == "host/" ? "Host" : "Module";
    return bare.starts_with(kinds) ? name + bare.substr(kinds.size()) : bare;
}

int Make(const ProjectKind& kind, const std::string& name)
{
    const fs::path folder = FilePath(name);
    std::error_code error;
    if (fs::exists(fs::symlink_status(folder, error)))
    {
        std::fprintf(stderr, "ossira: \"%s\" is there already\n", name.c_str());
        return Exit_Found;
    }
    const std::string classId = FreshInitializer();
    const std::string interfaceId = FreshInitializer();
    const std::string key = FreshInitializer();
    fs::create_directory(folder);
    for (const Template& each : Templates)
    {
        if (!each.Name.starts_with(kind.Folder))
            continue;
        std::string text = Replace(std::string(each.Text), "%NAME%", name);
        text = Replace(std::move(text), "%CLSID%", classId);
        text = Replace(std::move(text), "%IID%", interfaceId);
        text = Replace(std::move(text), "%GUID%", key);
        const std::string fileName = FileName(each, kind, name);
        std::ofstream file(folder / fileName, std::ios::binary);
        file << text;
        if (!file.flush())
            throw std::runtime_error("\"" + name + '/' + fileName + "\" could not be written");
        PrintLine(name + '/' + fileName);
    }
    PrintLine("Build and test it: cd " + name +
              " && cmake -S . -B build && cmake --build build && ctest --test-dir build");
    return Exit_AllWell;
}

} // namespace

void AddNewProjects(CCommands& commands)
{
    for (const ProjectKind& kind : Kinds)
    {
        const auto name = std::make_shared<std::string>();
        commands.Add(kind.Command, kind.Description, [name, &kind] { return Make(kind, *name); })
            .add_option("NAME", *name,
                        "Its name, and that of the new folder: letters and digits, a capital first")
            ->required()
            ->type_name("")
            ->check(CLI::Validator([](std::string& text) { return WhyUnfit(text); }, ""));
    }
}

} // namespace Tavrik::tHost
