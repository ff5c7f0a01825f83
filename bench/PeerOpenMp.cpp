// OpenMP's team of threads.
#include "Work.h"

namespace Tavrik::Ossira::tBench
{

namespace
{

class CTeam
{
public:
    static constexpr const char* Name = "parallel for, static";

    explicit CTeam(const CWork& work) : mWork(work)
    {
    }

    std::uint32_t Run()
    {
        constexpr int shares = ThreadCount;
        std::uint32_t sum = 0;
#pragma omp parallel for num_threads(ThreadCount) reduction(+ : sum) schedule(static)
        for (int share = 0; share < shares; ++share)
            sum += mWork.Sum(mWork.Count() * share / shares, mWork.Count() * (share + 1) / shares);
        return sum;
    }

private:
    const CWork& mWork;
};

const CPeerLibrary gOpenMp("OpenMP", {ForkJoinPeer<CTeam>()});

} // namespace

} // namespace Tavrik::Ossira::tBench
