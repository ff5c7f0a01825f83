// What the tests of the registration and of the services share.
#pragma once

#include "DiagnosticsCapture.h"
#include "Ossira.h"
#include "TestModules.h"
#include "TestTools.h"

#include <cstdio>
#include <string>
#include <vector>

namespace Tavrik::Ossira::tTest
{

// The messages of the lines that were written, without the place and the level before them and
// without the lines about objects that were created on the way.
[[nodiscard]] inline std::vector<std::string> Messages(const DiagnosticsCapture& capture)
{
    std::vector<std::string> messages;
    for (const std::string& line : capture.Lines())
    {
        std::string message = line;
        for (const std::string_view start : {"] -ERROR- ", "] -WARN- ", "]  "})
        {
            if (const std::size_t at = line.find(start); at != std::string::npos)
            {
                message = line.substr(at + start.size());
                break;
            }
        }
        if (!message.starts_with("Object 0x") && !message.starts_with("GlobalSingleton Object 0x"))
            messages.push_back(message);
    }
    return messages;
}

// The call must answer the code and write the text, as the check that failed, in exactly one line;
// without a text it must write nothing.
template <class Call>
void ExpectFailure(Call call, Result code, const std::string& text)
{
    const DiagnosticsCapture capture;
    EXPECT_EQ(call(), code) << text;
    EXPECT_EQ(capture.CountLinesWith(text.empty() ? "" : " " + text + ": "), text.empty() ? 0u : 1u)
        << text << "\n"
        << capture.Text();
}

#define FAILS(call, code, text) ExpectFailure([&] { return call; }, code, text)

[[nodiscard]] inline std::string Text(const GUID& guid)
{
    char text[37];
    const std::uint8_t* const rest = guid.Data4;
    std::snprintf(text, sizeof text, "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X",
                  static_cast<unsigned>(guid.Data1), guid.Data2, guid.Data3, rest[0], rest[1],
                  rest[2], rest[3], rest[4], rest[5], rest[6], rest[7]);
    return text;
}

// Identifiers for tests: those of ascending numbers below 256 are in ascending order.
[[nodiscard]] constexpr GUID Numbered(std::uint32_t number)
{
    return {number, 0x7E57, 0, {}};
}

[[nodiscard]] inline ObjectPtr<IValue> WideValue(const std::wstring& text)
{
    auto value = Make<IValue>(CLSID_Value);
    EXPECT_EQ(SetValueUniString(value.Get(), text), S_OK);
    return value;
}

// The wide strings of a list of values or, with a key, of a list of value sets.
[[nodiscard]] inline std::vector<std::wstring> TextsOf(ICollection& list, const GUID* key = nullptr)
{
    ObjectPtr<IEnumerator> items;
    EXPECT_EQ(list.GetEnumerator(IID_IEnumerator, items.PutVoid()), S_OK);
    std::vector<std::wstring> texts;
    while (items->MoveNext() == S_OK)
    {
        ObjectPtr<IUnknown> item;
        EXPECT_EQ(items->GetCurrent(IID_IUnknown, item.PutVoid()), S_OK);
        ObjectPtr<IValue> value;
        ObjectPtr<IValueSet> values;
        std::wstring& text = texts.emplace_back();
        if (key == nullptr)
            EXPECT_TRUE(item.QueryTo(value) == S_OK &&
                        GetValueUniString(value.Get(), &text) == S_OK);
        else
            EXPECT_TRUE(item.QueryTo(values) == S_OK &&
                        GetValueUniString(values.Get(), *key, &text) == S_OK);
    }
    return texts;
}

[[nodiscard]] inline std::vector<std::wstring> ModulesOf(IObjectFactory& factory)
{
    ObjectPtr<ICollection> modules;
    EXPECT_EQ(factory.GetModules(IID_ICollection, modules.PutVoid()), S_OK);
    return TextsOf(*modules);
}

} // namespace Tavrik::Ossira::tTest
