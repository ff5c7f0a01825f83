// How a class of a module lists its interfaces: which identifiers a list answers, and what the
// compiler refuses. It comes with OssiraFrame.h.
#pragma once

#include "OssiraObject.h"

#include <type_traits>

namespace Tavrik::Ossira
{

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

// Whether an interface, or one that it extends, has that identifier. What is asked first tells most
// identifiers apart and fits into an instruction.
template <class Interface>
[[nodiscard]] constexpr bool Answers(const IID& iid) noexcept
{
    if (iid.Data1 == Interface::Iid.Data1 && SameGuid(iid, Interface::Iid))
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

} // namespace Tavrik::Ossira
