// One JSON object: for each full path what the file was like, and what was found. It is written to
// a file of another name first, so that two programs at once do not spoil it.
#include "VerdictCache.h"

#include "FilePath.h"
#include "OssiraVersion.h"
#include "Platform.h"
#include "Program.h"
#include "WideText.h"

#include <fstream>

namespace Tavrik::tHost
{

namespace
{

namespace fs = std::filesystem;

// Of what is written. The findings change with the program that makes them.
constexpr const char* Format = "1 of ossira " OSSIRA_VERSION_TEXT;

std::string FullName(const std::string& file)
{
    return tSystem::ToUtf8(tSystem::AbsolutePath(tSystem::FromUtf8(file)));
}

// Size and time; null for what has none.
Json Likeness(const std::string& file)
{
    std::error_code error;
    const fs::path path = FilePath(file);
    if (!fs::is_regular_file(path, error))
        return nullptr;
    const std::uintmax_t size = fs::file_size(path, error);
    const fs::file_time_type time = fs::last_write_time(path, error);
    if (error)
        return nullptr;
    return {size, time.time_since_epoch().count()};
}

} // namespace

CVerdictCache::CVerdictCache(bool isFresh)
{
    const std::string folder = tSystem::UserCacheFolder();
    if (folder.empty())
        return;
    mPath = FilePath(folder) / "ossira" / "verdicts.json";
    std::ifstream file(mPath);
    if (isFresh || !file)
        return;
    const Json content = Json::parse(file, nullptr, false);
    if (content.is_object() && content.value("format", Json()) == Format &&
        content.value("files", Json()).is_object())
        mEntries = content["files"];
}

std::optional<Json> CVerdictCache::Find(const std::string& file)
{
    const std::lock_guard guard(mMutex);
    const auto entry = mEntries.find(FullName(file));
    if (entry == mEntries.end() || !entry->is_object() || !entry->contains("found") ||
        entry->value("like", Json()) != Likeness(file))
        return std::nullopt;
    Json found = (*entry)["found"];
    if (!found.is_object() || !found.value("verdict", Json()).is_string())
        return std::nullopt;
    found["file"] = file;
    return found;
}

void CVerdictCache::Keep(const std::string& file, const Json& found)
{
    const Json like = Likeness(file);
    if (like.is_null())
        return;
    const std::lock_guard guard(mMutex);
    mEntries[FullName(file)] = {{"like", like}, {"found", found}};
    mHasChanged = true;
}

void CVerdictCache::Save() noexcept
try
{
    constexpr std::size_t limit = 5000; // files; a cache that only grows is no cache
    if (mPath.empty() || !mHasChanged)
        return;
    if (mEntries.size() > limit)
        mEntries = Json::object();
    const Json content = {{"format", Format}, {"files", mEntries}};
    std::error_code error;
    fs::create_directories(mPath.parent_path(), error);
    fs::path draft = mPath;
    draft += "." + std::to_string(tSystem::UnguessableNumber());
    bool isWritten = false;
    {
        std::ofstream file(draft);
        file << content.dump(-1, ' ', false, Json::error_handler_t::replace);
        isWritten = file.flush().good();
    }
    if (isWritten)
        fs::rename(draft, mPath, error);
    if (!isWritten || error)
        fs::remove(draft, error);
}
catch (const std::exception&)
{
}

} // namespace Tavrik::tHost
