// Runs the jobs one after the other, each with its limit and what else it is compared with in turns
// chosen by chance, and prints the table. Options are those of the benchmark library, whose filter
// selects jobs by their titles, and two that serve to count instead of to measure:
//
//     --rounds=N          run each loop N times and once, however long that takes
//     --contender=N       run only the runtime (0), the limit (1) or a further contender
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
    std::regex Filter;
};

// Takes "--name=number" out of the arguments.
template <class Number>
[[nodiscard]] std::optional<Number> TakeNumber(std::vector<char*>& arguments, std::string_view name)
{
    std::optional<Number> number;
    std::erase_if(arguments,
                  [&](std::string_view argument)
                  {
                      if (!argument.starts_with(name))
                          return false;
                      argument.remove_prefix(name.size());
                      Number value = 0;
                      const char* const end = argument.data() + argument.size();
                      if (std::from_chars(argument.data(), end, value).ptr != end)
                          throw std::runtime_error(std::string(name) + " takes a number");
                      number = value;
                      return true;
                  });
    return number;
}

[[nodiscard]] Options TakeOptions(int argc, char** argv)
{
    static std::string defaults[] = {"--benchmark_repetitions=15", "--benchmark_min_time=0.05",
                                     "--benchmark_enable_random_interleaving=true"};
    std::vector<char*> arguments = {argv[0]};
    for (std::string& text : defaults)
        arguments.push_back(text.data());
    arguments.insert(arguments.end(), argv + 1, argv + argc);

    Options options;
    options.Rounds = TakeNumber<std::int64_t>(arguments, "--rounds=");
    options.Only = TakeNumber<std::size_t>(arguments, "--contender=");
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

void Run(const Job& job, const Options& options)
{
    std::vector<std::string> names;
    CRunCollector runs;
    {
        const std::vector<Contender> contenders = job.Prepare();
        for (std::size_t at = 0; at < contenders.size(); ++at)
        {
            names.push_back(contenders[at].Name);
            if (options.Only.value_or(at) != at)
                continue;
            auto* const registered =
                benchmark::RegisterBenchmark(names.back().c_str(), contenders[at].Body);
            if (options.Rounds)
                registered->Iterations(*options.Rounds)->Repetitions(1);
        }
    }
    benchmark::RunSpecifiedBenchmarks(&runs, ".");
    benchmark::ClearRegisteredBenchmarks();
    if (!options.Only)
        PrintJob(job, names, runs);
}

} // namespace

void Tavrik::Ossira::tBench::Require(Result result, const char* what)
{
    if (Failed(result))
        throw std::runtime_error(std::string(what) + " failed");
}

int main(int argc, char** argv)
try
{
    const Options options = TakeOptions(argc, argv);
    const CSleepingThread sleeping;
    bool failed = false;
    if (!options.Only)
        PrintTableHead();
    for (const auto jobs :
         {ObjectJobs, ValueJobs, DictionaryJobs, ListJobs, ModuleJobs, GrowthJobs})
    {
        for (const Job& job : jobs())
        {
            if (!std::regex_search(job.Title, options.Filter))
                continue;
            try
            {
                Run(job, options);
            }
            catch (const std::exception& error)
            {
                PrintFailedJob(job, error.what());
                failed = true;
            }
        }
    }
    if (!options.Only)
        PrintTableFoot();
    return failed ? 1 : 0;
}
catch (const std::exception& error)
{
    std::fprintf(stderr, "%s\n", error.what());
    return 2;
}
