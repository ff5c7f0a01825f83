// Everything public in one include. A host needs the runtime's exports only; what the checks, the
// frame and its companions declare is linked from the frame library by component modules.
#pragma once

#include "BulletDirectoryService.h"
#include "OssiraBase.h"
#include "OssiraBullets.h"
#include "OssiraCacheStack.h"
#include "OssiraCheck.h"
#include "OssiraClasses.h"
#include "OssiraCollections.h"
#include "OssiraDatatypeBuilder.h"
#include "OssiraDatatypes.h"
#include "OssiraDiagnostics.h"
#include "OssiraFrame.h"
#include "OssiraMemory.h"
#include "OssiraModified.h"
#include "OssiraObject.h"
#include "OssiraPointer.h"
#include "OssiraServices.h"
#include "OssiraThreads.h"
#include "OssiraValue.h"
#include "OssiraValueDataBuffer.h"
#include "OssiraValueSetGroup.h"
