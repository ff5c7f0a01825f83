// The component server: what a module says of itself and what it is asked. Every module has exactly
// one, `CComServer`; a module in another file is asked through `CDynLib`, which has the same face.
#pragma once

#include "FastCriticalSection.h"
#include "OssiraFrame.h"

#include <array>
#include <atomic>
#include <bit>
#include <map>
#include <memory>

namespace Tavrik::Ossira
{

class OssiraComServer
{
public:
    OssiraComServer() = default;
    OssiraComServer(const OssiraComServer&) = delete;
    OssiraComServer& operator=(const OssiraComServer&) = delete;
    virtual ~OssiraComServer() = default;

    // Ends the server at detach.
    virtual void Destroy() = 0;

    // A new object of a class, asked for an interface. An unknown class answers `E_NOINTERFACE`.
    virtual Result GetClassObject(const CLSID& clsid, const IID& iid, void** out) = 0;

    // `S_OK` when no object of the module is alive, else `S_FALSE`.
    virtual Result CanUnloadNow() = 0;

    virtual Result GetOpenObjectCount() = 0;
    virtual Result GetClassCount() = 0;

    // Copies the identifiers of the classes `first` to `first + count - 1`, in the order of their
    // bytes. A range outside the table answers `E_INVALIDARG`.
    virtual Result GetClassObjectID(std::uint32_t first, std::uint32_t count, CLSID* out) = 0;

    // Copies a class's text, zero-terminated. A text that does not fit leaves the buffer empty. An
    // index outside the table or a size below 1 answers `E_INVALIDARG`.
    virtual Result GetClassObjectInfo(std::uint32_t index, char* buffer, std::uint32_t size) = 0;

    // An object's birth and death, for the list of live objects.
    virtual Result RemoveObject(IUnknown* privateUnknown) = 0;
    virtual Result AddObject(IUnknown* privateUnknown, const CLSID& clsid) = 0;

    // 1 when the class is not in this module's table, else 0.
    virtual Result IsForeignClass(const CLSID& clsid) = 0;
};

class CComServer final : public OssiraComServer
{
public:
    // Null when memory is exhausted.
    [[nodiscard]] static CComServer* Create() noexcept;

    void Destroy() override;
    Result GetClassObject(const CLSID& clsid, const IID& iid, void** out) override;
    Result CanUnloadNow() override;
    Result GetOpenObjectCount() override;
    Result GetClassCount() override;
    Result GetClassObjectID(std::uint32_t first, std::uint32_t count, CLSID* out) override;
    Result GetClassObjectInfo(std::uint32_t index, char* buffer, std::uint32_t size) override;
    Result RemoveObject(IUnknown* privateUnknown) override;
    Result AddObject(IUnknown* privateUnknown, const CLSID& clsid) override;
    Result IsForeignClass(const CLSID& clsid) override;

    // This module's server; null before attach and after detach.
    [[nodiscard]] static CComServer* OfModule() noexcept
    {
        return sOfModule.load(std::memory_order_acquire);
    }

    static void SetOfModule(CComServer* server) noexcept
    {
        sOfModule.store(server, std::memory_order_release);
    }

    // The class's entry, or null.
    [[nodiscard]] const ClassEntry* FindClass(const CLSID& clsid) noexcept
    {
        BuildClassTableIfStale();
        return FindIndexedClass(clsid);
    }

    // The same with nothing called, so that no register is saved for it; null as well while the
    // table is out of date.
    [[nodiscard]] const ClassEntry* FindClassAtOnce(const CLSID& clsid) const noexcept
    {
        return IsStale() ? nullptr : FindIndexedClass(clsid);
    }

    // As `GetClassObject`, for a class that was looked up already; a null entry is an unknown one.
    [[nodiscard]] static Result CreateObject(const ClassEntry* entry, const CLSID& clsid,
                                             const IID& iid, void** out)
    {
        tSystem::CheckForeignCall();
        if (entry != nullptr && entry->AnswerCreator != nullptr) [[likely]]
            return entry->AnswerCreator(*entry, iid, out);
        return CreateObjectInFull(entry, clsid, iid, out);
    }

    // Writes the list of live objects; it ends where a thread that is gone holds the lock.
    void DumpLiveObjects(bool processEnds) noexcept;

private:
    CComServer() = default;

    [[nodiscard]] static Result CreateObjectInFull(const ClassEntry* entry, const CLSID& clsid,
                                                   const IID& iid, void** out);

    // The table is built when the server is made, and again should further entries be linked. False
    // when memory is exhausted: the former one stays.
    [[nodiscard]] bool BuildClassTable() noexcept;

    [[nodiscard]] bool IsStale() const noexcept
    {
        return mListHeadSeen != sClassListHead;
    }

    void BuildClassTableIfStale() noexcept
    {
        if (IsStale()) [[unlikely]]
            static_cast<void>(BuildClassTable());
    }

    [[nodiscard]] const ClassEntry* FindIndexedClass(const CLSID& clsid) const noexcept
    {
        for (std::size_t slot = HashOf(clsid);; ++slot)
        {
            const ClassEntry* const entry = mClassIndex[slot & mClassIndexMask];
            if (entry == nullptr || SameGuid(entry->ClassId, clsid))
                return entry;
        }
    }

    [[nodiscard]] static std::size_t HashOf(const GUID& guid) noexcept
    {
        const auto halves = std::bit_cast<std::array<std::uint64_t, 2>>(guid);
        return static_cast<std::size_t>(((halves[0] ^ halves[1]) * 0x9E3779B97F4A7C15u) >> 32);
    }

    void Track(IUnknown* privateUnknown, const CLSID& clsid) noexcept;
    void Untrack(IUnknown* privateUnknown) noexcept;

    // The next live object behind one, with a reference added to it; null at the end. How many it
    // had before is told.
    [[nodiscard]] IUnknown*
    NextLiveObject(IUnknown* behind, bool processEnds, CLSID& clsid,
                   std::int32_t& count) noexcept OSSIRA_UNCHECKED_GUARDS; // it may give the lock up

    friend ClassEntry;

    // Entries link themselves while the module's static objects are built, in an order that nobody
    // knows; these need no construction themselves.
    static constinit inline const ClassEntry* sClassListHead = nullptr;
    static constinit inline std::atomic<CComServer*> sOfModule = nullptr;

    tSystem::CFastCriticalSection mLock;
    std::uint32_t mClassCount = 0;
    std::unique_ptr<const ClassEntry*[]> mSortedClasses; // by the bytes of the identifier
    std::unique_ptr<const ClassEntry*[]> mClassIndex;    // open-addressed, with a null at least
    std::size_t mClassIndexMask = 0;
    const ClassEntry* mListHeadSeen = nullptr;
    std::map<IUnknown*, CLSID> mLiveObjects OSSIRA_GUARDED_BY(mLock);
};

[[nodiscard]] inline CComServer* ModuleServer() noexcept
{
    return CComServer::OfModule();
}

} // namespace Tavrik::Ossira
