// The colour: a datatype of four numbers. Whoever has values of it needs no more than this; to
// compare colours or to mix them, ask the datatypes service.
#pragma once

#include "OssiraBase.h"

namespace Tavrik::Samples
{

inline constexpr GUID DATATYPE_Colour = {
    0xF0C82BF0, 0x55B7, 0x4102, {0xAF, 0xEA, 0x0D, 0x7C, 0x49, 0x54, 0x8C, 0x3A}};
inline constexpr CLSID CLSID_ColourDatatypes = {
    0x7A3E39D6, 0xAA3F, 0x4D19, {0x96, 0x46, 0x0B, 0xCA, 0x20, 0x07, 0x31, 0x64}};

// A datum of the datatype, in linear light.
struct Colour
{
    float Red;
    float Green;
    float Blue;
    float Alpha;
};

static_assert(sizeof(Colour) == 16);

} // namespace Tavrik::Samples
