// The register of peers, filled while the program's static objects are built.
#include "Peers.h"

namespace Tavrik::Ossira::tBench
{

namespace
{

struct Entry
{
    std::string Library;
    std::vector<Peer> Peers;
};

[[nodiscard]] std::vector<Entry>& Entries()
{
    static std::vector<Entry> entries;
    return entries;
}

} // namespace

CPeerLibrary::CPeerLibrary(std::string name, std::vector<Peer> peers)
{
    Entries().push_back({std::move(name), std::move(peers)});
}

void AddPeers(std::vector<Contender>& contenders, Topic topic, std::size_t size)
{
    for (const Entry& entry : Entries())
    {
        for (const Peer& peer : entry.Peers)
        {
            if (peer.For != topic)
                continue;
            for (Contender& contender : peer.Make(size))
            {
                contender.Name = entry.Library + ": " + contender.Name;
                contender.Role = Role::Peer;
                contenders.push_back(std::move(contender));
            }
        }
    }
}

void LeaveOutPeers()
{
    Entries().clear();
}

std::string PeerLibraries()
{
    return OSSIRA_BENCH_PEERS;
}

std::string MissingPeerLibraries()
{
    return OSSIRA_BENCH_MISSING_PEERS;
}

} // namespace Tavrik::Ossira::tBench
