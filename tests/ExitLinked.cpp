// A host that is linked to the runtime and ends as its argument says.
#include "ExitScenarios.h"

int main(int argumentCount, char** arguments)
{
    return argumentCount == 2 ? Tavrik::Ossira::tTest::RunScenario(arguments[1], &CreateClassObject)
                              : 1;
}
