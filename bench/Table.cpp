// Prints the table. A time is the processor's time of the measuring thread, so that what other
// programs take of the machine is left out; the range behind a median is that of the repetitions,
// the range behind a ratio that of the pairs of repetitions.
#include "Table.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace Tavrik::Ossira::tBench
{

namespace
{

using Numbers = std::vector<double>;

[[nodiscard]] double Median(Numbers numbers)
{
    std::sort(numbers.begin(), numbers.end());
    const std::size_t half = numbers.size() / 2;
    return numbers.size() % 2 == 1 ? numbers[half] : (numbers[half - 1] + numbers[half]) / 2;
}

[[gnu::format(printf, 1, 2)]] std::string Format(const char* format, ...)
{
    char text[160];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

[[nodiscard]] std::string Range(const Numbers& numbers, double unit, int digits)
{
    const auto [least, greatest] = std::minmax_element(numbers.begin(), numbers.end());
    return Format("(%.*f-%.*f)", digits, *least / unit, digits, *greatest / unit);
}

[[nodiscard]] std::string TimeText(const Numbers& nanoseconds)
{
    const double median = Median(nanoseconds);
    const double unit = median < 10'000 ? 1 : 1000;
    return Format("%.1f %s ", median / unit, unit == 1 ? "ns" : "us") + Range(nanoseconds, unit, 1);
}

[[nodiscard]] Numbers Ratios(const Numbers& runtime, const Numbers& limit)
{
    Numbers ratios;
    for (std::size_t at = 0; at < std::min(runtime.size(), limit.size()); ++at)
        ratios.push_back(runtime[at] / limit[at]);
    return ratios;
}

} // namespace

bool CRunCollector::ReportContext(const Context& /*context*/)
{
    return true;
}

void CRunCollector::ReportRuns(const std::vector<Run>& runs)
{
    for (const Run& run : runs)
    {
        if (run.error_occurred)
            mFailures[run.run_name.function_name] = run.error_message;
        if (run.error_occurred || run.run_type != Run::RT_Iteration)
            continue;
        const double items = run.counters.at(CRoundReport::Items).value;
        Measured& measured = mMeasured[run.run_name.function_name];
        const auto longest = run.counters.find(CRoundReport::Longest);
        measured.Nanoseconds.push_back(longest != run.counters.end()
                                           ? longest->second.value
                                           : run.GetAdjustedCPUTime() / items);
        measured.Allocations = run.counters.at(CRoundReport::Allocations).value;
    }
}

const CRunCollector::Measured& CRunCollector::Of(const std::string& contender) const
{
    if (const auto failure = mFailures.find(contender); failure != mFailures.end())
        throw std::runtime_error(contender + ": " + failure->second);
    const auto found = mMeasured.find(contender);
    if (found == mMeasured.end())
        throw std::runtime_error(contender + " did not run");
    return found->second;
}

void PrintTableHead()
{
    std::string load = "unknown";
    std::ifstream("/proc/loadavg") >> load;
    std::printf(
        "Median (least-greatest) of repetitions in the order of chance; %u processors, load "
        "%s.\n\n",
        std::thread::hardware_concurrency(), load.c_str());
    std::printf("%-56s %-26s %-26s %-18s %-6s %-9s %s\n", "job", "runtime", "limit", "ratio",
                "reach", "", "allocations");
    std::fflush(stdout);
}

void PrintJob(const Job& job, const std::vector<std::string>& contenders, const CRunCollector& runs)
{
    const auto& runtime = runs.Of(contenders[0]);
    const auto& limit = runs.Of(contenders[1]);
    const double ratio = Median(runtime.Nanoseconds) / Median(limit.Nanoseconds);
    const Numbers ratios = Ratios(runtime.Nanoseconds, limit.Nanoseconds);
    const std::string reach = job.Reach == NoReach ? "" : Format("%.1f", job.Reach);
    const char* const verdict = job.Reach == NoReach ? ""
                                : ratio <= job.Reach ? "reached"
                                                     : "missed";
    std::printf("%-56s %-26s %-26s %-18s %-6s %-9s %.2f\n", job.Title.c_str(),
                TimeText(runtime.Nanoseconds).c_str(), TimeText(limit.Nanoseconds).c_str(),
                (Format("%.2f ", ratio) + Range(ratios, 1, 2)).c_str(), reach.c_str(), verdict,
                runtime.Allocations);
    for (std::size_t at = 1; at < contenders.size(); ++at)
    {
        const auto& other = runs.Of(contenders[at]);
        std::printf("    %s %-50s %-26s allocations %.2f\n", at == 1 ? "=" : "~",
                    contenders[at].c_str(), TimeText(other.Nanoseconds).c_str(), other.Allocations);
    }
    std::fflush(stdout);
}

void PrintFailedJob(const Job& job, const char* why)
{
    std::printf("%-56s failed: %s\n", job.Title.c_str(), why);
    std::fflush(stdout);
}

void PrintTableFoot()
{
    std::printf("\n= what the limit is   ~ what somebody might use instead\n");
}

} // namespace Tavrik::Ossira::tBench
