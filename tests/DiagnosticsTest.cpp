// Failure and its report, from the throw to the line that leaves the process.
#include "FailingMemory.h"
#include "OssiraFrame.h"
#include "ServiceTools.h"

#include <chrono>
#include <stdexcept>

namespace Tavrik::Ossira::tTest
{

namespace
{

constexpr SourceLocation SomePlace = {"src/Some.cpp", 12, "Some::Function"};

TEST(Diagnostics, ALineIsLaidOutByItsLevelAndCutWhereTheBuffersEnd)
{
#define FIFTY "123456789 123456789 123456789 123456789 123456.cpp"
    const std::string text(5000, 'x');
    const ObserverMaskScope everything(0xFF);
    const DiagnosticsCapture capture;
    FailingMemory none(0); // nothing of this needs memory
    DebugOutput(PRINT_ERROR, SomePlace, "seven is %d\n", 7);
    DebugOutput(PRINT_WARN, SomePlace, "seven is %d\n", 7);
    DebugOutput(PRINT_PROGRESS, {FIFTY, 12345, "f"}, "fifty characters\n");
    DebugOutput(PRINT_TRACE, {"longer than " FIFTY, 1, "f"}, "the last fifty of more\n");
    DebugOutput(PRINT_ERROR, {nullptr, 1, "f"}, "%ls\n", L"Gr\u00F6\u00DFe \u65E5 \U0001F600");
    DebugOutput(PRINT_ERROR, SomePlace, "%s", text.c_str());
    DebugOutputF("\n%ls %s", L"\u00E9", text.c_str());
    void (*const print)(const char*, ...) = &DebugOutputF;
    print(nullptr);
    EXPECT_FALSE(none.Stop());
    EXPECT_EQ(capture.Text(), "\a[src/Some.cpp:  12] -ERROR- seven is 7\n"
                              "w[src/Some.cpp:  12] -WARN- seven is 7\n"
                              " [" FIFTY ":12345]  fifty characters\n"
                              " [" FIFTY ":   1]  the last fifty of more\n"
                              "\a[?:   1] -ERROR- Gr\u00F6\u00DFe \u65E5 \U0001F600\n"
                              "\a[src/Some.cpp:  12] -ERROR- " +
                                  text.substr(0, 1999) + "\n\u00E9 " + text.substr(0, 3995) +
                                  "\aDebugOutputF invalid pointer: format == NULL\n");
}

// --- Observers ---------------------------------------------------------------------------------

Result PrintBy(IObserverPrint& observer, std::uint32_t level, const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const Result result = observer.Print(level, &SomePlace, format, arguments);
    va_end(arguments);
    return result;
}

TEST(Diagnostics, TheObserverInPlaceDecidesWhatIsPrinted)
{
    const auto own = Make<IObserverPrint>(CLSID_DebugOutputObserverPrint);
    Observer host;
    host.Mask = []
    {
        return PRINT_ERROR | PRINT_TRACE;
    };
    host.OnLine = []
    {
        throw std::runtime_error("no paper");
    };
    const DiagnosticsCapture capture;

    EXPECT_EQ(GetGlobalObserver(nullptr), E_POINTER);
    EXPECT_EQ(SetGlobalObserver(own.Get()), S_OK);
    EXPECT_EQ(CurrentLevelMask(), PRINT_ERROR);
    EXPECT_EQ(own->SetLevelMask(PRINT_WARN, 0xFF), S_OK); // what is set wins
    EXPECT_EQ(CurrentLevelMask(), PRINT_WARN);
    DebugOutput(PRINT_ERROR, SomePlace, "not of its levels\n");
    EXPECT_EQ(PrintBy(*own, PRINT_ERROR, nullptr), S_OK) << "nothing is looked at";
    EXPECT_EQ(PrintBy(*own, PRINT_WARN, "by hand\n"), S_OK);

    EXPECT_EQ(host.References, 0u);
    EXPECT_EQ(SetGlobalObserver(&host), S_OK);
    EXPECT_EQ(SetGlobalObserver(&host), S_OK); // again: changes nothing
    EXPECT_EQ(ReferencesOn(*own), 1u);
    EXPECT_EQ(host.References, 1u);
    EXPECT_EQ(own->SetLevelMask(PRINT_PROGRESS, 0), S_OK); // not in place
    EXPECT_EQ(CurrentLevelMask(), PRINT_ERROR | PRINT_TRACE);
    DebugOutput(PRINT_TRACE, SomePlace, "%s", "heard");
    DebugOutput(PRINT_WARN, SomePlace, "%s", "not of its levels");
    EXPECT_EQ(host.Heard, "Some::Function1heard");

    EXPECT_EQ(SetGlobalObserver(nullptr), S_OK);
    EXPECT_EQ(CurrentLevelMask(), 0u);
    DebugOutput(PRINT_TRACE, SomePlace, "unfiltered and not located");
    EXPECT_EQ(Make<IValue>(CLSID_Value)->GetType(nullptr), E_POINTER);
    EXPECT_EQ(capture.Text(), "w[src/Some.cpp:  12] -WARN- by hand\nunfiltered and not located");
}

// Whatever it is called for, it causes a line, which calls it again.
TEST(Diagnostics, AnObserverMayCauseLinesWhateverItIsCalledForAndThrow)
{
    Observer observer;
    bool isMeddling = false;
    observer.OnCall = [&]
    {
        if (std::exchange(isMeddling, true))
            return;
        DebugOutput(PRINT_ERROR, SomePlace, "meddling\n");
        EXPECT_EQ(CurrentLevelMask(), PRINT_ERROR);
        isMeddling = false;
    };
    EXPECT_EQ(SetGlobalObserver(&observer), S_OK);
    EXPECT_EQ(observer.References, 1u);
    EXPECT_EQ(CurrentLevelMask(), PRINT_ERROR);
    observer.Heard.clear();
    DebugOutput(PRINT_ERROR, SomePlace, "one\n");
    EXPECT_NE(observer.Heard.find("meddling"), std::string::npos);
    observer.Mask = [&]
    {
        return isMeddling ? PRINT_ERROR : throw std::runtime_error("no mask");
    };
    EXPECT_EQ(CurrentLevelMask(), 0u);
    EXPECT_EQ(Make<IValue>(CLSID_Value)->GetType(nullptr), E_POINTER);
    observer.OnCall = [] {
    };
}

TEST(Diagnostics, AnEndingThreadPassesTheBoundariesAndLeavesItsLinesWhole)
{
    if (EndThisThread == nullptr)
        GTEST_SKIP();
    bool isBehind = false;
    for (const bool inItsLine : {false, true})
    {
        Observer observer;
        observer.OnLine = EndThisThread;
        if (!inItsLine)
            observer.Mask = []
            {
                return EndThisThread(), PRINT_ERROR;
            };
        std::thread(
            [&]
            {
                (void)Make<IValue>(CLSID_Value);
                DebugOutput(PRINT_ERROR, SomePlace, "its last one\n");
                isBehind = true;
            })
            .join();
        EXPECT_FALSE(isBehind);
    }
    EXPECT_EQ(GetExceptionOpenCount(), 0);

    const DiagnosticsCapture capture;
    std::thread(
        [&]
        {
            CancelThisThread();
            DebugOutput(PRINT_ERROR, SomePlace, "whole\n");
            isBehind = true;
        })
        .join();
    EXPECT_TRUE(isBehind);
    EXPECT_EQ(capture.CountLinesWith("-ERROR- whole"), 1u);
}

TEST(Diagnostics, ADebugOutputThatNobodyReadsNeitherEndsNorStopsTheProcess)
{
    const auto begin = std::chrono::steady_clock::now();
    for (const bool isFull : {false, true})
    {
        DiagnosticsCapture broken(Stream::Pipe);
        broken.Break(isFull);
        for (int line = 0; line < 20; ++line)
            DebugOutputF("lost\n");
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    const DiagnosticsCapture capture;
    DebugOutputF("heard again\n");
    EXPECT_EQ(capture.Text(), "heard again\n");
}

// --- Checks and boundaries ---------------------------------------------------------------------

Result AnswerOf(void (*thrower)())
try
{
    thrower();
    return S_OK;
}
OSSIRA_CATCH_RETURN

TEST(Checks, WhateverIsThrownEndsAsACodeAndOneLine)
{
    constexpr Result unknown = static_cast<Result>(0x80ABCDEF);
    REPORTS(AnswerOf([] { OSSIRA_CHECK(SomePlace.Line < 0, E_INVALIDARG, "the check"); }),
            E_INVALIDARG, "-ERROR- \a0x80070057 the check: One or more arguments are invalid");
    REPORTS(AnswerOf([] { OSSIRA_THROW(S_FALSE, nullptr); }), E_UNEXPECTED, "\a0x1 ?: False");
    REPORTS(AnswerOf([] { OSSIRA_THROW(unknown, "unknown"); }), unknown,
            "\a0x80abcdef unknown: 0x80abcdef");
    REPORTS(AnswerOf([] { throw static_cast<IException*>(nullptr); }), E_OUTOFMEMORY,
            "\aFATAL: IException NULL-Pointer");
    REPORTS(AnswerOf([] { throw std::bad_alloc(); }), E_OUTOFMEMORY,
            "\a0x8007000e std::bad_alloc: Ran out of memory");
    REPORTS(AnswerOf([] { throw std::length_error("longer"); }), E_OUTOFMEMORY,
            "\a0x8007000e longer: Ran out of memory");
    REPORTS(AnswerOf([] { throw std::runtime_error("broken"); }), E_UNEXPECTED,
            "\a0x8000ffff broken: Catastrophic failure");
    EXPECT_EQ(GetExceptionOpenCount(), 0);
    const char* const first = ErrorText(unknown);
    EXPECT_STREQ(ErrorText(unknown + 1), "0x80abcdf0");
    EXPECT_STREQ(first, "0x80abcdef") << "each has a place of its own";
    for (const Result code :
         {S_OK, S_FALSE, E_PENDING, E_NOTIMPL, E_NOINTERFACE, E_POINTER, E_ABORT, E_FAIL,
          E_UNEXPECTED, E_ACCESSDENIED, E_OUTOFMEMORY, E_FILE_EXISTS, E_INVALIDARG, E_NOT_FOUND,
          E_NOT_SUPPORTED, E_DISPOSED})
        EXPECT_NE(ErrorText(code)[0], '0') << "has words";
}

TEST(Checks, AFailingCallIsMadeTwiceAndTheRepeatCounts)
{
    static std::vector<Result> calls; // what they answer, the last one first
    static const auto next = []
    {
        const Result answer = calls.back();
        calls.pop_back();
        return answer;
    };
    calls = {S_OK, E_FAIL, E_ABORT, E_FAIL, S_OK, E_FAIL};
    REPORTS(AnswerOf([] { OSSIRA_CHECK_CALL(next(), "call"); }), E_FAIL,
            "\a0x80004005 call: Fail; Unspecified error");
    EXPECT_EQ(next(), S_OK) << "the call was not made again";
    REPORTS(AnswerOf([] { OSSIRA_CHECK_CALL_TWICE(next(), "call"); }), E_ABORT,
            "\a0x80004004 call: Operation aborted");
    REPORTS(AnswerOf([] { OSSIRA_CHECK_CALL_TWICE(next(), "call"); }), S_OK);
    EXPECT_TRUE(calls.empty());
}

#define HERE(...)                                                                                  \
    (__VA_ARGS__)                                                                                  \
    {                                                                                              \
        OSSIRA_LOCATION(here);                                                                     \
        return here.Function;                                                                      \
    }

template <class First>
struct T_Named
{
    const char* Plain HERE(const First&, void (*)(int), std::pair<int, First>*) static const
        char* Other HERE(std::vector<First>&)
};

struct T_Standing
{
    static constexpr std::string_view OssiraReportedClass = "Tavrik::Elsewhere::T_Else";
    const char* Stands HERE(int, char**)
};

const char* Free HERE(const std::string&, int)

    TEST(Exceptions, TellTheirPlaceAlikeOnEveryCompiler)
{
    std::vector<long> numbers;
    const std::string here = "Tavrik::Ossira::tTest::`anonymous-namespace'::";
    EXPECT_EQ(T_Named<int>().Plain(1, nullptr, nullptr), here + "T_Named::Plain");
    EXPECT_EQ(T_Named<long>::Other(numbers), here + "T_Named::Other");
    EXPECT_EQ(Free(here, 1), here + "Free");
    EXPECT_STREQ(T_Standing().Stands(1, nullptr), "Tavrik::Elsewhere::T_Else::Stands");
    OSSIRA_LOCATION(place);
    const std::string named = "tests/DiagnosticsTest.cpp:" + std::to_string(place.Line) + " " +
                              here + "Exceptions_TellTheirPlaceAlikeOnEveryCompiler_Test::TestBody";
    const std::string text(3000, 'x');
    for (const auto& [where, description] :
         {std::pair(place, named),
          {{nullptr, 1, "f"}, "?"},
          {{"f", 1, nullptr}, "?"},
          {{"f", 1, text.c_str()}, "f:1 " + text.substr(0, 1995)}})
    {
        IException* const exception = NewException(1, &where, std::string("its own").c_str());
        EXPECT_STREQ(exception->GetExpression(), "its own");
        EXPECT_EQ(exception->GetDescription(), description);
        const bool frees = where.Line == 1;
        EXPECT_EQ(exception->DeletingDestructor(frees), exception);
        ::operator delete(frees ? nullptr : exception); // left to who asked for the end alone
    }
    EXPECT_EQ(GetExceptionOpenCount(), 0);
}

} // namespace

} // namespace Tavrik::Ossira::tTest
