// Makes allocations fail at will and sees what is not given back, in a process that examines
// foreign code: only a program that links this has its heap watched. What is freed is overwritten,
// so that whoever uses it afterwards is found.
#pragma once

#include <cstdint>

namespace Tavrik::tSystem
{

// Begins to watch; on platforms where a library's calls of the heap lead to it directly, those of
// the library at that path, which is loaded. False where nothing can be watched: the heap is a
// sanitizer's, or the library has a heap of its own.
[[nodiscard]] bool WatchAllocations(const wchar_t* path);

// Of the calling thread's allocations the one with that number (from 0) fails, and with `andLater`
// every one after it.
void FailAllocations(std::int64_t which, bool andLater) noexcept;

// Whether a library needs memory for the first exception that it throws, and ends the process when
// there is none: then a failing allocation must not be followed by others.
extern const bool ExceptionsNeedMemory;

// Ends that; whether one failed.
bool EndFailing() noexcept;

// The blocks that were allocated since watching began and not freed, less those that were freed
// since and allocated before.
[[nodiscard]] std::int64_t LiveAllocations() noexcept;

// Whether the library at that path is loaded into this process, by whoever it is.
[[nodiscard]] bool IsLoaded(const wchar_t* path);

} // namespace Tavrik::tSystem
