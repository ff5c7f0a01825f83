// Keeps what was found out about module files between runs of the program, in a file beside the
// user's other caches. It is a help and nothing more: whatever cannot be read or written is as if
// it were not there.
#pragma once

#include "Examine.h"

#include <filesystem>
#include <mutex>
#include <optional>

namespace Tavrik::tHost
{

// Any thread may call.
class CVerdictCache
{
public:
    // `isFresh`: what was kept is not looked at, only written anew.
    explicit CVerdictCache(bool isFresh);

    // What is known of the very file that is there now.
    [[nodiscard]] std::optional<Json> Find(const std::string& file);

    void Keep(const std::string& file, const Json& found);

    // Writes what is new.
    void Save() noexcept;

private:
    std::mutex mMutex;
    std::filesystem::path mPath; // empty: nothing is kept
    Json mEntries = Json::object();
    bool mHasChanged = false;
};

} // namespace Tavrik::tHost
