// Lets one thread build a function's static variable while others wait, in place of the compiler's
// run-time library: that one waits through the thread library, which takes a thread storage slot of
// the process for every library that it is part of and never gives it back. Whatever asks for the
// thread library's threads, if only to give a time slice away, brings worse: a handler that the
// system calls in every thread for each exception, and which goes with the library while it is
// called.
#include <atomic>
#include <cxxabi.h>
#include <windows.h>

namespace
{

// The compiler's own code reads the first byte alone; not 0 there means that the variable is built.
struct Guard
{
    std::atomic<bool> IsBuilt;
    std::atomic<bool> IsBeingBuilt;
};

[[nodiscard]] Guard* State(__cxxabiv1::__guard* guard)
{
    return reinterpret_cast<Guard*>(guard);
}

} // namespace

int __cxxabiv1::__cxa_guard_acquire(__guard* variable)
{
    Guard* const guard = State(variable);
    while (!guard->IsBuilt)
    {
        if (!guard->IsBeingBuilt.exchange(true))
        {
            if (!guard->IsBuilt)
                return 1; // the caller builds it
            guard->IsBeingBuilt = false;
            return 0;
        }
        SwitchToThread();
    }
    return 0;
}

void __cxxabiv1::__cxa_guard_release(__guard* variable) noexcept
{
    State(variable)->IsBuilt = true;
    State(variable)->IsBeingBuilt = false;
}

// The building ended with an exception.
void __cxxabiv1::__cxa_guard_abort(__guard* variable) noexcept
{
    State(variable)->IsBeingBuilt = false;
}
