// Runs the tests and sees to it that each one leaves nothing behind.
#include "Main.h"

#include "OssiraDiagnostics.h"
#include "TestTools.h"

#include <charconv>

namespace Tavrik::Ossira::tTest
{

namespace
{

std::vector<std::string> gCommandLine;

struct Balance
{
    std::uint32_t Objects = GetObjectOpenCount();
    std::int32_t Exceptions = GetExceptionOpenCount();
    bool HasObserver = false;
    std::uint32_t Mask = 0;

    Balance()
    {
        ObjectPtr<IObserverPrint> observer;
        GetGlobalObserver(observer.Put());
        HasObserver = static_cast<bool>(observer);
        Mask = observer ? observer->GetLevelMask() : 0;
    }
};

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
        const Balance after;
        EXPECT_EQ(after.Objects, mBefore.Objects) << "objects are left over";
        EXPECT_EQ(after.Exceptions, mBefore.Exceptions) << "exceptions are left over";
        EXPECT_EQ(after.HasObserver, mBefore.HasObserver) << "the observer is gone";
        EXPECT_EQ(after.Mask, mBefore.Mask) << "the observer prints other levels";
    }

    Balance mBefore;
};

} // namespace

int CommandLineNumber(std::string_view name, int otherwise)
{
    const std::string option = "--" + std::string(name) + "=";
    for (const std::string& argument : gCommandLine)
    {
        if (!argument.starts_with(option))
            continue;
        std::from_chars(argument.data() + option.size(), argument.data() + argument.size(),
                        otherwise);
    }
    return otherwise;
}

int RunTests(int argumentCount, char** arguments)
{
    testing::InitGoogleTest(&argumentCount, arguments);
    gCommandLine.assign(arguments + 1, arguments + argumentCount);
    testing::UnitTest::GetInstance()->listeners().Append(new BalanceListener);
    return RUN_ALL_TESTS();
}

} // namespace Tavrik::Ossira::tTest
