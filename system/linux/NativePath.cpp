// Wide paths come from callers that think in backslashes, and from listings of names that are
// bytes; both end here.
#include "NativePath.h"

#include "../Platform.h"
#include "../WideText.h"

#include <algorithm>

namespace Tavrik::tSystem
{

const wchar_t PathSeparator = L'/';
const bool FileNamesAreBytes = true;

std::string NativePath(std::wstring_view path)
{
    std::wstring native(path.substr(0, path.find(L'\0')));
    std::replace(native.begin(), native.end(), L'\\', L'/');
    return ToUtf8(native);
}

} // namespace Tavrik::tSystem
