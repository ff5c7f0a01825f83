// The doorman has no interface of its own; it is asked for `ISample`.
#pragma once

#include "OssiraBase.h"

namespace Tavrik::Samples
{

inline constexpr CLSID CLSID_Doorman = {
    0xF99C21C1, 0x8E47, 0x48A3, {0xA2, 0xC3, 0xA8, 0xD1, 0xD8, 0x58, 0xB5, 0x8B}};

} // namespace Tavrik::Samples
