// The values: one datum each, guarded by a spin word. The read-only value differs in one rule: once
// it holds a datum, even one of no bytes, it refuses every other. A clone is made without the lock,
// and while a value is compared the lock is held, so comparing one with itself never returns.
#include "LockPolicy.h"
#include "OssiraClasses.h"
#include "OssiraFrame.h"
#include "OssiraValueDataBuffer.h"
#include "TryMakeObject.h"

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

template <class Traits>
class CValueObject : public IValue,
                     public CObjectName,
                     public CObjectIdentity<Traits>,
                     public IComparable,
                     public ICloneable,
                     public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = Traits::ClassId;
    static constexpr std::string_view OssiraReportedClass = Traits::ReportedClass;

    OSSIRA_INTERFACES(IValue, IObjectName, IObjectIdentity, IComparable, ICloneable)

    Result GetValue(const GUID& type, void* data, std::int32_t size) override
    try
    {
        const tSystem::CLockGuard guard(mLock);
        return mData.GetValue(type, data, size);
    }
    OSSIRA_CATCH_RETURN

    Result SetValue(const GUID& type, const void* data, std::int32_t size) override
    try
    {
        const tSystem::CLockGuard guard(mLock);
        if constexpr (Traits::IsWriteOnce)
            OSSIRA_CHECK(mData.IsEmpty(), E_ACCESSDENIED, "Value is Readonly");
        return mData.SetValue(type, data, size);
    }
    OSSIRA_CATCH_RETURN

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
        const tSystem::CLockGuard guard(mLock);
        return mData.Compare(pv, result);
    }
    OSSIRA_CATCH_RETURN

    Result Clone(const IID& riid, void** ppv) override
    try
    {
        OSSIRA_CHECK_POINTER(ppv);
        const auto clone = TryMakeObject<CValueObject>();
        OSSIRA_CHECK(clone, E_OUTOFMEMORY, Traits::NewText);
        OSSIRA_CHECK_CALL_TWICE(clone->mData.Assign(mData), "CloneObject->mData.Assign(mData)");
        return clone->QueryInterface(riid, ppv);
    }
    OSSIRA_CATCH_RETURN

private:
    CSpinLock mLock;
    CValueDataBuffer mData;
};

using T_Value = CValueObject<ValueTraits>;
using T_ReadonlyValue = CValueObject<ReadonlyValueTraits>;

OSSIRA_CLASS(T_Value, "Value")
OSSIRA_CLASS(T_ReadonlyValue, "Read-Only Value")

} // namespace Tavrik::Ossira
