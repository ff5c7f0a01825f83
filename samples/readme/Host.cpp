#include "Greeter.h"
#include "Ossira.h"

#include <cstdio>

using namespace Tavrik::Ossira;
using namespace Tavrik::Samples;

bool UseGreeter()
{
    ObjectPtr<IGreeter> greeter;
    ObjectPtr<IValue> greeting;
    std::wstring text;
    if (Failed(CreateObject(CLSID_Greeter, greeter)) || Failed(CreateValue(greeting.Put())) ||
        Failed(greeter->Greet(L"world", greeting.Get())) ||
        Failed(GetValueUniString(greeting.Get(), &text)))
        return false;
    std::printf("%ls\n", text.c_str());
    return true;
} // the greeter is released here, before its module goes

int main()
{
    ObjectPtr<IMasterBootstrap> bootstrap;
    if (Failed(CreateObject(CLSID_MasterBootstrap, bootstrap)))
        return 1;
    const bool worked = Succeeded(bootstrap->Startup(nullptr)) && UseGreeter();
    return Succeeded(bootstrap->Cleanup(nullptr)) && worked ? 0 : 1;
}
