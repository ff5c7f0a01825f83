// Where an object stands between work and disposal. A class lists it among its bases in the place
// of `IDisposable` and implements `Dispose`.
#pragma once

#include "OssiraModified.h"

#include <atomic>

namespace Tavrik::Ossira
{

class CDisposeStatus : public IDisposable
{
public:
    Result IsDisposed() override
    {
        return mDisposed ? S_OK : S_FALSE;
    }

protected:
    CDisposeStatus() = default;
    ~CDisposeStatus() = default;

    // True from the beginning of the disposal on: the object refuses work.
    [[nodiscard]] bool IsClosed() const noexcept
    {
        return mIsClosed;
    }

    // False when another call began before.
    [[nodiscard]] bool BeginDisposal() noexcept
    {
        return !mIsClosed.exchange(true);
    }

    void EndDisposal() noexcept
    {
        mDisposed = true;
    }

private:
    std::atomic<bool> mIsClosed = false;
    std::atomic<bool> mDisposed = false;
};

} // namespace Tavrik::Ossira
