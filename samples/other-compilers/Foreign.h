// What a module of another compiler offers to the tests: it uses what it is handed.
#pragma once

#include "OssiraDiagnostics.h"
#include "OssiraThreads.h"
#include "OssiraValue.h"

namespace Tavrik::Ossira::tTest
{

inline constexpr CLSID CLSID_Foreign = {
    0x1C0E8C2B, 0x5A54, 0x4E0E, {0x8D, 0x1B, 0x6B, 0x0E, 0x41, 0x5D, 0x77, 0x31}};
inline constexpr IID IID_IForeign = {
    0x8B3A5D0E, 0x96A4, 0x4D0C, {0xB1, 0x0F, 0x22, 0x7E, 0x5C, 0x90, 0x1A, 0x46}};

struct IForeign : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_IForeign;

    // Reads everything that an exception says and answers its code when all is as `place` and
    // `text` have it, else `E_UNEXPECTED`. Releases the exception.
    virtual Result TakeException(IException* exception, const SourceLocation* place,
                                 const char* text) = 0;

    // Runs a function on this thread, asks it to stop, and destroys it without freeing its memory:
    // `S_OK` when that answers its address.
    virtual Result UseFunction(tSystem::tThreads::IThreadFunction* function, void* parameter) = 0;

    // Hands a function of the module to a pool, and writes how often it ran.
    virtual Result UsePool(tSystem::tThreads::IThreadPool* pool, std::int32_t* runs) = 0;

    // Makes a value that holds the name of the compiler's object layout, as narrow text.
    virtual Result MakeLayout(IValue** out) = 0;

    // `S_OK` when the class was started with the process, else `S_FALSE`.
    virtual Result WasStarted() = 0;

protected:
    ~IForeign() = default;
};

} // namespace Tavrik::Ossira::tTest
