// The value sets: dictionaries whose items are values, read and written by key under the set's
// lock, which is always taken before the value's. A datum of a known key is written into the value
// that is there, so whoever holds that value sees it.
#include "OssiraClasses.h"
#include "RefusedValue.h"
#include "ValueSetOperations.h"

namespace Tavrik::Ossira
{
namespace
{

template <class Traits>
class CValueSet : public CValueSetOperations<Traits, CValueTable>, public CRefusedValue<Traits>
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
