// Diagnostics lines as they leave the process, and the mask that lets them out.
#pragma once

#include "OssiraDiagnostics.h"
#include "OssiraPointer.h"
#include "TestPlatform.h"

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
        std::size_t count = 0;
        for (const std::string& line : Lines())
            count += line.find(text) != std::string::npos ? 1u : 0u;
        return count;
    }
};

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
    ObserverMaskScope& operator=(const ObserverMaskScope&) = delete;

private:
    ObjectPtr<IObserverPrint> mObserver;
    std::uint32_t mFormerMask = 0;
};

} // namespace Tavrik::Ossira::tTest
