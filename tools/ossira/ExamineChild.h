// What parent and child of an examination agree on.
#pragma once

namespace Tavrik::tHost
{

inline constexpr const char* ExamineCommand = "examine-file";
inline constexpr const char* StepKey = "step";
inline constexpr const char* DoneStep = "done";
inline constexpr const char* LastingKey = "lasting";

} // namespace Tavrik::tHost
