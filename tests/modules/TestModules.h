// What the test modules offer to the tests: their classes, their own interface and the keys under
// which they leave traces.
#pragma once

#include "OssiraServices.h"

namespace Tavrik::Ossira::tTest
{

// --- "good": Counter.dll ----------------------------------------------------------------------

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

// --- "bootstrap": BootstrapOuter.dll, BootstrapInner.dll --------------------------------------

// The classes append their letter and what they did ("+" start-up, "-" clean-up) to the narrow
// string under this key of the value set that is the bootstrap's parameter.
inline constexpr GUID BootstrapTrace = {
    0xEB74E08E, 0xE544, 0x4C84, {0xAA, 0xEE, 0x31, 0x2F, 0x14, 0xA0, 0x15, 0x13}};

// With every module, start-up and clean-up write this. A and B are started at level 0, in the order
// of their identifiers, C at level 1 and D at level 2; clean-up has D at level 2, C at level 1 and
// A at level 0. A, C and D live in the outer module, B in the inner one.
inline constexpr char BootstrapFullTrace[] = "A+B+C+D+D-C-A-";

inline constexpr CLSID CLSID_BootstrapA = {
    0x10CCCC62, 0x005E, 0x459A, {0xA1, 0xD7, 0x62, 0x3E, 0x6D, 0xC8, 0x1B, 0x89}};
inline constexpr CLSID CLSID_BootstrapB = {
    0x20E4C8B1, 0xE943, 0x4E4F, {0xB6, 0x1C, 0xAA, 0x43, 0x64, 0xC2, 0x30, 0x5E}};
inline constexpr CLSID CLSID_BootstrapC = {
    0x3069A2A3, 0x395D, 0x4F25, {0x8E, 0x5C, 0x1F, 0x33, 0x60, 0x0A, 0x25, 0x31}};
inline constexpr CLSID CLSID_BootstrapD = {
    0x40DB878B, 0x3573, 0x4940, {0xB7, 0xF3, 0x2F, 0x9F, 0x50, 0x5F, 0xA4, 0x43}};

// --- "failing-bootstrap": BootstrapFailing.dll -------------------------------------------------

// X, Y and Z enrol for start-up and clean-up at level 0, in that order, and Z at level 1 as well. Y
// answers `E_ABORT` to both: its trace is written before it fails.
inline constexpr CLSID CLSID_BootstrapX = {
    0x11AF7602, 0x8347, 0x48E3, {0x91, 0x0B, 0x24, 0xF8, 0x3F, 0x6D, 0xCF, 0x2D}};
inline constexpr CLSID CLSID_BootstrapY = {
    0x12EF0304, 0x619F, 0x425C, {0x97, 0xDF, 0x57, 0x9D, 0x61, 0x38, 0xB9, 0xA1}};
inline constexpr CLSID CLSID_BootstrapZ = {
    0x134580BA, 0xCB6C, 0x4A52, {0x88, 0x65, 0xC4, 0x49, 0xF5, 0xA2, 0x7F, 0x84}};

// --- "callback": Callback.dll ------------------------------------------------------------------

// Calls the singleton registry, the factory and the CLSID registry while the module's static
// objects are built and destroyed, from its class's constructor and destructor, and from `Startup`.
inline constexpr CLSID CLSID_Callback = {
    0xD8AB35EB, 0x9D76, 0x4D3E, {0xBA, 0x5B, 0x90, 0xE9, 0x34, 0x7A, 0x78, 0x08}};
inline constexpr IID IID_ICallback = {
    0xF1DF7ACC, 0xA529, 0x4F16, {0x84, 0x0A, 0xE0, 0xBE, 0x21, 0x35, 0x6D, 0x01}};

// What the calls ended with; `E_PENDING` where none was made yet.
struct CallbackResults
{
    Result ModuleStart;
    Result Construction;
    Result Startup;
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

// --- "unique": UniqueSymbols.dll ---------------------------------------------------------------

// A class without interfaces of its own, in a module that the platform may keep mapped for ever.
inline constexpr CLSID CLSID_UniqueSymbols = {
    0x07BD570D, 0x0F70, 0x4ABF, {0x89, 0xA2, 0x37, 0xAE, 0xB1, 0x3A, 0xE3, 0x0F}};

// --- "dependent": Dependent.dll, which needs Helper.dll ----------------------------------------

// Its `Startup` answers what the helper answers, which is this.
inline constexpr CLSID CLSID_Dependent = {
    0xA12CCC62, 0x005E, 0x459A, {0xA1, 0xD7, 0x62, 0x3E, 0x6D, 0xC8, 0x1B, 0x89}};
inline constexpr Result HelperAnswer = 42;

// --- "raw": modules without the frame, each with one fault -------------------------------------

// The classes of every raw module, unless its fault says otherwise. The second one comes second in
// the module's list.
inline constexpr CLSID CLSID_RawFirst = {
    0xDB57E978, 0x75EA, 0x4C90, {0x93, 0xAF, 0x37, 0xF0, 0x6D, 0x33, 0x7B, 0x78}};
inline constexpr CLSID CLSID_RawSecond = {
    0xF0811685, 0x092E, 0x4181, {0x8A, 0xEA, 0xB7, 0xFB, 0xF8, 0xD0, 0x34, 0x85}};

// --- "datatypes": Datatypes.dll -----------------------------------------------------------------

// Providers of one datatype each, in the order of their identifiers: the first asks the singleton
// of the datatypes service while it is created, the second cannot be created.
inline constexpr GUID CLSID_AskingDatatypes = {
    0xB1F16310, 0x5075, 0x4C5E, {0x9A, 0xF5, 0xF5, 0xCE, 0x39, 0xBC, 0xCD, 0xE8}};
inline constexpr GUID CLSID_UnbuildableDatatypes = {
    0xC7FD4F20, 0x8102, 0x4987, {0x87, 0xA4, 0x62, 0x0E, 0x42, 0xF7, 0x32, 0x7B}};
inline constexpr GUID CLSID_LateDatatypes = {
    0xCA433330, 0x32F2, 0x423F, {0x8F, 0xD2, 0x97, 0xA6, 0x56, 0xAF, 0x54, 0xD0}};
inline constexpr GUID DATATYPE_Asking = {
    0x3D80F140, 0x7C38, 0x4F4E, {0x91, 0xE1, 0x10, 0x65, 0xD6, 0x53, 0xE8, 0x7F}};
inline constexpr GUID DATATYPE_Late = {
    0xF430B050, 0x7E29, 0x454D, {0x8B, 0xCE, 0x4F, 0xC7, 0x7A, 0x3B, 0xDE, 0x83}};

} // namespace Tavrik::Ossira::tTest
