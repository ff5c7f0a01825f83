// Whether a sanitizer watches the heap of this build.
#pragma once

namespace Tavrik::tSystem
{

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool IsSanitized = true;
#else
inline constexpr bool IsSanitized = false;
#endif

} // namespace Tavrik::tSystem
