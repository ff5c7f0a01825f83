// The values: one datum each, guarded by a spin word. The read-only value differs in one rule: once
// it holds a datum, even one of no bytes, it refuses every other. Comparing holds one lock at a
// time: a value copies its own datum under its lock, leaves it, and asks the other value; what
// another value of this file holds is copied in one piece as well.
#include "ItemQuestion.h"
#include "LockPolicy.h"
#include "OssiraClasses.h"
#include "OssiraFrame.h"
#include "OssiraValueDataBuffer.h"
#include "TryMakeObject.h"

#include <mutex>

namespace Tavrik::Ossira
{

struct ValueTraits
{
    static constexpr CLSID ClassId = CLSID_Value;
    static constexpr std::string_view ClassName = "Value";
    static constexpr std::string_view ReportedClass = "Tavrik::Ossira::T_Value";
    static constexpr const char* NewText = "new T_Value";
    static constexpr bool IsWriteOnce = false;
};

struct ReadonlyValueTraits
{
    static constexpr CLSID ClassId = CLSID_ReadOnlyValue;
    static constexpr std::string_view ClassName = "ReadOnlyValue";
    static constexpr std::string_view ReportedClass = "Tavrik::Ossira::T_ReadonlyValue";
    static constexpr const char* NewText = "new T_ReadonlyValue";
    static constexpr bool IsWriteOnce = true;
};

constexpr IID IID_GuardedDatum = {
    0x6D1B0F35, 0x4C53, 0x4A53, {0x9C, 0x1D, 0x0E, 0x52, 0x7E, 0x3B, 0xA4, 0x18}};

// The lock comes next to the base's count, in the four bytes that the base leaves.
class CValueLock
{
protected:
    CValueLock() noexcept = default;
    ~CValueLock() = default;

    mutable CSpinLock mLock;
};

// What a value consists of. Its count, its lock, the table of `IValue`, the datum's type, its size
// and a short datum itself fill one cache line; what is seldom used lies in front of the line and
// behind it. Values answer a pointer to this to each other, borrowed, under this very identifier:
// it is known by where it lies, and asked for last, so that it costs other queries nothing.
class CGuardedDatum : public COssiraUnknown, protected CValueLock, public IValue
{
public:
    static constexpr std::size_t SeldomUsed = 2 * sizeof(void*); // the base's two tables

    // Called for what is none of the listed interfaces.
    Result AnswerPrivateUnknown(const IID& iid, void** out) noexcept
    {
        if (std::addressof(iid) != &IID_GuardedDatum) [[likely]]
            return COssiraUnknown::AnswerPrivateUnknown(iid, out);
        *out = this;
        return S_OK;
    }

    void Take(CValueSnapshot& snapshot) const
    {
        while (!TryTake(snapshot))
            snapshot.MakeRoom();
    }

protected:
    CGuardedDatum() noexcept = default;
    ~CGuardedDatum() override = default;

    // For who made the object and has not given it to anybody.
    [[nodiscard]] CValueDataBuffer& DataOfOwnObject() noexcept OSSIRA_UNCHECKED_GUARDS
    {
        return mData;
    }

    CValueDataBuffer mData OSSIRA_GUARDED_BY(mLock);

private:
    [[nodiscard]] bool TryTake(CValueSnapshot& snapshot) const noexcept
    {
        const tSystem::CLockGuard guard(mLock);
        return snapshot.TryTake(mData);
    }
};
static_assert(sizeof(CGuardedDatum) == CGuardedDatum::SeldomUsed + 64,
              "Something has come between the count and the datum");

// Null for an object that is none of this file's.
[[nodiscard]] const CGuardedDatum* DatumOf(IUnknown* object)
{
    void* datum = nullptr;
    const bool isValue = object != nullptr && IsOwnObject(object) &&
                         Succeeded(object->QueryInterface(IID_GuardedDatum, &datum));
    return isValue ? static_cast<const CGuardedDatum*>(datum) : nullptr;
}

template <class Traits>
class CValueObject : public CGuardedDatum,
                     public CObjectName,
                     public CObjectIdentity<Traits>,
                     public IComparable,
                     public ICloneable
{
public:
    static constexpr CLSID ClassId = Traits::ClassId;
    static constexpr std::string_view OssiraReportedClass = Traits::ReportedClass;

    OSSIRA_INTERFACES(IValue, IObjectName, IObjectIdentity, IComparable, ICloneable)

    // Most values end with nothing to give back, where the whole destructor would only set each
    // table of operations twice more. Its innermost part goes by all the same: it makes a further
    // call of `IValue` show itself.
    template <class Instance>
    static void OssiraDestroy(Instance* object) noexcept OSSIRA_UNCHECKED_GUARDS
    {
        if (object->HasName() || object->mData.HasMemory() || tDetail::TracksObjects) [[unlikely]]
            return DestroyInFull(object);
        object->CGuardedDatum::~CGuardedDatum();
        Instance::operator delete(object);
    }

    // What most calls come to is done here, without a call that registers had to be saved for. It
    // hands its hold of the lock on, which cannot be followed.
    Result GetValue(const GUID& type, void* data,
                    std::int32_t size) OSSIRA_UNCHECKED_GUARDS override
    {
        if (CValueDataBuffer::IsShort(data, size) && mLock.try_lock()) [[likely]]
        {
            if (!mData.TryGetValue(type, data, size)) [[unlikely]]
                return GetValue<true>(type, data, size);
            return mLock.Leave() ? WakeAndAnswer(size) : size;
        }
        return GetValue<false>(type, data, size);
    }

    Result SetValue(const GUID& type, const void* data,
                    std::int32_t size) OSSIRA_UNCHECKED_GUARDS override
    {
        if constexpr (!Traits::IsWriteOnce)
        {
            if (CValueDataBuffer::IsShort(data, size) && mLock.try_lock()) [[likely]]
            {
                if (!mData.TrySetValue(type, data, size)) [[unlikely]]
                    return SetValue<true>(type, data, size);
                return mLock.Leave() ? WakeAndAnswer(S_OK) : S_OK;
            }
        }
        return SetValue<false>(type, data, size);
    }

    Result GetType(GUID* type) override
    try
    {
        const tSystem::CLockGuard guard(mLock);
        return mData.GetType(type);
    }
    OSSIRA_CATCH_RETURN

    Result Compare(IUnknown* pv, std::int32_t* result) override
    try
    {
        CValueSnapshot own;
        Take(own);
        if (const CGuardedDatum* const datum = DatumOf(pv); datum != nullptr)
        {
            OSSIRA_CHECK_POINTER(result);
            CValueSnapshot other;
            datum->Take(other);
            if (!other.IsEmpty())
            {
                *result = own.OrderTo(other);
                return S_OK;
            }
        }
        return own.Compare(pv, result);
    }
    OSSIRA_CATCH_RETURN

    Result Clone(const IID& riid, void** ppv) override
    try
    {
        OSSIRA_CHECK_POINTER(ppv);
        OSSIRA_CHECK_REFERENCE(riid);
        const auto clone = TryMakeObject<CValueObject>();
        OSSIRA_CHECK(clone, E_OUTOFMEMORY, Traits::NewText);
        {
            const tSystem::CLockGuard guard(mLock);
            OSSIRA_CHECK_CALL_TWICE(clone->DataOfOwnObject().Assign(mData),
                                    "CloneObject->mData.Assign(mData)");
        }
        return clone->QueryInterface(riid, ppv);
    }
    OSSIRA_CATCH_RETURN

private:
    using COneHold = std::unique_lock<CSpinLock>;

    [[nodiscard]] COneHold Hold(bool isHeld)
    {
        return isHeld ? COneHold(mLock, std::adopt_lock) : COneHold(mLock);
    }

    template <class Instance>
    [[gnu::noinline]] static void DestroyInFull(Instance* object) noexcept
    {
        delete object;
    }

    [[gnu::noinline, gnu::cold]] Result WakeAndAnswer(Result answer) noexcept
    {
        mLock.WakeWaiter();
        return answer;
    }

    // The operations in full. They have the operations' names because a boundary reports its own.

    template <bool IsHeld>
    [[gnu::noinline]] Result GetValue(const GUID& type, void* data,
                                      std::int32_t size) OSSIRA_UNCHECKED_GUARDS
    try
    {
        const COneHold hold = Hold(IsHeld);
        return mData.GetValue(type, data, size);
    }
    OSSIRA_CATCH_RETURN

    template <bool IsHeld>
    [[gnu::noinline]] Result SetValue(const GUID& type, const void* data,
                                      std::int32_t size) OSSIRA_UNCHECKED_GUARDS
    try
    {
        const COneHold hold = Hold(IsHeld);
        if constexpr (Traits::IsWriteOnce)
            OSSIRA_CHECK(mData.IsEmpty(), E_ACCESSDENIED, "Value is Readonly");
        return mData.SetValue(type, data, size);
    }
    OSSIRA_CATCH_RETURN
};

using T_Value = CValueObject<ValueTraits>;
using T_ReadonlyValue = CValueObject<ReadonlyValueTraits>;

OSSIRA_CLASS(T_Value, "Value")
OSSIRA_CLASS(T_ReadonlyValue, "Read-Only Value")

} // namespace Tavrik::Ossira
