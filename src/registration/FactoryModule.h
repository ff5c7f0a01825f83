// One module file as an object factory has it: its loader, who is at work in it, and when it may be
// unloaded. Modules come and go under the process-wide section; what guards the fields is the
// factory's own word, so that a class is found and its module kept in one step. Who has done with a
// module only counts, on a line that belongs to that module.
#pragma once

#include "DynLib.h"
#include "FastCriticalSection.h"
#include "Library.h"

#include <atomic>
#include <memory>
#include <string>
#include <utility>

namespace Tavrik::Ossira
{

class CFactoryModule
{
public:
    CFactoryModule(std::wstring path, tSystem::CFastCriticalSection& word)
        : mLock(word), mPath(std::move(path))
    {
    }

    // Unloads the module, whether it agrees or not; a warning tells of objects that are left.
    ~CFactoryModule();

    CFactoryModule(const CFactoryModule&) = delete;
    CFactoryModule& operator=(const CFactoryModule&) = delete;

    // While one lives the module is not unloaded. It allocates nothing.
    class CUse
    {
    public:
        CUse() noexcept = default; // of none yet

        explicit CUse(CFactoryModule& module) noexcept
        {
            BeginUnheld(module);
        }

        ~CUse()
        {
            End();
        }

        CUse(const CUse&) = delete;
        CUse& operator=(const CUse&) = delete;

        // Begins the use of a module.
        void Begin(CFactoryModule& module) noexcept OSSIRA_UNDER(module.mLock)
        {
            mModule = &module;
            ++module.mUsesBegun;
            mLoader = module.mLibrary.get();
        }

        // With or without it, and once at most.
        void End() noexcept
        {
            if (mModule != nullptr)
                std::exchange(mModule, nullptr)->mUsesEnded.fetch_add(1, std::memory_order_release);
        }

        // Null while the module is not loaded.
        [[nodiscard]] CDynLib* Loader() const noexcept
        {
            return mLoader;
        }

        // Loads the module unless it is loaded; answers as `CDynLib::Open`, and throws as it does.
        [[nodiscard]] Result Load()
        {
            return mLoader != nullptr ? S_OK : LoadNow();
        }

        // Takes over a loader that was opened with `path`, by which the module is loaded from now
        // on, unless the module is loaded. Throws `std::bad_alloc`; the loader is then not taken.
        void Adopt(std::unique_ptr<CDynLib>& opened, const std::wstring& path);

    private:
        void BeginUnheld(CFactoryModule& module) noexcept
        {
            const tSystem::CLockGuard guard(module.mLock);
            Begin(module);
        }

        [[nodiscard]] Result LoadNow();

        CFactoryModule* mModule = nullptr;
        CDynLib* mLoader = nullptr;
    };

    // Asks the module and unloads it if it agrees, and no use lasts or began since it was asked.
    // Whether it was unloaded. No lock is held while the module is asked.
    bool UnloadIfIdle();

    // The factory's word is this module's: who holds the one holds the other.
    void IsGuardedBy(const tSystem::CFastCriticalSection& word) const noexcept OSSIRA_UNDER(word)
        OSSIRA_SAYS_HELD(mLock)
    {
        static_cast<void>(word);
    }

protected:
    tSystem::CFastCriticalSection& mLock; // the factory's

private:
    // Puts the loader in place unless there is one; answers the one in place.
    CDynLib* Install(std::unique_ptr<CDynLib>& opened, std::wstring& path) noexcept
        OSSIRA_UNDER(GlobalCriticalSection());

    [[nodiscard]] std::unique_ptr<CDynLib> TakeLibrary() noexcept
        OSSIRA_UNDER(GlobalCriticalSection(), mLock);

    [[nodiscard]] bool IsInUse() const noexcept OSSIRA_UNDER(mLock)
    {
        return mUsesEnded.load(std::memory_order_acquire) != mUsesBegun;
    }

    std::wstring mPath OSSIRA_GUARDED_BY(GlobalCriticalSection());
    std::unique_ptr<CDynLib> mLibrary OSSIRA_GUARDED_BY(mLock);
    std::uint64_t mUsesBegun OSSIRA_GUARDED_BY(mLock) = 0;
    std::atomic<std::uint64_t> mUsesEnded = 0; // without the word
};

// What the runtime's own factory offers the class register service beyond `IObjectFactory`. It is
// no part of the contract: a factory of somebody else's does without.
inline constexpr IID IID_IFactoryModules = {
    0x5D0C5B8E, 0x2F64, 0x4D0B, {0x9A, 0x41, 0x7E, 0x16, 0xC3, 0x58, 0x0B, 0xD2}};

struct IFactoryModules : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_IFactoryModules;

    // The item of a file, which lives as long as the factory. A new one is in no listing until a
    // class is registered from it. Throws `std::bad_alloc`. Balance with `Dismiss`.
    virtual CFactoryModule& Admit(const std::wstring& fileName) = 0;

    // Unloads the module if no class was ever registered from it and it agrees.
    virtual void Dismiss(CFactoryModule& module) = 0;

protected:
    ~IFactoryModules() = default;
};

} // namespace Tavrik::Ossira
