// Calls of the platform, and of the heap, that fail at will. They go through the program's import
// table, whose entries lead here from the first time that one is to fail. Calls that libraries make
// are not concerned, but for their allocations where those are the program's own.
#pragma once

#include "AllocationWatch.h"
#include "ThreadMark.h"

#include <atomic>
#include <limits>
#include <tuple>
#include <vector>

namespace Tavrik::Ossira::tTest
{

enum class Effect
{
    Unnoticed, // it is made good
    Refused,   // as something that does not let itself be used
    Lacking,   // nobody can tell whether it could be used
    NoMemory
};

struct Fault
{
    int Error;
    Effect Means;
};

inline constexpr int Short = -1; // no error: of what was asked for only half is done

struct FailableCall
{
    const char* Name;
    std::vector<Fault> Faults;
    void* Instead = nullptr; // null for the operators of the heap, which are replaced already
    void** Real = nullptr;
};

// All that the platform layer makes.
[[nodiscard]] const std::vector<FailableCall>& FailableCalls();

// The number of the thread's last failed call.
[[nodiscard]] int PlatformError();
void SetPlatformError(int error);

// While this lives, this thread's calls of that kind are counted, and the one with that number
// (from 0) fails, or each from that one on. One at a time.
class FailingCall
{
public:
    FailingCall(const FailableCall& call, int error, std::int64_t which, bool andLater);
    FailingCall(const FailingCall&) = delete;

    ~FailingCall()
    {
        Stop();
    }

    // Ends it; whether a call failed.
    bool Stop();

    // The error of the call that is made now, or 0.
    [[nodiscard]] static int ErrorOf(const void* call);
};

// Puts what stands for the calls into the program's import table, by their names.
void ReplaceImports();

inline constexpr std::intptr_t ItsError = -99; // a call that fails answers its error

// What stands for a function: the number tells apart those of one signature; `Failed` is what it
// answers, and `IsDone` says that it is done all the same, as where something is given back.
template <int Number, std::intptr_t Failed, bool IsDone, class Signature>
struct StandIn;

template <int Number, std::intptr_t Failed, bool IsDone, class Answer, class... Arguments>
struct StandIn<Number, Failed, IsDone, Answer(Arguments...)>
{
    static inline void* Real = nullptr;

    static Answer Call(Arguments... arguments)
    {
        const auto call = reinterpret_cast<Answer (*)(Arguments...)>(Real);
        const int error = FailingCall::ErrorOf(&Real);
        std::tuple<Arguments..., char, char, char> all(arguments..., 0, 0, 0);
        if constexpr (std::is_same_v<std::tuple_element_t<2, decltype(all)>, std::size_t>)
            std::get<2>(all) = error == Short ? (std::get<2>(all) + 1) / 2 : std::get<2>(all);
        if (error == 0 || error == Short || IsDone)
        {
            const Answer answer = [&]<std::size_t... Index>(std::index_sequence<Index...>)
            {
                return call(std::get<Index>(all)...);
            }
            (std::index_sequence_for<Arguments...>());
            if (error == 0 || error == Short)
                return answer;
        }
        SetPlatformError(error);
        const std::intptr_t failed = Failed == ItsError ? error : Failed;
        if constexpr (std::is_pointer_v<Answer>)
            return reinterpret_cast<Answer>(failed);
        else
            return static_cast<Answer>(failed);
    }
};

template <int Number, std::intptr_t Failed, bool IsDone, class Answer, class... Arguments>
struct StandIn<Number, Failed, IsDone, Answer(Arguments...) noexcept>
    : StandIn<Number, Failed, IsDone, Answer(Arguments...)>
{
};

template <class Stand>
[[nodiscard]] FailableCall Failable(const char* name, std::vector<Fault> faults)
{
    return {name, std::move(faults), reinterpret_cast<void*>(&Stand::Call), &Stand::Real};
}

// Rows of a platform's table: a function, what it answers when it fails, and its faults; one that
// is called otherwise than it is declared; and one that gives something back.
#define CALL(name, failed, ...)                                                                    \
    Failable<StandIn<__LINE__, failed, false, decltype(name)>>(#name, {__VA_ARGS__})
#define CALL_AS(name, failed, signature, ...)                                                      \
    Failable<StandIn<__LINE__, failed, false, signature>>(#name, {__VA_ARGS__})
#define CALL_DONE(name, error)                                                                     \
    Failable<StandIn<__LINE__, -1, true, decltype(name)>>(#name, {{error, Unnoticed}})

} // namespace Tavrik::Ossira::tTest
