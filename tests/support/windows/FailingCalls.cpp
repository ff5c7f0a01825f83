// The calls that the platform layer makes, and what each may fail with. Left out are those that
// cannot fail as they are used, of locks, of clocks, and what asks for numbers; and those of thread
// storage, which the compiler's library makes as well and cannot do without.
#include "FailingCalls.h"

#include <cstdlib>
#include <cstring>

#include <windows.h>

namespace Tavrik::Ossira::tTest
{

using enum Effect;

// The compiler says that a function's attributes do not come along.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wignored-attributes"

// clang-format off
const std::vector<FailableCall>& FailableCalls()
{
    static const std::vector<FailableCall> calls = {
        FailableCall("operator new", {{ERROR_NOT_ENOUGH_MEMORY, NoMemory}}),
        CALL(FindFirstFileW, -1, {ERROR_ACCESS_DENIED, Lacking}, {ERROR_NOT_ENOUGH_MEMORY,
            NoMemory}),
        CALL(FindNextFileW, 0, {ERROR_READ_FAULT, Lacking}, {ERROR_NOT_ENOUGH_MEMORY, NoMemory}),
        CALL_DONE(FindClose, ERROR_INVALID_HANDLE),
        CALL(GetFullPathNameW, 0, {ERROR_INVALID_NAME, Refused}, {ERROR_NOT_ENOUGH_MEMORY,
            NoMemory}),
        CALL(SetThreadErrorMode, 0, {ERROR_INVALID_PARAMETER, Unnoticed}),
        CALL(LoadLibraryExW, 0, {ERROR_ACCESS_DENIED, Refused}, {ERROR_TOO_MANY_OPEN_FILES,
            Lacking}, {ERROR_READ_FAULT, Lacking}, {ERROR_NOT_ENOUGH_MEMORY, NoMemory}),
        CALL_DONE(FreeLibrary, ERROR_INVALID_HANDLE),
        CALL(GetProcAddress, 0, {ERROR_PROC_NOT_FOUND, Refused}),
        CALL(GetFileAttributesW, -1, {ERROR_ACCESS_DENIED, Unnoticed}),
        CALL(CreateFileW, -1, {ERROR_SHARING_VIOLATION, Unnoticed}),
        CALL(GetFileType, 0, {ERROR_INVALID_HANDLE, Unnoticed}),
        CALL(GetFileSizeEx, 0, {ERROR_READ_FAULT, Unnoticed}),
        CALL(CreateFileMappingW, 0, {ERROR_NOT_ENOUGH_MEMORY, Unnoticed}),
        CALL(MapViewOfFile, 0, {ERROR_NOT_ENOUGH_MEMORY, Unnoticed}),
        CALL_DONE(UnmapViewOfFile, ERROR_INVALID_ADDRESS),
        CALL(GetModuleHandleW, 0, {ERROR_MOD_NOT_FOUND, Unnoticed}),
        CALL(SearchPathW, 0, {ERROR_FILE_NOT_FOUND, Unnoticed}),
        CALL(FormatMessageW, 0, {ERROR_NOT_ENOUGH_MEMORY, Unnoticed}),
        CALL_DONE(CloseHandle, ERROR_INVALID_HANDLE),
        CALL(CreateEventW, 0, {ERROR_NO_SYSTEM_RESOURCES, Lacking}, {ERROR_NOT_ENOUGH_MEMORY,
            Lacking}),
        CALL_DONE(SetEvent, ERROR_INVALID_HANDLE),
        CALL_DONE(ResetEvent, ERROR_INVALID_HANDLE),
        CALL(WaitForSingleObject, -1, {ERROR_INVALID_HANDLE, Unnoticed}),
        CALL(CreateThread, 0, {ERROR_MAX_THRDS_REACHED, Lacking}, {ERROR_NOT_ENOUGH_MEMORY,
            NoMemory}),
        CALL(SuspendThread, -1, {ERROR_ACCESS_DENIED, Unnoticed}),
        CALL(GetThreadContext, 0, {ERROR_ACCESS_DENIED, Unnoticed}),
        CALL(VirtualQuery, 0, {ERROR_INVALID_PARAMETER, Unnoticed}),
    };
    return calls;
}
// clang-format on

#pragma GCC diagnostic pop

int PlatformError()
{
    return static_cast<int>(GetLastError());
}

void SetPlatformError(int error)
{
    SetLastError(static_cast<DWORD>(error));
}

void ReplaceImports()
{
    auto* const base = reinterpret_cast<char*>(GetModuleHandleW(nullptr));
    const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
    const DWORD imports =
        headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    for (auto* library = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + imports);
         library->Name != 0; ++library)
    {
        const auto* names = reinterpret_cast<const ULONGLONG*>(base + library->OriginalFirstThunk);
        auto* entry = reinterpret_cast<void**>(base + library->FirstThunk);
        for (; *names != 0; ++names, ++entry)
        {
            const auto* const name =
                reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + *names)->Name;
            for (const FailableCall& call : FailableCalls())
            {
                DWORD former = 0;
                if (IMAGE_SNAP_BY_ORDINAL64(*names) || call.Real == nullptr ||
                    std::strcmp(name, call.Name) != 0)
                    continue;
                if (VirtualProtect(entry, sizeof *entry, PAGE_READWRITE, &former) == 0)
                    std::abort();
                *call.Real = *entry;
                *entry = call.Instead;
            }
        }
    }
}

} // namespace Tavrik::Ossira::tTest
