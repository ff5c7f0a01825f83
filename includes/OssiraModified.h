// Change counters and what depends on them, and the disposing of objects.
#pragma once

#include "OssiraBase.h"

namespace Tavrik::Ossira
{

inline constexpr IID IID_IDisposable = {
    0xCAE31173, 0xA692, 0x4EEF, {0xA7, 0x3F, 0xDC, 0x55, 0x41, 0x01, 0xB2, 0x28}};
inline constexpr IID IID_IModifiedService = {
    0xA231135B, 0x96B8, 0x4225, {0x92, 0x94, 0x82, 0xF2, 0x5B, 0xAF, 0x67, 0x7F}};
inline constexpr IID IID_ITouchModifiedChain = {
    0x3B7DE56C, 0x2E09, 0x4EA1, {0xA1, 0xE4, 0x23, 0x9B, 0xDA, 0x81, 0x3C, 0x34}};

// Ends an object's work before its last reference is given back: the object lets go of what it
// holds and answers `E_DISPOSED` from then on. Any thread may call.
struct IDisposable : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_IDisposable;

    virtual Result Dispose() = 0;

    // `S_OK` when the object was disposed, else `S_FALSE`.
    virtual Result IsDisposed() = 0;

protected:
    ~IDisposable() = default;
};

// What a change is handed on to. Implement it to hear of changes.
struct ITouchModifiedChain : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_ITouchModifiedChain;

    // Something that this object depends on was changed. Called with no lock held. A failure does
    // not keep the other dependants from being touched.
    virtual Result Touch() = 0;

protected:
    ~ITouchModifiedChain() = default;
};

// The change counter of an object and the chain of its dependants, which a change is handed on to.
// The object also offers `ITouchModifiedChain`, so that it can stand in the chain of another one,
// and `IDisposable`. Any thread may call.
//
// The chain holds references: services that stand in each other's chains live until one of them is
// disposed. Such a ring is refused when it is touched, with `E_UNEXPECTED` for the object that is
// being touched already; the same meets a second thread that touches an object meanwhile.
//
// Disposing empties the chain. It is refused with `E_UNEXPECTED` while the object is being touched,
// so that no touch calls a dependant behind it; disposing again answers `S_OK`.
//
// With n dependants adding and removing cost O(log n), a touch O(n) without any copy; exhausted
// memory answers `E_OUTOFMEMORY` and changes nothing.
struct IModifiedService : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_IModifiedService;

    // Writes the number of touches so far, which starts again from 0 after 4,294,967,295. Null
    // answers `E_POINTER`.
    virtual Result GetModifiedCounter(std::uint32_t* pCounter) = 0;

    // Counts a change and touches, in the order of the chain, every dependant that is in it now and
    // is not removed before its turn; one that is added meanwhile hears of the next change. Answers
    // the code of the first dependant that fails, or `S_OK`.
    virtual Result TouchModified() = 0;

    // Appends a dependant; one that is added twice is touched twice. Null answers `E_POINTER`;
    // the object itself, and a call while the object is being touched, `E_UNEXPECTED`.
    virtual Result AddTouchModified(ITouchModifiedChain* pTouch) = 0;

    // Removes the first entry of a dependant, known by its identity, also while the object is being
    // touched. One that is not in the chain is no error. Null answers `E_POINTER`, the object
    // itself `E_UNEXPECTED`.
    //
    // When another thread's touch is just calling the dependant, this waits until that call has
    // returned: from then on a dependant without further entries is called no more. So do not hold
    // what the dependant's `Touch` waits for. A thread that removes a dependant from within its own
    // touch of the object does not wait.
    virtual Result RemoveTouchModified(ITouchModifiedChain* pTouch) = 0;

protected:
    ~IModifiedService() = default;
};

} // namespace Tavrik::Ossira
