// Holds one of each thing that the debugger's printers show, and stops where a breakpoint is.
#include "TestItem.h"

#include <vector>

using namespace Tavrik::Ossira;

constexpr GUID Unnamed = {
    0x01234567, 0x89AB, 0xCDEF, {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}};

// An object whose operations are no frame's.
struct Foreign final : tTest::Uncounted<IUnknown>
{
};

[[gnu::noinline]] void LookHere()
{
    __asm__ volatile("" : : : "memory");
}

template <class Interface>
static ObjectPtr<Interface> Made(const CLSID& clsid)
{
    ObjectPtr<Interface> object;
    static_cast<void>(CreateObject(clsid, object));
    return object;
}

static ObjectPtr<IValue> Number(std::int32_t number)
{
    auto value = Made<IValue>(CLSID_Value);
    SetValueSINT32(value.Get(), number);
    return value;
}

int main()
{
    [[maybe_unused]] Result result = E_NOT_FOUND, count = 7,
                            unknown = static_cast<Result>(0x80990001);
    [[maybe_unused]] const GUID named = IID_IValue, unnamed = Unnamed;
    ObjectPtr<IValue> nothing, empty = Made<IValue>(CLSID_ReadOnlyValue), number = Number(-5);
    auto again = number;
    auto text = Made<IValue>(CLSID_Value), bytes = Made<IValue>(CLSID_Value);
    SetValueUniString(text.Get(), L"Gr\u00fc\u00dfe");
    bytes->SetValue(Unnamed, "\1\2", 2);

    auto list = Made<IList>(CLSID_NodeList);
    for (const auto& item : {number, text})
        list->Add(item.Get());
    list->Insert(0, list.Get()); // which holds itself
    auto dictionary = Made<IDictionaryGUID>(CLSID_LockableDictionaryGUID);
    dictionary->SetValueGUID(DATATYPE_GUID, number.Get());
    auto many = Made<IDictionaryGUID>(CLSID_DictionaryGUID);
    for (std::uint32_t at = 1; at <= 1000; ++at)
        many->SetValueGUID({at, 0, 0, {}}, number.Get());
    auto set = Made<IValueSet>(CLSID_ValueSet);
    SetValueSINT32(set.Get(), ObjectFactoryItem_ClassCount, 42);
    auto group = Made<IValueSetGroup>(CLSID_ValueSetGroup);
    group->InsertValueSet(0, set.Get(), &Unnamed, 0);
    ObjectPtr<IValueSet> view;
    group->GetValueSet(view.Put());

    Foreign other;
    ObjectPtr<IUnknown> foreign(&other);
    LookHere();
    list->Clear();
    return 0;
}
