// Three modules of bootstrap classes that leave a trace in the value set that start-up and clean-up
// are given. A definition chooses the module: OSSIRA_OUTER, OSSIRA_INNER or the failing one.
#include "Ossira.h"
#include "TestModules.h"

using namespace Tavrik::Ossira;
using namespace Tavrik::Ossira::tTest;

namespace
{

template <char Letter, Result Answer>
class T_Tracer : public IBootstrap, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = Numbered(Letter, 1);
    OSSIRA_INTERFACES(IBootstrap)

    Result Startup(IUnknown* param) override
    {
        const Result left = LeaveTrace(*param, {Letter, '+'});
        return Failed(left) ? left : Answer;
    }

    Result Cleanup(IUnknown* param) override
    {
        const Result left = LeaveTrace(*param, {Letter, '-'});
        return Failed(left) ? left : Answer;
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
TRACER(B, S_OK, 0)
#else
TRACER(X, S_OK, 0)
TRACER(Y, E_ABORT, 0)
TRACER(Z, E_FAIL, 0)
#endif

} // namespace
