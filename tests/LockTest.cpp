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
    constexpr std::uint32_t rounds = 20000, sleeps = 50;
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
    EXPECT_TRUE(word.try_lock() && word.IsTaken()) << "left free";
    EXPECT_FALSE(word.Leave() || word.IsTaken()) << "nobody waits";
    tSystem::CReentrantWord again; // free when its holder left it as often as he entered it
    ExpectNothingLost(again, [&] { const CLockGuard one(again), two(again); });
}

// Has two readers meet that often. How many of them did is not certain on a busy machine.
void LetReadersMeet(CReadersLock& lock, int meetings, std::int64_t allocations)
{
    for (; meetings > 0 && !lock.HasRow(); --meetings)
    {
        CFastCriticalSection& hold = lock.lock_shared();
        const std::jthread other(
            [&]
            {
                const FailingMemory memory(allocations);
                lock.lock_shared().unlock();
            });
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        hold.unlock();
    }
}

// Whether one of many readers, each on a stack elsewhere, finds the lock free.
bool IsFree(CReadersLock& lock)
{
    std::atomic<bool> isFree = false;
    InThreads(32,
              [&](std::uint32_t)
              {
                  auto* const hold = lock.begin_shared();
                  if (hold == nullptr)
                      return;
                  hold->unlock();
                  isFree = true;
              });
    return isFree;
}

TEST(ConcurrentLocks, ReadersThatMeetGetWordsOfTheirOwnAndAWriterExcludesThemAll)
{
    CReadersLock lock;
    for (int round = 0; round < 3; ++round)
        LetReadersMeet(lock, 3, 1), lock.lock(), lock.unlock();
    LetReadersMeet(lock, 40, 0);
    EXPECT_FALSE(lock.HasRow()) << "a writer came between, or there was no memory for it";
    LetReadersMeet(lock, 1000, 1);
    ASSERT_TRUE(lock.HasRow());
    lock.lock();
    EXPECT_FALSE(IsFree(lock));
    lock.unlock();
    EXPECT_TRUE(IsFree(lock));

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
             const CLockGuard first(wide);
             container.lock();
             word.lock();
             container.unlock(); // before what was taken within
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
