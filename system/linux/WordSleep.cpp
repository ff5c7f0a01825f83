// Sleeping on a futex: the kernel compares the word with the expected value before it puts a thread
// to sleep, so that no wake-up is lost.
#include "../Platform.h"

#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Tavrik::tSystem
{

static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t));

void SleepOnWord(const std::atomic<std::uint32_t>& word, std::uint32_t value,
                 std::uint32_t milliseconds) noexcept
{
    const timespec duration = {milliseconds / 1000, milliseconds % 1000 * std::int64_t{1000000}};
    syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, value,
            milliseconds == Forever ? nullptr : &duration, nullptr, 0);
}

void WakeOnWord(const std::atomic<std::uint32_t>& word) noexcept
{
    syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

void Pause() noexcept
{
    __builtin_ia32_pause();
}

} // namespace Tavrik::tSystem
