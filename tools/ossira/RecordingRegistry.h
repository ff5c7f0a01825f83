// A CLSID registry that writes down what is filed in it, and hands everything on to another one. A
// registry does not list its groups; whoever wants to know them has to be there when they are made.
#pragma once

#include "OssiraServices.h"

#include <vector>

namespace Tavrik::tHost
{

// Lives on the stack of whoever asks a module to file its classes; references are not counted.
class CRecordingRegistry final : public Ossira::IClsidRegistry
{
public:
    struct Entry
    {
        GUID Category;
        GUID Group; // null: none
        CLSID Class;
    };

    explicit CRecordingRegistry(Ossira::IClsidRegistry& other) noexcept : mOther(other)
    {
    }

    [[nodiscard]] const std::vector<Entry>& Entries() const noexcept
    {
        return mEntries;
    }

    Ossira::Result QueryInterface(const IID& iid, void** out) override
    {
        if (!Ossira::SameGuid(iid, Ossira::IID_IUnknown) && !Ossira::SameGuid(iid, Iid))
            return mOther.QueryInterface(iid, out);
        *out = static_cast<IClsidRegistry*>(this);
        return Ossira::S_OK;
    }

    std::uint32_t AddRef() override
    {
        return 1;
    }

    std::uint32_t Release() override
    {
        return 1;
    }

    Ossira::Result RegisterClass(const GUID& category, const CLSID& clsid) override
    {
        return Note({category, Ossira::GUID_Null, clsid}, mOther.RegisterClass(category, clsid));
    }

    Ossira::Result RegisterGroupClass(const GUID& category, const GUID& group,
                                      const CLSID& clsid) override
    {
        return Note({category, group, clsid}, mOther.RegisterGroupClass(category, group, clsid));
    }

    Ossira::Result UnregisterClass(const GUID& category, const CLSID& clsid) override
    {
        return UnregisterGroupClass(category, Ossira::GUID_Null, clsid);
    }

    Ossira::Result UnregisterGroupClass(const GUID& category, const GUID& group,
                                        const CLSID& clsid) override
    {
        std::erase_if(mEntries,
                      [&](const Entry& entry)
                      {
                          return Ossira::SameGuid(entry.Category, category) &&
                                 Ossira::SameGuid(entry.Group, group) &&
                                 Ossira::SameGuid(entry.Class, clsid);
                      });
        return mOther.UnregisterGroupClass(category, group, clsid);
    }

    Ossira::Result ContainsCategory(const GUID& category) override
    {
        return mOther.ContainsCategory(category);
    }

    Ossira::Result ContainsGroup(const GUID& category, const GUID& group) override
    {
        return mOther.ContainsGroup(category, group);
    }

    Ossira::Result ContainsClass(const GUID& category, const CLSID& clsid) override
    {
        return mOther.ContainsClass(category, clsid);
    }

    Ossira::Result ContainsGroupClass(const GUID& category, const GUID& group,
                                      const CLSID& clsid) override
    {
        return mOther.ContainsGroupClass(category, group, clsid);
    }

    Ossira::Result GetClasses(const GUID& category, const IID& iid, void** ppv) override
    {
        return mOther.GetClasses(category, iid, ppv);
    }

    Ossira::Result GetGroupClasses(const GUID& category, const GUID& group, const IID& iid,
                                   void** ppv) override
    {
        return mOther.GetGroupClasses(category, group, iid, ppv);
    }

    Ossira::Result GetCategories(const IID& iid, void** ppv) override
    {
        return mOther.GetCategories(iid, ppv);
    }

private:
    Ossira::Result Note(const Entry& entry, Ossira::Result filed)
    {
        if (filed == Ossira::S_OK)
            mEntries.push_back(entry);
        return filed;
    }

    Ossira::IClsidRegistry& mOther;
    std::vector<Entry> mEntries;
};

} // namespace Tavrik::tHost
