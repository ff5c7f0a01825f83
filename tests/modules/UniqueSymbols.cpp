// A module that was built without our function and defines a symbol that is to exist once in the
// process: some platforms never unmap such a library.
#include "OssiraFrame.h"
#include "TestModules.h"

namespace Tavrik::Ossira::tTest
{

#pragma GCC visibility push(default)
template <class Type>
struct Unique
{
    static inline std::int32_t Value = 0;
};
#pragma GCC visibility pop

namespace
{

class T_UniqueSymbols : public IUnknown, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_UniqueSymbols;

    T_UniqueSymbols()
    {
        ++Unique<T_UniqueSymbols*>::Value;
        ++Unique<int>::Value;
    }
};

OSSIRA_CLASS(T_UniqueSymbols, "UniqueSymbols")

} // namespace

} // namespace Tavrik::Ossira::tTest
