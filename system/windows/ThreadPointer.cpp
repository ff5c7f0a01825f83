// A thread storage slot of the library's own, taken when it is first set and given back with the
// library's static objects: the compiler's thread variables need memory in each thread.
#include "../Platform.h"

#include <windows.h>

namespace Tavrik::tSystem
{

namespace
{

class CSlot
{
public:
    constexpr CSlot() noexcept = default;
    CSlot(const CSlot&) = delete;
    CSlot& operator=(const CSlot&) = delete;
    ~CSlot()
    {
        const DWORD number = mNumber.exchange(GivenBack);
        if (number != TLS_OUT_OF_INDEXES)
            TlsFree(number);
    }

    [[nodiscard]] DWORD Number() const noexcept
    {
        return mNumber.load(std::memory_order_acquire);
    }

    [[nodiscard]] DWORD Take() noexcept
    {
        DWORD number = Number();
        if (number != TLS_OUT_OF_INDEXES)
            return number;
        const DWORD own = TlsAlloc();
        if (mNumber.compare_exchange_strong(number, own))
            return own;
        TlsFree(own);
        return number;
    }

private:
    static constexpr DWORD GivenBack = TLS_OUT_OF_INDEXES - 1; // the system refuses this one too

    std::atomic<DWORD> mNumber = TLS_OUT_OF_INDEXES;
};

constinit CSlot gSlot;

} // namespace

void* ThreadPointer() noexcept
{
    const DWORD slot = gSlot.Number();
    if (slot == TLS_OUT_OF_INDEXES)
        return nullptr;
    const DWORD lastError = GetLastError(); // which asking for the value resets
    void* const pointer = TlsGetValue(slot);
    SetLastError(lastError);
    return pointer;
}

const void* ThisThread() noexcept
{
    return NtCurrentTeb();
}

bool SetThreadPointer(void* pointer) noexcept
{
    const DWORD slot = gSlot.Take();
    return slot != TLS_OUT_OF_INDEXES && TlsSetValue(slot, pointer) != 0;
}

} // namespace Tavrik::tSystem
