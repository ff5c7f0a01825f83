// Debug output is what a debugger or a debug viewer listens to.
#include "../Platform.h"

#include <windows.h>

namespace Tavrik::tSystem
{

CNoCancellation::CNoCancellation() noexcept = default;
CNoCancellation::~CNoCancellation() = default;

void WriteDebugText(const char* text) noexcept
{
    // A line may be written between a failed call and the look at its error number.
    const DWORD callersError = GetLastError();
    OutputDebugStringA(text);
    SetLastError(callersError);
}

} // namespace Tavrik::tSystem
