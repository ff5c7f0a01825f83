// What the platforms' parts of ChildProcess.h share: how much is kept of what a child writes, and
// what the platform's numbers about it mean, in words.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Tavrik::tSystem
{

// Of each stream.
inline constexpr std::size_t StreamLimit = 4U << 20U;

// "segmentation fault (SIGSEGV)", "access violation (0xC0000005)".
[[nodiscard]] std::string CrashText(std::uint32_t code);

[[nodiscard]] std::string StartFailureText(std::uint32_t code);

} // namespace Tavrik::tSystem
