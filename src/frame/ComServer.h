// The component server: what a module says of itself and what it is asked. Every module has exactly
// one, `CComServer`; a module in another file is asked through `CDynLib`, which has the same face.
#pragma once

#include "FastCriticalSection.h"
#include "OssiraFrame.h"

#include <atomic>
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

    // What `AddObject` and `RemoveObject` do while there is no server.
    static void CountObject() noexcept
    {
        sOpenObjectCount.fetch_add(1, std::memory_order_relaxed);
    }

    static void UncountObject() noexcept
    {
        sOpenObjectCount.fetch_sub(1, std::memory_order_release);
    }

    // The class's entry, or null.
    [[nodiscard]] const ClassEntry* FindClass(const CLSID& clsid) noexcept;

    // As `GetClassObject`, for a class that was looked up already; a null entry is an unknown one.
    Result CreateObject(const ClassEntry* entry, const CLSID& clsid, const IID& iid, void** out);

    // Writes the list of live objects; it ends where a thread that is gone holds the lock.
    void DumpLiveObjects(bool processEnds) noexcept;

private:
    class CNewObject;

    CComServer() = default;

    // The table is built when the server is made, and again should further entries be linked. False
    // when memory is exhausted: the former one stays.
    [[nodiscard]] bool BuildClassTable() noexcept;

    void BuildClassTableIfStale() noexcept
    {
        if (mListHeadSeen != ClassListHead()) [[unlikely]]
            static_cast<void>(BuildClassTable());
    }

    [[nodiscard]] static const ClassEntry* ClassListHead() noexcept;

    // Not inline: they would burden every birth and death.
    [[gnu::noinline]] void Track(IUnknown* privateUnknown, const CLSID& clsid) noexcept;
    [[gnu::noinline]] void Untrack(IUnknown* privateUnknown) noexcept;

    // The next live object behind one, with a reference added to it; null at the end. How many it
    // had before is told.
    [[nodiscard]] IUnknown* NextLiveObject(IUnknown* behind, bool processEnds, CLSID& clsid,
                                           std::int32_t& count) noexcept;

    // Of the module rather than of its server, because static objects are made before it and die
    // after it.
    static constinit inline std::atomic<std::uint32_t> sOpenObjectCount = 0;

    tSystem::CFastCriticalSection mLock; // guards mLiveObjects
    std::uint32_t mClassCount = 0;
    std::unique_ptr<const ClassEntry*[]> mSortedClasses; // by the bytes of the identifier
    std::unique_ptr<const ClassEntry*[]> mClassIndex;    // open-addressed, for look-ups
    std::size_t mClassIndexMask = 0;
    const ClassEntry* mListHeadSeen = nullptr;
    std::map<IUnknown*, CLSID> mLiveObjects;
    // A build option, on in debug builds: every birth and death then takes the lock.
    static constexpr bool TracksObjects = OSSIRA_TRACK_OBJECTS != 0;
};

// This module's server; null before attach and after detach.
[[nodiscard]] CComServer* ModuleServer() noexcept;

} // namespace Tavrik::Ossira
