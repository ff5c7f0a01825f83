// Diagnostics lines as they leave the process, and the mask that lets them out.
#pragma once

#include "OssiraDiagnostics.h"
#include "OssiraPointer.h"
#include "TestPlatform.h"

#include <string_view>

namespace Tavrik::Ossira::tTest
{

// Captures what is written from its construction on.
class DiagnosticsCapture
{
public:
    [[nodiscard]] std::string Text() const
    {
        return mTap.Text();
    }

    // The lines, without their newlines.
    [[nodiscard]] std::vector<std::string> Lines() const;

    // How many lines contain that text.
    [[nodiscard]] std::size_t CountLinesWith(std::string_view text) const;

private:
    CDebugOutputTap mTap;
};

// Gives the observer in place exactly this mask, and its former one back at the end.
class ObserverMaskScope
{
public:
    explicit ObserverMaskScope(std::uint32_t mask);
    ~ObserverMaskScope();
    ObserverMaskScope(const ObserverMaskScope&) = delete;
    ObserverMaskScope& operator=(const ObserverMaskScope&) = delete;

private:
    ObjectPtr<IObserverPrint> mObserver;
    std::uint32_t mFormerMask = 0;
};

} // namespace Tavrik::Ossira::tTest
