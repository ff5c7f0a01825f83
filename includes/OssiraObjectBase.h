// What every object of a module is built on: the base with the reference count, and the answers to
// queries. It comes with OssiraFrame.h.
//
// The layout keeps together what is used together. A reference touches a table of operations and
// the count; behind the count there is room for a lock of four bytes, if a class lists it next
// among its bases. What only aggregated objects need, these alone have.
#pragma once

#include "OssiraCheck.h"
#include "OssiraInterfaceList.h"
#include "OssiraPointer.h"

#include <atomic>
#include <tuple>
#include <type_traits>

namespace Tavrik::Ossira
{

class ClassEntry;
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

namespace tDetail
{

// How the interface that a query answers is counted.
enum class EQuery
{
    Any,   // of an aggregated object, on its outer one
    Plain, // of an object that is known not to be aggregated
    First  // of a plain object whose creator hands his own reference over, and asks as he should
};

// Where builds keep a list of the live objects, it is told of each one's birth and death.
extern const bool TracksObjects;
void AnnounceBirth(IUnknown* privateUnknown, const CLSID& clsid) noexcept;
void AnnounceDeath(IUnknown* privateUnknown) noexcept;

} // namespace tDetail

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
    virtual Result InternalQueryInterface(const IID& iid, void** out)
    {
        return AnswerPrivateUnknown(iid, out);
    }

    virtual std::int32_t InternalAddRef()
    {
        return CountUp() & ~AggregatedMark;
    }

    // Never destroys: whoever sees 0 does.
    virtual std::int32_t InternalRelease()
    {
        return CountDown() & ~AggregatedMark;
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
        CountDown();
    }

    void MarkAggregated() noexcept
    {
        mCount.fetch_or(AggregatedMark, std::memory_order_relaxed);
    }

    // To be called by whoever sees the count at 0, before the object is deleted.
    void BeginDestruction() noexcept
    {
        const std::int32_t mark = mCount.load(std::memory_order_relaxed) & AggregatedMark;
        mCount.store(DestroyedCount | mark, std::memory_order_relaxed);
        if (tDetail::TracksObjects)
            tDetail::AnnounceDeath(&mPrivateUnknown);
    }

    // Takes the reference for the interface that a query answers. Answers `S_OK`.
    template <tDetail::EQuery Query = tDetail::EQuery::Any>
    Result CountAnswer()
    {
        if (Query == tDetail::EQuery::Any && IsAggregated()) [[unlikely]]
            AddRefOfInterfaces();
        else if constexpr (Query != tDetail::EQuery::First)
            CountUp();
        return S_OK;
    }

    Result AnswerPrivateUnknown(const IID& iid, void** out) noexcept;

    // For a query with null in the place of an argument.
    static Result RefuseQuery(void** out) noexcept;

    // Answers the interfaces of an implementation class, those that they extend included.
    template <class... Interfaces, class Implementation>
    Result AnswerInterfaces(Implementation* object, const IID& iid, void** out)
    {
        return AnswerListed<tDetail::EQuery::Any, Interfaces...>(object, iid, out);
    }

    // The same for a given kind of query.
    template <tDetail::EQuery Query, class... Interfaces, class Implementation>
    [[gnu::always_inline]] Result AnswerListed(Implementation* object, const IID& iid, void** out)
    {
        using Iids = tDetail::CListedIids<Interfaces...>;
        using Listed = std::tuple<Interfaces*...>;
        if constexpr (Query != tDetail::EQuery::First)
        {
            if (out == nullptr || IsNullReference(iid)) [[unlikely]]
                return RefuseQuery(out);
        }
        return Iids::Find(iid,
                          [&]<std::size_t Place>(std::integral_constant<std::size_t, Place>)
                          {
                              if constexpr (Place < Iids::UnknownPlace)
                              {
                                  *out = static_cast<std::tuple_element_t<Place, Listed>>(object);
                                  return CountAnswer<Query>();
                              }
                              // An aggregated object is known to its owner by the private unknown;
                              // every other object by its primary interface, so that it has one
                              // identity.
                              if constexpr (Place == Iids::UnknownPlace)
                              {
                                  if (Query != tDetail::EQuery::Any || !IsAggregated())
                                  {
                                      *out = static_cast<std::tuple_element_t<0, Listed>>(object);
                                      return CountAnswer<Query>();
                                  }
                              }
                              return object->AnswerPrivateUnknown(
                                  iid, out); // a class may have one of its own
                          });
    }

    // The same for a class that must list every interface among its bases, or does not compile.
    template <tDetail::EQuery Query, class... Interfaces, class Implementation>
    Result AnswerEveryInterface(Implementation* object, const IID& iid, void** out)
    {
        tDetail::CBasesToList<Implementation>::Type::template RequireListed<Implementation,
                                                                            Interfaces...>();
        return AnswerListed<Query, Interfaces...>(object, iid, out);
    }

private:
    friend CPrivateUnknown;

    // What a count may have in it beside the number. A word of its own would take the place of a
    // class's lock, and every reference would have to look at it.
    static constexpr std::int32_t AggregatedMark = 0x10000000;

    CPrivateUnknown mPrivateUnknown;
    std::atomic<std::int32_t> mCount = 1; // until the constructor has ended; the last member
};

} // namespace Tavrik::Ossira
