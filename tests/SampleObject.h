// A class of the white-box tests: an interface that extends another one, and further interfaces.
#pragma once

#include "OssiraFrame.h"
#include "TestModules.h"

namespace Tavrik::Ossira::tTest
{

// An interface without operations of its own. Every two have the first number in common, the first
// one with the unknown.
template <class Base, std::uint32_t Number>
struct IMark : Base
{
    using Extends = Base;
    static constexpr IID Iid = {Number / 2, 0x7E57, 4, {Number}};

protected:
    ~IMark() = default;
};

using ISampleBase = IMark<IUnknown, 1>;
using ISample = IMark<ISampleBase, 2>;
using ISecond = IMark<IUnknown, 3>;

// While it dies it hands out a reference on itself and gets it back, as an
// object does whose destructor calls others.
class T_Sample : public ISample,
                 public ISecond,
                 public CObjectName,
                 public CObjectIdentity<T_Sample>,
                 public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = {
        0xFFFFFFFF, 0x942A, 0x4E6C, {0xB8, 0x92, 0x7E, 0x78, 0x1A, 0xF8, 0x69, 0x92}};
    static constexpr std::string_view ClassName = "Sample";
    OSSIRA_INTERFACES(ISample, ISecond, IObjectName, IObjectIdentity)

    ~T_Sample() override
    {
        const ObjectPtr<IUnknown> self(PrivateUnknown());
    }
};

} // namespace Tavrik::Ossira::tTest
