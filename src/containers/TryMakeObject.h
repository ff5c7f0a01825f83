// Making an object where a failed check has to say which one could not be made.
#pragma once

#include "OssiraFrame.h"

namespace Tavrik::Ossira
{

// As `MakeObject`, but null when memory is exhausted.
template <class Implementation, class... Arguments>
[[nodiscard]] ObjectPtr<CComInstanceNoLock<Implementation>> TryMakeObject(Arguments&&... arguments)
try
{
    return MakeObject<Implementation>(std::forward<Arguments>(arguments)...);
}
catch (const std::bad_alloc&)
{
    return {};
}

} // namespace Tavrik::Ossira
