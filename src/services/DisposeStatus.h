// Where an object stands between work and disposal.
#pragma once

#include <atomic>

namespace Tavrik::Ossira
{

class CDisposeStatus
{
protected:
    CDisposeStatus() = default;
    ~CDisposeStatus() = default;

    // True from the beginning of the disposal on: the object refuses work.
    [[nodiscard]] bool IsClosed() const noexcept
    {
        return mDisposing || mDisposed;
    }

    [[nodiscard]] bool WasDisposed() const noexcept
    {
        return mDisposed;
    }

    // False when another call began before.
    [[nodiscard]] bool BeginDisposal() noexcept
    {
        return !mDisposed && !mDisposing.exchange(true);
    }

    // A disposal that fails does not come here: the object then refuses work for good.
    void EndDisposal() noexcept
    {
        mDisposed = true;
        mDisposing = false;
    }

private:
    std::atomic<bool> mDisposing = false;
    std::atomic<bool> mDisposed = false;
};

} // namespace Tavrik::Ossira
