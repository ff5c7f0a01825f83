// The platform collects text; here it becomes lines.
#include "DiagnosticsCapture.h"

#include <algorithm>
#include <sstream>

namespace Tavrik::Ossira::tTest
{

std::vector<std::string> DiagnosticsCapture::Lines() const
{
    std::vector<std::string> lines;
    std::istringstream stream(Text());
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

std::size_t DiagnosticsCapture::CountLinesWith(std::string_view text) const
{
    const std::vector<std::string> lines = Lines();
    return static_cast<std::size_t>(std::ranges::count_if(
        lines, [text](const std::string& line) { return line.find(text) != std::string::npos; }));
}

ObserverMaskScope::ObserverMaskScope(std::uint32_t mask)
{
    GetGlobalObserver(mObserver.Put());
    mFormerMask = mObserver->GetLevelMask();
    mObserver->SetLevelMask(mask, ~mask);
}

ObserverMaskScope::~ObserverMaskScope()
{
    mObserver->SetLevelMask(mFormerMask, ~mFormerMask);
}

} // namespace Tavrik::Ossira::tTest
