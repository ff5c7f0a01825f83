// What only the module itself knows of its objects stays out: the operations here are those of
// interfaces that every host knows.
#include "CheckObject.h"

#include "OssiraBullets.h"
#include "Sample.h"

#include <atomic>
#include <mutex>
#include <thread>

namespace Tavrik::tHost
{

using namespace Ossira;

namespace
{

constexpr std::uint32_t ThreadCount = 4;

template <class Interface, Result (*Call)(Interface& object)>
void DoWith(IUnknown& object)
{
    ObjectPtr<Interface> other;
    if (Succeeded(object.QueryInterface(Interface::Iid, other.PutVoid())) && other)
        (void)Call(*other);
}

// Long enough to be allocated, whatever library the module is built with.
constexpr const char* LongName = "a name that is longer than what a string keeps in itself, by far";

Result Describe(Samples::ISample& sample)
{
    ObjectPtr<IValue> text;
    const Result created = CreateValue(text.Put());
    return Failed(created) ? created : sample.Describe(text.Get());
}

Result CloneIt(ICloneable& object)
{
    ObjectPtr<IUnknown> clone;
    return object.Clone(IID_IUnknown, clone.PutVoid());
}

Result CompareIt(IComparable& object)
{
    std::int32_t result = 0;
    return object.Compare(&object, &result);
}

Result NameIt(IObjectName& object)
{
    return object.SetObjectName(LongName);
}

Result ReadName(IObjectName& object)
{
    char name[80];
    return object.GetObjectName(name, sizeof name);
}

Result ReadClass(IObjectIdentity& object)
{
    CLSID clsid = {};
    char name[80];
    (void)object.GetObjectClassID(&clsid);
    return object.GetObjectClassName(name, sizeof name);
}

Result FillValue(IValue& object)
{
    const Result written = SetValueCharString(&object, LongName);
    std::string text;
    return Failed(written) ? written : GetValueCharString(&object, &text);
}

Result Enumerate(IEnumerable& object)
{
    ObjectPtr<IEnumerator> items;
    Result moved = object.GetEnumerator(IID_IEnumerator, items.PutVoid());
    for (int steps = 0; steps < 100 && moved == S_OK && items; ++steps)
        moved = items->MoveNext();
    return moved;
}

Result FillCollection(ICollection& object)
{
    ObjectPtr<IValue> value;
    Result result = CreateValue(value.Put());
    for (Result (ICollection::*const step)(IUnknown*) :
         {&ICollection::Add, &ICollection::Contains, &ICollection::Remove})
        result = Failed(result) ? result : (object.*step)(value.Get());
    return result;
}

Result FillDictionary(IDictionaryGUID& object)
{
    ObjectPtr<IValue> value;
    const Result created = CreateValue(value.Put());
    const Result set = Failed(created) ? created : object.SetValueGUID(IID_OfNobody, value.Get());
    return Failed(set) ? set : object.RemoveGUID(IID_OfNobody);
}

Result ListDatatypes(IDatatypes& object)
{
    ObjectPtr<IEnumerator> items;
    return object.GetEnumerator(IID_IEnumerator, items.PutVoid());
}

template <class Interface, Result (*Call)(Interface& object)>
constexpr Deed MakeDeed(const char* name)
{
    return {name, Interface::Iid, &DoWith<Interface, Call>};
}

constexpr Deed Deeds[] = {
    MakeDeed<IObjectName, NameIt>("IObjectName::SetObjectName"),
    MakeDeed<IObjectName, ReadName>("IObjectName::GetObjectName"),
    MakeDeed<IObjectIdentity, ReadClass>("the operations of IObjectIdentity"),
    MakeDeed<ICloneable, CloneIt>("ICloneable::Clone"),
    MakeDeed<IComparable, CompareIt>("IComparable::Compare"),
    MakeDeed<IValue, FillValue>("IValue::SetValue"),
    MakeDeed<IEnumerable, Enumerate>("IEnumerable::GetEnumerator"),
    MakeDeed<ICollection, FillCollection>("ICollection::Add"),
    MakeDeed<IDictionaryGUID, FillDictionary>("IDictionaryGUID::SetValueGUID"),
    MakeDeed<IDatatypes, ListDatatypes>("IDatatypes::GetEnumerator"),
    MakeDeed<Samples::ISample, Describe>("ISample::Describe"),
};

} // namespace

void Demand(bool holds, const std::string& otherwise)
{
    if (!holds)
        throw CFailure(otherwise);
}

Result Ask(IUnknown& object, const IID& iid, void** out)
{
    return Guarded("QueryInterface", [&] { return object.QueryInterface(iid, out); });
}

bool Has(IUnknown& object, const IID& iid)
{
    ObjectPtr<IUnknown> other;
    return Succeeded(Ask(object, iid, other.PutVoid())) && other;
}

std::vector<const KnownInterface*> InterfacesOf(IUnknown& object)
{
    std::vector<const KnownInterface*> interfaces;
    for (const KnownInterface& known : KnownInterfaces)
    {
        if (Has(object, known.Id))
            interfaces.push_back(&known);
    }
    return interfaces;
}

void ThroughEach(IUnknown& object,
                 const std::function<void(const std::string& name, IUnknown& face)>& look)
{
    look("IUnknown", object);
    for (const KnownInterface* known : InterfacesOf(object))
    {
        ObjectPtr<IUnknown> other;
        const Result asked = Ask(object, known->Id, other.PutVoid());
        Demand(Succeeded(asked) && other,
               std::string(known->Name) + " is answered once, and refused the next time");
        look(known->Name, *other);
    }
}

std::vector<const Deed*> DeedsOf(IUnknown& object)
{
    std::vector<const Deed*> deeds;
    for (const Deed& deed : Deeds)
    {
        if (Has(object, deed.Owner))
            deeds.push_back(&deed);
    }
    return deeds;
}

void DoAll(const std::vector<const Deed*>& deeds, IUnknown& object)
{
    for (const Deed* const deed : deeds)
        Guarded(deed->Name, [&] { deed->Do(object); });
}

void InThreads(const std::function<void()>& work)
{
    std::atomic<std::uint32_t> missing = ThreadCount;
    std::mutex lock; // guards the text
    std::string failure;
    const auto run = [&]
    {
        for (--missing; missing > 0;) // all at once
            std::this_thread::yield();
        try
        {
            Guarded("an operation", work);
        }
        catch (const CFailure& thrown)
        {
            const std::lock_guard guard(lock);
            failure = thrown.what();
        }
    };
    std::vector<std::thread> threads;
    for (std::uint32_t number = 0; number < ThreadCount; ++number)
        threads.emplace_back(run);
    for (std::thread& thread : threads)
        thread.join();
    Demand(failure.empty(), "in one of several threads: " + failure);
}

} // namespace Tavrik::tHost
