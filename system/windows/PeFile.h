// What is the matter with a library file that the system refuses; its loader names neither a
// missing library nor what a file is instead.
#pragma once

#include <string>

namespace Tavrik::tSystem
{

// As the rest of a sentence about the file, whose path is a full one or a bare name.
[[nodiscard]] std::string WhyNotLoaded(const std::wstring& path, unsigned long error);

} // namespace Tavrik::tSystem
