// Runs the jobs one after the other, each with its limit and what else it is compared with in turns
// chosen by chance, and prints the table. Options are those of the benchmark library, whose filter
// selects jobs by their titles, two that serve to count instead of to measure:
//
//     --rounds=N          run each loop N times and once, however long that takes
//     --contender=N       run only the runtime (0), the limit (1) or a further contender
//
// and one that writes down what the table shows, for the report:
//
//     --json=FILE
#include "Peers.h"
#include "Table.h"

#include <charconv>
#include <cstdio>
#include <future>
#include <optional>
#include <regex>
#include <stdexcept>
#include <string_view>
#include <thread>

using namespace Tavrik::Ossira;
using namespace Tavrik::Ossira::tBench;

namespace
{

struct Options
{
    std::optional<std::int64_t> Rounds;
    std::optional<std::size_t> Only;
    std::optional<std::string> Json;
    std::regex Filter;
};

// Takes "--name=text" out of the arguments.
[[nodiscard]] std::optional<std::string> TakeText(std::vector<char*>& arguments,
                                                  std::string_view name)
{
    std::optional<std::string> text;
    std::erase_if(arguments,
                  [&](std::string_view argument)
                  {
                      if (!argument.starts_with(name))
                          return false;
                      text = argument.substr(name.size());
                      return true;
                  });
    return text;
}

template <class Number>
[[nodiscard]] std::optional<Number> TakeNumber(std::vector<char*>& arguments, std::string_view name)
{
    const std::optional<std::string> text = TakeText(arguments, name);
    if (!text)
        return {};
    Number number = 0;
    const char* const end = text->data() + text->size();
    if (std::from_chars(text->data(), end, number).ptr != end)
        throw std::runtime_error(std::string(name) + " takes a number");
    return number;
}

[[nodiscard]] Options TakeOptions(int argc, char** argv)
{
    static std::string defaults[] = {"--benchmark_repetitions=9", "--benchmark_min_time=0.05",
                                     "--benchmark_enable_random_interleaving=true"};
    std::vector<char*> arguments = {argv[0]};
    for (std::string& text : defaults)
        arguments.push_back(text.data());
    arguments.insert(arguments.end(), argv + 1, argv + argc);

    Options options;
    options.Rounds = TakeNumber<std::int64_t>(arguments, "--rounds=");
    options.Only = TakeNumber<std::size_t>(arguments, "--contender=");
    options.Json = TakeText(arguments, "--json=");
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
        throw std::runtime_error("see --help");
    options.Filter = benchmark::GetBenchmarkFilter();
    return options;
}

// A process with one thread counts its std::shared_ptr without atomics, which no host with a second
// thread enjoys. This one sleeps.
class CSleepingThread
{
public:
    CSleepingThread() : mThread([this] { mEnd.get_future().wait(); })
    {
    }

    CSleepingThread(const CSleepingThread&) = delete;
    CSleepingThread& operator=(const CSleepingThread&) = delete;

    ~CSleepingThread()
    {
        mEnd.set_value();
        mThread.join();
    }

private:
    std::promise<void> mEnd;
    std::thread mThread;
};

void Run(const Job& job, const Options& options, CTable& table)
{
    std::vector<Contender> contenders = job.Prepare();
    CRunCollector runs;
    for (std::size_t at = 0; at < contenders.size(); ++at)
    {
        Contender& contender = contenders[at];
        if (options.Only.value_or(at) != at)
            continue;
        auto* const registered =
            benchmark::RegisterBenchmark(contender.Name.c_str(), std::move(contender.Body));
        if (contender.ByTheClock)
            registered->UseRealTime();
        if (options.Rounds)
            registered->Iterations(*options.Rounds)->Repetitions(1);
    }
    benchmark::RunSpecifiedBenchmarks(&runs, ".");
    benchmark::ClearRegisteredBenchmarks();
    if (!options.Only)
        table.PrintJob(job, contenders, runs);
}

} // namespace

void Tavrik::Ossira::tBench::Require(Result result, const char* what)
{
    if (Failed(result))
        throw std::runtime_error(std::string(what) + " failed");
}

std::string Tavrik::Ossira::tBench::Text(std::size_t number)
{
    std::string text = std::to_string(number);
    for (auto at = static_cast<std::ptrdiff_t>(text.size()) - 3; at > 0; at -= 3)
        text.insert(static_cast<std::size_t>(at), 1, ',');
    return text;
}

int main(int argc, char** argv)
try
{
    const Options options = TakeOptions(argc, argv);
    const CSleepingThread sleeping;
    if (options.Only && *options.Only < 2)
        LeaveOutPeers();
    CTable table;
    bool failed = false;
    if (!options.Only)
        table.PrintHead();
    for (const auto jobs : {MachineJobs, ObjectJobs, ValueJobs, DictionaryJobs, ListJobs,
                            ForkJoinJobs, ModuleJobs, GrowthJobs, CurveJobs})
    {
        for (const Job& job : jobs())
        {
            if (!std::regex_search(job.Title, options.Filter))
                continue;
            try
            {
                Run(job, options, table);
            }
            catch (const std::exception& error)
            {
                table.PrintFailedJob(job, error.what());
                failed = true;
            }
        }
    }
    if (!options.Only)
    {
        if (std::regex_search("bytes of heap", options.Filter))
            table.PrintHeap();
        table.PrintFoot();
    }
    if (options.Json)
        table.Write(*options.Json);
    return failed ? 1 : 0;
}
catch (const std::exception& error)
{
    std::fprintf(stderr, "%s\n", error.what());
    return 2;
}
