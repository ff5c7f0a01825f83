// Values set and read again. The runtime's value and the limit that is a value too go through the
// same loop.
#include "Limits.h"
#include "OssiraClasses.h"
#include "Peers.h"
#include "SpinWord.h"

#include <array>
#include <cstring>
#include <mutex>

namespace Tavrik::Ossira::tBench
{

namespace
{

constexpr std::size_t LargeSize = 100;

[[gnu::noinline]] void SetAndRead(benchmark::State& state, IValue* value, std::int32_t size)
{
    std::array<unsigned char, LargeSize> in = {};
    std::array<unsigned char, LargeSize> out = {};
    Require(value->SetValue(DATATYPE_SINT32, in.data(), size), "SetValue");
    const CRoundReport report(state);
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(in);
        value->SetValue(DATATYPE_SINT32, in.data(), size);
        value->GetValue(DATATYPE_SINT32, out.data(), size);
        benchmark::DoNotOptimize(out);
    }
}

// Bytes of known size and their lock, without a type and without a call.
template <std::size_t Size>
void SetAndReadBytes(benchmark::State& state)
{
    SpinWord lock;
    std::array<unsigned char, Size> in = {};
    std::array<unsigned char, Size> value = {};
    std::array<unsigned char, Size> out = {};
    const CRoundReport report(state);
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(in);
        {
            const std::lock_guard guard(lock);
            value = in;
            benchmark::DoNotOptimize(value);
        }
        {
            const std::lock_guard guard(lock);
            out = value;
        }
        benchmark::DoNotOptimize(out);
    }
}

template <std::size_t Size>
[[nodiscard]] std::vector<Contender> Contenders()
{
    ObjectPtr<IValue> value;
    Require(CreateObject(CLSID_Value, value), "CreateObject");
    const auto setAndRead = [](const ObjectPtr<IValue>& object)
    {
        return [object](benchmark::State& state)
        {
            SetAndRead(state, object.Get(), static_cast<std::int32_t>(Size));
        };
    };
    std::vector<Contender> contenders = {{"runtime", setAndRead(value)},
                                         {"two spin pairs and the copies", SetAndReadBytes<Size>},
                                         {"the contract by hand: a type, virtual calls",
                                          setAndRead(MakeLimitValue()), Role::Contract}};
    AddPeers(contenders, Size == LargeSize ? Topic::LargeValue : Topic::SmallValue);
    return contenders;
}

} // namespace

Jobs ValueJobs()
{
    return {{"value of 4 bytes set and read", 1.3, Contenders<4>},
            {"value of 100 bytes set and read", 1.4, Contenders<LargeSize>}};
}

} // namespace Tavrik::Ossira::tBench
