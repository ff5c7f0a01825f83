// A module from the interface headers alone: no frame, no run-time library of C or C++, not even an
// allocator, so that a compiler with nothing around it can build it. There is one object, which is
// the module's own; it counts references for the module's count of objects alone.
#include "Foreign.h"
#include "OssiraClasses.h"
#include "OssiraPointer.h"
#include "OssiraServices.h"

using namespace Tavrik::Ossira;
using namespace Tavrik::Ossira::tTest;
using namespace Tavrik::tSystem::tThreads;

namespace
{

std::atomic<std::int32_t> gReferences = 0;
std::atomic<bool> gWasStarted = false;

#if defined(_MSC_VER)
constexpr char Layout[] = "Microsoft";
#else
constexpr char Layout[] = "Itanium";
#endif

bool SameText(const char* a, const char* b)
{
    while (*a != 0 && *a == *b)
    {
        ++a;
        ++b;
    }
    return *a == *b;
}

// Counts how often it runs; destroying it is remembered.
class CCountingJob final : public IThreadFunction
{
public:
    void* DeletingDestructor(std::uint32_t) override
    {
        return this;
    }

    void Run(void*) override
    {
        ++mRuns;
    }

    void RequestStop() override
    {
    }

    [[nodiscard]] std::int32_t Runs() const
    {
        return mRuns;
    }

private:
    std::atomic<std::int32_t> mRuns = 0;
};

class CForeign final : public IForeign, public IBootstrap
{
public:
    Result QueryInterface(const IID& iid, void** out) override
    {
        if (out == nullptr)
            return E_POINTER;
        *out = nullptr;
        if (IsNullReference(iid))
            return E_POINTER;
        if (SameGuid(iid, IUnknown::Iid) || SameGuid(iid, IForeign::Iid))
            *out = static_cast<IForeign*>(this);
        else if (SameGuid(iid, IBootstrap::Iid))
            *out = static_cast<IBootstrap*>(this);
        else
            return E_NOINTERFACE;
        ++gReferences;
        return S_OK;
    }

    std::uint32_t AddRef() override
    {
        return static_cast<std::uint32_t>(++gReferences);
    }

    std::uint32_t Release() override
    {
        return static_cast<std::uint32_t>(--gReferences);
    }

    Result TakeException(IException* exception, const SourceLocation* place,
                         const char* text) override
    {
        SourceLocation thrown = {};
        const Result code = exception->GetCode();
        const bool isSame = exception->GetLocation(&thrown) == &thrown &&
                            thrown.Line == place->Line && SameText(thrown.File, place->File) &&
                            SameText(thrown.Function, place->Function) &&
                            SameText(exception->GetExpression(), text) &&
                            exception->GetDescription()[0] == place->File[0];
        exception->Release();
        return isSame ? code : E_UNEXPECTED;
    }

    Result UseFunction(IThreadFunction* function, void* parameter) override
    {
        function->Run(parameter);
        function->RequestStop();
        return function->DeletingDestructor(0) == function ? S_OK : E_UNEXPECTED;
    }

    Result UsePool(IThreadPool* pool, std::int32_t* runs) override
    {
        CCountingJob job;
        const Result result = pool->Run(&job, nullptr, 0, Layout);
        *runs = job.Runs();
        return result;
    }

    Result MakeLayout(IValue** out) override
    {
        ObjectPtr<IValue> text;
        Result result = CreateObject(CLSID_Value, text);
        if (Succeeded(result))
            result = text->SetValue(DATATYPE_CharString, Layout, sizeof Layout - 1);
        *out = text.Detach();
        return result;
    }

    Result WasStarted() override
    {
        return gWasStarted ? S_OK : S_FALSE;
    }

    Result Startup(IUnknown*) override
    {
        gWasStarted = true;
        return S_OK;
    }

    Result Cleanup(IUnknown*) override
    {
        gWasStarted = false;
        return S_OK;
    }
};

constinit CForeign gForeign;

} // namespace

OSSIRA_EXPORT Result DllGetClassObject(const CLSID* clsid, const IID* iid, void** out)
{
    return SameGuid(*clsid, CLSID_Foreign) ? gForeign.QueryInterface(*iid, out) : E_NOINTERFACE;
}

OSSIRA_EXPORT Result DllCanUnloadNow()
{
    return gReferences == 0 ? S_OK : S_FALSE;
}

OSSIRA_EXPORT Result DLLGetOpenObjectCount()
{
    return gReferences == 0 ? 0 : 1;
}

OSSIRA_EXPORT Result DLLGetClassCount()
{
    return 1;
}

OSSIRA_EXPORT Result DLLGetClassObjectID(std::uint32_t first, std::uint32_t count, CLSID* out)
{
    if (first != 0 || count != 1)
        return E_INVALIDARG;
    *out = CLSID_Foreign;
    return S_OK;
}

OSSIRA_EXPORT Result DLLGetClassObjectInfo(std::uint32_t index, char* buffer, std::uint32_t size)
{
    if (index != 0 || size < sizeof Layout)
        return E_INVALIDARG;
    for (std::size_t at = 0; at < sizeof Layout; ++at)
        buffer[at] = Layout[at];
    return S_OK;
}

OSSIRA_EXPORT Result DLLRegisterBootstrap(IUnknown* registry, IUnknown*)
{
    ObjectPtr<IClsidRegistry> classes;
    const Result result = ObjectPtr(registry).QueryTo(classes);
    return Failed(result) ? result
                          : classes->RegisterClass(BootstrapRegistryStartup_Level1, CLSID_Foreign);
}
