// What a thread needs at its first throw. The compiler keeps the exceptions of a thread in
// variables that may come into being then, at a time when memory has just run out.
#pragma once

namespace Tavrik::tSystem
{

// Keeps what a first throw needs, until `DropThrowReserve`; false when memory is exhausted.
[[nodiscard]] bool KeepThrowReserve() noexcept;
void DropThrowReserve() noexcept;

// To be called before something is thrown.
void PrepareThrow() noexcept;

} // namespace Tavrik::tSystem
