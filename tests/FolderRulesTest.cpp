// Which names a pattern matches, and how a folder is listed.
#include "Platform.h"
#include "TestTools.h"
#include "WildcardMatch.h"

#include <sstream>

namespace Tavrik::tSystem
{

using Ossira::tTest::TempFolder;

namespace
{

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
        L"\u0450"
        L"\u045f\u0461\u0481\u048b\u04bf\u04c2\u04ce\u04cf\u04d1\u052f";
    const std::wstring_view upper =
        L"AZ\u00c0\u00d6\u00d8\u00de\u0178\u0100\u012e\u0132\u0136\u0139\u0147\u014a\u0176\u0179"
        L"\u017d\u0386\u0388\u038a\u0391\u03a1\u03a3\u03a3\u03ab\u038c\u038e\u038f\u0410\u042f"
        L"\u0400"
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
    for (const char* name : {".hidden.txt", "plain.txt", "x.dllx", "caf\xE9.dll", "1\\.dll"})
        folder.Write(name, "");
    create_directory(folder.Path() / "x\\\xFF");
    folder.Write("x\\\xFF/inner", "");
    EXPECT_EQ(List(path + L"*.txt"), L"[.hidden.txt] plain.txt ");
    EXPECT_EQ(List(path + L"*.dll"), L"1\xDC5C.dll caf\xDCE9.dll ");
    EXPECT_EQ(List(path + L"x\xDC5C\xDCFF\\*.*"), L"inner "); // what was listed is found again
}

} // namespace

} // namespace Tavrik::tSystem
