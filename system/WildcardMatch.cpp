// Runs a name through all ways to match at once, as a set of positions in the pattern, so that no
// pattern makes it try again from the start.
#include "WildcardMatch.h"

#include <algorithm>
#include <cstdint>

namespace Tavrik::tSystem
{

namespace
{

// A range of lower-case letters whose upper-case forms lie at a distance. In a paired range the
// two forms stand side by side, the upper-case one at the even or odd code that `First` has not.
struct CaseRange
{
    std::uint32_t First;
    std::uint32_t Last;
    std::int32_t ToUpper;
    bool IsPaired;
};

constexpr CaseRange CaseRanges[] = {
    {0x0061, 0x007A, -32, false}, // ASCII
    {0x00E0, 0x00F6, -32, false}, // Latin-1, without the division sign
    {0x00F8, 0x00FE, -32, false}, {0x00FF, 0x00FF, 121, false},
    {0x0101, 0x012F, -1, true}, // Latin Extended-A, without the dotless i and its like
    {0x0133, 0x0137, -1, true},   {0x013A, 0x0148, -1, true},
    {0x014B, 0x0177, -1, true},   {0x017A, 0x017E, -1, true},
    {0x03AC, 0x03AC, -38, false}, // Greek
    {0x03AD, 0x03AF, -37, false}, {0x03B1, 0x03C1, -32, false},
    {0x03C2, 0x03C2, -31, false}, {0x03C3, 0x03CB, -32, false},
    {0x03CC, 0x03CC, -64, false}, {0x03CD, 0x03CE, -63, false},
    {0x0430, 0x044F, -32, false}, // Cyrillic
    {0x0450, 0x045F, -80, false}, {0x0461, 0x0481, -1, true},
    {0x048B, 0x04BF, -1, true},   {0x04C2, 0x04CE, -1, true},
    {0x04CF, 0x04CF, -15, false}, {0x04D1, 0x052F, -1, true},
};

// Where a character stands among all others: by its first UTF-16 code unit.
std::uint32_t Rank(wchar_t character)
{
    const auto code = static_cast<char32_t>(character);
    return code >= 0xDC00 && code <= 0xFFFF ? code + 0x110000 : code;
}

} // namespace

wchar_t FoldCase(wchar_t character) noexcept
{
    const auto code = static_cast<char32_t>(character);
    for (const CaseRange& range : CaseRanges)
    {
        if (code < range.First)
            return character;
        if (code <= range.Last && (!range.IsPaired || (code - range.First) % 2 == 0))
            return static_cast<wchar_t>(static_cast<std::int32_t>(code) + range.ToUpper);
    }
    return character;
}

bool ListsBefore(std::wstring_view left, std::wstring_view right) noexcept
{
    const std::size_t common = std::min(left.size(), right.size());
    for (std::size_t index = 0; index < common; ++index)
    {
        const std::uint32_t leftRank = Rank(FoldCase(left[index]));
        const std::uint32_t rightRank = Rank(FoldCase(right[index]));
        if (leftRank != rightRank)
            return leftRank < rightRank;
    }
    if (left.size() != right.size())
        return left.size() < right.size();
    return left < right;
}

CWildcardPattern::CWildcardPattern(std::wstring_view pattern)
{
    const std::size_t length = pattern.find_last_not_of(L'.') + 1;
    const bool endsInDot = length > 0 && length < pattern.size();
    if (endsInDot)
        pattern = pattern.substr(0, length);

    mElements.reserve(pattern.size());
    for (std::size_t index = 0; index < pattern.size(); ++index)
    {
        const bool isLast = index + 1 == pattern.size();
        const wchar_t next = isLast ? (endsInDot ? L'.' : L'\0') : pattern[index + 1];
        const wchar_t character = pattern[index];
        if (character == L'*')
            mElements.push_back({next == L'.' ? EKind::AnyButLastDot : EKind::Any, character});
        else if (character == L'?')
            mElements.push_back({EKind::OneButDot, character});
        else if (character == L'.' && (next == L'*' || next == L'?'))
            mElements.push_back({EKind::DotOrEnd, character});
        else
            mElements.push_back({EKind::Literal, FoldCase(character)});
    }
}

bool CWildcardPattern::Matches(std::wstring_view name) const
{
    const std::size_t lastDot = name.rfind(L'.');
    const std::size_t end = mElements.size();

    // reached[i]: what was read of the name is matched by the first i elements.
    std::vector<bool> reached(end + 1);
    std::vector<bool> following(end + 1);
    reached[0] = true;
    for (std::size_t index = 0;; ++index)
    {
        const bool isFinished = index == name.size();
        const wchar_t character = isFinished ? L'\0' : FoldCase(name[index]);
        bool isAlive = false;
        following.assign(end + 1, false);
        for (std::size_t at = 0; at < end; ++at)
        {
            if (!reached[at])
                continue;
            const auto [kind, literal] = mElements[at];
            const bool isStar = kind == EKind::Any || kind == EKind::AnyButLastDot;
            const bool matchesNothing =
                isStar || (kind == EKind::OneButDot && (isFinished || character == L'.')) ||
                (kind == EKind::DotOrEnd && isFinished);
            if (matchesNothing)
                reached[at + 1] = true;
            if (isFinished)
                continue;
            if (kind == EKind::Any || (kind == EKind::AnyButLastDot && index != lastDot))
                following[at] = isAlive = true;
            else if ((kind == EKind::OneButDot && character != L'.') ||
                     (kind == EKind::DotOrEnd && character == L'.') ||
                     (kind == EKind::Literal && character == literal))
                following[at + 1] = isAlive = true;
        }
        if (isFinished)
            return reached[end];
        if (!isAlive)
            return false;
        reached.swap(following);
    }
}

} // namespace Tavrik::tSystem
