// A class as it should be, or with the mistake whose number OSSIRA_MISTAKE is.
#include "OssiraFrame.h"
#include "OssiraModified.h"

using namespace Tavrik::Ossira;

namespace
{

struct IOwn : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = {1, 0, 0, {}};

protected:
    ~IOwn() = default;
};

class T_Mistaken : public ITouchModifiedChain,
                   public IOwn,
                   public CObjectName,
                   public COssiraUnknown
{
public:
#if OSSIRA_MISTAKE == 1
    static constexpr CLSID ClassId = GUID_Null;
#else
    static constexpr CLSID ClassId = {2, 0, 0, {}};
#endif

#if OSSIRA_MISTAKE == 2
    OSSIRA_INTERFACES(IOwn, IObjectName)
#elif OSSIRA_MISTAKE == 3
    OSSIRA_INTERFACES(ITouchModifiedChain, IOwn)
#elif OSSIRA_MISTAKE == 4
    OSSIRA_INTERFACES(ITouchModifiedChain, CObjectName)
#else
    OSSIRA_INTERFACES(ITouchModifiedChain, IOwn, IObjectName)
#endif

    Result Touch() override
    {
        return S_OK;
    }
};

OSSIRA_CLASS(T_Mistaken, "Mistaken")
#if OSSIRA_MISTAKE == 5
OSSIRA_CLASS_AS(T_Mistaken, GUID_Null, "Mistaken")
#endif

} // namespace
