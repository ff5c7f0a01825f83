// The ground that every other header stands on: identifiers, result codes, the unknown interface
// and the marks for exported functions.
//
// The binary contract. Interfaces are pure virtual, their slots stand in the order of declaration,
// no slot is overloaded, and nothing but fixed-width integers, pointers and references (passed as
// pointers are) goes through them. Nothing that is thrown leaves an operation: every failure is a
// result code. The contract is that of x86-64, on Windows and on Linux.
//
// <windows.h> may come before or after these headers. Where it renames an operation's name by a
// macro (`RegisterClass`), calls through an interface reach the right slot all the same; a class
// that implements such an operation in a file that includes <windows.h> undefines the macro first.
//
// Every header begins with this one, directly or by another, and this one with the language that
// they are written in.
#pragma once

#if (defined(_MSVC_LANG) ? _MSVC_LANG : __cplusplus) < 202002L
#error "The headers of TavrikOssira need C++20: compile with -std=c++20, or /std:c++20."
#endif

#include <bit>
#include <cstddef>
#include <cstdint>

#ifdef _WIN32
#define OSSIRA_EXPORT extern "C" __declspec(dllexport)
#define OSSIRA_IMPORT extern "C" __declspec(dllimport)
#else
#define OSSIRA_EXPORT extern "C" __attribute__((visibility("default")))
#define OSSIRA_IMPORT extern "C"
#endif

// The platform's own declaration is taken where there is one: a compiler may come without it.
#if defined(_WIN32) && __has_include(<guiddef.h>)
#include <guiddef.h>
#else
// 16 bytes that name a class, an interface, a category, a datatype or a key.
struct GUID
{
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];
};

using CLSID = GUID; // names a class
using IID = GUID;   // names an interface
#endif

// Marks the runtime's own exports. `OSSIRA_BUILDING_RUNTIME` is set where the runtime is compiled,
// `OSSIRA_STATIC_RUNTIME` where it is linked into a program instead of loaded.
#if defined(OSSIRA_BUILDING_RUNTIME)
#define OSSIRA_API OSSIRA_EXPORT
#elif defined(OSSIRA_STATIC_RUNTIME)
#define OSSIRA_API extern "C"
#else
#define OSSIRA_API OSSIRA_IMPORT
#endif

// The platform's headers define the codes as macros; they are put aside while ours are declared
// and come back afterwards. Both spell the same values.
#pragma push_macro("S_OK")
#pragma push_macro("S_FALSE")
#pragma push_macro("E_PENDING")
#pragma push_macro("E_NOTIMPL")
#pragma push_macro("E_NOINTERFACE")
#pragma push_macro("E_POINTER")
#pragma push_macro("E_ABORT")
#pragma push_macro("E_FAIL")
#pragma push_macro("E_UNEXPECTED")
#pragma push_macro("E_ACCESSDENIED")
#pragma push_macro("E_OUTOFMEMORY")
#pragma push_macro("E_INVALIDARG")
#undef S_OK
#undef S_FALSE
#undef E_PENDING
#undef E_NOTIMPL
#undef E_NOINTERFACE
#undef E_POINTER
#undef E_ABORT
#undef E_FAIL
#undef E_UNEXPECTED
#undef E_ACCESSDENIED
#undef E_OUTOFMEMORY
#undef E_INVALIDARG

namespace Tavrik::Ossira
{

static_assert(sizeof(GUID) == 16 && sizeof(void*) == 8);

// What every operation answers: negative is failure, everything else success. Some operations
// succeed with a count.
using Result = std::int32_t;

inline constexpr Result S_OK = 0;
inline constexpr Result S_FALSE = 1;
inline constexpr Result E_PENDING = static_cast<Result>(0x8000000A);
inline constexpr Result E_NOTIMPL = static_cast<Result>(0x80004001);
inline constexpr Result E_NOINTERFACE = static_cast<Result>(0x80004002);
inline constexpr Result E_POINTER = static_cast<Result>(0x80004003);
inline constexpr Result E_ABORT = static_cast<Result>(0x80004004);
inline constexpr Result E_FAIL = static_cast<Result>(0x80004005);
inline constexpr Result E_UNEXPECTED = static_cast<Result>(0x8000FFFF);
inline constexpr Result E_ACCESSDENIED = static_cast<Result>(0x80070005);
inline constexpr Result E_OUTOFMEMORY = static_cast<Result>(0x8007000E);
inline constexpr Result E_FILE_EXISTS = static_cast<Result>(0x80070050);
inline constexpr Result E_INVALIDARG = static_cast<Result>(0x80070057);
inline constexpr Result E_NOT_FOUND = static_cast<Result>(0x80500001);
inline constexpr Result E_NOT_SUPPORTED = static_cast<Result>(0x80500002);
inline constexpr Result E_DISPOSED = static_cast<Result>(0x80500003);

[[nodiscard]] constexpr bool Failed(Result code) noexcept
{
    return code < 0;
}

[[nodiscard]] constexpr bool Succeeded(Result code) noexcept
{
    return code >= 0;
}

// Never a valid class, interface or key; names the group of classes that were filed without one.
inline constexpr GUID GUID_Null = {};

// Equality of two identifiers, as two 64-bit comparisons.
[[nodiscard]] constexpr bool SameGuid(const GUID& a, const GUID& b) noexcept
{
    struct Halves
    {
        std::uint64_t First;
        std::uint64_t Second;
    };
    const auto left = std::bit_cast<Halves>(a);
    const auto right = std::bit_cast<Halves>(b);
    return left.First == right.First && left.Second == right.Second;
}

// Whether a reference stands at address 0. To C++ there is none, so a plain comparison is taken
// away by the compiler; callers of other languages pass null where an operation takes a reference.
template <class Object>
[[nodiscard]] inline bool IsNullReference(const Object& object) noexcept
{
#if defined(__GNUC__)
    const Object* address = __builtin_addressof(object);
    __asm__("" : "+r"(address));
#else
    const Object* volatile address = &object;
#endif
    return address == nullptr;
}

// The root of every interface. An interface of your own extends it, or one that does, and tells two
// things that `ObjectPtr` and `OSSIRA_INTERFACES` ask for: `Iid`, its identifier, and `Extends`,
// the interface that it extends.
inline constexpr IID IID_IUnknown = {
    0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

struct IUnknown
{
    static constexpr IID Iid = IID_IUnknown;

    // Asks the object for another of its interfaces. On success *out owns a reference that the
    // caller releases; an object without the interface answers `E_NOINTERFACE` and sets *out to
    // null; a null `out` answers `E_POINTER`, and so does null in the place of `iid`, with *out
    // null. Asked for the unknown interface, an object answers
    // the same pointer through every one of its interfaces. Any thread may call.
    virtual Result QueryInterface(const IID& iid, void** out) = 0;

    // Takes a reference; the result is the new count, for diagnostics only. Any thread may call.
    virtual std::uint32_t AddRef() = 0;

    // Gives a reference back; the result is the new count. At 0 the object is destroyed. Any
    // thread may call.
    virtual std::uint32_t Release() = 0;

protected:
    ~IUnknown() = default;
};

} // namespace Tavrik::Ossira

#pragma pop_macro("S_OK")
#pragma pop_macro("S_FALSE")
#pragma pop_macro("E_PENDING")
#pragma pop_macro("E_NOTIMPL")
#pragma pop_macro("E_NOINTERFACE")
#pragma pop_macro("E_POINTER")
#pragma pop_macro("E_ABORT")
#pragma pop_macro("E_FAIL")
#pragma pop_macro("E_UNEXPECTED")
#pragma pop_macro("E_ACCESSDENIED")
#pragma pop_macro("E_OUTOFMEMORY")
#pragma pop_macro("E_INVALIDARG")

// Creates an object of class *clsid and hands out its interface *iid.
//
// `CLSID_GlobalSingleton` answers the process-wide singleton registry. A class that the runtime
// does not have itself is asked of the global object factory, once the singleton registry exists.
// On success *out owns one reference. A null `out`, `clsid` or `iid` answers `E_POINTER`; an
// unknown class `E_NOINTERFACE`; exhausted memory `E_OUTOFMEMORY`, also where the factory meets it;
// before attach and after detach `E_ACCESSDENIED`. *out is null after every failure that found
// `out` usable. Any thread may call, and so may a module's start-up code; what that must not do is
// said in OssiraServices.h.
OSSIRA_API Tavrik::Ossira::Result CreateClassObject(const CLSID* clsid, const IID* iid, void** out);

// The number of live objects of the runtime's own classes; 0 when the runtime is not attached.
OSSIRA_API std::uint32_t GetObjectOpenCount();
