// A well-behaved module: one class with an interface of its own, and a count that is a symbol that
// is to exist once in the process: built without our function, some platforms never unmap such a
// library.
#include "Ossira.h"
#include "TestModules.h"

using namespace Tavrik::Ossira;
using namespace Tavrik::Ossira::tTest;

#pragma GCC visibility push(default)
inline std::atomic<std::int32_t> gCount = 0;
#pragma GCC visibility pop

namespace
{

class T_Counter : public ICounter, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_Counter;
    OSSIRA_INTERFACES(ICounter)

    Result Count() override
    {
        return ++mCount;
    }

    Result CountInModule() override
    {
        return ++gCount;
    }

private:
    std::atomic<std::int32_t> mCount = 0;
};

OSSIRA_CLASS(T_Counter, "Counter")

} // namespace
