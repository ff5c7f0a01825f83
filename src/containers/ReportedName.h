// The names under which the classes of one template report, put together while compiling.
#pragma once

#include <algorithm>
#include <array>
#include <string_view>

namespace Tavrik::Ossira
{

template <const std::string_view&... Parts>
class CJoinedText
{
    static constexpr auto Text = []
    {
        std::array<char, (Parts.size() + ...)> text{};
        auto to = text.begin();
        ((to = std::copy(Parts.begin(), Parts.end(), to)), ...);
        return text;
    }();

public:
    static constexpr std::string_view Value{Text.data(), Text.size()};
};

inline constexpr std::string_view ReportedPrefix = "Tavrik::Ossira::`anonymous-namespace'::T_";

// Of the class that is called `Traits::ClassName`.
template <class Traits>
inline constexpr std::string_view ReportedClass =
    CJoinedText<ReportedPrefix, Traits::ClassName>::Value;

// Of a class nested in it; `Name` begins with "::".
template <class Traits, const std::string_view& Name>
inline constexpr std::string_view ReportedNested =
    CJoinedText<ReportedPrefix, Traits::ClassName, Name>::Value;

inline constexpr std::string_view EnumeratorName = "::T_Enumerator";
inline constexpr std::string_view KeyEnumeratorName = "::T_KeyEnumerator";
inline constexpr std::string_view ValueEnumeratorName = "::T_ValueEnumerator";
inline constexpr std::string_view KeyCollectionName = "::T_KeyCollection";
inline constexpr std::string_view ValueCollectionName = "::T_ValueCollection";

} // namespace Tavrik::Ossira
