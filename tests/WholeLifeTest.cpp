// What the runtime tells of itself from start-up to clean-up, line by line, beside the record in
// life/WholeLife.txt. Addresses, line numbers and counts of time are left out of both, and folders
// are shortened. Where the record is to change, the test prints what it should be.
#include "OssiraThreads.h"
#include "ServiceTools.h"

#include <regex>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

std::string Normalised(std::string text)
{
    std::replace(text.begin(), text.end(), '\\', '/');
    std::string modules = ModuleFolder("").string();
    std::replace(modules.begin(), modules.end(), '\\', '/');
    for (std::size_t at = 0; (at = text.find(modules, at)) != text.npos;)
        text.replace(at, modules.size(), "MODULES/");
    const std::pair<const char*, const char*> changes[] = {
        {"\\[[^\\]\n]*?([^/\\]\n]*):\\s*[0-9]+\\]", "[$1]"},
        {"(Object |f:|Singleton [a-z: ]*)0x[0-9a-f]+", "$1ADDRESS"},
        {"[0-9]+ (calls/s)", "$1"},
        {"(is not used: ).*", "$1the platform's words"},
        {" +\n", "\n"},
        {"\a", "!"}};
    for (const auto& [pattern, replacement] : changes)
        text = std::regex_replace(text, std::regex(pattern), replacement);
    return text;
}

// Its steps, each under its name.
std::string Live(std::uint32_t mask)
{
    using namespace tSystem::tThreads;
    std::string told;
    const auto step = [&](const char* name, auto work)
    {
        const ObserverMaskScope scope(mask);
        const DiagnosticsCapture capture;
        work();
        told += std::string("== ") + name + '\n' + Normalised(capture.Text());
    };
    EXPECT_EQ(SingletonRegistry()->ClearObjects(), S_OK);
    const auto trace = Make<IValueSet>(CLSID_ValueSet);
    const auto bootstrap = NewBootstrap({Item("bootstrap").Get(), Item("good").Get()});
    ObjectPtr<IUnknown> object;
    step("clean-up before start-up", [&] { EXPECT_EQ(bootstrap->Cleanup(trace.Get()), S_OK); });
    step("start-up", [&] { EXPECT_EQ(bootstrap->Startup(trace.Get()), S_OK); });
    step("objects",
         [&]
         {
             EXPECT_EQ(CreateObject(CLSID_Counter, object), S_OK);
             EXPECT_EQ(CreateObject(CLSID_RawFirst, object), E_NOINTERFACE);
             ObjectPtr<IList> list;
             EXPECT_EQ(CreateObject(CLSID_Counter, list), E_NOINTERFACE);
             EXPECT_EQ(CreateObject(CLSID_NodeList, list), S_OK);
         });
    step("factory",
         [&]
         {
             const auto factory = GlobalFactory();
             EXPECT_EQ(factory->RegisterClass(CLSID_Value, nullptr, "of its own"), S_OK);
             EXPECT_EQ(factory->RegisterClass(CLSID_Value, L"other.dll", "again"), S_FALSE);
             EXPECT_EQ(factory->UnregisterClass(CLSID_Value), S_OK);
             EXPECT_EQ(factory->UnregisterClass(CLSID_Value), S_FALSE);
             EXPECT_EQ(factory->FlushModules(), S_OK);
         });
    step("singletons",
         [&]
         {
             const auto named = Make<IValue>(CLSID_Value);
             EXPECT_EQ(As<IObjectName>(*named)->SetObjectName("Fred"), S_OK);
             const auto singletons = SingletonRegistry();
             EXPECT_EQ(Singleton<ICounter>(CLSID_Counter)->Count(), 1);
             EXPECT_EQ(singletons->RegisterObject(Numbered(1), named.Get()), S_OK);
             EXPECT_EQ(singletons->RegisterObject(Numbered(1), named.Get()), S_FALSE);
             EXPECT_EQ(singletons->UnregisterObject(Numbered(1)), S_OK);
             EXPECT_EQ(singletons->UnregisterObject(Numbered(1)), S_FALSE);
         });
    step("registry",
         [&]
         {
             const auto registry = Singleton<IClsidRegistry>(CLSID_ClsidRegistry);
             const GUID category = Numbered(10), group = Numbered(11), clsid = Numbered(12);
             EXPECT_EQ(registry->RegisterGroupClass(category, group, clsid), S_OK);
             EXPECT_EQ(registry->RegisterGroupClass(category, group, clsid), S_FALSE);
             EXPECT_EQ(registry->UnregisterGroupClass(category, group, Numbered(1)), S_FALSE);
             EXPECT_EQ(registry->UnregisterClass(category, clsid), S_FALSE);
             EXPECT_EQ(registry->UnregisterGroupClass(category, group, clsid), S_OK);
             EXPECT_EQ(registry->UnregisterGroupClass(category, group, clsid), S_FALSE);
         });
    step("datatypes",
         [&]
         {
             const auto types = Singleton<IDatatypesService>(CLSID_DatatypesService);
             const auto provider = Singleton<IDatatypes>(CLSID_IntrinsicDatatypes);
             EXPECT_EQ(types->Contains(DATATYPE_SINT8), S_OK);
             EXPECT_EQ(types->RegisterDatatype(DATATYPE_SINT8, provider.Get()), S_OK);
             for (int time = 0; time < 2; ++time)
                 EXPECT_EQ(types->UnregisterDatatype(DATATYPE_SINT8), S_OK);
             EXPECT_EQ(types->ClearDatatypes(), S_OK);
         });
    step("pool",
         [&]
         {
             const auto box = Make<ICommonThreadPoolBox>(CLSID_CommonThreadPoolBox);
             IThreadPool* pool = nullptr;
             CThreadJob job([](CAbortFlag abort) { abort.Raise(); });
             EXPECT_EQ(box->Create(1) + box->SetStatistics(1) + box->GetThreadPool(&pool), S_OK);
             EXPECT_EQ(pool->Run(&job, nullptr, 1, nullptr), -1);
             EXPECT_EQ(box->SetStatistics(0) + box->Create(1), E_ACCESSDENIED);
         });
    step("second start-up", [&] { EXPECT_EQ(bootstrap->Startup(nullptr), E_FAIL); });
    object.Reset();
    step("clean-up", [&] { EXPECT_EQ(bootstrap->Cleanup(trace.Get()), S_OK); });
    step("second clean-up", [&] { EXPECT_EQ(bootstrap->Cleanup(trace.Get()), S_OK); });
    const auto failing = NewBootstrap({Item("failing-bootstrap").Get()});
    step("start-up that fails", [&] { EXPECT_EQ(failing->Startup(trace.Get()), E_ABORT); });
    step("clean-up after it", [&] { EXPECT_TRUE(Failed(failing->Cleanup(trace.Get()))); });
    return told;
}

TEST(WholeLife, IsToldAsItWasRecorded)
{
    std::string told;
    for (const auto& [title, mask] :
         {std::pair("Everything", 0xFFu), std::pair("Progress, warnings and errors", 0xFEu)})
        told += std::string("#### ") + title + '\n' + Live(mask);
    EXPECT_EQ(told, ReadFile(ModuleFolder("life") / "WholeLife.txt")) << told;
}

} // namespace

} // namespace Tavrik::Ossira
