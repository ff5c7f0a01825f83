// Modules without the frame, written against the binary contract alone. This source is compiled
// once for each fault: `OSSIRA_FAULT` names the behaviour that answers, `OSSIRA_WITHOUT_...` leaves
// an export out.
#include "OssiraBase.h"
#include "TestModules.h"

#include <atomic>
#include <cstring>
#include <new>
#include <stdexcept>

using namespace Tavrik::Ossira;
using namespace Tavrik::Ossira::tTest;

namespace
{

std::atomic<std::int32_t> gLiveObjects = 0;

// An object by hand.
class RawObject final : public IUnknown
{
public:
    RawObject()
    {
        ++gLiveObjects;
    }

    ~RawObject()
    {
        --gLiveObjects;
    }

    Result QueryInterface(const IID& iid, void** out) override
    {
        *out = SameGuid(iid, IID_IUnknown) ? this : nullptr;
        if (*out == nullptr)
            return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }

    std::uint32_t AddRef() override
    {
        return ++mCount;
    }

    std::uint32_t Release() override
    {
        const std::uint32_t count = --mCount;
        if (count == 0)
            delete this;
        return count;
    }

private:
    std::atomic<std::uint32_t> mCount = 1;
};

// --- The behaviours: the decent one and its faults ----------------------------------------------

struct Decent
{
    static Result GetClassObject(const CLSID&, const IID& iid, void** out)
    {
        auto* const object = new RawObject;
        const Result result = object->QueryInterface(iid, out);
        object->Release();
        return result;
    }

    static Result CanUnloadNow()
    {
        return gLiveObjects == 0 ? S_OK : S_FALSE;
    }

    static Result GetClassCount()
    {
        return 2;
    }

    static Result GetClassID(std::uint32_t index, CLSID* out)
    {
        if (index >= 2)
            return E_INVALIDARG;
        *out = index == 0 ? CLSID_RawFirst : CLSID_RawSecond;
        return S_OK;
    }

    static Result GetClassInfo(std::uint32_t, char* buffer, std::uint32_t size)
    {
        std::strncpy(buffer, "Raw", size);
        return S_OK;
    }

    static Result RegisterBootstrap()
    {
        return S_OK;
    }
};

struct NegativeCount : Decent
{
    static Result GetClassCount()
    {
        return E_ABORT;
    }
};

struct HugeCount : Decent
{
    static Result GetClassCount()
    {
        return 0x7FFFFFFF;
    }
};

struct NoClasses : Decent
{
    static Result GetClassCount()
    {
        return 0;
    }
};

struct SecondIdFails : Decent
{
    static Result GetClassID(std::uint32_t index, CLSID* out)
    {
        return index == 1 ? E_ABORT : Decent::GetClassID(index, out);
    }
};

struct SecondTextFails : Decent
{
    static Result GetClassInfo(std::uint32_t index, char* buffer, std::uint32_t size)
    {
        return index == 1 ? E_ABORT : Decent::GetClassInfo(index, buffer, size);
    }
};

struct EndlessText : Decent
{
    static Result GetClassInfo(std::uint32_t, char* buffer, std::uint32_t size)
    {
        std::memset(buffer, 'x', size); // no terminating zero
        return S_OK;
    }
};

struct CreatorFails : Decent
{
    static Result GetClassObject(const CLSID&, const IID&, void**)
    {
        return E_ABORT;
    }
};

struct CreatorAnswersNull : Decent
{
    static Result GetClassObject(const CLSID&, const IID&, void** out)
    {
        *out = nullptr;
        return S_OK;
    }
};

struct BootstrapFails : Decent
{
    static Result RegisterBootstrap()
    {
        return E_ABORT;
    }
};

// What is thrown has a type that only this module knows, and destroying it runs this module's code.
struct Complaint
{
    ~Complaint()
    {
        ++Destroyed;
    }

    static inline std::atomic<std::int32_t> Destroyed = 0;
};

struct CountThrows : Decent
{
    static Result GetClassCount()
    {
        throw Complaint();
    }
};

struct SecondIdThrows : Decent
{
    static Result GetClassID(std::uint32_t index, CLSID* out)
    {
        if (index == 1)
            throw std::runtime_error("no identifier");
        return Decent::GetClassID(index, out);
    }
};

struct CreatorThrows : Decent
{
    static Result GetClassObject(const CLSID&, const IID&, void**)
    {
        throw Complaint();
    }
};

struct CreatorRunsOutOfMemory : Decent
{
    static Result GetClassObject(const CLSID&, const IID&, void**)
    {
        throw std::bad_alloc();
    }
};

struct BootstrapThrows : Decent
{
    static Result RegisterBootstrap()
    {
        throw Complaint();
    }
};

struct CanUnloadThrows : Decent
{
    static Result CanUnloadNow()
    {
        throw Complaint();
    }
};

using Fault = OSSIRA_FAULT;

} // namespace

#ifndef OSSIRA_WITHOUT_DllGetClassObject
OSSIRA_EXPORT Result DllGetClassObject(const CLSID* clsid, const IID* iid, void** out)
{
    return Fault::GetClassObject(*clsid, *iid, out);
}
#endif

#ifndef OSSIRA_WITHOUT_DllCanUnloadNow
OSSIRA_EXPORT Result DllCanUnloadNow()
{
    return Fault::CanUnloadNow();
}
#endif

#ifndef OSSIRA_WITHOUT_DLLGetOpenObjectCount
OSSIRA_EXPORT Result DLLGetOpenObjectCount()
{
    return gLiveObjects;
}
#endif

#ifndef OSSIRA_WITHOUT_DLLGetClassCount
OSSIRA_EXPORT Result DLLGetClassCount()
{
    return Fault::GetClassCount();
}
#endif

#ifndef OSSIRA_WITHOUT_DLLGetClassObjectID
OSSIRA_EXPORT Result DLLGetClassObjectID(std::uint32_t first, std::uint32_t count, CLSID* out)
{
    for (std::uint32_t index = 0; index < count; ++index)
    {
        if (const Result result = Fault::GetClassID(first + index, out + index); Failed(result))
            return result;
    }
    return S_OK;
}
#endif

#ifndef OSSIRA_WITHOUT_DLLGetClassObjectInfo
OSSIRA_EXPORT Result DLLGetClassObjectInfo(std::uint32_t index, char* buffer, std::uint32_t size)
{
    return Fault::GetClassInfo(index, buffer, size);
}
#endif

#ifndef OSSIRA_WITHOUT_DLLRegisterBootstrap
OSSIRA_EXPORT Result DLLRegisterBootstrap(IUnknown*, IUnknown*)
{
    return Fault::RegisterBootstrap();
}
#endif
