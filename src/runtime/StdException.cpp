// The exception object of the whole process. Modules throw what this makes, so that the number of
// live exceptions is known in one place.
#include "FirstThrow.h"
#include "OssiraDiagnostics.h"
#include "TextFormat.h"

#include <atomic>
#include <new>
#include <string>

namespace Tavrik::Ossira
{

namespace
{

constinit std::atomic<std::int32_t> gOpenCount = 0;

class T_StdException final : public IException
{
public:
    T_StdException(std::uint32_t code, const SourceLocation& location, const char* expression)
        : mCode(code), mExpression(expression == nullptr ? "?" : expression), mLocation(location)
    {
        gOpenCount.fetch_add(1);
    }

    T_StdException(const T_StdException&) = delete;
    T_StdException& operator=(const T_StdException&) = delete;

    ~T_StdException()
    {
        gOpenCount.fetch_sub(1);
    }

    void* DeletingDestructor(std::uint32_t flags) override
    {
        constexpr std::uint32_t freeMemory = 1;
        if ((flags & freeMemory) != 0)
            delete this;
        else
            this->~T_StdException();
        return this;
    }

    void Release() override
    {
        delete this;
    }

    Result GetCode() override
    {
        return static_cast<Result>(mCode);
    }

    SourceLocation* GetLocation(SourceLocation* out) override
    {
        *out = mLocation;
        return out;
    }

    const char* GetExpression() override
    {
        return mExpression.c_str();
    }

    const char* GetDescription() override
    try
    {
        if (mDescription.empty())
            mDescription = DescribeLocation();
        return mDescription.c_str();
    }
    catch (const std::bad_alloc&)
    {
        return "?";
    }

private:
    [[nodiscard]] std::string DescribeLocation() const
    {
        if (mLocation.File == nullptr || mLocation.Function == nullptr)
            return "?";
        char text[2000];
        tSystem::FormatInto(text, sizeof text, "%s:%d %s", mLocation.File, mLocation.Line,
                            mLocation.Function);
        return text;
    }

    std::uint32_t mCode;
    std::string mExpression;
    std::string mDescription; // built when it is first asked for
    SourceLocation mLocation;
};

} // namespace

} // namespace Tavrik::Ossira

Tavrik::Ossira::IException* NewException(std::uint32_t code,
                                         const Tavrik::Ossira::SourceLocation* location,
                                         const char* expression)
try
{
    Tavrik::tSystem::PrepareThrow();
    const Tavrik::Ossira::SourceLocation nowhere = {};
    return new Tavrik::Ossira::T_StdException(code, location == nullptr ? nowhere : *location,
                                              expression);
}
catch (const std::bad_alloc&)
{
    return nullptr;
}

std::int32_t GetExceptionOpenCount()
{
    return Tavrik::Ossira::gOpenCount.load();
}
