// Storage of the `thread_local` variables of one library, among them the exception state of the
// run-time library, in place of the compiler's. The compiler's takes one of the process's thread
// storage slots and some memory for each library and has no way to give them back, so a process
// that loads and unloads modules would run out of slots after about a thousand.
//
// A thread whose first throw is that of a shortage gets its variables from a small reserve in the
// library itself, and keeps them there until it ends; the process stops only when more threads than
// the reserve has room for come to that at the same time.
//
// No lock is held here: a thread that the end of the process stops leaves nothing behind that the
// last one could wait for.
#include "ThreadVariables.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <new>
#include <windows.h>

namespace
{

// What the compiler writes for a variable; zero bytes are its initial value where none is given.
struct Variable
{
    std::size_t Size;
    std::size_t Alignment;
    std::atomic<std::size_t> Number; // 0 until a thread first uses it
    const void* InitialValue;
};

// The variables of one thread by their numbers; a number's place is null until it is used. When the
// thread ends, a later one takes it over.
struct ThreadVariables
{
    std::atomic<bool> IsTaken = true;
    ThreadVariables* Next = nullptr;
    void** Addresses = nullptr;
    std::size_t Count = 0;
};

std::atomic<DWORD> gSlot = TLS_OUT_OF_INDEXES;
std::atomic<std::size_t> gLastNumber = 0;
std::atomic<ThreadVariables*> gThreads = nullptr;

// The variables of threads that found no memory for them.
struct ReservedVariable
{
    std::atomic<DWORD> ThreadId = 0; // 0: free
    const Variable* Which = nullptr; // the thread's own to read and write
    alignas(16) unsigned char Bytes[64] = {};
};

ReservedVariable gReserve[64];
std::atomic<std::size_t> gReservedCount = 0;

[[nodiscard]] void* FindReserved(const Variable& variable)
{
    if (gReservedCount.load(std::memory_order_relaxed) == 0) // this thread sees its own
        return nullptr;
    const DWORD thisThread = GetCurrentThreadId();
    for (ReservedVariable& reserved : gReserve)
    {
        if (reserved.ThreadId == thisThread && reserved.Which == &variable)
            return reserved.Bytes;
    }
    return nullptr;
}

void ReleaseReserved()
{
    const DWORD thisThread = GetCurrentThreadId();
    for (ReservedVariable& reserved : gReserve)
    {
        if (gReservedCount == 0 || reserved.ThreadId != thisThread)
            continue;
        reserved.Which = nullptr;
        reserved.ThreadId = 0;
        --gReservedCount;
    }
}

// The process's slot, or none.
[[nodiscard]] DWORD Slot()
{
    DWORD slot = gSlot.load(std::memory_order_acquire);
    if (slot != TLS_OUT_OF_INDEXES)
        return slot;
    const DWORD own = TlsAlloc();
    if (own == TLS_OUT_OF_INDEXES)
        return own;
    if (gSlot.compare_exchange_strong(slot, own))
        return own;
    TlsFree(own);
    return slot;
}

[[nodiscard]] std::size_t NumberOf(Variable& variable)
{
    std::size_t number = variable.Number.load(std::memory_order_acquire);
    if (number != 0)
        return number;
    const std::size_t own = ++gLastNumber;
    return variable.Number.compare_exchange_strong(number, own) ? own : number;
}

[[nodiscard]] ThreadVariables* TakeThread()
{
    for (ThreadVariables* thread = gThreads; thread != nullptr; thread = thread->Next)
    {
        if (!thread->IsTaken.exchange(true))
            return thread;
    }
    auto* const memory = std::malloc(sizeof(ThreadVariables)); // `new` may throw inside
    if (memory == nullptr)
        return nullptr;
    auto* const thread = ::new (memory) ThreadVariables;
    thread->Next = gThreads;
    while (!gThreads.compare_exchange_weak(thread->Next, thread))
        ;
    return thread;
}

// Null when memory is exhausted.
[[nodiscard]] ThreadVariables* ThisThread()
{
    const DWORD slot = Slot();
    if (slot == TLS_OUT_OF_INDEXES)
        return nullptr;
    const DWORD lastError = GetLastError(); // which asking for the value resets
    auto* thread = static_cast<ThreadVariables*>(TlsGetValue(slot));
    if (thread == nullptr)
    {
        thread = TakeThread();
        if (thread != nullptr && TlsSetValue(slot, thread) == 0)
        {
            thread->IsTaken = false;
            thread = nullptr;
        }
    }
    SetLastError(lastError);
    return thread;
}

[[nodiscard]] void* Initialized(void* address, const Variable& variable)
{
    if (address == nullptr)
        return nullptr;
    if (variable.InitialValue != nullptr)
        std::memcpy(address, variable.InitialValue, variable.Size);
    else
        std::memset(address, 0, variable.Size);
    return address;
}

// There is no way to report that a variable cannot be had.
[[nodiscard]] void* TakeReserved(const Variable& variable)
{
    for (ReservedVariable& reserved : gReserve)
    {
        DWORD free = 0;
        if (variable.Size > sizeof reserved.Bytes || variable.Alignment > alignof(ReservedVariable))
            break;
        if (!reserved.ThreadId.compare_exchange_strong(free, GetCurrentThreadId()))
            continue;
        ++gReservedCount;
        reserved.Which = &variable;
        return Initialized(reserved.Bytes, variable);
    }
    std::abort();
}

// The place of the variable's address for this thread; null when memory is exhausted.
[[nodiscard]] void** PlaceOf(Variable& variable)
{
    const std::size_t number = NumberOf(variable);
    ThreadVariables* const thread = ThisThread();
    if (thread == nullptr)
        return nullptr;
    if (number >= thread->Count)
    {
        const std::size_t count = number + 8;
        auto* const addresses =
            static_cast<void**>(std::realloc(thread->Addresses, count * sizeof(void*)));
        if (addresses == nullptr)
            return nullptr;
        std::memset(addresses + thread->Count, 0, (count - thread->Count) * sizeof(void*));
        thread->Addresses = addresses;
        thread->Count = count;
    }
    return &thread->Addresses[number];
}

void Clear(ThreadVariables& thread)
{
    for (std::size_t number = 0; number < thread.Count; ++number)
        _aligned_free(thread.Addresses[number]);
    std::free(thread.Addresses);
    thread.Addresses = nullptr;
    thread.Count = 0;
}

// The library's first static object, thus the last one that is destroyed.
struct Storage
{
    ~Storage()
    {
        if (IsKept)
            return;
        if (gSlot != TLS_OUT_OF_INDEXES)
            TlsFree(gSlot.exchange(TLS_OUT_OF_INDEXES));
        ThreadVariables* next = nullptr;
        for (ThreadVariables* thread = gThreads; thread != nullptr; thread = next)
        {
            next = thread->Next;
            Clear(*thread);
            std::free(thread);
        }
    }

    bool IsKept = false;
};

__attribute__((init_priority(101))) Storage gStorage;

} // namespace

namespace Tavrik::Ossira::tSystem
{

bool PrepareVariables() noexcept
{
    return Slot() != TLS_OUT_OF_INDEXES;
}

void ReleaseVariablesOfThread() noexcept
{
    ReleaseReserved();
    if (gSlot == TLS_OUT_OF_INDEXES)
        return;
    if (auto* const thread = static_cast<ThreadVariables*>(TlsGetValue(gSlot)); thread != nullptr)
    {
        TlsSetValue(gSlot, nullptr);
        Clear(*thread);
        thread->IsTaken = false;
    }
}

void KeepVariablesOfAllThreads() noexcept
{
    gStorage.IsKept = true;
}

} // namespace Tavrik::Ossira::tSystem

// Called by compiled code at each use of such a variable.
extern "C" void* __emutls_get_address(Variable* variable)
{
    void** const place = PlaceOf(*variable);
    if (place != nullptr && *place != nullptr)
        return *place;
    if (void* const reserved = FindReserved(*variable); reserved != nullptr)
        return reserved;
    if (place != nullptr)
        *place = Initialized(_aligned_malloc(variable->Size, variable->Alignment), *variable);
    return place != nullptr && *place != nullptr ? *place : TakeReserved(*variable);
}
