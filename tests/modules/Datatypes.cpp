// A provider of datatypes that asks the service which is just installing it.
#include "Ossira.h"
#include "OssiraDatatypeBuilder.h"
#include "TestModules.h"

using namespace Tavrik::Ossira;
using namespace Tavrik::Ossira::tTest;

namespace
{

constexpr Building::TypeRow Rows[] = {{"Asking", &DATATYPE_Asking, 3, 0, nullptr, nullptr}};

struct Traits
{
    static constexpr CLSID ClassId = CLSID_AskingDatatypes;
    static constexpr std::string_view ClassName = "AskingDatatypes";
    static constexpr std::string_view ReportedClass = "Tavrik::Ossira::T_AskingDatatypes";
    static constexpr Building::TypeTable Types = Rows;
};

class T_Asking : public Building::CTypeProvider<Traits>
{
public:
    T_Asking()
    {
        ObjectPtr<ISingleton> singletons;
        ObjectPtr<IDatatypesService> service;
        OSSIRA_CHECK_CALL_TWICE(CreateObject(CLSID_GlobalSingleton, singletons), "singletons");
        OSSIRA_CHECK_CALL_TWICE(singletons->GetClassObject(CLSID_DatatypesService,
                                                           IDatatypesService::Iid,
                                                           service.PutVoid()),
                                "service");
        OSSIRA_CHECK(service->Contains(DATATYPE_SINT8) == S_OK, E_FAIL, "the intrinsic are there");
    }
};

OSSIRA_CLASS(T_Asking, "AskingDatatypes")

} // namespace
