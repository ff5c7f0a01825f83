// What clang reads in front of every source whose guards it looks at: the names of functions, which
// reports put together while compiling, take it a second for each check and prove nothing.
#include "OssiraCheck.h"

#undef OSSIRA_LOCATION
#define OSSIRA_LOCATION(name)                                                                      \
    static constexpr ::Tavrik::Ossira::SourceLocation name                                         \
    {                                                                                              \
        __FILE__, __LINE__, ""                                                                     \
    }
