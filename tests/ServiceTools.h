// What the tests of the registration and of the services share.
#pragma once

#include "DiagnosticsCapture.h"
#include "TestModules.h"
#include "TestTools.h"

#include <cstdio>
#include <regex>

namespace Tavrik::Ossira::tTest
{

// The messages of the lines that were written, without the place and the level before them and
// without the lines about objects that were created on the way.
[[nodiscard]] inline std::vector<std::string> Messages(const DiagnosticsCapture& capture)
{
    static const std::regex start(".*?\\] (-ERROR-|-WARN-)? ");
    std::vector<std::string> messages;
    for (const std::string& line : capture.Lines())
    {
        const std::string message =
            std::regex_replace(line, start, "", std::regex_constants::format_first_only);
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
        ObjectPtr<IValue> value;
        ObjectPtr<IValueSet> values;
        const Result got = key == nullptr ? items->GetCurrent(IID_IValue, value.PutVoid())
                                          : items->GetCurrent(IID_IValueSet, values.PutVoid());
        EXPECT_EQ(got, S_OK);
        std::wstring& text = texts.emplace_back();
        EXPECT_EQ(key == nullptr ? GetValueUniString(value.Get(), &text)
                                 : GetValueUniString(values.Get(), *key, &text),
                  S_OK);
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
