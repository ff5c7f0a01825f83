// The one enumerator over GUIDs: the keys of dictionaries and value sets, the classes of the object
// factory and of the singleton registry. It yields each key as a read-only value of the GUID
// datatype, made anew at every request, or as it is.
//
// What its owner supplies is said in EnumeratorSteps.h; the position is a `CGuidPosition`, so the
// owner hands `FirstPosition` and `NextPosition` on to its `CGuidTable`. A traits structure names,
// besides what is said there,
//   OffersGuids    whether `QueryInterface` answers `IEnumeratorGUID`; `IEnumerator` it always does
//   ReportsEnd     whether asking behind the last key is a mistake to report, or a quiet `E_FAIL`
// An owner whose stamp does not move when a key is removed needs nothing more: the enumerator goes
// on with the next greater key.
#pragma once

#include "EnumeratorSteps.h"
#include "GuidTable.h"
#include "OssiraBullets.h"

namespace Tavrik::Ossira
{

template <class Traits>
class CGuidKeyEnumerator : public CEnumeratorSteps<Traits, IEnumerator, IEnumeratorGUID>
{
    using Steps = CEnumeratorSteps<Traits, IEnumerator, IEnumeratorGUID>;

public:
    static constexpr std::string_view OssiraReportedClass = Traits::ReportedClass;

    explicit CGuidKeyEnumerator(typename Traits::Owner* owner) : Steps(owner)
    {
    }

    template <tDetail::EQuery Query>
    Result AnswerQuery(const IID& iid, void** out)
    {
        if constexpr (Traits::OffersGuids)
            return this->template AnswerListed<Query, IEnumerator, IEnumeratorGUID>(this, iid, out);
        else
            return this->template AnswerListed<Query, IEnumerator>(this, iid, out);
    }

    OSSIRA_ANSWERS_BY_LIST

    // The value is made after the owner's lock was left.
    Result GetCurrent(const IID& riid, void** ppv) override
    try
    {
        CGuidPosition at;
        {
            const tSystem::CLockGuard guard(this->Lock());
            OSSIRA_CHECK(this->IsUpToDate(), E_ACCESSDENIED, Steps::OutOfDateText);
            OSSIRA_CHECK_POINTER(ppv);
            OSSIRA_CHECK_REFERENCE(riid);
            OSSIRA_CHECK(!Traits::ReportsEnd || this->State() >= 0, E_FAIL, Steps::AtEndText);
            if (this->State() < 0)
                return this->State();
            OSSIRA_CHECK(this->Locate(at), E_FAIL, Steps::AtEndText);
        }
        ObjectPtr<IValue> value;
        OSSIRA_CHECK_CALL_TWICE(CreateReadOnlyValue(value.Put()), "CreateReadOnlyValue(&Val)");
        OSSIRA_CHECK_CALL_TWICE(SetValueGUID(value.Get(), at.Key),
                                "SetValueGUID(Val, mCurrent->first)");
        return value->QueryInterface(riid, ppv);
    }
    OSSIRA_CATCH_RETURN

    Result GetCurrentGUID(GUID* pguid) override
    try
    {
        CGuidPosition at;
        const tSystem::CLockGuard guard(this->Lock());
        OSSIRA_CHECK(this->IsUpToDate(), E_ACCESSDENIED, Steps::OutOfDateText);
        OSSIRA_CHECK_POINTER(pguid);
        OSSIRA_CHECK(!Traits::ReportsEnd || this->State() >= 0, E_FAIL, Steps::AtEndText);
        if (this->State() < 0)
            return this->State();
        OSSIRA_CHECK(this->Locate(at), E_FAIL, Steps::AtEndText);
        *pguid = at.Key;
        return S_OK;
    }
    OSSIRA_CATCH_RETURN
};

} // namespace Tavrik::Ossira
