// What a platform supplies. Each platform has a folder of sources beside this header that define
// what is declared here; above this layer there is no platform header and no #ifdef. Whoever ports
// the runtime reads this page.
#pragma once

#include "LockOrder.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>

namespace Tavrik::tSystem
{

// Writes one line of diagnostics to the platform's debug output, in one piece, so that the lines of
// several threads never mix. UTF-8; the text carries its own newline.
// Somebody who does not listen, or no more, neither stops nor ends the process: after a second the
// line is dropped, and so are further ones until one gets through.
void WriteDebugText(const char* text) noexcept;

// While it lives, nobody ends this thread from outside: it would be unwound out of the middle of a
// line. Where threads are not ended so, it does nothing.
class CNoCancellation
{
public:
    CNoCancellation() noexcept;
    ~CNoCancellation();
    CNoCancellation(const CNoCancellation&) = delete;
    CNoCancellation& operator=(const CNoCancellation&) = delete;

private:
    int mFormer = 0;
};

// What joins a folder and a name. Both slash and backslash separate in a given path, everywhere.
extern const wchar_t PathSeparator;

// The path with the current folder before it; a path that is a full one already, or whose current
// folder cannot be told, as it is. Throws `std::bad_alloc`.
[[nodiscard]] std::wstring AbsolutePath(const std::wstring& path);

// True where file names are bytes. There a byte that is no valid UTF-8 stands in a wide string as
// the code 0xDC00 + byte, and comes out again as that byte; so does a backslash in a listed name,
// which is no separator there.
extern const bool FileNamesAreBytes;

inline constexpr std::uint32_t Forever = 0xFFFFFFFF; // a time-out that never comes

// Sleeps if `word` is `value`, until a wake-up or the time-out. It may return for no reason. A
// wake-up that comes after the word was seen is not lost. The caller's error number stays.
void SleepOnWord(const std::atomic<std::uint32_t>& word, std::uint32_t value,
                 std::uint32_t milliseconds) noexcept;

// Wakes one thread that sleeps on `word`, of which only the address is used: it may be gone.
void WakeOnWord(const std::atomic<std::uint32_t>& word) noexcept;

// Tells the processor that this thread spins.
void Pause() noexcept;

// Where the library (or program) lies that this is linked into: its code, its constants and its
// variables. Empty until its static objects are built.
struct AddressRange
{
    std::uintptr_t Begin;
    std::uintptr_t Size;
};
extern const AddressRange ThisLibrary;

[[nodiscard]] inline bool IsInThisLibrary(const void* address) noexcept
{
    return reinterpret_cast<std::uintptr_t>(address) - ThisLibrary.Begin < ThisLibrary.Size;
}

// A pointer of each thread, null at first. Keeping one needs no memory; where the system has no
// room for it all the same, setting answers false and the pointer stays null.
[[nodiscard]] void* ThreadPointer() noexcept;
[[nodiscard]] bool SetThreadPointer(void* pointer) noexcept;

// A number that nobody outside the process can work out, another one at each call. No secrets are
// to be made of it.
[[nodiscard]] std::uint64_t UnguessableNumber() noexcept;

// For the platforms' definitions of it: one number that depends on every bit of those given.
[[nodiscard]] constexpr std::uint64_t
MixNumbers(std::initializer_list<std::uint64_t> numbers) noexcept
{
    std::uint64_t mixed = 0;
    for (const std::uint64_t number : numbers)
    {
        mixed = (mixed ^ number) * 0xBF58476D1CE4E5B9;
        mixed = (mixed ^ (mixed >> 30)) * 0x94D049BB133111EB;
        mixed ^= mixed >> 31;
    }
    return mixed;
}

// A re-entrant lock for longer sections.
class OSSIRA_LOCK CCriticalSection
{
public:
    explicit CCriticalSection(ELockRank rank = ELockRank::Object) noexcept;
    ~CCriticalSection();
    CCriticalSection(const CCriticalSection&) = delete;
    CCriticalSection& operator=(const CCriticalSection&) = delete;

    void lock(const LockPlace& place = LockPlace::current()) noexcept OSSIRA_TAKES();
    [[nodiscard]] bool try_lock(const LockPlace& place = LockPlace::current()) noexcept
        OSSIRA_TAKES_IF(true);
    void unlock() noexcept OSSIRA_GIVES();

private:
    alignas(std::max_align_t) unsigned char mStorage[48];
    ELockRank mRank;
};

// Why a library could not be loaded.
enum class ELoadFailure : std::uint8_t
{
    None,
    NotFound,
    NotALibrary, // or one that was cut short, or of another machine
    NoMemory,
    NoResources, // as file descriptors
    Io,          // the file could not be read
    Refused      // by the system, or by the library's own start-up code
};

// A loaded library. Loading searches the library's own folder first for what it depends on. A file
// that is not a complete library of this machine is refused, never mapped halfway.
class CLibrary
{
public:
    CLibrary() noexcept = default;
    CLibrary(const CLibrary&) = delete;
    CLibrary& operator=(const CLibrary&) = delete;
    ~CLibrary()
    {
        Close();
    }

    // False when the file cannot be loaded, for the reason that `Failure` tells; a library that was
    // open is closed first. A bare name is looked for in the host program's folder and where the
    // system looks. Throws `std::bad_alloc`.
    [[nodiscard]] bool Open(const wchar_t* path);

    // Of the last `Open`.
    [[nodiscard]] ELoadFailure Failure() const noexcept
    {
        return mFailure;
    }

    // The same as the rest of a sentence about the file: "is a text file, no library".
    [[nodiscard]] const std::string& FailureText() const noexcept
    {
        return mFailureText;
    }

    // Unloads the library; without other users its file is no longer mapped afterwards.
    void Close() noexcept;

    [[nodiscard]] bool IsOpen() const noexcept
    {
        return mHandle != nullptr;
    }

    // The address of an export, or null.
    [[nodiscard]] void* Find(const char* name) const noexcept;

private:
    void* mHandle = nullptr;
    ELoadFailure mFailure = ELoadFailure::None;
    std::string mFailureText;
};

// Lists the entries of one folder that match a pattern, in the order of the platform's listing.
// See `IDirectoryService` for the rules.
class CFolderSearch
{
public:
    struct Entry
    {
        std::wstring Name; // bare
        bool IsHidden = false;
    };

    CFolderSearch() noexcept;
    ~CFolderSearch();
    CFolderSearch(const CFolderSearch&) = delete;
    CFolderSearch& operator=(const CFolderSearch&) = delete;

    // Begins a search and finds its first entry. False when the folder cannot be read or nothing
    // matches (2 on every platform); `LastError` is then the platform's error number. The text is
    // a folder, a separator and a pattern. "." and ".." are entries too. Throws `std::bad_alloc`.
    [[nodiscard]] bool Open(const std::wstring& searchText);

    // Copies the found entry and moves on; false at the end. `LastError` is then 0, or the number
    // of what kept the platform from going on.
    [[nodiscard]] bool Next(Entry& entry);

    void Close() noexcept;

    [[nodiscard]] std::uint32_t LastError() const noexcept
    {
        return mLastError;
    }

    // Whether what failed is a shortage of memory, and no fault of the folder.
    [[nodiscard]] bool IsShortage() const noexcept;

private:
    struct State;
    std::unique_ptr<State> mState;
    std::uint32_t mLastError = 0;
};

} // namespace Tavrik::tSystem

namespace Tavrik::Ossira
{

// What the platform's library entry (the entry sources of the platform folder, linked into every
// module and into the runtime) calls when the library is attached to and detached from a process.
// It tells of threads only where their end gives something back.

// False refuses the load. All of it is attached then, or nothing.
[[nodiscard]] bool AttachLibrary() noexcept;

// Gives back whatever is there, also after an attach that failed. `processEnds`: the process is
// ending. Its other threads are gone, maybe while they held locks, or run on, as the platform has
// it; modules may be torn down already. Then nothing is released.
void DetachLibrary(bool processEnds) noexcept;

} // namespace Tavrik::Ossira
