// The smallest module there is.
#include <OssiraFrame.h>

using namespace Tavrik::Ossira;

namespace
{

class T_Hello : public CObjectIdentity<T_Hello>, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = {
        0x3D1C5C55, 0x0B9E, 0x4D0F, {0x9A, 0x3E, 0x77, 0x4C, 0x12, 0x5B, 0xE0, 0x61}};
    static constexpr std::string_view ClassName = "Hello";
    OSSIRA_INTERFACES(IObjectIdentity)
};

} // namespace

OSSIRA_CLASS(T_Hello, "Hello")
