// Diagnostics lines as they leave the process, and the mask that lets them out.
#pragma once

#include "OssiraDiagnostics.h"
#include "OssiraPointer.h"
#include "TestPlatform.h"

#include <algorithm>
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
        const auto hasText = [&](const std::string& line)
        {
            return line.find(text) != line.npos;
        };
        return static_cast<std::size_t>(std::ranges::count_if(Lines(), hasText));
    }
};

// Checks what a call answers and that it writes exactly one line, with that text; or none, if there
// is no text.
template <class Call>
void ExpectReport(Call call, Result answer, const char* what, std::string_view text)
{
    const DiagnosticsCapture capture;
    EXPECT_EQ(call(), answer) << what;
    EXPECT_EQ(capture.Lines().size(), text.empty() ? 0u : 1u) << what << "\n" << capture.Text();
    EXPECT_NE(capture.Text().find(text), std::string::npos) << what << "\n" << capture.Text();
}

#define REPORTS(call, answer, ...)                                                                 \
    ExpectReport([&] { return call; }, answer, #call, std::string_view(__VA_ARGS__))

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
