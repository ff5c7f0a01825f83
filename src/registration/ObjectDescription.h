// What a diagnostics line says of an object: its address, its name, its class.
#pragma once

#include "ObjectAddress.h"
#include "OssiraDiagnostics.h"
#include "OssiraObject.h"
#include "OssiraPointer.h"

#include <cstdio>

namespace Tavrik::Ossira
{

class CObjectDescription
{
public:
    CObjectDescription(IUnknown& object, const CLSID& clsid)
    {
        mLength = static_cast<std::size_t>(
            std::snprintf(mText, sizeof mText, "0x%08x ", LowAddress(&object)));
        if (ObjectPtr<IObjectName> name;
            Succeeded(object.QueryInterface(IID_IObjectName, name.PutVoid())) && name)
            Keep(name->GetObjectName(mText + mLength, Room()));
        if (ObjectPtr<IObjectIdentity> identity;
            Succeeded(object.QueryInterface(IID_IObjectIdentity, identity.PutVoid())) && identity)
            Keep(identity->GetObjectClassName(mText + mLength, Room()));
        constexpr std::size_t roomForGuid = 40;
        if (sizeof mText - mLength >= roomForGuid)
            std::snprintf(mText + mLength, sizeof mText - mLength, "%s", CGuidText(clsid).Text());
    }

    [[nodiscard]] const char* Text() const noexcept
    {
        return mText;
    }

private:
    // For a text and what follows it, a blank and the terminating zero.
    [[nodiscard]] std::int32_t Room() const noexcept
    {
        return static_cast<std::int32_t>(sizeof mText - mLength) - 2;
    }

    // Takes in what an object wrote, if the length that it answers can be.
    void Keep(Result length) noexcept
    {
        if (length > 0 && length <= Room())
        {
            mLength += static_cast<std::size_t>(length);
            mText[mLength++] = ' ';
        }
        mText[mLength] = '\0';
    }

    char mText[128] = {};
    std::size_t mLength = 0;
};

} // namespace Tavrik::Ossira
