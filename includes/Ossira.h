// Everything public in one include. A host needs the runtime's exports only; what the checks and
// the frame declare is linked from the frame library by component modules.
#pragma once

#include "OssiraBase.h"
#include "OssiraBullets.h"
#include "OssiraCheck.h"
#include "OssiraClasses.h"
#include "OssiraCollections.h"
#include "OssiraDiagnostics.h"
#include "OssiraFrame.h"
#include "OssiraObject.h"
#include "OssiraPointer.h"
#include "OssiraServices.h"
#include "OssiraValue.h"
#include "OssiraValueDataBuffer.h"
