// Hands the process-wide lock to component modules, so that they can serialise their own work with
// the creation and the release of singletons. Every instance stands for the same lock.
#include "Library.h"
#include "OssiraClasses.h"

namespace Tavrik::Ossira
{

namespace
{

class T_GlobalCriticalSection : public ICriticalSection, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_GlobalCriticalSection;

    OSSIRA_INTERFACES(ICriticalSection)

    Result Lock() OSSIRA_TAKES(GlobalCriticalSection()) override
    {
        GlobalCriticalSection().lock();
        return S_OK;
    }

    Result Unlock() OSSIRA_GIVES(GlobalCriticalSection()) override
    {
        GlobalCriticalSection().unlock();
        return S_OK;
    }
};

} // namespace

OSSIRA_CLASS(T_GlobalCriticalSection, "GlobalCriticalSection - via gbCS")

} // namespace Tavrik::Ossira
