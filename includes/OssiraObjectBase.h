// What every object of a module is built on: the base with the reference count, and the concrete
// classes that join it with an implementation class. It comes with OssiraFrame.h.
//
// The layout keeps together what is used together. A reference touches a table of operations and
// the count; behind the count there is room for a lock of four bytes, if a class lists it next
// among its bases. What only aggregated objects need, these alone have.
#pragma once

#include "OssiraCheck.h"
#include "OssiraInterfaceList.h"
#include "OssiraPointer.h"

#include <atomic>
#include <new>
#include <type_traits>
#include <utility>

namespace Tavrik::Ossira
{

class CComServer;
class COssiraUnknown;

// The object's own unknown. It makes aggregation possible: an outer object owns the inner one by it
// and receives every other reference on it.
class CPrivateUnknown final : public IUnknown
{
public:
    Result QueryInterface(const IID& iid, void** out) override;
    std::uint32_t AddRef() override;
    std::uint32_t Release() override;

private:
    // Found by its distance, which is the same in every object.
    [[nodiscard]] COssiraUnknown& Owner() noexcept;
};

// The base of every object that is created by class identifier: the reference count, and the
// answer for the unknown interface. While an object is constructed one reference is held on it, so
// that its constructor may take references and give them back; it must not give the object to
// another thread. An object has room for 268 million references.
class COssiraUnknown
{
public:
    COssiraUnknown() noexcept = default;
    COssiraUnknown(const COssiraUnknown&) = delete;
    COssiraUnknown& operator=(const COssiraUnknown&) = delete;

    virtual ~COssiraUnknown()
    {
        mCount.store(DestroyedCount, std::memory_order_relaxed);
    }

    // Asks this object, whatever it is aggregated in.
    virtual Result NonDelegatingQueryInterface(const IID& iid, void** out)
    {
        return InternalQueryInterface(iid, out);
    }

    // The object's own answer: null and `E_NOINTERFACE` for what it does not have.
    // An override must not hand a new object to another thread before it returns: until then the
    // references on it are counted without atomic operations, and the counts that `AddRef` and
    // `Release` answer have a mark in them.
    virtual Result InternalQueryInterface(const IID& iid, void** out)
    {
        return AnswerPrivateUnknown(iid, out);
    }

    virtual std::int32_t InternalAddRef()
    {
        return CountUp() & ~(NewMark | AggregatedMark);
    }

    // Never destroys: whoever sees 0 does.
    virtual std::int32_t InternalRelease()
    {
        return CountDown() & ~(NewMark | AggregatedMark);
    }

    [[nodiscard]] IUnknown* PrivateUnknown() noexcept
    {
        return &mPrivateUnknown;
    }

protected:
    // A count that cannot arise in use, so that a call on a destroyed object shows itself. It also
    // stands while an object is being destroyed: references taken and given back by its own
    // destructor do not destroy it again.
    static constexpr std::int32_t DestroyedCount = static_cast<std::int32_t>(0xC0000001);

    [[nodiscard]] bool IsAggregated() const noexcept
    {
        return (mCount.load(std::memory_order_relaxed) & AggregatedMark) != 0;
    }

    // Takes a reference on behalf of an interface pointer: of an aggregated object's outer one.
    virtual std::uint32_t AddRefOfInterfaces()
    {
        return static_cast<std::uint32_t>(CountUp());
    }

    std::int32_t CountUp() noexcept
    {
        return mCount.fetch_add(1, std::memory_order_relaxed) + 1;
    }

    std::int32_t CountDown() noexcept
    {
        return mCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
    }

    // Gives back the reference that was held meanwhile.
    void EndConstruction() noexcept
    {
        if (mCount.load(std::memory_order_relaxed) == 1)
            mCount.store(0, std::memory_order_relaxed); // nobody else is counting
        else
            CountDown();
    }

    void MarkAggregated() noexcept
    {
        mCount.fetch_or(AggregatedMark, std::memory_order_relaxed);
    }

    // To be called by whoever sees the count at 0, before the object is deleted.
    void BeginDestruction() noexcept;

    // The same with the deletion. Answers 0.
    static std::uint32_t Destroy(COssiraUnknown* object) noexcept;

    // Takes the reference for the interface that a query answers, which may be the first. Answers
    // `S_OK`.
    Result CountAnswer()
    {
        const std::int32_t count = mCount.load(std::memory_order_relaxed);
        if ((count & NewMark) != 0) [[unlikely]]
            mCount.store(count + 1, std::memory_order_relaxed);
        else if ((count & AggregatedMark) != 0) [[unlikely]]
            AddRefOfInterfaces();
        else
            CountUp();
        return S_OK;
    }

    Result AnswerPrivateUnknown(const IID& iid, void** out) noexcept;

    // For a query with null in the place of an argument.
    static Result RefuseQuery(void** out) noexcept;

    // Answers the interfaces of an implementation class, those that they extend included. Unrolled
    // by the compiler into comparisons with constants, which is as fast as a table and has no
    // table to keep.
    template <class Primary, class... Others, class Implementation>
    Result AnswerInterfaces(Implementation* object, const IID& iid, void** out)
    {
        if (out == nullptr || IsNullReference(iid)) [[unlikely]]
            return RefuseQuery(out);
        if (TryAnswer<Primary>(object, iid, out) || (TryAnswer<Others>(object, iid, out) || ...))
            return CountAnswer();
        // An aggregated object is known to its owner by the private unknown; every other object by
        // its primary interface, so that it has one identity.
        if (SameGuid(iid, IID_IUnknown) && !IsAggregated())
        {
            *out = static_cast<Primary*>(object);
            return CountAnswer();
        }
        return object->AnswerPrivateUnknown(iid, out); // which a class may have one of its own for
    }

    // The same for a class that must list every interface among its bases, or does not compile.
    template <class... Interfaces, class Implementation>
    Result AnswerEveryInterface(Implementation* object, const IID& iid, void** out)
    {
        tDetail::CBasesToList<Implementation>::Type::template RequireListed<Implementation,
                                                                            Interfaces...>();
        return AnswerInterfaces<Interfaces...>(object, iid, out);
    }

private:
    friend CComServer; // which creates objects, with the classes in it
    friend CPrivateUnknown;

    // What a count may have in it beside the number. A word of its own would take the place of a
    // class's lock, and every reference would have to look at it.
    static constexpr std::int32_t AggregatedMark = 0x10000000;
    static constexpr std::int32_t NewMark = 0x20000000; // a plain object, known to its creator only

    // The reference by which whoever has just made the object holds it while asking for the first
    // interface. As long as it is the only one no other thread can be counting, and two atomic
    // operations are saved; the creation of a small object consists of little else.
    void TakeFirstReference() noexcept
    {
        if (mCount.load(std::memory_order_relaxed) == 0)
            mCount.store(NewMark | 1, std::memory_order_relaxed);
        else
            CountUp();
    }

    // Gives that reference back and answers the count. An interface that was answered has a
    // reference of its own; if these two are all, both are still in the hands of the caller.
    [[nodiscard]] std::int32_t DropFirstReference(bool isAnswered) noexcept
    {
        const std::int32_t count = mCount.load(std::memory_order_acquire);
        if (isAnswered && count == (NewMark | 2)) [[likely]]
        {
            mCount.store(1, std::memory_order_relaxed);
            return 1;
        }
        const std::int32_t drop = 1 + (count & NewMark);
        return (mCount.fetch_sub(drop, std::memory_order_acq_rel) - drop) & ~AggregatedMark;
    }

    template <class Interface, class Implementation>
    [[nodiscard]] static bool TryAnswer(Implementation* object, const IID& iid, void** out) noexcept
    {
        if (!tDetail::Answers<Interface>(iid))
            return false;
        *out = static_cast<Interface*>(object);
        return true;
    }

    CPrivateUnknown mPrivateUnknown;
    std::atomic<std::int32_t> mCount = 1; // until the constructor has ended; the last member
};

namespace tDetail
{

// Where builds keep a list of the live objects, it is told of each one's birth and death.
extern const bool TracksObjects;
void AnnounceBirth(IUnknown* privateUnknown, const CLSID& clsid) noexcept;

// Small objects lie in blocks, which are kept for the next object when theirs is gone, and begin a
// cache line, or so many bytes in front of one as a class asks for: what it seldom uses. Taking
// memory counts an object of the module as alive, giving it back ends that. They count from the
// first static object to the last, attached or not.
inline constexpr std::size_t NoBlock = static_cast<std::size_t>(-1);
inline constexpr std::size_t BlockStep = 64;
inline constexpr std::size_t BlockSizes = 4;
inline constexpr std::size_t BlockHeader = sizeof(void*);
inline constexpr std::size_t BlockShift = 16;

// The kind of block for a class's objects. A class whose seldom used part comes first tells with
// `SeldomUsed` how long that is.
template <class Implementation, class Concrete>
[[nodiscard]] constexpr std::size_t BlockKind() noexcept
{
    constexpr std::size_t steps = (BlockHeader + sizeof(Concrete) + BlockStep - 1) / BlockStep;
    if constexpr (steps > BlockSizes || alignof(Concrete) > BlockShift)
        return NoBlock;
    else if constexpr (requires { Implementation::SeldomUsed; })
    {
        static_assert(Implementation::SeldomUsed == BlockShift, "There is but one such length");
        return 2 * (steps - 1) + 1;
    }
    else
        return 2 * (steps - 1);
}

// Throw `std::bad_alloc`. Any thread may call them.
[[nodiscard]] void* TakeBlock(std::size_t kind);
void GiveBlock(void* block, std::size_t kind) noexcept;
[[nodiscard]] void* TakeMemory(std::size_t size, std::size_t alignment);
void GiveMemory(void* memory, std::size_t alignment) noexcept;

// What the two concrete classes of an implementation class have in common.
template <class Implementation, class Concrete>
class CInstance : public Implementation
{
public:
    CInstance(const CInstance&) = delete;
    CInstance& operator=(const CInstance&) = delete;

    static void* operator new(std::size_t size)
    {
        constexpr std::size_t kind = BlockKind<Implementation, Concrete>();
        if constexpr (kind == NoBlock)
            return TakeMemory(size, alignof(Concrete));
        else
            return TakeBlock(kind);
    }

    static void* operator new(std::size_t size, const std::nothrow_t&) noexcept
    try
    {
        return operator new(size);
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }

    static void operator delete(void* memory) noexcept
    {
        constexpr std::size_t kind = BlockKind<Implementation, Concrete>();
        if constexpr (kind == NoBlock)
            GiveMemory(memory, alignof(Concrete));
        else
            GiveBlock(memory, kind);
    }

    static void operator delete(void* memory, const std::nothrow_t&) noexcept
    {
        operator delete(memory);
    }

protected:
    // The base is not named here: named without arguments, it would have all its memory cleared
    // before it is constructed.
    CInstance()
    {
    }

    template <class First, class... Others>
    explicit CInstance(First&& first, Others&&... others)
        : Implementation(std::forward<First>(first), std::forward<Others>(others)...)
    {
    }

    ~CInstance() override = default;

    // Call it when every operation of the object is in place: it may be asked from then on.
    void EndConstruction()
    {
        if (TracksObjects)
            AnnounceBirth(this->PrivateUnknown(), Implementation::ClassId);
        Implementation::EndConstruction();
    }
};

} // namespace tDetail

// The concrete class of every creatable object: joins an implementation class with the base and
// supplies the unknown's three operations on each of its interfaces. "NoLock": it adds no lock,
// all counting is atomic. The arguments behind the null go to the implementation's constructor.
template <class Implementation>
class CComInstanceNoLock final
    : public tDetail::CInstance<Implementation, CComInstanceNoLock<Implementation>>
{
public:
    template <class... Arguments>
    explicit CComInstanceNoLock(std::nullptr_t, Arguments&&... arguments)
        : tDetail::CInstance<Implementation, CComInstanceNoLock>(
              std::forward<Arguments>(arguments)...)
    {
        this->EndConstruction();
    }

    Result QueryInterface(const IID& iid, void** out) override
    {
        return Implementation::InternalQueryInterface(iid, out);
    }

    std::uint32_t AddRef() override
    {
        return static_cast<std::uint32_t>(this->CountUp());
    }

    std::uint32_t Release() override
    {
        const std::int32_t count = this->CountDown();
        if (count != 0) [[likely]]
            return static_cast<std::uint32_t>(count);
        // A class may have a way of its own in which its objects end.
        if constexpr (requires(Implementation * object) { Implementation::DestroyInTurn(object); })
        {
            this->BeginDestruction();
            Implementation::DestroyInTurn(this);
            return 0;
        }
        else
            return this->Destroy(this);
    }
};

// The same for an object that is part of another one: its interfaces are the outer object's, which
// is not null and owns it by its private unknown.
template <class Implementation>
class CComAggregated final
    : public tDetail::CInstance<Implementation, CComAggregated<Implementation>>
{
public:
    explicit CComAggregated(IUnknown* outer) : mOuter(outer)
    {
        this->MarkAggregated();
        this->EndConstruction();
    }

    Result QueryInterface(const IID& iid, void** out) override
    {
        return mOuter->QueryInterface(iid, out);
    }

    std::uint32_t AddRef() override
    {
        return mOuter->AddRef();
    }

    std::uint32_t Release() override
    {
        return mOuter->Release();
    }

protected:
    std::uint32_t AddRefOfInterfaces() override
    {
        return mOuter->AddRef();
    }

private:
    IUnknown* mOuter;
};

// A new object that is not in the class table, an enumerator say, with one reference; `arguments`
// go to its constructor. Throws `std::bad_alloc`, or what the constructor throws. One that a static
// variable holds keeps its module loaded until the process ends.
template <class Implementation, class... Arguments>
[[nodiscard]] ObjectPtr<CComInstanceNoLock<Implementation>> MakeObject(Arguments&&... arguments)
{
    return ObjectPtr(
        new CComInstanceNoLock<Implementation>(nullptr, std::forward<Arguments>(arguments)...));
}

// The creator function of a class: *out has count 0. Whatever goes wrong while the object is built
// is reported, and memory is what is said to be missing.
template <class Implementation>
Result CreateInstance(IUnknown* outer, COssiraUnknown** out)
try
{
    *out = nullptr;
    if (outer == nullptr) [[likely]]
        *out = new CComInstanceNoLock<Implementation>(nullptr);
    else
        *out = new CComAggregated<Implementation>(outer);
    return S_OK;
}
catch (...)
{
    OSSIRA_LOCATION(ossiraHere);
    static_cast<void>(ReportCaught(ossiraHere));
    return E_OUTOFMEMORY;
}

} // namespace Tavrik::Ossira
