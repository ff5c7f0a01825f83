// A library that is no component module, only needed by one. It is built twice: the right one lies
// beside the module that needs it, the wrong one where a careless search would find it first.
#include "OssiraBase.h"

OSSIRA_EXPORT std::int32_t OssiraTestHelperAnswer()
{
    return OSSIRA_HELPER_ANSWER;
}
