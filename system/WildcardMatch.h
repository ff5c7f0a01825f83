// The rules by which Windows compares file names and matches them to wildcard patterns, for
// platforms whose own rules differ.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Tavrik::tSystem
{

// The upper-case form of a letter, whatever the process's locale. Covered are the letters of ASCII,
// Latin-1, Latin Extended-A (but for the dotless i and the long s), modern Greek and Cyrillic; any
// other character stays as it is.
[[nodiscard]] wchar_t FoldCase(wchar_t character) noexcept;

// True when `left` stands before `right` in a folder listing: by name without regard to case, names
// that differ in nothing else by their codes. Characters outside the basic plane stand where their
// surrogate pairs would.
[[nodiscard]] bool ListsBefore(std::wstring_view left, std::wstring_view right) noexcept;

// A pattern, read once for many names. Case is ignored.
// - "*" matches any characters; before a dot it leaves the name's last dot to what follows.
// - "?" matches one character that is no dot, and nothing before a dot or at the end of the name.
// - A dot before a wildcard also matches the end of the name, so "*.*" matches every name.
// - Dots that end the pattern are dropped, but a "*" before them matches no name's last dot: "*."
//   matches the names without a dot.
// The time is that of the pattern's length times the name's, whatever the wildcards.
class CWildcardPattern
{
public:
    // Throws `std::bad_alloc`.
    explicit CWildcardPattern(std::wstring_view pattern);

    [[nodiscard]] bool Matches(std::wstring_view name) const;

private:
    enum class EKind
    {
        Literal,
        Any,           // any characters
        AnyButLastDot, // any characters but the name's last dot
        OneButDot,     // one character, or nothing before a dot or at the end
        DotOrEnd       // a dot, or the end of the name
    };

    struct Element
    {
        EKind Kind;
        wchar_t Character; // of a literal, folded
    };

    std::vector<Element> mElements;
};

} // namespace Tavrik::tSystem
