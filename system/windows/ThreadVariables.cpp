// Storage of the `thread_local` variables of one library, among them the exception state of the
// run-time library, in place of the compiler's. The compiler's takes one of the process's thread
// storage slots and some memory for each library and has no way to give them back, so a process
// that loads and unloads modules would run out of slots after about a thousand.
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

// There is no way to report that a variable cannot be had.
template <class Pointer>
[[nodiscard]] Pointer OrAbort(Pointer pointer)
{
    if (pointer == nullptr)
        std::abort();
    return pointer;
}

[[nodiscard]] DWORD Slot()
{
    DWORD slot = gSlot.load(std::memory_order_acquire);
    if (slot != TLS_OUT_OF_INDEXES)
        return slot;
    const DWORD own = TlsAlloc();
    if (own == TLS_OUT_OF_INDEXES)
        std::abort();
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
    auto* const thread = OrAbort(new (std::nothrow) ThreadVariables);
    thread->Next = gThreads;
    while (!gThreads.compare_exchange_weak(thread->Next, thread))
        ;
    return thread;
}

[[nodiscard]] ThreadVariables& ThisThread()
{
    const DWORD slot = Slot();
    const DWORD lastError = GetLastError(); // which asking for the value resets
    auto* thread = static_cast<ThreadVariables*>(TlsGetValue(slot));
    if (thread == nullptr)
    {
        thread = TakeThread();
        if (TlsSetValue(slot, thread) == 0)
            std::abort();
    }
    SetLastError(lastError);
    return *thread;
}

void* NewCopy(const Variable& variable)
{
    void* const address = OrAbort(_aligned_malloc(variable.Size, variable.Alignment));
    if (variable.InitialValue != nullptr)
        std::memcpy(address, variable.InitialValue, variable.Size);
    else
        std::memset(address, 0, variable.Size);
    return address;
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
            delete thread;
        }
    }

    bool IsKept = false;
};

__attribute__((init_priority(101))) Storage gStorage;

} // namespace

namespace Tavrik::Ossira::tSystem
{

void ReleaseVariablesOfThread() noexcept
{
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
    const std::size_t number = NumberOf(*variable);
    ThreadVariables& thread = ThisThread();
    if (number >= thread.Count)
    {
        const std::size_t count = number + 8;
        thread.Addresses =
            static_cast<void**>(OrAbort(std::realloc(thread.Addresses, count * sizeof(void*))));
        std::memset(thread.Addresses + thread.Count, 0, (count - thread.Count) * sizeof(void*));
        thread.Count = count;
    }
    void*& address = thread.Addresses[number];
    if (address == nullptr)
        address = NewCopy(*variable);
    return address;
}
