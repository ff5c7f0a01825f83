// A path as the system calls take it.
#pragma once

#include <string>
#include <string_view>

namespace Tavrik::tSystem
{

// The path's bytes up to its first zero, with a slash for every separator. Throws `std::bad_alloc`.
[[nodiscard]] std::string NativePath(std::wstring_view path);

} // namespace Tavrik::tSystem
