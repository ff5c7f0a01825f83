// The value set: a dictionary whose items are values, read and written by key under the set's lock.
// The parameters are those of `CGuidCollection`; `Storage` is a table of values (see ValueTable.h),
// or what stands in its place in the merged view of a value set group.
#pragma once

#include "GuidCollection.h"
#include "ValueTable.h"

namespace Tavrik::Ossira
{

// What every value set's traits say.
struct ValueSetText
{
    static constexpr const char* AddText = "AddGUID not supported by IValueSet";
    static constexpr const char* RefusalText = "Call of IValueSet::IValue-Methode not supported";
    static constexpr const std::string_view& EnumeratorClass = EnumeratorName;
    static constexpr const char* NewEnumeratorText = "new T_Enumerator";
};

template <class Traits, class Storage>
class CValueSetOperations : public CGuidCollection<Traits, IValueSet, Storage>
{
    using Item = typename Storage::Item;

public:
    static constexpr std::string_view OssiraReportedClass = ReportedClass<Traits>;

    Result SetValueGUID(const GUID& key, IUnknown* value) override
    try
    {
        OSSIRA_CHECK_POINTER(value);
        ObjectPtr<Item> item;
        OSSIRA_CHECK_CALL_TWICE(value->QueryInterface(Item::Iid, item.PutVoid()), NoValueText);
        OSSIRA_CHECK(item, E_NOINTERFACE, NoValueText);
        const tSystem::CLockGuard guard(this->mLock);
        this->mStorage.Put(key, item);
        return S_OK;
    }
    OSSIRA_CATCH_RETURN

    Result GetValues(void**) override
    try
    {
        OSSIRA_THROW(E_NOTIMPL, "GetValueCollection");
    }
    OSSIRA_CATCH_RETURN

    Result GetKeys(void**) override
    try
    {
        OSSIRA_THROW(E_NOTIMPL, "GetKeyCollection");
    }
    OSSIRA_CATCH_RETURN

    Result GetValueData(const GUID& key, const GUID& type, void* data, std::int32_t size) override
    try
    {
        const tSystem::CLockGuard guard(this->mLock);
        return this->mStorage.Read(key, type, data, size);
    }
    OSSIRA_CATCH_RETURN

    // A new value is made and set while no lock is held; if the key has come up meanwhile, the
    // value that came with it is written instead.
    Result SetValueData(const GUID& key, const GUID& type, const void* data,
                        std::int32_t size) override
    try
    {
        ObjectPtr<IValue> fresh;
        if (const auto written = Write(key, type, data, size, fresh))
            return *written;
        OSSIRA_CHECK_CALL_TWICE(CreateValue(fresh.Put()), "CreateValue(&Value)");
        const Result result = fresh->SetValue(type, data, size);
        return Failed(result) ? result : *Write(key, type, data, size, fresh);
    }
    OSSIRA_CATCH_RETURN

    Result GetDataType(const GUID& key, GUID* type) override
    try
    {
        const tSystem::CLockGuard guard(this->mLock);
        return this->mStorage.ReadType(key, type);
    }
    OSSIRA_CATCH_RETURN

private:
    static constexpr const char* NoValueText = "item-object must be IValue";

    [[nodiscard]] auto Write(const GUID& key, const GUID& type, const void* data, std::int32_t size,
                             ObjectPtr<IValue>& fresh)
    {
        const tSystem::CLockGuard guard(this->mLock);
        return this->mStorage.TryWrite(key, type, data, size, fresh);
    }
};

} // namespace Tavrik::Ossira
