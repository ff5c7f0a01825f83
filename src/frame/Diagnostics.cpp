// The client side of the diagnostics channel, compiled into every module: lines go to the observer
// that the runtime keeps, exceptions are made by the runtime, so that it can count them. All
// formatting uses buffers on the stack; nothing here needs the heap.
#include "ForcedUnwind.h"
#include "Library.h"
#include "TextFormat.h"

#include <cstdio>
#include <exception>
#include <stdexcept>

namespace Tavrik::Ossira
{

namespace
{

constexpr std::size_t MessageSize = 4000;

void WriteUnfiltered(const char* format, std::va_list arguments) noexcept
{
    char message[MessageSize];
    tSystem::FormatText(message, sizeof message, format, arguments);
    tSystem::WriteDebugText(message);
}

struct ReleaseException
{
    void operator()(IException* exception) const
    {
        exception->Release();
    }
};

void PrintLine(IObserverPrint& observer, std::uint32_t level, const SourceLocation& location,
               const char* format, std::va_list arguments)
try
{
    if ((level & observer.GetLevelMask()) != 0)
    {
        const tSystem::CNoCancellation whole;
        observer.Print(level, &location, format, arguments);
    }
}
catch (...)
{
    DiscardCaught(); // an observer that throws has no channel to say so on
}

constexpr const char* ErrorLine = "\a0x%x %s: %s\n";

[[nodiscard]] bool TellsErrors()
{
    return (CurrentLevelMask() & PRINT_ERROR) != 0;
}

// Something that is no exception object of ours was thrown: it has no place of its own, so the
// line is located where it was caught.
Result ReportForeign(const SourceLocation& location, Result code, const char* what)
{
    if (TellsErrors())
    {
        DebugOutput(PRINT_ERROR, location, ErrorLine, static_cast<std::uint32_t>(code), what,
                    ErrorText(code));
    }
    return code;
}

struct ErrorTextEntry
{
    Result Code;
    const char* Text;
};

constexpr ErrorTextEntry ErrorTexts[] = {
    {S_OK, "Ok"},
    {S_FALSE, "False"},
    {E_PENDING, "The data necessary to complete this operation is not yet available"},
    {E_NOTIMPL, "Not implemented"},
    {E_NOINTERFACE, "No such interface supported"},
    {E_POINTER, "Invalid pointer"},
    {E_ABORT, "Operation aborted"},
    {E_FAIL, "Fail; Unspecified error"},
    {E_UNEXPECTED, "Catastrophic failure"},
    {E_ACCESSDENIED, "General access denied error"},
    {E_OUTOFMEMORY, "Ran out of memory"},
    {E_FILE_EXISTS, "The file exists"},
    {E_INVALIDARG, "One or more arguments are invalid"},
    {E_NOT_FOUND, "Not Found"},
    {E_NOT_SUPPORTED, "Not supported by this instance"},
    {E_DISPOSED, "An operation is performed on a disposed object"},
};

// The text of a code that is not in the table. Each is made once and stays.
class CUnknownCode
{
public:
    // Null when the place is another code's, or when another thread is just about to fill it.
    const char* TextFor(Result code) noexcept
    {
        if (State expected = Free; mState.compare_exchange_strong(expected, Filling))
        {
            mCode = code;
            std::snprintf(mText, sizeof mText, "0x%08x", static_cast<unsigned>(code));
            mState.store(Filled);
        }
        return mState.load() == Filled && mCode == code ? mText : nullptr;
    }

private:
    enum State : std::uint8_t
    {
        Free,
        Filling,
        Filled
    };

    std::atomic<State> mState = Free;
    Result mCode = 0;
    char mText[11] = {};
};

constinit CUnknownCode gUnknownCodes[256];

} // namespace

void DiscardCaught()
try
{
    throw;
}
catch (IException* exception)
{
    const std::unique_ptr<IException, ReleaseException> owner(exception); // which may be null
}
catch (const tSystem::ForcedUnwind&)
{
    throw;
}
catch (...)
{
}

std::uint32_t LevelMaskOf(IObserverPrint* observer)
try
{
    return observer == nullptr ? 0 : observer->GetLevelMask();
}
catch (...)
{
    DiscardCaught();
    return 0;
}

void DebugOutput(std::uint32_t level, const SourceLocation& location, const char* format, ...)
{
    tSystem::CheckForeignCall();
    ObjectPtr<IObserverPrint> observer;
    GetGlobalObserver(observer.Put());
    std::va_list arguments;
    va_start(arguments, format);
    if (observer)
        PrintLine(*observer, level, location, format, arguments);
    else
        WriteUnfiltered(format, arguments);
    va_end(arguments);
}

void DebugOutputF(const char* format, ...) noexcept
{
    if (format == nullptr)
    {
        tSystem::WriteDebugText("\aDebugOutputF invalid pointer: format == NULL\n");
        return;
    }
    std::va_list arguments;
    va_start(arguments, format);
    WriteUnfiltered(format, arguments);
    va_end(arguments);
}

void ReportException(const SourceLocation& location, IException* exception)
{
    if (!TellsErrors())
        return;
    if (exception == nullptr)
    {
        DebugOutput(PRINT_ERROR, location, "\aFATAL: IException NULL-Pointer\n");
        return;
    }
    SourceLocation thrownAt = {};
    const Result code = exception->GetCode();
    DebugOutput(PRINT_ERROR, *exception->GetLocation(&thrownAt), ErrorLine,
                static_cast<std::uint32_t>(code), exception->GetExpression(), ErrorText(code));
}

const char* ErrorText(Result code) noexcept
{
    for (const ErrorTextEntry& entry : ErrorTexts)
    {
        if (entry.Code == code)
            return entry.Text;
    }
    for (CUnknownCode& place : gUnknownCodes)
    {
        if (const char* const text = place.TextFor(code); text != nullptr)
            return text;
    }
    return "Unknown code";
}

void GuidToText(char (&out)[GuidTextSize], const GUID& guid) noexcept
{
    char* at = out;
    const auto hex = [&at](std::uint32_t value, int digits)
    {
        for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4)
            *at++ = "0123456789ABCDEF"[(value >> shift) & 0xF];
    };
    hex(guid.Data1, 8);
    *at++ = '-';
    hex(guid.Data2, 4);
    *at++ = '-';
    hex(guid.Data3, 4);
    *at++ = '-';
    for (int index = 0; index < 8; ++index)
    {
        hex(guid.Data4[index], 2);
        if (index == 1)
            *at++ = '-';
    }
    *at = '\0';
}

void ThrowException(Result code, const SourceLocation& location, const char* text)
{
    throw NewException(static_cast<std::uint32_t>(code), &location, text);
}

Result ReportCaught(const SourceLocation& location)
try
{
    throw;
}
catch (IException* exception)
{
    if (exception == nullptr)
    {
        ReportException(location, nullptr);
        return E_OUTOFMEMORY;
    }
    const std::unique_ptr<IException, ReleaseException> owner(exception);
    ReportException(location, exception);
    const Result code = exception->GetCode();
    // What was thrown is a failure, whatever it says of itself.
    return Failed(code) ? code : E_UNEXPECTED;
}
catch (const std::bad_alloc& error)
{
    return ReportForeign(location, E_OUTOFMEMORY, error.what());
}
catch (const std::length_error& error)
{
    // More was asked for than any memory holds.
    return ReportForeign(location, E_OUTOFMEMORY, error.what());
}
catch (const std::exception& error)
{
    return ReportForeign(location, E_UNEXPECTED, error.what());
}
catch (const tSystem::ForcedUnwind&)
{
    throw;
}
catch (...)
{
    return ReportForeign(location, E_UNEXPECTED, "unknown exception");
}

} // namespace Tavrik::Ossira
