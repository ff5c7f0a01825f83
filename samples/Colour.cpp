// A module that brings a datatype of its own. One row of a table says what a colour is, how two are
// compared and how they are mixed; the last line files the provider with the datatypes service,
// which then answers for colours as it does for numbers.
#include "Colour.h"

#include "OssiraDatatypeBuilder.h"
#include "Sample.h"

#include <cstring>

namespace Tavrik::Samples
{

using namespace Ossira;

namespace
{

constexpr float Colour::*Components[] = {&Colour::Red, &Colour::Green, &Colour::Blue,
                                         &Colour::Alpha};

// Data come from values and files; nothing says that they are aligned.
Colour Load(const void* data)
{
    Colour colour;
    std::memcpy(&colour, data, sizeof(colour));
    return colour;
}

// By red, then green, then blue, then alpha. A component that is no number ends the comparison:
// such colours count as equal.
std::int32_t Compare(const void* dataA, std::uint32_t, const void* dataB, std::uint32_t)
{
    const Colour a = Load(dataA);
    const Colour b = Load(dataB);
    for (const auto component : Components)
    {
        if (a.*component != b.*component)
            return b.*component > a.*component ? -1 : (a.*component > b.*component ? 1 : 0);
    }
    return 0;
}

Result Mix(const void* dataA, std::uint32_t, const void* dataB, std::uint32_t, double t,
           void* dataR, std::uint32_t)
{
    const Colour a = Load(dataA);
    const Colour b = Load(dataB);
    Colour mixed = {};
    for (const auto component : Components)
    {
        const double from = a.*component;
        mixed.*component = static_cast<float>((b.*component - from) * t + from);
    }
    std::memcpy(dataR, &mixed, sizeof(mixed));
    return sizeof(mixed);
}

constexpr Building::TypeRow Rows[] = {
    {"Colour", &DATATYPE_Colour, sizeof(Colour), Building::FixedSize, &Compare, &Mix}};

struct ColourTraits
{
    static constexpr CLSID ClassId = CLSID_ColourDatatypes;
    static constexpr std::string_view ClassName = "ColourDatatypes";
    static constexpr std::string_view ReportedClass =
        "Tavrik::Samples::`anonymous-namespace'::T_ColourDatatypes";
    static constexpr Building::TypeTable Types = Rows;
};

// The table is all that a provider needs. This one is an ISample besides, for the host.
class T_ColourDatatypes : public Building::CTypeProvider<ColourTraits>, public ISample
{
public:
    OSSIRA_INTERFACES(IDatatypes, ISample, IObjectIdentity)

    Result Describe(IValue* text) override
    {
        return SetValueUniString(text, L"I know colours: ask the datatypes service to mix two.");
    }
};

} // namespace

OSSIRA_CLASS(T_ColourDatatypes, "ColourDatatypes")
OSSIRA_BOOTSTRAP(CLSID_ColourDatatypes, REGCAT_Datatypes, GUID_Null, "ColourDatatypes")

} // namespace Tavrik::Samples
