// The version of the runtime that these headers belong to. The first number changes when modules
// and hosts have to be built anew, which the binary contract rules out for a long time to come; the
// second when something is added; the third when something is mended. There is no export to ask the
// runtime for it: on Windows it stands in the file's properties, and `ossira --version` tells it.
//
// Only preprocessor lines: the resource compiler and CMake read this file too.
#pragma once

#define OSSIRA_VERSION_MAJOR 1
#define OSSIRA_VERSION_MINOR 0
#define OSSIRA_VERSION_PATCH 0
#define OSSIRA_VERSION_TEXT "1.0.0"
