// What the factory and the CLSID registry know, read into plain structures.
#pragma once

#include "OssiraPointer.h"
#include "OssiraServices.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace Tavrik::tHost
{

struct KnownClass
{
    CLSID Id;
    std::string Text; // as the module describes it; may be empty
};

struct KnownModule
{
    std::wstring FileName; // as the factory knows it: folder and name
    std::vector<KnownClass> Classes;
};

struct KnownCategory
{
    GUID Id;
    std::vector<CLSID> Classes; // those that are in no group
};

// What a person is told when something that must succeed does not.
class CFailure : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// Throws a `CFailure` that says what was tried, and why it failed.
void Require(Ossira::Result code, const std::string& attempt);

// The singleton of a class.
template <class Interface>
[[nodiscard]] Ossira::ObjectPtr<Interface> GetSingleton(Ossira::ISingleton& singletons,
                                                        const CLSID& clsid, const char* name)
{
    Ossira::ObjectPtr<Interface> object;
    Require(singletons.GetClassObject(clsid, Interface::Iid, object.PutVoid()),
            std::string("Asking for ") + name);
    return object;
}

// Makes these (in UTF-8) the folders of which the bootstrap starts the modules.
void SetModuleFolders(Ossira::IMasterBootstrap& bootstrap, const std::vector<std::string>& folders);

[[nodiscard]] std::vector<KnownModule> ReadModules(Ossira::IObjectFactory& factory);

// The start-up categories by level, the clean-up categories in the order in which they run, that of
// the datatypes, then the others.
[[nodiscard]] std::vector<KnownCategory> ReadCategories(Ossira::IClsidRegistry& registry);

// The number of a module's live objects; nothing when it is not loaded.
[[nodiscard]] std::optional<std::uint32_t> ReadLiveObjects(Ossira::IObjectFactory& factory,
                                                           const std::wstring& fileName);

// The name of a category that the runtime itself asks for; empty for any other.
[[nodiscard]] std::string CategoryName(const GUID& category);

// The place of a category of that name in the order in which a process comes to them.
[[nodiscard]] std::size_t CategoryRank(const std::string& name);

} // namespace Tavrik::tHost
