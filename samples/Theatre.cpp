// A module that takes part in start-up and clean-up, at two levels: the lights go on before the
// curtain rises, and go off after it has come down.
//
// The bootstrap lets go of an object when its `Startup` is done, and makes another one of the same
// class for `Cleanup`. What shall live in between goes into the singleton registry, as the lights
// do; there everybody else finds it, too.
#include "Theatre.h"

#include "OssiraFrame.h"
#include "OssiraServices.h"
#include "Sample.h"

namespace Tavrik::Samples
{

using namespace Ossira;

namespace
{

ObjectPtr<ISingleton> Singletons()
{
    ObjectPtr<ISingleton> singletons;
    OSSIRA_CHECK_CALL(CreateObject(CLSID_GlobalSingleton, singletons),
                      "CreateObject(CLSID_GlobalSingleton, )");
    return singletons;
}

bool LightsAreOn()
{
    ObjectPtr<ILights> lights;
    OSSIRA_CHECK_CALL(Singletons()->GetClassObject(CLSID_Lights, ILights::Iid, lights.PutVoid()),
                      "GetClassObject(CLSID_Lights, )");
    return lights->IsOn() == S_OK;
}

class T_Lights : public ILights,
                 public IBootstrap,
                 public ISample,
                 public CObjectIdentity<T_Lights>,
                 public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_Lights;
    static constexpr std::string_view ClassName = "Lights";

    OSSIRA_INTERFACES(ILights, IBootstrap, ISample, IObjectIdentity)

    Result IsOn() override
    {
        return mIsOn ? S_OK : S_FALSE;
    }

    Result Startup(IUnknown* param) override
    try
    {
        mIsOn = true;
        const Result entered =
            Singletons()->RegisterObject(CLSID_Lights, static_cast<ILights*>(this));
        OSSIRA_CHECK_CALL(entered, "RegisterObject(CLSID_Lights, )");
        return ReportToHost(param, CLSID_Lights, L"switched on");
    }
    OSSIRA_CATCH_RETURN

    // May come without a `Startup` before it: then there is nothing to switch off.
    Result Cleanup(IUnknown* param) override
    try
    {
        const Result removed = Singletons()->UnregisterObject(CLSID_Lights);
        OSSIRA_CHECK_CALL(removed, "UnregisterObject(CLSID_Lights)");
        return ReportToHost(param, CLSID_Lights,
                            removed == S_OK ? L"switched off" : L"found them off");
    }
    OSSIRA_CATCH_RETURN

    Result Describe(IValue* text) override
    {
        return SetValueUniString(text, L"I am a new set of lights, not the one of this house.");
    }

private:
    bool mIsOn = false;
};

class T_Curtain : public IBootstrap,
                  public ISample,
                  public CObjectIdentity<T_Curtain>,
                  public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_Curtain;
    static constexpr std::string_view ClassName = "Curtain";

    OSSIRA_INTERFACES(IBootstrap, ISample, IObjectIdentity)

    // The first class that fails ends the whole start-up.
    Result Startup(IUnknown* param) override
    try
    {
        OSSIRA_CHECK(LightsAreOn(), E_FAIL, "The curtain does not rise in the dark");
        return ReportToHost(param, CLSID_Curtain, L"rose, with the lights on");
    }
    OSSIRA_CATCH_RETURN

    Result Cleanup(IUnknown* param) override
    {
        return ReportToHost(param, CLSID_Curtain, L"came down");
    }

    Result Describe(IValue* text) override
    try
    {
        return SetValueUniString(text, LightsAreOn() ? L"I hang in a lit house."
                                                     : L"I hang in a dark house.");
    }
    OSSIRA_CATCH_RETURN
};

} // namespace

OSSIRA_CLASS(T_Lights, "Lights")
OSSIRA_CLASS(T_Curtain, "Curtain")

OSSIRA_BOOTSTRAP(CLSID_Lights, BootstrapRegistryStartup_Level0, GUID_Null, "Lights")
OSSIRA_BOOTSTRAP(CLSID_Curtain, BootstrapRegistryStartup_Level2, GUID_Null, "Curtain")
OSSIRA_BOOTSTRAP(CLSID_Curtain, BootstrapRegistryCleanup_Level2, GUID_Null, "Curtain")
OSSIRA_BOOTSTRAP(CLSID_Lights, BootstrapRegistryCleanup_Level0, GUID_Null, "Lights")

} // namespace Tavrik::Samples
