// Makes the objects one after the other, so that they lie in memory as in a host that has just
// filled a collection.
#include "Objects.h"

#include "Job.h"
#include "OssiraClasses.h"

#include <algorithm>
#include <numeric>
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

Keys Shuffled(Keys keys)
{
    std::shuffle(keys.begin(), keys.end(), std::mt19937_64(keys.size()));
    return keys;
}

std::vector<std::int32_t> ShuffledIndices(std::size_t count)
{
    std::vector<std::int32_t> indices(count);
    std::iota(indices.begin(), indices.end(), 0);
    std::shuffle(indices.begin(), indices.end(), std::mt19937_64(count));
    return indices;
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
        object = MakeLimitObject();
    return objects;
}

} // namespace Tavrik::Ossira::tBench
