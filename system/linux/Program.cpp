// Arguments are bytes, terminals take UTF-8, and the debug output is standard error: nothing is
// left to do.
#include "Program.h"

namespace Tavrik::tSystem
{

std::vector<std::string> ProgramArguments(int argc, char** argv)
{
    return {argv + (argc > 0 ? 1 : 0), argv + argc};
}

void PrepareOutput()
{
}

} // namespace Tavrik::tSystem
