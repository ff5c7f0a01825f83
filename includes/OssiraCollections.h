// Collections of objects and their enumerators: lists, GUID dictionaries and value sets.
//
// Each collection class exists three times with one logic. The plain one guards every call with a
// spin word, the lockable one with a re-entrant lock that callers can also hold (`IObjectLock`),
// the unsafe one leaves locking to its caller.
//
// What a collection does with its items: it takes references (`AddRef`) while it holds its lock,
// and calls everything else of them without, so an item may call any collection from its
// `QueryInterface`, from its `Release` and, being a value, from its operations. A caller who holds
// a lockable collection's lock meanwhile holds it for the items too. `AddRef` must do nothing but
// count. It must not
//   - call a collection, the object factory, a registry or any other service of the runtime,
//   - call another object's operation, `Release` included,
//   - take a lock, of its own or anybody's, wait, or sleep,
//   - create or destroy an object, ask for memory or give it back,
//   - write a diagnostics line, report, or throw,
//   - load or unload a library, or start a thread.
// An operation that calls an item works with what it found under the lock: when the item is removed
// or replaced meanwhile, it is as if the operation had come first.
//
// A collection that ends while another one is ending on the same thread waits for it: contents that
// are nested to any depth are released one after another, before the outermost release returns.
//
// Null in the place of a reference (`key`, `riid`, `type`) answers `E_POINTER`, as null pointers
// do.
//
// An enumerator lives as long as its collection is left alone: after a structural change every call
// of an older enumerator answers `E_ACCESSDENIED`.
#pragma once

#include "OssiraBase.h"

namespace Tavrik::Ossira
{

inline constexpr IID IID_IEnumerator = {
    0x47201FEF, 0xE263, 0x4506, {0x8D, 0xB2, 0x84, 0xBA, 0x8A, 0xE8, 0xF1, 0xFE}};
inline constexpr IID IID_IEnumeratorGUID = {
    0xED544346, 0x4B49, 0x4286, {0xBD, 0xEE, 0xA5, 0x64, 0x5D, 0x64, 0x7F, 0xEB}};
inline constexpr IID IID_IEnumerable = {
    0x803334AA, 0xA1F3, 0x47BF, {0xB8, 0x3E, 0xD1, 0x36, 0xE7, 0x68, 0xBA, 0x87}};
inline constexpr IID IID_ICollection = {
    0xC324F378, 0x8D34, 0x4FEC, {0xAF, 0x0C, 0x6E, 0xBA, 0xFE, 0xEB, 0x13, 0x12}};
inline constexpr IID IID_IList = {
    0xCD918C8D, 0x1082, 0x47CF, {0x9A, 0x24, 0x4B, 0x04, 0x48, 0xE6, 0xBE, 0x09}};
inline constexpr IID IID_ICollectionGUID = {
    0x2E48EF0C, 0xD057, 0x44A3, {0xBE, 0x1E, 0xB5, 0x0A, 0xC1, 0x8B, 0x61, 0x0A}};
inline constexpr IID IID_IDictionaryGUID = {
    0x08BF40CF, 0x8A6D, 0x494B, {0xBD, 0xBF, 0xDD, 0xEC, 0xE2, 0xD2, 0xC2, 0x06}};
inline constexpr IID IID_IValueSet = {
    0x554FCEBA, 0x546A, 0x4C03, {0xA9, 0x2B, 0x01, 0x3C, 0xE2, 0xD1, 0x27, 0xCE}};

// Walks the items of a collection. A new enumerator stands before the first item. A step takes
// constant time in a list, and at most time logarithmic in the number of keys elsewhere.
struct IEnumerator : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_IEnumerator;

    // Back before the first item. Answers `S_OK`, or `E_ACCESSDENIED` after a change.
    virtual Result Reset() = 0;

    // To the next item: `S_OK` on an item, `S_FALSE` when it has just moved past the last one,
    // `E_FAIL` from then on, `E_ACCESSDENIED` after a change.
    virtual Result MoveNext() = 0;

    // Hands out the current item's interface `riid` with a reference. Before the first `MoveNext`
    // that is the first item already. Past the end it answers `E_FAIL`; null `ppv` `E_POINTER`;
    // after a change `E_ACCESSDENIED`.
    virtual Result GetCurrent(const IID& riid, void** ppv) = 0;

protected:
    ~IEnumerator() = default;
};

// Walks GUIDs; the steps are those of `IEnumerator`, and an object that offers both moves one
// position with either.
struct IEnumeratorGUID : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_IEnumeratorGUID;

    virtual Result Reset() = 0;
    virtual Result MoveNext() = 0;

    // Writes the current GUID. Null answers `E_POINTER`; otherwise as `IEnumerator::GetCurrent`.
    virtual Result GetCurrentGUID(GUID* pguid) = 0;

protected:
    ~IEnumeratorGUID() = default;
};

struct IEnumerable : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_IEnumerable;

    // A new enumerator, asked for `riid`; it keeps the collection alive. Null `ppv` answers
    // `E_POINTER`, exhausted memory `E_OUTOFMEMORY`.
    virtual Result GetEnumerator(const IID& riid, void** ppv) = 0;

protected:
    ~IEnumerable() = default;
};

// A collection of objects. An item is known by its identity, whatever interface it is passed by.
// Counting takes constant time, finding an item and copying linear time, the latter with the lock
// held while references are taken.
struct ICollection : IEnumerable
{
    using Extends = IEnumerable;
    static constexpr IID Iid = IID_ICollection;

    // The number of items, read without the lock.
    virtual Result GetCount() = 0;

    // Removes every item; the lock is held for constant time, and the items are released after it.
    // Answers `S_OK`, or `E_ACCESSDENIED` from a read-only view.
    virtual Result Clear() = 0;

    // 1 when the collection cannot be changed, else 0. The views of a dictionary's keys and values
    // answer 0 although they refuse every change.
    virtual Result IsReadOnly() = 0;

    // Appends an item and takes a reference on it. Null answers `E_POINTER`.
    virtual Result Add(IUnknown* item) = 0;

    // Removes the first entry of that item; `E_INVALIDARG` when there is none.
    virtual Result Remove(IUnknown* item) = 0;

    // `S_OK` when the item is in the collection, else `S_FALSE`.
    virtual Result Contains(IUnknown* item) = 0;

    // Asks the items from `index` on, `count` of them, for `riid` and writes the pointers, each
    // with a reference, to where `pppv[0]`, `pppv[1]` and so on point. Every target is set to null
    // first. A range outside the collection answers `E_INVALIDARG`, a null pointer `E_POINTER`.
    // When an item lacks the interface its code is answered, and the targets filled before it keep
    // their references, for the caller to release. The items are those of one moment; until they
    // have been asked the targets may hold other interfaces of them.
    virtual Result CopyTo(std::int32_t index, std::int32_t count, const IID& riid,
                          void** pppv[]) = 0;

protected:
    ~ICollection() = default;
};

// An ordered list, indices from 0. An index outside the list answers `E_INVALIDARG`. Reaching an
// index takes constant time, and so does inserting and removing at both ends; in between the
// pointers of the shorter side are moved by one place.
struct IList : ICollection
{
    using Extends = ICollection;
    static constexpr IID Iid = IID_IList;

    // The first position of the item, or `E_NOT_FOUND`.
    virtual Result IndexOf(IUnknown* item) = 0;

    // Inserts before the item at `index`; an index equal to the count appends.
    virtual Result Insert(std::int32_t index, IUnknown* item) = 0;

    virtual Result RemoveAt(std::int32_t index) = 0;

    // Asks the item at `index` for `riid`; on success *ppv owns a reference.
    virtual Result GetItemAt(std::int32_t index, const IID& riid, void** ppv) = 0;

    // Puts another item in the place of one. Not a structural change: an enumerator goes on and
    // meets the new item.
    virtual Result SetItemAt(std::int32_t index, IUnknown* item) = 0;

protected:
    ~IList() = default;
};

// A collection of GUIDs: the keys of a dictionary.
struct ICollectionGUID : IEnumerable
{
    using Extends = IEnumerable;
    static constexpr IID Iid = IID_ICollectionGUID;

    // As `ICollection`'s operations of the same names.
    virtual Result GetCount() = 0;
    virtual Result Clear() = 0;
    virtual Result IsReadOnly() = 0;

    // Refused by dictionaries and value sets, whose keys need a value: `E_NOTIMPL`.
    virtual Result AddGUID(const GUID& key) = 0;

    // Removes a key and what it stands for; an absent key is no error.
    virtual Result RemoveGUID(const GUID& key) = 0;

    // `S_OK` when the key is there, else `S_FALSE`.
    virtual Result ContainsGUID(const GUID& key) = 0;

protected:
    ~ICollectionGUID() = default;
};

// Objects by GUID. Enumerations follow the keys in the order of their 16 bytes in memory; a
// dictionary's own enumerator yields its keys, as GUIDs or as read-only values of the GUID
// datatype. Every `SetValueGUID`, `RemoveGUID` and `Clear`, even one that changes nothing, ends
// older enumerators. Looking a key up takes constant time on average. Entering and removing one
// takes that and, for the order, a time logarithmic in the number of keys; the lock is never held
// longer because the dictionary is large.
struct IDictionaryGUID : ICollectionGUID
{
    using Extends = ICollectionGUID;
    static constexpr IID Iid = IID_IDictionaryGUID;

    // Asks the object under `key` for `riid`; an absent key answers `E_NOT_FOUND`, null `ppv`
    // `E_POINTER`.
    virtual Result GetValueGUID(const GUID& key, const IID& riid, void** ppv) = 0;

    // Stores an object under `key`, in place of a former one, and takes a reference on it. Null
    // answers `E_POINTER`; a value set refuses what has no `IValue` with `E_NOINTERFACE`.
    virtual Result SetValueGUID(const GUID& key, IUnknown* value) = 0;

    // Read-only live views, each with a reference: an `ICollection` of the objects and an
    // `ICollectionGUID` of the keys. Changing through them answers `E_ACCESSDENIED`; the objects'
    // `Contains` and `CopyTo` answer `E_NOTIMPL`. Value sets offer neither: `E_NOTIMPL`.
    virtual Result GetValues(void** ppv) = 0;
    virtual Result GetKeys(void** ppv) = 0;

protected:
    ~IDictionaryGUID() = default;
};

// A dictionary whose objects are values, read and written by key. The set's lock is held while a
// value is looked up, and not while it is read or written.
struct IValueSet : IDictionaryGUID
{
    using Extends = IDictionaryGUID;
    static constexpr IID Iid = IID_IValueSet;

    // As `IValue::GetValue` of the value under `key`; an absent key answers `E_NOT_FOUND`.
    virtual Result GetValueData(const GUID& key, const GUID& type, void* data,
                                std::int32_t size) = 0;

    // Writes the value under `key` in place, so that whoever holds that value sees the change, or
    // makes a new one. A failure leaves no new key behind, and enumerators go on. When the key is
    // removed at the same time, the value is written first and removed then.
    virtual Result SetValueData(const GUID& key, const GUID& type, const void* data,
                                std::int32_t size) = 0;

    // Writes the datatype of the value under `key`; an absent key answers `E_NOT_FOUND`.
    virtual Result GetDataType(const GUID& key, GUID* type) = 0;

protected:
    ~IValueSet() = default;
};

} // namespace Tavrik::Ossira
