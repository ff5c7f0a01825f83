// The formatter of diagnostics lines, the way of wide text to UTF-8 and back, which names a pattern
// matches, and how a folder is listed.
#include "Platform.h"
#include "TestTools.h"
#include "TextFormat.h"
#include "WideText.h"
#include "WildcardMatch.h"

#include <climits>
#include <sstream>

namespace Tavrik::tSystem
{

using Ossira::tTest::TempFolder;

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
    EXPECT_EQ(
        Format(Room, "%010X %#x %+d % d|%*d|%*d|%.*d", 0xBEEFu, 255u, 5, 6, 4, 1, -4, 2, 3, 3),
        "000000BEEF 0xff +5  6|   1|2   |003");
    EXPECT_EQ(
        Format(Room, "%c|%-3c|%s%6s|%-4s|%.2s%%|%S%s", 'a', 'c', "d", "ef", "gh", "ijk", L"w", ""),
        "a|c  |d    ef|gh  |ij%|w");
    EXPECT_EQ(Format(Room, "%i %o %F %E %G %A %C", -1, 8, 1.5, 1.5, 1e-9, 1.0, L'w'),
              "-1 10 1.500000 1.500000E+00 1E-09 0X1P+0 w");
    // What nobody knows ends the line as it stands, for its argument has no size.
    constexpr const char* none = nullptr;
    EXPECT_EQ(Format(Room, "%n%s %ls %d %y %d", none, none, none, 5), "(null) (null) 5 %y %d");
    EXPECT_TRUE(Format(Room, "%p|%d", none, 5).ends_with("|5")) << "each platform has its form";
    EXPECT_EQ(Format(Room, nullptr), "(null)");
    EXPECT_EQ(Format(Room, "%lc|5%", std::wint_t(0)), "|5%");
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
        ASSERT_EQ(wide.size(), code > 0xFFFF && sizeof(wchar_t) == 2 ? 2u : 1u);
        ASSERT_EQ(TakeCharacter(rest), code);
        ASSERT_TRUE(rest.empty());
        ASSERT_EQ(ToUtf8(wide), utf8);
    }
    char bytes[Utf8CharacterLimit];
    EXPECT_EQ(std::string(bytes, EncodeUtf8(0x110000, bytes)), "\uFFFD");
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

// --- Names of files ------------------------------------------------------------------------------

TEST(WildcardPattern, MatchesByTheRulesOfWindows)
{
    // A pattern, the names that match it, and others.
    const wchar_t* const cases[][3] = {
        {L"*.*", L"a a.b . .. .a a. a.b.c", L""},
        {L"a*.", L"a abc", L"a.b b .a"},
        {L"*.dll", L"x.dll .dll a.b.dll X.DLL a.dll.dll", L"x.dllx dll x.dll.x"},
        {L"a?", L"a ab A1", L"abc b a.b"},
        {L"foo.*", L"foo foo. foo.x foo.x.y", L"fooo foo1.x"},
        {L"\u00e4*.\u0434\u03c3", L"\u00c4x.\u0414\u03a3 \u00e4.\u0434\u03c2", L"a.\u0434"},
    };
    for (const auto& [pattern, matching, others] : cases)
    {
        for (const wchar_t* const list : {matching, others})
        {
            std::wistringstream names(list);
            for (std::wstring name; names >> name;)
                EXPECT_EQ(CWildcardPattern(pattern).Matches(name), list == matching)
                    << testing::PrintToString(pattern) << " " << testing::PrintToString(name);
        }
    }
    // Many wildcards take no longer than the pattern times the name.
    std::wstring many = L"*b";
    for (int count = 0; count < 100; ++count)
        many = L"*a?*." + many;
    EXPECT_FALSE(CWildcardPattern(many).Matches(std::wstring(5000, L'a')));
}

// At the ends of each range of letters, and beside them.
TEST(WildcardPattern, CaseIsFoldedAsTheRangesOfLettersSay)
{
    const std::wstring_view lower =
        L"az\u00e0\u00f6\u00f8\u00fe\u00ff\u0101\u012f\u0133\u0137\u013a\u0148\u014b\u0177\u017a"
        L"\u017e\u03ac\u03ad\u03af\u03b1\u03c1\u03c2\u03c3\u03cb\u03cc\u03cd\u03ce\u0430\u044f"
        L"\u0450b\u00e1\u00f9\u03ae\u03b2\u03c4\u0431\u0451"
        L"\u045f\u0461\u0481\u048b\u04bf\u04c2\u04ce\u04cf\u04d1\u052f";
    const std::wstring_view upper =
        L"AZ\u00c0\u00d6\u00d8\u00de\u0178\u0100\u012e\u0132\u0136\u0139\u0147\u014a\u0176\u0179"
        L"\u017d\u0386\u0388\u038a\u0391\u03a1\u03a3\u03a3\u03ab\u038c\u038e\u038f\u0410\u042f"
        L"\u0400B\u00c1\u00d9\u0389\u0392\u03a4\u0411\u0401"
        L"\u040f\u0460\u0480\u048a\u04be\u04c1\u04cd\u04c0\u04d0\u052e";
    for (std::size_t at = 0; at < lower.size(); ++at)
        EXPECT_EQ(FoldCase(lower[at]), upper.at(at)) << at;
    for (const wchar_t same : std::wstring(upper) + L"`{@\u00df\u00f7\u0131\u0138\u0149\u017f\u03b0"
                                                    L"\u03cf\u0482\u0530\u20ac")
        EXPECT_EQ(FoldCase(same), same);
}

// What a search finds: the names in order, hidden ones in brackets.
std::wstring List(const std::wstring& searchText)
{
    CFolderSearch search;
    EXPECT_TRUE(search.Open(searchText));
    std::wstring names;
    for (CFolderSearch::Entry entry; search.Next(entry);)
        names += entry.Name == L"." || entry.Name == L".." ? L""
                 : entry.IsHidden                          ? L"[" + entry.Name + L"] "
                                                           : entry.Name + L" ";
    return names;
}

// Elsewhere the system's own rules decide, an attribute hides, and names are wide to begin with.
TEST(FolderSearch, NamesOfBytesKeepTheirIdentity)
{
    if (!FileNamesAreBytes)
        GTEST_SKIP();
    const TempFolder folder;
    const std::wstring path = folder.Path().wstring() + L"/";
    for (const char* name :
         {".hidden.txt", "plz.txt", "plain.txt", "x.dllx", "caf\xE9.dll", "1\\.dll", "Plz.txt",
          "plz.dll.dll", "plz.dll", "q\uFFFD.dll", "q\U0001F600.dll"})
        folder.Write(name, "");
    create_directory(folder.Path() / "x\\\xFF");
    folder.Write("x\\\xFF/inner", "");
    EXPECT_EQ(List(path + L"*.txt"), L"[.hidden.txt] plain.txt Plz.txt plz.txt ");
    EXPECT_EQ(List(path + L"*.dll"), L"1\xDC5C.dll caf\xDCE9.dll plz.dll plz.dll.dll "
                                     L"q\U0001F600.dll q\uFFFD.dll "); // as UTF-16 is ordered
    EXPECT_EQ(List(path + L"x\xDC5C\xDCFF\\*.*"), L"inner "); // what was listed is found again
}

} // namespace

} // namespace Tavrik::tSystem
