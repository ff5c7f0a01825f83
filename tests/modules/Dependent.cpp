// A module that cannot be loaded without another library of its own folder.
#include "OssiraFrame.h"
#include "TestModules.h"

OSSIRA_IMPORT std::int32_t OssiraTestHelperAnswer();

namespace Tavrik::Ossira::tTest
{

namespace
{

class T_Dependent : public IBootstrap, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_Dependent;
    OSSIRA_INTERFACES(IBootstrap)

    Result Startup(IUnknown*) override
    {
        return OssiraTestHelperAnswer();
    }

    Result Cleanup(IUnknown*) override
    {
        return S_OK;
    }
};

OSSIRA_CLASS(T_Dependent, "Dependent")

} // namespace

} // namespace Tavrik::Ossira::tTest
