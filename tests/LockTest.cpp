// The locks themselves: that a word keeps everybody else out while its holder sleeps, and that a
// build with the check of the order says who took what where.
#include "FastCriticalSection.h"
#include "Platform.h"
#include "TestTools.h"

#include <mutex>

namespace Tavrik::Ossira
{

using namespace tTest;
using tSystem::CCriticalSection;
using tSystem::CFastCriticalSection;
using tSystem::CLockGuard;
using tSystem::ELockRank;

namespace
{

// Two by two: those that hold the word for a moment, and those that fall asleep with it.
TEST(ConcurrentLocks, NothingIsLostWhileHoldersOfAWordSleep)
{
    constexpr std::uint32_t rounds = 20000;
    constexpr std::uint32_t sleeps = 50;
    CFastCriticalSection word;
    std::uint32_t count = 0;
    InThreads(4,
              [&](std::uint32_t number)
              {
                  const bool fallsAsleep = number % 2 != 0;
                  for (std::uint32_t round = 0; round < (fallsAsleep ? sleeps : rounds); ++round)
                  {
                      const CLockGuard guard(word);
                      const std::uint32_t before = count;
                      if (fallsAsleep)
                          std::this_thread::sleep_for(std::chrono::milliseconds(1));
                      count = before + 1;
                  }
              });
    EXPECT_EQ(count, 2 * (rounds + sleeps));
    EXPECT_TRUE(word.try_lock()) << "left free";
    word.unlock();
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
        {CallWithinAWord, "something foreign at .*LockTest.*while a spin word is held since "}};
    for (const auto& [breakOrder, line] : cases)
    {
        if (OSSIRA_CHECK_LOCK_ORDER != 0)
            EXPECT_DEATH(breakOrder(), line);
        else
            breakOrder(); // costs nothing where it is not checked
    }
}

} // namespace

} // namespace Tavrik::Ossira
