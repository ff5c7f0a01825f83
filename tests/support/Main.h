// The entry of every test program, and the balance that every test has to keep.
#pragma once

namespace Tavrik::Ossira::tTest
{

// Runs the tests. After each one every singleton is released, and the test fails unless the live
// objects, the live exceptions and the mask of the observer are what they were before it.
int RunTests(int argumentCount, char** arguments);

} // namespace Tavrik::Ossira::tTest
