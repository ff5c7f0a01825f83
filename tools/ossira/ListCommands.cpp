// `ossira classes` and `ossira categories`: what a scan finds, sorted by what it is.
#include "Command.h"
#include "Print.h"
#include "Scan.h"

#include <map>
#include <memory>

namespace Tavrik::tHost
{

namespace
{

// A module may file classes of others, which are in no list of its own.
Json ListCategories(const Json& found)
{
    std::map<std::string, Json> texts;
    for (const Json& each : ListClasses(found))
        texts.emplace(each["id"], each["text"]);
    std::map<std::string, Json> categories;
    for (const Json& file : found["files"])
    {
        for (const Json& entry : file.value("filed", Json::array()))
        {
            Json filed = {{"id", entry["class"]}, {"text", texts[entry["class"]]}};
            filed["filedBy"] = file["file"];
            if (entry.contains("group"))
                filed["group"] = entry["group"];
            categories[entry["category"]].push_back(filed);
        }
    }
    Json list = Json::array();
    for (const auto& [name, classes] : categories)
        list.push_back({{"category", name}, {"classes", classes}});
    return list;
}

std::string TextOr(const Json& described)
{
    const Json& text = described["text"];
    return text.is_string() && !text.get<std::string>().empty() ? text : described["id"];
}

void PrintClasses(const Json& classes)
{
    CTable table;
    for (const Json& each : classes)
        table.AddRow({each["text"], each["id"], each["module"]});
    table.Print(0);
}

void PrintCategories(const Json& categories)
{
    for (const Json& category : categories)
    {
        PrintLine(category["category"].get<std::string>());
        CTable table;
        for (const Json& each : category["classes"])
            table.AddRow({TextOr(each), each["id"],
                          each.contains("group") ? "group " + each["group"].get<std::string>()
                                                 : std::string()});
        table.Print(2);
    }
}

struct ListCommand
{
    const char* Name;
    const char* Description;
    Json (*Make)(const Json& found);
    void (*Print)(const Json& list);
};

constexpr ListCommand Lists[] = {
    {"classes", "List the classes of the modules of some folders, with the modules that have them.",
     &ListClasses, &PrintClasses},
    {"categories", "List the categories under which modules file classes, with those classes.",
     &ListCategories, &PrintCategories},
};

} // namespace

void AddLists(CCommands& commands)
{
    for (const ListCommand& list : Lists)
    {
        const auto options = std::make_shared<ScanOptions>();
        CLI::App& command = commands.Add(list.Name, list.Description,
                                         [options, &list]
                                         {
                                             const Json found = ScanPlaces(*options);
                                             const Json made = list.Make(found);
                                             if (options->IsJson)
                                                 PrintJson(made);
                                             else
                                                 list.Print(made);
                                             return ComplainOf(found);
                                         });
        command
            .add_option("PLACE", options->Places,
                        "Folders, whose modules (*.dll) are meant, and files")
            ->required()
            ->type_name("");
        command.add_flag("--json", options->IsJson, "Print the list as JSON");
    }
}

} // namespace Tavrik::tHost
