#include "TestPlatform.h"
#include "windows/PeFile.h"

#include <windows.h>

namespace Tavrik::Ossira::tTest
{

std::string FaultOfLibrary(const std::filesystem::path& file)
{
    return tSystem::WhyNotLoaded(file.wstring(), ERROR_BAD_EXE_FORMAT);
}

} // namespace Tavrik::Ossira::tTest
