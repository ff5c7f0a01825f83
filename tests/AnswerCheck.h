// Checks what a call answers and the one line that it reports.
#pragma once

#include "DiagnosticsCapture.h"

#include <gtest/gtest.h>
#include <source_location>

namespace Tavrik::Ossira::tTest
{

class AnswerCheck
{
public:
    // Since the former check exactly one line was reported, with that text, or none (empty).
    void operator()(Result answer, Result expected, std::string_view report = {},
                    std::source_location where = std::source_location::current())
    {
        const testing::ScopedTrace trace(where.file_name(), static_cast<int>(where.line()), "");
        EXPECT_EQ(answer, expected);
        const std::vector<std::string> lines = mCapture.Lines();
        EXPECT_EQ(lines.size() - mSeen, report.empty() ? 0u : 1u) << mCapture.Text();
        if (!report.empty() && !lines.empty())
        {
            EXPECT_NE(lines.back().find(report), std::string::npos) << lines.back();
        }
        mSeen = lines.size();
    }

private:
    DiagnosticsCapture mCapture;
    std::size_t mSeen = 0;
};

} // namespace Tavrik::Ossira::tTest
