// Starts a folder with a module of another compiler and hands it what crosses the boundary: a
// value, an exception, a function and a pool. The second argument says how that compiler lays
// objects out.
#include "Foreign.h"
#include "OssiraBullets.h"
#include "OssiraServices.h"

#include <cstdio>
#include <cstdlib>

using namespace Tavrik::Ossira;
using namespace Tavrik::Ossira::tTest;
using namespace Tavrik::tSystem::tThreads;

namespace
{

void Expect(bool condition, const char* text)
{
    if (condition)
        return;
    std::printf("not so: %s\n", text);
    std::exit(1);
}

#define EXPECT(condition) Expect(condition, #condition)

struct Watched final : IThreadFunction
{
    void* DeletingDestructor(std::uint32_t flags) override
    {
        Calls += flags == 0 ? 'd' : '?';
        return this;
    }

    void Run(void* parameter) override
    {
        Calls += parameter == this ? 'r' : '?';
    }

    void RequestStop() override
    {
        Calls += 's';
    }

    std::string Calls;
};

void UseForeign(const std::string& layout)
{
    ObjectPtr<IForeign> foreign;
    EXPECT(CreateObject(CLSID_Foreign, foreign) == S_OK);
    EXPECT(foreign->WasStarted() == S_OK);

    ObjectPtr<IValue> value;
    std::string text;
    EXPECT(foreign->MakeLayout(value.Put()) == S_OK);
    EXPECT(GetValueCharString(value.Get(), &text) == S_OK);
    EXPECT(text == layout);
    ObjectPtr<IValueSet> missing;
    EXPECT(foreign.QueryTo(missing) == E_NOINTERFACE && !missing);

    const SourceLocation place = {"file", 7, "function"};
    IException* const exception =
        NewException(static_cast<std::uint32_t>(E_ABORT), &place, "something");
    EXPECT(GetExceptionOpenCount() == 1);
    EXPECT(foreign->TakeException(exception, &place, "something") == E_ABORT);
    EXPECT(GetExceptionOpenCount() == 0);

    Watched function;
    EXPECT(foreign->UseFunction(&function, &function) == S_OK);
    EXPECT(function.Calls == "rsd");

    ObjectPtr<ICommonThreadPoolBox> box;
    IThreadPool* pool = nullptr;
    std::int32_t runs = 0;
    EXPECT(CreateObject(CLSID_CommonThreadPoolBox, box) == S_OK);
    EXPECT(box->Create(3) == S_OK && box->GetThreadPool(&pool) == S_OK);
    EXPECT(foreign->UsePool(pool, &runs) == S_OK);
    EXPECT(runs == 3 || runs == 4); // three workers, and this thread if they leave it a copy
}

} // namespace

int main(int argumentCount, char** arguments)
{
    EXPECT(argumentCount == 3);
    ObjectPtr<IMasterBootstrap> bootstrap;
    EXPECT(CreateObject(CLSID_MasterBootstrap, bootstrap) == S_OK);
    {
        const std::string folder = arguments[1];
        ObjectPtr<IList> folders;
        ObjectPtr<IValue> place;
        EXPECT(bootstrap->GetModuleFolders(folders.PutVoid()) == S_OK);
        EXPECT(folders->GetItemAt(0, IValue::Iid, place.PutVoid()) == S_OK);
        EXPECT(SetValueUniString(place.Get(), std::wstring(folder.begin(), folder.end())) == S_OK);
    }
    EXPECT(bootstrap->Startup(nullptr) == S_OK);
    UseForeign(arguments[2]);
    EXPECT(bootstrap->Cleanup(nullptr) == S_OK);
    return 0;
}
