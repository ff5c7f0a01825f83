// Module files with random damage: whatever is changed in one, what reads it stays in it, and no
// file that is not all there gets as far as the system's loader.
#include "Platform.h"
#include "RandomProgram.h"

#include <algorithm>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

class DamageModel final : public RandomModel
{
public:
    void Step() override
    {
        std::string image = mImage;
        const std::uint32_t kept = Below(image.size() - 64);
        const std::uint32_t die = Below(8);
        if (die == 0)
            image.resize(kept);
        else if (die == 1) // as a copy that is under way
            std::fill(image.begin() + kept, image.end(), '\0');
        for (std::uint32_t count = die < 2 ? 0 : 1 + Below(3); count > 0; --count)
            Change(image);
        const auto file = mFolder.Write("damaged.dll", image);
        const std::string fault = FaultOfLibrary(file);
        if (die > 1 || !tSystem::FileNamesAreBytes) // elsewhere the system's loader decides
            return;
        tSystem::CLibrary library;
        EXPECT_FALSE(library.Open(file.wstring().c_str())) << kept;
        EXPECT_EQ(library.FailureText(), fault);
        EXPECT_NE(fault, "");
    }

    void Check() override
    {
    }

private:
    // Numbers of any size, most of them where the tables lie, change, or change places.
    void Change(std::string& image)
    {
        const std::size_t size = std::size_t{1} << Below(4);
        const std::size_t first = Below(4) == 0 ? image.size() - 4096 : 0;
        const std::size_t at = first + Below(4096 / size) * size;
        if (const std::uint32_t die = Below(4); die == 0)
            std::swap_ranges(&image[at], &image[at] + size,
                             &image[first + Below(4096 / size) * size]);
        else if (die == 1)
            std::fill_n(&image[at], size, Below(2) == 0 ? '\0' : '\xFF');
        else
            image[at] = static_cast<char>(Below(256));
    }

    const TempFolder mFolder;
    const std::string mImage = ReadFile(ModuleFile("raw", "Decent"));
};

TEST(DamagedModules, AreReadWithoutHarmAndRefusedWhenTheyAreNotAllThere)
{
    RunProgram<DamageModel>(400);
}

} // namespace
} // namespace Tavrik::Ossira
