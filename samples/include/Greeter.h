// The greeter: what it is called, and what it can do.
#pragma once

#include "OssiraValue.h"

namespace Tavrik::Samples
{

inline constexpr CLSID CLSID_Greeter = {
    0xF4B84228, 0xFC62, 0x4C64, {0xAC, 0x31, 0x7C, 0x7A, 0xCC, 0x0B, 0xCA, 0x16}};
inline constexpr IID IID_IGreeter = {
    0x604FEC18, 0xFE04, 0x49BF, {0x82, 0xDA, 0x42, 0x64, 0x89, 0x36, 0xBD, 0x0A}};

struct IGreeter : Ossira::IUnknown
{
    using Extends = Ossira::IUnknown;
    static constexpr IID Iid = IID_IGreeter;

    // Writes a greeting for `name` into `greeting` as a wide string. Null pointers answer
    // `E_POINTER`, an empty name `E_INVALIDARG`.
    virtual Ossira::Result Greet(const wchar_t* name, Ossira::IValue* greeting) = 0;

protected:
    ~IGreeter() = default;
};

} // namespace Tavrik::Samples
