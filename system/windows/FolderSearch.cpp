// The system's own search decides what matches, and in which order.
#include "../Platform.h"

#include <windows.h>

namespace Tavrik::tSystem
{

const wchar_t PathSeparator = L'\\';
const bool FileNamesAreBytes = false;

struct CFolderSearch::State
{
    State() = default;
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State()
    {
        if (Handle != INVALID_HANDLE_VALUE)
            FindClose(Handle);
    }

    HANDLE Handle = INVALID_HANDLE_VALUE;
    WIN32_FIND_DATAW Found = {}; // the entry that `Next` hands out
    bool IsPending = false;
};

CFolderSearch::CFolderSearch() noexcept = default;
CFolderSearch::~CFolderSearch() = default;

bool CFolderSearch::Open(const std::wstring& searchText)
{
    Close();
    auto state = std::make_unique<State>();
    state->Handle = FindFirstFileW(searchText.c_str(), &state->Found);
    state->IsPending = state->Handle != INVALID_HANDLE_VALUE;
    mLastError = state->IsPending ? 0 : GetLastError();
    if (state->IsPending)
        mState = std::move(state);
    return mState != nullptr;
}

bool CFolderSearch::Next(Entry& entry)
{
    if (mState == nullptr || !mState->IsPending)
        return false;
    entry.Name = mState->Found.cFileName;
    entry.IsHidden = (mState->Found.dwFileAttributes & FILE_ATTRIBUTE_HIDDEN) != 0;
    mState->IsPending = FindNextFileW(mState->Handle, &mState->Found) != FALSE;
    if (!mState->IsPending && GetLastError() != ERROR_NO_MORE_FILES)
        mLastError = GetLastError();
    return true;
}

void CFolderSearch::Close() noexcept
{
    mState.reset();
}

bool CFolderSearch::IsShortage() const noexcept
{
    return mLastError == ERROR_NOT_ENOUGH_MEMORY || mLastError == ERROR_OUTOFMEMORY ||
           mLastError == ERROR_COMMITMENT_LIMIT;
}

} // namespace Tavrik::tSystem
