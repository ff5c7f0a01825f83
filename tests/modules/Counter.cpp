// A well-behaved module: one class with an interface of its own, and static state that tells when
// the module was initialised and when it was torn down. The state is a symbol that is to exist once
// in the process: built without our function, some platforms never unmap such a library.
#include "Ossira.h"
#include "TestModules.h"

using namespace Tavrik::Ossira;
using namespace Tavrik::Ossira::tTest;

struct ModuleState
{
    std::atomic<std::int32_t> Count = 0;
    std::atomic<std::int32_t*> Witness = nullptr;

    ~ModuleState()
    {
        if (Witness != nullptr)
            ++*Witness;
    }
};

#pragma GCC visibility push(default)
inline ModuleState gState;
#pragma GCC visibility pop

namespace
{

class T_Counter : public ICounter, public CObjectName, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_Counter;
    OSSIRA_INTERFACES(ICounter, IObjectName)

    Result Count() override
    {
        return ++mCount;
    }

    Result CountInModule() override
    {
        return ++gState.Count;
    }

    Result MakeValue(const IID& iid, void** ppv) override
    try
    {
        ObjectPtr<IValue> value;
        OSSIRA_CHECK_CALL(CreateValue(value.Put()), "CreateValue");
        OSSIRA_CHECK_CALL(SetValueSINT32(value.Get(), mCount), "SetValueSINT32");
        return value->QueryInterface(iid, ppv);
    }
    OSSIRA_CATCH_RETURN

    Result WatchUnload(std::int32_t* witness) override
    {
        gState.Witness = witness;
        return S_OK;
    }

private:
    std::atomic<std::int32_t> mCount = 0;
};

OSSIRA_CLASS(T_Counter, "Counter")

} // namespace
