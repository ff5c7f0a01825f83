// A child is the leader of a process group, so that what it started goes with it. It is looked at
// before it is collected: as long as it was not, its number, and so its group's, is nobody else's.
#include "../ChildProcess.h"
#include "../ChildCode.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Tavrik::tSystem
{

namespace
{

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// One stream of the child's. The write end is closed here as soon as the child has it.
class CPipe
{
public:
    explicit CPipe(std::string& text) : mText(text)
    {
        if (pipe2(mEnds.data(), O_CLOEXEC) != 0)
            mEnds = {-1, -1};
        else
            fcntl(mEnds[0], F_SETFL, O_NONBLOCK);
    }
    ~CPipe()
    {
        CloseEnd(0);
        CloseEnd(1);
    }
    CPipe(const CPipe&) = delete;
    CPipe& operator=(const CPipe&) = delete;

    [[nodiscard]] int ReadEnd() const noexcept
    {
        return mEnds[0];
    }

    [[nodiscard]] int WriteEnd() const noexcept
    {
        return mEnds[1];
    }

    void CloseEnd(std::size_t index) noexcept
    {
        if (mEnds.at(index) >= 0)
            close(mEnds.at(index));
        mEnds.at(index) = -1;
    }

    // Takes what is there; what is beyond the limit is dropped, so that the writer never waits.
    void Drain()
    {
        std::array<char, 16384> bytes; // NOLINT: filled by read
        ssize_t size = 0;
        while (ReadEnd() >= 0 && (size = read(ReadEnd(), bytes.data(), bytes.size())) > 0)
        {
            const std::size_t room = StreamLimit - std::min(mText.size(), StreamLimit);
            mText.append(bytes.data(), std::min(static_cast<std::size_t>(size), room));
        }
        if (size == 0 || (errno != EAGAIN && errno != EINTR))
            CloseEnd(0);
    }

private:
    std::string& mText;
    std::array<int, 2> mEnds = {-1, -1};
};

// The system's error number; 0 when it was started.
int Start(const std::vector<std::string>& arguments, const CPipe& reports, const CPipe& words,
          pid_t& child)
{
    std::signal(SIGCHLD, SIG_DFL); // who ignores it does not learn how a child ended
    std::string name = "ossira";
    std::vector<std::string> copies(arguments);
    std::vector<char*> pointers = {name.data()};
    for (std::string& copy : copies)
        pointers.push_back(copy.data());
    pointers.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, reports.WriteEnd(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, words.WriteEnd(), STDERR_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigset_t usual; // a signal that the parent ignores, the child would ignore too
    sigemptyset(&none);
    sigfillset(&usual);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &usual);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK |
                                              POSIX_SPAWN_SETSIGDEF);
    const int error =
        posix_spawn(&child, "/proc/self/exe", &actions, &attributes, pointers.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

bool HasEnded(pid_t child)
{
    siginfo_t info = {};
    return waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
           info.si_pid == child;
}

// Whether it ended by itself. The pipes' ends wake us when the child ends, unless somebody whom it
// started has them too; so its end is looked for now and then besides.
bool Await(pid_t child, CPipe& reports, CPipe& words, Clock::time_point deadline)
{
    constexpr milliseconds look(20);
    for (milliseconds pause(1); !HasEnded(child); pause = std::min(pause * 2, look))
    {
        const auto rest = std::chrono::ceil<milliseconds>(deadline - Clock::now());
        if (rest.count() <= 0)
            return false;
        std::array<pollfd, 2> ends = {pollfd{reports.ReadEnd(), POLLIN, 0},
                                      pollfd{words.ReadEnd(), POLLIN, 0}};
        poll(ends.data(), ends.size(), static_cast<int>(std::min(pause, rest).count()));
        reports.Drain();
        words.Drain();
    }
    return true;
}

} // namespace

ChildOutcome RunChild(const std::vector<std::string>& arguments, milliseconds limit)
{
    ChildOutcome outcome;
    CPipe reports(outcome.Reports);
    CPipe words(outcome.Words);
    pid_t child = -1;
    const Clock::time_point begin = Clock::now();
    const int error = reports.WriteEnd() < 0 || words.WriteEnd() < 0
                          ? errno
                          : Start(arguments, reports, words, child);
    if (error != 0)
    {
        outcome.Code = static_cast<std::uint32_t>(error);
        return outcome;
    }
    reports.CloseEnd(1);
    words.CloseEnd(1);
    const bool inTime = Await(child, reports, words, begin + limit);
    kill(-child, SIGKILL);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR)
        ;
    reports.Drain();
    words.Drain();
    outcome.Duration = std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
    if (!inTime)
    {
        outcome.End = EChildEnd::TimedOut;
        outcome.Duration = limit;
        return outcome;
    }
    const bool hasExited = WIFEXITED(status);
    outcome.End = hasExited ? EChildEnd::Exited : EChildEnd::Crashed;
    outcome.Code = static_cast<std::uint32_t>(hasExited ? WEXITSTATUS(status) : WTERMSIG(status));
    return outcome;
}

std::string CrashText(std::uint32_t code)
{
    const int number = static_cast<int>(code);
    const char* const words = sigdescr_np(number);
    const char* const name = sigabbrev_np(number);
    if (words == nullptr || name == nullptr)
        return "signal " + std::to_string(number);
    std::string text = words;
    text.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(text.front())));
    return text + " (SIG" + name + ')';
}

std::string StartFailureText(std::uint32_t code)
{
    return std::strerror(static_cast<int>(code));
}

// Nothing is passed over here.
std::string PassedOverCrash()
{
    return {};
}

std::FILE* BecomeChild()
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const rlimit noCore = {0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    const int own = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    std::FILE* const reports = own < 0 ? nullptr : fdopen(own, "w");
    if (reports == nullptr || dup2(STDERR_FILENO, STDOUT_FILENO) < 0)
        std::abort(); // without its reports nobody learns what it finds
    std::setvbuf(reports, nullptr, _IONBF, 0);
    return reports;
}

} // namespace Tavrik::tSystem
