// What jobs cost by the size of what they work on, for the plot.
#include "Job.h"

namespace Tavrik::Ossira::tBench
{

namespace
{

struct Curve
{
    const char* Title;
    Body (*Make)(std::size_t size);
    std::vector<std::size_t> Sizes;
};

} // namespace

Jobs CurveJobs()
{
    const std::vector<std::size_t> sizes = {10, 100, 1000, 10'000, 100'000, 1'000'000};
    const Curve curves[] = {
        {"dictionary: key read", ReadDictionary, sizes},
        {"list: random index", IndexList, sizes},
        {"merged view: further step", StepOnInView, sizes},
        {"factory: class registered", RegisterClasses, sizes},
        {"factory: object created, by classes", CreateAmongClasses, sizes},
        {"module registered from a folder", RegisterModules, {1, 10, 50, 100, 200}},
    };
    Jobs jobs;
    for (const Curve& curve : curves)
    {
        jobs.push_back({std::string("by size, ") + curve.Title, NoReach,
                        [curve]
                        {
                            std::vector<Contender> contenders;
                            for (const std::size_t size : curve.Sizes)
                                contenders.push_back({std::to_string(size), curve.Make(size)});
                            return contenders;
                        },
                        NoReach, Kind::Curve});
    }
    return jobs;
}

} // namespace Tavrik::Ossira::tBench
