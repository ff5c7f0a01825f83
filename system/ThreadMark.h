// A number that tells the threads of a process apart while they live, as cheaply as the processor
// can: each thread has a block of its own, whose address it keeps in a segment register.
#pragma once

#include <cstdint>

namespace Tavrik::tSystem
{

// Never 0. A thread that begins may get the number of one that has ended.
[[nodiscard]] inline std::uintptr_t ThreadMark() noexcept
{
#ifdef _WIN32
    std::uintptr_t mark = 0;
    __asm__("movq %%gs:0x30, %0" : "=r"(mark));
    return mark;
#else
    return reinterpret_cast<std::uintptr_t>(__builtin_thread_pointer());
#endif
}

} // namespace Tavrik::tSystem
