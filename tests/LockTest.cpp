// The locks themselves: that a word keeps everybody else out while its holder sleeps, and that a
// build with the check of the order says who took what where.
#include "FailingMemory.h"
#include "Platform.h"
#include "ReadersLock.h"
#include "ReentrantWord.h"
#include "TestTools.h"

#include <array>
#include <mutex>

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
void LetReadersMeet(CReadersLock& lock, int meetings, Shortage shortage, std::int64_t allocations)
{
    std::atomic<int> left = meetings;
    InThreads(3,
              [&](std::uint32_t)
              {
                  FailingMemory memory(allocations, shortage);
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
    LetReadersMeet(lock, many, Shortage::FromThenOn, 0);
    EXPECT_FALSE(lock.HasRow()) << "there was no memory for it";
    LetReadersMeet(lock, many, Shortage::Once, many);
    ASSERT_TRUE(lock.HasRow());
    {
        const CLockGuard writer(lock);
        EXPECT_EQ(CountFree(lock), 0);
    }
    EXPECT_GT(CountFree(lock), 0);
}

TEST(ConcurrentLocks, NothingIsLostOrSeenByHalvesAmongReadersAndWriters)
{
    CReadersLock lock;
    LetReadersMeet(lock, 40, Shortage::Once, 40);
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

void TakeInOrder()
{
    CCriticalSection wide(ELockRank::ProcessWide);
    CCriticalSection container;
    CCriticalSection value;
    CFastCriticalSection word;
    const CLockGuard first(wide);
    const CLockGuard second(container);
    const CLockGuard third(value);
    const CLockGuard again(container);
    const CLockGuard wideAgain(wide);
    const CLockGuard last(word);
}

void TakeTheProcessWideSectionLast()
{
    CCriticalSection wide(ELockRank::ProcessWide);
    CCriticalSection container;
    const CLockGuard first(container);
    const CLockGuard second(wide);
}

void TakeALockWithinAWord()
{
    CFastCriticalSection word;
    CFastCriticalSection inner;
    const CLockGuard first(word);
    const CLockGuard second(inner);
}

void WriteWhatIsRead()
{
    CReadersLock lock;
    const CReadGuard first(lock);
    const CLockGuard second(lock);
}

void CallWithinAWord()
{
    CFastCriticalSection word;
    const CLockGuard first(word);
    tSystem::CheckForeignCall();
}

TEST(LockOrder, ABrokenOrderStopsTheProcessAndNamesBothPlaces)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    TakeInOrder();
    constexpr struct
    {
        void (*Break)();
        const char* Line;
    } cases[] = {
        {TakeTheProcessWideSectionLast,
         "process-wide section at .*LockTest.*TakeTheProcess.*while an object's section is held "
         "since .*LockTest"},
        {TakeALockWithinAWord, "a spin word at .*LockTest.*while a spin word is held since "},
        {WriteWhatIsRead, "a spin word at .*LockTest.*while a spin word is held since "},
        {CallWithinAWord, "something foreign at .*LockTest.*while a spin word is held since "}};
    for (const auto& [breakOrder, line] : cases)
    {
        if (OSSIRA_CHECK_LOCK_ORDER != 0)
            EXPECT_DEATH(breakOrder(), line);
        else if (breakOrder != WriteWhatIsRead) // which waits for itself
            breakOrder();                       // costs nothing where it is not checked
    }
}

} // namespace

} // namespace Tavrik::Ossira
