// oneTBB: parallel loops, and a table whose readers take locks of their own.
#include "Readers.h"
#include "Work.h"

#include <tbb/blocked_range.h>
#include <tbb/concurrent_hash_map.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_reduce.h>
#include <tbb/task_arena.h>

namespace Tavrik::Ossira::tBench
{

namespace
{

class CArena
{
public:
    static constexpr const char* Name = "parallel_reduce";

    explicit CArena(const CWork& work) : mWork(work), mArena(ThreadCount)
    {
    }

    std::uint32_t Run()
    {
        return mArena.execute([this] { return mWork.Count() == 0 ? Meet() : Reduce(); });
    }

private:
    [[nodiscard]] std::uint32_t Reduce() const
    {
        return tbb::parallel_reduce(
            tbb::blocked_range<int>(0, mWork.Count(), 25), std::uint32_t{0},
            [this](const tbb::blocked_range<int>& range, std::uint32_t sum)
            { return sum + mWork.Sum(range.begin(), range.end()); },
            [](std::uint32_t a, std::uint32_t b) { return a + b; });
    }

    [[nodiscard]] std::uint32_t Meet()
    {
        mMeeting.Restart();
        tbb::parallel_for(
            0, ThreadCount, [this](int) { mMeeting.Enter(); }, tbb::simple_partitioner());
        return 0;
    }

    const CWork& mWork;
    tbb::task_arena mArena;
    CMeeting mMeeting;
};

class CConcurrentTable
{
public:
    static constexpr const char* Name = "concurrent_hash_map";

    explicit CConcurrentTable(const Keys& keys)
    {
        for (const GUID& key : keys)
            mMap.emplace(key, CPeerPointer(new CPeerObject));
    }

    void Read(const GUID& key)
    {
        Map::const_accessor found;
        if (!mMap.find(found, key))
            return;
        CPeerPointer item = found->second;
        found.release();
        benchmark::DoNotOptimize(item);
    }

private:
    struct Compare
    {
        [[nodiscard]] std::size_t hash(const GUID& key) const noexcept
        {
            return GuidHash()(key);
        }

        [[nodiscard]] bool equal(const GUID& a, const GUID& b) const noexcept
        {
            return SameGuid(a, b);
        }
    };

    using Map = tbb::concurrent_hash_map<GUID, CPeerPointer, Compare>;

    Map mMap;
};

const CPeerLibrary gTbb("oneTBB",
                        Joined({ForkJoinPeer<CArena>()}, DictionaryPeers<CConcurrentTable>()));

} // namespace

} // namespace Tavrik::Ossira::tBench
