// Bootstrap classes that leave a trace in the value set that start-up and clean-up are given.
#pragma once

#include "OssiraFrame.h"
#include "OssiraServices.h"
#include "OssiraValue.h"
#include "TestModules.h"

#include <string>

namespace Tavrik::Ossira::tTest
{

// Without a value set as parameter it does nothing.
inline void AppendTrace(IUnknown* param, std::string_view text)
{
    ObjectPtr<IValueSet> set;
    if (param == nullptr || Failed(param->QueryInterface(IID_IValueSet, set.PutVoid())))
        return;
    std::string trace;
    const Result size = set->GetValueData(BootstrapTrace, DATATYPE_CharString, nullptr, 0);
    if (size > 0)
    {
        trace.resize(static_cast<std::size_t>(size));
        set->GetValueData(BootstrapTrace, DATATYPE_CharString, trace.data(), size);
    }
    trace += text;
    set->SetValueData(BootstrapTrace, DATATYPE_CharString, trace.data(),
                      static_cast<std::int32_t>(trace.size()));
}

// `Answer` is what both operations answer.
template <const CLSID& Clsid, char Letter, Result Answer = S_OK>
class T_Tracer : public IBootstrap, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = Clsid;
    OSSIRA_INTERFACES(IBootstrap)

    Result Startup(IUnknown* param) override
    {
        AppendTrace(param, {StartText, 2});
        return Answer;
    }

    Result Cleanup(IUnknown* param) override
    {
        AppendTrace(param, {CleanText, 2});
        return Answer;
    }

private:
    static constexpr char StartText[2] = {Letter, '+'};
    static constexpr char CleanText[2] = {Letter, '-'};
};

} // namespace Tavrik::Ossira::tTest
