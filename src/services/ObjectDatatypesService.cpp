// The directory of datatypes: a lockable dictionary of providers. Providers are asked with no lock
// of the service held; what they answered is entered under its section. The first question fills
// the directory under the process-wide section, as singletons are made: other threads that ask wait
// for that, and the thread that installs, whose providers may ask the service while they are
// created, finds it as far as it got.
#include "OssiraBullets.h"
#include "OssiraDatatypes.h"
#include "OssiraFrame.h"
#include "PublicUtil.h"

namespace Tavrik::Ossira
{

namespace
{

constexpr const char* NullTypeText = "GUID_Null for dataType not allowed";

class T_DatatypesService : public IDatatypesService,
                           public CObjectIdentity<T_DatatypesService>,
                           public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_DatatypesService;
    static constexpr std::string_view ClassName = "DatatypesService";

    OSSIRA_INTERFACES(IDatatypesService, IObjectIdentity)

    T_DatatypesService();

    Result GetEnumerator(const IID& riid, void** ppv) override;
    Result Contains(const GUID& dataType) override;
    Result GetCharacteristics(const GUID& dataType, DatatypeCharacteristics* pInfo) override;
    Result ValueCompare(const GUID& dataType, const void* dataA, std::uint32_t sizeA,
                        const void* dataB, std::uint32_t sizeB, std::int32_t* result) override;
    Result ValueLerp(const GUID& dataType, const void* dataA, std::uint32_t sizeA,
                     const void* dataB, std::uint32_t sizeB, double t, void* dataR,
                     std::uint32_t sizeR) override;

    Result RegisterDatatype(const GUID& dataType, IDatatypes* pType) override;
    Result RegisterDatatypes(IDatatypes* pTypes) override;
    Result UnregisterDatatype(const GUID& dataType) override;
    Result UnregisterDatatypes(IDatatypes* pTypes) override;
    Result ClearDatatypes() override;
    Result GetDatatype(const GUID& dataType, IDatatypes** ppType) override;

private:
    enum class EInstallation : std::uint8_t
    {
        Pending,
        UnderWay,
        Over
    };

    void EnsureInstalled();
    [[nodiscard]] ObjectPtr<IDatatypes> FindDatatype(const GUID& dataType);
    [[nodiscard]] ObjectPtr<IDatatypes> InternalGetDatatype(const GUID& dataType);
    [[nodiscard]] bool IsThis(IDatatypes* types) noexcept;

    // Who registers: a caller, or the installation, which is over when the directory was cleared.
    enum class ESource : std::uint8_t
    {
        Caller,
        Installation
    };

    Result InstallIntrinsic() OSSIRA_UNDER(GlobalCriticalSection());
    Result InstallRegistered() OSSIRA_UNDER(GlobalCriticalSection());
    void InternalRegisterDatatype(IDatatypes* pTypes, ESource source);
    void InternalRegisterDatatype(const GUID& dataType, IDatatypes* pType, ESource source);
    void InternalUngegisterDatatype(const GUID& dataType);
    [[nodiscard]] bool IsOverFor(ESource source) const noexcept OSSIRA_UNDER(mSection);
    void EndInstallation() noexcept OSSIRA_UNDER(mSection);
    [[nodiscard]] bool Enter(const GUID& dataType, IDatatypes* pType, ESource source);

    tSystem::CCriticalSection mSection; // held while something is entered; no provider is called
    ObjectPtr<IDictionaryGUID> mTable;
    std::atomic<EInstallation> mInstallation = EInstallation::Pending;
};

[[nodiscard]] bool Holds(IDictionaryGUID& table, const GUID& dataType)
{
    return table.ContainsGUID(dataType) == S_OK;
}

// What is answered to a call, which is made again if it fails.
template <class Call>
[[nodiscard]] Result AnswerTo(Call call, const char* text)
{
    Result answer = S_OK;
    OSSIRA_CHECK_CALL_TWICE(answer = call(), text);
    return answer;
}

template <class Work>
void ForEachGUID(IEnumeratorGUID& enumerator, Work work)
{
    while (AnswerTo([&] { return enumerator.MoveNext(); }, "MoveNext") == S_OK)
    {
        GUID guid = GUID_Null;
        OSSIRA_CHECK_CALL_TWICE(enumerator.GetCurrentGUID(&guid), "GetCurrentGUID");
        work(guid);
    }
}

// Hands every datatype of a provider to `work`.
template <class Work>
void ForEachDatatype(IDatatypes& types, Work work)
{
    ObjectPtr<IEnumeratorGUID> enumerator;
    OSSIRA_CHECK_CALL_TWICE(types.GetEnumerator(IID_IEnumeratorGUID, enumerator.PutVoid()),
                            "GetEnumerator");
    OSSIRA_CHECK(enumerator, E_NOINTERFACE, "GetEnumerator");
    ForEachGUID(*enumerator, work);
}

// A description whose name is fit to be printed, whoever filled it.
class CPrintableInfo
{
public:
    CPrintableInfo(IDatatypes& provider, const GUID& dataType)
    {
        OSSIRA_CHECK_CALL_TWICE(provider.GetCharacteristics(dataType, &mInfo),
                                "GetCharacteristics");
        mInfo.Name[sizeof(mInfo.Name) - 1] = '\0';
    }

    [[nodiscard]] const char* Name() const noexcept
    {
        return mInfo.Name;
    }

private:
    DatatypeCharacteristics mInfo = {};
};

T_DatatypesService::T_DatatypesService()
{
    OSSIRA_CHECK_CALL_TWICE(CreateObject(CLSID_LockableDictionaryGUID, mTable),
                            "CreateLockableDictionaryGUID");
}

// --- Installation -------------------------------------------------------------------------------

// Tried once, but for shortage of memory, which may be over at the next question. What else came of
// it is reported and does not concern the question that is being asked.
void T_DatatypesService::EnsureInstalled()
{
    if (mInstallation.load(std::memory_order_acquire) == EInstallation::Over)
        return;
    const tSystem::CLockGuard singletons(GlobalCriticalSection());
    EInstallation state = EInstallation::Pending;
    if (!mInstallation.compare_exchange_strong(state, EInstallation::UnderWay))
        return; // over meanwhile, or it is the thread that installs
    const Result intrinsic = InstallIntrinsic();
    const Result result = Failed(intrinsic) ? intrinsic : InstallRegistered();
    state = EInstallation::UnderWay; // else the directory was cleared
    mInstallation.compare_exchange_strong(state, result == E_OUTOFMEMORY ? EInstallation::Pending
                                                                         : EInstallation::Over);
    // Whatever would be answered without the runtime's own datatypes would be wrong.
    OSSIRA_CHECK(intrinsic != E_OUTOFMEMORY, E_OUTOFMEMORY, "InstallDatatypes");
}

Result T_DatatypesService::InstallIntrinsic()
try
{
    const std::uint32_t mask = CurrentLevelMask();
    OSSIRA_PRINT(mask, PRINT_TRACE, "\n");
    OSSIRA_PRINT(mask, PRINT_TRACE, "--- Register Intrinsic-Datatypes ---\n");
    ObjectPtr<IDatatypes> provider;
    OSSIRA_CHECK_CALL_TWICE(CreateSingleton(CLSID_IntrinsicDatatypes, provider),
                            "CreateSingletonIntrinsicDatatypes");
    InternalRegisterDatatype(provider.Get(), ESource::Installation);
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_DatatypesService::InstallRegistered()
try
{
    const std::uint32_t mask = CurrentLevelMask();
    ObjectPtr<IClsidRegistry> registry;
    OSSIRA_CHECK_CALL_TWICE(CreateSingleton(CLSID_ClsidRegistry, registry),
                            "CreateSingletonClsidRegistry");
    if (registry->ContainsCategory(REGCAT_Datatypes) == S_FALSE)
    {
        OSSIRA_PRINT(mask, PRINT_TRACE,
                     "REGCAT_Datatypes is empty - No further registered IDatatypes\n");
        return S_OK;
    }
    ObjectPtr<IEnumeratorGUID> classes;
    OSSIRA_CHECK_CALL_TWICE(
        registry->GetClasses(REGCAT_Datatypes, IID_IEnumeratorGUID, classes.PutVoid()),
        "GetClasses");
    ForEachGUID(*classes,
                [&](const CLSID& clsid)
                {
                    ObjectPtr<IDatatypes> provider;
                    OSSIRA_CHECK_CALL(CreateObject(clsid, provider),
                                      "Could not create Datatypes-Object");
                    InternalRegisterDatatype(provider.Get(), ESource::Installation);
                });
    return S_OK;
}
OSSIRA_CATCH_RETURN

void T_DatatypesService::InternalRegisterDatatype(IDatatypes* pTypes, ESource source)
{
    ForEachDatatype(*pTypes, [&](const GUID& dataType)
                    { InternalRegisterDatatype(dataType, pTypes, source); });
}

void T_DatatypesService::InternalRegisterDatatype(const GUID& dataType, IDatatypes* pType,
                                                  ESource source)
{
    const std::uint32_t mask = CurrentLevelMask();
    OSSIRA_CHECK(!SameGuid(dataType, GUID_Null), E_INVALIDARG, NullTypeText);
    tSystem::CheckForeignCall();
    OSSIRA_CHECK(pType->Contains(dataType) == S_OK, E_INVALIDARG,
                 "Could not find dataType in pType");
    if (!Holds(*mTable, dataType))
    {
        OSSIRA_PRINT(mask, PRINT_TRACE, "Register \"%s\" Datatype [%s]\n",
                     CPrintableInfo(*pType, dataType).Name(), CGuidText(dataType).Text());
        if (Enter(dataType, pType, source))
            return;
    }
    OSSIRA_PRINT(mask, PRINT_WARN, "Datatype \"%s\" already registerd [%s]\n",
                 CPrintableInfo(*pType, dataType).Name(), CGuidText(dataType).Text());
}

bool T_DatatypesService::IsOverFor(ESource source) const noexcept
{
    return source == ESource::Installation && mInstallation == EInstallation::Over;
}

void T_DatatypesService::EndInstallation() noexcept
{
    mInstallation = EInstallation::Over;
}

// False when another thread was faster.
bool T_DatatypesService::Enter(const GUID& dataType, IDatatypes* pType, ESource source)
{
    const tSystem::CLockGuard guard(mSection);
    if (IsOverFor(source))
        return true;
    if (Holds(*mTable, dataType))
        return false;
    OSSIRA_CHECK_CALL_TWICE(mTable->SetValueGUID(dataType, pType), "SetValueGUID");
    return true;
}

void T_DatatypesService::InternalUngegisterDatatype(const GUID& dataType)
{
    const std::uint32_t mask = CurrentLevelMask();
    OSSIRA_CHECK(!SameGuid(dataType, GUID_Null), E_INVALIDARG, NullTypeText);
    // Asked once: another thread may unregister it meanwhile.
    const ObjectPtr<IDatatypes> provider = FindDatatype(dataType);
    if (!provider)
    {
        OSSIRA_PRINT(mask, PRINT_WARN, "Datatype %s already unregistered\n",
                     CGuidText(dataType).Text());
        return;
    }
    OSSIRA_PRINT(mask, PRINT_TRACE, "Unregister \"%s\" Datatype [%s]\n",
                 CPrintableInfo(*provider, dataType).Name(), CGuidText(dataType).Text());
    OSSIRA_CHECK_CALL_TWICE(mTable->RemoveGUID(dataType), "RemoveGUID()");
}

// The provider of a datatype, or null when it has none.
ObjectPtr<IDatatypes> T_DatatypesService::FindDatatype(const GUID& dataType)
{
    ObjectPtr<IDatatypes> provider;
    const auto ask = [&]
    {
        const Result asked = mTable->GetValueGUID(dataType, IID_IDatatypes, provider.PutVoid());
        return asked == E_NOT_FOUND ? S_FALSE : asked;
    };
    const Result found = AnswerTo(ask, "GetValueGUID( dataType )");
    OSSIRA_CHECK(provider || found == S_FALSE, E_NOINTERFACE, "GetValueGUID( dataType )");
    return provider;
}

// The same for one that must have a provider.
ObjectPtr<IDatatypes> T_DatatypesService::InternalGetDatatype(const GUID& dataType)
{
    ObjectPtr<IDatatypes> provider = FindDatatype(dataType);
    OSSIRA_CHECK(provider, E_NOT_FOUND, "GetValueGUID( dataType )");
    return provider;
}

bool T_DatatypesService::IsThis(IDatatypes* types) noexcept
{
    return types == static_cast<IDatatypes*>(this);
}

// --- Questions ----------------------------------------------------------------------------------

Result T_DatatypesService::GetEnumerator(const IID& riid, void** ppv)
try
{
    OSSIRA_CHECK_POINTER(ppv);
    OSSIRA_CHECK_REFERENCE(riid);
    EnsureInstalled();
    OSSIRA_CHECK_CALL_TWICE(mTable->GetEnumerator(riid, ppv), "GetEnumerator");
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_DatatypesService::Contains(const GUID& dataType)
try
{
    OSSIRA_CHECK_REFERENCE(dataType);
    EnsureInstalled();
    return mTable->ContainsGUID(dataType);
}
OSSIRA_CATCH_RETURN

Result T_DatatypesService::GetCharacteristics(const GUID& dataType, DatatypeCharacteristics* pInfo)
try
{
    OSSIRA_CHECK_POINTER(pInfo);
    OSSIRA_CHECK_REFERENCE(dataType);
    EnsureInstalled();
    const ObjectPtr<IDatatypes> provider = InternalGetDatatype(dataType);
    return AnswerTo([&] { return provider->GetCharacteristics(dataType, pInfo); },
                    "GetCharacteristics");
}
OSSIRA_CATCH_RETURN

Result T_DatatypesService::ValueCompare(const GUID& dataType, const void* dataA,
                                        std::uint32_t sizeA, const void* dataB, std::uint32_t sizeB,
                                        std::int32_t* result)
try
{
    OSSIRA_CHECK_REFERENCE(dataType);
    EnsureInstalled();
    const ObjectPtr<IDatatypes> provider = InternalGetDatatype(dataType);
    return AnswerTo(
        [&] { return provider->ValueCompare(dataType, dataA, sizeA, dataB, sizeB, result); },
        "ValueCompare");
}
OSSIRA_CATCH_RETURN

Result T_DatatypesService::ValueLerp(const GUID& dataType, const void* dataA, std::uint32_t sizeA,
                                     const void* dataB, std::uint32_t sizeB, double t, void* dataR,
                                     std::uint32_t sizeR)
try
{
    OSSIRA_CHECK_REFERENCE(dataType);
    EnsureInstalled();
    const ObjectPtr<IDatatypes> provider = InternalGetDatatype(dataType);
    const auto mix = [&]
    {
        return provider->ValueLerp(dataType, dataA, sizeA, dataB, sizeB, t, dataR, sizeR);
    };
    return AnswerTo(mix, "ValueLerp");
}
OSSIRA_CATCH_RETURN

Result T_DatatypesService::GetDatatype(const GUID& dataType, IDatatypes** ppType)
try
{
    OSSIRA_CHECK_POINTER(ppType);
    OSSIRA_CHECK_REFERENCE(dataType);
    EnsureInstalled();
    *ppType = InternalGetDatatype(dataType).Detach();
    return S_OK;
}
OSSIRA_CATCH_RETURN

// --- Changes ------------------------------------------------------------------------------------

Result T_DatatypesService::RegisterDatatype(const GUID& dataType, IDatatypes* pType)
try
{
    OSSIRA_CHECK_POINTER(pType);
    OSSIRA_CHECK(!IsThis(pType), E_INVALIDARG, "this as pType not allowed");
    OSSIRA_CHECK_REFERENCE(dataType);
    InternalRegisterDatatype(dataType, pType, ESource::Caller);
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_DatatypesService::RegisterDatatypes(IDatatypes* pTypes)
try
{
    OSSIRA_CHECK_POINTER(pTypes);
    OSSIRA_CHECK(!IsThis(pTypes), E_INVALIDARG, "this as pTypes not allowed");
    InternalRegisterDatatype(pTypes, ESource::Caller);
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_DatatypesService::UnregisterDatatype(const GUID& dataType)
try
{
    OSSIRA_CHECK_REFERENCE(dataType);
    InternalUngegisterDatatype(dataType);
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_DatatypesService::UnregisterDatatypes(IDatatypes* pTypes)
try
{
    OSSIRA_CHECK_POINTER(pTypes);
    OSSIRA_CHECK(!IsThis(pTypes), E_INVALIDARG, "this as pTypes not allowed");
    ForEachDatatype(*pTypes, [&](const GUID& dataType) { InternalUngegisterDatatype(dataType); });
    return S_OK;
}
OSSIRA_CATCH_RETURN

// Whoever enumerates or asks goes on with the same dictionary.
Result T_DatatypesService::ClearDatatypes()
try
{
    OSSIRA_PRINT(CurrentLevelMask(), PRINT_TRACE, "ClearDatatypes\n");
    {
        const tSystem::CLockGuard guard(mSection); // an installation enters nothing from now on
        EndInstallation();
    }
    OSSIRA_CHECK_CALL_TWICE(mTable->Clear(), "Clear()");
    return S_OK;
}
OSSIRA_CATCH_RETURN

} // namespace

OSSIRA_CLASS(T_DatatypesService, "DatatypesService")

} // namespace Tavrik::Ossira
