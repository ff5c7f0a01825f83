#include "TestPlatform.h"
#include "linux/ElfFile.h"

namespace Tavrik::Ossira::tTest
{

std::string FaultOfLibrary(const std::filesystem::path& file)
{
    const tSystem::CElfFile library(file.c_str());
    return library.IsComplete() ? "" : library.Fault();
}

} // namespace Tavrik::Ossira::tTest
