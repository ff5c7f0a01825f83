// The classes of the module whose copies are registered. The copies get identifiers of their own.
#pragma once

#include "OssiraBase.h"

namespace Tavrik::Ossira::tBench
{

inline constexpr CLSID CLSID_BenchFirst = {
    0x98105128, 0xB431, 0x4FE6, {0x8F, 0x0E, 0x3C, 0xA2, 0x01, 0x2F, 0xBB, 0xB1}};
inline constexpr CLSID CLSID_BenchSecond = {
    0xCF2E64A3, 0x6D4B, 0x452C, {0x8E, 0x9F, 0xD3, 0xAC, 0x56, 0x31, 0x9D, 0x5B}};

} // namespace Tavrik::Ossira::tBench
