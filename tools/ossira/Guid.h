// Identifiers: fresh ones, and their texts.
#pragma once

#include "OssiraBase.h"

#include <optional>
#include <string>

namespace Tavrik::tHost
{

// A random one, as nobody else will ever make it.
[[nodiscard]] GUID NewGuid();

// "{0x86B24C4B, 0xFE4D, 0x4361, {0x99, 0x86, 0xE4, 0x0D, 0xCA, 0xAA, 0x0D, 0x0F}}".
[[nodiscard]] std::string GuidInitializer(const GUID& guid);

// From the text, with or without braces; nothing when it is no identifier.
[[nodiscard]] std::optional<GUID> ParseGuid(std::string text);

} // namespace Tavrik::tHost
