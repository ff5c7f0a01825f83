// Folders of modules registered, and objects of modules created. The modules of the folders are
// copies of one built file, each with identifiers of its own for its classes, so that every class
// is entered in the tables. The times are per module: if the runtime's exceed the limit's by the
// same in folders of every size, its part is linear.
#include "Greeter.h"
#include "Limits.h"
#include "Objects.h"
#include "OssiraClasses.h"
#include "Peers.h"
#include "modules/BenchModule.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <stdlib.h>
#include <string_view>

namespace Tavrik::Ossira::tBench
{

namespace
{

namespace fs = std::filesystem;

// Replaces the first half of an identifier wherever it stands in the file.
void Renumber(std::string& file, const GUID& guid, std::uint32_t number)
{
    const std::string_view former(reinterpret_cast<const char*>(&guid), 8);
    std::string replacement(former);
    std::memcpy(replacement.data(), &number, sizeof number);
    std::size_t found = 0;
    for (std::size_t at = 0; (at = file.find(former, at)) != std::string::npos; ++found)
        file.replace(at, former.size(), replacement);
    if (found == 0)
        throw std::runtime_error("the module's class identifier is not in its file");
}

[[nodiscard]] fs::path ProgramFolder()
{
    return fs::read_symlink("/proc/self/exe").parent_path();
}

[[nodiscard]] std::string Content(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error("cannot read " + path.string());
    return {std::istreambuf_iterator<char>(file), {}};
}

class CModuleFolder
{
public:
    explicit CModuleFolder(std::uint32_t count)
    {
        std::string name = (fs::temp_directory_path() / "ossira-bench-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("cannot make " + name);
        mPath = name;
        const std::string original = Content(ProgramFolder() / "bench-modules" / "BenchModule.dll");
        for (std::uint32_t number = 1; number <= count; ++number)
        {
            std::string file = original;
            Renumber(file, CLSID_BenchFirst, 2 * number);
            Renumber(file, CLSID_BenchSecond, 2 * number + 1);
            std::ofstream(mPath / ("Module" + std::to_string(number) + ".dll"), std::ios::binary)
                << file;
        }
    }

    CModuleFolder(const CModuleFolder&) = delete;
    CModuleFolder& operator=(const CModuleFolder&) = delete;

    ~CModuleFolder()
    {
        std::error_code ignored;
        fs::remove_all(mPath, ignored);
    }

    [[nodiscard]] const fs::path& Path() const noexcept
    {
        return mPath;
    }

private:
    fs::path mPath;
};

// The factory and the registry to fill, new for every round; with the factory the modules go.
struct Tables
{
    Tables()
    {
        Require(CreateObject(CLSID_ObjectFactory, Factory), "CreateObject");
        Require(CreateObject(CLSID_ClsidRegistry, Registry), "CreateObject");
        Require(CreateObject(CLSID_ClassRegisterService, Service), "CreateObject");
        Require(Service->SetFactory(Factory.Get()), "SetFactory");
    }

    [[nodiscard]] Result Register(const fs::path& folder) const
    {
        return Service->RegisterFolder(folder.wstring().c_str(), nullptr, Registry.Get(), nullptr);
    }

    [[nodiscard]] std::size_t ClassCount() const
    {
        ObjectPtr<IEnumerator> classes;
        Require(Factory->GetClasses(IID_IEnumerator, classes.PutVoid()), "GetClasses");
        std::size_t count = 0;
        while (classes->MoveNext() == S_OK)
            ++count;
        return count;
    }

    ObjectPtr<IObjectFactory> Factory;
    ObjectPtr<IClsidRegistry> Registry;
    ObjectPtr<IClassRegisterService> Service;
};

// Making the tables and unloading the modules again are not part of the time.
[[nodiscard]] Body RepeatWithTables(auto work, std::size_t items)
{
    struct Made
    {
        Tables Into;
        decltype(work(Into)) Loaded = {};
    };
    return RepeatWithNew([] { return std::make_unique<Made>(); },
                         [work](const auto& made) { made->Loaded = work(made->Into); }, items);
}

[[nodiscard]] auto RegisterInto(const std::shared_ptr<CModuleFolder>& folder)
{
    return [folder](const Tables& tables)
    {
        return tables.Register(folder->Path());
    };
}

[[nodiscard]] std::vector<Contender> RegisterContenders(std::uint32_t count)
{
    const auto folder = std::make_shared<CModuleFolder>(count);
    const auto loadBare = [folder](const Tables& tables)
    {
        return std::make_unique<LimitModules>(folder->Path().string(), tables.Registry.Get());
    };
    const auto registerFolder = RegisterInto(folder);
    {
        const Tables tables;
        Require(registerFolder(tables), "RegisterFolder");
        if (tables.ClassCount() != 2 * count || loadBare(tables)->ClassCount() != 2 * count)
            throw std::runtime_error("not every class was registered");
    }
    return {{"runtime", RepeatWithTables(registerFolder, count)},
            {"the loader's calls", RepeatWithTables(loadBare, count)}};
}

[[nodiscard]] Body CreateBy(const std::shared_ptr<const Tables>& tables, const CLSID& clsid)
{
    return [tables, clsid](benchmark::State& state)
    {
        const CRoundReport report(state);
        for (auto _ : state)
        {
            ObjectPtr<IUnknown> object;
            if (Failed(tables->Factory->GetClassObject(clsid, IID_IUnknown, object.PutVoid())))
                state.SkipWithError("GetClassObject");
        }
    };
}

// An object of the middle one of so many modules.
[[nodiscard]] Contender CreateContender(std::uint32_t count)
{
    const CModuleFolder folder(count);
    const auto tables = std::make_shared<Tables>();
    Require(tables->Register(folder.Path()), "RegisterFolder");
    CLSID clsid = CLSID_BenchFirst;
    clsid.Data1 = 2 * (count / 2 + 1);
    return {std::to_string(count), CreateBy(tables, clsid)};
}

[[nodiscard]] std::shared_ptr<Tables> TablesWithSamples()
{
    const auto tables = std::make_shared<Tables>();
    Require(tables->Register(ProgramFolder() / "modules"), "RegisterFolder");
    return tables;
}

[[nodiscard]] std::vector<Contender> SampleContenders()
{
    std::vector<Contender> contenders = {
        {"runtime", CreateBy(TablesWithSamples(), Samples::CLSID_Greeter)},
        {LimitOfCreation, AllocateAndFree}};
    AddPeers(contenders, Topic::ModuleClass);
    return contenders;
}

void RegisterAll(IObjectFactory& factory, const Keys& keys)
{
    for (const GUID& key : keys)
        Require(factory.RegisterClass(key, nullptr, nullptr), "RegisterClass");
}

} // namespace

Body RegisterClasses(std::size_t size)
{
    return RepeatWithNew(
        [] { return std::make_unique<Tables>(); },
        [keys = MakeKeys(size)](const auto& tables) { RegisterAll(*tables->Factory, keys); }, size);
}

Body CreateAmongClasses(std::size_t size)
{
    const auto tables = TablesWithSamples();
    RegisterAll(*tables->Factory, MakeKeys(size));
    return CreateBy(tables, Samples::CLSID_Greeter);
}

Body RegisterModules(std::size_t count)
{
    const auto folder = std::make_shared<CModuleFolder>(static_cast<std::uint32_t>(count));
    return RepeatWithTables(RegisterInto(folder), count);
}

Objects MakeSampleObjects(std::size_t count)
{
    static const auto tables = TablesWithSamples();
    Objects objects(count);
    for (ObjectPtr<IUnknown>& object : objects)
        Require(
            tables->Factory->GetClassObject(Samples::CLSID_Greeter, IID_IUnknown, object.PutVoid()),
            "GetClassObject");
    return objects;
}

Jobs ModuleJobs()
{
    Jobs jobs = {
        {"module's class created by the factory and released", NoReach, SampleContenders, 1.0},
        {"factory: object of one of its modules, 200", 1.3,
         [] {
             return std::vector{CreateContender(200), CreateContender(1), CreateContender(100)};
         },
         NoReach, Kind::Growth}};
    for (const auto& [count, reach] : {std::pair{50u, NoReach}, {100u, NoReach}, {200u, 1.15}})
    {
        jobs.push_back({"one of " + std::to_string(count) + " modules registered from a folder",
                        reach,
                        [count = count]
                        {
                            return RegisterContenders(count);
                        }});
    }
    return jobs;
}

} // namespace Tavrik::Ossira::tBench
