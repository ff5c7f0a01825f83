// The code of docs/hosts.md, docs/diagnostics.md and docs/contract.md, put together.
#include "HostHead.inc"

#include "ModuleExports.h"

#include <cstring>

// Declared again as the document has them: another signature would not compile.
namespace Tavrik::Ossira
{
#undef OSSIRA_EXPORT
#define OSSIRA_EXPORT OSSIRA_API
#include "ModuleExports.inc"
} // namespace Tavrik::Ossira

namespace
{
// In the order in which they need each other.
// clang-format off
#include "HostLog.inc"
#include "HostStart.inc"
#include "HostUse.inc"
#include "HostMain.inc"
#include "Levels.inc"
#include "OwnLines.inc"
// clang-format on
} // namespace

int main(int count, char** arguments)
{
    if (count == 2 && std::strcmp(arguments[1], "lines") == 0)
    {
        ShowWarningsToo();
        TellOfTheWeather(40);
        return 0;
    }
    std::vector<std::wstring> folders;
    for (const wchar_t* folder : {L"absent", L"modules"})
        folders.emplace_back(folder);
    return Run(folders);
}
