// The parts of a provider of datatypes that do not depend on its class: looking into its table, and
// the enumerator over it. They are in the frame because every module that brings datatypes of its
// own compiles its provider from them, as the runtime does.
#include "OssiraDatatypeBuilder.h"

#include <algorithm>
#include <cstring>

namespace Tavrik::Ossira::Building
{

// Tables are short, and comparing a GUID takes two instructions: an index would not be faster.
const TypeRow* FindRow(TypeTable types, const GUID& dataType) noexcept
{
    const auto row = std::find_if(types.begin(), types.end(),
                                  [&dataType](const TypeRow& candidate)
                                  { return SameGuid(*candidate.DataType, dataType); });
    return row != types.end() ? &*row : nullptr;
}

void Describe(const TypeRow& row, DatatypeCharacteristics& info) noexcept
{
    info = {};
    const std::size_t length = std::min(std::strlen(row.Name), sizeof(info.Name) - 1);
    std::copy_n(row.Name, length, info.Name);
    info.Size = row.Size;
    info.IsFixedSize = (row.Flags & FixedSize) != 0 ? 1 : 0;
    info.CanCompare = row.Compare != nullptr ? 1 : 0;
    info.CanLerp = row.Lerp != nullptr ? 1 : 0;
}

CTypeEnumerator::CTypeEnumerator(IUnknown* owner, TypeTable types) noexcept
    : mOwner(owner), mTypes(types)
{
}

std::int32_t CTypeEnumerator::RowCount() const noexcept
{
    return static_cast<std::int32_t>(mTypes.size());
}

Result CTypeEnumerator::Reset()
{
    mPosition = -1;
    return S_OK;
}

Result CTypeEnumerator::MoveNext()
{
    mPosition = std::min(mPosition + 1, RowCount());
    return mPosition < RowCount() ? S_OK : S_FALSE;
}

Result CTypeEnumerator::GetCurrentGUID(GUID* pguid)
try
{
    OSSIRA_CHECK_POINTER(pguid);
    OSSIRA_CHECK(mPosition >= 0 && mPosition < RowCount(), E_FAIL,
                 "Invalid postion - see Reset(), MoveNext()");
    *pguid = *mTypes[static_cast<std::size_t>(mPosition)].DataType;
    return S_OK;
}
OSSIRA_CATCH_RETURN

ObjectPtr<IEnumeratorGUID> TryMakeTypeEnumerator(IUnknown* owner, TypeTable types)
try
{
    const auto enumerator = MakeObject<CTypeEnumerator>(owner, types);
    return ObjectPtr<IEnumeratorGUID>(enumerator.Get());
}
catch (const std::bad_alloc&)
{
    return {};
}

} // namespace Tavrik::Ossira::Building
