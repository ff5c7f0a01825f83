// Loads by the altered search path, which begins in the library's own folder. That mode is defined
// for full paths only, so a path is completed first and a bare name is looked for as the system
// does.
#include "../Platform.h"
#include "../WideText.h"
#include "PeFile.h"

#include <windows.h>

#include <cwchar>
#include <new>
#include <utility>

namespace Tavrik::tSystem
{

namespace
{

// The system shows a broken library's name to the user, and waits, unless it is told not to.
class CNoErrorBoxes
{
public:
    CNoErrorBoxes() noexcept
    {
        SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &mFormerMode);
    }
    ~CNoErrorBoxes()
    {
        SetThreadErrorMode(mFormerMode, nullptr);
    }
    CNoErrorBoxes(const CNoErrorBoxes&) = delete;
    CNoErrorBoxes& operator=(const CNoErrorBoxes&) = delete;

private:
    DWORD mFormerMode = 0;
};

[[nodiscard]] ELoadFailure FailureOf(DWORD error) noexcept
{
    switch (error)
    {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_MOD_NOT_FOUND:
        return ELoadFailure::NotFound;
    case ERROR_BAD_EXE_FORMAT:
    case ERROR_EXE_MACHINE_TYPE_MISMATCH:
        return ELoadFailure::NotALibrary;
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_OUTOFMEMORY:
    case ERROR_COMMITMENT_LIMIT:
        return ELoadFailure::NoMemory;
    case ERROR_TOO_MANY_OPEN_FILES:
    case ERROR_NO_SYSTEM_RESOURCES:
        return ELoadFailure::NoResources;
    case ERROR_CRC:
    case ERROR_READ_FAULT:
    case ERROR_IO_DEVICE:
        return ELoadFailure::Io;
    default:
        return ELoadFailure::Refused;
    }
}

// Empty when there is no such path. Throws `std::bad_alloc`.
std::wstring FullPath(const wchar_t* path)
{
    std::wstring full;
    DWORD size = GetFullPathNameW(path, 0, nullptr, nullptr);
    while (size > full.size()) // more again when the current folder was changed meanwhile
    {
        full.resize(size);
        size = GetFullPathNameW(path, size, full.data(), nullptr);
    }
    if (size == 0 && FailureOf(GetLastError()) == ELoadFailure::NoMemory)
        throw std::bad_alloc();
    full.resize(size);
    return full;
}

} // namespace

std::wstring AbsolutePath(const std::wstring& path)
{
    std::wstring full = FullPath(path.c_str());
    return full.empty() ? path : full;
}

bool CLibrary::Open(const wchar_t* path)
{
    Close();
    mFailure = ELoadFailure::NotFound;
    mFailureText = "has no name";
    if (*path == L'\0')
        return false;
    const CNoErrorBoxes noErrorBoxes;
    const bool isBareName = std::wcspbrk(path, L"\\/:") == nullptr;
    const std::wstring name = isBareName ? path : FullPath(path);
    if (name.empty())
        return false;
    mHandle = LoadLibraryExW(name.c_str(), nullptr, isBareName ? 0 : LOAD_WITH_ALTERED_SEARCH_PATH);
    const DWORD error = IsOpen() ? 0 : GetLastError();
    mFailure = IsOpen() ? ELoadFailure::None : FailureOf(error);
    if (!IsOpen())
        mFailureText = WhyNotLoaded(name, error);
    return IsOpen();
}

void CLibrary::Close() noexcept
{
    if (void* handle = std::exchange(mHandle, nullptr))
        FreeLibrary(static_cast<HMODULE>(handle));
}

void* CLibrary::Find(const char* name) const noexcept
{
    if (mHandle == nullptr || name == nullptr)
        return nullptr;
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(mHandle), name));
}

} // namespace Tavrik::tSystem
