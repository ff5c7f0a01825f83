// The files of tools/ossira/templates, as they were when the program was built.
#pragma once

#include <span>
#include <string_view>

namespace Tavrik::tHost
{

struct Template
{
    std::string_view Name; // "module/CMakeLists.txt"
    std::string_view Text;
};

extern const std::span<const Template> Templates;

} // namespace Tavrik::tHost
