// Loads by the altered search path, which begins in the library's own folder. That mode is defined
// for full paths only, so a path is completed first and a bare name is looked for as the system
// does.
#include "../Platform.h"

#include <windows.h>

#include <cwchar>

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

// Empty when there is no such path.
std::wstring FullPath(const wchar_t* path)
{
    std::wstring full;
    DWORD size = GetFullPathNameW(path, 0, nullptr, nullptr);
    while (size > full.size()) // more again when the current folder was changed meanwhile
    {
        full.resize(size);
        size = GetFullPathNameW(path, size, full.data(), nullptr);
    }
    full.resize(size);
    return full;
}

} // namespace

bool CLibrary::Open(const wchar_t* path)
{
    Close();
    if (path == nullptr || *path == L'\0')
        return false;
    const CNoErrorBoxes noErrorBoxes;
    const bool isBareName = std::wcspbrk(path, L"\\/:") == nullptr;
    const std::wstring name = isBareName ? path : FullPath(path);
    if (!name.empty())
        mHandle =
            LoadLibraryExW(name.c_str(), nullptr, isBareName ? 0 : LOAD_WITH_ALTERED_SEARCH_PATH);
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
