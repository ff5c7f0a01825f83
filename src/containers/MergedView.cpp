// The view's operations: each takes the layers as they are when it begins.
#include "MergedView.h"

namespace Tavrik::Ossira
{

Result CMergedView::GetEnumerator(const IID& riid, void** ppv)
try
{
    OSSIRA_CHECK_POINTER(ppv);
    OSSIRA_CHECK_REFERENCE(riid);
    const ObjectPtr walk(new (std::nothrow)
                             CMergedWalk(mGroup.Get(), mContent.Layers, mContent.Lock));
    OSSIRA_CHECK(walk, E_OUTOFMEMORY, MergedViewTraits::NewEnumeratorText);
    const auto enumerator = TryMakeObject<CGuidKeyEnumerator<EnumeratorTraits>>(walk.Get());
    OSSIRA_CHECK(enumerator, E_OUTOFMEMORY, MergedViewTraits::NewEnumeratorText);
    return enumerator->QueryInterface(riid, ppv);
}
OSSIRA_CATCH_RETURN

// What was counted is kept while it can be told that it is still true.
Result CMergedView::GetCount()
try
{
    {
        const tSystem::CLockGuard guard(mContent.Lock);
        if (mContent.Count.Seen.IsStillTrueOf(mContent.Layers))
            return mContent.Count.Count;
    }
    const TakenLayers layers = Take();
    const CMergedCount counted = {CKeysSeen(layers), CountMergedKeys(layers.All())};
    const tSystem::CLockGuard guard(mContent.Lock);
    mContent.Count = counted;
    return counted.Count;
}
OSSIRA_CATCH_RETURN

Result CMergedView::Clear()
try
{
    const TakenLayers layers = Take();
    for (const Layer& layer : layers.All())
    {
        OSSIRA_CHECK(layer.HasNoneOf(LAYER_READONLY) || !layer.IsVisible(), E_ACCESSDENIED,
                     NotWriteableText);
    }
    const CChange change(mContent);
    for (const Layer& layer : layers.All())
    {
        if (layer.IsVisible())
            OSSIRA_CHECK_CALL_TWICE(layer.ValueSet->Clear(), "{ValueSet of Group}->Clear");
    }
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result CMergedView::IsReadOnly()
{
    return 0;
}

Result CMergedView::AddGUID(const GUID&)
try
{
    OSSIRA_THROW(E_NOTIMPL, MergedViewTraits::AddText);
}
OSSIRA_CATCH_RETURN

Result CMergedView::RemoveGUID(const GUID& key)
try
{
    OSSIRA_CHECK_REFERENCE(key);
    const TakenLayers layers = Take();
    for (const Layer& layer : layers.All())
    {
        OSSIRA_CHECK(layer.HasNoneOf(LAYER_READONLY) || !HoldsKey(layer, key), E_ACCESSDENIED,
                     NotWriteableText);
    }
    const CChange change(mContent);
    for (const Layer& layer : layers.All())
    {
        if (HoldsKey(layer, key))
            OSSIRA_CHECK_CALL_TWICE(layer.ValueSet->RemoveGUID(key),
                                    "{ValueSet of Group}->RemoveGUID");
    }
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result CMergedView::ContainsGUID(const GUID& key)
try
{
    OSSIRA_CHECK_REFERENCE(key);
    return FindHolder(Take().All(), key) != nullptr ? S_OK : S_FALSE;
}
OSSIRA_CATCH_RETURN

Result CMergedView::GetValueGUID(const GUID& key, const IID& riid, void** ppv)
try
{
    OSSIRA_CHECK_POINTER(ppv);
    OSSIRA_CHECK_REFERENCE(key);
    OSSIRA_CHECK_REFERENCE(riid);
    return AskHolder(key, [&](IValueSet& layer) { return layer.GetValueGUID(key, riid, ppv); });
}
OSSIRA_CATCH_RETURN

// What a value must be is for the layer to say.
Result CMergedView::SetValueGUID(const GUID& key, IUnknown* value)
try
{
    OSSIRA_CHECK_POINTER(value);
    OSSIRA_CHECK_REFERENCE(key);
    const TakenLayers layers = Take();
    IValueSet& target = FindLayerToWrite(layers.All(), key);
    OSSIRA_CHECK_CALL_TWICE(target.SetValueGUID(key, value), "{ValueSet of Group}->SetValueGUID");
    const CChange change(mContent);
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result CMergedView::GetValueData(const GUID& key, const GUID& type, void* data, std::int32_t size)
try
{
    OSSIRA_CHECK_REFERENCE(key);
    OSSIRA_CHECK_REFERENCE(type);
    return AskHolder(key,
                     [&](IValueSet& layer) { return layer.GetValueData(key, type, data, size); });
}
OSSIRA_CATCH_RETURN

Result CMergedView::SetValueData(const GUID& key, const GUID& type, const void* data,
                                 std::int32_t size)
try
{
    OSSIRA_CHECK_REFERENCE(key);
    OSSIRA_CHECK_REFERENCE(type);
    const TakenLayers layers = Take();
    IValueSet& target = FindLayerToWrite(layers.All(), key);
    Result result = S_OK;
    OSSIRA_CHECK_CALL_TWICE(result = target.SetValueData(key, type, data, size),
                            "{ValueSet of Group}->SetValueData");
    const CChange change(mContent);
    return result;
}
OSSIRA_CATCH_RETURN

Result CMergedView::GetDataType(const GUID& key, GUID* type)
try
{
    OSSIRA_CHECK_REFERENCE(key);
    return AskHolder(key, [&](IValueSet& layer) { return layer.GetDataType(key, type); });
}
OSSIRA_CATCH_RETURN

} // namespace Tavrik::Ossira
