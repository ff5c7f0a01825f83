// Checks and boundaries: how an operation fails.
//
// A check is one line. When it fails it throws an exception that carries the code, a text and the
// place; the operation's boundary, one line at its end, reports the exception and answers its code:
//
//     Result T_Greeter::Greet(IValue* name, void** ppv) override
//     try
//     {
//         OSSIRA_CHECK_POINTER(ppv);
//         OSSIRA_CHECK_CALL(name->GetType(&type), "name->GetType(&type)");
//         ...
//         return S_OK;
//     }
//     OSSIRA_CATCH_RETURN
//
// Nothing between the two handles errors: owned things live in objects with destructors.
#pragma once

#include "OssiraDiagnostics.h"

#include <string_view>

// The class to report instead of the compiler's spelling. A class template that serves several
// classes declares a member of this name, with the full name of the class that it stands for;
// everywhere else it is this empty one.
inline constexpr std::string_view OssiraReportedClass = {};

namespace Tavrik::Ossira
{

template <std::size_t Length>
struct FunctionText
{
    char Text[Length + 1] = {};
};

namespace tDetail
{

// Compilers spell a function's name differently. What is reported is always of the form
// "Tavrik::Ossira::`anonymous-namespace'::T_Value::Compare": no result type, no parameters, no
// template arguments. This hands the characters of that form to `emit`, one by one.
template <class Emit>
consteval void SpellFunctionName(std::string_view pretty, std::string_view reportedClass, Emit emit)
{
    constexpr std::string_view anonymous = "`anonymous-namespace'";
    const auto anonymousAt = [&](std::size_t at) -> std::size_t
    {
        for (const std::string_view spelling :
             {"{anonymous}", "(anonymous namespace)", "`anonymous namespace'"})
        {
            if (pretty.substr(at).starts_with(spelling))
                return spelling.size();
        }
        return 0;
    };
    // Visits what stands outside template arguments, until `visit` answers false.
    const auto forEach = [&](std::size_t from, std::size_t to, auto visit)
    {
        int depth = 0;
        for (std::size_t at = from; at < to;)
        {
            const std::size_t skip = anonymousAt(at);
            const char c = skip != 0 ? '\0' : pretty[at];
            depth += c == '<' ? 1 : 0;
            if (depth == 0 && !visit(at, c))
                return;
            depth -= c == '>' ? 1 : 0;
            at += skip != 0 ? skip : 1;
        }
    };

    std::size_t begin = 0;           // behind the result type
    std::size_t end = pretty.size(); // at the parameters
    std::size_t method = 0;          // behind the class
    forEach(0, pretty.size(),
            [&](std::size_t at, char c)
            {
                if (c == '(')
                {
                    end = at;
                    return false;
                }
                if (c == ' ' || c == '*' || c == '&')
                    begin = at + 1;
                if (c == ' ' || c == '*' || c == '&' || c == ':')
                    method = at + 1;
                return true;
            });

    const auto emitAll = [&](std::string_view text)
    {
        for (const char c : text)
            emit(c);
    };
    if (!reportedClass.empty())
    {
        emitAll(reportedClass);
        emitAll("::");
        begin = method;
    }
    forEach(begin, end,
            [&](std::size_t, char c)
            {
                if (c == '\0')
                    emitAll(anonymous);
                else
                    emit(c);
                return true;
            });
}

consteval std::size_t FunctionNameLength(std::string_view pretty, std::string_view reportedClass)
{
    std::size_t length = 0;
    SpellFunctionName(pretty, reportedClass, [&](char) { ++length; });
    return length;
}

template <std::size_t Length>
consteval FunctionText<Length> FunctionName(std::string_view pretty, std::string_view reportedClass)
{
    FunctionText<Length> name;
    std::size_t at = 0;
    SpellFunctionName(pretty, reportedClass, [&](char c) { name.Text[at++] = c; });
    return name;
}

} // namespace tDetail

namespace tDetail
{

// For the macro below: a name that the platform's header may define as a macro cannot be qualified.
inline constexpr Result NullPointerCode = E_POINTER;

} // namespace tDetail

// Throws a new exception; a null one when not even that can be allocated.
[[noreturn]] void ThrowException(Result code, const SourceLocation& location, const char* text);

// What a boundary answers for the exception being handled: it is reported and released. A null
// exception and an allocation that failed anywhere mean that memory ran out (`E_OUTOFMEMORY`);
// whatever else was thrown is `E_UNEXPECTED`. Call it in a catch clause only. Where a thread is
// ended by unwinding its stack, which a catch of everything catches too, that goes on from here.
[[nodiscard]] Result ReportCaught(const SourceLocation& location);

} // namespace Tavrik::Ossira

#if defined(_MSC_VER) && !defined(__clang__) // which spells the name alone there
#define OSSIRA_FUNCTION_TEXT __FUNCTION__
#else
#define OSSIRA_FUNCTION_TEXT __PRETTY_FUNCTION__
#endif

// Defines the static location `name`: this file, this line, this method.
#define OSSIRA_LOCATION(name)                                                                      \
    static constexpr auto name##Function =                                                         \
        ::Tavrik::Ossira::tDetail::FunctionName<::Tavrik::Ossira::tDetail::FunctionNameLength(     \
            OSSIRA_FUNCTION_TEXT, OssiraReportedClass)>(OSSIRA_FUNCTION_TEXT,                      \
                                                        OssiraReportedClass);                      \
    static constexpr ::Tavrik::Ossira::SourceLocation name                                         \
    {                                                                                              \
        __FILE__, __LINE__, name##Function.Text                                                    \
    }

#define OSSIRA_THROW(code, text)                                                                   \
    do                                                                                             \
    {                                                                                              \
        OSSIRA_LOCATION(ossiraHere);                                                               \
        ::Tavrik::Ossira::ThrowException((code), ossiraHere, (text));                              \
    } while (false)

// The condition must hold, or else `code` is thrown with `text`.
#define OSSIRA_CHECK(condition, code, text)                                                        \
    do                                                                                             \
    {                                                                                              \
        if (!(condition)) [[unlikely]]                                                             \
            OSSIRA_THROW(code, text);                                                              \
    } while (false)

// The pointer must not be null, or else `E_POINTER` is thrown with the pointer's name.
#define OSSIRA_CHECK_POINTER(pointer)                                                              \
    OSSIRA_CHECK((pointer) != nullptr, ::Tavrik::Ossira::tDetail::NullPointerCode, #pointer)

// The argument must not stand at address 0, which callers of other languages can pass for a
// reference, or else `E_POINTER` is thrown with its name.
#define OSSIRA_CHECK_REFERENCE(reference)                                                          \
    OSSIRA_CHECK(!::Tavrik::Ossira::IsNullReference(reference),                                    \
                 ::Tavrik::Ossira::tDetail::NullPointerCode, #reference)

// The call must succeed, or else its code is thrown with `text`.
#define OSSIRA_CHECK_CALL(call, text)                                                              \
    do                                                                                             \
    {                                                                                              \
        const ::Tavrik::Ossira::Result ossiraResult = (call);                                      \
        OSSIRA_CHECK(!::Tavrik::Ossira::Failed(ossiraResult), ossiraResult, text);                 \
    } while (false)

// As the runtime itself checks: a failing call is made a second time, and the code of the repeat is
// thrown with `text`; callers see the extra attempt. Should the repeat succeed, the operation goes
// on with what the repeat produced: write the call so that it overwrites what it produced before.
#define OSSIRA_CHECK_CALL_TWICE(call, text)                                                        \
    do                                                                                             \
    {                                                                                              \
        if (::Tavrik::Ossira::Failed(call)) [[unlikely]]                                           \
            OSSIRA_CHECK_CALL(call, text);                                                         \
    } while (false)

// The end of an operation whose body is a function-try-block.
#define OSSIRA_CATCH_RETURN                                                                        \
    catch (...)                                                                                    \
    {                                                                                              \
        OSSIRA_LOCATION(ossiraHere);                                                               \
        return ::Tavrik::Ossira::ReportCaught(ossiraHere);                                         \
    }

// One line at `level`, located here, if `mask` has that level; the arguments are evaluated only
// then. `mask` is what `CurrentLevelMask` answered when the operation began.
#define OSSIRA_PRINT(mask, level, ...)                                                             \
    do                                                                                             \
    {                                                                                              \
        if (((mask) & (level)) != 0)                                                               \
        {                                                                                          \
            OSSIRA_LOCATION(ossiraHere);                                                           \
            ::Tavrik::Ossira::DebugOutput((level), ossiraHere, __VA_ARGS__);                       \
        }                                                                                          \
    } while (false)
