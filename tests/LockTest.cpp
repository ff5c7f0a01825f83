// The locks themselves: that a word keeps everybody else out while its holder sleeps, and that a
// build with the check of the order says who took what where.
#include "FailingMemory.h"
#include "Platform.h"
#include "ReadersLock.h"
#include "ReentrantWord.h"
#include "TestTools.h"

#include <array>
#include <functional>
#include <tuple>

namespace Tavrik::Ossira
{

using namespace tTest;
using tSystem::CCriticalSection;
using tSystem::CFastCriticalSection;
using tSystem::CLockGuard;
using tSystem::CReadersLock;
using tSystem::CReadGuard;
using tSystem::ELockRank;

namespace
{

// Two by two: those that hold the lock for a moment, and those that fall asleep with it.
void ExpectNothingLost(auto& lock, auto within)
{
    constexpr std::uint32_t rounds = 20000;
    constexpr std::uint32_t sleeps = 50;
    std::uint32_t count = 0;
    InThreads(4,
              [&](std::uint32_t number)
              {
                  const bool fallsAsleep = number % 2 != 0;
                  for (std::uint32_t round = 0; round < (fallsAsleep ? sleeps : rounds); ++round)
                  {
                      const CLockGuard guard(lock);
                      const std::uint32_t before = count;
                      within();
                      if (fallsAsleep)
                          std::this_thread::sleep_for(std::chrono::milliseconds(1));
                      count = before + 1;
                  }
              });
    EXPECT_EQ(count, 2 * (rounds + sleeps));
}

TEST(ConcurrentLocks, NothingIsLostWhileHoldersOfAWordSleep)
{
    CFastCriticalSection word;
    ExpectNothingLost(word, [] {});
    EXPECT_TRUE(word.try_lock()) << "left free";
    word.unlock();
    tSystem::CReentrantWord again; // free when its holder left it as often as he entered it
    ExpectNothingLost(again, [&] { const CLockGuard one(again), two(again); });
}

// Reads in several threads until they met so often, or the lock has grown.
void LetReadersMeet(CReadersLock& lock, int meetings, bool andLater, std::int64_t allocations)
{
    std::atomic<int> left = meetings;
    InThreads(3,
              [&](std::uint32_t)
              {
                  FailingMemory memory(allocations, andLater);
                  while (left > 0 && !lock.HasRow())
                  {
                      auto* hold = lock.begin_shared();
                      if (hold == nullptr)
                      {
                          --left;
                          hold = &lock.lock_shared();
                      }
                      std::this_thread::yield();
                      hold->unlock();
                  }
                  (void)memory.Stop();
              });
}

// How many of many readers, each on a stack elsewhere, find the lock free.
int CountFree(CReadersLock& lock)
{
    std::atomic<int> free = 0;
    InThreads(32,
              [&](std::uint32_t)
              {
                  if (auto* const hold = lock.begin_shared(); hold != nullptr)
                  {
                      ++free;
                      hold->unlock();
                  }
              });
    return free;
}

TEST(ConcurrentLocks, ReadersThatMeetGetWordsOfTheirOwnAndAWriterExcludesThemAll)
{
    constexpr int many = 40;
    CReadersLock lock;
    LetReadersMeet(lock, many, true, 0);
    EXPECT_FALSE(lock.HasRow()) << "there was no memory for it";
    LetReadersMeet(lock, many, false, many);
    ASSERT_TRUE(lock.HasRow());
    {
        const CLockGuard writer(lock);
        EXPECT_EQ(CountFree(lock), 0);
    }
    EXPECT_GT(CountFree(lock), 0);

    // Nothing is lost or seen by halves.
    std::array<std::uint32_t, 2> counts = {};
    std::atomic<bool> isOver = false;
    std::jthread readers(
        [&]
        {
            InThreads(3,
                      [&](std::uint32_t)
                      {
                          while (!isOver)
                          {
                              const CReadGuard guard(lock);
                              ASSERT_EQ(counts[0], counts[1]);
                          }
                      });
        });
    ExpectNothingLost(lock,
                      [&]
                      {
                          if (++counts[0] % 100 == 0)
                              std::this_thread::yield();
                          ++counts[1];
                      });
    isOver = true;
}

// One within the other.
void Take(auto& outer, auto& inner)
{
    const CLockGuard first(outer);
    const CLockGuard second(inner);
}

TEST(LockOrder, ABrokenOrderStopsTheProcessAndNamesBothPlaces)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    CCriticalSection wide(ELockRank::ProcessWide), container, value;
    CFastCriticalSection word, inner;
    CReadersLock table;
    {
        const CLockGuard first(wide), second(container), third(value), again(container);
        Take(wide, word);
    }
    const std::tuple<std::function<void()>, const char*, const char*> cases[] = {
        {[&] { Take(container, wide); }, "process-wide section at .*LockTest.*Take",
         "an object's section"},
        {[&] { Take(word, inner); }, "a spin word at .*LockTest.*Take", "a spin word"},
        {[&]
         {
             const CLockGuard guard(word);
             tSystem::CheckForeignCall();
         },
         "something foreign at .*LockTest", "a spin word"},
        {[&]
         {
             if (OSSIRA_CHECK_LOCK_ORDER == 0)
                 return; // else it waits for itself
             const CReadGuard reader(table);
             const CLockGuard writer(table);
         },
         "a spin word at .*LockTest", "a spin word"}};
    for (const auto& [breakOrder, taken, held] : cases)
    {
        if (OSSIRA_CHECK_LOCK_ORDER != 0)
            EXPECT_DEATH(breakOrder(),
                         std::string(taken) + ".*while " + held + " is held since .*LockTest");
        else
            breakOrder(); // costs nothing where it is not checked
    }
}

} // namespace

} // namespace Tavrik::Ossira
