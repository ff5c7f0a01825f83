// Hosts that end without clean-up. Each scenario is a process of its own, which has to end with the
// code that its host answers, and in time.
#include "TestPlatform.h"

#include <gtest/gtest.h>

namespace Tavrik::Ossira::tTest
{

namespace
{

void ExpectToEndWell(const std::string& program, const std::vector<std::string>& scenarios)
{
    const std::filesystem::path self = ProgramPath();
    std::filesystem::path file = self.parent_path() / program;
    file.replace_extension(self.extension());
    for (const std::string& scenario : scenarios)
    {
        const ProgramResult result = RunProgram(file, {scenario}, std::chrono::seconds(60));
        EXPECT_EQ(result.ExitCode, 0) << program << " " << scenario << "\n" << result.Output;
    }
}

const std::vector<std::string> Endings = {"return", "exit", "busy-thread", "lock-held",
                                          "static-reference"};

TEST(Exit, AHostLinkedToTheRuntimeMayEndWithoutCleanUp)
{
    ExpectToEndWell("ossira_exit_linked", Endings);
}

TEST(Exit, AHostThatLoadedTheRuntimeMayEndWithoutCleanUp)
{
    ExpectToEndWell("ossira_exit_loaded", Endings);
}

TEST(Exit, AHostMayUnloadTheRuntimeWithoutCleanUp)
{
    ExpectToEndWell("ossira_exit_loaded", {"unload", "unload-with-module"});
}

} // namespace

} // namespace Tavrik::Ossira::tTest
