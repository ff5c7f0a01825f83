// The GUID dictionaries: objects of any kind by key. Every call that could change a dictionary ends
// its enumerators, also one that finds nothing to change.
#include "DictionaryViews.h"
#include "OssiraClasses.h"

namespace Tavrik::Ossira
{
namespace
{

template <class Traits>
class CDictionaryGUID : public CViewedCollection<Traits, IDictionaryGUID, CItemTable<IUnknown>>
{
public:
    static constexpr std::string_view OssiraReportedClass = ReportedClass<Traits>;

    template <tDetail::EQuery Query>
    Result AnswerQuery(const IID& iid, void** out)
    {
        if constexpr (CDictionaryGUID::IsLockable)
            return this->template AnswerListed<Query, IDictionaryGUID, IObjectLock, IObjectName,
                                               IObjectIdentity>(this, iid, out);
        else
            return this
                ->template AnswerListed<Query, IDictionaryGUID, IObjectName, IObjectIdentity>(
                    this, iid, out);
    }

    OSSIRA_ANSWERS_BY_LIST

    Result SetValueGUID(const GUID& key, IUnknown* value) override
    try
    {
        OSSIRA_CHECK_POINTER(value);
        OSSIRA_CHECK_REFERENCE(key);
        const CHashedGuid place(key);
        ObjectPtr<IUnknown> item(value);
        const tSystem::CLockGuard guard(this->mLock);
        this->mTable.Put(place, item);
        ++this->mStamp;
        return S_OK;
    }
    OSSIRA_CATCH_RETURN
};

struct DictionaryText : QuietGuids
{
    static constexpr const char* AddText = "AddGUID not supported by IDictionaryGUID";
    static constexpr const std::string_view& EnumeratorClass = KeyEnumeratorName;
    static constexpr const char* NewEnumeratorText = "new T_KeyEnumerator";
};

struct DictionaryTraits : DictionaryText
{
    using LockType = CTableLock;
    static constexpr CLSID ClassId = CLSID_DictionaryGUID;
    static constexpr std::string_view ClassName = "DictionaryGUID";
};

struct LockableDictionaryTraits : DictionaryText
{
    using LockType = CCallerLock;
    static constexpr CLSID ClassId = CLSID_LockableDictionaryGUID;
    static constexpr std::string_view ClassName = "LockableDictionaryGUID";
};

struct UnsafeDictionaryTraits : DictionaryText
{
    using LockType = CNoLock;
    static constexpr CLSID ClassId = CLSID_UnsafeDictionaryGUID;
    static constexpr std::string_view ClassName = "UnsafeDictionaryGUID";
};

} // namespace

OSSIRA_CLASS(CDictionaryGUID<DictionaryTraits>, "DictionaryGUID")
OSSIRA_CLASS(CDictionaryGUID<LockableDictionaryTraits>, "LockableDictionaryGUID")
OSSIRA_CLASS(CDictionaryGUID<UnsafeDictionaryTraits>, "UnsafeDictionaryGUID")

} // namespace Tavrik::Ossira
