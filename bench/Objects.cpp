// Makes the objects one after the other, so that they lie in memory as in a host that has just
// filled a collection.
#include "Objects.h"

#include "Job.h"
#include "OssiraClasses.h"

#include <array>
#include <bit>
#include <random>

namespace Tavrik::Ossira::tBench
{

Keys MakeKeys(std::size_t count)
{
    std::mt19937_64 random(count);
    Keys keys(count);
    for (GUID& key : keys)
        key = std::bit_cast<GUID>(std::array<std::uint64_t, 2>{random(), random()});
    return keys;
}

Objects MakeObjects(std::size_t count)
{
    Objects objects(count);
    for (ObjectPtr<IUnknown>& object : objects)
        Require(CreateObject(CLSID_Value, object), "CreateObject");
    return objects;
}

Objects MakeSmallObjects(std::size_t count)
{
    Objects objects(count);
    for (ObjectPtr<IUnknown>& object : objects)
        object = ObjectPtr<IUnknown>(MakeLimitValue().Get());
    return objects;
}

} // namespace Tavrik::Ossira::tBench
