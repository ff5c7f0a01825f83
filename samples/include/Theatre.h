// The theatre's two classes, and what others can ask its lights.
#pragma once

#include "OssiraBase.h"

namespace Tavrik::Samples
{

inline constexpr CLSID CLSID_Lights = {
    0xD45430F5, 0x9E79, 0x42B6, {0x83, 0x9F, 0xB7, 0x3B, 0x2E, 0x5A, 0xD3, 0xCF}};
inline constexpr CLSID CLSID_Curtain = {
    0xB081301D, 0x85D5, 0x4460, {0xA1, 0x78, 0xB5, 0xD5, 0x09, 0x5A, 0xF8, 0x61}};
inline constexpr IID IID_ILights = {
    0x0F07322F, 0x3B6E, 0x420A, {0x9E, 0x0C, 0x0D, 0x6B, 0x01, 0xA7, 0x1A, 0xA3}};

// The lights of the house are a singleton: ask the singleton registry for `CLSID_Lights`.
struct ILights : Ossira::IUnknown
{
    using Extends = Ossira::IUnknown;
    static constexpr IID Iid = IID_ILights;

    // `S_OK` when they are on, else `S_FALSE`.
    virtual Ossira::Result IsOn() = 0;

protected:
    ~ILights() = default;
};

} // namespace Tavrik::Samples
