// The class behind CLSID_%NAME%.
#include "%NAME%.h"

#include <OssiraFrame.h>

#include <atomic>

namespace %NAME%Module
{

namespace Oss = Tavrik::Ossira;

class T_%NAME% : public I%NAME%, public Oss::CObjectIdentity<T_%NAME%>, public Oss::COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_%NAME%;
    static constexpr std::string_view ClassName = "%NAME%";

    OSSIRA_INTERFACES(I%NAME%, Oss::IObjectIdentity) // what an object can be asked for

    Oss::Result Count() override
    {
        return ++mCount;
    }

private:
    std::atomic<Oss::Result> mCount = 0;
};

} // namespace %NAME%Module

OSSIRA_CLASS(%NAME%Module::T_%NAME%, "%NAME%") // enters it in the module's class table
