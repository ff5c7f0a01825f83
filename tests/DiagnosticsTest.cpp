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

// --- Observers
// ------------------------------------------------------------------------------------

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

TEST(Diagnostics, TheMaskIsAlwaysThatOfTheObserverInPlace)
{
    const auto own = Make<IObserverPrint>(CLSID_DebugOutputObserverPrint);
    const auto other = Make<IObserverPrint>(CLSID_DebugOutputObserverPrint);
    const auto foreign = MakeObject<T_ListeningObserver>();
    const ObserverScope scope(own.Get());
    EXPECT_EQ(CurrentLevelMask(), PRINT_ERROR);
    own->SetLevelMask(PRINT_WARN, 0);
    EXPECT_EQ(CurrentLevelMask(), PRINT_ERROR | PRINT_WARN);
    other->SetLevelMask(PRINT_TRACE, 0);
    EXPECT_EQ(CurrentLevelMask(), PRINT_ERROR | PRINT_WARN);
    SetGlobalObserver(foreign.Get());
    foreign->Mask = PRINT_PROGRESS;
    EXPECT_EQ(CurrentLevelMask(), PRINT_PROGRESS);
    own->SetLevelMask(0, PRINT_ERROR);
    EXPECT_EQ(CurrentLevelMask(), PRINT_PROGRESS);
    SetGlobalObserver(own.Get());
    EXPECT_EQ(CurrentLevelMask(), PRINT_WARN);
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

// --- Checks and boundaries
// ------------------------------------------------------------------------

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

// --- Exceptions and the names of functions
// ---------------------------------------------------------

} // namespace

} // namespace Tavrik::Ossira
