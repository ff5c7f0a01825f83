/* The tally: an interface of the sample's own, declared as every interface is in C. Whoever uses it
 * needs no more than this. */
#ifndef TALLY_H
#define TALLY_H

#include "OssiraC.h"

static const OssiraGuid CLSID_Tally = {
    0x7B1B5E2C, 0x6E0D, 0x4D49, {0x9E, 0x55, 0x0C, 0x33, 0xC5, 0x1F, 0x6A, 0xD8}};
static const OssiraGuid IID_ITally = {
    0x2D1D63F4, 0x8C60, 0x4F3B, {0xA4, 0x0B, 0x53, 0x17, 0x7E, 0x20, 0x9D, 0xB6}};

typedef struct ITally ITally;

typedef struct ITallyOperations
{
    OssiraResult (*QueryInterface)(ITally* self, const OssiraGuid* iid, void** out);
    uint32_t (*AddRef)(ITally* self);
    uint32_t (*Release)(ITally* self);

    /* Adds to the total. Any thread may call. */
    OssiraResult (*Add)(ITally* self, int32_t amount);

    /* Writes the total into a value as a number. Null answers `E_POINTER`, a total that the value
     * does not take its code. Any thread may call. */
    OssiraResult (*GetTotal)(ITally* self, OssiraIValue* total);

    /* `S_OK` between start-up and clean-up, else `S_FALSE`. */
    OssiraResult (*IsOpen)(ITally* self);
} ITallyOperations;

struct ITally
{
    const ITallyOperations* operations;
};

#define ITally_Add(self, amount) ((self)->operations->Add((self), (amount)))
#define ITally_GetTotal(self, total) ((self)->operations->GetTotal((self), (total)))
#define ITally_IsOpen(self) ((self)->operations->IsOpen((self)))

#endif
