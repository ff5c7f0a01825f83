// The enumerator over objects: the items of a list, the values of a dictionary. Besides what
// EnumeratorSteps.h asks for, its owner has `IUnknown* ItemAt(position)`.
#pragma once

#include "EnumeratorSteps.h"
#include "ItemQuestion.h"

namespace Tavrik::Ossira
{

template <class Traits>
class CItemEnumerator : public CEnumeratorSteps<Traits, IEnumerator>
{
    using Steps = CEnumeratorSteps<Traits, IEnumerator>;

public:
    static constexpr std::string_view OssiraReportedClass = Traits::ReportedClass;

    OSSIRA_INTERFACES(IEnumerator)

    explicit CItemEnumerator(typename Traits::Owner* owner) : Steps(owner)
    {
    }

    Result GetCurrent(const IID& riid, void** ppv) override
    try
    {
        CItemQuestion question(this->Lock());
        OSSIRA_CHECK(this->IsUpToDate(), E_ACCESSDENIED, Steps::OutOfDateText);
        OSSIRA_CHECK_POINTER(ppv);
        OSSIRA_CHECK_REFERENCE(riid);
        if (this->State() < 0)
            return this->State();
        typename Traits::Position at{};
        OSSIRA_CHECK(this->Locate(at), E_FAIL, Steps::AtEndText);
        IUnknown* const item = this->Collection().ItemAt(at);
        OSSIRA_CHECK(item != nullptr, E_POINTER, "*mCurrent");
        return question.Ask(item, riid, ppv);
    }
    OSSIRA_CATCH_RETURN
};

} // namespace Tavrik::Ossira
