// What value sets and the merged views of value set groups share. `Base` is the value set's
// interface, or what implements part of it already.
#pragma once

#include "GuidEnumerable.h"
#include "OssiraValue.h"

namespace Tavrik::Ossira
{

// What every value set's traits say.
struct ValueSetText : QuietGuids
{
    static constexpr const char* AddText = "AddGUID not supported by IValueSet";
    static constexpr const char* RefusalText = "Call of IValueSet::IValue-Methode not supported";
    static constexpr const std::string_view& EnumeratorClass = EnumeratorName;
    static constexpr const char* NewEnumeratorText = "new T_Enumerator";
};

// The refused views.
template <class Traits, class Base>
class CWithoutViews : public Base
{
public:
    static constexpr std::string_view OssiraReportedClass = ReportedClass<Traits>;

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

protected:
    ~CWithoutViews() = default;
};

} // namespace Tavrik::Ossira
