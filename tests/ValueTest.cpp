// Values, and the helpers that read and write them.
#include "ServiceTools.h"
#include "TestItem.h"

#include <array>
#include <numeric>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

using Bytes = std::vector<unsigned char>;

constexpr GUID OtherType = {1, 0, 0, {}};

Bytes Pattern(std::size_t size, std::size_t first = 1)
{
    Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(first));
    return bytes;
}

Result Set(IValue& value, const GUID& type, const Bytes& bytes)
{
    return value.SetValue(type, bytes.data(), static_cast<std::int32_t>(bytes.size()));
}

// The datatype, and the bytes as they come out; nothing is written beyond them.
void ExpectDatum(IValue& value, const GUID& type, Bytes bytes)
{
    const auto size = static_cast<std::int32_t>(bytes.size());
    GUID stored = GUID_Null;
    EXPECT_EQ(value.GetType(&stored), S_OK);
    EXPECT_TRUE(SameGuid(stored, type));
    EXPECT_EQ(value.GetValue(type, nullptr, 0), size);
    bytes.resize(bytes.size() + 8, 0xEE);
    Bytes read(bytes.size(), 0xEE);
    EXPECT_EQ(value.GetValue(type, read.data(), size), size);
    EXPECT_EQ(read, bytes);
}

ObjectPtr<IValue> CloneOf(IValue& value)
{
    ObjectPtr<IValue> clone;
    EXPECT_EQ(As<ICloneable>(value)->Clone(IID_IValue, clone.PutVoid()), S_OK);
    return clone;
}

TEST(Value, KeepsADatumOfAnySizeAndSoDoesItsClone)
{
    const auto value = Make<IValue>(CLSID_Value);
    for (const std::size_t size : {0u, 1u, 15u, 16u, 17u, 100u, 16u, 5000u, 4999u, 0u, 17u, 2u})
    {
        EXPECT_EQ(Set(*value, OtherType, Pattern(size, size)), S_OK);
        const auto clone = CloneOf(*value);
        EXPECT_EQ(Set(*value, DATATYPE_GUID, Pattern(size, 77)), S_OK);
        ExpectDatum(*clone, OtherType, Pattern(size, size));
        ExpectDatum(*value, DATATYPE_GUID, Pattern(size, 77));
    }
}

TEST(Value, RefusesMistakesWithTheirText)
{
    const auto value = Make<IValue>(CLSID_Value);
    IValue& v = *value;
    const GUID& type = DATATYPE_SINT32;
    char data[4];
    EXPECT_EQ(Set(v, type, Pattern(4)), S_OK);
    FAILS(v.GetValue(OtherType, data, 4), E_INVALIDARG, "");
    FAILS(v.GetValue(type, data, 3), E_INVALIDARG, "GetValue-size 3 dose not match data-size 4");
    FAILS(v.SetValue(OtherType, nullptr, 4), E_POINTER, "data");
    FAILS(v.SetValue(OtherType, data, -1), E_INVALIDARG, "AllocBuffer(size)");
    ExpectDatum(v, type, Pattern(4));
    FAILS(v.SetValue(GUID_Null, data, 4), E_INVALIDARG, "data == NULL && size == 0");
    FAILS(v.GetValue(type, nullptr, 0), E_FAIL, ""); // emptied all the same
}

TEST(ReadOnlyValue, IsSetOnceAndItsCloneIsSetFromBirth)
{
    const auto value = Make<IValue>(CLSID_ReadOnlyValue);
    EXPECT_EQ(value->SetValue(GUID_Null, nullptr, 0), S_OK) << "stays settable";
    const auto blank = CloneOf(*value);
    EXPECT_EQ(Set(*value, OtherType, {}), S_OK);
    for (const auto& set : {value, CloneOf(*value)})
    {
        FAILS(set->SetValue(GUID_Null, nullptr, 0), E_ACCESSDENIED, "Value is Readonly");
        ExpectDatum(*set, OtherType, {});
    }
    EXPECT_EQ(SetValueSINT32(blank.Get(), 9), S_OK) << "a clone of nothing is empty";
}

TEST(Value, ComparesByTypeThenSizeThenBytes)
{
    constexpr GUID low = {0x00000100, 0, 0, {}}; // its first byte is 0
    constexpr GUID high = {0x00000001, 0, 0, {}};
    const std::pair<GUID, Bytes> inOrder[] = {
        {low, {}},  {low, {0xFF}},  {low, {1, 2}}, {low, {2, 1}}, {low, Pattern(3000)},
        {high, {}}, {high, {0, 0}},
    };
    const auto left = Make<IValue>(CLSID_Value);
    const auto right = Make<IValue>(CLSID_Value);
    std::int32_t result = 1000;
    for (const auto& a : inOrder)
        for (const auto& b : inOrder)
        {
            EXPECT_EQ(Set(*left, a.first, a.second) + Set(*right, b.first, b.second), S_OK);
            EXPECT_EQ(As<IComparable>(*left)->Compare(right.Get(), &result), S_OK);
            EXPECT_EQ(result <=> 0, &a <=> &b) << &a - inOrder << ", " << &b - inOrder;
        }
    EXPECT_EQ(As<IComparable>(*left)->Compare(left.Get(), &result), S_OK);
    EXPECT_EQ(result, 0) << "with itself";

    // Somebody else's value, written while it is asked, and one that cannot be read.
    EXPECT_EQ(SetValueSINT32(left.Get(), 5), S_OK);
    TestValue foreign;
    for (const int failures : {0, 1, 2, 3, 10, 1000})
    {
        foreign.Number = failures;
        foreign.Failures = failures;
        result = 1000;
        FAILS(As<IComparable>(*left)->Compare(&foreign, &result), failures < 1000 ? S_OK : E_FAIL,
              failures < 1000 ? "" : "BValue->GetValue(BType, NULL, 0)");
        EXPECT_EQ(result <=> 0, failures < 1000 ? 5 <=> failures : 1 <=> 0);
    }
    // Emptied values keep their place; one that is empty cannot be what another is compared with,
    // unless the datatypes tell.
    const auto blank = Make<IValue>(CLSID_Value);
    const auto emptied = Make<IValue>(CLSID_Value);
    EXPECT_EQ(SetValueSINT32(emptied.Get(), 1) + emptied->SetValue(GUID_Null, nullptr, 0), S_OK);
    const std::tuple<IValue*, IValue*, int> orders[] = {{left.Get(), blank.Get(), 1},
                                                        {left.Get(), emptied.Get(), 1},
                                                        {blank.Get(), left.Get(), -1},
                                                        {emptied.Get(), left.Get(), -1},
                                                        {emptied.Get(), blank.Get(), 1}};
    for (const auto& [a, b, order] : orders)
    {
        EXPECT_EQ(As<IComparable>(*a)->Compare(b, &result), S_OK);
        EXPECT_EQ(result <=> 0, order <=> 0);
    }
    FAILS(As<IComparable>(*blank)->Compare(emptied.Get(), &result), E_FAIL,
          "BValue->GetValue(BType, NULL, 0)");
    const auto empty = Make<IComparable>(CLSID_Value);
    FAILS(empty->Compare(Make<IValue>(CLSID_Value).Get(), &result), E_FAIL,
          "BValue->GetValue(BType, NULL, 0)");
    FAILS(empty->Compare(TestItem::New().Get(), &result), E_NOINTERFACE,
          "pv->QueryInterface(IID_IValue, (void**)&BValue)");
}

// The helpers, on a value and on one key of a value set alike.
TEST(Bullets, WideTextIsStoredAsUtf16AndComesBack)
{
    constexpr GUID key = {7, 7, 7, {}};
    const auto value = Make<IValue>(CLSID_Value);
    const auto set = Make<IValueSet>(CLSID_ValueSet);
    std::wstring fromValue = L"former", fromSet;
    EXPECT_EQ(value->SetValue(DATATYPE_UniString, "odd", 3), S_OK);
    EXPECT_EQ(GetValueUniString(value.Get(), &fromValue), E_INVALIDARG);
    EXPECT_EQ(fromValue, L"former") << "the target is left alone";
    const auto [high, low] = std::array{static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDC80)};
    const std::pair<std::wstring, std::u16string> cases[] = {
        {L"", u""},
        {std::wstring(L"in\0side", 7), std::u16string(u"in\0side", 7)},
        {L"\x00E4\x4E2D\xFFFF", u"\x00E4\x4E2D\xFFFF"},
        {L"a\U0001F600z\U0010FFFF", u"a\U0001F600z\U0010FFFF"},
        {{high, L'x', low, high}, {0xD83D, u'x', 0xDC80, 0xD83D}},
    };
    for (const auto& [text, units] : cases)
    {
        const auto* const bytes = reinterpret_cast<const unsigned char*>(units.data());
        EXPECT_EQ(SetValueUniString(value.Get(), text), S_OK);
        EXPECT_EQ(SetValueUniString(set.Get(), key, text), S_OK);
        ExpectDatum(*value, DATATYPE_UniString, {bytes, bytes + units.size() * 2});
        EXPECT_EQ(GetValueUniString(value.Get(), &fromValue), S_OK);
        EXPECT_EQ(GetValueUniString(set.Get(), key, &fromSet), S_OK);
        EXPECT_TRUE(fromValue == text && fromSet == text) << units.size();
    }
    const std::wstring none(1, static_cast<wchar_t>(0x110000));
    EXPECT_EQ(SetValueUniString(value.Get(), none), sizeof(wchar_t) == 4 ? E_INVALIDARG : S_OK);
}

} // namespace
} // namespace Tavrik::Ossira
