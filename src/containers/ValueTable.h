// What a value set holds: values by GUID, read and written under the set's lock.
#pragma once

#include "ItemTable.h"
#include "OssiraValue.h"

#include <optional>

namespace Tavrik::Ossira
{

class CValueTable : public CItemTable<IValue>
{
public:
    // Both answer `E_NOT_FOUND` for an absent key.

    [[nodiscard]] Result Read(const GUID& key, const GUID& type, void* data, std::int32_t size)
    {
        IValue* const value = Find(key);
        return value != nullptr ? value->GetValue(type, data, size) : E_NOT_FOUND;
    }

    [[nodiscard]] Result ReadType(const GUID& key, GUID* type)
    {
        IValue* const value = Find(key);
        return value != nullptr ? value->GetType(type) : E_NOT_FOUND;
    }

    // Writes into the value of the key or else enters `fresh`, which holds the datum already.
    // Nothing is done, and nothing answered, for an absent key while `fresh` is null.
    [[nodiscard]] std::optional<Result> TryWrite(const GUID& key, const GUID& type,
                                                 const void* data, std::int32_t size,
                                                 ObjectPtr<IValue>& fresh)
    {
        if (IValue* const present = Find(key); present != nullptr)
        {
            const Result result = present->SetValue(type, data, size);
            if (!Failed(result))
                MarkChanged();
            return result;
        }
        if (!fresh)
            return std::nullopt;
        Put(key, fresh);
        return S_OK;
    }
};

} // namespace Tavrik::Ossira
