// Failure and its report: source locations, the exception object, the observer that prints
// diagnostics lines, and the functions that write them.
#pragma once

#include "OssiraBase.h"

#include <cstdarg>

#if defined(__clang__)
#define OSSIRA_PRINTF(formatIndex, firstArgument)                                                  \
    __attribute__((format(printf, formatIndex, firstArgument)))
#elif defined(__GNUC__)
#define OSSIRA_PRINTF(formatIndex, firstArgument)                                                  \
    __attribute__((format(gnu_printf, formatIndex, firstArgument)))
#else
#define OSSIRA_PRINTF(formatIndex, firstArgument)
#endif

namespace Tavrik::Ossira
{

// The place that a line or an exception refers to. All three are borrowed: the strings are static
// and never freed.
struct SourceLocation
{
    const char* File;     // relative to the source tree
    std::int32_t Line;    // from 1
    const char* Function; // full qualified name of the method
};

// The object thrown by a failed check. It never leaves an operation of an interface: the
// operation's boundary reports it, releases it and answers its code. One owner, no reference count,
// no lock: one thread at a time may use it, and any thread may release it.
struct IException
{
    // Destroys the object; bit 0 of `flags` frees its memory as well. Returns the object's address.
    // It stands where a compiler would put a deleting destructor, spelled out because compilers
    // differ in how many entries a virtual destructor takes.
    virtual void* DeletingDestructor(std::uint32_t flags) = 0;

    // Destroys the object and frees its memory.
    virtual void Release() = 0;

    virtual Result GetCode() = 0;

    // Copies the place of the throw to *out and returns `out`.
    virtual SourceLocation* GetLocation(SourceLocation* out) = 0;

    // The text of the failed check, never null; valid until the exception is released.
    virtual const char* GetExpression() = 0;

    // The place of the throw as text, "file:line function"; valid until the exception is released.
    virtual const char* GetDescription() = 0;

protected:
    ~IException() = default;
};

// The level of a diagnostics line; a line has exactly one, a mask any number.
inline constexpr std::uint32_t PRINT_TRACE = 0x01;    // objects created, looked up, registered
inline constexpr std::uint32_t PRINT_PROGRESS = 0x04; // start-up and clean-up
inline constexpr std::uint32_t PRINT_WARN = 0x10;     // recoverable failures
inline constexpr std::uint32_t PRINT_ERROR = 0x40;    // exception reports and fatal lines

inline constexpr IID IID_IObserverPrint = {
    0x24F3D8D8, 0x5B16, 0x4A00, {0x8F, 0x5B, 0x04, 0xDD, 0x47, 0xB4, 0x7F, 0xD9}};

// Prints the diagnostics lines of the process.
struct IObserverPrint : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_IObserverPrint;

    // The levels that this observer prints. Asked for every line, and by whoever prepares one, on
    // any thread; one that throws prints nothing.
    virtual std::uint32_t GetLevelMask() = 0;

    // Mask := (mask without the bits of `clear`), then with the bits of `set`. Answers `S_OK`.
    virtual Result SetLevelMask(std::uint32_t set, std::uint32_t clear) = 0;

    // Prints one line when the mask has `level`. The format is that of printf, with %ls for wide
    // strings; the message carries its own newline. Answers `S_OK`, also for a level that is not
    // printed; the runtime's own observer answers `E_POINTER` for a null location or format of a
    // level that it prints. Nobody acts on the code, and what is thrown is dropped.
    //
    // Called on the thread that reports, several at once, with no spin word held. The reporter may
    // be within a section of its own, or within the process-wide one: an observer may call any
    // object and cause lines itself (see to it that this ends), but must not wait for another
    // thread. A thread may end itself here (`pthread_exit`) unless a destructor reports; it cannot
    // be cancelled from outside meanwhile.
    virtual Result Print(std::uint32_t level, const SourceLocation* location, const char* format,
                         std::va_list arguments) = 0;

protected:
    ~IObserverPrint() = default;
};

// --- For the code that reports: these are compiled into every module's frame. A host that uses
//     them links the frame library too. They throw nothing; they are not noexcept because a thread
//     that an observer ends leaves through them.

// The mask of the observer in place, 0 when there is none. Test it before building costly
// arguments for `DebugOutput`. Any thread may call, while it holds no spin word.
[[nodiscard]] std::uint32_t CurrentLevelMask();

// Writes a line through the observer if it prints that level. Without an observer the message is
// written to the platform's debug output, whatever its level, without its location. Any thread may
// call, while it holds no spin word.
void DebugOutput(std::uint32_t level, const SourceLocation& location, const char* format, ...)
    OSSIRA_PRINTF(3, 4);

// Writes a message straight to the platform's debug output: no level, no observer, no location.
void DebugOutputF(const char* format, ...) noexcept OSSIRA_PRINTF(1, 2);

// Writes the error line of a caught exception, located where it was thrown; of a null exception
// (memory ran out while it was made) a fatal line, located at `location`. Silent when there is no
// observer that prints errors. The exception is borrowed.
void ReportException(const SourceLocation& location, IException* exception);

// The text of a result code, which lives as long as the module that called. A code without a text
// is spelled in eight hexadecimal digits; the first 256 of them have a place, those behind are all
// "Unknown code". Takes no memory. Any thread may call.
[[nodiscard]] const char* ErrorText(Result code) noexcept;

inline constexpr std::size_t GuidTextSize = 37; // 36 characters and a terminating zero

// Writes a GUID as 36 upper-case characters without braces and a terminating zero.
void GuidToText(char (&out)[GuidTextSize], const GUID& guid) noexcept;

// A GUID's text as a temporary, for the arguments of a diagnostics line.
class CGuidText
{
public:
    explicit CGuidText(const GUID& guid) noexcept
    {
        GuidToText(mText, guid);
    }

    [[nodiscard]] const char* Text() const noexcept
    {
        return mText;
    }

private:
    char mText[GuidTextSize];
};

} // namespace Tavrik::Ossira

// A new exception of that code, place and text (null: "?"), owned by the caller, who throws it or
// releases it. Null when memory is exhausted. Any thread may call.
OSSIRA_API Tavrik::Ossira::IException* NewException(std::uint32_t code,
                                                    const Tavrik::Ossira::SourceLocation* location,
                                                    const char* expression);

// Hands out the observer in place with a reference added, or null when there is none: `S_OK` in
// both cases. A null `out` answers `E_POINTER`; before attach and after detach it is null and the
// answer `E_ACCESSDENIED`. Any thread may call, while it holds no spin word.
OSSIRA_API Tavrik::Ossira::Result GetGlobalObserver(Tavrik::Ossira::IObserverPrint** out);

// Puts another observer in place (null: none) and takes a reference on it; the former one's is
// given back. Without an observer every message is written, unfiltered and without its location,
// and exception reports are silent. The same observer again changes nothing. Answers `S_OK`;
// `E_ACCESSDENIED` for an observer before attach and after detach; `E_OUTOFMEMORY` when 16
// observers are still printing that were in place before, and changes nothing. Any thread may call,
// while it holds no spin word.
OSSIRA_API Tavrik::Ossira::Result SetGlobalObserver(Tavrik::Ossira::IObserverPrint* observer);

// The number of exceptions that were made and not released; a balanced program ends with 0.
OSSIRA_API std::int32_t GetExceptionOpenCount();
