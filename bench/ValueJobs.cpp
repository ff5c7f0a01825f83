// Values set and read again. Runtime and limit are both values and go through the same loop.
#include "Job.h"
#include "Limits.h"
#include "OssiraClasses.h"

#include <any>
#include <array>
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

template <std::size_t Size>
void SetAndReadAny(benchmark::State& state)
{
    std::mutex mutex;
    std::any value;
    std::array<unsigned char, Size> in = {};
    const CRoundReport report(state);
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(in);
        {
            const std::lock_guard guard(mutex);
            value = in;
        }
        const std::lock_guard guard(mutex);
        auto out = std::any_cast<std::array<unsigned char, Size>>(value);
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
    return {{"runtime", setAndRead(value)},
            {"tagged copy under a spin word", setAndRead(MakeLimitValue())},
            {"std::any under a std::mutex", SetAndReadAny<Size>}};
}

} // namespace

std::vector<Job> ValueJobs()
{
    return {{"value of 4 bytes set and read", 1.5, Contenders<4>},
            {"value of 100 bytes set and read", 1.5, Contenders<LargeSize>}};
}

} // namespace Tavrik::Ossira::tBench
