// Values, and the helpers that read and write them.
#include "RandomProgram.h"

#include <algorithm>
#include <array>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

using Bytes = std::vector<unsigned char>;

// Values of both classes, which are set, read, emptied, compared and become clones of each other.
class ValueModel final : public RandomModel
{
public:
    void Step() override
    {
        Slot& slot = mSlots[Below(std::size(mSlots))];
        const Slot& other = mSlots[Below(std::size(mSlots))];
        const GUID type = Types[Below(std::size(Types))];
        Bytes bytes(Below(std::array{40U, 40U, 140U, 3000U}[Below(4)]));
        std::ranges::generate(bytes, [this] { return static_cast<unsigned char>(Below(200)); });
        const auto size = static_cast<std::int32_t>(bytes.size());
        const auto isSet = [&](const GUID& to, const void* data, std::int32_t count, Result answer,
                               const char* text)
        {
            const bool isRefused = slot.IsReadOnly && !slot.IsEmpty;
            Expect([&] { return slot.Value->SetValue(to, data, count); },
                   isRefused ? E_ACCESSDENIED : answer, isRefused ? "Value is Readonly" : text);
            return !isRefused;
        };
        const std::uint32_t die = Below(10);
        if (die < 2) // emptied, which a mistake does as well
        {
            if (isSet(GUID_Null, die == 0 ? nullptr : &type, 0, die == 0 ? S_OK : E_INVALIDARG,
                      die == 0 ? "" : "data == NULL && size == 0"))
                slot = {slot.Value, slot.IsReadOnly, true, slot.Type, {}};
        }
        else if (die < 3)
        {
            (void)isSet(type, &type, -1 - size, E_INVALIDARG, "AllocBuffer(size)");
            (void)isSet(type, nullptr, 1 + size, E_POINTER, "data");
        }
        else if (die < 4)
        {
            ObjectPtr<IValue> clone;
            const auto make = [&]
            {
                return As<ICloneable>(*other.Value)->Clone(IID_IValue, clone.PutVoid());
            };
            EXPECT_EQ(Answer(make), S_OK);
            slot = {clone, other.IsReadOnly, other.IsEmpty, other.Type, other.Content};
        }
        else if (die < 6)
            Compare(slot, other);
        else if (isSet(type, bytes.data(), size, S_OK, ""))
            slot = {slot.Value, slot.IsReadOnly, false, type, bytes};
    }

    void Check() override
    {
        for (const Slot& slot : mSlots)
        {
            const auto size = static_cast<std::int32_t>(slot.Content.size());
            const auto get = [&](const GUID& type, void* data, std::int32_t count, Result answer,
                                 const std::string& text = "")
            {
                Expect([&] { return slot.Value->GetValue(type, data, count); },
                       slot.IsEmpty ? E_FAIL : answer, slot.IsEmpty ? "" : text);
            };
            Bytes read(slot.Content.size() + 8, 0xEE), expected = slot.Content;
            expected.resize(read.size(), 0xEE);
            get(slot.Type, read.data(), size + 1, E_INVALIDARG,
                "GetValue-size " + std::to_string(size + 1) + " dose not match data-size " +
                    std::to_string(size));
            get(Numbered(99), read.data(), size, E_INVALIDARG);
            get(slot.Type, nullptr, 0, size);
            get(slot.Type, nullptr, 1, E_POINTER, "data");
            get(slot.Type, read.data(), size, size);
            EXPECT_EQ(read, expected) << "nothing is written beyond";
            GUID type = Numbered(99);
            EXPECT_TRUE(slot.Value->GetType(&type) == S_OK && ReferencesOn(*slot.Value) == 1 &&
                        SameGuid(type, slot.IsEmpty ? GUID_Null : slot.Type));
        }
    }

private:
    struct Slot
    {
        ObjectPtr<IValue> Value;
        bool IsReadOnly;
        bool IsEmpty = true;
        GUID Type = GUID_Null; // of an empty one the last, by which it is compared
        Bytes Content = {};
    };

    static constexpr GUID Types[] = {DATATYPE_SINT32, {0x100, 0, 0, {}}, {1, 0, 0, {}}};

    void Compare(const Slot& left, const Slot& right)
    {
        std::int32_t order = 1000;
        const auto compare = [&]
        {
            return As<IComparable>(*left.Value)->Compare(right.Value.Get(), &order);
        };
        const GUID type = right.IsEmpty ? GUID_Null : right.Type;
        const bool isNothing = right.IsEmpty && SameGuid(left.Type, GUID_Null);
        Expect(compare, isNothing ? E_FAIL : S_OK,
               isNothing ? "BValue->GetValue(BType, NULL, 0)" : "");
        const auto bytes = std::memcmp(&left.Type, &type, sizeof type) <=> 0;
        const auto sizes = left.Content.size() <=> right.Content.size();
        EXPECT_EQ(order <=> 0, isNothing    ? std::strong_ordering::greater
                               : bytes != 0 ? bytes
                               : sizes != 0 ? sizes
                                            : left.Content <=> right.Content);
    }

    Slot mSlots[4] = {{Make<IValue>(CLSID_Value), false},
                      {Make<IValue>(CLSID_Value), false},
                      {Make<IValue>(CLSID_ReadOnlyValue), true},
                      {Make<IValue>(CLSID_ReadOnlyValue), true}};
};

TEST(Value, KeepsComparesAndClonesWhatItIsSetTo)
{
    RunProgram<ValueModel>(5000);
}

TEST(Value, IsComparedWithSomebodyElsesValueThatIsWrittenMeanwhileOrCannotBeRead)
{
    const auto left = Make<IValue>(CLSID_Value);
    std::int32_t result = 0;
    EXPECT_EQ(SetValueSINT32(left.Get(), 5), S_OK);
    FAILS(As<IComparable>(*left)->Compare(left.Get(), nullptr), E_POINTER, "result");
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
    constexpr std::pair<GUID, std::int32_t> others[] = {
        {{~0U, 0, 0, {}}, 4}, {DATATYPE_SINT32, 2}, {DATATYPE_SINT32, 8}};
    foreign.Failures = 0;
    for (const auto& [type, size] : others)
    {
        EXPECT_EQ(left->SetValue(type, "\1\2\3\4\5\6\7", size), S_OK);
        result = 0;
        EXPECT_EQ(As<IComparable>(*left)->Compare(&foreign, &result), S_OK);
        EXPECT_EQ(result <=> 0, size <=> 3) << "by datatype, then by size";
    }
}

TEST(Bullets, WideTextIsStoredAsUtf16AndComesBack)
{
    const auto value = Make<IValue>(CLSID_Value);
    std::wstring read;
    const auto [high, low] = std::array{static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDC80)};
    const std::pair<std::wstring, std::u16string> cases[] = {
        {L"", u""},
        {std::wstring(L"in\0side", 7), std::u16string(u"in\0side", 7)},
        {L"\x00E4\x4E2D\xFFFF", u"\x00E4\x4E2D\xFFFF"},
        {L"\U00010000\U0001F600z\U0010FFFF", u"\U00010000\U0001F600z\U0010FFFF"},
        {{high, L'x', low, high}, {0xD83D, u'x', 0xDC80, 0xD83D}},
    };
    for (const auto& [text, units] : cases)
    {
        EXPECT_EQ(SetValueUniString(value.Get(), text), S_OK);
        std::u16string stored(units.size(), u'#');
        const auto size = static_cast<std::int32_t>(stored.size() * 2);
        EXPECT_EQ(value->GetValue(DATATYPE_UniString, stored.data(), size), size);
        EXPECT_TRUE(stored == units);
        EXPECT_TRUE(GetValueUniString(value.Get(), &read) == S_OK && read == text) << units.size();
    }
    const std::wstring none(1, static_cast<wchar_t>(0x110000));
    EXPECT_EQ(SetValueUniString(value.Get(), none), sizeof(wchar_t) == 4 ? E_INVALIDARG : S_OK);
}

} // namespace
} // namespace Tavrik::Ossira
