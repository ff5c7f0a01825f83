// What the test modules offer to the tests: their classes, their own interface and the keys under
// which they leave traces.
#pragma once

#include "OssiraServices.h"

namespace Tavrik::Ossira::tTest
{

// Identifiers for tests: those of ascending numbers below 256 are in ascending order. The tests'
// own are of kind 0, those of modules are not.
[[nodiscard]] constexpr GUID Numbered(std::uint32_t number, std::uint16_t kind = 0)
{
    return {number, 0x7E57, kind, {}};
}

// --- "good": Counter.dll; "unique": UniqueSymbols.dll, which the platform may keep mapped for ever
// --

inline constexpr CLSID CLSID_Counter = {
    0xF524AE7D, 0x080A, 0x426B, {0x92, 0xE2, 0xE2, 0x9F, 0x7B, 0xDA, 0x86, 0x29}};
inline constexpr IID IID_ICounter = {
    0x552BE5DD, 0xBB84, 0x4203, {0x99, 0x9B, 0xAB, 0x27, 0x5D, 0x44, 0xF6, 0xB1}};

struct ICounter : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_ICounter;

    // 1, 2, 3 and so on, for this object.
    virtual Result Count() = 0;

    // The same over all objects since the module's static objects were built.
    virtual Result CountInModule() = 0;

    // A value of the runtime, holding this object's count as a 32-bit number.
    virtual Result MakeValue(const IID& iid, void** ppv) = 0;

    // When the module's static objects are destroyed, 1 is added to *witness.
    virtual Result WatchUnload(std::int32_t* witness) = 0;

protected:
    ~ICounter() = default;
};

// --- "bootstrap": BootstrapOuter.dll, BootstrapInner.dll; "failing-bootstrap":
// BootstrapFailing.dll --

// The classes append their letter and what they did ("+" start-up, "-" clean-up) to the narrow
// string under this key of the value set that is the bootstrap's parameter.
inline constexpr GUID BootstrapTrace = Numbered(0, 1);

// With both modules, start-up and clean-up write this. A and B are started at level 0, in the order
// of their identifiers, C at level 1 and D at level 2; clean-up has D at level 2, C at level 1 and
// A at level 0. A, C and D live in the outer module, B in the inner one. In the failing one X, Y
// and Z enrol for both at level 0, and Z at level 1 as well; Y answers `E_ABORT` once it left its
// trace.
inline constexpr char BootstrapFullTrace[] = "A+B+C+D+D-C-A-";

// --- "callback": Callback.dll ------------------------------------------------------------------

// Calls the singleton registry, the factory and the CLSID registry while the module's static
// objects are built and destroyed, from its class's constructor and destructor, and from `Startup`.
inline constexpr CLSID CLSID_Callback = Numbered(0, 2);
inline constexpr IID IID_ICallback = Numbered(1, 2);

// What the calls ended with; `E_PENDING` where none was made yet.
struct CallbackResults
{
    Result ModuleStart, Construction, Startup;
    Result Destruction; // written when the object dies
    Result ModuleEnd;   // written when the module's static objects die
};

struct ICallback : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_ICallback;

    // Writes what is known, and what becomes known later until the module is gone.
    virtual Result ReportTo(CallbackResults* results) = 0;

protected:
    ~ICallback() = default;
};

// --- "raw": modules without the frame, each with one fault; "dependent": a decent one that needs
// --- Helper.dll
// -----------------------------------------------------------------------------------

// The classes of every raw module, unless its fault says otherwise. The second one comes second in
// the module's list.
inline constexpr CLSID CLSID_RawFirst = Numbered(1, 3);
inline constexpr CLSID CLSID_RawSecond = Numbered(2, 3);

// --- "datatypes": Datatypes.dll -----------------------------------------------------------------

// Providers of one datatype each, in the order of their identifiers: the first asks the singleton
// of the datatypes service while it is created, the second cannot be created.
inline constexpr CLSID CLSID_AskingDatatypes = Numbered(1, 5);
inline constexpr CLSID CLSID_UnbuildableDatatypes = Numbered(2, 5);
inline constexpr CLSID CLSID_LateDatatypes = Numbered(3, 5);
inline constexpr GUID DATATYPE_Asking = Numbered(4, 5);
inline constexpr GUID DATATYPE_Late = Numbered(5, 5);

} // namespace Tavrik::Ossira::tTest
