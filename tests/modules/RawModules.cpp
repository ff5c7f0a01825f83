// Modules without the frame, written against the binary contract alone. This source is compiled
// once for each fault, of which OSSIRA_FAULT is the name. An export is left out by a definition
// that gives it another name.
#include "TestItem.h"
#include "TestModules.h"

#include <cstring>

using namespace Tavrik::Ossira;
using namespace Tavrik::Ossira::tTest;

OSSIRA_IMPORT std::int32_t OssiraTestHelperAnswer();

namespace
{

std::atomic<std::int32_t> gLiveObjects = 0;

constexpr bool Is(std::string_view fault)
{
    return fault == OSSIRA_FAULT;
}

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

} // namespace

OSSIRA_EXPORT Result DllGetClassObject(const CLSID*, const IID* iid, void** out)
{
    *out = nullptr;
    if (Is("CreatorRunsOutOfMemory"))
        throw std::bad_alloc();
    if (Is("CreatorFails") || Is("CreatorAnswersNull") || Is("CreatorThrows"))
        return OrThrow(Is("CreatorThrows"), Is("CreatorFails") ? E_ABORT : S_OK);
    ++gLiveObjects;
    return TestItem::New([] { --gLiveObjects; })->QueryInterface(*iid, out);
}

OSSIRA_EXPORT Result DllCanUnloadNow()
{
    return OrThrow(Is("CanUnloadThrows"), gLiveObjects == 0 ? S_OK : S_FALSE);
}

OSSIRA_EXPORT Result DLLGetOpenObjectCount()
{
    return gLiveObjects;
}

OSSIRA_EXPORT Result DLLGetClassCount()
{
    if constexpr (Is("NeedsHelper"))
        return OssiraTestHelperAnswer();
    constexpr Result many = Is("HugeCount") ? 0x7FFFFFFF : 2;
    return OrThrow(Is("CountThrows"), Is("NegativeCount") ? E_ABORT : Is("NoClasses") ? 0 : many);
}

OSSIRA_EXPORT Result DLLGetClassObjectID(std::uint32_t index, std::uint32_t, CLSID* out)
{
    if (index == 1 && (Is("SecondIdFails") || Is("SecondIdThrows")))
        return OrThrow(Is("SecondIdThrows"), E_ABORT);
    *out = index == 0 ? CLSID_RawFirst : CLSID_RawSecond;
    return index < 2 ? S_OK : E_INVALIDARG;
}

OSSIRA_EXPORT Result DLLGetClassObjectInfo(std::uint32_t index, char* buffer, std::uint32_t size)
{
    std::memset(buffer, Is("EndlessText") ? 'x' : 0, size); // without a zero at its end
    return index == 1 && Is("SecondTextFails") ? E_ABORT : S_OK;
}

OSSIRA_EXPORT Result DLLRegisterBootstrap(IUnknown*, IUnknown*)
{
    return OrThrow(Is("BootstrapThrows"), Is("BootstrapFails") ? E_ABORT : S_OK);
}
