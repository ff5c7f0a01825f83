// Debug output is the standard error stream, written around the C library's buffers: one call for
// one line is what keeps the lines of several threads, and of several processes, apart.
//
// The stream may be a pipe or a socket that nobody reads any more, or not at the moment. It belongs
// to the host, so its mode stays as it is: each write says for itself that it does not wait.
#include "../Platform.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

namespace Tavrik::tSystem
{

namespace
{

constexpr int Patience = 1000; // milliseconds for one line
constinit std::atomic<bool> gIsStuck = false;

// The signal of a pipe without a reader would end the process. It is sent to the thread that
// writes, so that thread can hold it back and take it away again.
class CNoPipeSignal
{
public:
    CNoPipeSignal() noexcept
    {
        sigemptyset(&mPipe);
        sigaddset(&mPipe, SIGPIPE);
        sigset_t pending;
        sigemptyset(&pending);
        sigpending(&pending);
        mIsForeign = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &mPipe, &mFormer);
    }

    CNoPipeSignal(const CNoPipeSignal&) = delete;
    CNoPipeSignal& operator=(const CNoPipeSignal&) = delete;

    ~CNoPipeSignal()
    {
        constexpr timespec now = {};
        if (mIsRaised && !mIsForeign)
        {
            while (sigtimedwait(&mPipe, nullptr, &now) < 0 && errno == EINTR)
                ;
        }
        pthread_sigmask(SIG_SETMASK, &mFormer, nullptr);
    }

    void Note(int error) noexcept
    {
        mIsRaised = mIsRaised || error == EPIPE;
    }

private:
    sigset_t mPipe;
    sigset_t mFormer;
    bool mIsForeign = false; // somebody else's was pending before
    bool mIsRaised = false;
};

// Writes what goes in without waiting. Older kernels cannot be told so for a pipe; there the look
// at the free room before has to do.
ssize_t WriteSome(const char* text, std::size_t size, mode_t kind) noexcept
{
    if (S_ISSOCK(kind))
        return send(STDERR_FILENO, text, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (S_ISFIFO(kind))
    {
        const iovec piece = {const_cast<char*>(text), size};
        const ssize_t written = pwritev2(STDERR_FILENO, &piece, 1, -1, RWF_NOWAIT);
        if (written >= 0 || (errno != EOPNOTSUPP && errno != ENOSYS))
            return written;
    }
    return write(STDERR_FILENO, text, size);
}

// Whether the stream takes something before that many milliseconds have passed.
bool WaitForRoom(int& milliseconds) noexcept
{
    const auto now = []() -> std::int64_t
    {
        timespec time = {};
        clock_gettime(CLOCK_MONOTONIC, &time);
        return time.tv_sec * 1000 + time.tv_nsec / 1'000'000;
    };
    const auto end = now() + milliseconds;
    pollfd stream = {STDERR_FILENO, POLLOUT, 0};
    int ready = -1;
    do
    {
        ready = poll(&stream, 1, milliseconds);
        milliseconds = static_cast<int>(std::max<std::int64_t>(end - now(), 0));
    } while (ready < 0 && errno == EINTR && milliseconds > 0);
    return ready > 0;
}

} // namespace

CNoCancellation::CNoCancellation() noexcept
{
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &mFormer);
}

CNoCancellation::~CNoCancellation()
{
    pthread_setcancelstate(mFormer, nullptr);
}

void WriteDebugText(const char* text) noexcept
{
    if (text == nullptr)
        return;
    // A line may be written between a failed call and the look at its error number.
    const int callersError = errno;
    const CNoCancellation whole;
    {
        CNoPipeSignal noSignal;
        struct stat status = {};
        fstat(STDERR_FILENO, &status);
        int patience = gIsStuck ? 0 : Patience;
        std::size_t left = std::strlen(text);
        while (left > 0 && WaitForRoom(patience))
        {
            const ssize_t written = WriteSome(text, left, status.st_mode);
            if (written > 0)
            {
                text += written;
                left -= static_cast<std::size_t>(written);
                continue;
            }
            noSignal.Note(errno);
            if (written == 0 || (errno != EINTR && errno != EAGAIN) || patience <= 0)
                break;
        }
        gIsStuck = left > 0 && patience <= 0; // not where nobody is left to read
    }
    errno = callersError;
}

} // namespace Tavrik::tSystem
