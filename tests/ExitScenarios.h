// Ways for a host to end that are not the right one: nothing is cleaned up, and the process must
// all the same end with what the host answers.
#pragma once

#include "OssiraBase.h"

#include <string>

namespace Tavrik::Ossira::tTest
{

using CreateClassObjectFunction = decltype(&CreateClassObject);

// Brings singletons and objects of the runtime to life, and with `withModule` those of a module
// too; they stay alive. False when something of it fails.
[[nodiscard]] bool Populate(CreateClassObjectFunction create, bool withModule);

// Does what the scenario of that name does before the end; answers what the program is to answer.
// "return", "exit", "busy-thread", "lock-held", "static-reference".
[[nodiscard]] int RunScenario(const std::string& name, CreateClassObjectFunction create);

} // namespace Tavrik::Ossira::tTest
