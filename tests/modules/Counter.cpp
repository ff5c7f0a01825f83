// A well-behaved module: one class with an interface of its own, and static state that tells when
// the module was initialised and when it was torn down.
#include "OssiraFrame.h"
#include "OssiraClasses.h"
#include "OssiraValue.h"
#include "TestModules.h"

namespace Tavrik::Ossira
{

namespace
{

struct ModuleState
{
    std::atomic<std::int32_t> Count = 0;
    std::atomic<std::int32_t*> Witness = nullptr;

    ~ModuleState()
    {
        if (std::int32_t* const witness = Witness; witness != nullptr)
            ++*witness;
    }
};

ModuleState gState;

class T_Counter : public tTest::ICounter, public CObjectName, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = tTest::CLSID_Counter;
    OSSIRA_INTERFACES(tTest::ICounter, IObjectName)

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
        OSSIRA_CHECK_POINTER(ppv);
        ObjectPtr<IValue> value;
        OSSIRA_CHECK_CALL(CreateObject(CLSID_Value, value), "CreateObject(CLSID_Value)");
        const std::int32_t count = mCount;
        OSSIRA_CHECK_CALL(value->SetValue(DATATYPE_SINT32, &count, sizeof count), "SetValue");
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

} // namespace Tavrik::Ossira
