// The exports of every module, here the runtime's own.
#pragma once

#include "../../contract/ModuleExports.h"
