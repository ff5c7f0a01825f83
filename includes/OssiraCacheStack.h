// A pool of reusable objects of one class.
#pragma once

#include "OssiraModified.h"

namespace Tavrik::Ossira
{

inline constexpr IID IID_IStack = {
    0x175331EB, 0xACBA, 0x42CD, {0x8C, 0xCC, 0x57, 0x23, 0x01, 0x19, 0xF8, 0xC7}};
inline constexpr IID IID_IObjectCacheStack = {
    0x56965172, 0x7D5C, 0x49B6, {0x82, 0x8F, 0xDE, 0x42, 0x20, 0x56, 0xA3, 0xE3}};
inline constexpr IID IID_IClsidObjectCacheStack = {
    0x60DB8177, 0x2599, 0x49A4, {0xBB, 0x17, 0x26, 0x01, 0x5E, 0x8A, 0x0A, 0x9A}};

// Takes objects in and hands them out. The cache below hands them out in the order in which they
// came in, in spite of the name.
struct IStack : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_IStack;

    // `S_OK` when no object is in the cache, else `S_FALSE`.
    virtual Result IsEmpty() = 0;

    // Empties the cache: `S_OK`. As many new objects as at first can then be made.
    virtual Result Clear() = 0;

    // Hands out an object's interface `iid` with a reference: a cached object, which leaves the
    // cache, or else a new one. A cached object without the interface stays and its code is
    // answered. Objects are asked before they leave, with no lock held. When all objects that may
    // be made were made, `E_FAIL`; null `out` `E_POINTER`.
    virtual Result Pop(const IID& iid, void** out) = 0;

    // Puts an object into the cache, which takes a reference. It must have the interface that was
    // set at `Create`, and need not have come from this cache; put in twice it is handed out twice.
    // Null answers `E_POINTER`.
    virtual Result Push(IUnknown* value) = 0;

protected:
    ~IStack() = default;
};

// A stack that also makes the objects; it has no operations of its own.
struct IObjectCacheStack : IStack
{
    using Extends = IStack;
    static constexpr IID Iid = IID_IObjectCacheStack;

protected:
    ~IObjectCacheStack() = default;
};

// A cache of objects that are made by `CreateClassObject`. Every operation but `Create` answers
// `E_ACCESSDENIED` before it, and every one `E_DISPOSED` after disposing. Any thread may call; two
// threads that pop never get the same object, but at the last free place both may make a new one.
// Null in the place of a reference answers `E_POINTER`. Putting in and taking out cost the same
// however many objects are cached. Exhausted memory answers `E_OUTOFMEMORY` and changes nothing.
//
// The object also offers `IObjectLock`, the lock of the cache, for sequences of calls. Whoever
// holds it leaves it by `Unlock` also when the cache was disposed meanwhile; a thread that does not
// hold it changes nothing by calling that. Cached objects are called while it is held only when the
// caller of the operation holds it.
//
// And `IDisposable`, whose `Dispose` waits for that lock and empties the cache for good, in which
// no object is left or put from then on; it needs no memory. A second one answers `E_DISPOSED`.
struct IClsidObjectCacheStack : IObjectCacheStack
{
    using Extends = IObjectCacheStack;
    static constexpr IID Iid = IID_IClsidObjectCacheStack;

    // Says what is cached, once: the class, the interface that objects must have, how many objects
    // `Pop` may make (0 and numbers above 2,147,483,647: any number), and whether cached objects
    // are disposed, where they can be, when the cache is emptied (not 0: they are). A second call
    // answers `E_ACCESSDENIED`, a null identifier `E_INVALIDARG`.
    virtual Result Create(const CLSID& clsid, const IID& iid, std::uint32_t maxObjectCount,
                          std::uint8_t disposeItems) = 0;

protected:
    ~IClsidObjectCacheStack() = default;
};

} // namespace Tavrik::Ossira
