// What a host has to bear with: an object that throws where it is asked to describe itself, beside
// one that does not, which starts at two levels and says how often it did.
#include "TestModules.h"

#include "OssiraFrame.h"
#include "Sample.h"

#include <stdexcept>

using namespace Tavrik::Ossira;
using namespace Tavrik::Ossira::tTest;

namespace
{

constexpr CLSID CLSID_Thrower = Numbered(1, 8);
constexpr CLSID CLSID_Starter = Numbered(2, 8);

std::atomic<int> gStarts = 0;

class T_Thrower : public Tavrik::Samples::ISample, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_Thrower;
    OSSIRA_INTERFACES(Tavrik::Samples::ISample)

    Result Describe(IValue*) override
    {
        throw std::runtime_error("thrown on purpose");
    }
};

class T_Starter : public Tavrik::Samples::ISample, public IBootstrap, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_Starter;
    OSSIRA_INTERFACES(Tavrik::Samples::ISample, IBootstrap)

    Result Describe(IValue* text) override
    {
        return SetValueUniString(text, L"I start.");
    }

    Result Startup(IUnknown* param) override
    {
        const std::wstring text = L"start number " + std::to_wstring(++gStarts);
        return Tavrik::Samples::ReportToHost(param, CLSID_Starter, text.c_str());
    }

    Result Cleanup(IUnknown*) override
    {
        return S_OK;
    }
};

} // namespace

OSSIRA_CLASS(T_Thrower, "Thrower")
OSSIRA_CLASS(T_Starter, "Starter")
OSSIRA_BOOTSTRAP(CLSID_Starter, BootstrapRegistryStartup_Level0, GUID_Null, "Starter")
OSSIRA_BOOTSTRAP(CLSID_Starter, BootstrapRegistryStartup_Level2, GUID_Null, "Starter")
