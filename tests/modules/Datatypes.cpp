// Providers of datatypes that misbehave, or do what is hard to bear, while they are created.
#include "Ossira.h"
#include "OssiraDatatypeBuilder.h"
#include "TestModules.h"

using namespace Tavrik::Ossira;
using namespace Tavrik::Ossira::tTest;

namespace
{

template <const CLSID& Clsid, const GUID& DataType>
struct Traits
{
    static constexpr CLSID ClassId = Clsid;
    static constexpr std::string_view ClassName = "TestDatatypes";
    static constexpr std::string_view ReportedClass = "Tavrik::Ossira::T_TestDatatypes";
    static constexpr Building::TypeRow Rows[] = {
        {"a name of which there is much more than fits into a record", &DataType, 3, 0, nullptr,
         nullptr}};
    static constexpr Building::TypeTable Types = Rows;
};

// Asks the service that is just installing it.
class T_Asking : public Building::CTypeProvider<Traits<CLSID_AskingDatatypes, DATATYPE_Asking>>
{
public:
    T_Asking()
    {
        ObjectPtr<ISingleton> singletons;
        OSSIRA_CHECK_CALL(CreateObject(CLSID_GlobalSingleton, singletons), "singletons");
        ObjectPtr<IDatatypesService> service;
        OSSIRA_CHECK_CALL(singletons->GetClassObject(CLSID_DatatypesService, IDatatypesService::Iid,
                                                     service.PutVoid()),
                          "service");
        OSSIRA_CHECK(service->Contains(DATATYPE_SINT8) == S_OK, E_FAIL, "the intrinsic are there");
    }
};

class T_Unbuildable : public Building::CTypeProvider<Traits<CLSID_UnbuildableDatatypes, GUID_Null>>
{
public:
    T_Unbuildable()
    {
        OSSIRA_THROW(E_ABORT, "cannot be built");
    }
};

using T_Late = Building::CTypeProvider<Traits<CLSID_LateDatatypes, DATATYPE_Late>>;

OSSIRA_CLASS(T_Asking, "AskingDatatypes")
OSSIRA_CLASS(T_Unbuildable, "UnbuildableDatatypes")
OSSIRA_CLASS(T_Late, "LateDatatypes")

} // namespace
