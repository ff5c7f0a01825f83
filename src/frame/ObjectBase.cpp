// The parts of the object base that need not be inline: the private unknown, and the name and
// identity that most classes offer in the same way.
#include "ComServer.h"
#include "FastCriticalSection.h"
#include "OssiraFrame.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace Tavrik::Ossira
{

namespace
{

// Of all objects of the module: names are rarely asked for, and an object has no room to spare.
constinit tSystem::CFastCriticalSection gNameLock;

// The way to an object's name.
template <class Name>
[[nodiscard]] Name& Guarded(Name& name) noexcept OSSIRA_UNDER(gNameLock)
{
    return name;
}

} // namespace

// A build option, on in debug builds: every birth and death then takes a lock.
const bool tDetail::TracksObjects = OSSIRA_TRACK_OBJECTS != 0;

void tDetail::AnnounceBirth(IUnknown* privateUnknown, const CLSID& clsid) noexcept
{
    if (CComServer* const server = ModuleServer(); server != nullptr)
        server->AddObject(privateUnknown, clsid);
}

void tDetail::AnnounceDeath(IUnknown* privateUnknown) noexcept
{
    if (CComServer* const server = ModuleServer(); server != nullptr)
        server->RemoveObject(privateUnknown);
}

COssiraUnknown& CPrivateUnknown::Owner() noexcept
{
// Every class of the base's kind has one layout in the compilers of this system, whatever the
// language leaves open.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
    constexpr std::size_t distance = offsetof(COssiraUnknown, mPrivateUnknown);
    // What makes the layout what it is said to be: nothing between the tables and the count, and
    // the base's last four bytes free for a lock.
    static_assert(distance == sizeof(void*) &&
                  offsetof(COssiraUnknown, mCount) == 2 * sizeof(void*) &&
                  sizeof(COssiraUnknown) == 3 * sizeof(void*));
#pragma GCC diagnostic pop
    return *reinterpret_cast<COssiraUnknown*>(reinterpret_cast<unsigned char*>(this) - distance);
}

Result CPrivateUnknown::QueryInterface(const IID& iid, void** out)
{
    return Owner().NonDelegatingQueryInterface(iid, out);
}

std::uint32_t CPrivateUnknown::AddRef()
{
    return static_cast<std::uint32_t>(Owner().InternalAddRef());
}

std::uint32_t CPrivateUnknown::Release()
{
    COssiraUnknown& owner = Owner();
    const std::int32_t count = owner.InternalRelease();
    if (count == 0)
    {
        owner.BeginDestruction();
        delete &owner;
    }
    return static_cast<std::uint32_t>(count);
}

Result COssiraUnknown::AnswerPrivateUnknown(const IID& iid, void** out) noexcept
{
    if (out == nullptr || IsNullReference(iid))
        return RefuseQuery(out);
    if (!SameGuid(iid, IID_IUnknown))
    {
        *out = nullptr;
        return E_NOINTERFACE;
    }
    *out = &mPrivateUnknown;
    CountUp();
    return S_OK;
}

Result COssiraUnknown::RefuseQuery(void** out) noexcept
{
    if (out != nullptr)
        *out = nullptr;
    return E_POINTER;
}

Result CObjectName::SetObjectName(const char* name)
try
{
    const std::size_t size = name == nullptr ? 0 : std::strlen(name) + 1;
    std::unique_ptr<char[]> copy;
    if (size > 1)
    {
        copy = std::make_unique<char[]>(size);
        std::memcpy(copy.get(), name, size);
    }
    const tSystem::CLockGuard guard(gNameLock);
    Guarded(mName).swap(copy);
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result CObjectName::GetObjectName(char* buffer, std::int32_t size)
{
    if (buffer != nullptr && size < 0)
        return E_INVALIDARG;
    const tSystem::CLockGuard guard(gNameLock);
    const char* const text = Guarded(mName).get();
    const std::string_view name = text == nullptr ? std::string_view() : text;
    const auto length = static_cast<std::int32_t>(name.size());
    if (buffer == nullptr)
        return length;
    const std::int32_t copied = std::min(length, size);
    std::copy_n(name.data(), copied, buffer);
    if (copied < size)
        buffer[copied] = '\0';
    return copied;
}

Result AnswerClassID(const CLSID& own, CLSID* clsid) noexcept
{
    if (clsid == nullptr)
        return E_POINTER;
    *clsid = own;
    return S_OK;
}

Result AnswerClassName(std::string_view own, char* buffer, std::int32_t size) noexcept
{
    const auto length = static_cast<std::int32_t>(own.size());
    if (buffer == nullptr)
        return length;
    if (size < length)
        return E_INVALIDARG;
    std::copy_n(own.data(), length, buffer);
    if (size > length) // a buffer of exactly the length receives no terminator
        buffer[length] = '\0';
    return length;
}

} // namespace Tavrik::Ossira
