// The component server of this module: the class table, the creation of objects and the count of
// live ones. Objects are counted, not references: the module may be unloaded when no object is
// left.
#include "ComServer.h"

#include "Library.h"
#include "ObjectAddress.h"
#include "ObjectMemory.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <mutex>

namespace Tavrik::Ossira
{

namespace
{

// Leaves the name empty when the object has none, or throws.
template <std::size_t Size>
void AskName(IUnknown& object, char (&name)[Size])
try
{
    ObjectPtr<IObjectName> objectName;
    if (Succeeded(object.QueryInterface(IID_IObjectName, objectName.PutVoid())) && objectName)
        objectName->GetObjectName(name, static_cast<std::int32_t>(Size - 1));
}
catch (const std::exception&)
{
}

} // namespace

ClassEntry::ClassEntry(const CLSID& clsid, ClassCreator creator, const char* text,
                       Ossira::AnswerCreator answerCreator) noexcept
    : ClassId(clsid), Next(CComServer::sClassListHead), Creator(creator), Text(text),
      AnswerCreator(answerCreator)
{
    CComServer::sClassListHead = this;
}

CComServer* CComServer::Create() noexcept
{
    std::unique_ptr<CComServer> server(new (std::nothrow) CComServer);
    return server != nullptr && server->BuildClassTable() ? server.release() : nullptr;
}

bool CComServer::BuildClassTable() noexcept
{
    std::uint32_t count = 0;
    for (const ClassEntry* entry = sClassListHead; entry != nullptr; entry = entry->Next)
        ++count;

    const std::size_t slots = std::bit_ceil(std::size_t{2} * count + 1);
    std::unique_ptr<const ClassEntry*[]> sorted(new (std::nothrow) const ClassEntry*[count]());
    std::unique_ptr<const ClassEntry*[]> index(new (std::nothrow) const ClassEntry*[slots]());
    if (sorted == nullptr || index == nullptr)
        return false;

    std::uint32_t filled = 0;
    for (const ClassEntry* entry = sClassListHead; entry != nullptr; entry = entry->Next)
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
    mListHeadSeen = sClassListHead;
    return true;
}

Result CComServer::GetClassObject(const CLSID& clsid, const IID& iid, void** out)
{
    return CreateObject(FindClass(clsid), clsid, iid, out);
}

// The answer is the class's own code.
static Result Ask(IUnknown& object, const IID& iid, void** out)
try
{
    return object.QueryInterface(iid, out);
}
OSSIRA_CATCH_RETURN

// For a class whose answers may be wrong: success comes with an interface.
static ECreation CreateAndAsk(const ClassEntry& entry, const IID& iid, void** out, Result& result)
{
    COssiraUnknown* made = nullptr;
    result = entry.Creator(nullptr, &made);
    if (Failed(result))
        return ECreation::Unmade;
    const ObjectPtr<IUnknown> object(made->PrivateUnknown());
    result = Ask(*object, iid, out);
    if (Succeeded(result) && *out == nullptr)
        result = E_UNEXPECTED;
    return Failed(result) ? ECreation::Refused : ECreation::Answered;
}

Result CComServer::CreateObjectInFull(const ClassEntry* entry, const CLSID& clsid, const IID& iid,
                                      void** out)
try
{
    *out = nullptr;
    if (entry == nullptr)
    {
        OSSIRA_PRINT(CurrentLevelMask(), PRINT_ERROR, "No such class available: CLSID %s\n",
                     CGuidText(clsid).Text());
        return E_NOINTERFACE;
    }
    Result result = S_OK;
    const ECreation creation = CreateAndAsk(*entry, iid, out, result);
    return ReportCreation(*entry, iid, out, creation, result);
}
OSSIRA_CATCH_RETURN

[[gnu::cold]] Result ReportCreation(const ClassEntry& entry, const IID& iid, void** out,
                                    ECreation creation, Result result)
try
{
    const std::uint32_t mask = CurrentLevelMask();
    const CGuidText clsid(entry.ClassId);
    switch (creation)
    {
    case ECreation::Unmade:
        *out = nullptr;
        OSSIRA_PRINT(mask, PRINT_ERROR, "Create Object failed: %s - CLSID %s\n", entry.Text,
                     clsid.Text());
        break;
    case ECreation::Refused:
        *out = nullptr;
        OSSIRA_PRINT(mask, PRINT_WARN, "No such interface available: %s - CLSID %s, IID %s\n",
                     entry.Text, clsid.Text(), CGuidText(iid).Text());
        break;
    case ECreation::Answered:
        OSSIRA_PRINT(mask, PRINT_TRACE, "Object 0x%x created; %s - CLSID: %s IID: %s\n",
                     LowAddress(*out), entry.Text, clsid.Text(), CGuidText(iid).Text());
        break;
    }
    return result;
}
OSSIRA_CATCH_RETURN

Result CComServer::CanUnloadNow()
{
    GiveBackObjectMemory();
    return OpenObjectCount() != 0 ? S_FALSE : S_OK;
}

Result CComServer::GetOpenObjectCount()
{
    return static_cast<Result>(OpenObjectCount());
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
    Track(privateUnknown, clsid);
    return S_OK;
}

Result CComServer::RemoveObject(IUnknown* privateUnknown)
{
    Untrack(privateUnknown);
    return S_OK;
}

void CComServer::Track(IUnknown* privateUnknown, const CLSID& clsid) noexcept
try
{
    bool isNew = false;
    {
        const tSystem::CLockGuard guard(mLock);
        isNew = mLiveObjects.emplace(privateUnknown, clsid).second;
    }
    if (!isNew)
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

IUnknown* CComServer::NextLiveObject(IUnknown* behind, bool processEnds, CLSID& clsid,
                                     std::int32_t& count) noexcept
{
    std::unique_lock guard(mLock, std::defer_lock);
    if (!processEnds)
        guard.lock();
    constexpr int patience = 1000; // for a thread that runs on and will give it back
    for (int attempt = 0; !guard.owns_lock() && attempt < patience && !guard.try_lock(); ++attempt)
        tSystem::Pause();
    if (!guard.owns_lock())
        return nullptr;
    for (auto at = mLiveObjects.upper_bound(behind); at != mLiveObjects.end(); ++at)
    {
        // Where other threads still run, one of them may have given back the last reference a
        // moment ago; that object is as good as gone.
        count = static_cast<std::int32_t>(at->first->AddRef()) - 1;
        if (count <= 0)
            continue;
        clsid = at->second;
        return at->first;
    }
    return nullptr;
}

// No spin word is held while an object is asked for its name: it may make other objects and end
// some. Each is looked up anew, and at most twice as many as there were, so that it comes to an
// end.
void CComServer::DumpLiveObjects(bool processEnds) noexcept
{
    // Objects ask for their names under this lock; without it the names stay out.
    const std::unique_lock nameGuard(GlobalCriticalSection(), std::try_to_lock);

    CLSID clsid = {};
    std::int32_t count = 0;
    bool isFirst = true;
    IUnknown* object = nullptr;
    for (std::uint64_t left = std::uint64_t{2} * OpenObjectCount(); left > 0; --left)
    {
        object = NextLiveObject(object, processEnds, clsid, count);
        if (object == nullptr)
            break;
        if (processEnds && IsHeldByLibrary(object))
            continue;
        if (isFirst)
            DebugOutputF("\aComServer ALive Objects:\n");
        isFirst = false;

        char name[256] = {};
        if (nameGuard.owns_lock())
            AskName(*object, name);
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
    delete this;
}

} // namespace Tavrik::Ossira
