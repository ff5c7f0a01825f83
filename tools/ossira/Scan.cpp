// Children are cheap to wait for, so every worker here is a thread that starts one and sleeps.
#include "Scan.h"

#include "BulletDirectoryService.h"
#include "ExitCode.h"
#include "FilePath.h"
#include "Platform.h"
#include "Print.h"
#include "Program.h"
#include "VerdictCache.h"
#include "WideText.h"

#include <atomic>
#include <cmath>
#include <map>
#include <mutex>
#include <sstream>
#include <thread>

namespace Tavrik::tHost
{

namespace
{

// Says on a terminal how far the work is, and wipes itself out at the end.
class CProgress
{
public:
    explicit CProgress(std::size_t count) : mCount(count), mIsShown(tSystem::IsTerminal(stderr))
    {
    }

    ~CProgress()
    {
        if (mIsShown)
            std::fputs("\r\x1B[K", stderr);
    }

    CProgress(const CProgress&) = delete;
    CProgress& operator=(const CProgress&) = delete;

    void Advance()
    {
        constexpr std::size_t width = 40;
        const std::lock_guard guard(mMutex);
        ++mDone;
        if (!mIsShown)
            return;
        const std::size_t filled = mDone * width / mCount;
        std::fprintf(stderr, "\r[%s%s] %zu of %zu", std::string(filled, '#').c_str(),
                     std::string(width - filled, '.').c_str(), mDone, mCount);
    }

private:
    std::mutex mMutex;
    std::size_t mCount;
    std::size_t mDone = 0;
    bool mIsShown;
};

// The files of a folder, or the file itself. Answers what is wrong with the place; empty: nothing.
std::string ListFiles(const std::string& place, bool isFolder, std::vector<std::string>& files)
{
    if (place.empty())
        return "The name of a folder is missing: \"\" is none; the current folder is \".\"";
    const std::filesystem::path path = FilePath(place);
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (!std::filesystem::is_directory(status))
    {
        if (!isFolder)
            files.push_back(place);
        else if (status.type() == std::filesystem::file_type::not_found)
            return "The folder \"" + place + "\" does not exist";
        else
            return '"' + place + "\" is no folder";
        return "";
    }
    const std::filesystem::directory_iterator entries(path, error);
    if (error)
        return "The folder \"" + place + "\" cannot be read: " + error.message();
    const bool isClosed = place.ends_with('/') || place.ends_with('\\');
    const std::string folder =
        isClosed ? place : place + tSystem::ToUtf8(std::wstring(1, tSystem::PathSeparator));
    tSystem::CFolderSearch search;
    if (!search.Open(tSystem::FromUtf8(folder) + L"*.dll"))
        return "There is no module (*.dll) in the folder \"" + place + '"';
    for (tSystem::CFolderSearch::Entry entry; search.Next(entry);)
    {
        if (!Ossira::IsRuntimeFile(entry.Name.c_str()))
            files.push_back(folder + tSystem::ToUtf8(entry.Name));
    }
    return "";
}

std::vector<Json> ExamineAll(const std::vector<std::string>& files, const ScanOptions& options)
{
    const std::chrono::milliseconds limit(std::lround(options.LimitSeconds * 1000));
    CVerdictCache cache(options.IsAgain);
    CProgress progress(files.size());
    std::vector<Json> found(files.size());
    std::atomic<std::size_t> next = 0;
    const auto work = [&]
    {
        for (std::size_t index = 0; (index = next++) < files.size(); progress.Advance())
        {
            const std::string& file = files[index];
            if (auto known = cache.Find(file))
            {
                found[index] = std::move(*known);
                continue;
            }
            bool isLasting = false;
            found[index] = ExamineFile(file, limit, isLasting);
            if (isLasting)
                cache.Keep(file, found[index]);
        }
    };
    const std::size_t jobs = options.Jobs != 0 ? options.Jobs : std::thread::hardware_concurrency();
    std::vector<std::thread> workers;
    for (std::size_t index = 1; index < std::min(jobs, files.size()); ++index)
        workers.emplace_back(work);
    work();
    for (std::thread& worker : workers)
        worker.join();
    cache.Save();
    return found;
}

// Whoever is read in first has the class; the other's is never created.
void FindDoubles(const std::vector<Json>& files, Json& problems)
{
    std::map<std::string, const Json*> firsts;
    for (const Json& file : files)
    {
        for (const Json& each : file.value("classes", Json::array()))
        {
            const auto id = each["id"].get<std::string>();
            const auto [first, isNew] = firsts.emplace(id, &file);
            if (!isNew && first->second != &file)
                problems.push_back("The identifier " + id + " is in two modules: \"" +
                                   (*first->second)["file"].get<std::string>() + "\" and \"" +
                                   file["file"].get<std::string>() + "\" (\"" +
                                   each["text"].get<std::string>() + "\")");
        }
    }
}

std::string Milliseconds(double time)
{
    std::array<char, 32> text = {};
    std::snprintf(text.data(), text.size(), "%.1f ms", time);
    return text.data();
}

void PrintClasses(const Json& file)
{
    CTable table;
    for (const Json& each : file.value("classes", Json::array()))
    {
        std::string filed;
        for (const Json& entry : file.value("filed", Json::array()))
        {
            if (entry["class"] == each["id"])
                filed += (filed.empty() ? "" : ", ") + entry["category"].get<std::string>() +
                         (entry.contains("group") ? " in group " + entry["group"].get<std::string>()
                                                  : "");
        }
        table.AddRow({each["text"], each["id"], filed});
    }
    table.Print(4);
}

void PrintFile(const Json& file)
{
    const std::string name = file["file"];
    const Json problems = file.value("problems", Json::array());
    const Json notes = file.value("notes", Json::array());
    if (file["verdict"] == tVerdict::Module)
        PrintLine(name + ": a module, " +
                      Counted(file.value("classes", Json::array()).size(), "class", "classes") +
                      ", loaded in " + Milliseconds(file.value("loadMilliseconds", 0.0)),
                  ETone::Good);
    for (const Json& problem : problems)
        PrintLine(name + ": " + problem.get<std::string>(), ETone::Bad);
    for (const Json& note : notes)
        PrintLine("note: " + name + ' ' + note.get<std::string>(), ETone::Note);
    std::istringstream words(file.value("words", ""));
    for (std::string line; std::getline(words, line);)
        PrintLine("    it wrote: " + line);
    PrintClasses(file);
}

std::size_t CountProblems(const Json& found)
{
    std::size_t count = found["problems"].size();
    for (const Json& file : found["files"])
        count += file.value("problems", Json::array()).size();
    return count;
}

void PrintFound(const Json& found)
{
    std::size_t modules = 0;
    std::size_t classes = 0;
    for (const Json& file : found["files"])
    {
        PrintFile(file);
        modules += file["verdict"] == tVerdict::Module ? 1U : 0U;
        classes += file.value("classes", Json::array()).size();
    }
    for (const Json& problem : found["problems"])
        PrintLine(problem.get<std::string>(), ETone::Bad);
    const std::size_t problems = CountProblems(found);
    PrintLine(Counted(found["files"].size(), "file", "files") + ": " +
                  Counted(modules, "module", "modules") + " in order, " +
                  Counted(classes, "class", "classes") + ", " +
                  Counted(problems, "problem", "problems"),
              problems == 0 ? ETone::Good : ETone::Bad);
}

// A class as the lists show it, with the module that has it.
Json Described(const Json& file, const Json& each)
{
    Json described = {{"id", each["id"]}, {"text", each["text"]}, {"module", file["file"]}};
    described["filed"] = Json::array();
    for (const Json& entry : file.value("filed", Json::array()))
    {
        if (entry["class"] != each["id"])
            continue;
        Json place = entry;
        place.erase("class");
        described["filed"].push_back(place);
    }
    return described;
}

} // namespace

Json ScanPlaces(const ScanOptions& options)
{
    Json result = {{"files", Json::array()}, {"problems", Json::array()}};
    std::vector<std::string> files;
    for (const std::string& place : options.Places)
    {
        const std::string problem = ListFiles(place, options.AreFolders, files);
        if (problem.empty())
            continue;
        result["problems"].push_back(problem);
        result["unreadable"].push_back(place);
    }
    const std::vector<Json> found = ExamineAll(files, options);
    FindDoubles(found, result["problems"]);
    result["files"] = found;
    return result;
}

Json ListClasses(const Json& found)
{
    Json classes = Json::array();
    for (const Json& file : found["files"])
    {
        for (const Json& each : file.value("classes", Json::array()))
            classes.push_back(Described(file, each));
    }
    return classes;
}

int ComplainOf(const Json& found)
{
    int code = Exit_AllWell;
    const auto say = [&](const std::string& text)
    {
        std::fprintf(stderr, "ossira: %s\n", text.c_str());
        code = Exit_Found;
    };
    for (const Json& problem : found["problems"])
        say(problem);
    for (const Json& file : found["files"])
    {
        for (const Json& problem : file.value("problems", Json::array()))
            say(file["file"].get<std::string>() + ": " + problem.get<std::string>());
    }
    return code;
}

void PrintJson(const Json& json)
{
    PrintRaw(json.dump(2, ' ', false, Json::error_handler_t::replace));
}

int Scan(const ScanOptions& options)
{
    const Json found = ScanPlaces(options);
    if (options.IsJson)
        PrintJson(found);
    else
        PrintFound(found);
    return CountProblems(found) == 0 ? Exit_AllWell : Exit_Found;
}

} // namespace Tavrik::tHost
