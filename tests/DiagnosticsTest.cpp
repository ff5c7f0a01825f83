// Failure and its report, from the throw to the line that leaves the process.
#include "DiagnosticsCapture.h"
#include "OssiraFrame.h"
#include "TestTools.h"

#include <stdexcept>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

constexpr SourceLocation SomePlace = {"src/Some.cpp", 12, "Some::Function"};

TEST(Diagnostics, EveryCodeHasItsText)
{
    constexpr std::pair<Result, const char*> texts[] = {
        {S_OK, "Ok"},
        {S_FALSE, "False"},
        {E_PENDING, "The data necessary to complete this operation is not yet available"},
        {E_NOTIMPL, "Not implemented"},
        {E_NOINTERFACE, "No such interface supported"},
        {E_POINTER, "Invalid pointer"},
        {E_ABORT, "Operation aborted"},
        {E_FAIL, "Fail; Unspecified error"},
        {E_UNEXPECTED, "Catastrophic failure"},
        {E_ACCESSDENIED, "General access denied error"},
        {E_OUTOFMEMORY, "Ran out of memory"},
        {E_FILE_EXISTS, "The file exists"},
        {E_INVALIDARG, "One or more arguments are invalid"},
        {E_NOT_FOUND, "Not Found"},
        {E_NOT_SUPPORTED, "Not supported by this instance"},
        {E_DISPOSED, "An operation is performed on a disposed object"},
        {0x1234, "0x00001234"},
        {static_cast<Result>(0x80ABCDEF), "0x80abcdef"},
    };
    for (const auto& [code, text] : texts)
        EXPECT_STREQ(ErrorText(code), text);
}

TEST(Diagnostics, ALineIsLaidOutByItsLevel)
{
    const ObserverMaskScope everything(0xFF);
    constexpr std::pair<std::uint32_t, const char*> lines[] = {
        {PRINT_ERROR, "\a[src/Some.cpp:  12] -ERROR- seven is 7\n"},
        {PRINT_WARN, "w[src/Some.cpp:  12] -WARN- seven is 7\n"},
        {PRINT_PROGRESS, " [src/Some.cpp:  12]  seven is 7\n"},
        {PRINT_TRACE, " [src/Some.cpp:  12]  seven is 7\n"},
    };
    for (const auto& [level, line] : lines)
    {
        const DiagnosticsCapture capture;
        DebugOutput(level, SomePlace, "seven is %d\n", 7);
        EXPECT_EQ(capture.Text(), line);
    }
}

TEST(Diagnostics, OfALongPathTheLastFiftyCharactersArePrinted)
{
    const std::string fifty = std::string(46, 'd') + ".cpp";
    for (const std::string& path : {fifty, "0123456789" + fifty})
    {
        const DiagnosticsCapture capture;
        DebugOutput(PRINT_ERROR, {path.c_str(), 12345, "f"}, "m\n");
        EXPECT_EQ(capture.Text(), "\a[" + fifty + ":12345] -ERROR- m\n");
    }
}

TEST(Diagnostics, TextIsCutWhereTheBuffersEnd)
{
    const std::string text(5000, 'x');
    {
        const DiagnosticsCapture capture;
        DebugOutput(PRINT_ERROR, SomePlace, "%s", text.c_str());
        EXPECT_EQ(capture.Text(), "\a[src/Some.cpp:  12] -ERROR- " + text.substr(0, 1999));
    }
    {
        const DiagnosticsCapture capture;
        DebugOutputF("%s", text.c_str());
        EXPECT_EQ(capture.Text(), text.substr(0, 3999));
    }
    const SourceLocation place = {"file", 1, text.c_str()};
    IException* const exception = NewException(1, &place, "text");
    EXPECT_EQ(exception->GetDescription(), ("file:1 " + text).substr(0, 1999));
    exception->Release();
}

TEST(Diagnostics, WideNamesComeOutAsUtf8)
{
    const DiagnosticsCapture capture;
    DebugOutput(PRINT_ERROR, SomePlace, "\"%ls\"\n", L"Gr\u00F6\u00DFe \u65E5\u672C \U0001F600");
    DebugOutputF("%ls\n", L"\u00E9");
    EXPECT_EQ(capture.Text(), "\a[src/Some.cpp:  12] -ERROR- "
                              "\"Gr\u00F6\u00DFe \u65E5\u672C \U0001F600\"\n\u00E9\n");
}

TEST(Diagnostics, TheMaskDecidesWhatIsPrinted)
{
    const auto observer = Make<IObserverPrint>(CLSID_DebugOutputObserverPrint);
    EXPECT_EQ(observer->GetLevelMask(), PRINT_ERROR);
    EXPECT_EQ(observer->SetLevelMask(0x11, 0), S_OK);
    EXPECT_EQ(observer->GetLevelMask(), 0x51u);
    EXPECT_EQ(observer->SetLevelMask(0, 0x40), S_OK);
    EXPECT_EQ(observer->GetLevelMask(), 0x11u);
    EXPECT_EQ(observer->SetLevelMask(0x10, 0xFF), S_OK); // what is set wins over what is cleared
    EXPECT_EQ(observer->GetLevelMask(), 0x10u);

    const DiagnosticsCapture capture;
    DebugOutput(PRINT_TRACE, SomePlace, "not at the default mask\n");
    EXPECT_EQ(capture.Text(), "");
}

TEST(Diagnostics, FatalLinesNeedNoObserverAndNoFormat)
{
    const DiagnosticsCapture capture;
    void (*const write)(const char*, ...) noexcept = &DebugOutputF; // else the compiler objects
    write(nullptr);
    EXPECT_EQ(capture.Text(), "\aDebugOutputF invalid pointer: format == NULL\n");
}

// --- Observers ------------------------------------------------------------------------------------

// Remembers what it was asked to print; throws from it on demand.
class T_ListeningObserver : public IObserverPrint, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = IID_IObserverPrint;
    OSSIRA_INTERFACES(IObserverPrint)

    std::uint32_t GetLevelMask() override
    {
        return Mask;
    }

    Result SetLevelMask(std::uint32_t set, std::uint32_t clear) override
    {
        Mask = (Mask & ~clear) | set;
        return S_OK;
    }

    Result Print(std::uint32_t level, const SourceLocation* location, const char* format,
                 std::va_list arguments) override
    {
        char message[200];
        std::vsnprintf(message, sizeof message, format, arguments);
        Heard += std::to_string(level) + " " + location->Function + ": " + message;
        if (Throws)
            throw std::runtime_error("no paper");
        return S_OK;
    }

    std::uint32_t Mask = PRINT_ERROR | PRINT_TRACE;
    std::string Heard;
    bool Throws = false;
};

// Another observer in place of the former one, which comes back at the end.
class ObserverScope
{
public:
    explicit ObserverScope(IObserverPrint* observer)
    {
        GetGlobalObserver(mFormer.Put());
        EXPECT_EQ(SetGlobalObserver(observer), S_OK);
    }

    ~ObserverScope()
    {
        SetGlobalObserver(mFormer.Get());
    }

    ObserverScope(const ObserverScope&) = delete;
    ObserverScope& operator=(const ObserverScope&) = delete;

private:
    ObjectPtr<IObserverPrint> mFormer;
};

TEST(Diagnostics, AHostsObserverGetsTheLinesOfItsLevels)
{
    const auto observer = MakeObject<T_ListeningObserver>();
    const DiagnosticsCapture capture;
    {
        const ObserverScope scope(observer.Get());
        EXPECT_EQ(SetGlobalObserver(observer.Get()), S_OK); // again: changes nothing
        EXPECT_EQ(ReferencesOn(*observer), 2u);
        DebugOutput(PRINT_TRACE, SomePlace, "%s\n", "heard");
        DebugOutput(PRINT_WARN, SomePlace, "not of its levels\n");
        observer->Throws = true;
        DebugOutput(PRINT_ERROR, SomePlace, "thrown\n");
    }
    EXPECT_EQ(ReferencesOn(*observer), 1u);
    EXPECT_EQ(observer->Heard, "1 Some::Function: heard\n64 Some::Function: thrown\n");
    EXPECT_EQ(capture.Text(), "");
}

TEST(Diagnostics, WithoutAnObserverMessagesAreUnfilteredAndReportsSilent)
{
    EXPECT_EQ(GetGlobalObserver(nullptr), E_POINTER);
    const ObserverScope nobody(nullptr);
    const auto observer = MakeObject<T_ListeningObserver>();
    IObserverPrint* none = observer.Get();
    EXPECT_EQ(GetGlobalObserver(&none), S_OK);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(CurrentLevelMask(), 0u);

    const std::string text(5000, 'x');
    const DiagnosticsCapture capture;
    DebugOutput(PRINT_TRACE, SomePlace, "%s", text.c_str());
    EXPECT_EQ(capture.Text(), text.substr(0, 3999));
    EXPECT_EQ(Make<IValue>(CLSID_Value)->GetType(nullptr), E_POINTER);
    EXPECT_EQ(capture.Text().size(), 3999u);
}

// --- Checks and boundaries ------------------------------------------------------------------------

struct Thrower
{
    const char* Name;
    void (*Throw)();
    Result Answer;
    const char* Line; // behind the level's mark
};

int gLineOfCheck = 0;

Result AnswerOf(void (*thrower)())
try
{
    thrower();
    return S_OK;
}
OSSIRA_CATCH_RETURN

void ThrowByCheck()
{
    gLineOfCheck = __LINE__ + 1;
    OSSIRA_CHECK(gLineOfCheck < 0, E_INVALIDARG, "the text of the check");
}

constexpr Thrower Throwers[] = {
    {"nothing", [] {}, S_OK, nullptr},
    {"a check", &ThrowByCheck, E_INVALIDARG,
     "\a0x80070057 the text of the check: One or more arguments are invalid"},
    {"a success", [] { OSSIRA_THROW(S_FALSE, "?"); }, E_UNEXPECTED, "\a0x1 ?: False"},
    {"a null exception", [] { throw static_cast<IException*>(nullptr); }, E_OUTOFMEMORY,
     "\aFATAL: IException NULL-Pointer"},
    {"no memory", [] { throw std::bad_alloc(); }, E_OUTOFMEMORY, ": Ran out of memory"},
    {"too long", [] { throw std::length_error("longer"); }, E_OUTOFMEMORY,
     "\a0x8007000e longer: Ran out of memory"},
    {"the library's", [] { throw std::runtime_error("broken"); }, E_UNEXPECTED,
     "\a0x8000ffff broken: Catastrophic failure"},
    {"anything", [] { throw 5; }, E_UNEXPECTED, ": Catastrophic failure"},
};

TEST(Checks, WhateverIsThrownEndsAsACodeAndOneLine)
{
    for (const Thrower& thrower : Throwers)
    {
        SCOPED_TRACE(thrower.Name);
        const DiagnosticsCapture capture;
        EXPECT_EQ(AnswerOf(thrower.Throw), thrower.Answer);
        const std::vector<std::string> lines = capture.Lines();
        ASSERT_EQ(lines.size(), thrower.Line == nullptr ? 0u : 1u);
        if (thrower.Line != nullptr)
        {
            EXPECT_TRUE(lines[0].starts_with("\a[tests/DiagnosticsTest.cpp:")) << lines[0];
            EXPECT_TRUE(lines[0].ends_with(thrower.Line)) << lines[0];
        }
        EXPECT_EQ(GetExceptionOpenCount(), 0);
    }
}

TEST(Checks, AReportIsLocatedWhereItWasThrown)
{
    const DiagnosticsCapture capture;
    EXPECT_EQ(AnswerOf(&ThrowByCheck), E_INVALIDARG);
    EXPECT_TRUE(capture.Text().starts_with("\a[tests/DiagnosticsTest.cpp: " +
                                           std::to_string(gLineOfCheck) + "] -ERROR- \a0x"))
        << capture.Text();
}

// Answers the given codes, one a call.
struct Answers
{
    Result operator()()
    {
        return Codes[Calls++];
    }

    std::vector<Result> Codes;
    std::size_t Calls = 0;
};

Result CheckCall(Answers& answers)
try
{
    OSSIRA_CHECK_CALL(answers(), "answers()");
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result CheckResult(Answers& answers)
try
{
    OSSIRA_CHECK_RESULT(answers(), "answers()");
    return S_OK;
}
OSSIRA_CATCH_RETURN

TEST(Checks, AFailingCallIsMadeTwiceAndTheRepeatCounts)
{
    const DiagnosticsCapture capture;
    Answers fails = {{E_FAIL, E_ABORT}};
    EXPECT_EQ(CheckCall(fails), E_ABORT);
    EXPECT_EQ(capture.CountLinesWith("0x80004004 answers(): Operation aborted"), 1u);

    Answers recovers = {{E_FAIL, S_OK}};
    EXPECT_EQ(CheckCall(recovers), S_OK);
    EXPECT_EQ(recovers.Calls, 2u);

    Answers unrepeated = {{E_FAIL, S_OK}};
    EXPECT_EQ(CheckResult(unrepeated), E_FAIL);
    EXPECT_EQ(unrepeated.Calls, 1u);
    EXPECT_EQ(capture.Lines().size(), 2u);
}

// --- Exceptions and the names of functions ---------------------------------------------------------

TEST(Exceptions, KeepWhatTheyWereMadeOf)
{
    std::string text = "a check";
    IException* const exception =
        NewException(static_cast<std::uint32_t>(E_ABORT), &SomePlace, text.c_str());
    text = "changed";
    EXPECT_EQ(GetExceptionOpenCount(), 1);
    EXPECT_EQ(exception->GetCode(), E_ABORT);
    EXPECT_STREQ(exception->GetExpression(), "a check");
    SourceLocation place = {};
    EXPECT_EQ(exception->GetLocation(&place), &place);
    EXPECT_EQ(place.File, SomePlace.File);
    EXPECT_EQ(place.Line, 12);
    EXPECT_EQ(place.Function, SomePlace.Function);
    const char* const description = exception->GetDescription();
    EXPECT_STREQ(description, "src/Some.cpp:12 Some::Function");
    EXPECT_EQ(exception->GetDescription(), description);
    exception->Release();
    EXPECT_EQ(GetExceptionOpenCount(), 0);
}

TEST(Exceptions, OfNothingSayAQuestionMark)
{
    const SourceLocation nowhere = {};
    for (const SourceLocation* place : {&nowhere, static_cast<const SourceLocation*>(nullptr)})
    {
        IException* const exception = NewException(0, place, nullptr);
        EXPECT_STREQ(exception->GetExpression(), "?");
        EXPECT_STREQ(exception->GetDescription(), "?");
        exception->Release();
    }
}

TEST(Exceptions, FunctionNamesAreSpelledAlikeOnEveryCompiler)
{
    using tDetail::FunctionName;
    using tDetail::FunctionNameLength;
#define SPELL(pretty, reported)                                                                    \
    std::string(FunctionName<FunctionNameLength(pretty, reported)>(pretty, reported).Text)
    EXPECT_EQ(SPELL("Tavrik::Ossira::Result Tavrik::Ossira::{anonymous}::T_Value::Compare("
                    "Tavrik::Ossira::IUnknown*, int32_t*)",
                    ""),
              "Tavrik::Ossira::`anonymous-namespace'::T_Value::Compare");
    EXPECT_EQ(SPELL("Tavrik::Ossira::Result (anonymous namespace)::T_List<(anonymous namespace)::"
                    "Plain<1> >::Add(Tavrik::Ossira::IUnknown *)",
                    ""),
              "`anonymous-namespace'::T_List::Add");
    EXPECT_EQ(SPELL("std::map<int, A::B>& A::C::Items() const", ""), "A::C::Items");
    EXPECT_EQ(SPELL("virtual A::Result A::T_List<Lock>::Add(A::IUnknown*) [with Lock = A::Fast]",
                    "A::T_LockableList"),
              "A::T_LockableList::Add");
    EXPECT_EQ(SPELL("int main()", ""), "main");
#undef SPELL
    IException* exception = nullptr;
    try
    {
        ThrowByCheck();
    }
    catch (IException* thrown)
    {
        exception = thrown;
    }
    SourceLocation place = {};
    EXPECT_STREQ(exception->GetLocation(&place)->Function,
                 "Tavrik::Ossira::`anonymous-namespace'::ThrowByCheck");
    exception->Release();
}

} // namespace

} // namespace Tavrik::Ossira
