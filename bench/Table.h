// The table of jobs: collects the repetitions that the benchmark library measures, prints each
// job's medians beside its limit's and its best peer's, with the ratio that was reached and the
// ratio to reach, and keeps all of it for the report.
#pragma once

#include "Job.h"

#include <map>
#include <nlohmann/json.hpp>

namespace Tavrik::Ossira::tBench
{

// The repetitions of the contenders of one job, by contender.
class CRunCollector : public benchmark::BenchmarkReporter
{
public:
    struct Measured
    {
        std::vector<double> Nanoseconds; // per item, in the order of the repetitions
        double Allocations = 0;          // per item
    };

    bool ReportContext(const Context& context) override;
    void ReportRuns(const std::vector<Run>& runs) override;

    // Throws when the contender did not run or failed.
    [[nodiscard]] const Measured& Of(const std::string& contender) const;

private:
    std::map<std::string, Measured> mMeasured;
    std::map<std::string, std::string> mFailures;
};

class CTable
{
public:
    void PrintHead();
    void PrintJob(const Job& job, const std::vector<Contender>& contenders,
                  const CRunCollector& runs);
    void PrintFailedJob(const Job& job, const char* why);
    void PrintHeap();
    void PrintFoot();

    // Everything that was printed.
    void Write(const std::string& file) const;

private:
    nlohmann::ordered_json mReport;
};

} // namespace Tavrik::Ossira::tBench
