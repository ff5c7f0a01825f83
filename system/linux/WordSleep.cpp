// Sleeping on a futex: the kernel compares the word with the expected value before it puts a thread
// to sleep, so that no wake-up is lost.
#include "../Platform.h"

#include <cerrno>
#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Tavrik::tSystem
{

namespace
{

static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t));

void CallFutex(const std::atomic<std::uint32_t>& word, int operation, std::uint32_t value,
               const timespec* duration) noexcept
{
    // A lock may be taken between a failed call and the look at its error number.
    const int callersError = errno;
    syscall(SYS_futex, &word, operation, value, duration, nullptr, 0);
    errno = callersError;
}

} // namespace

void SleepOnWord(const std::atomic<std::uint32_t>& word, std::uint32_t value,
                 std::uint32_t milliseconds) noexcept
{
    const timespec duration = {milliseconds / 1000, milliseconds % 1000 * std::int64_t{1000000}};
    CallFutex(word, FUTEX_WAIT_PRIVATE, value, milliseconds == Forever ? nullptr : &duration);
}

void WakeOnWord(const std::atomic<std::uint32_t>& word) noexcept
{
    CallFutex(word, FUTEX_WAKE_PRIVATE, 1, nullptr);
}

void Pause() noexcept
{
    __builtin_ia32_pause();
}

} // namespace Tavrik::tSystem
