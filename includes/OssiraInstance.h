// The concrete classes that join an implementation class with its base, and how objects of them are
// made: memory, construction, and the first query. It comes with OssiraFrame.h.
#pragma once

#include "OssiraObjectBase.h"

#include <new>
#include <type_traits>
#include <utility>

namespace Tavrik::Ossira
{

namespace tDetail
{

// Who makes an object that is to have one reference and hands that out says so.
struct Held
{
};

// The class that declares a member function.
template <class Class, class... Arguments>
std::type_identity<Class> ClassOfMember(Result (Class::*)(Arguments...));

// Whether what a class answers to queries is its list and nothing else: `OSSIRA_INTERFACES` stands
// in it, and no class behind it has an answer of its own. Such queries need no virtual call.
template <class Implementation>
concept AnswersByList = requires
{
    requires std::is_same_v<decltype(ClassOfMember(&Implementation::InternalQueryInterface)),
                            decltype(ClassOfMember(
                                &Implementation::template AnswerQuery<EQuery::Any>))>;
};

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
    void BeginLife()
    {
        if (TracksObjects)
            AnnounceBirth(this->PrivateUnknown(), Implementation::ClassId);
    }

    void EndConstruction()
    {
        BeginLife();
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

    // The reference that is held on the object meanwhile is its creator's from then on.
    template <class... Arguments>
    explicit CComInstanceNoLock(tDetail::Held, Arguments&&... arguments)
        : tDetail::CInstance<Implementation, CComInstanceNoLock>(
              std::forward<Arguments>(arguments)...)
    {
        this->BeginLife();
    }

    Result QueryInterface(const IID& iid, void** out) override
    {
        if constexpr (tDetail::AnswersByList<Implementation>)
            return Implementation::template AnswerQuery<tDetail::EQuery::Plain>(iid, out);
        else
            return Implementation::InternalQueryInterface(iid, out);
    }

    std::uint32_t AddRef() override
    {
        return static_cast<std::uint32_t>(this->CountUp());
    }

    std::uint32_t Release() override
    {
        const std::int32_t count = this->CountDown();
        return count != 0 ? static_cast<std::uint32_t>(count) : End(this);
    }

private:
    // Apart from `Release`, which for its other calls is the shorter for it. Answers 0.
    [[gnu::noinline]] static std::uint32_t End(CComInstanceNoLock* object) noexcept
    {
        object->BeginDestruction();
        // A class may have a way of its own in which its objects end.
        if constexpr (requires { Implementation::OssiraDestroy(object); })
            Implementation::OssiraDestroy(object);
        else
            delete object;
        return 0;
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
    using Instance = CComInstanceNoLock<Implementation>;
    return ObjectPtr<Instance>::Adopt(
        new Instance(tDetail::Held(), std::forward<Arguments>(arguments)...));
}

// Whatever goes wrong while an object is built is reported, and memory is what is said to be
// missing.
template <class Instance, class Argument>
Result CreateInstance(Argument argument, Instance*& object)
try
{
    object = new Instance(argument);
    return S_OK;
}
catch (...)
{
    OSSIRA_LOCATION(ossiraHere);
    static_cast<void>(ReportCaught(ossiraHere));
    return E_OUTOFMEMORY;
}

// The creator function of a class: *out has count 0.
template <class Implementation>
Result CreateInstance(IUnknown* outer, COssiraUnknown** out)
{
    CComInstanceNoLock<Implementation>* plain = nullptr;
    CComAggregated<Implementation>* part = nullptr;
    const Result result =
        outer == nullptr ? CreateInstance(nullptr, plain) : CreateInstance(outer, part);
    *out = outer == nullptr ? static_cast<COssiraUnknown*>(plain) : part;
    return result;
}

// What comes of making an object and asking it for its first interface.
enum class ECreation
{
    Unmade,
    Refused,
    Answered
};

// Says of a creation that failed, or that is traced, what is to be said. Answers `result`, or what
// went wrong here.
[[nodiscard]] Result ReportCreation(const ClassEntry& entry, const IID& iid, void** out,
                                    ECreation creation, Result result);

// The creator function of a class that answers by its list: makes a plain object and answers its
// first query in one piece. The creator's reference becomes the interface's, so that nothing is
// counted. Neither argument is null.
template <class Implementation>
Result CreateAnswer(const ClassEntry& entry, const IID& iid, void** out)
{
    CComInstanceNoLock<Implementation>* object = nullptr;
    if (const Result result = CreateInstance(tDetail::Held(), object); Failed(result)) [[unlikely]]
        return ReportCreation(entry, iid, out, ECreation::Unmade, result);
    const Result result = object->template AnswerQuery<tDetail::EQuery::First>(iid, out);
    if (Failed(result)) [[unlikely]]
    {
        object->Release();
        return ReportCreation(entry, iid, out, ECreation::Refused, result);
    }
    if ((CurrentLevelMask() & PRINT_TRACE) != 0) [[unlikely]]
        return ReportCreation(entry, iid, out, ECreation::Answered, result);
    return result;
}

} // namespace Tavrik::Ossira
