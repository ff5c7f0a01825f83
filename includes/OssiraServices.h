// The services that every module shares: singletons, the object factory, the CLSID registry, the
// class register service, the directory service, the bootstrap and the process-wide lock.
//
// Every operation catches what is thrown inside it, reports it on the diagnostics channel and
// answers its code. Null in the place of a reference, which callers of other languages can pass,
// answers `E_POINTER`, exhausted memory `E_OUTOFMEMORY`, with everything as it was. Whatever hands
// out an interface sets *ppv to null first, so that it is null after every failure that found `ppv`
// usable.
//
// A module's start-up and clean-up code (its static objects, and what the platform runs when a
// library is loaded and unloaded) runs under the process-wide critical section and under the
// platform's own lock. It may ask for singletons, create objects, of its own and of other modules,
// register classes and flush modules. It must not wait for another thread, nor take a lock that
// another thread may hold while it calls the runtime. That holds for libraries which the runtime
// loads; when a host loads one itself, past the runtime, only the platform's lock is held, and
// start-up code that asks for singletons may wait for ever for a thread that loads a module.
#pragma once

#include "OssiraCollections.h"

// <windows.h> renames these two by macro; see OssiraBase.h.
#pragma push_macro("RegisterClass")
#pragma push_macro("UnregisterClass")
#undef RegisterClass
#undef UnregisterClass

namespace Tavrik::Ossira
{

inline constexpr IID IID_ISingleton = {
    0x7919BC8E, 0xCBE0, 0x427D, {0x95, 0x30, 0xCB, 0xC3, 0x32, 0xE7, 0xEE, 0xBE}};
inline constexpr IID IID_ISingletonRegistry = {
    0xB774D7F3, 0xF79E, 0x4D32, {0x87, 0x7B, 0x2E, 0x13, 0x39, 0x67, 0x6F, 0x11}};
inline constexpr IID IID_ICriticalSection = {
    0xBA40309C, 0xC9F5, 0x49F0, {0xAB, 0xF1, 0xD1, 0x34, 0xF0, 0x23, 0xD3, 0x22}};
inline constexpr IID IID_IObjectFactory = {
    0xD771E56B, 0x5F1B, 0x41C0, {0xB5, 0xCA, 0xA5, 0x0C, 0x89, 0xB0, 0xC3, 0xF5}};
inline constexpr IID IID_IClsidRegistry = {
    0x7B09F9C1, 0x4723, 0x4FFF, {0x8F, 0x61, 0x36, 0x8A, 0xDA, 0x0F, 0x24, 0xBE}};
inline constexpr IID IID_IClassRegisterService = {
    0xAC1465C2, 0x7D8A, 0x478E, {0x9E, 0x3D, 0xBE, 0x8C, 0xB1, 0xA6, 0x79, 0x2F}};
inline constexpr IID IID_IDirectoryService = {
    0xD4B5DCAB, 0x9582, 0x441C, {0xB7, 0xB0, 0x84, 0x0A, 0x41, 0x34, 0xCA, 0x4B}};
inline constexpr IID IID_IBootstrap = {
    0x9FD18822, 0x3AF8, 0x4D80, {0xAF, 0xB0, 0x58, 0x7A, 0xF0, 0xA1, 0x87, 0x16}};
inline constexpr IID IID_IMasterBootstrap = {
    0x7C66B0A0, 0x0F10, 0x4CB0, {0xB0, 0x54, 0x3C, 0x8A, 0xB5, 0xC6, 0xE8, 0xA5}};

// Keys of the value sets that describe the factory's classes and modules.
inline constexpr GUID ObjectFactoryItem_FileName = {
    0x7A4BA90F, 0x76E6, 0x45D1, {0xA6, 0x13, 0xDD, 0x36, 0xA5, 0xA0, 0x4F, 0xEB}};
inline constexpr GUID ObjectFactoryItem_InfoText = {
    0xEE9443AB, 0x3EA7, 0x4064, {0xB5, 0x23, 0xC1, 0xB2, 0x6B, 0xC1, 0x9C, 0xB5}};
inline constexpr GUID ObjectFactoryItem_ClassCount = {
    0xF1FAF878, 0xB5A8, 0x4D65, {0x97, 0x86, 0x82, 0x26, 0xD7, 0x1E, 0x59, 0x42}};
inline constexpr GUID ObjectFactoryItem_OpenObjectCount = {
    0x7C4B19B1, 0xB1B1, 0x4972, {0x80, 0x76, 0x1D, 0x30, 0x69, 0x67, 0x72, 0x48}};

// Keys of a folder scan's parameters, both wide strings: the folder, and the wildcard pattern (may
// be absent). The first is also the key of each found entry's bare file name.
inline constexpr GUID DirectoryServiceParam_Path = {
    0x31019635, 0xD20D, 0x41FC, {0xB4, 0x46, 0x76, 0x53, 0x28, 0xF9, 0x6E, 0x0E}};
inline constexpr GUID DirectoryServiceParam_Pattern = {
    0x82370904, 0xF1C8, 0x4B6D, {0xAE, 0x11, 0xAC, 0x20, 0x74, 0xD8, 0x84, 0x62}};

// The categories under which classes enrol to be started and cleaned up. Start-up runs level 0, 1,
// 2; clean-up level 2, 1, 0. A class may enrol for either or both, at different levels.
inline constexpr GUID BootstrapRegistryStartup_Level0 = {
    0x80968320, 0x507A, 0x4FA4, {0xB7, 0x1F, 0xAE, 0x6F, 0xAD, 0x3E, 0x47, 0x20}};
inline constexpr GUID BootstrapRegistryStartup_Level1 = {
    0xF54E31DA, 0xDBBA, 0x49BC, {0x81, 0x40, 0xF1, 0xFE, 0x5D, 0x8F, 0x4E, 0x5E}};
inline constexpr GUID BootstrapRegistryStartup_Level2 = {
    0x630CF4F5, 0x6449, 0x4423, {0xAF, 0x0D, 0x37, 0x86, 0x78, 0x99, 0xDB, 0x65}};
inline constexpr GUID BootstrapRegistryCleanup_Level0 = {
    0xB8E6EA73, 0xCF0F, 0x4042, {0xA0, 0xA4, 0x38, 0x5E, 0x5F, 0x45, 0x8A, 0x2C}};
inline constexpr GUID BootstrapRegistryCleanup_Level1 = {
    0x86B81AE8, 0x6356, 0x4ED0, {0x96, 0x92, 0x81, 0x1C, 0xEA, 0x4D, 0x09, 0xEB}};
inline constexpr GUID BootstrapRegistryCleanup_Level2 = {
    0xF2A166A5, 0x8B13, 0x4BB0, {0xA8, 0xB9, 0x8B, 0x7A, 0xBF, 0x59, 0x94, 0xEA}};

// The process-wide registry of singletons: one live object per class identifier.
//
// Its operations run under the process-wide critical section, creation and destruction of the
// objects included; the section is re-entrant, so a class may ask for other singletons while it is
// created or destroyed. It also offers `IEnumerable` over the class identifiers: an enumerator ends
// when an object is added, and goes on with the next greater identifier after a removal.
struct ISingleton : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_ISingleton;

    // Hands out the interface `iid` of the one object of class `clsid`, creating it at the first
    // request through `CreateClassObject`. `CLSID_GlobalObjectFactory` is created as an
    // `CLSID_ObjectFactory`, which itself is refused, as is `CLSID_GlobalSingleton`
    // (`E_INVALIDARG`). Null `ppv` answers `E_POINTER`. A failed creation leaves no entry and
    // answers what the creation failed with; a missing interface leaves the object registered.
    // One look-up, whatever the number of objects.
    virtual Result GetClassObject(const CLSID& clsid, const IID& iid, void** ppv) = 0;

    // Enters an object made elsewhere and takes a reference on it: `S_OK`, or `S_FALSE` when the
    // class has one already, which stays. Null answers `E_POINTER`, `CLSID_GlobalSingleton`
    // `E_INVALIDARG`.
    virtual Result RegisterObject(const CLSID& clsid, IUnknown* obj) = 0;

    // Removes and releases the object of a class: `S_OK`, or `S_FALSE` when there is none, also for
    // a null reference.
    virtual Result UnregisterObject(const CLSID& clsid) = 0;

    // Releases every object, the global object factory, and with it the loaded modules, last. The
    // registry is usable again afterwards. Answers `S_OK`.
    virtual Result ClearObjects() = 0;

protected:
    ~ISingleton() = default;
};

// Tells that an object is a singleton registry; it has no operations of its own.
struct ISingletonRegistry : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_ISingletonRegistry;

protected:
    ~ISingletonRegistry() = default;
};

// The one process-wide re-entrant lock, under which singletons are created and released and modules
// loaded and unloaded. Every object of `CLSID_GlobalCriticalSection` stands for the same lock. It
// comes before every other: enter it only while no lock of another object is held.
struct ICriticalSection : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_ICriticalSection;

    // Enters; the owner may enter again. Answers `S_OK`. Balance with `Unlock` on the same thread.
    virtual Result Lock() = 0;
    virtual Result Unlock() = 0;

protected:
    ~ICriticalSection() = default;
};

// Knows which module file implements which class, loads modules on demand and creates objects.
//
// A module is loaded and unloaded under the process-wide critical section, and no other lock, so
// its start-up and clean-up code may call the factory. Its classes are created, and
// `DllCanUnloadNow` and `DLLGetOpenObjectCount` called, with no lock held at all. Any thread may
// call. It also offers `IEnumerable` over the class identifiers.
struct IObjectFactory : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_IObjectFactory;

    // Creates a new object of a registered class and hands out its interface. An unknown class
    // answers `E_FAIL`; a module that cannot be loaded `E_FAIL`, for want of memory
    // `E_OUTOFMEMORY`, and is tried again at the next request; what a module refuses its code. The
    // factory's part is one look-up whatever the number of classes and modules, and allocates
    // nothing. A class registered without a file name is created by `CreateClassObject`. Null `ppv`
    // answers `E_POINTER`, `CLSID_GlobalSingleton` `E_INVALIDARG`.
    virtual Result GetClassObject(const CLSID& clsid, const IID& iid, void** ppv) = 0;

    // Tells in which module file a class lives; null or empty for a class of the runtime itself.
    // The first class of a new file loads the file; a file that cannot be loaded is registered all
    // the same and tried again at creation. `info` may be null. Answers `S_OK`, or `S_FALSE` when
    // the class is registered already and stays as it was; `CLSID_GlobalSingleton` answers
    // `E_INVALIDARG`. File names are compared as they stand. A relative one is completed by the
    // current folder at every load, so it may name another file at the next; those that
    // `IClassRegisterService::RegisterFolder` registers stay the files that it read.
    virtual Result RegisterClass(const CLSID& clsid, const wchar_t* fileName, const char* info) = 0;

    // Forgets a class: `S_OK`, or `S_FALSE` when it is unknown. Its module stays.
    virtual Result UnregisterClass(const CLSID& clsid) = 0;

    // A new value set with the file name and the info text of a class; an unknown class answers
    // `E_FAIL`.
    virtual Result GetClassValue(const CLSID& clsid, const IID& iid, void** ppv) = 0;

    // Unloads every loaded module whose `DllCanUnloadNow` answers `S_OK` and in which no call of
    // this factory is running or began since it was asked; modules without classes that were kept
    // for what they entered too. A module that held the last objects of others takes them with it,
    // in whatever order they stand. Answers `S_OK`. A module counts an object as gone when its
    // destruction begins: call this when no other thread is giving back a module's last object, and
    // never from a module's own destructors. It asks every loaded module once, and again as long as
    // one goes.
    virtual Result FlushModules() = 0;

    // A new value set with a module's file name, its class count and, while it is loaded, the
    // number of its live objects; an unknown file answers `E_FAIL`.
    virtual Result GetModuleValue(const wchar_t* fileName, const IID& iid, void** ppv) = 0;

    // An enumerator over the class identifiers (`IEnumerator`, `IEnumeratorGUID`). It ends when a
    // class is added and goes on with the next greater identifier after a removal.
    virtual Result GetClasses(const IID& iid, void** ppv) = 0;

    // A new node list with one wide-string value per module file name.
    virtual Result GetModules(const IID& iid, void** ppv) = 0;

#ifdef _WIN32
    Result RegisterClassA(const CLSID& clsid, const wchar_t* fileName, const char* info)
    {
        return RegisterClass(clsid, fileName, info);
    }

    Result RegisterClassW(const CLSID& clsid, const wchar_t* fileName, const char* info)
    {
        return RegisterClass(clsid, fileName, info);
    }

    Result UnregisterClassA(const CLSID& clsid)
    {
        return UnregisterClass(clsid);
    }

    Result UnregisterClassW(const CLSID& clsid)
    {
        return UnregisterClass(clsid);
    }
#endif

protected:
    ~IObjectFactory() = default;
};

// Files class identifiers under categories and, within a category, under groups; the null group
// is that of classes filed without one. It holds identifiers only and creates nothing.
//
// A lock of its own is held while it touches its tables, but not while lines are printed. Any
// thread may call; an operation costs the same however many classes are filed.
struct IClsidRegistry : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_IClsidRegistry;

    // File a class: `S_OK`, or `S_FALSE` when it is there already.
    virtual Result RegisterClass(const GUID& category, const CLSID& clsid) = 0;
    virtual Result RegisterGroupClass(const GUID& category, const GUID& group,
                                      const CLSID& clsid) = 0;

    // Take a class out again: `S_OK`, or `S_FALSE` when it is not there. A group without classes
    // and a category without groups vanish.
    virtual Result UnregisterClass(const GUID& category, const CLSID& clsid) = 0;
    virtual Result UnregisterGroupClass(const GUID& category, const GUID& group,
                                        const CLSID& clsid) = 0;

    // `S_OK` when it is there, else `S_FALSE`.
    virtual Result ContainsCategory(const GUID& category) = 0;
    virtual Result ContainsGroup(const GUID& category, const GUID& group) = 0;
    virtual Result ContainsClass(const GUID& category, const CLSID& clsid) = 0;
    virtual Result ContainsGroupClass(const GUID& category, const GUID& group,
                                      const CLSID& clsid) = 0;

    // An enumerator over the classes of a group (`IEnumerator`, `IEnumeratorGUID`), in key order.
    // A missing category or group answers `E_NOT_FOUND`, null `ppv` `E_POINTER`. The enumerator
    // ends when a class is filed in or taken out of that group.
    virtual Result GetClasses(const GUID& category, const IID& iid, void** ppv) = 0;
    virtual Result GetGroupClasses(const GUID& category, const GUID& group, const IID& iid,
                                   void** ppv) = 0;

    // An enumerator over the categories.
    virtual Result GetCategories(const IID& iid, void** ppv) = 0;

#ifdef _WIN32
    Result RegisterClassA(const GUID& category, const CLSID& clsid)
    {
        return RegisterClass(category, clsid);
    }

    Result RegisterClassW(const GUID& category, const CLSID& clsid)
    {
        return RegisterClass(category, clsid);
    }

    Result UnregisterClassA(const GUID& category, const CLSID& clsid)
    {
        return UnregisterClass(category, clsid);
    }

    Result UnregisterClassW(const GUID& category, const CLSID& clsid)
    {
        return UnregisterClass(category, clsid);
    }
#endif

protected:
    ~IClsidRegistry() = default;
};

// Reads component modules into an object factory and lets them file their bootstrap classes.
// No lock is held while a module runs, but for its start-up and clean-up code. One thread at a time
// per service.
//
// A module that was read in stays loaded by its factory if a class was registered from it. Another
// one is unloaded again, unless its `DllCanUnloadNow` disagrees, because it entered a singleton
// perhaps: then it stays until the factory is flushed and the module agrees, or until the factory
// goes. (If the factory is not the runtime's own, this is the business of the global one; and if
// that is not either, the module stays loaded.)
//
// Warnings tell what a scan passes over and why: a file that is no library of this machine or lacks
// something that it needs, a library without a module's exports, a module without a class, a class
// that is in two modules; and which folder could not be scanned.
struct IClassRegisterService : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_IClassRegisterService;

    // The factory to fill, on which a reference is taken; null: the global object factory.
    virtual Result SetFactory(IObjectFactory* factory) = 0;

    // Writes the factory that was set, or null. The pointer is borrowed: no reference is taken,
    // and it is good only while the service keeps that factory. Null answers `E_POINTER`.
    virtual Result GetFactory(IObjectFactory** ppv) = 0;

    // Registers every class of one module and then, with a registry, calls the module's
    // `DLLRegisterBootstrap` with the registry and `argument` (both may be null) and answers what
    // it answers; a module without that entry answers `S_FALSE`. A file that is no component module
    // answers `E_FAIL`, and so does one that did not attach and refuses every call; the runtime's
    // own file answers `E_INVALIDARG`, null `E_POINTER`. Where nobody can tell what the file is,
    // because memory ran out (`E_OUTOFMEMORY`), or descriptors, or it could not be read (`E_FAIL`),
    // that is reported. Classes that were registered before a failure stay. A relative file name is
    // completed by the current folder, a bare one looked for where the platform looks, at every
    // load.
    virtual Result RegisterModule(const wchar_t* fileName, IUnknown* registry,
                                  IUnknown* argument) = 0;

    // Does the same for every file of a folder that matches the pattern (null: "*.dll"), in the
    // order of the folder's listing, and skips the runtime's own file. What a module fails with or
    // throws, `E_OUTOFMEMORY` of its own too, is reported and does not end the scan; what the
    // runtime lacks, memory (`E_OUTOFMEMORY`), descriptors or a readable file (`E_FAIL`), does. A
    // folder that cannot be read, or in which nothing matches, answers `E_FAIL`. A relative folder
    // is completed when the scan begins: a module that changes the current folder changes nothing.
    virtual Result RegisterFolder(const wchar_t* path, const wchar_t* pattern, IUnknown* registry,
                                  IUnknown* argument) = 0;

protected:
    ~IClassRegisterService() = default;
};

// Lists the entries of one folder. Stateless; any thread may call.
struct IDirectoryService : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_IDirectoryService;

    // Scans the folder that `param` names (an empty path: the current one) for the pattern (absent
    // or empty: "*.*") and hands out a new node list of value sets, each holding one entry's bare
    // name, in the order of the folder's listing. Hidden entries are left out, folders are listed
    // like files. A folder that cannot be read, or in which nothing matches, answers `E_FAIL`; want
    // of memory `E_OUTOFMEMORY`. Null pointers answer `E_POINTER`, a missing path `E_NOT_FOUND`.
    //
    // Everywhere the rules are those of Windows: matching ignores case, "*.*" matches every name,
    // "*." names without a dot, and "?" at the end or before a dot one or no character. On Linux
    // names that begin with a dot are hidden and the order is by name without regard to case.
    virtual Result GetDirectoryCollection(IValueSet* param, const IID& riid, void** ppv) = 0;

protected:
    ~IDirectoryService() = default;
};

// What a class implements that enrols in a bootstrap category. `param` is what the host gave the
// master bootstrap; it is borrowed and may be null. No lock is held, so every service may be used.
struct IBootstrap : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_IBootstrap;

    virtual Result Startup(IUnknown* param) = 0;

    // May come without a successful `Startup` before it, and on another object of the class.
    virtual Result Cleanup(IUnknown* param) = 0;

protected:
    ~IBootstrap() = default;
};

// Starts and cleans up the process, once each, from one thread. The host creates one by
// `CLSID_MasterBootstrap`; its `IBootstrap` forwards to the same operations.
struct IMasterBootstrap : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_IMasterBootstrap;

    // Registers the modules of every module folder, then starts the classes of levels 0, 1 and 2.
    // A class that was taken out of its level by one before it is not started. The first class that
    // fails ends start-up with its code, as does a level whose classes could not be listed for want
    // of memory; a warning names the class and its module. A second call answers `E_FAIL`.
    virtual Result Startup(IUnknown* param) = 0;

    // Cleans up levels 2, 1 and 0, each to its end whatever fails, then clears every singleton,
    // the object factory and its modules included; a warning names a module of which objects are
    // alive still when it is unloaded. Answers the first failing level's code. Without
    // a `Startup` before, and when called again, it does nothing and answers `S_OK`.
    virtual Result Cleanup(IUnknown* param) = 0;

    // The factory to use, on which a reference is taken; null: the global one. `S_OK`.
    virtual Result SetFactory(IObjectFactory* factory) = 0;

    // The factory that was set, with a reference, or null: `S_OK` in both cases.
    virtual Result GetFactory(void** ppv) = 0;

    // As the two above, for the CLSID registry.
    virtual Result SetClsidRegistry(IClsidRegistry* registry) = 0;
    virtual Result GetClsidRegistry(void** ppv) = 0;

    // The module folders, an `IList` with a reference, at first holding the current folder, ".\\".
    // Add folders as wide-string values, or as value sets with `DirectoryServiceParam_Path`. An
    // item that is neither is passed over, but as the last one it makes `Startup` fail.
    virtual Result GetModuleFolders(void** ppv) = 0;

protected:
    ~IMasterBootstrap() = default;
};

} // namespace Tavrik::Ossira

#pragma pop_macro("RegisterClass")
#pragma pop_macro("UnregisterClass")
