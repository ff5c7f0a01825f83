// printf formatting into a buffer of fixed size: what a diagnostics line is made with.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace Tavrik::tSystem
{

// Formats into `buffer`, which is always terminated by a zero unless `size` is 0, and returns the
// number of bytes before the terminator. Longer text is cut, never inside a UTF-8 character. The
// caller's argument list is left where it was.
//
// The conversions are those of printf, with these differences:
// - Wide text (%ls, %lc, also spelled %S, %C) comes out as UTF-8 whatever the process's locale. A
//   precision of %ls counts bytes; no character is cut by it.
// - A null string prints as "(null)".
// - %n takes its argument and does nothing.
// - What is no conversion, and the rest of the format behind it, is copied as it stands: the
//   arguments can no longer be told apart.
// - A number's width and precision count as 4,096 at most.
std::size_t FormatText(char* buffer, std::size_t size, const char* format,
                       std::va_list arguments) noexcept;

// The same, with the arguments as they are.
std::size_t FormatInto(char* buffer, std::size_t size, const char* format, ...) noexcept;

} // namespace Tavrik::tSystem
