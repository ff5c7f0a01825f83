// What is the matter with a library file that the system refuses; its loader names neither a
// missing library nor what a file is instead.
#pragma once

#include <string>

namespace Tavrik::tSystem
{

// Both as the rest of a sentence about the file, whose path is a full one or a bare name, and the
// number of the system's error.
[[nodiscard]] std::string WhyNotLoaded(const std::wstring& path, unsigned long error);
[[nodiscard]] std::string CannotBeLoaded(unsigned long error);

// The system's words, on one line.
[[nodiscard]] std::string TextOfError(unsigned long error);

} // namespace Tavrik::tSystem
