// What a component module builds its classes from: the object base, the class table and the
// bootstrap chain. A class takes four steps:
//
//     class T_Greeter : public IGreeter, public COssiraUnknown
//     {
//     public:
//         static constexpr CLSID ClassId = CLSID_Greeter;
//         OSSIRA_INTERFACES(IGreeter)          // what QueryInterface answers
//         Result Greet(...) override;          // its operations
//     };
//     OSSIRA_CLASS(T_Greeter, "Greeter")       // enters it in the module's class table
//     OSSIRA_BOOTSTRAP(CLSID_Greeter, BootstrapRegistryStartup_Level1, GUID_Null, "Greeter")
//                                              // files it in a category, where it belongs in one
//
// The module's exports and its entry come with the frame library.
#pragma once

#include "OssiraCheck.h"
#include "OssiraObject.h"
#include "OssiraPointer.h"

#include <atomic>
#include <memory>
#include <new>
#include <type_traits>

namespace Tavrik::Ossira
{

class CComServer;
class COssiraUnknown;

// The interfaces that objects of a class may offer; their headers need not be included here.
struct IBootstrap;
struct IClassRegisterService;
struct IClsidObjectCacheStack;
struct IClsidRegistry;
struct ICollection;
struct ICollectionGUID;
struct ICommonMemoryAllocator32;
struct ICommonThreadPoolBox;
struct ICriticalSection;
struct IDatatypes;
struct IDatatypesService;
struct IDictionaryGUID;
struct IDirectoryService;
struct IDisposable;
struct IEnumerable;
struct IEnumerator;
struct IEnumeratorGUID;
struct IList;
struct IMasterBootstrap;
struct IMemorySegment32;
struct IModifiedService;
struct IObjectCacheStack;
struct IObjectFactory;
struct ISingleton;
struct ISingletonRegistry;
struct IStack;
struct ITouchModifiedChain;
struct IValue;
struct IValueSet;
struct IValueSetGroup;

namespace tDetail
{

// Whether an interface, or one that it extends, has that identifier.
template <class Interface>
[[nodiscard]] constexpr bool Answers(const IID& iid) noexcept
{
    if (SameGuid(iid, Interface::Iid))
        return true;
    if constexpr (!std::is_same_v<typename Interface::Extends, IUnknown>)
        return Answers<typename Interface::Extends>(iid);
    else
        return false;
}

// A class that derives from an interface and does not list it has operations that nobody can reach:
// the query for them fails at use, far from the mistake. The compiler names `Base` and
// `Implementation` beside the text.
template <class Implementation, class Base, class... Listed>
consteval void RequireListed()
{
    if constexpr (requires {
                      typename Base::Extends;
                      Base::Iid;
                  })
    {
        static_assert((Answers<Listed>(Base::Iid) || ...),
                      "OSSIRA_INTERFACES leaves out an interface that the class derives from");
    }
}

template <class... Bases>
struct CBases
{
    template <class Implementation, class... Listed>
    static consteval void RequireListed()
    {
        const auto require = []<class Base>(CBases<Base>*)
        {
            // A base that is not defined here is none of the class's.
            if constexpr (std::is_base_of_v<Base, Implementation>)
                tDetail::RequireListed<Implementation, Base, Listed...>();
        };
        (require(static_cast<CBases<Bases>*>(nullptr)), ...);
    }
};

#if defined(__GNUC__) && !defined(__clang__)
// This compiler tells all bases of a class, interfaces of the module's own among them.
template <class Implementation>
struct CBasesToList
{
    using Type = CBases<__bases(Implementation)...>;
};
#else
template <class Implementation>
struct CBasesToList
{
    using Type =
        CBases<IBootstrap, IClassRegisterService, IClsidObjectCacheStack, IClsidRegistry,
               ICloneable, ICollection, ICollectionGUID, ICommonMemoryAllocator32,
               ICommonThreadPoolBox, IComparable, ICriticalSection, IDatatypes, IDatatypesService,
               IDictionaryGUID, IDirectoryService, IDisposable, IEnumerable, IEnumerator,
               IEnumeratorGUID, IList, IMasterBootstrap, IMemorySegment32, IModifiedService,
               IObjectCacheStack, IObjectFactory, IObjectIdentity, IObjectLock, IObjectName,
               IObserverPrint, ISingleton, ISingletonRegistry, IStack, ITouchModifiedChain, IValue,
               IValueSet, IValueSetGroup>;
};
#endif

} // namespace tDetail

// The object's own unknown. It makes aggregation possible: an outer object owns the inner one by it
// and receives every other reference on it.
class CPrivateUnknown final : public IUnknown
{
public:
    Result QueryInterface(const IID& iid, void** out) override;
    std::uint32_t AddRef() override;
    std::uint32_t Release() override;

    void SetOwner(COssiraUnknown* owner) noexcept
    {
        mOwner = owner;
    }

private:
    COssiraUnknown* mOwner = nullptr;
};

// The base of every object that is created by class identifier: the reference count, and the
// answer for the unknown interface. While an object is constructed one reference is held on it, so
// that its constructor may take references and give them back; it must not give the object to
// another thread.
class COssiraUnknown
{
public:
    COssiraUnknown() noexcept
    {
        mPrivateUnknown.SetOwner(this);
    }

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
    // references on it are counted without atomic operations.
    virtual Result InternalQueryInterface(const IID& iid, void** out)
    {
        return AnswerPrivateUnknown(iid, out);
    }

    virtual std::int32_t InternalAddRef()
    {
        return CountUp();
    }

    // Never destroys: whoever sees 0 does.
    virtual std::int32_t InternalRelease()
    {
        return CountDown();
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
        return mOuter != &mPrivateUnknown;
    }

    [[nodiscard]] IUnknown* Outer() const noexcept
    {
        return mOuter;
    }

    void SetOuter(IUnknown* outer) noexcept
    {
        if (outer != nullptr)
            mOuter = outer;
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

    void MarkDestroyed() noexcept
    {
        mCount.store(DestroyedCount, std::memory_order_relaxed);
    }

    // The reference behind an interface pointer belongs to the outer object, if there is one.
    std::uint32_t DelegatingAddRef()
    {
        if (IsAggregated()) [[unlikely]]
            return mOuter->AddRef();
        return static_cast<std::uint32_t>(CountUp());
    }

    // The same for the interface that a query answers, which may be the first.
    void CountAnswer()
    {
        if (mIsNew && !IsAggregated())
            mCount.store(mCount.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
        else
            DelegatingAddRef();
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
        {
            CountAnswer();
            return S_OK;
        }
        // An aggregated object is known to its owner by the private unknown; every other object by
        // its primary interface, so that it has one identity.
        if (!IsAggregated() && SameGuid(iid, IID_IUnknown))
        {
            *out = static_cast<Primary*>(object);
            CountAnswer();
            return S_OK;
        }
        return AnswerPrivateUnknown(iid, out);
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

    // The reference by which whoever has just made the object holds it while asking for the first
    // interface. As long as it is the only one no other thread can be counting, and two atomic
    // operations are saved; the creation of a small object consists of little else.
    void TakeFirstReference() noexcept
    {
        mIsNew = mCount.load(std::memory_order_relaxed) == 0;
        if (mIsNew)
            mCount.store(1, std::memory_order_relaxed);
        else
            CountUp();
    }

    // Gives that reference back and answers the count. An interface that was answered has a
    // reference of its own; if these two are all, both are still in the hands of the caller.
    [[nodiscard]] std::int32_t DropFirstReference(bool isAnswered) noexcept
    {
        mIsNew = false;
        if (!isAnswered || mCount.load(std::memory_order_acquire) != 2)
            return CountDown();
        mCount.store(1, std::memory_order_relaxed);
        return 1;
    }

    template <class Interface, class Implementation>
    [[nodiscard]] static bool TryAnswer(Implementation* object, const IID& iid, void** out) noexcept
    {
        if (!tDetail::Answers<Interface>(iid))
            return false;
        *out = static_cast<Interface*>(object);
        return true;
    }

    IUnknown* mOuter = &mPrivateUnknown;
    std::atomic<std::int32_t> mCount = 1; // until the constructor has ended
    bool mIsNew = false;                  // only its creator knows it
    CPrivateUnknown mPrivateUnknown;
};

namespace tDetail
{

// Tell of an object's birth and death, which is how the module knows whether it can be unloaded.
// They count from the first static object to the last, attached or not.
void AnnounceBirth(IUnknown* privateUnknown, const CLSID& clsid) noexcept;
void AnnounceDeath(IUnknown* privateUnknown) noexcept;

} // namespace tDetail

// The concrete class of every creatable object: joins an implementation class with the base and
// supplies the unknown's three operations on each of its interfaces. "NoLock": it adds no lock,
// all counting is atomic.
template <class Implementation>
class CComInstanceNoLock final : public Implementation
{
public:
    // The base is not named here: named without arguments, it would have all its memory cleared
    // before it is constructed.
    explicit CComInstanceNoLock(IUnknown* outer)
    {
        Announce(outer);
    }

    template <class First, class... Others>
    explicit CComInstanceNoLock(IUnknown* outer, First&& first, Others&&... others)
        : Implementation(std::forward<First>(first), std::forward<Others>(others)...)
    {
        Announce(outer);
    }

    CComInstanceNoLock(const CComInstanceNoLock&) = delete;
    CComInstanceNoLock& operator=(const CComInstanceNoLock&) = delete;

    ~CComInstanceNoLock() override
    {
        this->MarkDestroyed();
        tDetail::AnnounceDeath(this->PrivateUnknown());
    }

    Result QueryInterface(const IID& iid, void** out) override
    {
        if (this->IsAggregated()) [[unlikely]]
            return this->Outer()->QueryInterface(iid, out);
        return Implementation::InternalQueryInterface(iid, out);
    }

    std::uint32_t AddRef() override
    {
        return this->DelegatingAddRef();
    }

    std::uint32_t Release() override
    {
        if (this->IsAggregated()) [[unlikely]]
            return this->Outer()->Release();
        const std::int32_t count = this->CountDown();
        if (count == 0)
        {
            // A class may have a way of its own in which its objects end.
            if constexpr (requires(Implementation * object) {
                              Implementation::DestroyInTurn(object);
                          })
                Implementation::DestroyInTurn(this);
            else
                delete this;
        }
        return static_cast<std::uint32_t>(count);
    }

private:
    void Announce(IUnknown* outer)
    {
        this->SetOuter(outer);
        tDetail::AnnounceBirth(this->PrivateUnknown(), Implementation::ClassId);
        this->EndConstruction();
    }
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

// Makes an object for the component server: *out has count 0.
using ClassCreator = Result (*)(IUnknown* outer, COssiraUnknown** out);

// One creatable class of the module. Each entry links itself in front of the module's list while
// the module is initialised.
class ClassEntry
{
public:
    ClassEntry(const CLSID& clsid, ClassCreator creator, const char* text) noexcept;

    CLSID ClassId;
    const ClassEntry* Next;
    ClassCreator Creator;
    const char* Text;
};

namespace tDetail
{

// An identifier whose address is kept: a temporary is refused by the compiler.
class CLastingGuid
{
public:
    constexpr CLastingGuid(const GUID& guid) noexcept : mGuid(&guid)
    {
    }

    CLastingGuid(const GUID&&) = delete;

    [[nodiscard]] constexpr const GUID* Get() const noexcept
    {
        return mGuid;
    }

private:
    const GUID* mGuid;
};

// Whether a class has the null identifier, as far as the compiler can tell.
template <class Implementation>
[[nodiscard]] consteval bool HasNullClassId()
{
    if constexpr (requires { typename std::bool_constant<(Implementation::ClassId.Data1, true)>; })
        return SameGuid(Implementation::ClassId, GUID_Null);
    else
        return false;
}

} // namespace tDetail

// One class that the module files under a category when it is registered.
class BootstrapRecord
{
public:
    BootstrapRecord(tDetail::CLastingGuid clsid, tDetail::CLastingGuid category,
                    tDetail::CLastingGuid group, const char* text) noexcept;

    const BootstrapRecord* Next;
    const CLSID* ClassId;
    const GUID* Category;
    const GUID* Group;
    const char* Text;
};

// The creator function of a class. Whatever goes wrong while the object is built is reported, and
// memory is what is said to be missing.
template <class Implementation>
Result CreateInstance(IUnknown* outer, COssiraUnknown** out)
try
{
    *out = nullptr;
    *out = new CComInstanceNoLock<Implementation>(outer);
    return S_OK;
}
catch (...)
{
    OSSIRA_LOCATION(ossiraHere);
    static_cast<void>(ReportCaught(ossiraHere));
    return E_OUTOFMEMORY;
}

// Implements `IObjectName` for a class that lists it among its bases in the interface's place.
class CObjectName : public IObjectName
{
public:
    Result SetObjectName(const char* name) override;
    Result GetObjectName(char* buffer, std::int32_t size) override;

protected:
    ~CObjectName() = default;

private:
    std::unique_ptr<char[]> mName; // one pointer, because most objects have no name
};

// The two answers of `IObjectIdentity`.
[[nodiscard]] Result AnswerClassID(const CLSID& own, CLSID* clsid) noexcept;
[[nodiscard]] Result AnswerClassName(std::string_view own, char* buffer,
                                     std::int32_t size) noexcept;

// Implements `IObjectIdentity` from `Traits::ClassId` and `Traits::ClassName`.
template <class Traits>
class CObjectIdentity : public IObjectIdentity
{
public:
    Result GetObjectClassID(CLSID* clsid) override
    {
        return AnswerClassID(Traits::ClassId, clsid);
    }

    Result GetObjectClassName(char* buffer, std::int32_t size) override
    {
        return AnswerClassName(Traits::ClassName, buffer, size);
    }

protected:
    ~CObjectIdentity() = default;
};

} // namespace Tavrik::Ossira

// What the class's `QueryInterface` answers: its interfaces, the first one the primary, and those
// that they extend. A class that derives from an interface and leaves it out does not compile. (GCC
// knows every interface, other compilers those of the public headers.)
#define OSSIRA_INTERFACES(...)                                                                     \
    ::Tavrik::Ossira::Result InternalQueryInterface(const ::IID& iid, void** out) override         \
    {                                                                                              \
        return this->template AnswerEveryInterface<__VA_ARGS__>(this, iid, out);                   \
    }

#define OSSIRA_JOIN_NAMES(a, b) a##b
#define OSSIRA_UNIQUE_NAME(prefix, number) OSSIRA_JOIN_NAMES(prefix, number)

// Whether an identifier is the null one, as far as the compiler can tell.
#if defined(__GNUC__)
#define OSSIRA_IS_NULL_GUID(guid)                                                                  \
    (__builtin_constant_p(::Tavrik::Ossira::SameGuid((guid), ::Tavrik::Ossira::GUID_Null)) &&      \
     ::Tavrik::Ossira::SameGuid((guid), ::Tavrik::Ossira::GUID_Null))
#else
#define OSSIRA_IS_NULL_GUID(guid) false
#endif

// Enters a class in the module's class table, under its `ClassId` or under another identifier; the
// null one does not compile.
#define OSSIRA_CLASS_AS(implementation, clsid, text)                                               \
    static_assert(!OSSIRA_IS_NULL_GUID(clsid), "A class needs an identifier of its own");          \
    namespace                                                                                      \
    {                                                                                              \
    const ::Tavrik::Ossira::ClassEntry OSSIRA_UNIQUE_NAME(ossiraClass, __COUNTER__)(               \
        clsid, &::Tavrik::Ossira::CreateInstance<implementation>, text);                           \
    }

#define OSSIRA_CLASS(implementation, text)                                                         \
    static_assert(!::Tavrik::Ossira::tDetail::HasNullClassId<implementation>(),                    \
                  "A class needs an identifier of its own");                                       \
    OSSIRA_CLASS_AS(implementation, implementation::ClassId, text)

// Files a class under a category and a group (`GUID_Null`: none) when the module is registered.
// The three identifiers must live as long as the module; temporaries do not compile.
#define OSSIRA_BOOTSTRAP(clsid, category, group, text)                                             \
    namespace                                                                                      \
    {                                                                                              \
    const ::Tavrik::Ossira::BootstrapRecord                                                        \
        OSSIRA_UNIQUE_NAME(ossiraBootstrap, __COUNTER__)(clsid, category, group, text);            \
    }
