// The registry of singletons. Objects are created and destroyed under the process-wide critical
// section, and while that happens they may call the registry on the same thread: nothing here goes
// on with what it found before such a call. A change of the table needs the spin word as well,
// which is all that the enumerators take; for reading either of the two is enough.
#include "FastCriticalSection.h"
#include "GuidEnumerable.h"
#include "Library.h"
#include "ObjectDescription.h"
#include "OssiraServices.h"

#include <vector>

namespace Tavrik::Ossira
{

namespace
{

struct SingletonTraits
{
    static constexpr CLSID ClassId = CLSID_GlobalSingleton;
    static constexpr std::string_view ClassName = "GlobalSingleton";
    using LockType = tSystem::CFastCriticalSection;
    static constexpr const std::string_view& EnumeratorClass = EnumeratorName;
    static constexpr const char* NewEnumeratorText = "new T_Enumerator";
    static constexpr bool OffersGuids = false;
    static constexpr bool ReportsEnd = true;
};

class T_GlobalSingleton
    : public ISingleton,
      public CGuidEnumerable<SingletonTraits, IEnumerable, CGuidTable<ObjectPtr<IUnknown>>>,
      public CObjectIdentity<T_GlobalSingleton>,
      public ISingletonRegistry,
      public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = SingletonTraits::ClassId;
    static constexpr std::string_view ClassName = SingletonTraits::ClassName;

    OSSIRA_INTERFACES(ISingleton, IEnumerable, IObjectIdentity, ISingletonRegistry)

    ~T_GlobalSingleton() override
    {
        InternalClear();
    }

    Result GetClassObject(const CLSID& clsid, const IID& iid, void** ppv) override;
    Result RegisterObject(const CLSID& clsid, IUnknown* obj) override;
    Result UnregisterObject(const CLSID& clsid) override;
    Result ClearObjects() override;

private:
    using Object = ObjectPtr<IUnknown>;

    // Null stands for no object.
    [[nodiscard]] Object Find(const CLSID& clsid) const OSSIRA_UNDER(GlobalCriticalSection());
    [[nodiscard]] Object Create(const CLSID& clsid, std::uint32_t mask)
        OSSIRA_UNDER(GlobalCriticalSection());
    void Enter(const CLSID& clsid, Object object) OSSIRA_UNDER(GlobalCriticalSection());
    [[nodiscard]] Object Take(const CLSID& clsid) noexcept OSSIRA_UNDER(GlobalCriticalSection());
    [[nodiscard]] std::vector<CLSID> Keys() OSSIRA_UNDER(GlobalCriticalSection());
    [[nodiscard]] bool HoldsOnlyTheFactory() const noexcept OSSIRA_UNDER(GlobalCriticalSection());
    void InternalClear() noexcept OSSIRA_UNDER(GlobalCriticalSection());
    void ClearOnce(std::uint32_t mask) noexcept OSSIRA_UNDER(GlobalCriticalSection());
    void ReleaseInOrder(std::uint32_t mask) OSSIRA_UNDER(GlobalCriticalSection());

    // For reading alone the section is enough.
    [[nodiscard]] const CGuidTable<Object>& Table() const noexcept
        OSSIRA_UNDER(GlobalCriticalSection()) OSSIRA_UNCHECKED_GUARDS
    {
        return mTable;
    }
};

T_GlobalSingleton::Object T_GlobalSingleton::Find(const CLSID& clsid) const
{
    const Object* const object = Table().Find(clsid);
    return object == nullptr ? Object() : *object;
}

void T_GlobalSingleton::Enter(const CLSID& clsid, Object object)
{
    const tSystem::CLockGuard guard(mLock);
    mTable.Insert(clsid, std::move(object));
    ++mStamp;
}

T_GlobalSingleton::Object T_GlobalSingleton::Take(const CLSID& clsid) noexcept
{
    const tSystem::CLockGuard guard(mLock);
    return mTable.Take(clsid).value_or(Object());
}

T_GlobalSingleton::Object T_GlobalSingleton::Create(const CLSID& clsid, std::uint32_t mask)
{
    // The global object factory is an ordinary one in a special place.
    const CLSID& created = SameGuid(clsid, CLSID_GlobalObjectFactory) ? CLSID_ObjectFactory : clsid;
    Object unk;
    OSSIRA_CHECK_CALL_TWICE(CreateClassObject(&created, &IID_IUnknown, unk.PutVoid()),
                            "CreateClassObject()");
    OSSIRA_CHECK(unk, E_NOINTERFACE, "CreateClassObject()");

    // While it was created, an object of this class may have been entered.
    if (Object existing = Find(clsid))
        return existing;
    Enter(clsid, unk);
    OSSIRA_PRINT(mask, PRINT_TRACE, "Singleton created %s as %s\n",
                 CObjectDescription(*unk, created).Text(), CGuidText(clsid).Text());
    return unk;
}

Result T_GlobalSingleton::GetClassObject(const CLSID& clsid, const IID& iid, void** ppv)
try
{
    const std::uint32_t mask = CurrentLevelMask();
    OSSIRA_CHECK_POINTER(ppv);
    *ppv = nullptr;
    OSSIRA_CHECK_REFERENCE(clsid);
    OSSIRA_CHECK_REFERENCE(iid);
    OSSIRA_CHECK(!SameGuid(clsid, CLSID_GlobalSingleton), E_INVALIDARG,
                 "CLSID_GlobalSingleton - cannot create singleton from singleton");
    OSSIRA_CHECK(!SameGuid(clsid, CLSID_ObjectFactory), E_INVALIDARG,
                 "CLSID_ObjectFactory is not allowd by singleton, use CLSID_GlobalObjectFactory");

    const tSystem::CLockGuard guard(GlobalCriticalSection());
    Object object = Find(clsid);
    if (!object)
        object = Create(clsid, mask);
    void* answered = nullptr;
    OSSIRA_CHECK_CALL_TWICE(object->QueryInterface(iid, &answered), "QueryInterface()");
    OSSIRA_CHECK(answered != nullptr, E_NOINTERFACE, "QueryInterface()");
    *ppv = answered;
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_GlobalSingleton::RegisterObject(const CLSID& clsid, IUnknown* obj)
try
{
    const std::uint32_t mask = CurrentLevelMask();
    OSSIRA_CHECK_POINTER(obj);
    OSSIRA_CHECK_REFERENCE(clsid);
    OSSIRA_CHECK(!SameGuid(clsid, CLSID_GlobalSingleton), E_INVALIDARG,
                 "CLSID_GlobalSingleton - cannot use singleton from singleton");

    const tSystem::CLockGuard guard(GlobalCriticalSection());
    if (Find(clsid))
    {
        OSSIRA_PRINT(mask, PRINT_WARN, "Singleton already registered: %s\n",
                     CObjectDescription(*obj, clsid).Text());
        return S_FALSE;
    }
    Enter(clsid, Object(obj));
    OSSIRA_PRINT(mask, PRINT_TRACE, "Singleton register %s\n",
                 CObjectDescription(*obj, clsid).Text());
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_GlobalSingleton::UnregisterObject(const CLSID& clsid)
try
{
    const std::uint32_t mask = CurrentLevelMask();
    const bool namesNothing = IsNullReference(clsid);
    const tSystem::CLockGuard guard(GlobalCriticalSection());
    const Object object = namesNothing ? Object() : Take(clsid);
    if (!object)
    {
        OSSIRA_PRINT(mask, PRINT_WARN, "Singleton unregister %s not found\n",
                     namesNothing ? "" : CGuidText(clsid).Text());
        return S_FALSE;
    }
    OSSIRA_PRINT(mask, PRINT_TRACE, "Singleton unregister %s\n",
                 CObjectDescription(*object, clsid).Text());
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_GlobalSingleton::ClearObjects()
try
{
    const tSystem::CLockGuard guard(GlobalCriticalSection());
    InternalClear();
    return S_OK;
}
OSSIRA_CATCH_RETURN

// Objects may enter others while they are destroyed, which are then cleared in their turn. A pair
// that keeps bringing back each other would do so for ever; it is left alone after some rounds.
void T_GlobalSingleton::InternalClear() noexcept
{
    constexpr int mostRounds = 16;
    const std::uint32_t mask = CurrentLevelMask();
    for (int round = 0; round < mostRounds; ++round)
        ClearOnce(mask);
}

// The global object factory goes last, because the objects' modules live as long as it does.
void T_GlobalSingleton::ClearOnce(std::uint32_t mask) noexcept
{
    const Object factory = Find(CLSID_GlobalObjectFactory);
    if ((mask & PRINT_PROGRESS) != 0 && factory)
    {
        OSSIRA_PRINT(mask, PRINT_TRACE, "Singleton lock object and release later: %s\n",
                     CObjectDescription(*factory, CLSID_GlobalObjectFactory).Text());
    }
    try
    {
        ReleaseInOrder(mask);
    }
    catch (const std::bad_alloc&)
    {
        // There is no memory to work out the order: then they go in any.
        CGuidTable<Object> objects;
        const tSystem::CLockGuard guard(mLock);
        mTable.Swap(objects);
    }
    if (HoldsOnlyTheFactory())
        Take(CLSID_GlobalObjectFactory).Reset();
}

// Without progress lines in descending order of the identifiers, with them in ascending order.
void T_GlobalSingleton::ReleaseInOrder(std::uint32_t mask)
{
    const bool showsProgress = (mask & PRINT_PROGRESS) != 0;
    std::vector<CLSID> keys = Keys();
    if (!showsProgress)
        std::reverse(keys.begin(), keys.end());
    for (const CLSID& key : keys)
    {
        const bool isFactory = SameGuid(key, CLSID_GlobalObjectFactory);
        const Object object = isFactory ? Find(key) : Take(key);
        if (showsProgress && object)
        {
            OSSIRA_PRINT(mask, PRINT_TRACE, "Singleton release object %s\n",
                         CObjectDescription(*object, key).Text());
        }
    }
}

std::vector<CLSID> T_GlobalSingleton::Keys()
{
    std::vector<CLSID> keys;
    CGuidPosition at;
    for (bool more = Table().First(at); more; more = Table().Next(at))
        keys.push_back(at.Key);
    return keys;
}

bool T_GlobalSingleton::HoldsOnlyTheFactory() const noexcept
{
    return Table().Size() == 1 && Table().Find(CLSID_GlobalObjectFactory) != nullptr;
}

} // namespace

OSSIRA_CLASS(T_GlobalSingleton, "GlobalSingleton")
OSSIRA_CLASS_AS(T_GlobalSingleton, CLSID_DebugSingleton, "DebugSingleton")

} // namespace Tavrik::Ossira
