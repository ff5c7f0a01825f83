// What somebody might use instead of the runtime: other libraries and idioms of the standard one.
// Each library has a source of its own, which is built where the library was found, and enters what
// it can do here. The loops are written once, below and in `Readers.h`, `Lists.h`, `Work.h`.
#pragma once

#include "Job.h"

namespace Tavrik::Ossira::tBench
{

enum class Topic
{
    Reference,
    Interface,
    Creation,
    ModuleClass,
    SmallValue,
    LargeValue,
    DictionaryRead,    // by the number of keys
    DictionaryReaders, // the same, two contenders
    ListAppend,        // by the number of items
    ListWalk,
    ListIndex,
    ForkAndJoin // by the nanoseconds of an item
};

struct Peer
{
    Topic For;
    std::function<std::vector<Contender>(std::size_t size)> Make;
};

// Names are completed by the library's.
class CPeerLibrary
{
public:
    CPeerLibrary(std::string name, std::vector<Peer> peers);
};

void AddPeers(std::vector<Contender>& contenders, Topic topic, std::size_t size = 0);

// Where instructions are counted, so that no peer has to be made for the runtime or the limit.
void LeaveOutPeers();

// With their versions, and without those that were not found.
[[nodiscard]] std::string PeerLibraries();
[[nodiscard]] std::string MissingPeerLibraries();

// A `Round` has a name and is called for one round of a job.
template <class Round>
[[nodiscard]] Peer RoundPeer(Topic topic)
{
    const auto body = [](benchmark::State& state)
    {
        Round round;
        const CRoundReport report(state);
        for (auto _ : state)
            round();
    };
    return {topic, [body](std::size_t)
            {
                return std::vector<Contender>{{Round::Name, body}};
            }};
}

// One list of peers out of several.
[[nodiscard]] std::vector<Peer> Joined(std::vector<Peer> first, const auto&... further)
{
    (first.insert(first.end(), further.begin(), further.end()), ...);
    return first;
}

} // namespace Tavrik::Ossira::tBench
