// Text between wide strings and UTF-8, without loss in either direction.
//
// A wide string holds characters, or surrogate pairs where `wchar_t` has two bytes; a pair is read
// as one character on every platform. Bytes that are no valid UTF-8 (overlong forms, surrogates and
// codes above 0x10FFFF among them) stand in a wide string as the codes 0xDC00 + byte, which valid
// UTF-8 never yields. Where file names are bytes, such a code becomes its byte again.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Tavrik::tSystem
{

inline constexpr wchar_t ByteEscape = 0xDC00;
inline constexpr std::size_t Utf8CharacterLimit = 4;

// The number of bytes of a character that begins with `lead`; 0 when none begins so.
[[nodiscard]] std::size_t Utf8CharacterSize(char lead) noexcept;

// Takes the first character off `text`, which is not empty.
[[nodiscard]] char32_t TakeCharacter(std::wstring_view& text) noexcept;

// Writes a character and returns its number of bytes. A lone surrogate that stands for no byte is
// written in three bytes, a code above 0x10FFFF as the replacement character U+FFFD.
[[nodiscard]] std::size_t EncodeUtf8(char32_t character, char (&out)[Utf8CharacterLimit]) noexcept;

// Both throw `std::bad_alloc`.
[[nodiscard]] std::string ToUtf8(std::wstring_view text);
[[nodiscard]] std::wstring FromUtf8(std::string_view text);

} // namespace Tavrik::tSystem
