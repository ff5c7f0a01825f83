// Value set groups: up to eight value sets in layers, shown as one. The class is
// `CLSID_ValueSetGroup`.
//
// It is for parameters that come from several places, say defaults, a project's and a user's: put
// each place's value set into the group, hand out the merged view where a value set is expected,
// and whoever reads finds the topmost entry of a key.
#pragma once

#include "OssiraCollections.h"

namespace Tavrik::Ossira
{

inline constexpr IID IID_IValueSetGroup = {
    0x082D5CAD, 0x07D3, 0x4589, {0x8E, 0x4D, 0x67, 0xAF, 0x19, 0x8F, 0x85, 0x63}};

// Access flags of a layer. Further bits are kept and have no meaning.
inline constexpr std::uint32_t LAYER_READONLY = 0x01; // takes no writes; see `GetValueSet`
inline constexpr std::uint32_t LAYER_HIDDEN = 0x02; // is not there for readers and takes no writes

// As a dictionary the group holds the layers by their identifiers, in the order of the identifiers;
// `SetValueGUID` puts a value set on top as a new layer without flags, and refuses an identifier
// that is there already, `AddGUID` is refused. Layers are numbered from the bottom, 0, to the top.
// An index outside the layers answers `E_INVALIDARG`, a null pointer `E_POINTER`.
//
// Any thread may call, also beside threads that use the layers directly. Layers are called while no
// lock of the group is held, so a layer, and the values in it, may call the group and its views; as
// items of a collection, layers must do nothing but count in `AddRef` (see OssiraCollections.h).
// Inserting a merged view takes the process-wide section: do not insert one while a lock is held.
struct IValueSetGroup : IDictionaryGUID
{
    using Extends = IDictionaryGUID;
    static constexpr IID Iid = IID_IValueSetGroup;

    // A new view of the layers as one value set, with a reference; it keeps the group alive.
    //
    // A key is found in the topmost layer that holds it and is not hidden. A known key is written
    // into the first layer from there upwards that is neither read-only nor hidden. A new key is
    // refused when the top layer is read-only, and otherwise goes into the topmost layer that is
    // not hidden, be that read-only or not. Where no layer takes a write the answer is
    // `E_ACCESSDENIED`.
    //
    // `RemoveGUID` takes the key out of all layers that are not hidden and hold it, `Clear` empties
    // all that are not hidden; when one of these is read-only, nothing is removed and the answer is
    // `E_ACCESSDENIED`. Hidden layers are neither counted nor listed. An enumeration lists the keys
    // that the layers hold when the walk comes to them; it ends when a layer comes or goes and when
    // anything is written or removed through a view, but goes on when a layer is changed directly.
    // The view is no `IValue`.
    //
    // An operation works on the layers as they are when it begins. A key that one visible layer
    // holds all the time is always found, and a layer that is changed directly is no reason to
    // fail. Reading and writing ask each layer once, from the top; in an enumeration a step costs
    // the same for any number of keys, on average. `GetCount` is that of the layer where one is
    // visible; of several it is counted, in time linear in the keys of all but the largest, and
    // kept until keys come or go. A layer that is no value set of the runtime, and a view that is
    // a layer, cannot tell when they do: there every key is looked up before it is listed, and keys
    // of a foreign layer are copied when a walk begins. Should somebody change a foreign layer 1000
    // times while its keys are read, the answer is what its enumerator answers then.
    virtual Result GetValueSet(IValueSet** pValueSet) = 0;

    // Inserts a layer before the one at `index`; -1 or the number of layers puts it on top. `id`
    // may be null: then an identifier is made up. An identifier that is there already and
    // `GUID_Null` answer `E_INVALIDARG`, a ninth layer `E_OUTOFMEMORY`. Rings are refused: a merged
    // view of this group, or of one that has a view of this group among its layers, however deep,
    // answers `E_INVALIDARG`.
    virtual Result InsertValueSet(std::int32_t index, IValueSet* valueSet, const GUID* id,
                                  std::uint32_t flags) = 0;

    // Replaces all flags of a layer. Enumerations go on.
    virtual Result SetValueSetAccessFlagsAt(std::int32_t index, std::uint32_t flags) = 0;

    // Asks the layer's value set for `riid`; on success *pValueSet owns a reference.
    virtual Result GetValueSetAt(std::int32_t index, const IID& riid, void** pValueSet) = 0;

    virtual Result GetValueSetIDAt(std::int32_t index, GUID* pID) = 0;
    virtual Result GetValueSetAccessFlagsAt(std::int32_t index, std::uint32_t* pAccessFlags) = 0;

    // The index of the topmost layer that is this value set, or `E_NOT_FOUND`.
    virtual Result IndexOfValueSet(IValueSet* valueSet) = 0;

protected:
    ~IValueSetGroup() = default;
};

} // namespace Tavrik::Ossira
