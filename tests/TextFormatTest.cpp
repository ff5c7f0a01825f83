// The formatter of diagnostics lines, and the way of wide text to UTF-8 and back.
#include "TextFormat.h"
#include "Platform.h"
#include "WideText.h"

#include <algorithm>
#include <climits>
#include <gtest/gtest.h>
#include <memory>
#include <unordered_set>

namespace Tavrik::tSystem
{

namespace
{

// Formats into a buffer that ends where `size` says. The compiler must not check the format: some
// are wrong on purpose.
std::string FormatWithin(std::size_t size, const char* format, std::va_list arguments)
{
    const auto buffer = std::make_unique<char[]>(size);
    std::fill_n(buffer.get(), size, '#');
    const std::size_t length = FormatText(buffer.get(), size, format, arguments);
    EXPECT_LT(length, size);
    EXPECT_EQ(buffer[length], '\0');
    return {buffer.get(), length};
}

std::string Format(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    std::string text = FormatWithin(4000, format, arguments);
    va_end(arguments);
    return text;
}

std::string FormatCut(std::size_t size, const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    std::string text = FormatWithin(size, format, arguments);
    va_end(arguments);
    return text;
}

struct Case
{
    std::string Text;
    const char* Expected;
};

TEST(TextFormat, EveryArgumentIsTakenByItsType)
{
    const Case cases[] = {
        {Format("%d %i %u", -1, INT_MIN, UINT_MAX), "-1 -2147483648 4294967295"},
        {Format("%hhd %hhu %hd %hu", 0x1FF, 0x1FF, 0x18000, 0x18000), "-1 255 -32768 32768"},
        {Format("%ld %lu", -2L, 3UL), "-2 3"},
        {Format("%lld %llx", INT64_MIN, UINT64_MAX), "-9223372036854775808 ffffffffffffffff"},
        {Format("%jd %ju", INTMAX_MAX, UINTMAX_MAX), "9223372036854775807 18446744073709551615"},
        {Format("%zu %zd %td", SIZE_MAX, std::size_t(7), std::ptrdiff_t(-9)),
         "18446744073709551615 7 -9"},
        {Format("%f %.3e %g %.1F", 1.5, 12345.678, 0.0001, -2.25),
         "1.500000 1.235e+04 0.0001 -2.2"},
        {Format("%.2Lf %Lg|%d", 1.25L, 3.0L, 4), "1.25 3|4"},
        {Format("%a", 1.0), "0x1p+0"},
        {Format("%08X %#x %#o %+d % d %-5d|", 0xBEEFu, 255u, 8u, 5, 6, 7),
         "0000BEEF 0xff 010 +5  6 7    |"},
        {Format("%*d|%*d|%.*d|%.*f", 4, 1, -4, 2, 3, 3, -1, 4.0), "   1|2   |003|4.000000"},
        {Format("%c%5c|%-3c|%s%6s|%-4s|%.2s", 'a', 'b', 'c', "d", "ef", "gh", "ijk"),
         "a    b|c  |d    ef|gh  |ij"},
        {Format("100%% of %s", "it"), "100% of it"},
        {Format("%hs %S %C", "narrow", L"wide", std::wint_t(L'w')), "narrow wide w"},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(text, expected);

    int here = 0;
    const std::string address = Format("%p", static_cast<void*>(&here));
    EXPECT_EQ(std::stoull(address, nullptr, 16), reinterpret_cast<std::uintptr_t>(&here));
}

TEST(TextFormat, WideTextIsUtf8WhateverTheLocale)
{
    const Case cases[] = {
        {Format("[%ls]", L"\u00e9\u20ac\U0001F600"), "[\u00e9\u20ac\U0001F600]"},
        {Format("[%lc%lc]", std::wint_t(L'\u0416'), std::wint_t(0)), "[\u0416]"},
        {Format("%5ls|%-5ls|%1ls", L"\u00e9\u00e9", L"\u20ac", L"abc"),
         " \u00e9\u00e9|\u20ac  |abc"},
        // A precision counts bytes, and what does not fit as a whole is left out.
        {Format("%.2ls|%.3ls|%.5ls|%.0ls", L"\u00e9\u00e9", L"\u00e9\u00e9", L"\U0001F600\u20ac",
                L"a"),
         "\u00e9|\u00e9|\U0001F600|"},
        {Format("%4.2ls|", L"abc"), "  ab|"},
        // A surrogate pair is one character also where it need not be a pair.
        {Format("%ls|%.3ls|", L"\xD83D\xDE00", L"\xD83D\xDE00"), "\U0001F600||"},
        {Format("%ls", L"\xD83Dx"), "\xED\xA0\xBDx"},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(text, expected);
}

TEST(TextFormat, NothingIsReadBehindThePrecision)
{
    const std::unique_ptr<char[]> narrow(new char[3]{'a', 'b', 'c'});
    const std::unique_ptr<wchar_t[]> wide(new wchar_t[3]{L'a', L'b', L'\xD83D'});
    EXPECT_EQ(Format("%.3s|%.*s", narrow.get(), 2, narrow.get()), "abc|ab");
    EXPECT_EQ(Format("%.3ls|%.*ls", wide.get(), 1, wide.get()), "ab|a");
}

TEST(TextFormat, LongTextIsCutBetweenCharacters)
{
    constexpr const char* text = "a\u00e9\u20ac\U0001F600z";
    constexpr const wchar_t* wide = L"a\u00e9\u20ac\U0001F600z";
    constexpr std::size_t kept[] = {0, 1, 1, 3, 3, 3, 6, 6, 6, 6, 10, 11, 11};
    for (std::size_t room = 0; room < std::size(kept); ++room)
    {
        const std::string expected = std::string(text).substr(0, kept[room]);
        EXPECT_EQ(FormatCut(room + 1, text), expected);
        EXPECT_EQ(FormatCut(room + 1, "%s", text), expected);
        EXPECT_EQ(FormatCut(room + 1, "%ls", wide), expected);
    }
    EXPECT_EQ(FormatCut(6, "%d%s", 1234567, "never"), "12345");
    EXPECT_EQ(FormatCut(6, "%s%d", "abc", 1234567), "abc12");
    EXPECT_EQ(FormatCut(6, "%-9s|", "abc"), "abc  ");
    EXPECT_EQ(FormatCut(6, "%2000000000d%-2000000000s%.2000000000d", 1, "x", 1), "     ");

    char untouched = '#';
    std::va_list none = {};
    EXPECT_EQ(FormatText(&untouched, 0, "text", none), 0u);
    EXPECT_EQ(untouched, '#');
}

TEST(WideText, EveryCharacterSurvivesBothWays)
{
    for (char32_t code = 1; code <= 0x10FFFF; ++code)
    {
        if (code >= 0xD800 && code <= 0xDFFF)
            continue;
        char bytes[Utf8CharacterLimit];
        const std::string utf8(bytes, EncodeUtf8(code, bytes));
        const std::wstring wide = FromUtf8(utf8);
        std::wstring_view rest = wide;
        ASSERT_EQ(TakeCharacter(rest), code);
        ASSERT_TRUE(rest.empty());
        ASSERT_EQ(ToUtf8(wide), utf8);
    }
    EXPECT_EQ(ToUtf8(L"\U0001F600"), "\xF0\x9F\x98\x80");
    EXPECT_EQ(FromUtf8("\u20ac\U0001F600"), L"\u20ac\U0001F600");
}

TEST(WideText, InvalidBytesAreEscapedOneByOne)
{
    const std::pair<std::string, std::wstring> cases[] = {
        {"\xFF", L"\xDCFF"},
        {"a\x80z", L"a\xDC80z"},
        {"\xC3", L"\xDCC3"},
        {"\xE2\x82", L"\xDCE2\xDC82"},
        {"\xE2\xC3\xA9", L"\xDCE2\u00e9"},
        {"\xC0\xAF", L"\xDCC0\xDCAF"},                     // overlong
        {"\xE0\x9F\xBF", L"\xDCE0\xDC9F\xDCBF"},           // overlong
        {"\xF0\x8F\xBF\xBF", L"\xDCF0\xDC8F\xDCBF\xDCBF"}, // overlong
        {"\xED\xA0\x80", L"\xDCED\xDCA0\xDC80"},           // a surrogate
        {"\xF4\x90\x80\x80", L"\xDCF4\xDC90\xDC80\xDC80"}, // above the last code
        {"\xF8\x88\x80\x80\x80", L"\xDCF8\xDC88\xDC80\xDC80\xDC80"},
    };
    for (const auto& [bytes, wide] : cases)
    {
        EXPECT_EQ(FromUtf8(bytes), wide);
        if (FileNamesAreBytes)
        {
            EXPECT_EQ(ToUtf8(wide), bytes);
        }
    }
    EXPECT_EQ(FromUtf8(std::string_view("\u20ac", 2)), L"\xDCE2\xDC82");
}

} // namespace

} // namespace Tavrik::tSystem
