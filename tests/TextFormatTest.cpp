// The formatter of diagnostics lines, and the way of wide text to UTF-8 and back.
#include "TextFormat.h"
#include "Platform.h"
#include "WideText.h"

#include <climits>
#include <gtest/gtest.h>
#include <vector>

namespace Tavrik::tSystem
{

namespace
{

constexpr std::size_t Room = 4000;

// Formats into a buffer of just that size. No attribute lets the compiler check the format: some
// are wrong on purpose.
std::string Format(std::size_t size, const char* format, ...)
{
    std::vector<char> buffer(size, '#');
    std::va_list arguments;
    va_start(arguments, format);
    const std::size_t length = FormatText(buffer.data(), size, format, arguments);
    va_end(arguments);
    EXPECT_EQ(buffer.at(length), '\0');
    return {buffer.data(), length};
}

TEST(TextFormat, EveryArgumentIsTakenByItsType)
{
    EXPECT_EQ(Format(Room, "%d %u %hhd %hu %ld", INT_MIN, UINT_MAX, 0x1FF, 0x18000, -2L),
              "-2147483648 4294967295 -1 32768 -2");
    EXPECT_EQ(Format(Room, "%llx %jd %zu %td", UINT64_MAX, INTMAX_MAX, SIZE_MAX, PTRDIFF_MIN),
              "ffffffffffffffff 9223372036854775807 18446744073709551615 -9223372036854775808");
    EXPECT_EQ(Format(Room, "%f %.3e %g %a|%.2Lf|%d", 1.5, 12345.678, 0.0001, 1.0, 1.25L, 4),
              "1.500000 1.235e+04 0.0001 0x1p+0|1.25|4");
    EXPECT_EQ(Format(Room, "%08X %#x %+d % d|%*d|%*d|%.*d", 0xBEEFu, 255u, 5, 6, 4, 1, -4, 2, 3, 3),
              "0000BEEF 0xff +5  6|   1|2   |003");
    EXPECT_EQ(Format(Room, "%c|%-3c|%s%6s|%-4s|%.2s%%|%S", 'a', 'c', "d", "ef", "gh", "ijk", L"w"),
              "a|c  |d    ef|gh  |ij%|w");
    // What nobody knows ends the line as it stands, for its argument has no size.
    constexpr const char* none = nullptr;
    EXPECT_EQ(Format(Room, "%n%s %ls %d %y %d", none, none, none, 5), "(null) (null) 5 %y %d");
    EXPECT_EQ(Format(Room, nullptr), "(null)");
    EXPECT_EQ(FormatInto(nullptr, 0, "%d", 1), 0u);
}

TEST(TextFormat, WideTextIsUtf8WhateverTheLocale)
{
    EXPECT_EQ(Format(Room, "[%ls|%5ls%lc]", L"\u20ac\U0001F600", L"\u00e9", std::wint_t(L'\u0416')),
              "[\u20ac\U0001F600|   \u00e9\u0416]");
    // A precision counts bytes, and what does not fit as a whole is left out.
    EXPECT_EQ(Format(Room, "%.3ls|%.5ls|%.0ls", L"\u00e9\u00e9", L"\U0001F600\u20ac", L"a"),
              "\u00e9|\U0001F600|");
    // The first and the last of each half, and such as have no other half.
    EXPECT_EQ(Format(Room, "%ls|%ls|%ls", L"\xD800\xDC00", L"\xDBFF\xDFFF", L"\xDBFFx\xDFFF"),
              "\U00010000|\U0010FFFF|\xED\xAF\xBFx\xED\xBF\xBF");
    // Nothing is read behind the precision.
    const std::vector<wchar_t> wide = {L'a', L'b', L'\xD83D'};
    EXPECT_EQ(Format(Room, "%.3ls|%.*ls", wide.data(), 1, wide.data()), "ab|a");
}

TEST(TextFormat, LongTextIsCutBetweenCharacters)
{
    const std::string text = "a\u00e9\u20ac\U0001F600z";
    constexpr std::size_t kept[] = {0, 1, 1, 3, 3, 3, 6, 6, 6, 6, 10, 11, 11};
    for (std::size_t room = 0; room < std::size(kept); ++room)
        EXPECT_EQ(Format(room + 1, "%s", text.c_str()), text.substr(0, kept[room]));
    EXPECT_EQ(Format(6, "%2000000000d%-2000000000s%.2000000000d", 1, "x", 1), "     ");
}

TEST(WideText, EveryCharacterSurvivesBothWays)
{
    for (char32_t code = 1; code <= 0x10FFFF; code += code == 0xD7FF ? 0x801 : 1)
    {
        char bytes[Utf8CharacterLimit];
        const std::string utf8(bytes, EncodeUtf8(code, bytes));
        const std::wstring wide = FromUtf8(utf8);
        std::wstring_view rest = wide;
        ASSERT_EQ(TakeCharacter(rest), code);
        ASSERT_TRUE(rest.empty());
        ASSERT_EQ(ToUtf8(wide), utf8);
    }
}

TEST(WideText, InvalidBytesAreEscapedOneByOne)
{
    // Cut off, overlong, a surrogate, above the last code.
    const std::string bytes =
        "a\x80z\xE2\xC3\xA9\xC0\xAF\xE0\x9F\xBF\xED\xA0\x80\xED\xBF\xBF\xF4\x90\xE2\x82";
    const std::wstring wide = L"a\xDC80z\xDCE2\u00e9\xDCC0\xDCAF\xDCE0\xDC9F\xDCBF\xDCED\xDCA0"
                              L"\xDC80\xDCED\xDCBF\xDCBF\xDCF4\xDC90\xDCE2\xDC82";
    EXPECT_EQ(FromUtf8(bytes), wide);
    EXPECT_TRUE(!FileNamesAreBytes || ToUtf8(wide) == bytes);
}

} // namespace

} // namespace Tavrik::tSystem
