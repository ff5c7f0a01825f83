// Walks a printf format and hands each number to the C library by itself, with its argument taken
// from the list by its real type. Strings and characters are written here: the C library converts
// wide text by the process's locale, and loses the whole line where that fails.
#include "TextFormat.h"

#include "TextSink.h"
#include "WideText.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <string_view>
#include <type_traits>

namespace Tavrik::tSystem
{

namespace
{

// Keeps the C library from computing a field of gigabytes of which the buffer holds a line's worth.
constexpr int NumberFieldLimit = 4096;
constexpr int FieldLimit = 1'000'000'000;

enum class ELength
{
    None,
    Char,
    Short,
    Long,
    LongLong, // and the types of its size: j, z, t
    LongDouble
};

struct Conversion
{
    char Flags[8] = {}; // each at most once
    int Width = 0;
    int Precision = -1; // none
    ELength Length = ELength::None;
    char Letter = '\0';

    [[nodiscard]] bool HasFlag(char flag) const noexcept
    {
        return std::strchr(Flags, flag) != nullptr;
    }

    void AddFlag(char flag) noexcept
    {
        if (!HasFlag(flag))
            Flags[std::strlen(Flags)] = flag;
    }
};

// The argument list as a member: where `va_list` is an array, a parameter of that type is a
// pointer, and only inside a structure do both kinds behave alike.
struct Arguments
{
    std::va_list List;
};

class CFormatter
{
public:
    CFormatter(CTextSink& sink, Arguments& arguments) noexcept : mSink(sink), mArguments(arguments)
    {
    }

    void Run(const char* format) noexcept
    {
        while (*format != '\0' && !mSink.IsCut())
        {
            const std::size_t plain = std::strcspn(format, "%");
            mSink.Append(format, plain);
            format += plain;
            if (*format == '\0')
                return;
            Conversion conversion;
            const char* next = Parse(format + 1, conversion);
            if (!Write(conversion))
            {
                mSink.Append(format, std::strlen(format));
                return;
            }
            format = next;
        }
    }

private:
    // Reads a conversion from behind its '%' and returns what follows it.
    const char* Parse(const char* at, Conversion& conversion) noexcept
    {
        for (; *at != '\0' && std::strchr("-+ #0'", *at) != nullptr; ++at)
            conversion.AddFlag(*at);
        conversion.Width = ParseField(at);
        if (conversion.Width < 0)
            conversion.AddFlag('-');
        conversion.Width = conversion.Width < 0 ? -conversion.Width : conversion.Width;
        if (*at == '.')
            conversion.Precision = std::max(ParseField(++at), -1);
        conversion.Length = ParseLength(at);
        conversion.Letter = *at;
        return *at == '\0' ? at : at + 1;
    }

    int ParseField(const char*& at) noexcept
    {
        if (*at == '*')
        {
            ++at;
            return std::clamp(va_arg(mArguments.List, int), -FieldLimit, FieldLimit);
        }
        std::int64_t value = 0;
        for (; *at >= '0' && *at <= '9'; ++at)
            value = std::min<std::int64_t>(value * 10 + (*at - '0'), FieldLimit);
        return static_cast<int>(value);
    }

    static ELength ParseLength(const char*& at) noexcept
    {
        switch (*at)
        {
        case 'h':
            return *++at == 'h' ? (++at, ELength::Char) : ELength::Short;
        case 'l':
            return *++at == 'l' ? (++at, ELength::LongLong) : ELength::Long;
        case 'j':
        case 'z':
        case 't':
            static_assert(sizeof(std::intmax_t) == sizeof(long long) &&
                          sizeof(std::size_t) == sizeof(long long) &&
                          sizeof(std::ptrdiff_t) == sizeof(long long));
            return ++at, ELength::LongLong;
        case 'L':
            return ++at, ELength::LongDouble;
        default:
            return ELength::None;
        }
    }

    // Takes the conversion's argument and writes it; false when it is no conversion.
    bool Write(const Conversion& conversion) noexcept
    {
        const bool isWide = conversion.Length == ELength::Long || conversion.Letter == 'S' ||
                            conversion.Letter == 'C';
        switch (conversion.Letter)
        {
        case 'd':
        case 'i':
            WriteNumber(conversion, "ll", TakeInteger<std::make_signed_t>(conversion.Length));
            return true;
        case 'u':
        case 'o':
        case 'x':
        case 'X':
            WriteNumber(conversion, "ll", TakeInteger<std::make_unsigned_t>(conversion.Length));
            return true;
        case 'f':
        case 'F':
        case 'e':
        case 'E':
        case 'g':
        case 'G':
        case 'a':
        case 'A':
            if (conversion.Length == ELength::LongDouble)
                WriteNumber(conversion, "L", Take<long double>());
            else
                WriteNumber(conversion, "", Take<double>());
            return true;
        case 'p':
            WriteNumber(conversion, "", Take<void*>());
            return true;
        case 's':
        case 'S':
            if (isWide)
                WriteText(conversion, Take<const wchar_t*>(), L"(null)");
            else
                WriteText(conversion, Take<const char*>(), "(null)");
            return true;
        case 'c':
        case 'C':
            if (isWide)
                WriteWideCharacter(conversion);
            else
                WriteByte(conversion);
            return true;
        case 'n':
            Take<void*>();
            return true;
        case '%':
            mSink.Append("%", 1);
            return true;
        default:
            return false;
        }
    }

    template <class Argument>
    Argument Take() noexcept
    {
        return va_arg(mArguments.List, Argument);
    }

    // `As` is the signed or the unsigned counterpart of an integer type.
    template <template <class> class As>
    As<long long> TakeInteger(ELength length) noexcept
    {
        switch (length)
        {
        case ELength::Char:
            return static_cast<As<char>>(Take<As<int>>());
        case ELength::Short:
            return static_cast<As<short>>(Take<As<int>>());
        case ELength::Long:
            return Take<As<long>>();
        case ELength::LongLong:
            return Take<As<long long>>();
        default:
            return Take<As<int>>();
        }
    }

    template <class Number>
    void WriteNumber(const Conversion& conversion, const char* length, Number number) noexcept
    {
        char format[20];
        std::snprintf(format, sizeof format, "%%%s*.*%s%c", conversion.Flags, length,
                      conversion.Letter);
        mSink.Print(format, std::min(conversion.Width, NumberFieldLimit),
                    std::min(conversion.Precision, NumberFieldLimit), number);
    }

    // Without a terminating zero, no more is read than the precision allows.
    template <class Character>
    void WriteText(const Conversion& conversion, const Character* text,
                   const Character* null) noexcept
    {
        const std::size_t limit =
            conversion.Precision < 0 ? SIZE_MAX : static_cast<std::size_t>(conversion.Precision);
        const Character* start = text != nullptr ? text : null;
        std::size_t length = 0;
        while (length < limit && start[length] != Character())
            ++length;
        WriteField(conversion, std::basic_string_view<Character>(start, length), limit);
    }

    void WriteByte(const Conversion& conversion) noexcept
    {
        const char byte = static_cast<char>(Take<int>());
        WriteField(conversion, std::string_view(&byte, 1), 1);
    }

    void WriteWideCharacter(const Conversion& conversion) noexcept
    {
        const auto character = static_cast<wchar_t>(Take<decltype(+std::wint_t())>());
        const std::size_t count = character == L'\0' ? 0 : 1;
        WriteField(conversion, std::wstring_view(&character, count), Utf8CharacterLimit);
    }

    template <class Text>
    void WriteField(const Conversion& conversion, Text text, std::size_t limit) noexcept
    {
        const std::size_t width = static_cast<std::size_t>(conversion.Width);
        const bool isLeft = conversion.HasFlag('-');
        const std::size_t length = width > 0 ? Emit(text, limit, nullptr) : 0;
        const std::size_t padding = width > length ? width - length : 0;
        if (!isLeft)
            mSink.Fill(padding);
        Emit(text, limit, &mSink);
        if (isLeft)
            mSink.Fill(padding);
    }

    // Writes text of at most `limit` bytes to the sink, if there is one, and returns its length.
    static std::size_t Emit(std::string_view text, std::size_t, CTextSink* sink) noexcept
    {
        if (sink != nullptr)
            sink->Append(text.data(), text.size());
        return text.size();
    }

    static std::size_t Emit(std::wstring_view text, std::size_t limit, CTextSink* sink) noexcept
    {
        std::size_t length = 0;
        char bytes[Utf8CharacterLimit];
        while (!text.empty() && (sink == nullptr || !sink->IsCut()))
        {
            const std::size_t size = EncodeUtf8(TakeCharacter(text), bytes);
            if (size > limit - length)
                break;
            length += size;
            if (sink != nullptr)
                sink->Append(bytes, size);
        }
        return length;
    }

    CTextSink& mSink;
    Arguments& mArguments;
};

} // namespace

std::size_t FormatText(char* buffer, std::size_t size, const char* format,
                       std::va_list arguments) noexcept
{
    if (size == 0)
        return 0;
    CTextSink sink(buffer, size);
    Arguments copy;
    va_copy(copy.List, arguments);
    CFormatter(sink, copy).Run(format != nullptr ? format : "(null)");
    va_end(copy.List);
    return sink.Finish();
}

std::size_t FormatInto(char* buffer, std::size_t size, const char* format, ...) noexcept
{
    std::va_list arguments;
    va_start(arguments, format);
    const std::size_t length = FormatText(buffer, size, format, arguments);
    va_end(arguments);
    return length;
}

} // namespace Tavrik::tSystem
