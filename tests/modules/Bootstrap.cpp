// Three modules of bootstrap classes that leave a trace in the value set that start-up and clean-up
// are given. A definition chooses the module: OSSIRA_OUTER, OSSIRA_INNER or OSSIRA_FAILING.
#include "Ossira.h"
#include "OssiraFrame.h"
#include "TestModules.h"

using namespace Tavrik::Ossira;
using namespace Tavrik::Ossira::tTest;

namespace
{

// Both operations append the letter and their sign, if there is a value set, and give the answer.
template <char Letter, Result Answer = S_OK>
class T_Tracer : public IBootstrap, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = Numbered(Letter, 1);
    OSSIRA_INTERFACES(IBootstrap)

    Result Startup(IUnknown* param) override
    {
        return Append(param, '+');
    }

    Result Cleanup(IUnknown* param) override
    {
        return Append(param, '-');
    }

private:
    static Result Append(IUnknown* param, char sign)
    {
        ObjectPtr<IValueSet> set;
        std::string trace;
        if (param == nullptr || Failed(param->QueryInterface(IID_IValueSet, set.PutVoid())))
            return Answer;
        GetValueCharString(set.Get(), BootstrapTrace, &trace);
        SetValueCharString(set.Get(), BootstrapTrace, trace + Letter + sign);
        return Answer;
    }
};

// A class that is started and cleaned up at one level.
#define TRACER(Letter, Answer, Level)                                                              \
    using Letter = T_Tracer<#Letter[0], Answer>;                                                   \
    OSSIRA_CLASS(Letter, #Letter)                                                                  \
    const BootstrapRecord gRecords##Letter[] = {                                                   \
        {Letter::ClassId, BootstrapRegistryStartup_Level##Level, GUID_Null, #Letter},              \
        {Letter::ClassId, BootstrapRegistryCleanup_Level##Level, GUID_Null, #Letter}};

#if defined OSSIRA_OUTER
TRACER(A, S_OK, 0)
TRACER(C, S_OK, 1)
TRACER(D, S_OK, 2)
#elif defined OSSIRA_INNER
using B = T_Tracer<'B'>;
OSSIRA_CLASS(B, "B")
OSSIRA_BOOTSTRAP(B::ClassId, BootstrapRegistryStartup_Level0, GUID_Null, "B")
#else
TRACER(X, S_OK, 0)
TRACER(Y, E_ABORT, 0)
TRACER(Z, S_OK, 0)
OSSIRA_BOOTSTRAP(Z::ClassId, BootstrapRegistryStartup_Level1, GUID_Null, "Z")
OSSIRA_BOOTSTRAP(Z::ClassId, BootstrapRegistryCleanup_Level1, GUID_Null, "Z")
#endif

} // namespace
