// The parent's side: starts the child, and makes of its reports, and of its end, a verdict.
#include "Examine.h"

#include "ChildCode.h"
#include "ChildProcess.h"
#include "ExamineChild.h"

#include <sstream>

namespace Tavrik::tHost
{

namespace
{

// The last lines of what a module wrote; a crash is mostly explained there.
std::string LastWords(const std::string& words)
{
    constexpr std::size_t limit = 500;
    std::string text = words.substr(words.size() - std::min(words.size(), limit));
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
        text.pop_back();
    return text;
}

// What happened in a step that has no end.
std::string WhatHappened(const tSystem::ChildOutcome& outcome, const std::string& step)
{
    if (outcome.End == tSystem::EChildEnd::Exited)
        return "ended the process in the step \"" + step + "\": it " + DescribeEnd(outcome);
    if (outcome.End == tSystem::EChildEnd::TimedOut)
        return "hung in the step \"" + step + "\": it " + DescribeEnd(outcome);
    if (outcome.End == tSystem::EChildEnd::Crashed)
        return "crashed in the step \"" + step + "\": " + tSystem::CrashText(outcome.Code);
    return "could not be looked at: the process " + DescribeEnd(outcome);
}

} // namespace

Json ExamineFile(const std::string& path, std::chrono::milliseconds limit, bool& isLasting)
{
    const tSystem::ChildOutcome outcome = tSystem::RunChild({ExamineCommand, path}, limit);
    Json found = {{"file", path}, {"verdict", tVerdict::Broken}};
    std::istringstream reports(outcome.Reports);
    for (std::string line; std::getline(reports, line);)
    {
        const Json report = Json::parse(line, nullptr, false);
        if (report.is_object())
            found.update(report);
    }
    const std::string step = found.value(StepKey, "start");
    isLasting = outcome.Succeeded() && step == DoneStep && found.value(LastingKey, true);
    if (!outcome.Succeeded() || step != DoneStep)
    {
        found["verdict"] = tVerdict::Broken;
        found["problems"].push_back(WhatHappened(outcome, step));
        found["step"] = step;
    }
    else
    {
        found.erase(StepKey);
    }
    found.erase(LastingKey);
    if (const std::string words = LastWords(outcome.Words);
        found.contains("problems") && !words.empty())
        found["words"] = words;
    return found;
}

} // namespace Tavrik::tHost
