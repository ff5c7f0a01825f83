// The entry of every test program. It sees to it that each test leaves nothing behind: after each
// one every singleton is released, and the test fails unless the live objects, the live exceptions
// and the mask of the observer are what they were before it.
#include "OssiraDiagnostics.h"
#include "TestTools.h"

#ifdef OSSIRA_STATIC_RUNTIME
#include "Platform.h"
#endif

namespace Tavrik::Ossira::tTest
{

namespace
{

std::vector<std::int64_t> Balance()
{
    ObjectPtr<IObserverPrint> observer;
    GetGlobalObserver(observer.Put());
    return {GetObjectOpenCount(), GetExceptionOpenCount(),
            observer ? std::int64_t{observer->GetLevelMask()} : -1};
}

class BalanceListener final : public testing::EmptyTestEventListener
{
    void OnTestStart(const testing::TestInfo&) override
    {
        // The first test makes the singleton registry, which stays; it is none of the test's own.
        (void)SingletonRegistry();
        mBefore = Balance();
    }

    void OnTestEnd(const testing::TestInfo&) override
    {
        EXPECT_EQ(SingletonRegistry()->ClearObjects(), S_OK);
        EXPECT_EQ(Balance(), mBefore) << "left over: objects, exceptions, another observer's mask";
    }

    std::vector<std::int64_t> mBefore;
};

} // namespace

} // namespace Tavrik::Ossira::tTest

int main(int argumentCount, char** arguments)
{
    using namespace Tavrik::Ossira;
    testing::InitGoogleTest(&argumentCount, arguments);
    testing::UnitTest::GetInstance()->listeners().Append(new tTest::BalanceListener);
#ifdef OSSIRA_STATIC_RUNTIME // the program is the library, so it attaches and detaches it
    if (!AttachLibrary())
        return 1;
    const int result = RUN_ALL_TESTS();
    DetachLibrary(false);
    return result;
#else
    return RUN_ALL_TESTS();
#endif
}
