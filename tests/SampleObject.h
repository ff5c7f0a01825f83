// A class of the white-box tests: an interface that extends another one, and a second interface.
#pragma once

#include "OssiraFrame.h"
#include "OssiraServices.h"

namespace Tavrik::Ossira::tTest
{

struct ISampleBase : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = {
        0xDC69A2A3, 0x395D, 0x4F25, {0x8E, 0x5C, 0x1F, 0x33, 0x60, 0x0A, 0x25, 0x31}};

    virtual Result One() = 0;

protected:
    ~ISampleBase() = default;
};

struct ISample : ISampleBase
{
    using Extends = ISampleBase;
    static constexpr IID Iid = {
        0xA8DB878B, 0x3573, 0x4940, {0xB7, 0xF3, 0x2F, 0x9F, 0x50, 0x5F, 0xA4, 0x43}};

    virtual Result Two() = 0;

protected:
    ~ISample() = default;
};

// Counts its deaths. While it dies it hands out a reference on itself and gets it back, as an
// object does whose destructor calls others.
class T_Sample : public ISample,
                 public IBootstrap,
                 public CObjectName,
                 public CObjectIdentity<T_Sample>,
                 public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = {
        0x43665D41, 0x942A, 0x4E6C, {0xB8, 0x92, 0x7E, 0x78, 0x1A, 0xF8, 0x69, 0x92}};
    static constexpr std::string_view ClassName = "Sample";
    OSSIRA_INTERFACES(ISample, IBootstrap, IObjectName, IObjectIdentity)

    static inline int Deaths = 0;

    ~T_Sample() override
    {
        ++Deaths;
        const ObjectPtr<IUnknown> self(PrivateUnknown());
    }

    Result One() override
    {
        return 1;
    }

    Result Two() override
    {
        return 2;
    }

    Result Startup(IUnknown*) override
    {
        return 3;
    }

    Result Cleanup(IUnknown*) override
    {
        return 4;
    }
};

} // namespace Tavrik::Ossira::tTest
