// Lines to a pipe that nobody reads: the signal that this raises is not the host's.
#include "Platform.h"
#include "TestPlatform.h"

#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

TEST(DebugText, ToAPipeThatNobodyReadsLeavesTheCallersSignalsAsTheyWere)
{
    const auto former = std::signal(SIGPIPE, SIG_DFL);
    CDebugOutputTap broken(Stream::Pipe);
    broken.Break(false);
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    for (const bool isBlocked : {false, true})
    {
        pthread_sigmask(isBlocked ? SIG_BLOCK : SIG_UNBLOCK, &pipe, nullptr);
        for (const bool isPending : {false, isBlocked})
        {
            if (isPending)
                pthread_kill(pthread_self(), SIGPIPE);
            errno = ERANGE;
            tSystem::WriteDebugText(nullptr);
            tSystem::WriteDebugText("nobody reads this\n");
            EXPECT_EQ(errno, ERANGE);
            sigset_t pending, blocked;
            EXPECT_EQ(sigpending(&pending) + pthread_sigmask(SIG_BLOCK, nullptr, &blocked), 0);
            EXPECT_EQ(sigismember(&pending, SIGPIPE), isPending) << isBlocked;
            EXPECT_EQ(sigismember(&blocked, SIGPIPE), isBlocked);
        }
    }
    int taken = 0;
    EXPECT_EQ(sigwait(&pipe, &taken), 0);
    pthread_sigmask(SIG_UNBLOCK, &pipe, nullptr);
    std::signal(SIGPIPE, former);
}

} // namespace

} // namespace Tavrik::Ossira
