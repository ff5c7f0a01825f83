// The entry of the tests that hold the runtime's objects in themselves: they are the library, so
// they attach and detach it.
#include "Main.h"
#include "Platform.h"

int main(int argumentCount, char** arguments)
{
    if (!Tavrik::Ossira::AttachLibrary(nullptr))
        return 1;
    const int result = Tavrik::Ossira::tTest::RunTests(argumentCount, arguments);
    Tavrik::Ossira::DetachLibrary(false);
    return result;
}
