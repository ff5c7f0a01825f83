// Random programs: a model does something to an object step after step, does the same to a few
// lines of map or vector, and compares. A program is its seed, so that a failing one can be run
// again:
//   OSSIRA_TEST_SEED=SEED OSSIRA_TEST_STEPS=COUNT ossira_tests --gtest_filter=NAME
// Without the variables there is one short program of each model.
#pragma once

#include "FailingMemory.h"
#include "ServiceTools.h"

#include <cstdlib>

namespace Tavrik::Ossira::tTest
{

// What the environment says, or else the number.
[[nodiscard]] inline std::uint32_t Setting(const char* name, std::uint32_t otherwise)
{
    const char* const text = std::getenv(name);
    return text == nullptr ? otherwise : static_cast<std::uint32_t>(std::atoll(text));
}

class RandomModel
{
public:
    RandomModel(const RandomModel&) = delete;
    virtual ~RandomModel() = default;

    virtual void Step() = 0;
    virtual void Check() = 0;

    // Many small steps, or few large ones: the models say how many are worth while.
    void Run(std::uint32_t seed, std::uint32_t steps)
    {
        const ObserverMaskScope silence(0);
        mRandom.seed(seed);
        for (std::uint32_t step = 0; step < steps && !testing::Test::HasFailure(); ++step)
        {
            Step();
            Check();
            if (testing::Test::HasFailure())
                ADD_FAILURE() << "OSSIRA_TEST_SEED=" << seed << " OSSIRA_TEST_STEPS=" << step + 1;
        }
    }

protected:
    RandomModel() = default;

    [[nodiscard]] std::uint32_t Below(std::size_t bound)
    {
        return tTest::Below(mRandom, bound);
    }

    // What a call answers. At times memory is short: a call that fails for it must leave everything
    // as it is, and do when it is made again what it would have done.
    template <class Call>
    [[nodiscard]] Result Answer(Call call)
    {
        if (Below(8) == 0)
        {
            FailingMemory memory(Below(4), Below(2) == 0 ? Shortage::Once : Shortage::FromThenOn);
            const Result answer = call();
            if (!memory.Stop() || answer != E_OUTOFMEMORY)
                return answer;
            Check();
        }
        return call();
    }

private:
    std::mt19937 mRandom;
};

template <class Model, class... Arguments>
void RunProgram(std::uint32_t steps, const Arguments&... arguments)
{
    Model(arguments...).Run(Setting("OSSIRA_TEST_SEED", 1), Setting("OSSIRA_TEST_STEPS", steps));
}

// An enumerator that every change of its collection ends, and where it stands.
class WalkModel
{
public:
    void Begin(ObjectPtr<IEnumerator> walk)
    {
        mWalk = std::move(walk);
        mAt = -1;
        mIsDead = false;
    }

    void End()
    {
        mIsDead = true;
    }

    // One of its operations, over so many items; `isItem` compares what is current.
    template <class IsItem>
    void Step(std::uint32_t which, std::size_t size, IsItem isItem)
    {
        if (!mWalk)
            return;
        const auto count = static_cast<std::ptrdiff_t>(size);
        const bool isPast = mAt == count;
        const auto expected = [this](Result answer)
        {
            return mIsDead ? E_ACCESSDENIED : answer;
        };
        if (which == 0)
        {
            EXPECT_EQ(mWalk->Reset(), expected(S_OK));
            mAt = -1;
        }
        else if (which < 3)
        {
            mAt += isPast || mIsDead ? 0 : 1;
            EXPECT_EQ(mWalk->MoveNext(), expected(isPast ? E_FAIL : mAt < count ? S_OK : S_FALSE));
        }
        else
        {
            const Result answer = expected(isPast || count == 0 ? E_FAIL : S_OK);
            ObjectPtr<IUnknown> item;
            EXPECT_EQ(mWalk->GetCurrent(IID_IUnknown, item.PutVoid()), answer);
            const auto at = static_cast<std::size_t>(std::max<std::ptrdiff_t>(mAt, 0));
            EXPECT_EQ(item && isItem(at, *item), answer == S_OK);
        }
    }

private:
    ObjectPtr<IEnumerator> mWalk;
    std::ptrdiff_t mAt = -1; // before the first; `size` is behind the last
    bool mIsDead = false;
};

} // namespace Tavrik::Ossira::tTest
