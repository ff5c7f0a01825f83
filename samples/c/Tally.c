/* A component module in plain C: one class with an interface of its own, which is started and
 * cleaned up with the process as well. */
#define OSSIRA_C_MODULE
#include "Tally.h"

#include <stdatomic.h>
#include <stdlib.h>
#include <string.h>

/* Each interface is one word of the object; the address of the first is the object's identity. */
typedef struct Tally
{
    ITally tally;
    OssiraIBootstrap bootstrap;
    atomic_uint references;
    atomic_int total;
} Tally;

static atomic_int liveObjects;
static atomic_int isOpen;

static Tally* FromBootstrap(OssiraIBootstrap* self)
{
    return (Tally*)(void*)((char*)self - offsetof(Tally, bootstrap));
}

static int Same(const OssiraGuid* a, const OssiraGuid* b)
{
    return memcmp(a, b, sizeof *a) == 0;
}

/* --- What every object has -----------------------------------------------------------------------
 */

static OssiraResult Tally_QueryInterface(ITally* self, const OssiraGuid* iid, void** out)
{
    Tally* const object = (Tally*)self;
    if (out == NULL)
        return OSSIRA_E_POINTER;
    *out = NULL;
    if (iid == NULL)
        return OSSIRA_E_POINTER;
    if (Same(iid, &OSSIRA_IID_IUnknown) || Same(iid, &IID_ITally))
        *out = &object->tally;
    else if (Same(iid, &OSSIRA_IID_IBootstrap))
        *out = &object->bootstrap;
    else
        return OSSIRA_E_NOINTERFACE;
    OssiraIUnknown_AddRef(self);
    return OSSIRA_S_OK;
}

static uint32_t Tally_AddRef(ITally* self)
{
    return atomic_fetch_add(&((Tally*)self)->references, 1) + 1;
}

static uint32_t Tally_Release(ITally* self)
{
    const uint32_t left = atomic_fetch_sub(&((Tally*)self)->references, 1) - 1;
    if (left == 0)
    {
        free(self);
        atomic_fetch_sub(&liveObjects, 1);
    }
    return left;
}

static OssiraResult Bootstrap_QueryInterface(OssiraIBootstrap* self, const OssiraGuid* iid,
                                             void** out)
{
    return Tally_QueryInterface(&FromBootstrap(self)->tally, iid, out);
}

static uint32_t Bootstrap_AddRef(OssiraIBootstrap* self)
{
    return Tally_AddRef(&FromBootstrap(self)->tally);
}

static uint32_t Bootstrap_Release(OssiraIBootstrap* self)
{
    return Tally_Release(&FromBootstrap(self)->tally);
}

/* --- What this one can do ------------------------------------------------------------------------
 */

static OssiraResult Tally_Add(ITally* self, int32_t amount)
{
    atomic_fetch_add(&((Tally*)self)->total, amount);
    return OSSIRA_S_OK;
}

static OssiraResult Tally_GetTotal(ITally* self, OssiraIValue* total)
{
    const int32_t now = atomic_load(&((Tally*)self)->total);
    if (total == NULL)
        return OSSIRA_E_POINTER;
    return OssiraIValue_SetValue(total, &OSSIRA_DATATYPE_SINT32, &now, sizeof now);
}

static OssiraResult Tally_IsOpen(ITally* self)
{
    (void)self;
    return atomic_load(&isOpen) ? OSSIRA_S_OK : OSSIRA_S_FALSE;
}

static OssiraResult Bootstrap_Startup(OssiraIBootstrap* self, OssiraIUnknown* param)
{
    (void)self, (void)param;
    atomic_store(&isOpen, 1);
    return OSSIRA_S_OK;
}

static OssiraResult Bootstrap_Cleanup(OssiraIBootstrap* self, OssiraIUnknown* param)
{
    (void)self, (void)param;
    atomic_store(&isOpen, 0);
    return OSSIRA_S_OK;
}

static const ITallyOperations tallyOperations = {
    Tally_QueryInterface, Tally_AddRef, Tally_Release, Tally_Add, Tally_GetTotal, Tally_IsOpen};
static const OssiraIBootstrapOperations bootstrapOperations = {
    Bootstrap_QueryInterface, Bootstrap_AddRef, Bootstrap_Release, Bootstrap_Startup,
    Bootstrap_Cleanup};

/* --- What the module exports ---------------------------------------------------------------------
 */

OssiraResult DllGetClassObject(const OssiraGuid* clsid, const OssiraGuid* iid, void** out)
{
    Tally* object;
    OssiraResult result;
    if (out == NULL)
        return OSSIRA_E_INVALIDARG;
    *out = NULL;
    if (clsid == NULL || iid == NULL)
        return OSSIRA_E_POINTER;
    if (!Same(clsid, &CLSID_Tally))
        return OSSIRA_E_NOINTERFACE;
    object = calloc(1, sizeof *object);
    if (object == NULL)
        return OSSIRA_E_OUTOFMEMORY;
    atomic_fetch_add(&liveObjects, 1);
    object->tally.operations = &tallyOperations;
    object->bootstrap.operations = &bootstrapOperations;
    atomic_init(&object->references, 1);
    result = OssiraIUnknown_QueryInterface(&object->tally, iid, out);
    OssiraIUnknown_Release(&object->tally); /* the reference of whoever asked keeps it */
    return result;
}

OssiraResult DllCanUnloadNow(void)
{
    return atomic_load(&liveObjects) == 0 ? OSSIRA_S_OK : OSSIRA_S_FALSE;
}

OssiraResult DLLGetOpenObjectCount(void)
{
    return atomic_load(&liveObjects);
}

OssiraResult DLLGetClassCount(void)
{
    return 1;
}

OssiraResult DLLGetClassObjectID(uint32_t first, uint32_t count, OssiraGuid* out)
{
    if (out == NULL || count > 1 || first > 1 - count)
        return OSSIRA_E_INVALIDARG;
    if (count == 1)
        *out = CLSID_Tally;
    return OSSIRA_S_OK;
}

OssiraResult DLLGetClassObjectInfo(uint32_t index, char* buffer, uint32_t size)
{
    static const char text[] = "Tally";
    if (index != 0 || buffer == NULL || size == 0 || size > INT32_MAX)
        return OSSIRA_E_INVALIDARG;
    memcpy(buffer, size < sizeof text ? "" : text, size < sizeof text ? 1 : sizeof text);
    return OSSIRA_S_OK;
}

OssiraResult DLLRegisterBootstrap(OssiraIUnknown* registry, OssiraIUnknown* argument)
{
    OssiraIClsidRegistry* classes;
    OssiraResult result;
    (void)argument;
    if (registry == NULL)
        return OSSIRA_E_POINTER;
    result = OssiraIUnknown_QueryInterface(registry, &OSSIRA_IID_IClsidRegistry, (void**)&classes);
    if (result < 0)
        return result;
    result = OssiraIClsidRegistry_RegisterClass(classes, &OSSIRA_BootstrapRegistryStartup_Level1,
                                                &CLSID_Tally);
    if (result >= 0)
        result = OssiraIClsidRegistry_RegisterClass(
            classes, &OSSIRA_BootstrapRegistryCleanup_Level1, &CLSID_Tally);
    OssiraIUnknown_Release(classes);
    return result < 0 ? result : OSSIRA_S_OK;
}
