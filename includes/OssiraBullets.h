// Small helpers that hosts and modules compile into themselves: creating the common objects, and
// writing and reading text, numbers and GUIDs in values and value sets. They need nothing but the
// runtime's exports, and nothing is thrown out of them.
//
// Wide text is stored as UTF-16 code units of two bytes without a terminating zero, whatever size
// `wchar_t` has; characters outside the basic plane become two units and come back as one
// character, and lone surrogates survive. Narrow text is stored as it is, without its terminating
// zero.
//
// All of them answer `E_POINTER` for a null pointer, `E_OUTOFMEMORY` when memory is exhausted, and
// otherwise what the value or the value set answers: `E_INVALIDARG` for another datatype than the
// stored one, `E_FAIL` for an empty value, `E_NOT_FOUND` for an absent key. What a failing getter
// would have filled is left as it was.
#pragma once

#include "OssiraClasses.h"
#include "OssiraCollections.h"
#include "OssiraPointer.h"
#include "OssiraValue.h"
#include "OssiraValueDataBuffer.h"

#include <exception>
#include <limits>
#include <string>
#include <string_view>

namespace Tavrik::Ossira
{

// Each creates an object of the named class; on success *out owns one reference.

inline Result CreateValue(IValue** out)
{
    return CreateClassObject(&CLSID_Value, &IID_IValue, reinterpret_cast<void**>(out));
}

inline Result CreateReadOnlyValue(IValue** out)
{
    return CreateClassObject(&CLSID_ReadOnlyValue, &IID_IValue, reinterpret_cast<void**>(out));
}

inline Result CreateValueSet(IValueSet** out)
{
    return CreateClassObject(&CLSID_ValueSet, &IID_IValueSet, reinterpret_cast<void**>(out));
}

inline Result CreateNodeList(IList** out)
{
    return CreateClassObject(&CLSID_NodeList, &IID_IList, reinterpret_cast<void**>(out));
}

namespace tDetail
{

// Where a datum is written to and read from: a value, or one key of a value set.
class CValuePlace
{
public:
    explicit CValuePlace(IValue* value) noexcept : mValue(value)
    {
    }

    CValuePlace(IValueSet* values, const GUID& key) noexcept : mValues(values), mKey(&key)
    {
    }

    [[nodiscard]] Result Set(const GUID& type, const void* data, std::size_t size) const
    {
        if (mValue == nullptr && mValues == nullptr)
            return E_POINTER;
        if (size > static_cast<std::size_t>((std::numeric_limits<std::int32_t>::max)()))
            return E_OUTOFMEMORY;
        const auto bytes = static_cast<std::int32_t>(size);
        return mValue != nullptr ? mValue->SetValue(type, data, bytes)
                                 : mValues->SetValueData(*mKey, type, data, bytes);
    }

    [[nodiscard]] Result Get(const GUID& type, void* data, std::int32_t size) const
    {
        if (mValue == nullptr && mValues == nullptr)
            return E_POINTER;
        return mValue != nullptr ? mValue->GetValue(type, data, size)
                                 : mValues->GetValueData(*mKey, type, data, size);
    }

    // Reads text of whatever length. Another thread may set the datum between the question for its
    // size and the answer; then it is asked again.
    template <class Character>
    [[nodiscard]] Result GetText(const GUID& type, std::basic_string<Character>& text) const
    {
        for (;;)
        {
            const Result size = Get(type, nullptr, 0);
            if (Failed(size))
                return size;
            const std::size_t bytes = static_cast<std::size_t>(size);
            if (bytes % sizeof(Character) != 0)
                return E_INVALIDARG;
            text.resize(bytes / sizeof(Character));
            const Result read = Get(type, text.data(), size);
            if (!Failed(read))
                return S_OK;
            if (Get(type, nullptr, 0) == size)
                return read;
        }
    }

    // Reads a datum of fixed size.
    template <class Datum>
    [[nodiscard]] Result GetDatum(const GUID& type, Datum* datum) const
    {
        if (datum == nullptr)
            return E_POINTER;
        const Result read = Get(type, datum, static_cast<std::int32_t>(sizeof(Datum)));
        return Failed(read) ? read : S_OK;
    }

private:
    IValue* mValue = nullptr;
    IValueSet* mValues = nullptr;
    const GUID* mKey = nullptr;
};

// Runs what needs memory, which is all that can go wrong by a throw. A thread that is ended by
// unwinding its stack passes.
template <class Work>
[[nodiscard]] Result WithMemory(Work work)
try
{
    return work();
}
catch (const std::exception&)
{
    return E_OUTOFMEMORY;
}

// False when a character is none of Unicode's.
[[nodiscard]] inline bool AppendUtf16(std::u16string& units, std::wstring_view text)
{
    units.reserve(units.size() + text.size());
    for (const wchar_t character : text)
    {
        const auto code = static_cast<std::uint32_t>(character);
        if (sizeof(wchar_t) == sizeof(char16_t) || code < 0x10000)
        {
            units.push_back(static_cast<char16_t>(code));
            continue;
        }
        if (code > 0x10FFFF)
            return false;
        units.push_back(static_cast<char16_t>(0xD7C0 + (code >> 10)));
        units.push_back(static_cast<char16_t>(0xDC00 + (code & 0x3FF)));
    }
    return true;
}

[[nodiscard]] inline std::wstring WideFromUtf16(const std::u16string& units)
{
    std::wstring text;
    text.reserve(units.size());
    for (std::size_t at = 0; at < units.size(); ++at)
    {
        std::uint32_t code = units[at];
        const bool isPair = sizeof(wchar_t) > sizeof(char16_t) && (code & 0xFC00) == 0xD800 &&
                            (units[at + 1] & 0xFC00) == 0xDC00; // behind the last one is 0
        if (isPair)
            code = 0x10000 + ((code & 0x3FF) << 10) + (units[++at] & 0x3FFu);
        text.push_back(static_cast<wchar_t>(code));
    }
    return text;
}

inline Result SetWide(const CValuePlace& place, std::wstring_view text)
{
    return WithMemory(
        [&]() -> Result
        {
            std::u16string units;
            if (!AppendUtf16(units, text))
                return E_INVALIDARG;
            return place.Set(DATATYPE_UniString, units.data(), units.size() * sizeof(char16_t));
        });
}

inline Result GetWide(const CValuePlace& place, std::wstring* text)
{
    if (text == nullptr)
        return E_POINTER;
    return WithMemory(
        [&]
        {
            std::u16string units;
            const Result result = place.GetText(DATATYPE_UniString, units);
            if (!Failed(result))
                *text = WideFromUtf16(units);
            return result;
        });
}

inline Result GetNarrow(const CValuePlace& place, std::string* text)
{
    if (text == nullptr)
        return E_POINTER;
    return WithMemory(
        [&]
        {
            std::string characters;
            const Result result = place.GetText(DATATYPE_CharString, characters);
            if (!Failed(result))
                text->swap(characters);
            return result;
        });
}

} // namespace tDetail

// --- Text. What follows a zero character is stored too when the length is given by a view. A wide
//     character that is none of Unicode's answers `E_INVALIDARG`, and so does stored wide text of
//     an odd number of bytes. -------------------------------------------------------------------

inline Result SetValueUniString(IValue* value, std::wstring_view text)
{
    return tDetail::SetWide(tDetail::CValuePlace(value), text);
}

inline Result SetValueUniString(IValue* value, const wchar_t* text)
{
    return text != nullptr ? SetValueUniString(value, std::wstring_view(text)) : E_POINTER;
}

inline Result SetValueUniString(IValueSet* values, const GUID& key, std::wstring_view text)
{
    return tDetail::SetWide(tDetail::CValuePlace(values, key), text);
}

inline Result SetValueUniString(IValueSet* values, const GUID& key, const wchar_t* text)
{
    return text != nullptr ? SetValueUniString(values, key, std::wstring_view(text)) : E_POINTER;
}

inline Result GetValueUniString(IValue* value, std::wstring* text)
{
    return tDetail::GetWide(tDetail::CValuePlace(value), text);
}

inline Result GetValueUniString(IValueSet* values, const GUID& key, std::wstring* text)
{
    return tDetail::GetWide(tDetail::CValuePlace(values, key), text);
}

inline Result SetValueCharString(IValue* value, std::string_view text)
{
    return tDetail::CValuePlace(value).Set(DATATYPE_CharString, text.data(), text.size());
}

inline Result SetValueCharString(IValue* value, const char* text)
{
    return text != nullptr ? SetValueCharString(value, std::string_view(text)) : E_POINTER;
}

inline Result SetValueCharString(IValueSet* values, const GUID& key, std::string_view text)
{
    return tDetail::CValuePlace(values, key).Set(DATATYPE_CharString, text.data(), text.size());
}

inline Result SetValueCharString(IValueSet* values, const GUID& key, const char* text)
{
    return text != nullptr ? SetValueCharString(values, key, std::string_view(text)) : E_POINTER;
}

inline Result GetValueCharString(IValue* value, std::string* text)
{
    return tDetail::GetNarrow(tDetail::CValuePlace(value), text);
}

inline Result GetValueCharString(IValueSet* values, const GUID& key, std::string* text)
{
    return tDetail::GetNarrow(tDetail::CValuePlace(values, key), text);
}

// --- Numbers and identifiers. -------------------------------------------------------------------

inline Result SetValueSINT32(IValue* value, std::int32_t number)
{
    return tDetail::CValuePlace(value).Set(DATATYPE_SINT32, &number, sizeof(number));
}

inline Result SetValueSINT32(IValueSet* values, const GUID& key, std::int32_t number)
{
    return tDetail::CValuePlace(values, key).Set(DATATYPE_SINT32, &number, sizeof(number));
}

inline Result GetValueSINT32(IValue* value, std::int32_t* number)
{
    return tDetail::CValuePlace(value).GetDatum(DATATYPE_SINT32, number);
}

inline Result GetValueSINT32(IValueSet* values, const GUID& key, std::int32_t* number)
{
    return tDetail::CValuePlace(values, key).GetDatum(DATATYPE_SINT32, number);
}

inline Result SetValueGUID(IValue* value, const GUID& guid)
{
    return tDetail::CValuePlace(value).Set(DATATYPE_GUID, &guid, sizeof(guid));
}

inline Result SetValueGUID(IValueSet* values, const GUID& key, const GUID& guid)
{
    return tDetail::CValuePlace(values, key).Set(DATATYPE_GUID, &guid, sizeof(guid));
}

inline Result GetValueGUID(IValue* value, GUID* guid)
{
    return tDetail::CValuePlace(value).GetDatum(DATATYPE_GUID, guid);
}

inline Result GetValueGUID(IValueSet* values, const GUID& key, GUID* guid)
{
    return tDetail::CValuePlace(values, key).GetDatum(DATATYPE_GUID, guid);
}

} // namespace Tavrik::Ossira
