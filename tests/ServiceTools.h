// What the tests of the collections, of the registration and of the services share.
#pragma once

#include "DiagnosticsCapture.h"
#include "OssiraDatatypes.h"
#include "OssiraMemory.h"
#include "TestItem.h"
#include "TestModules.h"
#include "TestTools.h"

#include <cstdio>
#include <random>

namespace Tavrik::Ossira::tTest
{

[[nodiscard]] inline std::string Text(const GUID& guid)
{
    char text[37];
    const std::uint8_t* const rest = guid.Data4;
    std::snprintf(text, sizeof text, "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X",
                  static_cast<unsigned>(guid.Data1), guid.Data2, guid.Data3, rest[0], rest[1],
                  rest[2], rest[3], rest[4], rest[5], rest[6], rest[7]);
    return text;
}

[[nodiscard]] inline ObjectPtr<IValue> WideValue(const std::wstring& text)
{
    auto value = Make<IValue>(CLSID_Value);
    EXPECT_EQ(SetValueUniString(value.Get(), text), S_OK);
    return value;
}

[[nodiscard]] inline std::uint32_t Below(std::mt19937& random, std::size_t bound)
{
    return static_cast<std::uint32_t>(random() % bound);
}

// Another interface of an object; the test fails when there is none.
template <class Interface>
[[nodiscard]] ObjectPtr<Interface> As(IUnknown& object)
{
    ObjectPtr<Interface> other;
    EXPECT_EQ(object.QueryInterface(Interface::Iid, other.PutVoid()), S_OK);
    return other;
}

// A new enumerator.
template <class Enumerator>
[[nodiscard]] ObjectPtr<Enumerator> Walk(auto& collection)
{
    ObjectPtr<Enumerator> enumerator;
    EXPECT_EQ(collection.GetEnumerator(Enumerator::Iid, enumerator.PutVoid()), S_OK);
    return enumerator;
}

[[nodiscard]] inline std::vector<std::string> KeysIn(IEnumeratorGUID& keys)
{
    std::vector<std::string> texts;
    GUID key = GUID_Null;
    while (keys.MoveNext() == S_OK && keys.GetCurrentGUID(&key) == S_OK)
        texts.push_back(Text(key));
    return texts;
}

[[nodiscard]] std::vector<std::string> KeysOf(auto& collection)
{
    return KeysIn(*Walk<IEnumeratorGUID>(collection));
}

using WideStrings = std::vector<std::wstring>;

// The wide strings of a list of values or, with a key, of a list of value sets.
[[nodiscard]] inline WideStrings TextsOf(ICollection& list, const GUID* key = nullptr)
{
    WideStrings texts;
    const auto items = Walk<IEnumerator>(list);
    while (items->MoveNext() == S_OK)
    {
        ObjectPtr<IUnknown> item;
        std::wstring& text = texts.emplace_back();
        EXPECT_EQ(items->GetCurrent(IID_IUnknown, item.PutVoid()), S_OK);
        EXPECT_EQ(key == nullptr ? GetValueUniString(As<IValue>(*item).Get(), &text)
                                 : GetValueUniString(As<IValueSet>(*item).Get(), *key, &text),
                  S_OK);
    }
    return texts;
}

[[nodiscard]] inline WideStrings ModulesOf(IObjectFactory& factory)
{
    ObjectPtr<ICollection> modules;
    EXPECT_EQ(factory.GetModules(IID_ICollection, modules.PutVoid()), S_OK);
    return TextsOf(*modules);
}

// A master bootstrap with these module folders in place of the current one.
[[nodiscard]] inline ObjectPtr<IMasterBootstrap> NewBootstrap(const std::vector<IUnknown*>& folders)
{
    auto bootstrap = Make<IMasterBootstrap>(CLSID_MasterBootstrap);
    ObjectPtr<IList> list;
    EXPECT_EQ(bootstrap->GetModuleFolders(list.PutVoid()), S_OK);
    EXPECT_EQ(TextsOf(*list), WideStrings{L".\\"});
    EXPECT_EQ(list->Clear(), S_OK);
    for (IUnknown* const folder : folders)
        EXPECT_EQ(list->Add(folder), S_OK);
    return bootstrap;
}

// A folder of modules as an item of that list.
[[nodiscard]] inline ObjectPtr<IValue> Item(std::string_view folder)
{
    return WideValue(ModuleFolder(folder).wstring());
}

// A host's own observer: in place while it lives, or others take its place.
class Observer final : public Uncounted<IObserverPrint>
{
public:
    Observer()
    {
        GetGlobalObserver(Former.Put());
        EXPECT_EQ(SetGlobalObserver(this), S_OK);
    }

    ~Observer()
    {
        EXPECT_EQ(SetGlobalObserver(Former.Get()), S_OK);
        EXPECT_EQ(References, 0u);
    }

    std::uint32_t AddRef() override
    {
        OnCall();
        return ++References;
    }

    std::uint32_t Release() override
    {
        OnCall();
        return --References;
    }

    std::uint32_t GetLevelMask() override
    {
        OnCall();
        return Mask();
    }

    Result SetLevelMask(std::uint32_t, std::uint32_t) override
    {
        return E_NOTIMPL;
    }

    Result Print(std::uint32_t level, const SourceLocation* location, const char* format,
                 std::va_list arguments) override
    {
        char text[100];
        (void)std::vsnprintf(text, sizeof text, format, arguments);
        Heard += location->Function + std::to_string(level) + text;
        OnLine();
        return S_OK;
    }

    std::function<std::uint32_t()> Mask = []
    {
        return PRINT_ERROR;
    };
    std::function<void()> OnLine = [] {
    };
    std::string Heard;
    ObjectPtr<IObserverPrint> Former;
};

// What a memory allocator tells of itself.
using Statistics = std::vector<std::int64_t>; // bytes, blocks, most blocks, least and greatest size

[[nodiscard]] inline Statistics StatisticsOf(ICommonMemoryAllocator32& allocator)
{
    std::uint64_t bytes = 1;
    std::int32_t count = 1, peak = 1;
    std::uint32_t least = 1, greatest = 1;
    EXPECT_EQ(allocator.GetStatistics(&bytes, &count, &peak, &least, &greatest), S_OK);
    return {static_cast<std::int64_t>(bytes), count, peak, least, greatest};
}

#define ANSWERS(operation, parameters, answer)                                                     \
    Result operation parameters override                                                           \
    {                                                                                              \
        return Failing != #operation || CallsBefore-- > 0 ? (answer) : E_ABORT;                    \
    }

// A provider of the given datatypes and its own enumerator. It fails where it is told to, and fails
// the test when somebody keeps a reference on it.
struct TestProvider : Uncounted<IDatatypes, IEnumeratorGUID>
{
    explicit TestProvider(std::vector<GUID> types = {}) : Types(std::move(types))
    {
    }

    virtual ~TestProvider()
    {
        EXPECT_EQ(References, 0u);
    }

    using Bytes = const void*;
    using Size = std::uint32_t;
    ANSWERS(GetEnumerator, (const IID& riid, void** ppv), (At = -1, QueryInterface(riid, ppv)))
    ANSWERS(Reset, (), E_NOTIMPL)
    ANSWERS(MoveNext, (), ++At < static_cast<int>(Types.size()) ? S_OK : S_FALSE)
    ANSWERS(GetCurrentGUID, (GUID * guid), (*guid = Types.begin()[At], S_OK))
    ANSWERS(Contains, (const GUID&), (OnContains(), S_OK))
    ANSWERS(GetCharacteristics, (const GUID&, DatatypeCharacteristics* info),
            (std::memset(info, 'n', sizeof(*info)), S_OK)) // a name without an end
    ANSWERS(ValueCompare, (const GUID&, Bytes, Size, Bytes, Size, std::int32_t*), S_FALSE)
    ANSWERS(ValueLerp, (const GUID&, Bytes, Size, Bytes, Size, double, void*, Size), 77)

    std::function<void()> OnContains = [] {
    };
    std::string_view Failing;
    int CallsBefore = 1;
    std::vector<GUID> Types;
    int At = -1;
};

#undef ANSWERS

} // namespace Tavrik::Ossira::tTest
