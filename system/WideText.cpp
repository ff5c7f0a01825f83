// Decodes and encodes UTF-8 by itself, because the C library's conversions depend on the process's
// locale and fail outside ASCII in the default one. Where a byte is invalid, exactly one byte is
// escaped and decoding goes on behind it: that is what makes every name come out as it went in.
#include "WideText.h"

#include "Platform.h"

namespace Tavrik::tSystem
{

namespace
{

constexpr char32_t FirstSupplementary = 0x10000;
constexpr char32_t LastCharacter = 0x10FFFF;
constexpr char32_t ReplacementCharacter = 0xFFFD;

constexpr bool IsHighSurrogate(char32_t code)
{
    return code >= 0xD800 && code <= 0xDBFF;
}

constexpr bool IsLowSurrogate(char32_t code)
{
    return code >= 0xDC00 && code <= 0xDFFF;
}

// The escape is honoured for bytes that UTF-8 can reject, and for the backslash, which a folder
// listing escapes where it is part of a name. Any other code would smuggle in a character that the
// path was already searched for.
bool StandsForByte(char32_t code)
{
    const char32_t byte = code - ByteEscape;
    return FileNamesAreBytes && ((byte >= 0x80 && byte <= 0xFF) || byte == U'\\');
}

// Takes the first character off `text`, or its first byte, escaped, when no valid one is there.
char32_t TakeUtf8(std::string_view& text)
{
    constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, FirstSupplementary};

    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t size = Utf8CharacterSize(text.front());
    char32_t code = size < 2 ? lead : lead & (0x7Fu >> size);
    bool isValid = size != 0 && size <= text.size();
    for (std::size_t index = 1; isValid && index < size; ++index)
    {
        const auto byte = static_cast<unsigned char>(text[index]);
        isValid = (byte & 0xC0u) == 0x80u;
        code = code << 6 | (byte & 0x3Fu);
    }
    isValid = isValid && code >= smallest[size] && code <= LastCharacter &&
              !IsHighSurrogate(code) && !IsLowSurrogate(code);

    text.remove_prefix(isValid ? size : 1);
    return isValid ? code : ByteEscape + lead;
}

} // namespace

std::size_t Utf8CharacterSize(char lead) noexcept
{
    const auto byte = static_cast<unsigned char>(lead);
    if (byte < 0x80)
        return 1;
    if (byte < 0xC0 || byte > 0xF7)
        return 0;
    return byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
}

char32_t TakeCharacter(std::wstring_view& text) noexcept
{
    const auto first = static_cast<char32_t>(text.front());
    text.remove_prefix(1);
    if (!IsHighSurrogate(first) || text.empty())
        return first;
    const auto second = static_cast<char32_t>(text.front());
    if (!IsLowSurrogate(second))
        return first;
    text.remove_prefix(1);
    return FirstSupplementary + ((first - 0xD800) << 10) + (second - 0xDC00);
}

std::size_t EncodeUtf8(char32_t character, char (&out)[Utf8CharacterLimit]) noexcept
{
    if (StandsForByte(character))
    {
        out[0] = static_cast<char>(character - ByteEscape);
        return 1;
    }
    if (character > LastCharacter)
        character = ReplacementCharacter;
    if (character < 0x80)
    {
        out[0] = static_cast<char>(character);
        return 1;
    }
    const std::size_t size = character < 0x800 ? 2 : character < FirstSupplementary ? 3 : 4;
    for (std::size_t index = size; --index > 0; character >>= 6)
        out[index] = static_cast<char>(0x80u | (character & 0x3Fu));
    out[0] = static_cast<char>((0xF00u >> size & 0xFFu) | character);
    return size;
}

std::string ToUtf8(std::wstring_view text)
{
    std::string bytes;
    bytes.reserve(text.size());
    char character[Utf8CharacterLimit];
    while (!text.empty())
        bytes.append(character, EncodeUtf8(TakeCharacter(text), character));
    return bytes;
}

std::wstring FromUtf8(std::string_view text)
{
    std::wstring wide;
    wide.reserve(text.size());
    while (!text.empty())
    {
        char32_t code = TakeUtf8(text);
        if (sizeof(wchar_t) == 2 && code >= FirstSupplementary)
        {
            code -= FirstSupplementary;
            wide.push_back(static_cast<wchar_t>(0xD800 + (code >> 10)));
            code = 0xDC00 + (code & 0x3FF);
        }
        wide.push_back(static_cast<wchar_t>(code));
    }
    return wide;
}

} // namespace Tavrik::tSystem
