// A module without the frame that misbehaves as a text in it says: the test writes that text into a
// copy of the file. "crash@DLLGetClassCount" is what it does and where; places are the exports,
// "load" and "unload". Other texts are lies of its own.
#include "OssiraServices.h"

#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

using namespace Tavrik::Ossira;

namespace
{

// Not known to the compiler, for all it knows.
const volatile char gFault[64] = "OSSIRA-TEST-FAULT:none";
volatile std::uintptr_t gZero = 0;

std::string Fault()
{
    std::string text;
    for (const volatile char* at = gFault; *at != '\0'; ++at)
        text += *at;
    return text.substr(text.find(':') + 1);
}

bool Is(const std::string& fault)
{
    return Fault() == fault;
}

void Reach(const std::string& place)
{
    if (Is("crash@" + place))
        *reinterpret_cast<volatile int*>(gZero) = 1;
    if (Is("throw@" + place))
        throw std::runtime_error("thrown on purpose");
    if (Is("exit@" + place))
        std::exit(0);
    while (Is("hang@" + place))
        gZero = 0;
}

struct LoadAndUnload
{
    LoadAndUnload()
    {
        Reach("load");
    }
    ~LoadAndUnload()
    {
        Reach("unload");
    }
} gLoadAndUnload;

CLSID ClassOf(std::uint32_t index)
{
    if (index == 1 && Is("null"))
        return GUID_Null;
    return {Is("twice") ? 0 : index, 0x7E57, 9, {}};
}

} // namespace

OSSIRA_EXPORT Result DllGetClassObject(const CLSID*, const IID*, void** out)
{
    Reach("DllGetClassObject");
    *out = nullptr;
    return E_NOINTERFACE;
}

OSSIRA_EXPORT Result DllCanUnloadNow()
{
    Reach("DllCanUnloadNow");
    return S_OK;
}

OSSIRA_EXPORT Result DLLGetOpenObjectCount()
{
    Reach("DLLGetOpenObjectCount");
    return 0;
}

OSSIRA_EXPORT Result DLLGetClassCount()
{
    Reach("DLLGetClassCount");
    return Is("negative") ? E_ABORT : Is("huge") ? 0x7FFFFFFF : Is("none of them") ? 0 : 2;
}

OSSIRA_EXPORT Result DLLGetClassObjectID(std::uint32_t index, std::uint32_t, CLSID* out)
{
    Reach("DLLGetClassObjectID");
    *out = ClassOf(index);
    return index >= 2 || (index == 1 && Is("second")) ? E_INVALIDARG : S_OK;
}

OSSIRA_EXPORT Result DLLGetClassObjectInfo(std::uint32_t index, char* buffer, std::uint32_t size)
{
    Reach("DLLGetClassObjectInfo");
    std::strncpy(buffer, index == 0 ? "First" : "Second", size);
    return S_OK;
}

OSSIRA_EXPORT Result DLLRegisterBootstrap(IUnknown*, IUnknown*)
{
    Reach("DLLRegisterBootstrap");
    return Is("bootstrap") ? E_ABORT : S_OK;
}
