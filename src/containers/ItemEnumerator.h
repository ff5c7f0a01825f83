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
        if (ppv != nullptr && !IsNullReference(riid)) [[likely]]
        {
            const Result answer = AskItem(this->Lock(), CFinding{*this}, riid, ppv);
            if (answer != E_NOT_FOUND) [[likely]]
                return answer;
        }
        CItemQuestion question(this->Lock());
        OSSIRA_CHECK(this->IsUpToDate(), E_ACCESSDENIED, Steps::OutOfDateText);
        OSSIRA_CHECK_POINTER(ppv);
        OSSIRA_CHECK_REFERENCE(riid);
        if (this->State() < 0)
            return this->State();
        typename Traits::Position at{};
        OSSIRA_CHECK(this->Locate(at), E_FAIL, Steps::AtEndText);
        IUnknown* const item = this->mOwner->ItemAt(at);
        OSSIRA_CHECK(item != nullptr, E_POINTER, "*mCurrent");
        return question.Ask(item, riid, ppv);
    }
    OSSIRA_CATCH_RETURN

private:
    // The item that the walk is on, which is what is asked for as a rule; whatever else may be the
    // case is looked at behind it.
    struct CFinding
    {
        [[gnu::always_inline]] IUnknown* operator()() const noexcept
            OSSIRA_UNDER_TO_READ(Walk.Lock())
        {
            const auto* const at = Walk.Here();
            return at != nullptr ? Walk.mOwner->ItemAt(*at) : nullptr;
        }

        const CItemEnumerator& Walk;
    };
};

} // namespace Tavrik::Ossira
