// What the test modules offer to the tests: their classes, an interface and the trace they leave.
#pragma once

#include "OssiraBullets.h"
#include "OssiraServices.h"

namespace Tavrik::Ossira::tTest
{

// Identifiers for tests: those of ascending numbers below 256 are in ascending order. The tests'
// own are of kind 0, those of modules are not.
[[nodiscard]] constexpr GUID Numbered(std::uint32_t number, std::uint16_t kind = 0)
{
    return {number, 0x7E57, kind, {}};
}

// --- "good": Counter.dll; "unique": UniqueSymbols.dll, which the platform may keep mapped

inline constexpr CLSID CLSID_Counter = Numbered(1, 6);
inline constexpr IID IID_ICounter = Numbered(2, 6);

struct ICounter : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_ICounter;

    // 1, 2, 3 and so on, for this object.
    virtual Result Count() = 0;

    // The same over all objects since the module's static objects were built.
    virtual Result CountInModule() = 0;

protected:
    ~ICounter() = default;
};

// --- "pool": PoolHolder.dll

// Offers `ICounter`: counting in the module makes the pool of the process, whose box the module
// then keeps for good, and answers how many copies of a job ran on it: one for each of three
// workers and, unless they were done first, the caller's.
inline constexpr CLSID CLSID_PoolHolder = Numbered(1, 7);

// --- "bootstrap": BootstrapOuter.dll, BootstrapInner.dll; "failing-bootstrap"

// The classes add their letter and what they did ("+" start-up, "-" clean-up) to the narrow string
// under this key of the value set that is the bootstrap's parameter.
inline constexpr GUID BootstrapTrace = Numbered(0, 1);

// A and B are at level 0, C at level 1 and D at level 2, for both phases; A, C and D live in the
// outer module, B in the inner one. In the failing one, at level 0, X succeeds, Y and Z fail.
inline Result LeaveTrace(IUnknown& param, const std::string& step)
{
    ObjectPtr<IValueSet> set;
    std::string trace;
    param.QueryInterface(IID_IValueSet, set.PutVoid());
    const Result read = GetValueCharString(set.Get(), BootstrapTrace, &trace);
    return read == E_OUTOFMEMORY ? read
                                 : SetValueCharString(set.Get(), BootstrapTrace, trace + step);
}

// --- "callback": Callback.dll

// Enrols for start-up at level 1. Wherever the module's code runs it calls the services, files
// another class at its own level and takes it out again; when all went well it adds a letter to the
// trace in the singleton of the value set: m for the module's start, c for the object's
// construction, s for its start-up, d for its destruction, e for the module's end.
inline constexpr CLSID CLSID_Callback = Numbered(0, 2);
inline constexpr CLSID CLSID_NextTracer = Numbered('C', 1); // which its start-up takes out

// --- "raw": modules without the frame, one fault each; "dependent": one that needs Helper.dll

// The classes of every raw module, in the order of its list, unless its fault says otherwise.
inline constexpr CLSID CLSID_RawFirst = Numbered(1, 3);
inline constexpr CLSID CLSID_RawSecond = Numbered(2, 3);

// --- "datatypes": Datatypes.dll

// Providers of a datatype, in the order of their identifiers: the first asks the singleton of the
// datatypes service while it is created, the second cannot be created.
inline constexpr CLSID CLSID_AskingDatatypes = Numbered(1, 5);
inline constexpr CLSID CLSID_UnbuildableDatatypes = Numbered(2, 5);
inline constexpr GUID DATATYPE_Asking = Numbered(4, 5);

} // namespace Tavrik::Ossira::tTest
