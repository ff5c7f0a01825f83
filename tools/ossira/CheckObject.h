// An object of a module that is checked: what it answers, what it does, and whether it is alive.
#pragma once

#include "CheckModule.h"
#include "InterfaceTable.h"

#include <functional>

namespace Tavrik::tHost
{

// An identifier that nothing has.
inline constexpr IID IID_OfNobody = {
    0x5A1C0FFE, 0x91D2, 0x4B0E, {0x8D, 0x6E, 0x3B, 0x7E, 0x21, 0xC4, 0x90, 0x5F}};

// Throws a `CFailure` unless it holds.
void Demand(bool holds, const std::string& otherwise);

// Anything but a `CFailure` that leaves a call of the module's is the module's fault.
template <class Call>
auto Guarded(const std::string& what, Call call)
try
{
    return call();
}
catch (const CFailure&)
{
    throw;
}
catch (...)
{
    throw CFailure("an exception left " + what);
}

// Asks for an interface.
[[nodiscard]] Ossira::Result Ask(Ossira::IUnknown& object, const IID& iid, void** out);
[[nodiscard]] bool Has(Ossira::IUnknown& object, const IID& iid);

// Of those that the public headers have.
[[nodiscard]] std::vector<const Ossira::KnownInterface*> InterfacesOf(Ossira::IUnknown& object);

// Hands the object to `look` through each of its interfaces, the unknown one first.
void ThroughEach(Ossira::IUnknown& object,
                 const std::function<void(const std::string& name, Ossira::IUnknown& face)>& look);

// An operation of an interface that everybody knows, with arguments that are right.
struct Deed
{
    const char* Name;
    IID Owner;
    void (*Do)(Ossira::IUnknown& object);
};

// Of the interfaces that the object has.
[[nodiscard]] std::vector<const Deed*> DeedsOf(Ossira::IUnknown& object);
void DoAll(const std::vector<const Deed*>& deeds, Ossira::IUnknown& object);

// The objects of the module when this was made are those at its end.
class CBalance
{
public:
    explicit CBalance(const CCheckedModule& module) : mModule(module), mBefore(module.OpenObjects())
    {
    }

    void DemandAlive(const std::string& when) const
    {
        Demand(Left() > 0, "the object is gone " + when + ", though a reference on it is held");
    }

    void DemandNone(const std::string& when) const
    {
        const std::int32_t left = Left();
        Demand(left == 0, std::to_string(left) + " of the module's objects " +
                              (left < 0 ? "too few are counted " : "are left ") + when);
    }

private:
    [[nodiscard]] std::int32_t Left() const
    {
        return mModule.OpenObjects() - mBefore;
    }

    const CCheckedModule& mModule;
    std::int32_t mBefore;
};

// Does the work in four threads at once. Throws a `CFailure` when one of them threw.
void InThreads(const std::function<void()>& work);

} // namespace Tavrik::tHost
