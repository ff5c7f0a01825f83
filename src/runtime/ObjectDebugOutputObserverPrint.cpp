// The default observer: decorates a line with its level and place and writes it to the platform's
// debug output. The BEL that begins error lines is part of the text, a mark for debug viewers.
#include "GlobalObserver.h"
#include "OssiraClasses.h"
#include "OssiraFrame.h"
#include "Platform.h"
#include "TextFormat.h"

#include <cstring>

namespace Tavrik::Ossira
{

namespace
{

class T_DebugOutputObserverPrint : public IObserverPrint,
                                   public CObjectIdentity<T_DebugOutputObserverPrint>,
                                   public IToldMask,
                                   public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_DebugOutputObserverPrint;
    static constexpr std::string_view ClassName = "DebugOutputObserverPrint";

    OSSIRA_INTERFACES(IObserverPrint, IObjectIdentity, IToldMask)

    std::uint32_t GetLevelMask() override
    {
        return mMask.load(std::memory_order_relaxed);
    }

    Result SetLevelMask(std::uint32_t set, std::uint32_t clear) override
    {
        mMask.store((GetLevelMask() & ~clear) | set, std::memory_order_relaxed);
        TellLevelMask(*this, mMask);
        return S_OK;
    }

    Result Print(std::uint32_t level, const SourceLocation* location, const char* format,
                 std::va_list arguments) override;

    const ToldMask* Told() noexcept override
    {
        return GlobalToldMask();
    }

private:
    std::atomic<std::uint32_t> mMask = PRINT_ERROR;
};

// Only the end of a long path is printed: that is where the names are.
const char* FileText(const char* file)
{
    constexpr std::size_t longest = 50;
    const std::size_t length = std::strlen(file);
    return length > longest ? file + (length - longest) : file;
}

const char* LinePattern(std::uint32_t level)
{
    if ((level & PRINT_ERROR) != 0)
        return "\a[%s:%4d] -ERROR- %s";
    if ((level & PRINT_WARN) != 0)
        return "w[%s:%4d] -WARN- %s";
    return " [%s:%4d]  %s";
}

Result T_DebugOutputObserverPrint::Print(std::uint32_t level, const SourceLocation* location,
                                         const char* format, std::va_list arguments)
try
{
    if ((GetLevelMask() & level) == 0)
        return S_OK;
    OSSIRA_CHECK_POINTER(location);
    OSSIRA_CHECK_POINTER(format);

    char message[2000];
    tSystem::FormatText(message, sizeof message, format, arguments);
    char line[4000];
    tSystem::FormatInto(line, sizeof line, LinePattern(level),
                        FileText(location->File == nullptr ? "?" : location->File), location->Line,
                        message);
    tSystem::WriteDebugText(line);
    return S_OK;
}
OSSIRA_CATCH_RETURN

} // namespace

OSSIRA_CLASS(T_DebugOutputObserverPrint, "DebugOutputObserverPrint")

} // namespace Tavrik::Ossira
