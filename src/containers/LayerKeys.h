// How a value set group reads the keys of its layers. Value sets of the runtime and merged views
// answer an interface of their own for it, so that a group walks their keys in order, some at a
// time, each time under one hold of the layer's lock. A foreign layer has only its enumerator.
#pragma once

#include "OssiraCollections.h"

#include <cstring>
#include <span>

namespace Tavrik::Ossira
{

constexpr IID IID_ILayerKeys = {
    0x2C7A94D1, 0x51B8, 0x4C0E, {0xA6, 0x0B, 0x7F, 0x2D, 0x93, 0x5E, 0xC8, 0x46}};

struct ILayerKeys : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_ILayerKeys;

    // A number that differs once keys have come or gone, or 0 when there is none to tell it by.
    // Takes no lock, so that it can be read under the group's word.
    [[nodiscard]] virtual std::uint64_t KeysStamp() const noexcept = 0;

    // Writes the least keys that are greater than *above, in order, and answers how many; null
    // stands for all keys. There are no more when it answers less than there is room for. Throws
    // what a failed check throws, and `std::bad_alloc`.
    [[nodiscard]] virtual std::size_t KeysAbove(const GUID* above, std::span<GUID> keys) = 0;

protected:
    ~ILayerKeys() = default;
};

// The order of keys: that of the 16 bytes.
[[nodiscard]] inline bool KeyPrecedes(const GUID& a, const GUID& b) noexcept
{
    return std::memcmp(&a, &b, sizeof(GUID)) < 0;
}

} // namespace Tavrik::Ossira
