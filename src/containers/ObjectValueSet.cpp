// The value sets: dictionaries whose items are values, read and written by key. A value is looked
// up under the set's lock and called without it: it may be anybody's, and has a lock of its own. A
// datum of a known key is written into the value that is there, so whoever holds that value sees
// it.
#include "GuidCollection.h"
#include "LayerKeys.h"
#include "OssiraClasses.h"
#include "RefusedValue.h"
#include "ValueSetOperations.h"

namespace Tavrik::Ossira
{
namespace
{

template <class Traits>
using CValuesByGuid = CGuidCollection<Traits, IValueSet, CItemTable<IValue>>;

template <class Traits>
class CValueSet : public CWithoutViews<Traits, CValuesByGuid<Traits>>,
                  public CRefusedValue<Traits>,
                  public ILayerKeys
{
public:
    static constexpr std::string_view OssiraReportedClass = ReportedClass<Traits>;

    template <tDetail::EQuery Query>
    Result AnswerQuery(const IID& iid, void** out)
    {
        if constexpr (CValueSet::IsLockable)
            return this->template AnswerListed<Query, IValueSet, IValue, IObjectLock, IObjectName,
                                               IObjectIdentity, ILayerKeys>(this, iid, out);
        else
            return this->template AnswerListed<Query, IValueSet, IValue, IObjectName,
                                               IObjectIdentity, ILayerKeys>(this, iid, out);
    }

    OSSIRA_ANSWERS_BY_LIST

    Result SetValueGUID(const GUID& key, IUnknown* value) override
    try
    {
        OSSIRA_CHECK_POINTER(value);
        OSSIRA_CHECK_REFERENCE(key);
        ObjectPtr<IValue> item;
        OSSIRA_CHECK_CALL_TWICE(value->QueryInterface(IID_IValue, item.PutVoid()), NoValueText);
        OSSIRA_CHECK(item, E_NOINTERFACE, NoValueText);
        const CHashedGuid place(key);
        const tSystem::CLockGuard guard(this->mLock);
        this->mTable.Put(place, item);
        ++this->mStamp;
        return S_OK;
    }
    OSSIRA_CATCH_RETURN

    Result GetValueData(const GUID& key, const GUID& type, void* data, std::int32_t size) override
    try
    {
        OSSIRA_CHECK_REFERENCE(key);
        OSSIRA_CHECK_REFERENCE(type);
        const ObjectPtr<IValue> value = Find(key);
        return value ? value->GetValue(type, data, size) : E_NOT_FOUND;
    }
    OSSIRA_CATCH_RETURN

    // A new value is made and set before it is entered; if the key has come up meanwhile, the value
    // that came with it is written instead.
    Result SetValueData(const GUID& key, const GUID& type, const void* data,
                        std::int32_t size) override
    try
    {
        OSSIRA_CHECK_REFERENCE(key);
        OSSIRA_CHECK_REFERENCE(type);
        const CHashedGuid place(key);
        ObjectPtr<IValue> fresh;
        for (;;)
        {
            if (const ObjectPtr<IValue> present = Find(place); present)
                return MarkWritten(present->SetValue(type, data, size));
            if (!fresh)
            {
                OSSIRA_CHECK_CALL_TWICE(CreateValue(fresh.Put()), "CreateValue(&Value)");
                const Result result = fresh->SetValue(type, data, size);
                if (Failed(result))
                    return result;
            }
            if (TryEnter(place, fresh))
                return S_OK;
        }
    }
    OSSIRA_CATCH_RETURN

    Result GetDataType(const GUID& key, GUID* type) override
    try
    {
        OSSIRA_CHECK_REFERENCE(key);
        const ObjectPtr<IValue> value = Find(key);
        return value ? value->GetType(type) : E_NOT_FOUND;
    }
    OSSIRA_CATCH_RETURN

    // Read without the lock.
    std::uint64_t KeysStamp() const noexcept OSSIRA_UNCHECKED_GUARDS override
    {
        return this->mTable.KeysStamp();
    }

    std::size_t KeysAbove(const GUID* above, std::span<GUID> keys) override
    {
        const tSystem::CReadGuard guard(this->mLock);
        CGuidPosition at;
        if (above != nullptr)
            at.Key = *above;
        std::size_t count = 0;
        bool more = above != nullptr ? this->mTable.Next(at) : this->mTable.First(at);
        for (; more && count < keys.size(); more = count < keys.size() && this->mTable.Next(at))
            keys[count++] = at.Key;
        return count;
    }

private:
    static constexpr const char* NoValueText = "item-object must be IValue";

    [[nodiscard]] ObjectPtr<IValue> Find(const CHashedGuid& key) const noexcept
    {
        const tSystem::CReadGuard guard(this->mLock);
        return ObjectPtr(this->mTable.Find(key));
    }

    [[nodiscard]] bool TryEnter(const CHashedGuid& key, ObjectPtr<IValue>& value)
    {
        const tSystem::CLockGuard guard(this->mLock);
        if (this->mTable.Find(key) != nullptr)
            return false;
        this->mTable.Put(key, value);
        ++this->mStamp;
        return true;
    }

    // Enumerators end when a value was written.
    [[nodiscard]] Result MarkWritten(Result written) noexcept
    {
        if (Failed(written))
            return written;
        if constexpr (std::is_same_v<typename Traits::LockType, CTableLock>)
        {
            this->EndEnumeratorsUnlocked();
        }
        else
        {
            const tSystem::CLockGuard guard(this->mLock);
            ++this->mStamp;
        }
        return written;
    }
};

struct ValueSetTraits : ValueSetText
{
    using LockType = CTableLock;
    static constexpr CLSID ClassId = CLSID_ValueSet;
    static constexpr std::string_view ClassName = "ValueSet";
};

struct LockableValueSetTraits : ValueSetText
{
    using LockType = CCallerLock;
    static constexpr CLSID ClassId = CLSID_LockableValueSet;
    static constexpr std::string_view ClassName = "LockableValueSet";
    // Spelled differently from the others'; readers of diagnostics know it by this spelling.
    static constexpr const char* AddText = "AddGUID not supported by IValeSet";
};

struct UnsafeValueSetTraits : ValueSetText
{
    using LockType = CNoLock;
    static constexpr CLSID ClassId = CLSID_UnsafeValueSet;
    static constexpr std::string_view ClassName = "UnsafeValueSet";
};

} // namespace

OSSIRA_CLASS(CValueSet<ValueSetTraits>, "ValueSet")
OSSIRA_CLASS(CValueSet<LockableValueSetTraits>, "LockableValueSet")
OSSIRA_CLASS(CValueSet<UnsafeValueSetTraits>, "UnsafeValueSet")

} // namespace Tavrik::Ossira
