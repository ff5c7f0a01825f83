// The entry of the tests that see what a host sees.
#include "Main.h"

int main(int argumentCount, char** arguments)
{
    return Tavrik::Ossira::tTest::RunTests(argumentCount, arguments);
}
