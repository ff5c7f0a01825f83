// A module that keeps the box of the process's thread pool in a static variable, to the end of the
// process.
#include "Ossira.h"
#include "TestModules.h"

using namespace Tavrik::Ossira;
using namespace Tavrik::Ossira::tTest;
using namespace Tavrik::tSystem::tThreads;

namespace
{

ObjectPtr<ICommonThreadPoolBox> gBox;

class T_PoolHolder : public ICounter, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_PoolHolder;
    OSSIRA_INTERFACES(ICounter)

    Result Count() override
    {
        return E_NOTIMPL;
    }

    Result CountInModule() override
    {
        ObjectPtr<ISingleton> singletons;
        IThreadPool* pool = nullptr;
        if (Failed(CreateObject(CLSID_GlobalSingleton, singletons)) ||
            Failed(singletons->GetClassObject(CLSID_CommonThreadPoolBox, ICommonThreadPoolBox::Iid,
                                              gBox.PutVoid())) ||
            Failed(gBox->Create(3)) || Failed(gBox->GetThreadPool(&pool)))
            return E_FAIL;
        std::atomic<std::int32_t> copies = 0;
        CThreadJob job([&](CAbortFlag) { ++copies; });
        return Failed(pool->Run(&job, nullptr, 0, "count")) ? E_FAIL : copies.load();
    }
};

OSSIRA_CLASS(T_PoolHolder, "PoolHolder")

} // namespace
