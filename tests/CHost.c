/* A host in plain C that knows nothing but the binary contract: structures of function pointers,
 * identifiers and the names of the runtime's exports. It starts a folder of modules (the first
 * argument), creates an object of one, reads a value from it and cleans up. What goes wrong is
 * said and ends it with a code that is not 0. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef struct Guid
{
    uint32_t data1;
    uint16_t data2, data3;
    uint8_t data4[8];
} Guid;

static const Guid ClsidGlobalSingleton = {
    0xB0097FAB, 0x7B89, 0x4496, {0xB5, 0x09, 0x28, 0x1F, 0xBC, 0x40, 0x2B, 0x56}};
static const Guid ClsidGlobalObjectFactory = {
    0xB9C7C3DB, 0x4E83, 0x4C5A, {0xBB, 0x81, 0xC7, 0x18, 0x84, 0xDC, 0x79, 0x3D}};
static const Guid ClsidMasterBootstrap = {
    0xEF048D6C, 0x43FD, 0x42C2, {0x90, 0xC4, 0x5F, 0xC2, 0x82, 0xBD, 0x8B, 0x77}};
static const Guid ClsidValue = {
    0xEB745675, 0x051D, 0x4863, {0xBB, 0xAB, 0xA0, 0xEC, 0x18, 0x7C, 0xF4, 0x25}};
static const Guid ClsidCounter = {
    0xF524AE7D, 0x080A, 0x426B, {0x92, 0xE2, 0xE2, 0x9F, 0x7B, 0xDA, 0x86, 0x29}};

static const Guid IidSingleton = {
    0x7919BC8E, 0xCBE0, 0x427D, {0x95, 0x30, 0xCB, 0xC3, 0x32, 0xE7, 0xEE, 0xBE}};
static const Guid IidObjectFactory = {
    0xD771E56B, 0x5F1B, 0x41C0, {0xB5, 0xCA, 0xA5, 0x0C, 0x89, 0xB0, 0xC3, 0xF5}};
static const Guid IidMasterBootstrap = {
    0x7C66B0A0, 0x0F10, 0x4CB0, {0xB0, 0x54, 0x3C, 0x8A, 0xB5, 0xC6, 0xE8, 0xA5}};
static const Guid IidValue = {
    0x389A1174, 0xF380, 0x4CCA, {0xA1, 0x5E, 0x46, 0x24, 0x8F, 0x36, 0xAA, 0x4E}};
static const Guid IidCounter = {
    0x552BE5DD, 0xBB84, 0x4203, {0x99, 0x9B, 0xAB, 0x27, 0x5D, 0x44, 0xF6, 0xB1}};

static const Guid DatatypeUniString = {
    0x5FC2151B, 0x2DB0, 0x4D7C, {0x94, 0x9E, 0xDC, 0x84, 0x9E, 0x7C, 0x63, 0x47}};
static const Guid DatatypeSint32 = {
    0x524C24DD, 0xBCBE, 0x452A, {0x8C, 0x66, 0x8D, 0x0E, 0x00, 0x71, 0xEB, 0xDA}};

/* An interface pointer points at a word that points at the interface's operations. What stands
 * here are the operations; a list's, say, is a `const List**`. */
#define UNKNOWN_OPERATIONS                                                                         \
    int32_t (*query_interface)(void*, const Guid*, void**);                                        \
    uint32_t (*add_ref)(void*);                                                                    \
    uint32_t (*release)(void*)

/* The singleton registry and the object factory begin alike. */
typedef const struct Creator
{
    UNKNOWN_OPERATIONS;
    int32_t (*get_class_object)(void*, const Guid*, const Guid*, void**);
} Creator;

typedef const struct Bootstrap
{
    UNKNOWN_OPERATIONS;
    int32_t (*startup)(void*, void*), (*cleanup)(void*, void*);
    int32_t (*set_factory)(void*, void*), (*get_factory)(void*, void**);
    int32_t (*set_clsid_registry)(void*, void*), (*get_clsid_registry)(void*, void**);
    int32_t (*get_module_folders)(void*, void**);
} Bootstrap;

typedef const struct List
{
    UNKNOWN_OPERATIONS;
    int32_t (*get_enumerator)(void*, const Guid*, void**);
    int32_t (*get_count)(void*), (*clear)(void*), (*is_read_only)(void*), (*add)(void*, void*);
} List;

typedef const struct Value
{
    UNKNOWN_OPERATIONS;
    int32_t (*get_value)(void*, const Guid*, void*, int32_t);
    int32_t (*set_value)(void*, const Guid*, const void*, int32_t);
    int32_t (*get_type)(void*, Guid*);
} Value;

typedef const struct Counter
{
    UNKNOWN_OPERATIONS;
    int32_t (*count)(void*), (*count_in_module)(void*), (*make_value)(void*, const Guid*, void**);
} Counter;

extern int32_t CreateClassObject(const Guid* clsid, const Guid* iid, void** out);
extern uint32_t GetObjectOpenCount(void);
extern int32_t GetExceptionOpenCount(void);

/* Ends the host with the first thing that is not so. */
#define EXPECT(condition)                                                                          \
    if (!(condition))                                                                              \
    exit((puts("not so: " #condition), 1))

static void use_counter(Creator** factory)
{
    Counter** counter = NULL;
    Value** value = NULL;
    Guid type;
    int32_t number = 0;
    void* none = &none;

    EXPECT((*factory)->get_class_object(factory, &ClsidCounter, &IidCounter, (void**)&counter) ==
           0);
    EXPECT((*counter)->count(counter) == 1 && (*counter)->count(counter) == 2);
    EXPECT((*counter)->make_value(counter, &IidValue, (void**)&value) == 0);
    EXPECT((*value)->get_type(value, &type) == 0);
    EXPECT(memcmp(&type, &DatatypeSint32, sizeof type) == 0);
    EXPECT((*value)->get_value(value, &DatatypeSint32, NULL, 0) == 4);
    EXPECT((*value)->get_value(value, &DatatypeSint32, &number, 4) == 4 && number == 2);
    EXPECT((*value)->release(value) == 0);
    EXPECT((*counter)->add_ref(counter) == 2);
    EXPECT((*counter)->release(counter) == 1 && (*counter)->release(counter) == 0);
    EXPECT((*factory)->get_class_object(factory, &IidValue, &IidValue, &none) < 0);
}

/* The folder's name as the runtime stores wide strings: two bytes a character. */
static void add_folder(Bootstrap** bootstrap, const char* folder)
{
    uint16_t text[1024];
    int32_t at;
    List** folders = NULL;
    Value** value = NULL;

    for (at = 0; folder[at] != 0 && at < 1024; ++at)
        text[at] = (uint16_t)(unsigned char)folder[at];
    EXPECT(CreateClassObject(&ClsidValue, &IidValue, (void**)&value) == 0);
    EXPECT((*value)->set_value(value, &DatatypeUniString, text, 2 * at) == 0);
    EXPECT((*bootstrap)->get_module_folders(bootstrap, (void**)&folders) == 0);
    EXPECT((*folders)->clear(folders) == 0);
    EXPECT((*folders)->add(folders, value) == 0 && (*folders)->get_count(folders) == 1);
    (*folders)->release(folders);
    (*value)->release(value);
}

int main(int argumentCount, char** arguments)
{
    Creator** singleton = NULL;
    Bootstrap** bootstrap = NULL;
    Creator** factory = NULL;

    EXPECT(argumentCount == 2);
    EXPECT(CreateClassObject(&ClsidGlobalSingleton, &IidSingleton, (void**)&singleton) == 0);
    EXPECT(CreateClassObject(&ClsidMasterBootstrap, &IidMasterBootstrap, (void**)&bootstrap) == 0);
    add_folder(bootstrap, arguments[1]);
    EXPECT((*bootstrap)->startup(bootstrap, NULL) == 0);
    EXPECT((*singleton)
               ->get_class_object(singleton, &ClsidGlobalObjectFactory, &IidObjectFactory,
                                  (void**)&factory) == 0);
    use_counter(factory);
    (*factory)->release(factory);
    EXPECT((*bootstrap)->cleanup(bootstrap, NULL) == 0);
    EXPECT((*bootstrap)->release(bootstrap) == 0);
    (*singleton)->release(singleton);

    /* The registry itself and the diagnostics observer stay until the runtime is unloaded. */
    EXPECT(GetObjectOpenCount() == 2 && GetExceptionOpenCount() == 0);
    return 0;
}
