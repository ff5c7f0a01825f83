// What others know of the module %NAME%: an interface, and the identifier of a class that offers it.
// Nobody links against the module; who includes this header creates an object by CLSID_%NAME%.
#pragma once

#include <OssiraBase.h>

namespace %NAME%Module
{

inline constexpr IID IID_I%NAME% = {
    %IID%};
inline constexpr CLSID CLSID_%NAME% = {
    %CLSID%};

struct I%NAME% : Tavrik::Ossira::IUnknown
{
    using Extends = Tavrik::Ossira::IUnknown;
    static constexpr IID Iid = IID_I%NAME%;

    // How often this object has been asked, this time included. Any thread may call.
    virtual Tavrik::Ossira::Result Count() = 0;

protected:
    ~I%NAME%() = default;
};

} // namespace %NAME%Module
