// What a module builds a provider of datatypes from. The types are rows of a constant table; the
// provider is a class that needs nothing but that table:
//
//     constexpr Building::TypeRow Rows[] = {
//         {"Colour", &DATATYPE_Colour, sizeof(Colour), Building::FixedSize, &Compare, &Lerp}};
//
//     struct ColourTraits
//     {
//         static constexpr CLSID ClassId = CLSID_ColourDatatypes;
//         static constexpr std::string_view ClassName = "ColourDatatypes";
//         static constexpr std::string_view ReportedClass = "Tavrik::Samples::T_ColourDatatypes";
//         static constexpr Building::TypeTable Types = Rows;
//     };
//
//     OSSIRA_CLASS(Building::CTypeProvider<ColourTraits>, "ColourDatatypes")
//     OSSIRA_BOOTSTRAP(CLSID_ColourDatatypes, REGCAT_Datatypes, GUID_Null, "ColourDatatypes")
#pragma once

#include "OssiraCollections.h"
#include "OssiraDatatypes.h"
#include "OssiraFrame.h"

#include <span>

namespace Tavrik::Ossira::Building
{

// The functions of a row are called with data that are not null and, in a row of fixed size, have
// that size (the result at least). The data need not be aligned, and the result may be the place of
// one of them: read both before you write.

// Answers -1, 0 or 1.
using CompareFunction = std::int32_t (*)(const void* dataA, std::uint32_t sizeA, const void* dataB,
                                         std::uint32_t sizeB);

// Answers the number of bytes written, or a failure.
using LerpFunction = Result (*)(const void* dataA, std::uint32_t sizeA, const void* dataB,
                                std::uint32_t sizeB, double t, void* dataR, std::uint32_t sizeR);

// Bits of `TypeRow::Flags`.
inline constexpr std::uint8_t FixedSize = 0x01; // every datum has exactly `Size` bytes

struct TypeRow
{
    const char* Name; // longer than 47 characters, it is cut
    const GUID* DataType;
    std::uint32_t Size;
    std::uint8_t Flags;
    CompareFunction Compare; // null: not supported
    LerpFunction Lerp;       // null: not supported
};

using TypeTable = std::span<const TypeRow>;

// The row of a datatype, or null.
[[nodiscard]] const TypeRow* FindRow(TypeTable types, const GUID& dataType) noexcept;

void Describe(const TypeRow& row, DatatypeCharacteristics& info) noexcept;

// Walks the datatypes of a table, which lives as long as the module, and keeps the table's owner
// alive. For one thread at a time. Unlike the enumerators of collections it says `S_FALSE` again
// when it is moved on behind the end.
class CTypeEnumerator : public IEnumeratorGUID, public COssiraUnknown
{
public:
    // Names it in the list of live objects; nothing can be created by it.
    static constexpr CLSID ClassId = {
        0xE4A83679, 0x61B4, 0x448B, {0xB7, 0x3E, 0xD9, 0x29, 0x31, 0xD4, 0x4A, 0xD7}};

    OSSIRA_INTERFACES(IEnumeratorGUID)

    CTypeEnumerator(IUnknown* owner, TypeTable types) noexcept;

    Result Reset() override;
    Result MoveNext() override;
    Result GetCurrentGUID(GUID* pguid) override;

private:
    [[nodiscard]] std::int32_t RowCount() const noexcept;

    ObjectPtr<IUnknown> mOwner;
    TypeTable mTypes;
    std::int32_t mPosition = -1;
};

// A new enumerator, or null when memory is exhausted.
[[nodiscard]] ObjectPtr<IEnumeratorGUID> TryMakeTypeEnumerator(IUnknown* owner, TypeTable types);

// A provider of the types of a table. `Traits` names
//   ClassId, ClassName  of the class
//   ReportedClass       its full name in reports
//   Types               the table
template <class Traits>
class CTypeProvider : public IDatatypes, public CObjectIdentity<Traits>, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = Traits::ClassId;
    static constexpr std::string_view OssiraReportedClass = Traits::ReportedClass;

    OSSIRA_INTERFACES(IDatatypes, IObjectIdentity)

    Result GetEnumerator(const IID& riid, void** ppv) override
    try
    {
        OSSIRA_CHECK_POINTER(ppv);
        OSSIRA_CHECK_REFERENCE(riid);
        const auto enumerator =
            TryMakeTypeEnumerator(static_cast<IDatatypes*>(this), Traits::Types);
        OSSIRA_CHECK(enumerator, E_OUTOFMEMORY, "new T_KeyEnumerator");
        return enumerator->QueryInterface(riid, ppv);
    }
    OSSIRA_CATCH_RETURN

    Result Contains(const GUID& dataType) override
    try
    {
        OSSIRA_CHECK_REFERENCE(dataType);
        return FindRow(Traits::Types, dataType) != nullptr ? S_OK : S_FALSE;
    }
    OSSIRA_CATCH_RETURN

    Result GetCharacteristics(const GUID& dataType, DatatypeCharacteristics* pInfo) override
    try
    {
        OSSIRA_CHECK_POINTER(pInfo);
        OSSIRA_CHECK_REFERENCE(dataType);
        *pInfo = {};
        const TypeRow* const row = FindRow(Traits::Types, dataType);
        OSSIRA_CHECK(row != nullptr, E_NOT_SUPPORTED, UnknownText);
        Describe(*row, *pInfo);
        return S_OK;
    }
    OSSIRA_CATCH_RETURN

    Result ValueCompare(const GUID& dataType, const void* dataA, std::uint32_t sizeA,
                        const void* dataB, std::uint32_t sizeB, std::int32_t* result) override
    try
    {
        OSSIRA_CHECK(result != nullptr && dataA != nullptr && dataB != nullptr, E_POINTER,
                     "result, dataA, dataB");
        OSSIRA_CHECK_REFERENCE(dataType);
        const TypeRow* const row = FindRow(Traits::Types, dataType);
        OSSIRA_CHECK(row != nullptr, E_NOT_SUPPORTED, UnknownText);
        OSSIRA_CHECK(row->Compare != nullptr, E_NOT_SUPPORTED,
                     "dataType not supports ValueCompare()");
        OSSIRA_CHECK(HasSize(*row, sizeA) && HasSize(*row, sizeB), E_INVALIDARG, WrongSizeText);
        *result = row->Compare(dataA, sizeA, dataB, sizeB);
        return S_OK;
    }
    OSSIRA_CATCH_RETURN

    Result ValueLerp(const GUID& dataType, const void* dataA, std::uint32_t sizeA,
                     const void* dataB, std::uint32_t sizeB, double t, void* dataR,
                     std::uint32_t sizeR) override
    try
    {
        OSSIRA_CHECK(dataA != nullptr && dataB != nullptr && dataR != nullptr, E_POINTER,
                     "dataA, dataB, dataR");
        OSSIRA_CHECK_REFERENCE(dataType);
        const TypeRow* const row = FindRow(Traits::Types, dataType);
        OSSIRA_CHECK(row != nullptr, E_NOT_SUPPORTED, UnknownText);
        OSSIRA_CHECK(row->Lerp != nullptr, E_NOT_SUPPORTED, "dataType not supports ValueLerp()");
        OSSIRA_CHECK(HasSize(*row, sizeA) && HasSize(*row, sizeB) && HasRoom(*row, sizeR),
                     E_INVALIDARG, WrongSizeText);
        return row->Lerp(dataA, sizeA, dataB, sizeB, t, dataR, sizeR);
    }
    OSSIRA_CATCH_RETURN

private:
    static constexpr const char* UnknownText = "dataType";
    static constexpr const char* WrongSizeText = "wrong sizeA or/and sizeB";

    [[nodiscard]] static bool HasSize(const TypeRow& row, std::uint32_t size) noexcept
    {
        return (row.Flags & FixedSize) == 0 || size == row.Size;
    }

    // Sizes are compared as signed numbers: a length that went below zero is no room.
    [[nodiscard]] static bool HasRoom(const TypeRow& row, std::uint32_t size) noexcept
    {
        return (row.Flags & FixedSize) == 0 ||
               static_cast<std::int32_t>(row.Size) <= static_cast<std::int32_t>(size);
    }
};

} // namespace Tavrik::Ossira::Building
