// Diagnostics lines as they leave the process, and the mask that lets them out.
#pragma once

#include "OssiraDiagnostics.h"
#include "OssiraPointer.h"
#include "TestPlatform.h"

#include <gtest/gtest.h>
#include <sstream>
#include <string_view>
#include <vector>

namespace Tavrik::Ossira::tTest
{

// Captures what is written from its construction on.
class DiagnosticsCapture : public CDebugOutputTap
{
public:
    using CDebugOutputTap::CDebugOutputTap;

    // The lines, without their newlines.
    [[nodiscard]] std::vector<std::string> Lines() const
    {
        std::vector<std::string> lines;
        std::istringstream stream(Text());
        for (std::string line; std::getline(stream, line);)
            lines.push_back(line);
        return lines;
    }

    // How many lines contain that text.
    [[nodiscard]] std::size_t CountLinesWith(std::string_view text) const
    {
        std::size_t count = 0;
        for (const std::string& line : Lines())
            count += line.find(text) != line.npos;
        return count;
    }
};

// Checks what a call answers and that exactly one of the lines that it writes has that text;
// without a text it must write nothing.
template <class Call>
void ExpectReport(Call call, Result answer, const std::string& text, const char* what)
{
    const DiagnosticsCapture capture;
    EXPECT_EQ(call(), answer) << what;
    EXPECT_EQ(capture.CountLinesWith(text), text.empty() ? 0u : 1u) << text << "\n"
                                                                    << what << "\n"
                                                                    << capture.Text();
}

#define REPORTS(call, answer, ...)                                                                 \
    ExpectReport([&] { return call; }, answer, std::string(__VA_ARGS__), #call)

// The same for a call that ends with a check that fails, whose text is given.
#define FAILS(call, code, check) REPORTS(call, code, InReport(check))

[[nodiscard]] inline std::string InReport(const std::string& check)
{
    return check.empty() ? "" : " " + check + ": ";
}

// Gives the observer in place exactly this mask, and its former one back at the end.
class ObserverMaskScope
{
public:
    explicit ObserverMaskScope(std::uint32_t mask)
    {
        GetGlobalObserver(mObserver.Put());
        mFormerMask = mObserver->GetLevelMask();
        mObserver->SetLevelMask(mask, ~mask);
    }

    ~ObserverMaskScope()
    {
        mObserver->SetLevelMask(mFormerMask, ~mFormerMask);
    }

    ObserverMaskScope(const ObserverMaskScope&) = delete;

private:
    ObjectPtr<IObserverPrint> mObserver;
    std::uint32_t mFormerMask = 0;
};

} // namespace Tavrik::Ossira::tTest
