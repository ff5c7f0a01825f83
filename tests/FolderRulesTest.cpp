// Which names a pattern matches, and how a folder is listed.
#include "Platform.h"
#include "TestTools.h"
#include "WildcardMatch.h"

#include <algorithm>

namespace Tavrik::tSystem
{

using Ossira::tTest::TempFolder;

namespace
{

TEST(WildcardPattern, MatchesByTheRulesOfWindows)
{
    struct Case
    {
        const wchar_t* Pattern;
        std::vector<const wchar_t*> Matching;
        std::vector<const wchar_t*> Others;
    };
    const Case cases[] = {
        {L"*.*", {L"a", L"a.b", L".", L"..", L".a", L"a.", L"a.b.c"}, {}},
        {L"*", {L"a", L"a.b", L"..", L""}, {}},
        {L"*.", {L"a", L"abc"}, {L"a.b", L".a", L"a.b.c"}},
        {L"a*.", {L"a", L"abc"}, {L"a.b", L"b"}},
        {L"abc.", {L"abc", L"ABC"}, {L"abc.d"}},
        {L"*.dll",
         {L"x.dll", L".dll", L"a.b.dll", L"X.DLL", L"a.dll.dll"},
         {L"x.dllx", L"dll", L"x.dl", L"x.dll.x"}},
        {L"a?", {L"a", L"ab", L"A1"}, {L"abc", L"b", L"a.b", L""}},
        {L"a??.txt", {L"a.txt", L"ab.txt", L"abc.txt"}, {L"abcd.txt", L".txt", L"atxt"}},
        {L"?b", {L"ab", L"Bb"}, {L"b", L".b", L"aab"}},
        {L"a?c", {L"abc"}, {L"ac", L"a.c"}},
        {L"???", {L"a", L"abc"}, {L"abcd", L"a.b"}},
        {L"foo.*", {L"foo", L"foo.", L"foo.x", L"foo.x.y"}, {L"fooo", L"foo1.x"}},
        {L"*.?", {L"abc", L"abc.d", L"a.b.c"}, {L"a.bc", L"a.b.cd"}},
        {L"*.b*", {L"a.b", L"a.bc.d", L"x.y.b"}, {L"ab", L"a.cb"}},
        {L"*a*", {L"a", L"bab", L"b.A"}, {L"", L"b"}},
        {L"", {}, {L"a", L"."}},
        {L".", {L"."}, {L"..", L"a"}},
        {L"..", {L".."}, {L".", L"a"}},
        {L".*", {L".a", L".", L".."}, {L"a", L"a.b"}},
        {L"\u00e4*.\u0434\u03c3", {L"\u00c4x.\u0414\u03a3", L"\u00e4.\u0434\u03c2"}, {L"a.\u0434"}},
    };
    for (const auto& [text, matching, others] : cases)
    {
        const CWildcardPattern pattern(text);
        for (const wchar_t* name : matching)
            EXPECT_TRUE(pattern.Matches(name))
                << testing::PrintToString(text) << " " << testing::PrintToString(name);
        for (const wchar_t* name : others)
            EXPECT_FALSE(pattern.Matches(name))
                << testing::PrintToString(text) << " " << testing::PrintToString(name);
    }
}

TEST(WildcardPattern, ManyWildcardsTakeNoLongerThanThePatternTimesTheName)
{
    std::wstring text;
    for (int count = 0; count < 100; ++count)
        text += L"*a?*.";
    EXPECT_FALSE(CWildcardPattern(text + L"*b").Matches(std::wstring(5000, L'a')));
}

// What a search finds: the names in order, hidden ones in brackets, or the error number.
std::wstring List(const std::wstring& searchText)
{
    CFolderSearch search;
    if (!search.Open(searchText))
    {
        CFolderSearch::Entry none;
        EXPECT_FALSE(search.Next(none));
        return L"error " + std::to_wstring(search.LastError());
    }
    EXPECT_EQ(search.LastError(), 0u);
    std::wstring names;
    for (CFolderSearch::Entry entry; search.Next(entry);)
    {
        if (entry.Name == L"." || entry.Name == L"..")
            continue;
        names +=
            (names.empty() ? L"" : L" ") + (entry.IsHidden ? L"[" + entry.Name + L"]" : entry.Name);
    }
    return names;
}

TEST(FolderSearch, ListsWhatMatchesInTheOrderOfItsNames)
{
    const TempFolder folder;
    for (const char* name : {"delta.DLL", "Beta.dll", "alpha.dll", "_.dll", "Gamma.txt", "readme",
                             "\xC3\xA9t\xC3\xA9.dll"})
        folder.Write(std::filesystem::path(reinterpret_cast<const char8_t*>(name)), "");
    std::filesystem::create_directory(folder.Path() / "Folder.dll");
    const std::wstring path = folder.Path().wstring();

    EXPECT_EQ(List(path + PathSeparator + L"*.dll"),
              L"alpha.dll Beta.dll delta.DLL Folder.dll _.dll \u00e9t\u00e9.dll");
    EXPECT_EQ(List(path + L"/*.TXT"), L"Gamma.txt");
    EXPECT_EQ(List(path + L"\\re?d?e"), L"readme");
    EXPECT_EQ(List(path + L"/\u00c9*"), L"\u00e9t\u00e9.dll");
    EXPECT_EQ(List(path + L"/readme"), L"readme");
    EXPECT_EQ(List(path + L"//alpha.*"), L"alpha.dll");
    EXPECT_EQ(List(path + L"/Folder.dll/*.*"), L""); // "." and ".." are there
}

TEST(FolderSearch, FailsWhereNothingMatchesOrNothingCanBeRead)
{
    const TempFolder folder;
    folder.Write("file.txt", "content");
    const std::wstring path = folder.Path().wstring() + PathSeparator;

    EXPECT_EQ(List(path + L"*.dll"), L"error 2");
    EXPECT_EQ(List(path), L"error 2");
    EXPECT_EQ(List(L"").find(L"error "), 0u);
    EXPECT_EQ(List(path + L"nowhere/*.*").find(L"error "), 0u);
    for (const std::wstring& noFolder : {std::wstring(L"file.txt"), std::wstring(300, L'x')})
    {
        const std::wstring error = List(path + noFolder + L"/*.*");
        EXPECT_EQ(error.find(L"error "), 0u);
        EXPECT_NE(error, L"error 2");
    }
}

// Elsewhere the system's own rules decide, an attribute hides, and names are wide to begin with.
// Wine gives that attribute to names with a leading dot.
TEST(FolderSearch, NamesOfBytesKeepTheirIdentity)
{
    const TempFolder folder;
    const std::wstring path = folder.Path().wstring() + PathSeparator;
    folder.Write(".hidden.txt", "");
    folder.Write("plain.txt", "");
    const std::wstring texts = List(path + L"*.txt");
    EXPECT_TRUE(texts == L"[.hidden.txt] plain.txt" ||
                (!FileNamesAreBytes && texts == L".hidden.txt plain.txt"));
    if (!FileNamesAreBytes)
        return;
    folder.Write("x.dllx", "");
    folder.Write("readme", "");
    folder.Write("caf\xE9.dll", "");
    folder.Write("a\\b.dll", "");
    EXPECT_EQ(List(path + L"*.dll"), L"a\xDC5C"
                                     L"b.dll caf\xDCE9.dll");
    EXPECT_EQ(List(path + L"caf?.dll"), L"caf\xDCE9.dll");
    EXPECT_EQ(List(path + L"*."), L"readme");

    // What was listed is found again.
    std::filesystem::create_directory(folder.Path() / "x\\\xFF");
    folder.Write("x\\\xFF/inner", "");
    EXPECT_EQ(List(path + L"x\xDC5C\xDCFF\\*.*"), L"inner");
}

} // namespace

} // namespace Tavrik::tSystem
