// The run-time options of the sanitizers, compiled into the test programs; without a sanitizer
// nobody calls these. Reports go to standard output, because the tests capture standard error.
#include "OssiraBase.h"

// A request for too much memory is part of a test, and no fault.
OSSIRA_EXPORT const char* __asan_default_options()
{
    return "log_path=stdout:detect_leaks=1:allocator_may_return_null=1:strict_string_checks=1";
}

OSSIRA_EXPORT const char* __ubsan_default_options()
{
    return "log_path=stdout:halt_on_error=1:print_stacktrace=1";
}

OSSIRA_EXPORT const char* __tsan_default_options()
{
    return "log_path=stdout:halt_on_error=1:second_deadlock_stack=1";
}

// What a module does while it is loaded or unloaded is ordered with what other threads did in it by
// the loader's own lock, which the sanitizer does not see.
OSSIRA_EXPORT const char* __tsan_default_suppressions()
{
    return "race:Tavrik::tSystem::CLibrary::Open\nrace:Tavrik::tSystem::CLibrary::Close";
}
