// Loads a library only after its file was found complete, and what it depends on from its own
// folder before it. The system's loader searches that folder only for libraries that were linked so
// (run path $ORIGIN), but it takes a library that is already loaded under the name it looks for; so
// those are loaded first, by their full paths, and given back once the library itself holds them.
// That does not help libraries that carry no name of their own (soname), or that need each other.
#include "../Platform.h"
#include "ElfFile.h"
#include "NativePath.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <dlfcn.h>
#include <unistd.h>
#include <utility>
#include <vector>

extern "C"
{
    // NOLINTBEGIN(bugprone-reserved-identifier): the linker's names for this library's own parts
    [[gnu::visibility("hidden")]] extern const Elf64_Dyn _DYNAMIC[];
    [[gnu::visibility("hidden")]] extern const unsigned char __ehdr_start[];
    // NOLINTEND(bugprone-reserved-identifier)
}

namespace Tavrik::tSystem
{

namespace
{

struct UnloadLibrary
{
    void operator()(void* library) const noexcept
    {
        dlclose(library);
    }
};

using LibraryHandle = std::unique_ptr<void, UnloadLibrary>;

// What a system call left as its error number; 0 stands for a file that has no fault but its
// content.
ELoadFailure FailureOf(int error) noexcept
{
    switch (error)
    {
    case 0:
        return ELoadFailure::NotALibrary;
    case ENOENT:
    case ENOTDIR:
        return ELoadFailure::NotFound;
    case ENOMEM:
        return ELoadFailure::NoMemory;
    case EMFILE:
    case ENFILE:
        return ELoadFailure::NoResources;
    case EIO:
        return ELoadFailure::Io;
    default:
        return ELoadFailure::Refused;
    }
}

// Of what the process lacks, so that nobody can tell whether the file would do.
bool IsShortage(ELoadFailure failure) noexcept
{
    return failure == ELoadFailure::NoMemory || failure == ELoadFailure::NoResources ||
           failure == ELoadFailure::Io;
}

struct Reason
{
    ELoadFailure Failure = ELoadFailure::None;
    std::string Text;
};

// The system's loader says in words why it failed; the number that it leaves tells shortages.
Reason ReasonOfLoader(int error)
{
    const char* const text = dlerror();
    const ELoadFailure failure = FailureOf(error);
    return {IsShortage(failure) ? failure : ELoadFailure::Refused,
            std::string("cannot be loaded: ") + (text == nullptr ? "for no reason given" : text)};
}

Reason ReasonOfFile(const CElfFile& file, const char* path)
{
    const ELoadFailure failure = FailureOf(file.Error());
    if (file.Error() == 0)
        return {failure, file.Fault()};
    if (file.Error() != ENOENT)
        return {failure, std::string("cannot be read: ") + std::strerror(file.Error())};
    char target[PATH_MAX];
    const ssize_t size = readlink(path, target, sizeof target);
    if (size <= 0)
        return {failure, "does not exist"};
    return {failure, "is a broken link: it leads to \"" +
                         std::string(target, static_cast<std::size_t>(size)) +
                         "\", which does not exist"};
}

LibraryHandle MapLibrary(const char* path, Reason& reason)
{
    errno = 0;
    LibraryHandle library(dlopen(path, RTLD_NOW | RTLD_LOCAL));
    reason = library ? Reason() : ReasonOfLoader(errno);
    return library;
}

// Where nobody can tell, opening it will.
bool Exists(const std::string& path)
{
    return access(path.c_str(), F_OK) == 0 || IsShortage(FailureOf(errno));
}

// Whether this library needs that one too, or is it: then it is loaded, and the folder need not be
// asked. Most modules need nothing else.
bool IsLoadedWithThisLibrary(const char* name) noexcept
{
    const Elf64_Dyn* table = _DYNAMIC;
    while (table->d_tag != DT_STRTAB) // none is without
        ++table;
    // Some loaders leave there what stands in the file.
    const auto begin = reinterpret_cast<std::uintptr_t>(__ehdr_start);
    const std::uint64_t names = table->d_un.d_ptr + (table->d_un.d_ptr < begin ? begin : 0);
    for (const Elf64_Dyn* entry = _DYNAMIC; entry->d_tag != DT_NULL; ++entry)
    {
        if ((entry->d_tag == DT_NEEDED || entry->d_tag == DT_SONAME) &&
            std::strcmp(reinterpret_cast<const char*>(names + entry->d_un.d_val), name) == 0)
            return true;
    }
    return false;
}

bool IsLoaded(const char* name)
{
    return LibraryHandle(dlopen(name, RTLD_LAZY | RTLD_NOLOAD)) != nullptr;
}

// Loads the libraries of one folder that a library needs, and keeps them as long as it lives.
class CNeighbours
{
public:
    explicit CNeighbours(std::string_view folder) noexcept : mFolder(folder)
    {
    }

    // False when a file, or one that it needs, is not complete or cannot be read.
    bool LoadNeeded(const char* path, int level)
    {
        constexpr int levelLimit = 8;

        CElfFile file(path);
        if (!file.IsComplete())
        {
            mReason = ReasonOfFile(file, path);
            if (level > 0)
                mReason.Text = "needs \"" + std::string(path) + "\", which " + mReason.Text;
            return false;
        }
        const std::size_t count = level < levelLimit ? file.NeededCount() : 0;
        char name[CElfFile::NameLimit];
        for (std::size_t index = 0; index < count; ++index)
        {
            if (file.ReadNeeded(index, name) && !LoadNeighbour(name, level + 1))
                return false;
        }
        return true;
    }

    [[nodiscard]] const Reason& WhyNot() const noexcept
    {
        return mReason;
    }

private:
    bool LoadNeighbour(const char* name, int level)
    {
        if (std::strchr(name, '/') != nullptr || IsLoadedWithThisLibrary(name))
            return true;
        const std::string path = std::string(mFolder) + name;
        if (!Exists(path) || IsLoaded(name) ||
            std::find(mVisited.begin(), mVisited.end(), path) != mVisited.end())
            return true;
        mVisited.push_back(path);
        if (!LoadNeeded(path.c_str(), level))
            return false;
        // If this one is refused, so will be the library that needs it, unless the system finds
        // another.
        mHandles.push_back(MapLibrary(path.c_str(), mReason));
        return !IsShortage(mReason.Failure);
    }

    std::string_view mFolder; // ends in a slash
    std::vector<std::string> mVisited;
    std::vector<LibraryHandle> mHandles;
    Reason mReason;
};

// Takes a path with a slash in it.
LibraryHandle LoadFile(const std::string& path, Reason& reason)
{
    const std::string_view folder = std::string_view(path).substr(0, path.rfind('/') + 1);
    CNeighbours neighbours(folder);
    if (!neighbours.LoadNeeded(path.c_str(), 0))
    {
        reason = neighbours.WhyNot();
        return nullptr;
    }
    return MapLibrary(path.c_str(), reason);
}

// The folder of the program that runs, with a slash at its end; the current one when it cannot be
// told.
std::string HostFolder()
{
    char program[PATH_MAX];
    const ssize_t size = readlink("/proc/self/exe", program, sizeof program);
    if (size <= 0)
        return "./";
    const std::string_view path(program, static_cast<std::size_t>(size));
    return std::string(path.substr(0, path.rfind('/') + 1));
}

// A bare name is looked for where Windows looks first. Where a file of that name is, it decides.
LibraryHandle LoadByName(const std::string& name, Reason& reason)
{
    for (const std::string& folder : {HostFolder(), std::string("./")})
    {
        const std::string path = folder + name;
        if (Exists(path))
            return LoadFile(path, reason);
    }
    return MapLibrary(name.c_str(), reason);
}

} // namespace

bool CLibrary::Open(const wchar_t* path)
{
    Close();
    mFailure = ELoadFailure::NotFound;
    mFailureText = "has no name";
    const std::string native = NativePath(path);
    if (native.empty()) // the loader would answer with the program itself
        return false;
    const bool isBareName = native.find('/') == std::string::npos;
    Reason reason;
    mHandle = (isBareName ? LoadByName(native, reason) : LoadFile(native, reason)).release();
    mFailure = reason.Failure;
    mFailureText.swap(reason.Text);
    return IsOpen();
}

void CLibrary::Close() noexcept
{
    LibraryHandle(std::exchange(mHandle, nullptr)).reset();
}

void* CLibrary::Find(const char* name) const noexcept
{
    return mHandle != nullptr && name != nullptr ? dlsym(mHandle, name) : nullptr;
}

} // namespace Tavrik::tSystem
