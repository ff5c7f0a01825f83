// The component server of this module: the class table, the creation of objects and the count of
// live ones. Objects are counted, not references: the module may be unloaded when no object is
// left.
#include "ComServer.h"

#include "Library.h"
#include "ObjectAddress.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <mutex>

namespace Tavrik::Ossira
{

namespace
{

// Entries link themselves while the module's static objects are built, in an order that nobody
// knows; this head needs no construction itself.
constinit const ClassEntry* gClassListHead = nullptr;

[[nodiscard]] std::size_t HashOf(const GUID& guid) noexcept
{
    const auto halves = std::bit_cast<std::array<std::uint64_t, 2>>(guid);
    return static_cast<std::size_t>(((halves[0] ^ halves[1]) * 0x9E3779B97F4A7C15u) >> 32);
}

} // namespace

ClassEntry::ClassEntry(const CLSID& clsid, ClassCreator creator, const char* text) noexcept
    : ClassId(clsid), Next(gClassListHead), Creator(creator), Text(text)
{
    gClassListHead = this;
}

CComServer::CComServer() noexcept
{
    BuildClassTable();
}

const ClassEntry* CComServer::ClassListHead() noexcept
{
    return gClassListHead;
}

void CComServer::BuildClassTable() noexcept
{
    mSortedClasses.reset();
    mClassIndex.reset();
    mClassCount = 0;
    mListHeadSeen = gClassListHead;

    std::uint32_t count = 0;
    for (const ClassEntry* entry = gClassListHead; entry != nullptr; entry = entry->Next)
        ++count;

    const std::size_t slots = std::bit_ceil(std::size_t{2} * count + 1);
    std::unique_ptr<const ClassEntry*[]> sorted(new (std::nothrow) const ClassEntry*[count]());
    std::unique_ptr<const ClassEntry*[]> index(new (std::nothrow) const ClassEntry*[slots]());
    if (sorted == nullptr || index == nullptr)
        return;

    std::uint32_t filled = 0;
    for (const ClassEntry* entry = gClassListHead; entry != nullptr; entry = entry->Next)
    {
        sorted[filled++] = entry;
        std::size_t slot = HashOf(entry->ClassId) & (slots - 1);
        while (index[slot] != nullptr)
            slot = (slot + 1) & (slots - 1);
        index[slot] = entry;
    }
    std::sort(sorted.get(), sorted.get() + count,
              [](const ClassEntry* a, const ClassEntry* b)
              { return std::memcmp(&a->ClassId, &b->ClassId, sizeof(CLSID)) < 0; });

    mSortedClasses = std::move(sorted);
    mClassIndex = std::move(index);
    mClassIndexMask = slots - 1;
    mClassCount = count;
}

const ClassEntry* CComServer::FindClass(const CLSID& clsid) noexcept
{
    BuildClassTableIfStale();
    if (mClassCount == 0)
        return nullptr;
    for (std::size_t slot = HashOf(clsid);; ++slot)
    {
        const ClassEntry* const entry = mClassIndex[slot & mClassIndexMask];
        if (entry == nullptr || SameGuid(entry->ClassId, clsid))
            return entry;
    }
}

Result CComServer::GetClassObject(const CLSID& clsid, const IID& iid, void** out)
{
    return CreateObject(FindClass(clsid), clsid, iid, out);
}

Result CComServer::CreateObject(const ClassEntry* entry, const CLSID& clsid, const IID& iid,
                                void** out)
{
    const std::uint32_t mask = CurrentLevelMask();
    if (entry == nullptr)
    {
        OSSIRA_PRINT(mask, PRINT_ERROR, "No such class available: CLSID %s\n",
                     CGuidText(clsid).Text());
        return E_NOINTERFACE;
    }

    COssiraUnknown* object = nullptr;
    Result result = entry->Creator(nullptr, &object);
    if (Failed(result))
    {
        OSSIRA_PRINT(mask, PRINT_ERROR, "Create Object failed: %s - CLSID %s\n", entry->Text,
                     CGuidText(clsid).Text());
        return result;
    }

    object->TakeFirstReference();
    result = object->NonDelegatingQueryInterface(iid, out);
    if (Failed(result))
    {
        OSSIRA_PRINT(mask, PRINT_WARN, "No such interface available: %s - CLSID %s, IID %s\n",
                     entry->Text, CGuidText(clsid).Text(), CGuidText(iid).Text());
    }
    if (object->DropFirstReference(Succeeded(result)) == 0)
        delete object;
    if (Succeeded(result))
    {
        OSSIRA_PRINT(mask, PRINT_TRACE, "Object 0x%x created; %s - CLSID: %s IID: %s\n",
                     LowAddress(*out), entry->Text, CGuidText(clsid).Text(), CGuidText(iid).Text());
    }
    return result;
}

Result CComServer::CanUnloadNow()
{
    return mOpenObjectCount.load() != 0 ? S_FALSE : S_OK;
}

Result CComServer::GetOpenObjectCount()
{
    return static_cast<Result>(mOpenObjectCount.load());
}

Result CComServer::GetClassCount()
{
    BuildClassTableIfStale();
    return static_cast<Result>(mClassCount);
}

Result CComServer::GetClassObjectID(std::uint32_t first, std::uint32_t count, CLSID* out)
{
    BuildClassTableIfStale();
    if (count > mClassCount || first > mClassCount - count) // first + count could wrap
        return E_INVALIDARG;
    for (std::uint32_t at = 0; at < count; ++at)
        out[at] = mSortedClasses[first + at]->ClassId;
    return S_OK;
}

Result CComServer::GetClassObjectInfo(std::uint32_t index, char* buffer, std::uint32_t size)
{
    BuildClassTableIfStale();
    // The size is a signed number to some callers: a negative one is no room either.
    if (index >= mClassCount || static_cast<std::int32_t>(size) < 1)
        return E_INVALIDARG;
    buffer[0] = '\0';
    const char* const text = mSortedClasses[index]->Text;
    if (text == nullptr)
        return S_OK;
    if (const std::size_t length = std::strlen(text); length < size)
        std::memcpy(buffer, text, length + 1);
    return S_OK;
}

Result CComServer::AddObject(IUnknown* privateUnknown, const CLSID& clsid)
{
    mOpenObjectCount.fetch_add(1, std::memory_order_relaxed);
    if (mTrackObjects) [[unlikely]]
        Track(privateUnknown, clsid);
    return S_OK;
}

Result CComServer::RemoveObject(IUnknown* privateUnknown)
{
    if (mTrackObjects) [[unlikely]]
        Untrack(privateUnknown);
    mOpenObjectCount.fetch_sub(1, std::memory_order_release);
    return S_OK;
}

void CComServer::Track(IUnknown* privateUnknown, const CLSID& clsid) noexcept
try
{
    const tSystem::CLockGuard guard(mLock);
    if (!mLiveObjects.emplace(privateUnknown, clsid).second)
        DebugOutputF("\aCComServer::AddObject: Object already exists\n");
}
catch (const std::bad_alloc&)
{
    // The object lives all the same; the list of live objects will lack it.
}

void CComServer::Untrack(IUnknown* privateUnknown) noexcept
{
    const tSystem::CLockGuard guard(mLock);
    mLiveObjects.erase(privateUnknown);
}

Result CComServer::IsForeignClass(const CLSID& clsid)
{
    return FindClass(clsid) == nullptr ? 1 : 0;
}

void CComServer::DumpLiveObjects(bool processEnds) noexcept
{
    const std::unique_lock guard(mLock, std::try_to_lock);
    if (!guard.owns_lock())
        return;
    // Objects ask for their names under this lock; without it the names stay out.
    const std::unique_lock nameGuard(GlobalCriticalSection(), std::try_to_lock);

    bool isFirst = true;
    for (const auto& [object, clsid] : mLiveObjects)
    {
        // Where other threads still run, one of them may have given back the last reference a
        // moment ago: the one taken here stays, or the object would be destroyed twice.
        const std::int32_t count = static_cast<std::int32_t>(object->AddRef()) - 1;
        if (processEnds && IsHeldByLibrary(object))
            continue;
        if (isFirst)
            DebugOutputF("\aComServer ALive Objects:\n");
        isFirst = false;

        char name[256] = {};
        ObjectPtr<IObjectName> objectName;
        if (nameGuard.owns_lock() &&
            Succeeded(object->QueryInterface(IID_IObjectName, objectName.PutVoid())))
            objectName->GetObjectName(name, 255);
        objectName.Reset();
        if (!processEnds)
            object->Release();

        if (const ClassEntry* const entry = FindClass(clsid); entry != nullptr)
        {
            DebugOutputF("  0x%08x: \"%s\" %s %s (%d cnt)\n", LowAddress(object), name, entry->Text,
                         CGuidText(clsid).Text(), count);
        }
        else
        {
            DebugOutputF("  0x%08x: \"%s\" %s (%d cnt)\n", LowAddress(object), name,
                         CGuidText(clsid).Text(), count);
        }
    }
    if (!isFirst)
        DebugOutputF("\n");
}

void CComServer::Destroy()
{
    DumpLiveObjects(false);
    delete this;
}

} // namespace Tavrik::Ossira
