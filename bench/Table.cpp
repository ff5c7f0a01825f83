// Prints the table. A time is the processor's time of the measuring thread, so that what other
// programs take of the machine is left out, or where several threads work that of the clock; the
// range behind a median is that of the repetitions, the range behind a ratio that of the pairs of
// repetitions.
#include "Table.h"

#include "Memory.h"
#include "Peers.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <numeric>
#include <stdexcept>
#include <thread>

namespace Tavrik::Ossira::tBench
{

namespace
{

using Json = nlohmann::ordered_json;
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

// The part of all processors that is at work while this program rests for a second.
[[nodiscard]] double PercentOfOthers()
{
    const auto read = []
    {
        std::ifstream file("/proc/stat");
        std::string name;
        std::array<double, 8> ticks = {}; // user, nice, system, idle, waiting, ...
        file >> name;
        for (double& tick : ticks)
            file >> tick;
        return std::pair{ticks[3] + ticks[4], std::accumulate(ticks.begin(), ticks.end(), 0.0)};
    };
    const auto [idleBefore, allBefore] = read();
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const auto [idle, all] = read();
    return all > allBefore ? 100 - 100 * (idle - idleBefore) / (all - allBefore) : 0;
}

// One of a job's contenders with its times.
struct Line
{
    const Contender* Of;
    const CRunCollector::Measured* Measured;
    double Median;
};

using Lines = std::vector<Line>;

[[nodiscard]] const Line* BestPeer(const Lines& lines)
{
    const Line* best = nullptr;
    for (const Line& line : lines)
    {
        if (line.Of->Role == Role::Peer && (best == nullptr || line.Median < best->Median))
            best = &line;
    }
    return best;
}

[[nodiscard]] Json Reported(const Job& job, const char* kind, const Lines& lines)
{
    Json report = {{"title", job.Title}, {"kind", kind}, {"contenders", Json::array()}};
    for (const Line& line : lines)
    {
        const auto [least, greatest] = std::minmax_element(line.Measured->Nanoseconds.begin(),
                                                           line.Measured->Nanoseconds.end());
        report["contenders"].push_back({{"name", line.Of->Name},
                                        {"peer", line.Of->Role == Role::Peer},
                                        {"contract", line.Of->Role == Role::Contract},
                                        {"nanoseconds", line.Median},
                                        {"least", *least},
                                        {"greatest", *greatest},
                                        {"allocations", line.Measured->Allocations}});
    }
    return report;
}

// What is to be reached, and whether it is.
[[nodiscard]] std::string Verdict(Json& report, double reach, bool reached)
{
    if (reach == NoReach)
        return "";
    report["reach"] = reach;
    report["reached"] = reached;
    return reached ? "reached" : "missed";
}

[[nodiscard]] Json PrintBesideLimit(const Job& job, const Lines& lines)
{
    const Line& runtime = lines.at(0);
    const Line& limit = lines.at(1);
    const Line* const peer = BestPeer(lines);
    const double ratio = runtime.Median / limit.Median;
    const double peerRatio = peer != nullptr ? runtime.Median / peer->Median : 0;
    Json report = Reported(job, job.Kind == Kind::Growth ? "growth" : "limit", lines);
    report["ratio"] = ratio;
    std::string reach = job.Reach == NoReach ? "" : Format("%.2f", job.Reach);
    std::string verdict = Verdict(report, job.Reach, ratio <= job.Reach);
    std::string best;
    if (peer != nullptr)
    {
        report["best_peer"] = {{"name", peer->Of->Name}, {"ratio", peerRatio}};
        best = Format("%.1f ns  %.2f  ", peer->Median, peerRatio) + peer->Of->Name;
    }
    if (job.PeerReach != NoReach)
    {
        const bool ahead = peer == nullptr || peerRatio <= job.PeerReach;
        report["peer_reach"] = job.PeerReach;
        report["ahead"] = ahead;
        verdict += std::string(verdict.empty() ? "" : ", ") + (ahead ? "ahead" : "behind");
    }
    std::printf("%-54s %-25s %-25s %-17s %-5s %-16s %s\n", job.Title.c_str(),
                TimeText(runtime.Measured->Nanoseconds).c_str(),
                TimeText(limit.Measured->Nanoseconds).c_str(),
                (Format("%.2f ", ratio) +
                 Range(Ratios(runtime.Measured->Nanoseconds, limit.Measured->Nanoseconds), 1, 2))
                    .c_str(),
                reach.c_str(), verdict.c_str(), best.c_str());
    for (std::size_t at = 0; at < lines.size(); ++at)
    {
        const char* const mark = at == 0                            ? " "
                                 : at == 1                          ? "="
                                 : lines[at].Of->Role == Role::Peer ? "~"
                                                                    : "-";
        std::printf("    %s %-75s %-25s allocations %.2f\n", mark, lines[at].Of->Name.c_str(),
                    TimeText(lines[at].Measured->Nanoseconds).c_str(),
                    lines[at].Measured->Allocations);
    }
    return report;
}

// Millions of keys a second, of one thread and of two.
[[nodiscard]] Json PrintReaders(const Job& job, const Lines& lines)
{
    Json report = Reported(job, "readers", lines);
    std::printf("%s\n", job.Title.c_str());
    for (std::size_t at = 0; at + 1 < lines.size(); at += 2)
    {
        const double alone = 1e3 / lines[at].Median;
        const double together = 1e3 / lines[at + 1].Median;
        const double gain = together / alone;
        std::string verdict;
        if (at == 0)
        {
            report["ratio"] = gain;
            verdict = Verdict(report, job.Reach, gain >= job.Reach);
        }
        std::printf("    %s %-75s one %.1f, two %.1f million a second, %.2f times  %s\n",
                    at == 0                            ? " "
                    : lines[at].Of->Role == Role::Peer ? "~"
                                                       : "=",
                    lines[at].Of->Name.c_str(), alone, together, gain,
                    verdict.empty() ? "" : Format("%.1f %s", job.Reach, verdict.c_str()).c_str());
    }
    return report;
}

[[nodiscard]] Json PrintTimes(const Job& job, const Lines& lines)
{
    std::printf("%-54s", job.Title.c_str());
    for (const Line& line : lines)
        std::printf(" %s: %s ", line.Of->Name.c_str(),
                    Format(line.Median < 10'000 ? "%.1f ns" : "%.0f ns", line.Median).c_str());
    std::printf("\n");
    return Reported(job, job.Kind == Kind::Curve ? "curve" : "times", lines);
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
        const auto own = run.counters.find(CRoundReport::Own);
        const bool byTheClock = run.run_name.time_type == "real_time";
        measured.Nanoseconds.push_back(own != run.counters.end() ? own->second.value
                                       : byTheClock              ? run.GetAdjustedRealTime() / items
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

void CTable::PrintHead()
{
    const double others = PercentOfOthers();
    mReport = {{"processors", std::thread::hardware_concurrency()},
               {"others_before", others},
               {"peers", PeerLibraries()},
               {"missing", MissingPeerLibraries()},
               {"jobs", Json::array()}};
    std::printf("Median (least-greatest) of repetitions in the order of chance; %u processors, of "
                "which others take %.0f %%.\nPeers: %s.%s%s\n\n",
                std::thread::hardware_concurrency(), others, PeerLibraries().c_str(),
                MissingPeerLibraries().empty() ? "" : " Not found, and left out: ",
                MissingPeerLibraries().c_str());
    std::printf("%-54s %-25s %-25s %-17s %-5s %-16s %s\n", "job", "runtime", "limit", "ratio",
                "reach", "", "best peer, ratio to it");
    std::fflush(stdout);
}

void CTable::PrintJob(const Job& job, const std::vector<Contender>& contenders,
                      const CRunCollector& runs)
{
    Lines lines;
    for (const Contender& contender : contenders)
    {
        const auto& measured = runs.Of(contender.Name);
        lines.push_back({&contender, &measured, Median(measured.Nanoseconds)});
    }
    const auto print = job.Kind == Kind::Readers                            ? PrintReaders
                       : job.Kind == Kind::Curve || job.Kind == Kind::Times ? PrintTimes
                                                                            : PrintBesideLimit;
    mReport["jobs"].push_back(print(job, lines));
    mReport["repetitions"] = lines.at(0).Measured->Nanoseconds.size();
    std::fflush(stdout);
}

void CTable::PrintFailedJob(const Job& job, const char* why)
{
    mReport["jobs"].push_back({{"title", job.Title}, {"kind", "failed"}, {"why", why}});
    std::printf("%-54s failed: %s\n", job.Title.c_str(), why);
    std::fflush(stdout);
}

void CTable::PrintHeap()
{
    std::printf("bytes of heap\n");
    for (const HeapUse& use : MeasureHeap())
    {
        mReport["heap"].push_back({{"what", use.What}, {"bytes", use.Bytes}});
        std::printf("    %-52s %.1f\n", use.What.c_str(), use.Bytes);
    }
}

void CTable::PrintFoot()
{
    mReport["others_after"] = PercentOfOthers();
    std::printf("\n= what the limit is   - for comparison   ~ what somebody might use instead\n");
}

void CTable::Write(const std::string& file) const
{
    std::ofstream out(file);
    out << mReport.dump(1) << '\n';
    if (!out.flush())
        throw std::runtime_error("cannot write " + file);
}

} // namespace Tavrik::Ossira::tBench
