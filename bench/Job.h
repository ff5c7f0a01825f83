// One line of the table: a job of the runtime, what it is held against, and how near it should
// come.
#pragma once

#include "Allocations.h"
#include "OssiraBase.h"

#include <benchmark/benchmark.h>
#include <functional>
#include <string>
#include <vector>

namespace Tavrik::Ossira::tBench
{

// One way to do the job. The body keeps alive what it works on.
struct Contender
{
    std::string Name;
    std::function<void(benchmark::State&)> Body;
};

inline constexpr double NoReach = 0; // only for comparison

// The first contender is the runtime, the second one the limit; further ones are what somebody
// might use instead, and are printed for comparison. They exist only while their job is run.
struct Job
{
    std::string Title;
    double Reach; // times the limit, or `NoReach`
    std::function<std::vector<Contender>()> Prepare;
};

[[nodiscard]] std::vector<Job> ObjectJobs();
[[nodiscard]] std::vector<Job> ValueJobs();
[[nodiscard]] std::vector<Job> DictionaryJobs();
[[nodiscard]] std::vector<Job> ListJobs();
[[nodiscard]] std::vector<Job> ModuleJobs();
[[nodiscard]] std::vector<Job> GrowthJobs();
[[nodiscard]] Job FactoryGrowthJob();

// What a body tells of itself beside its time. Both counts are of the timed work alone: declare it
// right before the loop, and say how many items one round of the loop handles, if not one.
class CRoundReport
{
public:
    static constexpr const char* Allocations = "allocations";
    static constexpr const char* Items = "items";
    static constexpr const char* Longest = "longest"; // nanoseconds, where not the mean counts

    explicit CRoundReport(benchmark::State& state, std::size_t items = 1)
        : mState(state), mItems(items), mAllocationsBefore(AllocationCount())
    {
    }

    CRoundReport(const CRoundReport&) = delete;
    CRoundReport& operator=(const CRoundReport&) = delete;

    ~CRoundReport()
    {
        const auto allocations = static_cast<double>(AllocationCount() - mAllocationsBefore);
        mState.counters[Items] = static_cast<double>(mItems);
        mState.counters[Allocations] =
            allocations / static_cast<double>(mState.iterations()) / static_cast<double>(mItems);
    }

private:
    benchmark::State& mState;
    std::size_t mItems;
    std::uint64_t mAllocationsBefore;
};

// For preparations, where a failure ends the job.
void Require(Result result, const char* what);

} // namespace Tavrik::Ossira::tBench
