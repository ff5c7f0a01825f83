// What the platform's numbers about a child mean, in words; for `DescribeEnd`.
#pragma once

#include <cstdint>
#include <string>

namespace Tavrik::tSystem
{

// "segmentation fault (SIGSEGV)", "access violation (0xC0000005)".
[[nodiscard]] std::string CrashText(std::uint32_t code);

[[nodiscard]] std::string StartFailureText(std::uint32_t code);

} // namespace Tavrik::tSystem
