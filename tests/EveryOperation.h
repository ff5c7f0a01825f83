// Every operation of every class, as a table of calls: the tests that go through it make each call
// with something wrong, or without the memory for it.
#pragma once

#include "CallSlot.h"
#include "OssiraCacheStack.h"
#include "OssiraDatatypes.h"
#include "OssiraMemory.h"
#include "OssiraModified.h"
#include "OssiraThreads.h"
#include "OssiraValueSetGroup.h"
#include "ServiceTools.h"

#include <algorithm>
#include <array>

namespace Tavrik::Ossira::tTest
{

// What a call is made with, by the letters of a row: g the GUID under which objects hold something,
// h another one, n a class, x a datatype, i the unknown's, o where an answer goes, p an object, v a
// value, l a value set, y another one, d a provider of datatypes, c a dependant, a an allocator, t
// an array of targets, s a text, b data, m the mask of an error line; digits are themselves.
struct Arguments
{
    Arguments()
    {
        EXPECT_EQ(SetValueUniString(Set.Get(), DirectoryServiceParam_Path,
                                    ModuleFolder("good").wstring()),
                  S_OK);
    }

    std::array<std::uintptr_t, 7> Of(std::string_view letters)
    {
        std::array<std::uintptr_t, 7> values = {};
        std::transform(letters.begin(), letters.end(), values.begin(),
                       [this](char letter) { return ValueOf(letter); });
        return values;
    }

    // Gives back what was answered to a call with those letters.
    void Release(std::string_view letters)
    {
        const bool isObject =
            letters.find('p') != letters.npos || letters.find("io") != letters.npos;
        auto* const object = static_cast<IUnknown*>(std::exchange(Out[0], nullptr));
        (void)ObjectPtr<IUnknown>::Adopt(isObject ? object : nullptr);
    }

    const GUID Key = Numbered(1);
    const GUID OtherKey = Numbered(2);
    void* Out[8] = {};
    void** Target = Out;
    char Data[64] = {};
    const ObjectPtr<IValue> Value = Make<IValue>(CLSID_Value);
    const ObjectPtr<IValueSet> Set = Make<IValueSet>(CLSID_ValueSet);
    const ObjectPtr<IValueSet> Layer = Make<IValueSet>(CLSID_ValueSet);
    const ObjectPtr<IDatatypes> Provider = Make<IDatatypes>(CLSID_IntrinsicDatatypes);
    const ObjectPtr<ITouchModifiedChain> Dependant =
        Make<ITouchModifiedChain>(CLSID_ModifiedService);
    const ObjectPtr<ICommonMemoryAllocator32> Allocator =
        Make<ICommonMemoryAllocator32>(CLSID_CommonMemoryAllocator32);

private:
    [[nodiscard]] std::uintptr_t ValueOf(char letter)
    {
        const std::pair<char, const void*> addresses[] = {{'g', &Key},
                                                          {'h', &OtherKey},
                                                          {'n', &CLSID_NodeList},
                                                          {'x', &DATATYPE_SINT8},
                                                          {'i', &IID_IUnknown},
                                                          {'o', &Out},
                                                          {'p', &Out},
                                                          {'v', Value.Get()},
                                                          {'l', Set.Get()},
                                                          {'y', Layer.Get()},
                                                          {'d', Provider.Get()},
                                                          {'c', Dependant.Get()},
                                                          {'a', Allocator.Get()},
                                                          {'t', &Target},
                                                          {'s', L"text"},
                                                          {'b', &Data}};
        for (const auto& [each, address] : addresses)
        {
            if (each == letter)
                return reinterpret_cast<std::uintptr_t>(address);
        }
        return letter == 'm' ? PRINT_ERROR : static_cast<std::uintptr_t>(letter - '0');
    }
};

struct Row
{
    std::size_t Slot;
    std::string_view Letters;
    // What is reported of null in the place of each argument in turn; "-": nothing, it is no
    // pointer, or null is allowed, or the row is for other tests.
    std::string_view Texts = "";
};

// A call of an operation, with as many arguments as any has.
inline Result Call(IUnknown* object, std::size_t slot, const std::array<std::uintptr_t, 7>& a)
{
    return CallSlot<Result>(object, slot, a[0], a[1], a[2], a[3], a[4], a[5], a[6]);
}

// Which part of an object is called: itself, or what it hands out.
enum class Part
{
    Whole,
    Walk,
    Keys,
    Values,
    View
};

struct OperationRows
{
    std::vector<CLSID> Classes;
    IID Iid;
    std::vector<Row> Rows;
    Part Of = Part::Whole;
};

inline ObjectPtr<IUnknown> PartOf(IUnknown& object, const IID& iid, Part part)
{
    ObjectPtr<IUnknown> made;
    Result answer = S_OK;
    if (part == Part::Whole)
        answer = object.QueryInterface(iid, made.PutVoid());
    else if (part == Part::Walk)
        answer = As<IEnumerable>(object)->GetEnumerator(iid, made.PutVoid());
    else if (part == Part::View)
        answer = As<IValueSetGroup>(object)->GetValueSet(reinterpret_cast<IValueSet**>(made.Put()));
    else
        answer = part == Part::Keys ? As<IDictionaryGUID>(object)->GetKeys(made.PutVoid())
                                    : As<IDictionaryGUID>(object)->GetValues(made.PutVoid());
    EXPECT_EQ(answer, S_OK);
    return made;
}

// One line a row would be three times as long.
// clang-format off
inline const OperationRows EveryOperation[] = {
    {{CLSID_NodeList, CLSID_LockableNodeList, CLSID_UnsafeNodeList},
     IID_IList, {{3, "io", "riid ppv"}, {4, ""}, {5, ""}, {6, ""}, {7, "v", "_item"},
     {8, "v", "_item"}, {9, "v", "_item"}, {10, "00it", "- - riid pppv"}, {11, "v", "_item"},
     {12, "0v", "- _item"}, {13, "0"}, {14, "0io", "- riid ppv"}, {15, "0v", "- _item"}}},
    {{CLSID_NodeList, CLSID_LockableNodeList, CLSID_ValueSet, CLSID_UnsafeValueSet},
     IID_IValue, {{3, "gb4"}, {4, "gb4"}, {5, "o", "type"}}},
    {{CLSID_DictionaryGUID, CLSID_LockableDictionaryGUID, CLSID_UnsafeDictionaryGUID,
     CLSID_ValueSet, CLSID_LockableValueSet, CLSID_UnsafeValueSet, CLSID_ValueSetGroup},
     IID_IDictionaryGUID, {{3, "io", "riid ppv"}, {4, ""}, {5, ""}, {6, ""}, {7, "h"},
     {8, "g", "key"}, {8, "h"}, {9, "g", "key"}, {10, "gio", "key riid ppv"},
     {11, "gv", "key value"}, {11, "gl"}, {11, "hl"}}},
    {{CLSID_DictionaryGUID, CLSID_LockableDictionaryGUID, CLSID_UnsafeDictionaryGUID,
     CLSID_ValueSetGroup}, IID_IDictionaryGUID, {{12, "p", "ppv"}, {13, "p", "ppv"}}},
    {{CLSID_ValueSet, CLSID_LockableValueSet, CLSID_UnsafeValueSet},
     IID_IValueSet, {{14, "ggb0", "key type - -"}, {15, "ggb4", "key type data -"}, {15, "hgb4"},
     {16, "go", "key -"}}},
    {{CLSID_ValueSetGroup}, IID_IValueSetGroup, {{14, "p", "pValueSet"},
     {15, "0lh0", "- valueSet - -"}, {16, "01"}, {17, "0io", "- riid pValueSet"},
     {18, "0o", "- pID"}, {19, "0o", "- pAccessFlags"}, {20, "l", "valueSet"}}},
    {{CLSID_ValueSetGroup}, IID_IValueSet, {{3, "io", "riid ppv"}, {4, ""}, {5, ""}, {6, ""},
     {7, "h"}, {8, "g", "key"}, {8, "h"}, {9, "g", "key"}, {10, "gio", "key riid ppv"},
     {11, "gv", "key value"}, {11, "gl"}, {11, "hl"}, {12, "p", "-"}, {13, "p", "-"},
     {14, "ggb0", "key type - -"}, {15, "ggb4", "key type - -"}, {15, "hgb4"},
     {16, "go", "key -"}}, Part::View},
    {{CLSID_Value, CLSID_ReadOnlyValue}, IID_IValue, {{3, "gb4", "type - -"},
     {4, "gb4", "type data -"}, {5, "o", "type"}}},
    {{CLSID_Value, CLSID_ReadOnlyValue}, IID_ICloneable, {{3, "io", "riid ppv"}}},
    {{CLSID_Value, CLSID_ReadOnlyValue}, IID_IComparable, {{3, "vo", "pv result"}}},
    {{CLSID_Value, CLSID_NodeList, CLSID_ValueSetGroup}, IID_IObjectName, {{3, "s"}, {3, "0"},
     {4, "b4"}}},
    {{CLSID_DebugSingleton}, IID_ISingleton, {{3, "gio", "clsid iid ppv"}, {3, "nio"}, {3, "hio"},
     {4, "gv", "clsid obj"}, {4, "hv"}, {5, "g"}, {5, "h"}, {6, ""}}},
    {{CLSID_DebugSingleton, CLSID_ObjectFactory}, IID_IEnumerable, {{3, "io", "riid ppv"}}},
    {{CLSID_ObjectFactory}, IID_IObjectFactory, {{3, "gio", "clsid iid ppv"}, {3, "nio"},
     {4, "g00", "clsid - -"}, {4, "hss"}, {5, "g", "clsid"}, {6, "gio", "clsid iid ppv"}, {7, ""},
     {8, "sio", "fileName iid ppv"}, {9, "io", "riid ppv"}, {10, "io", "iid ppv"}}},
    {{CLSID_ClsidRegistry}, IID_IClsidRegistry, {{3, "gg", "category clsid"},
     {4, "ggg", "category group clsid"}, {4, "ggh"}, {4, "ghg"}, {4, "hgg"},
     {5, "gg", "category clsid"}, {6, "ggg", "category group clsid"}, {7, "g", "category"},
     {8, "gg", "category group"}, {9, "gg", "category clsid"},
     {10, "ggg", "category group clsid"}, {11, "gio", "category riid ppv"},
     {12, "ggio", "category group riid ppv"}, {13, "io", "riid ppv"}}},
    {{CLSID_ClassRegisterService}, IID_IClassRegisterService, {{3, "0"}, {4, "o", "ppv"},
     {5, "s", "fileName"}, {6, "s", "path"}}},
    {{CLSID_DirectoryService}, IID_IDirectoryService, {{3, "lio", "param riid ppv"}}},
    {{CLSID_MasterBootstrap}, IID_IMasterBootstrap, {{4, ""}, {5, "0"}, {6, "p", "ppv"}, {7, "0"},
     {8, "p", "ppv"}, {9, "p", "ppv"}}},
    {{CLSID_DatatypesService, CLSID_IntrinsicDatatypes}, IID_IDatatypes, {{3, "io", "riid ppv"},
     {4, "g", "dataType"}, {4, "x"}, {5, "go", "dataType pInfo"}, {5, "xo"}, {6, "xb1b1o"}}},
    {{CLSID_DatatypesService}, IID_IDatatypesService, {{6, "gb0b0o", "dataType - - - - -"},
     {8, "gd", "dataType pType"}, {8, "xd"}, {9, "d", "pTypes"}, {10, "g", "dataType"}, {10, "x"},
     {11, "d", "pTypes"}, {12, ""}, {13, "gp", "dataType ppType"}, {13, "xp"}}},
    {{CLSID_IntrinsicDatatypes},
     IID_IDatatypes, {{6, "gb4b4o", "dataType result,_dataA,_dataB - result,_dataA,_dataB - "
                                    "result,_dataA,_dataB"}}},
    {{CLSID_ModifiedService}, IID_IModifiedService, {{3, "o", "pCounter"}, {4, ""},
     {5, "c", "pTouch"}, {6, "c", "pTouch"}}},
    {{CLSID_ModifiedService, CLSID_ClsidObjectCacheStack}, IID_IDisposable, {{3, ""}, {4, ""}}},
    {{CLSID_CommonMemoryAllocator32}, IID_ICommonMemoryAllocator32, {{3, "ooooo"}, {4, "00"},
     {6, "110io", "- - - riid ppv"}}},
    {{CLSID_CommonMemorySegment32}, IID_IMemorySegment32, {{3, "a00", "pAllocator - -"},
     {4, "p", "ppAllocator"}}},
    {{CLSID_ClsidObjectCacheStack}, IID_IClsidObjectCacheStack, {{3, ""}, {4, ""},
     {5, "io", "iid out"}, {6, "v", "value"}, {7, "gi", "clsid iid"}}},
    {{CLSID_CommonThreadPoolBox}, IID_ICommonThreadPoolBox, {{3, "1"}, {4, "o", "ppThreadPool"},
     {5, "0"}}},
    {{CLSID_DebugOutputObserverPrint}, IID_IObserverPrint, {{3, ""}, {4, "00"},
     {5, "mbbb", "- location format -"}}},
    {{CLSID_NodeList, CLSID_DictionaryGUID, CLSID_ValueSet, CLSID_ValueSetGroup,
     CLSID_ObjectFactory, CLSID_DebugSingleton},
     IID_IEnumerator, {{3, ""}, {4, ""}, {5, "io"}}, Part::Walk},
    {{CLSID_DictionaryGUID, CLSID_LockableDictionaryGUID, CLSID_UnsafeDictionaryGUID,
     CLSID_ValueSetGroup}, IID_ICollectionGUID, {{3, "io", "riid ppv"}, {4, ""}, {5, ""}, {7, "g"},
     {8, "g"}, {9, "g"}}, Part::Keys},
    {{CLSID_DictionaryGUID, CLSID_LockableDictionaryGUID, CLSID_UnsafeDictionaryGUID,
     CLSID_ValueSetGroup}, IID_ICollection, {{3, "io", "riid ppv"}, {4, ""}, {5, ""}, {7, "v"},
     {8, "v"}, {9, "v"}}, Part::Values},
};
// clang-format on

} // namespace Tavrik::Ossira::tTest
