// Bytes of heap that objects and entries take.
#pragma once

#include <string>
#include <vector>

namespace Tavrik::Ossira::tBench
{

struct HeapUse
{
    std::string What;
    double Bytes;
};

[[nodiscard]] std::vector<HeapUse> MeasureHeap();

} // namespace Tavrik::Ossira::tBench
