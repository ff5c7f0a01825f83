// What is the matter with a library file that the system refuses; its loader names neither a
// missing library nor what a file is instead.
#pragma once

#include <string>

namespace Tavrik::tSystem
{

// The fault of the file as far as it can be seen in it, with the system's own words behind it.
[[nodiscard]] std::string WhyNotLoaded(const std::wstring& path, const std::string& systemsWords);

} // namespace Tavrik::tSystem
