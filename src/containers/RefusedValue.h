// The `IValue` of lists and value sets. They answer the interface, so that a collection can stand
// where a value is expected, but hold no datum of their own.
#pragma once

#include "OssiraCheck.h"
#include "OssiraValue.h"
#include "ReportedName.h"

namespace Tavrik::Ossira
{

// `Traits::RefusalText` is what a refused call reports.
template <class Traits>
class CRefusedValue : public IValue
{
public:
    static constexpr std::string_view OssiraReportedClass = ReportedClass<Traits>;

    Result GetValue(const GUID&, void*, std::int32_t) override
    try
    {
        OSSIRA_THROW(E_NOT_SUPPORTED, Traits::RefusalText);
    }
    OSSIRA_CATCH_RETURN

    Result SetValue(const GUID&, const void*, std::int32_t) override
    try
    {
        OSSIRA_THROW(E_NOT_SUPPORTED, Traits::RefusalText);
    }
    OSSIRA_CATCH_RETURN

    // That of an empty value.
    Result GetType(GUID* type) override
    try
    {
        OSSIRA_CHECK_POINTER(type);
        *type = GUID_Null;
        return S_OK;
    }
    OSSIRA_CATCH_RETURN

protected:
    ~CRefusedValue() = default;
};

} // namespace Tavrik::Ossira
