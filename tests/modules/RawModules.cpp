// Modules without the frame, written against the binary contract alone. They are all made of this
// source, and each has the name of its fault beside it, or what it does and where, as in
// "crash@DLLGetClassCount": places are the exports, "load" and "unload". An export is left out by a
// definition that gives it another name.
#include "TestItem.h"
#include "TestModules.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

using namespace Tavrik::Ossira;
using namespace Tavrik::Ossira::tTest;

extern "C" const char OssiraTestFault[];
#ifdef OSSIRA_NEEDS_HELPER
OSSIRA_IMPORT std::int32_t OssiraTestHelperAnswer();
#endif

namespace
{

std::atomic<std::int32_t> gLiveObjects = 0;

bool Is(std::string_view fault)
{
    return fault == OssiraTestFault;
}

volatile std::uintptr_t gZero = 0; // for all the compiler knows it is not

void Reach(std::string_view place)
{
    const std::string_view fault = OssiraTestFault;
    const std::size_t at = fault.find('@');
    if (at == fault.npos || fault.substr(at + 1) != place)
        return;
    if (fault.starts_with("crash"))
        *reinterpret_cast<volatile int*>(gZero) = 1;
    if (fault.starts_with("throw"))
        throw std::runtime_error("thrown on purpose");
    if (fault.starts_with("exit"))
        std::exit(0);
    while (fault.starts_with("hang"))
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

// What is thrown has a type that only this module knows, and destroying it runs this module's code.
struct Complaint
{
    std::string Text = std::string(100, '!');
};

// Answers what is said, unless the fault is to throw here.
Result OrThrow(bool isToThrow, Result otherwise)
{
    return isToThrow ? throw Complaint() : otherwise;
}

// What it answers when it did not attach.
Result OrDenied(Result otherwise)
{
    return Is("NeverAttached") ? E_ACCESSDENIED : otherwise;
}

ObjectPtr<TestItem> NewObject()
{
    ++gLiveObjects;
    return TestItem::New([] { --gLiveObjects; });
}

ObjectPtr<IUnknown> gHeld; // until the module is unloaded

[[maybe_unused]] const bool gIsElsewhere =
    Is("ChangesFolder") && (current_path(std::filesystem::temp_directory_path()), true);

// Enters an object of this module as a singleton, after a flush which must not unload the module.
Result EnterSingleton(IUnknown& argument)
{
    ObjectPtr<ISingleton> singletons;
    ObjectPtr<IObjectFactory> factory;
    for (const Result result : {argument.QueryInterface(IID_ISingleton, singletons.PutVoid()),
                                singletons->GetClassObject(CLSID_GlobalObjectFactory,
                                                           IID_IObjectFactory, factory.PutVoid()),
                                factory->FlushModules()})
    {
        if (Failed(result))
            return result;
    }
    return singletons->RegisterObject(CLSID_RawSecond, NewObject().Get());
}

} // namespace

OSSIRA_EXPORT Result DllGetClassObject(const CLSID*, const IID* iid, void** out)
{
    Reach("DllGetClassObject");
    *out = nullptr;
    if (Is("CreatorRunsOutOfMemory"))
        throw std::bad_alloc();
    if (Is("CreatorFails") || Is("CreatorAnswersNull") || Is("CreatorThrows"))
        return OrThrow(Is("CreatorThrows"), Is("CreatorFails") ? E_ABORT : S_OK);
    return NewObject()->QueryInterface(*iid, out);
}

OSSIRA_EXPORT Result DllCanUnloadNow()
{
    Reach("DllCanUnloadNow");
    const Result answer = OrDenied(gLiveObjects == 0 ? S_OK : S_FALSE);
    if (Is("HoldsUntilAsked"))
        gHeld.Reset();
    return OrThrow(Is("CanUnloadThrows"), answer);
}

OSSIRA_EXPORT Result DLLGetOpenObjectCount()
{
    Reach("DLLGetOpenObjectCount");
    return OrDenied(gLiveObjects);
}

OSSIRA_EXPORT Result DLLGetClassCount()
{
    Reach("DLLGetClassCount");
#ifdef OSSIRA_NEEDS_HELPER
    return OssiraTestHelperAnswer();
#else
    const Result many = Is("HugeCount") ? 0x7FFFFFFF : Is("CountRunsOut") ? E_OUTOFMEMORY : 2;
    const bool hasNone = Is("NoClasses") || Is("EntersSingleton");
    const Result negative = Is("CountDenied") ? E_ACCESSDENIED : E_ABORT;
    const bool isNegative = Is("NegativeCount") || Is("CountDenied");
    return OrThrow(Is("CountThrows"), OrDenied(isNegative ? negative : hasNone ? 0 : many));
#endif
}

OSSIRA_EXPORT Result DLLGetClassObjectID(std::uint32_t index, std::uint32_t, CLSID* out)
{
    Reach("DLLGetClassObjectID");
    if (index == 1 && (Is("SecondIdFails") || Is("SecondIdThrows")))
        return OrThrow(Is("SecondIdThrows"), E_ABORT);
    const CLSID& second = Is("SecondIdNull") ? GUID_Null : CLSID_RawSecond;
    *out = index == 0 || Is("SameIdTwice") ? CLSID_RawFirst : second;
    return index < 2 ? S_OK : E_INVALIDARG;
}

OSSIRA_EXPORT Result DLLGetClassObjectInfo(std::uint32_t index, char* buffer, std::uint32_t size)
{
    Reach("DLLGetClassObjectInfo");
    std::memset(buffer, Is("EndlessText") ? 'x' : 0, size); // without a zero at its end
    if (!Is("EndlessText"))
        std::strcpy(buffer, index == 0 ? "first" : "second");
    return index == 1 && Is("SecondTextFails") ? E_ABORT : S_OK;
}

OSSIRA_EXPORT Result DLLRegisterBootstrap(IUnknown*, IUnknown* argument)
{
    Reach("DLLRegisterBootstrap");
    if (Is("EntersSingleton") || Is("FlushesAndEntersSingleton"))
        return EnterSingleton(*argument);
    if (Is("Holds") || Is("HoldsUntilAsked"))
        gHeld = ObjectPtr<IUnknown>(argument);
    return OrThrow(Is("BootstrapThrows"), Is("BootstrapFails") ? E_ABORT : S_OK);
}
