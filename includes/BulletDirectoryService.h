// Scans a folder and walks what was found; it comes with the frame library.
//
// Unlike an interface it may throw, as checks do: an `IException*` when the scan cannot even be
// asked for, and `std::bad_alloc`. The boundary of the operation that uses it catches both. One
// thread at a time.
#pragma once

#include "OssiraCollections.h"
#include "OssiraPointer.h"

#include <string>

namespace Tavrik::Ossira
{

// Whether a bare file name is that of the runtime's own library, in whatever case: it is no module,
// and who reads a folder of modules passes it over. Null is not.
[[nodiscard]] bool IsRuntimeFile(const wchar_t* fileName) noexcept;

class CDirectoryCollection
{
public:
    // Scans anew and forgets what was found before; see `IDirectoryService`. A null `pattern`
    // leaves the choice to the service ("*.*"); a null `path` is not set either, which the service
    // refuses. Answers `E_FAIL` for a folder that cannot be read or in which nothing matches,
    // `E_OUTOFMEMORY` when there is no memory to read it.
    Result ScanDirectory(const wchar_t* path, const wchar_t* pattern);

    // To the next entry, the first one to begin with: `S_OK` on an entry, `S_FALSE` at the end,
    // `E_FAIL` beyond it and without a scan.
    Result MoveNext();

    // Reads the bare name of the current entry.
    Result CurrentItemPath(std::wstring* out);

private:
    Result InternalScanDirectory(const wchar_t* path, const wchar_t* pattern);

    ObjectPtr<IEnumerator> mEnumerator; // of what was found
};

} // namespace Tavrik::Ossira
