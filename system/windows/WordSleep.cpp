// Sleeping on a word by the system's own operations, which are looked up by name: older systems
// lack them. There a waiter gives its time slice away and looks again.
#include "../Platform.h"

#include <windows.h>

namespace Tavrik::tSystem
{

namespace
{

struct WordOperations
{
    BOOL(WINAPI* Wait)(volatile void* address, void* compare, SIZE_T size, DWORD milliseconds);
    void(WINAPI* Wake)(void* address);
};

template <class Operation>
[[nodiscard]] Operation FindOperation(HMODULE library, const char* name) noexcept
{
    return library == nullptr ? nullptr
                              : reinterpret_cast<Operation>(
                                    reinterpret_cast<void*>(GetProcAddress(library, name)));
}

// The library is part of every process that has it, so it stays where it is. Threads that come here
// at the same time find the same.
[[nodiscard]] WordOperations Operations() noexcept
{
    static constinit std::atomic<bool> isKnown = false;
    static constinit std::atomic<decltype(WordOperations::Wait)> wait = nullptr;
    static constinit std::atomic<decltype(WordOperations::Wake)> wake = nullptr;
    if (!isKnown.load(std::memory_order_acquire))
    {
        const HMODULE library = GetModuleHandleW(L"kernelbase.dll");
        wait = FindOperation<decltype(WordOperations::Wait)>(library, "WaitOnAddress");
        wake = FindOperation<decltype(WordOperations::Wake)>(library, "WakeByAddressSingle");
        isKnown.store(true, std::memory_order_release);
    }
    return {wait, wake};
}

} // namespace

void SleepOnWord(const std::atomic<std::uint32_t>& word, std::uint32_t value,
                 std::uint32_t milliseconds) noexcept
{
    static_assert(Forever == INFINITE);
    // A lock may be taken between a failed call and the look at its error number.
    const DWORD callersError = GetLastError();
    if (const WordOperations operations = Operations(); operations.Wait != nullptr)
        operations.Wait(const_cast<std::atomic<std::uint32_t>*>(&word), &value, sizeof value,
                        milliseconds);
    else
        Sleep(word.load() == value ? 1 : 0);
    SetLastError(callersError);
}

void WakeOnWord(const std::atomic<std::uint32_t>& word) noexcept
{
    if (const WordOperations operations = Operations(); operations.Wake != nullptr)
        operations.Wake(const_cast<std::atomic<std::uint32_t>*>(&word));
}

void Pause() noexcept
{
    YieldProcessor();
}

} // namespace Tavrik::tSystem
