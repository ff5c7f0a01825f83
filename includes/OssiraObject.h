// The small interfaces that stand beside the unknown on most objects of the runtime. They show what
// every interface tells of itself: `Iid`, and in `Extends` the interface that it extends.
#pragma once

#include "OssiraBase.h"

namespace Tavrik::Ossira
{

inline constexpr IID IID_IObjectName = {
    0x27A9CF91, 0x40E4, 0x47FB, {0x98, 0xA4, 0x5F, 0xBB, 0x8B, 0xDF, 0x76, 0xB0}};
inline constexpr IID IID_IObjectIdentity = {
    0x39EDF038, 0x7BDB, 0x4A36, {0x88, 0x50, 0x5B, 0x31, 0x4B, 0x75, 0x13, 0xC7}};
inline constexpr IID IID_IObjectLock = {
    0x65C8DFB0, 0xE5F7, 0x47F2, {0xBF, 0x84, 0x7A, 0x8C, 0xCE, 0x9D, 0xFC, 0xEA}};
inline constexpr IID IID_IComparable = {
    0x4EB7A24D, 0x6576, 0x4D22, {0x96, 0x5B, 0xE4, 0x4D, 0xBE, 0xEA, 0xB1, 0xEC}};
inline constexpr IID IID_ICloneable = {
    0x4D6ECFF8, 0xDE40, 0x4957, {0x8E, 0x96, 0x1D, 0x0B, 0x0C, 0x05, 0x7C, 0x0E}};

// A name that a caller gives to one object, for diagnostics: the list of objects that are still
// alive at detach prints it.
struct IObjectName : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_IObjectName;

    // Stores a copy of an 8-bit, zero-terminated string; null stores the empty string. Answers
    // `S_OK`, or `E_OUTOFMEMORY` and keeps the former name. Any thread may call.
    virtual Result SetObjectName(const char* name) = 0;

    // With a null buffer: the name's length in characters. Otherwise copies at most `size`
    // characters, adds a terminating zero when there is room, and answers the number copied. A
    // negative size answers `E_INVALIDARG`. Any thread may call.
    virtual Result GetObjectName(char* buffer, std::int32_t size) = 0;

protected:
    ~IObjectName() = default;
};

// What class an object is.
struct IObjectIdentity : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_IObjectIdentity;

    // Writes the class identifier; a null pointer answers `E_POINTER`. Any thread may call.
    virtual Result GetObjectClassID(CLSID* clsid) = 0;

    // With a null buffer: the class name's length in characters. A size smaller than the length
    // answers `E_INVALIDARG`. Otherwise copies the name and answers its length; the terminating
    // zero is written only when the size exceeds the length. Any thread may call.
    virtual Result GetObjectClassName(char* buffer, std::int32_t size) = 0;

protected:
    ~IObjectIdentity() = default;
};

// A re-entrant lock of one object, held by a caller to make several calls one atomic sequence.
struct IObjectLock : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_IObjectLock;

    // Enters the object's lock, waiting while another thread holds it. The containers ignore
    // `mode`. Answers `S_OK`. Balance every call with `Unlock` on the same thread.
    virtual Result Lock(std::uint32_t mode) = 0;

    // Leaves the lock. Answers `S_OK`.
    virtual Result Unlock() = 0;

protected:
    ~IObjectLock() = default;
};

struct IComparable : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_IComparable;

    // Compares with another object and writes a negative number, zero or a positive number to
    // *result. Null pointers answer `E_POINTER`; an object that cannot be compared with this one
    // its own code. Any thread may call. The object reads itself under its lock and leaves it
    // before it asks the other, so an object may be compared with itself, and two objects with each
    // other from two threads. When one is written meanwhile, the answer is true of something that
    // it held during the call; that it is being written is never a reason to fail. It takes time
    // linear in the size, and memory beyond 1024 bytes.
    virtual Result Compare(IUnknown* pv, std::int32_t* result) = 0;

protected:
    ~IComparable() = default;
};

struct ICloneable : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_ICloneable;

    // Makes a new object of the same class with the same content and hands out its interface
    // `riid`; the name is not copied. A null `ppv` answers `E_POINTER`, exhausted memory
    // `E_OUTOFMEMORY`, a missing interface `E_NOINTERFACE`, and no object is left behind. The
    // content is that of one moment, copied under the object's lock. Any thread may call.
    virtual Result Clone(const IID& riid, void** ppv) = 0;

protected:
    ~ICloneable() = default;
};

} // namespace Tavrik::Ossira
