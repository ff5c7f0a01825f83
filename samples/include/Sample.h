// What the host `ossira` asks and takes from the classes of a module, beyond what the runtime does.
// A module that offers none of this is listed, started and cleaned up all the same; it only has
// less to say.
#pragma once

#include "OssiraBullets.h"

namespace Tavrik::Samples
{

inline constexpr IID IID_ISample = {
    0x5EFB37E1, 0xC19F, 0x44F0, {0x91, 0xBD, 0x03, 0x6D, 0x7B, 0xB6, 0x87, 0xBC}};

// An object that has a sentence to say.
struct ISample : Ossira::IUnknown
{
    using Extends = Ossira::IUnknown;
    static constexpr IID Iid = IID_ISample;

    // Writes the sentence, for a person to read, into `text` as a wide string. Null answers
    // `E_POINTER`.
    virtual Ossira::Result Describe(Ossira::IValue* text) = 0;

protected:
    ~ISample() = default;
};

// For bootstrap classes: says what `Startup` or `Cleanup` did. `param` is what the host gave the
// master bootstrap. If that is a value set, the text goes there under the class identifier, where
// the host looks for it; with any other `param` there is nobody to tell, which is no failure.
inline Ossira::Result ReportToHost(Ossira::IUnknown* param, const CLSID& clsid, const wchar_t* text)
{
    Ossira::ObjectPtr<Ossira::IValueSet> values;
    if (Ossira::Failed(Ossira::ObjectPtr(param).QueryTo(values)))
        return Ossira::S_FALSE;
    return Ossira::SetValueUniString(values.Get(), clsid, text);
}

} // namespace Tavrik::Samples
