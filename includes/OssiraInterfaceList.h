// How a class of a module lists its interfaces: which identifiers a list answers, and what the
// compiler refuses. It comes with OssiraFrame.h.
#pragma once

#include "OssiraObject.h"

#include <array>
#include <tuple>
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

// The interfaces that an interface consists of: itself and those that it extends.
template <class Interface>
[[nodiscard]] constexpr std::size_t CountOfChain() noexcept
{
    if constexpr (std::is_same_v<Interface, IUnknown>)
        return 0;
    else
        return 1 + CountOfChain<typename Interface::Extends>();
}

// An identifier that a list of interfaces answers, and the first of the list that does.
struct ListedIid
{
    IID Iid;
    std::size_t Interface;
};

// Finds an identifier in a list of interfaces: halves the list by the identifiers' first numbers,
// which fit into an instruction, until one is left, and compares that one in full. It becomes code
// without a table. The unknown is one of the list, and its place is behind the interfaces.
template <class... Interfaces>
class CListedIids
{
public:
    // Calls `answer` with the interface's place in the list, a constant, or with `NoPlace`.
    template <class Answer>
    [[gnu::always_inline]] static Result Find(const IID& iid, Answer answer)
    {
        return Find<0, Sorted.size()>(iid, answer);
    }

    static constexpr std::size_t UnknownPlace = sizeof...(Interfaces);
    static constexpr std::size_t NoPlace = UnknownPlace + 1;

private:
    template <std::size_t Place>
    using Constant = std::integral_constant<std::size_t, Place>;

    [[nodiscard]] static constexpr auto Sort() noexcept
    {
        std::array<ListedIid, 1 + (CountOfChain<Interfaces>() + ...)> sorted = {
            {{IID_IUnknown, UnknownPlace}}};
        std::size_t count = 1;
        const auto insert = [&](const IID& iid, std::size_t place)
        {
            std::size_t at = count++;
            for (; at > 0 && sorted[at - 1].Iid.Data1 > iid.Data1; --at)
                sorted[at] = sorted[at - 1];
            sorted[at] = {iid, place};
        };
        const auto insertChain = [&]<class Interface>(auto self, Interface*, std::size_t place)
        {
            if constexpr (!std::is_same_v<Interface, IUnknown>)
            {
                insert(Interface::Iid, place);
                self(self, static_cast<typename Interface::Extends*>(nullptr), place);
            }
        };
        std::size_t place = 0;
        (insertChain(insertChain, static_cast<Interfaces*>(nullptr), place++), ...);
        return sorted;
    }

    static constexpr auto Sorted = Sort();

    // Where the entries from `first` to `last` are divided: in the middle, unless those beside it
    // have a number in common, of which none may be left behind; then nowhere (0).
    [[nodiscard]] static constexpr std::size_t Middle(std::size_t first, std::size_t last) noexcept
    {
        const std::size_t half = first + (last - first) / 2;
        const bool divides = half > first && Sorted[half - 1].Iid.Data1 != Sorted[half].Iid.Data1;
        return divides ? half : 0;
    }

    template <std::size_t First, std::size_t Last, class Answer>
    [[gnu::always_inline]] static Result Find(const IID& iid, Answer answer)
    {
        constexpr std::size_t middle = Middle(First, Last);
        if constexpr (middle != 0)
        {
            return iid.Data1 < Sorted[middle].Iid.Data1 ? Find<First, middle>(iid, answer)
                                                        : Find<middle, Last>(iid, answer);
        }
        else if constexpr (First == Last)
            return answer(Constant<NoPlace>());
        else if (SameGuid(iid, Sorted[First].Iid))
            return answer(Constant<Sorted[First].Interface>());
        else
            return Find<First + 1, Last>(iid, answer);
    }
};

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
