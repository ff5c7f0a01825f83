// Values, and the helpers that read and write them.
#include "AnswerCheck.h"
#include "TestItem.h"
#include "TestTools.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <set>
#include <thread>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

constexpr GUID OtherType = {1, 0, 0, {}};

std::vector<unsigned char> Pattern(std::int32_t size, int first = 1)
{
    std::vector<unsigned char> bytes(static_cast<std::size_t>(size));
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(first));
    return bytes;
}

ObjectPtr<IValue> NewValue(const GUID& type, const std::vector<unsigned char>& bytes,
                           const CLSID& clsid = CLSID_Value)
{
    auto value = Make<IValue>(clsid);
    EXPECT_EQ(value->SetValue(type, bytes.data(), static_cast<std::int32_t>(bytes.size())), S_OK);
    return value;
}

// The datatype, and the bytes as they come out; nothing is written beyond them.
void ExpectDatum(IValue& value, const GUID& type, const std::vector<unsigned char>& bytes)
{
    const auto size = static_cast<std::int32_t>(bytes.size());
    GUID stored = OtherType;
    EXPECT_EQ(value.GetType(&stored), S_OK);
    EXPECT_TRUE(SameGuid(stored, type));
    EXPECT_EQ(value.GetValue(type, nullptr, 0), size);
    std::vector<unsigned char> read(bytes.size() + 8, 0xEE);
    EXPECT_EQ(value.GetValue(type, read.data(), size), size);
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), read.begin()));
    EXPECT_EQ(std::count(read.end() - 8, read.end(), 0xEE), 8);
}

template <class Other, class Interface>
ObjectPtr<Other> As(Interface& object)
{
    ObjectPtr<Other> other;
    EXPECT_EQ(object.QueryInterface(Other::Iid, other.PutVoid()), S_OK);
    return other;
}

TEST(Value, KeepsADatumOfAnySizeAndSoDoesItsClone)
{
    const auto value = Make<IValue>(CLSID_Value);
    for (const std::int32_t size : {0, 1, 3, 4, 8, 15, 16, 17, 100, 16, 4, 5000, 4999, 0, 17, 2})
    {
        SCOPED_TRACE(size);
        const auto bytes = Pattern(size, size);
        ASSERT_EQ(value->SetValue(OtherType, bytes.data(), size), S_OK);
        ExpectDatum(*value, OtherType, bytes);

        ObjectPtr<IValue> clone;
        ASSERT_EQ(As<ICloneable>(*value)->Clone(IID_IValue, clone.PutVoid()), S_OK);
        const auto others = Pattern(size, 77);
        EXPECT_EQ(value->SetValue(DATATYPE_GUID, others.data(), size), S_OK);
        ExpectDatum(*clone, OtherType, bytes);
        ExpectDatum(*value, DATATYPE_GUID, others);
    }
}

TEST(Value, RefusesWrongArgumentsAndReportsWhatIsAMistake)
{
    std::int32_t number = 7;
    const auto value = NewValue(DATATYPE_SINT32, Pattern(4));
    AnswerCheck check;
    check(value->GetValue(OtherType, nullptr, 0), E_INVALIDARG);
    check(value->GetValue(OtherType, &number, 4), E_INVALIDARG);
    check(value->GetValue(DATATYPE_SINT32, &number, 3), E_INVALIDARG,
          "0x80070057 GetValue-size 3 dose not match data-size 4: ");
    check(value->GetValue(DATATYPE_SINT32, &number, -1), E_INVALIDARG, "GetValue-size -1 dose");
    check(value->GetValue(DATATYPE_SINT32, nullptr, 4), E_POINTER, "data");
    check(value->SetValue(OtherType, nullptr, 4), E_POINTER, "data");
    check(value->SetValue(OtherType, &number, -1), E_INVALIDARG, "AllocBuffer(size)");
    check(value->SetValue(OtherType, &number, INT32_MIN), E_INVALIDARG, "AllocBuffer(size)");
    check(value->GetType(nullptr), E_POINTER, "type");
    ExpectDatum(*value, DATATYPE_SINT32, Pattern(4));

    const auto expectEmpty = [&]
    {
        GUID type = OtherType;
        check(value->GetType(&type), S_OK);
        EXPECT_TRUE(SameGuid(type, GUID_Null));
        check(value->GetValue(DATATYPE_SINT32, nullptr, 0), E_FAIL);
    };
    check(value->SetValue(GUID_Null, &number, 4), E_INVALIDARG, "data == NULL && size == 0");
    expectEmpty();
    check(SetValueSINT32(value.Get(), 3), S_OK);
    check(value->SetValue(GUID_Null, nullptr, 0), S_OK);
    expectEmpty();
}

TEST(ReadOnlyValue, IsSetOnceAndItsCloneIsSetFromBirth)
{
    for (const std::int32_t size : {0, 4, 40})
    {
        SCOPED_TRACE(size);
        const auto value = Make<IValue>(CLSID_ReadOnlyValue);
        EXPECT_EQ(value->SetValue(GUID_Null, nullptr, 0), S_OK) << "stays settable";
        ObjectPtr<IValue> blank;
        ASSERT_EQ(As<ICloneable>(*value)->Clone(IID_IValue, blank.PutVoid()), S_OK);
        ASSERT_EQ(value->SetValue(OtherType, Pattern(size).data(), size), S_OK);
        ObjectPtr<IValue> clone;
        ASSERT_EQ(As<ICloneable>(*value)->Clone(IID_IValue, clone.PutVoid()), S_OK);
        for (IValue* const set : {value.Get(), clone.Get()})
        {
            AnswerCheck check;
            check(set->SetValue(GUID_Null, nullptr, 0), E_ACCESSDENIED, "Value is Readonly");
            check(SetValueSINT32(set, 9), E_ACCESSDENIED, "Value is Readonly");
            ExpectDatum(*set, OtherType, Pattern(size));
        }
        EXPECT_EQ(blank->GetValue(GUID_Null, nullptr, 0), E_FAIL) << "a clone of nothing is empty";
        EXPECT_EQ(blank->SetValue(OtherType, nullptr, 0), S_OK);
    }
}

TEST(Value, ComparesByTypeThenSizeThenBytes)
{
    constexpr GUID low = {0x00000100, 0, 0, {}};  // 00 01 ... in memory
    constexpr GUID high = {0x00000001, 0, 0, {}}; // 01 00 ...
    auto longer = Pattern(3000);
    auto longerStill = longer;
    longer.back() = 0x10;
    longerStill.back() = 0x90;
    struct
    {
        GUID Type;
        std::vector<unsigned char> Bytes;
    } const inOrder[] = {
        {low, {}},        {low, {0xFF}}, {low, {1, 2}},      {low, {1, 3}}, {low, {2, 1}},
        {low, {0x90, 0}}, {low, longer}, {low, longerStill}, {high, {}},    {high, {0, 0, 0}},
    };
    for (const auto& a : inOrder)
    {
        for (const auto& b : inOrder)
        {
            const auto left = NewValue(a.Type, a.Bytes);
            const auto right = NewValue(b.Type, b.Bytes);
            std::int32_t result = 1000;
            ASSERT_EQ(As<IComparable>(*left)->Compare(right.Get(), &result), S_OK);
            const auto sign = [](std::ptrdiff_t x)
            {
                return (x > 0) - (x < 0);
            };
            EXPECT_EQ(sign(result), sign(&a - &b)) << &a - inOrder << ", " << &b - inOrder;
        }
    }
}

TEST(Value, IsNeverSeenHalfWrittenByConcurrentReaders)
{
    const auto value = NewValue(DATATYPE_GUID, std::vector<unsigned char>(16, 0));
    std::atomic<bool> done = false;
    std::thread writer(
        [&]
        {
            for (int i = 0; i < 100000; ++i)
            {
                const std::vector<unsigned char> bytes(i % 3 == 0 ? 40 : 16,
                                                       static_cast<unsigned char>(i));
                value->SetValue(i % 3 == 0 ? OtherType : DATATYPE_GUID, bytes.data(),
                                static_cast<std::int32_t>(bytes.size()));
            }
            done = true;
        });
    int mixed = 0;
    while (!done)
    {
        unsigned char bytes[16] = {};
        if (value->GetValue(DATATYPE_GUID, bytes, 16) == 16)
            mixed += std::set<int>(std::begin(bytes), std::end(bytes)).size() != 1;
    }
    writer.join();
    EXPECT_EQ(mixed, 0);
}

// The helpers, on a value and on one key of a value set alike.
struct Places
{
    static constexpr GUID Key = {7, 7, 7, {}};
    ObjectPtr<IValue> Value = Make<IValue>(CLSID_Value);
    ObjectPtr<IValueSet> Set = Make<IValueSet>(CLSID_ValueSet);
};

TEST(Bullets, WideTextIsStoredAsUtf16AndComesBack)
{
    const bool wide = sizeof(wchar_t) == 4;
    const auto lone = static_cast<wchar_t>(0xD83D);
    const auto byte = static_cast<wchar_t>(0xDC80);
    struct
    {
        std::wstring Text;
        std::u16string Units;
    } const cases[] = {
        {L"", u""},
        {L"plain", u"plain"},
        {std::wstring(L"in\0side", 7), std::u16string(u"in\0side", 7)},
        {L"\x00E4\x4E2D\xFFFF", u"\x00E4\x4E2D\xFFFF"},
        {L"a\U0001F600z\U0010FFFF", u"a\U0001F600z\U0010FFFF"},
        {{lone, L'x', byte, lone}, {0xD83D, u'x', 0xDC80, 0xD83D}},
        {{byte, lone}, {0xDC80, 0xD83D}},
    };
    const Places at;
    for (const auto& [text, units] : cases)
    {
        SCOPED_TRACE(units.size());
        ASSERT_EQ(SetValueUniString(at.Value.Get(), text), S_OK);
        ASSERT_EQ(SetValueUniString(at.Set.Get(), at.Key, text), S_OK);
        const auto* const bytes = reinterpret_cast<const unsigned char*>(units.data());
        ExpectDatum(*at.Value, DATATYPE_UniString, {bytes, bytes + units.size() * 2});
        std::wstring fromValue = L"former", fromSet = L"former";
        EXPECT_EQ(GetValueUniString(at.Value.Get(), &fromValue), S_OK);
        EXPECT_EQ(GetValueUniString(at.Set.Get(), at.Key, &fromSet), S_OK);
        EXPECT_EQ(fromValue, text);
        EXPECT_EQ(fromSet, text);
    }
    if (wide)
    {
        const std::wstring none = {static_cast<wchar_t>(0x110000)};
        EXPECT_EQ(SetValueUniString(at.Value.Get(), none), E_INVALIDARG);
    }
}

TEST(Bullets, NumbersGuidsAndNarrowTextComeBack)
{
    const Places at;
    std::int32_t number = 0;
    GUID guid = GUID_Null;
    std::string text;
    EXPECT_EQ(SetValueSINT32(at.Set.Get(), at.Key, INT32_MIN), S_OK);
    EXPECT_EQ(GetValueSINT32(at.Set.Get(), at.Key, &number), S_OK);
    EXPECT_EQ(number, INT32_MIN);
    EXPECT_EQ(SetValueGUID(at.Value.Get(), OtherType), S_OK);
    EXPECT_EQ(GetValueGUID(at.Value.Get(), &guid), S_OK);
    EXPECT_TRUE(SameGuid(guid, OtherType));
    EXPECT_EQ(SetValueCharString(at.Value.Get(), "bytes \xFF"), S_OK);
    EXPECT_EQ(GetValueCharString(at.Value.Get(), &text), S_OK);
    EXPECT_EQ(text, "bytes \xFF");
    EXPECT_EQ(at.Value->GetValue(DATATYPE_CharString, nullptr, 0), 7) << "no terminating zero";
}

} // namespace
} // namespace Tavrik::Ossira
