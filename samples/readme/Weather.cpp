#include "OssiraFrame.h"
#include "Sample.h"

using namespace Tavrik::Ossira;
using namespace Tavrik::Samples;

// Make an identifier of your own for each class: uuidgen prints one.
constexpr CLSID CLSID_Weather = {
    0x809F7107, 0xA215, 0x4BAF, {0x8B, 0xF4, 0xD3, 0x59, 0xC6, 0x6F, 0x27, 0x20}};

namespace
{
class T_Weather : public ISample, public CObjectIdentity<T_Weather>, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_Weather;
    static constexpr std::string_view ClassName = "Weather";

    OSSIRA_INTERFACES(ISample, IObjectIdentity) // what the object can be asked for

    Result Describe(IValue* text) override
    {
        return SetValueUniString(text, L"Sunny, with a light breeze.");
    }
};
} // namespace

OSSIRA_CLASS(T_Weather, "Weather") // enters the class in the module's class table
