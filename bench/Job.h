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

using Body = std::function<void(benchmark::State&)>;

enum class Role
{
    Comparison, // the same with other objects or another lock, to show what those bring
    Contract,   // by hand, with all that the contract asks for, which the limit leaves out
    Peer        // what somebody might use instead; the best of them is named
};

// One way to do the job. The body keeps alive what it works on.
struct Contender
{
    std::string Name;
    tBench::Body Body;
    tBench::Role Role = Role::Comparison;
    bool ByTheClock = false; // not by the processor's time of the measuring thread
};

inline constexpr double NoReach = 0; // only for comparison

// How the contenders of a job belong together.
enum class Kind
{
    Limit,   // the runtime, its limit, and further ones
    Growth,  // the larger size, the smaller one
    Readers, // pairs: one thread alone, and one beside another; the rates are compared
    Curve,   // named by sizes, for the plot
    Times    // a fact of the machine each
};

// They exist only while their job is run.
struct Job
{
    std::string Title;
    double Reach; // times the limit, or `NoReach`
    std::function<std::vector<Contender>()> Prepare;
    double PeerReach = NoReach; // times the best peer, or `NoReach`
    tBench::Kind Kind = Kind::Limit;
};

using Jobs = std::vector<Job>;

[[nodiscard]] Jobs MachineJobs();
[[nodiscard]] Jobs ObjectJobs();
[[nodiscard]] Jobs ValueJobs();
[[nodiscard]] Jobs DictionaryJobs();
[[nodiscard]] Jobs ListJobs();
[[nodiscard]] Jobs ForkJoinJobs();
[[nodiscard]] Jobs ModuleJobs();
[[nodiscard]] Jobs GrowthJobs();
[[nodiscard]] Jobs CurveJobs();

// The bodies that also serve at sizes of which curves are drawn.
[[nodiscard]] Body ReadDictionary(std::size_t size);
[[nodiscard]] Body IndexList(std::size_t size);
[[nodiscard]] Body StepOnInView(std::size_t size);
[[nodiscard]] Body RegisterClasses(std::size_t size);
[[nodiscard]] Body CreateAmongClasses(std::size_t size);
[[nodiscard]] Body RegisterModules(std::size_t count);

// What a body tells of itself beside its time. Both counts are of the timed work alone: declare it
// right before the loop, and say how many items one round of the loop handles, if not one.
class CRoundReport
{
public:
    static constexpr const char* Allocations = "allocations";
    static constexpr const char* Items = "items";
    static constexpr const char* Own = "own"; // nanoseconds, where the body takes the time itself

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

[[nodiscard]] Body Repeat(auto work, std::size_t items = 1)
{
    return [work, items](benchmark::State& state)
    {
        const CRoundReport report(state, items);
        for (auto _ : state)
            work();
    };
}

// Each round works on something new. Making and destroying it are not part of the time.
[[nodiscard]] Body RepeatWithNew(auto make, auto work, std::size_t items)
{
    return [make, work, items](benchmark::State& state)
    {
        const CRoundReport report(state, items);
        for (auto _ : state)
        {
            state.PauseTiming();
            {
                auto made = make();
                state.ResumeTiming();
                work(made);
                state.PauseTiming();
            }
            state.ResumeTiming();
        }
    };
}

// For preparations, where a failure ends the job.
void Require(Result result, const char* what);

// 1,000 for 1000.
[[nodiscard]] std::string Text(std::size_t number);

} // namespace Tavrik::Ossira::tBench
