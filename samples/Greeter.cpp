// The smallest useful module: one class with an interface of its own. Other modules and the host
// know `Greeter.h` and nothing of this file.
#include "Greeter.h"

#include "OssiraFrame.h"
#include "Sample.h"

namespace Tavrik::Samples
{

using namespace Ossira;

namespace
{

class T_Greeter : public IGreeter,
                  public ISample,
                  public CObjectIdentity<T_Greeter>,
                  public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_Greeter;
    static constexpr std::string_view ClassName = "Greeter";

    // What the object can be asked for. The first one is its primary interface.
    OSSIRA_INTERFACES(IGreeter, ISample, IObjectIdentity)

    Result Greet(const wchar_t* name, IValue* greeting) override
    try
    {
        OSSIRA_CHECK_POINTER(name);
        OSSIRA_CHECK_POINTER(greeting);
        OSSIRA_CHECK(*name != L'\0', E_INVALIDARG, "The name is empty");
        const std::wstring text = L"Hello, " + std::wstring(name) + L"!";
        OSSIRA_CHECK_CALL(SetValueUniString(greeting, text), "SetValueUniString(greeting, )");
        return S_OK;
    }
    OSSIRA_CATCH_RETURN

    Result Describe(IValue* text) override
    {
        return Greet(L"whoever runs this", text);
    }
};

} // namespace

OSSIRA_CLASS(T_Greeter, "Greeter")

} // namespace Tavrik::Samples
