// What each job is held against: the least that the same promise costs, written by hand. Every
// limit is in a source of its own and is called through virtual operations, like the runtime, so
// that the compiler can see into neither.
//
// The limits check no arguments, catch nothing, report nothing, and have the one interface that the
// job needs. That is what makes them limits.
#pragma once

#include "OssiraPointer.h"
#include "OssiraServices.h"
#include "OssiraValue.h"

#include <benchmark/benchmark.h>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace Tavrik::Ossira::tBench
{

// A counted object that finds its interfaces in a constant table of six identifiers: those of a
// value, the unknown interface last.
[[nodiscard]] ObjectPtr<IUnknown> MakeLimitObject();

// The least that creating and releasing an object can cost: its memory, of a size that holds much.
inline constexpr const char* LimitOfCreation = "new and delete of 96 bytes";
void AllocateAndFree(benchmark::State& state);

// A new object of `size` bytes that is counted as open while it lives: takes the arguments of
// `CreateClassObject` and the place of it.
Result CreateLimitObject(std::size_t size, void** out);

// What the contract asks of a creation, by hand: the class is found among others, the object's
// memory is kept, where any thread may take it, and the object is asked for its first interface.
Result CreateByHand(const CLSID* clsid, const IID* iid, void** out);

// A spin word around a datatype and its bytes, and nothing else.
[[nodiscard]] ObjectPtr<IValue> MakeLimitValue();

// A spin word around a table from GUIDs to counted pointers.
struct LimitDictionary
{
    virtual ~LimitDictionary() = default;

    virtual void Insert(const GUID& key, IUnknown* item) = 0;

    // Hands the item out with a reference.
    virtual Result Get(const GUID& key, void** out) = 0;
};

[[nodiscard]] std::unique_ptr<LimitDictionary> MakeFlatDictionary(std::size_t capacity);

// The same with a hash that is keyed, and with items that are asked for an interface.
[[nodiscard]] std::unique_ptr<LimitDictionary> MakeDictionaryByHand(std::size_t capacity);

// A vector of counted pointers.
struct LimitList
{
    virtual ~LimitList() = default;

    virtual void Append(IUnknown* item) = 0;

    // Hands the item out with a reference.
    virtual Result Get(std::size_t index, void** out) = 0;

    virtual void Rewind() = 0;

    // The next item of the walk with a reference, or `S_FALSE`.
    virtual Result Next(void** out) = 0;
};

[[nodiscard]] std::unique_ptr<LimitList> MakeLimitList();

// The same under a spin word. Items are asked for their identity and for an interface; a walk takes
// a step and asks for its item in two operations, and threads may share it.
[[nodiscard]] std::unique_ptr<LimitList> MakeListByHand();

// The modules of a folder, loaded and asked what a module is asked when it is registered, with the
// platform's loader and nothing around it. They stay loaded for the object's life.
class LimitModules
{
public:
    LimitModules(const std::string& folder, IUnknown* registry);
    ~LimitModules();
    LimitModules(const LimitModules&) = delete;
    LimitModules& operator=(const LimitModules&) = delete;

    [[nodiscard]] std::size_t ClassCount() const noexcept
    {
        return mClassCount;
    }

private:
    void Register(const std::string& path, IUnknown* registry);

    std::vector<void*> mHandles;
    std::size_t mClassCount = 0;
};

} // namespace Tavrik::Ossira::tBench
