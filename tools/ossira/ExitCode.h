// How the program ends.
#pragma once

namespace Tavrik::tHost
{

// What the program answers to a script; the manual page has the same table.
enum EExitCode : int
{
    Exit_AllWell = 0,
    Exit_Found = 1,         // something is wrong with what was looked at
    Exit_NotUnderstood = 2, // the command line
    Exit_Broken = 3         // the program could not do its work, as when its output goes nowhere
};

} // namespace Tavrik::tHost
