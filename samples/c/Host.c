/* A host in plain C: it starts a folder of modules (the first argument), uses the tally of one and
 * cleans up. What does not go as it should is said, and ends it with a code that is not 0. */
#include "Tally.h"

#include <stdio.h>
#include <stdlib.h>

/* Ends the host with the first thing that is not so. */
#define EXPECT(condition)                                                                          \
    ((condition) ? (void)0 : (printf("line %d is not so: %s\n", __LINE__, #condition), exit(1)))

/* Puts the folder in the place of the current one, which the list of folders holds at first. Text
 * is stored as two bytes a character, without a zero at the end. */
static void SetFolder(OssiraIMasterBootstrap* bootstrap, const char* path)
{
    OssiraIList* folders;
    OssiraIValue* folder;
    uint16_t text[1024];
    int32_t length = 0;
    EXPECT(OssiraIMasterBootstrap_GetModuleFolders(bootstrap, (void**)&folders) == OSSIRA_S_OK);
    EXPECT(OssiraICollection_GetCount(folders) == 1);
    EXPECT(OssiraIList_GetItemAt(folders, 0, &OSSIRA_IID_IValue, (void**)&folder) == OSSIRA_S_OK);
    EXPECT(OssiraIValue_GetValue(folder, &OSSIRA_DATATYPE_UniString, NULL, 0) == 4);
    EXPECT(OssiraIValue_GetValue(folder, &OSSIRA_DATATYPE_UniString, text, 4) == 4);
    EXPECT(text[0] == '.' && text[1] == '\\');
    for (; path[length] != 0 && length < 1024; ++length)
        text[length] = (uint8_t)path[length];
    EXPECT(OssiraIValue_SetValue(folder, &OSSIRA_DATATYPE_UniString, text, 2 * length) ==
           OSSIRA_S_OK);
    EXPECT(OssiraIUnknown_Release(folder) == 1);
    EXPECT(OssiraIUnknown_Release(folders) == 1);
}

static void UseTally(void)
{
    ITally* tally;
    OssiraIValue* total;
    OssiraIBootstrap* other;
    int32_t number = 0;
    EXPECT(CreateClassObject(&CLSID_Tally, &OSSIRA_IID_IValue, (void**)&total) ==
           OSSIRA_E_NOINTERFACE);
    EXPECT(CreateClassObject(&OSSIRA_CLSID_Value, &OSSIRA_IID_IValue, (void**)&total) ==
           OSSIRA_S_OK);
    EXPECT(CreateClassObject(&CLSID_Tally, &IID_ITally, (void**)&tally) == OSSIRA_S_OK);
    EXPECT(ITally_IsOpen(tally) == OSSIRA_S_OK);
    EXPECT(ITally_Add(tally, 40) == OSSIRA_S_OK && ITally_Add(tally, 2) == OSSIRA_S_OK);
    EXPECT(ITally_GetTotal(tally, NULL) == OSSIRA_E_POINTER);
    EXPECT(ITally_GetTotal(tally, total) == OSSIRA_S_OK);
    EXPECT(OssiraIValue_GetValue(total, &OSSIRA_DATATYPE_SINT32, &number, 4) == 4);
    EXPECT(number == 42);
    printf("The tally says %d.\n", (int)number);

    /* Null in the place of an identifier is refused, and leaves null behind. */
    void* none = total;
    EXPECT(OssiraIUnknown_QueryInterface(total, NULL, &none) == OSSIRA_E_POINTER && none == NULL);
    EXPECT(OssiraIUnknown_QueryInterface(tally, NULL, NULL) == OSSIRA_E_POINTER);

    /* One object, two interfaces, one count. */
    EXPECT(OssiraIUnknown_QueryInterface(tally, &OSSIRA_IID_IBootstrap, (void**)&other) ==
           OSSIRA_S_OK);
    EXPECT(OssiraIUnknown_Release(other) == 1);
    EXPECT(OssiraIUnknown_Release(tally) == 0);
    EXPECT(OssiraIUnknown_Release(total) == 0);
}

int main(int argumentCount, char** arguments)
{
    OssiraIMasterBootstrap* bootstrap;
    uint32_t before;
    EXPECT(argumentCount == 2);
    before = GetObjectOpenCount(); /* the diagnostics observer */
    EXPECT(CreateClassObject(&OSSIRA_CLSID_MasterBootstrap, &OSSIRA_IID_IMasterBootstrap,
                             (void**)&bootstrap) == OSSIRA_S_OK);
    SetFolder(bootstrap, arguments[1]);
    EXPECT(OssiraIMasterBootstrap_Startup(bootstrap, NULL) == OSSIRA_S_OK);
    UseTally();
    EXPECT(OssiraIMasterBootstrap_Cleanup(bootstrap, NULL) == OSSIRA_S_OK);
    EXPECT(OssiraIUnknown_Release(bootstrap) == 0);

    /* The singleton registry, made on the way, stays until the runtime is unloaded. */
    EXPECT(GetObjectOpenCount() == before + 1);
    EXPECT(GetExceptionOpenCount() == 0);
    return 0;
}
