// The value sets: dictionaries whose items are values, read and written by key under the set's
// lock, which is always taken before the value's. A datum of a known key is written into the value
// that is there, so whoever holds that value sees it.
#include "GuidCollection.h"
#include "OssiraClasses.h"
#include "RefusedValue.h"

namespace Tavrik::Ossira
{
namespace
{

template <class Traits>
class CValueSet : public CGuidCollection<Traits, IValueSet, CItemTable<IValue>>,
                  public CRefusedValue<Traits>
{
public:
    static constexpr std::string_view OssiraReportedClass = ReportedClass<Traits>;

    Result InternalQueryInterface(const IID& iid, void** out) override
    {
        if constexpr (CValueSet::IsLockable)
            return this->template AnswerInterfaces<IValueSet, IValue, IObjectLock, IObjectName,
                                                   IObjectIdentity>(this, iid, out);
        else
            return this->template AnswerInterfaces<IValueSet, IValue, IObjectName, IObjectIdentity>(
                this, iid, out);
    }

    Result SetValueGUID(const GUID& key, IUnknown* value) override
    try
    {
        OSSIRA_CHECK_POINTER(value);
        ObjectPtr<IValue> item;
        OSSIRA_CHECK_CALL(value->QueryInterface(IID_IValue, item.PutVoid()), NoValueText);
        OSSIRA_CHECK(item, E_NOINTERFACE, NoValueText);
        const std::lock_guard guard(this->mLock);
        this->mStorage.Put(key, item);
        return S_OK;
    }
    OSSIRA_CATCH_RETURN

    Result GetValues(void**) override
    try
    {
        OSSIRA_THROW(E_NOTIMPL, "GetValueCollection");
    }
    OSSIRA_CATCH_RETURN

    Result GetKeys(void**) override
    try
    {
        OSSIRA_THROW(E_NOTIMPL, "GetKeyCollection");
    }
    OSSIRA_CATCH_RETURN

    Result GetValueData(const GUID& key, const GUID& type, void* data, std::int32_t size) override
    try
    {
        const std::lock_guard guard(this->mLock);
        IValue* const value = this->mStorage.Find(key);
        return value != nullptr ? value->GetValue(type, data, size) : E_NOT_FOUND;
    }
    OSSIRA_CATCH_RETURN

    // A new value is made and set while no lock is held; if the key has come up meanwhile, the
    // value that came with it is written instead.
    Result SetValueData(const GUID& key, const GUID& type, const void* data,
                        std::int32_t size) override
    try
    {
        {
            const std::lock_guard guard(this->mLock);
            if (IValue* const present = this->mStorage.Find(key); present != nullptr)
                return Write(*present, type, data, size);
        }
        ObjectPtr<IValue> value;
        OSSIRA_CHECK_CALL(CreateValue(value.Put()), "CreateValue(&Value)");
        const Result result = value->SetValue(type, data, size);
        if (Failed(result))
            return result;

        const std::lock_guard guard(this->mLock);
        if (IValue* const present = this->mStorage.Find(key); present != nullptr)
            return Write(*present, type, data, size);
        this->mStorage.Put(key, value);
        return result;
    }
    OSSIRA_CATCH_RETURN

    Result GetDataType(const GUID& key, GUID* type) override
    try
    {
        const std::lock_guard guard(this->mLock);
        IValue* const value = this->mStorage.Find(key);
        return value != nullptr ? value->GetType(type) : E_NOT_FOUND;
    }
    OSSIRA_CATCH_RETURN

private:
    static constexpr const char* NoValueText = "item-object must be IValue";

    [[nodiscard]] Result Write(IValue& value, const GUID& type, const void* data, std::int32_t size)
    {
        const Result result = value.SetValue(type, data, size);
        if (!Failed(result))
            this->mStorage.MarkChanged();
        return result;
    }
};

struct ValueSetText
{
    static constexpr const char* AddText = "AddGUID not supported by IValueSet";
    static constexpr const char* RefusalText =
        "Call of IValueSet::IValue-Methode not supported";
    static constexpr const std::string_view& EnumeratorClass = EnumeratorName;
    static constexpr const char* NewEnumeratorText = "new T_Enumerator";
};

struct ValueSetTraits : ValueSetText
{
    using LockType = CSpinLock;
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
