// A module whose class uses a class of another module. It knows the other's header and the class
// identifier in it, never its file: the object factory knows which module that is and loads it.
#include "Doorman.h"
#include "Greeter.h"

#include "OssiraFrame.h"
#include "OssiraServices.h"
#include "Sample.h"

namespace Tavrik::Samples
{

using namespace Ossira;

namespace
{

// `CreateObject(CLSID_Greeter, greeter)` would do as well: the runtime asks the factory for every
// class that it does not have itself.
ObjectPtr<IGreeter> NewGreeter()
{
    ObjectPtr<ISingleton> singletons;
    OSSIRA_CHECK_CALL(CreateObject(CLSID_GlobalSingleton, singletons),
                      "CreateObject(CLSID_GlobalSingleton, )");
    ObjectPtr<IObjectFactory> factory;
    OSSIRA_CHECK_CALL(singletons->GetClassObject(CLSID_GlobalObjectFactory, IObjectFactory::Iid,
                                                 factory.PutVoid()),
                      "GetClassObject(CLSID_GlobalObjectFactory, )");
    ObjectPtr<IGreeter> greeter;
    OSSIRA_CHECK_CALL(factory->GetClassObject(CLSID_Greeter, IGreeter::Iid, greeter.PutVoid()),
                      "GetClassObject(CLSID_Greeter, )");
    return greeter;
}

class T_Doorman : public ISample, public CObjectIdentity<T_Doorman>, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_Doorman;
    static constexpr std::string_view ClassName = "Doorman";

    OSSIRA_INTERFACES(ISample, IObjectIdentity)

    Result Describe(IValue* text) override
    try
    {
        OSSIRA_CHECK_POINTER(text);
        ObjectPtr<IValue> greeting;
        OSSIRA_CHECK_CALL(CreateValue(greeting.Put()), "CreateValue(&greeting)");
        OSSIRA_CHECK_CALL(NewGreeter()->Greet(L"guest", greeting.Get()),
                          "greeter->Greet(guest, greeting)");
        std::wstring words;
        OSSIRA_CHECK_CALL(GetValueUniString(greeting.Get(), &words),
                          "GetValueUniString(greeting, &words)");
        OSSIRA_CHECK_CALL(SetValueUniString(text, L"My greeter says: " + words),
                          "SetValueUniString(text, )");
        return S_OK;
    }
    OSSIRA_CATCH_RETURN
};

} // namespace

OSSIRA_CLASS(T_Doorman, "Doorman")

} // namespace Tavrik::Samples
