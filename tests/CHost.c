// A host in plain C that knows nothing but the binary contract: structures of function pointers,
// identifiers and the names of the runtime's exports. It reads and sets a value, starts a folder of
// modules (the first argument), creates an object of one and cleans up. What goes wrong is said and
// ends it with a code that is not 0.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

typedef const struct Guid
{
    uint32_t data1;
    uint16_t data2, data3;
    uint8_t data4[8];
} Guid;

#define GUID_OF(name, a, b, c, d, e, f, g, h, i, j, k)                                             \
    static Guid name = {                                                                           \
        0x##a, 0x##b, 0x##c, {0x##d, 0x##e, 0x##f, 0x##g, 0x##h, 0x##i, 0x##j, 0x##k}}

GUID_OF(ClsidGlobalSingleton, B0097FAB, 7B89, 4496, B5, 09, 28, 1F, BC, 40, 2B, 56);
GUID_OF(ClsidFactory, B9C7C3DB, 4E83, 4C5A, BB, 81, C7, 18, 84, DC, 79, 3D);
GUID_OF(ClsidMasterBootstrap, EF048D6C, 43FD, 42C2, 90, C4, 5F, C2, 82, BD, 8B, 77);
GUID_OF(ClsidCounter, 1, 7E57, 6, 0, 0, 0, 0, 0, 0, 0, 0);
GUID_OF(IidSingleton, 7919BC8E, CBE0, 427D, 95, 30, CB, C3, 32, E7, EE, BE);
GUID_OF(IidFactory, D771E56B, 5F1B, 41C0, B5, CA, A5, 0C, 89, B0, C3, F5);
GUID_OF(IidMasterBootstrap, 7C66B0A0, 0F10, 4CB0, B0, 54, 3C, 8A, B5, C6, E8, A5);
GUID_OF(IidValue, 389A1174, F380, 4CCA, A1, 5E, 46, 24, 8F, 36, AA, 4E);
GUID_OF(IidCounter, 2, 7E57, 6, 0, 0, 0, 0, 0, 0, 0, 0);
GUID_OF(DatatypeUniString, 5FC2151B, 2DB0, 4D7C, 94, 9E, DC, 84, 9E, 7C, 63, 47);

// An interface pointer points at a word that points at the interface's operations. What is declared
// here are the operations; a list's, say, is a `List**`. Those of its own all answer a result.
#define INTERFACE(name, ...)                                                                       \
    typedef const struct name                                                                      \
    {                                                                                              \
        int32_t (*query_interface)(void*, Guid*, void**);                                          \
        uint32_t (*add_ref)(void*), (*release)(void*);                                             \
        int32_t __VA_ARGS__;                                                                       \
    } name

// The singleton registry and the object factory begin alike.
INTERFACE(Creator, (*get_object)(void*, Guid*, Guid*, void**));
INTERFACE(Bootstrap, (*startup)(void*, void*), (*cleanup)(void*, void*), (*not_called[4])(void*),
          (*get_module_folders)(void*, void**));
INTERFACE(List, (*not_called[11])(void*), (*get_item_at)(void*, int32_t, Guid*, void**));
INTERFACE(Value, (*get_value)(void*, Guid*, void*, int32_t),
          (*set_value)(void*, Guid*, const void*, int32_t));
INTERFACE(Counter, (*count)(void*));

extern int32_t CreateClassObject(Guid* clsid, Guid* iid, void** out);
extern uint32_t GetObjectOpenCount(void);
extern int32_t GetExceptionOpenCount(void);

// Ends the host with the first thing that is not so.
#define EXPECT(condition)                                                                          \
    if (!(condition))                                                                              \
    exit((puts("not so: " #condition), 1))

int main(int argumentCount, char** arguments)
{
    Creator **singleton, **factory;
    Bootstrap** bootstrap;
    List** folders;
    Value** folder;
    Counter** counter;
    uint16_t text[1024];
    int32_t length = 0;

    EXPECT(argumentCount == 2);
    EXPECT(CreateClassObject(&ClsidGlobalSingleton, &IidSingleton, (void**)&singleton) == 0);
    EXPECT(CreateClassObject(&ClsidMasterBootstrap, &IidMasterBootstrap, (void**)&bootstrap) == 0);

    // The list of folders has one, the current folder. Text is stored as two bytes a character.
    EXPECT((*bootstrap)->get_module_folders(bootstrap, (void**)&folders) == 0);
    EXPECT((*folders)->get_item_at(folders, 0, &IidValue, (void**)&folder) == 0);
    EXPECT((*folder)->get_value(folder, &DatatypeUniString, NULL, 0) == 4);
    EXPECT((*folder)->get_value(folder, &DatatypeUniString, text, 4) == 4 && text[1] == '\\');
    for (; arguments[1][length] != 0 && length < 1024; ++length)
        text[length] = (uint8_t)arguments[1][length];
    EXPECT((*folder)->set_value(folder, &DatatypeUniString, text, 2 * length) == 0);
    EXPECT((*folder)->release(folder) == 1 && (*folders)->release(folders) == 1);

    EXPECT((*bootstrap)->startup(bootstrap, NULL) == 0);
    EXPECT((*singleton)->get_object(singleton, &ClsidFactory, &IidFactory, (void**)&factory) == 0);
    EXPECT((*factory)->get_object(factory, &IidValue, &IidValue, (void**)&counter) < 0);
    EXPECT((*factory)->get_object(factory, &ClsidCounter, &IidCounter, (void**)&counter) == 0);
    EXPECT((*counter)->count(counter) == 1 && (*counter)->count(counter) == 2);
    void* none = counter;
    EXPECT((*counter)->query_interface(counter, NULL, &none) < 0 && none == NULL);
    EXPECT((*counter)->query_interface(counter, NULL, NULL) < 0);
    EXPECT((*counter)->add_ref(counter) == 2 && (*counter)->release(counter) == 1);
    EXPECT((*counter)->release(counter) == 0);
    (*factory)->release(factory);
    EXPECT((*bootstrap)->cleanup(bootstrap, NULL) == 0);
    EXPECT((*bootstrap)->release(bootstrap) == 0);
    (*singleton)->release(singleton);

    // The registry itself and the diagnostics observer stay until the runtime is unloaded.
    EXPECT(GetObjectOpenCount() == 2 && GetExceptionOpenCount() == 0);
    return 0;
}
