// What a module and each of its classes is put through by `ossira check`. A step runs in a child
// process, where it may crash, hang, or leave things behind.
#pragma once

#include "CheckModule.h"

#include <cstdio>
#include <span>

namespace Tavrik::tHost
{

// What a step has to work with, and how it tells where it is: should the process end, that is the
// last thing it said.
class CCheckScene
{
public:
    CCheckScene(const std::wstring& path, const KnownClass& checked, std::FILE* reports)
        : mPath(path), mClass(checked), mReports(reports)
    {
    }

    [[nodiscard]] const std::wstring& Path() const noexcept
    {
        return mPath;
    }

    [[nodiscard]] const CLSID& Class() const noexcept
    {
        return mClass.Id;
    }

    void Doing(const std::string& what) const
    {
        Say("doing", what);
    }

    // One word of what kind it is, and a text without line ends.
    void Say(const char* kind, const std::string& text) const
    {
        std::fprintf(mReports, "%s %s\n", kind, text.c_str());
    }

private:
    const std::wstring& mPath;
    const KnownClass& mClass;
    std::FILE* mReports;
};

// What cannot be checked here, and why.
class CNotChecked : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

struct CheckStep
{
    const char* Name;
    void (*Run)(const CCheckScene& scene); // throws a `CFailure` for what is wrong
    const char* Why;                       // it matters
    const char* Where;                     // to look
};

// Of the module, once, and of each class; the first one is what all others build on.
[[nodiscard]] std::span<const CheckStep> ModuleSteps();
[[nodiscard]] std::span<const CheckStep> ClassSteps();

// Of the steps of a class, those that stand in a file of their own.
void CheckThreads(const CCheckScene& scene);
void CheckMemory(const CCheckScene& scene);

// To be called by a child before its first step.
void PrepareSteps();

} // namespace Tavrik::tHost
