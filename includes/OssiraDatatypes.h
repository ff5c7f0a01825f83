// Datatypes: what a GUID stands for that a value names as its type. A provider describes, compares
// and interpolates the data of one or more datatypes; the datatypes service is the one directory of
// all providers and asks the right one. Write a provider of your own with OssiraDatatypeBuilder.h.
#pragma once

#include "OssiraBase.h"

namespace Tavrik::Ossira
{

inline constexpr IID IID_IDatatypes = {
    0xB4D62647, 0xB71F, 0x4898, {0xAD, 0xFA, 0x47, 0xC0, 0xE8, 0x1C, 0x1D, 0x6E}};
inline constexpr IID IID_IDatatypesService = {
    0x1C4779C5, 0xDD1B, 0x40D1, {0xBF, 0x5B, 0x40, 0x83, 0x17, 0xA0, 0xBB, 0x91}};

// The category of the CLSID registry under which a module files the classes of its providers. The
// service creates one object of each class, at the first question that it is asked.
inline constexpr GUID REGCAT_Datatypes = {
    0x8EC33D50, 0xCC79, 0x4743, {0x88, 0x9B, 0xA0, 0x0D, 0xC8, 0xBD, 0xE2, 0x75}};

// The description of a datatype.
struct DatatypeCharacteristics
{
    char Name[48];            // zero-terminated
    std::uint32_t Size;       // of a datum, in bytes
    std::uint8_t IsFixedSize; // 1: every datum has exactly that size
    std::uint8_t CanCompare;  // 1: `ValueCompare` is supported
    std::uint8_t CanLerp;     // 1: `ValueLerp` is supported
    std::uint8_t Reserved;    // 0
};

static_assert(sizeof(DatatypeCharacteristics) == 56);
static_assert(offsetof(DatatypeCharacteristics, Size) == 48);

// A provider. The class "IntrinsicDatatypes" is the runtime's own, for the scalars and points among
// the datatypes of OssiraValue.h; a provider never changes, so any thread may call.
//
// For an unknown datatype a provider answers `E_NOT_SUPPORTED`, the service `E_NOT_FOUND`. Data
// need not be aligned. Null in the place of a reference answers `E_POINTER`.
struct IDatatypes : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_IDatatypes;

    // A new enumerator over the datatypes served (`IEnumeratorGUID`), in no particular order. Null
    // `ppv` answers `E_POINTER`, exhausted memory `E_OUTOFMEMORY`.
    virtual Result GetEnumerator(const IID& riid, void** ppv) = 0;

    // `S_OK` when the datatype is served, else `S_FALSE`.
    virtual Result Contains(const GUID& dataType) = 0;

    // Fills the whole record. An unknown datatype leaves it zeroed; null answers `E_POINTER`.
    virtual Result GetCharacteristics(const GUID& dataType, DatatypeCharacteristics* pInfo) = 0;

    // Writes -1, 0 or 1 to *result: a is less, equal, greater. Points compare by x, then by y. A
    // comparison with a NaN says equal. Null pointers answer `E_POINTER`, a datatype that has no
    // order `E_NOT_SUPPORTED`, and a size other than the datatype's `E_INVALIDARG`.
    virtual Result ValueCompare(const GUID& dataType, const void* dataA, std::uint32_t sizeA,
                                const void* dataB, std::uint32_t sizeB, std::int32_t* result) = 0;

    // Writes to `dataR` what lies at `t` on the line from a (0) to b (1); beyond them the line goes
    // on. Answers the number of bytes written, so every code that is not negative is success.
    // `dataR` may be the place of a or of b and may have room to spare; a `sizeR` that is too small
    // or 2 GiB and more answers `E_INVALIDARG`, everything else as `ValueCompare`.
    //
    // Of the runtime's own datatypes: integers are truncated toward zero, and wrap. SINT8 to SINT64
    // truncate the result of a + (b - a) t, PointSINT32 only the distance from a, so the two may
    // differ by one; FLOAT32 rounds to single precision once, PointFLOAT32 before and after adding
    // a. What no integer can hold becomes the lowest one.
    virtual Result ValueLerp(const GUID& dataType, const void* dataA, std::uint32_t sizeA,
                             const void* dataB, std::uint32_t sizeB, double t, void* dataR,
                             std::uint32_t sizeR) = 0;

protected:
    ~IDatatypes() = default;
};

// The directory of datatypes. Ask the singleton registry for `CLSID_DatatypesService`.
//
// The first question (the operations of `IDatatypes`, and `GetDatatype`) installs the runtime's own
// datatypes and then the providers of `REGCAT_Datatypes`, once, whatever comes of it: a provider
// that cannot be created is reported, and those behind it are not installed. Only a shortage of
// memory is different: the next question tries again, and one that found not even the runtime's own
// datatypes answers `E_OUTOFMEMORY`. What a provider asks while it is being installed is answered
// as far as the directory got.
//
// The installation creates singletons and therefore holds the process-wide section, which other
// threads that ask meanwhile wait for: a provider that is just being installed does not wait for
// another thread that asks the service or the singleton registry. Apart from that providers are
// called and released with no lock held.
//
// A datatype belongs to the provider that was registered for it first. Questions cost what a look
// into a dictionary costs, and what the provider makes of them.
// Two services that are registered with each other for one datatype would ask each other for ever.
struct IDatatypesService : IDatatypes
{
    using Extends = IDatatypes;
    static constexpr IID Iid = IID_IDatatypesService;

    // Registers a provider for one datatype and takes a reference on it. When the datatype has a
    // provider already, that one stays: `S_OK`. `GUID_Null`, a datatype that the provider does not
    // contain, and the service itself as provider answer `E_INVALIDARG`, null `E_POINTER`. None of
    // the registering operations installs anything, so what is registered before the first question
    // comes before the runtime's own datatypes.
    virtual Result RegisterDatatype(const GUID& dataType, IDatatypes* pType) = 0;

    // Does so for everything that the provider enumerates. Ends at the first failure; what was
    // registered until then stays.
    virtual Result RegisterDatatypes(IDatatypes* pTypes) = 0;

    // Forgets a datatype, whoever provides it; an unknown one is no error. `GUID_Null` answers
    // `E_INVALIDARG`.
    virtual Result UnregisterDatatype(const GUID& dataType) = 0;

    // Does so for everything that the provider enumerates, whoever provides it.
    virtual Result UnregisterDatatypes(IDatatypes* pTypes) = 0;

    // Forgets everything. From then on nothing is installed any more: the directory holds what is
    // registered.
    virtual Result ClearDatatypes() = 0;

    // The provider of a datatype, with a reference; an unknown datatype answers `E_NOT_FOUND`, null
    // `E_POINTER`.
    virtual Result GetDatatype(const GUID& dataType, IDatatypes** ppType) = 0;

protected:
    ~IDatatypesService() = default;
};

} // namespace Tavrik::Ossira
