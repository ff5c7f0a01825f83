// Reads the whole folder at once and sorts it: a directory has no order of its own here, and the
// order in which modules start must not depend on the file system.
#include "../Platform.h"
#include "../WideText.h"
#include "../WildcardMatch.h"
#include "NativePath.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cwchar>
#include <dirent.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace Tavrik::tSystem
{

namespace
{

constexpr std::uint32_t ErrorNothingFound = 2; // the same number here and on Windows

struct CloseFolder
{
    void operator()(DIR* folder) const noexcept
    {
        closedir(folder);
    }
};

bool IsHidden(std::wstring_view name)
{
    return name.starts_with(L'.') && name != L"." && name != L"..";
}

// A backslash may be part of a name here. It is escaped like an invalid byte, or the name would
// point into another folder once it is joined to a path.
std::wstring WideName(const char* name)
{
    std::wstring wide = FromUtf8(name);
    std::replace(wide.begin(), wide.end(), L'\\', static_cast<wchar_t>(ByteEscape + L'\\'));
    return wide;
}

// Collects what matches; answers 0 or the error number.
std::uint32_t ListFolder(const std::string& path, const CWildcardPattern& pattern,
                         std::vector<CFolderSearch::Entry>& entries)
{
    std::unique_ptr<DIR, CloseFolder> folder;
    do
    {
        folder.reset(opendir(path.c_str()));
    } while (folder == nullptr && errno == EINTR);
    if (folder == nullptr)
        return static_cast<std::uint32_t>(errno);
    for (;;)
    {
        errno = 0; // the end of the folder is told from a failure by this alone
        const dirent* found = readdir(folder.get());
        if (found == nullptr && errno == EINTR)
            continue;
        if (found == nullptr)
            return static_cast<std::uint32_t>(errno);
        std::wstring name = WideName(found->d_name);
        if (!pattern.Matches(name))
            continue;
        const bool isHidden = IsHidden(name);
        entries.push_back({std::move(name), isHidden});
    }
}

} // namespace

std::wstring AbsolutePath(const std::wstring& path)
{
    if (path.starts_with(L'/') || path.starts_with(L'\\'))
        return path;
    char folder[PATH_MAX];
    if (getcwd(folder, sizeof folder) == nullptr)
        return path;
    return WideName(folder) + L'/' + path;
}

struct CFolderSearch::State
{
    std::vector<Entry> Entries;
    std::size_t Position = 0;
};

CFolderSearch::CFolderSearch() noexcept = default;
CFolderSearch::~CFolderSearch() = default;

bool CFolderSearch::Open(const std::wstring& searchText)
{
    Close();
    const std::wstring_view text = searchText.c_str();
    const std::size_t nameStart = text.find_last_of(L"\\/") + 1;
    const std::string folder = nameStart == 0 ? "." : NativePath(text.substr(0, nameStart));

    auto state = std::make_unique<State>();
    mLastError = ListFolder(folder, CWildcardPattern(text.substr(nameStart)), state->Entries);
    if (mLastError == 0 && state->Entries.empty())
        mLastError = ErrorNothingFound;
    if (mLastError != 0)
        return false;
    std::sort(state->Entries.begin(), state->Entries.end(),
              [](const Entry& left, const Entry& right)
              { return ListsBefore(left.Name, right.Name); });
    mState = std::move(state);
    return true;
}

bool CFolderSearch::Next(Entry& entry)
{
    if (mState == nullptr || mState->Position == mState->Entries.size())
        return false;
    entry = std::move(mState->Entries[mState->Position++]);
    return true;
}

void CFolderSearch::Close() noexcept
{
    mState.reset();
}

bool CFolderSearch::IsShortage() const noexcept
{
    return mLastError == ENOMEM;
}

} // namespace Tavrik::tSystem
