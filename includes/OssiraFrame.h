// What a component module builds its classes from: the object base, the class table and the
// bootstrap chain. A class takes four steps:
//
//     class T_Greeter : public IGreeter, public COssiraUnknown
//     {
//     public:
//         static constexpr CLSID ClassId = CLSID_Greeter;
//         OSSIRA_INTERFACES(IGreeter)          // what QueryInterface answers
//         Result Greet(...) override;          // its operations
//     };
//     OSSIRA_CLASS(T_Greeter, "Greeter")       // enters it in the module's class table
//     OSSIRA_BOOTSTRAP(CLSID_Greeter, BootstrapRegistryStartup_Level1, GUID_Null, "Greeter")
//                                              // files it in a category, where it belongs in one
//
// The module's exports and its entry come with the frame library.
#pragma once

#include "OssiraCheck.h"
#include "OssiraInstance.h"

#include <memory>

namespace Tavrik::Ossira
{

// Makes an object for the component server: *out has count 0.
using ClassCreator = Result (*)(IUnknown* outer, COssiraUnknown** out);

// Makes one and answers its first query; says of it what is to be said.
using AnswerCreator = Result (*)(const ClassEntry& entry, const IID& iid, void** out);

// One creatable class of the module. Each entry links itself in front of the module's list while
// the module is initialised.
class ClassEntry
{
public:
    ClassEntry(const CLSID& clsid, ClassCreator creator, const char* text,
               AnswerCreator answerCreator = nullptr) noexcept;

    CLSID ClassId;
    const ClassEntry* Next;
    ClassCreator Creator;
    const char* Text;
    Ossira::AnswerCreator AnswerCreator; // null for a class whose objects have to be asked apart
};

namespace tDetail
{

template <class Implementation>
[[nodiscard]] constexpr AnswerCreator AnswerCreatorOf() noexcept
{
    if constexpr (AnswersByList<Implementation>)
        return &CreateAnswer<Implementation>;
    else
        return nullptr;
}

// An identifier whose address is kept: a temporary is refused by the compiler.
class CLastingGuid
{
public:
    constexpr CLastingGuid(const GUID& guid) noexcept : mGuid(&guid)
    {
    }

    CLastingGuid(const GUID&&) = delete;

    [[nodiscard]] constexpr const GUID* Get() const noexcept
    {
        return mGuid;
    }

private:
    const GUID* mGuid;
};

// Whether a class has the null identifier, as far as the compiler can tell.
template <class Implementation>
[[nodiscard]] consteval bool HasNullClassId()
{
    if constexpr (requires { typename std::bool_constant<(Implementation::ClassId.Data1, true)>; })
        return SameGuid(Implementation::ClassId, GUID_Null);
    else
        return false;
}

} // namespace tDetail

// One class that the module files under a category when it is registered.
class BootstrapRecord
{
public:
    BootstrapRecord(tDetail::CLastingGuid clsid, tDetail::CLastingGuid category,
                    tDetail::CLastingGuid group, const char* text) noexcept;

    const BootstrapRecord* Next;
    const CLSID* ClassId;
    const GUID* Category;
    const GUID* Group;
    const char* Text;
};

// Implements `IObjectName` for a class that lists it among its bases in the interface's place.
class CObjectName : public IObjectName
{
public:
    Result SetObjectName(const char* name) override;
    Result GetObjectName(char* buffer, std::int32_t size) override;

protected:
    ~CObjectName() = default;

    // For an object that nobody has a reference on.
    [[nodiscard]] bool HasName() const noexcept
    {
        return mName != nullptr;
    }

private:
    std::unique_ptr<char[]> mName; // one pointer, because most objects have no name
};

// The two answers of `IObjectIdentity`.
[[nodiscard]] Result AnswerClassID(const CLSID& own, CLSID* clsid) noexcept;
[[nodiscard]] Result AnswerClassName(std::string_view own, char* buffer,
                                     std::int32_t size) noexcept;

// Implements `IObjectIdentity` from `Traits::ClassId` and `Traits::ClassName`.
template <class Traits>
class CObjectIdentity : public IObjectIdentity
{
public:
    Result GetObjectClassID(CLSID* clsid) override
    {
        return AnswerClassID(Traits::ClassId, clsid);
    }

    Result GetObjectClassName(char* buffer, std::int32_t size) override
    {
        return AnswerClassName(Traits::ClassName, buffer, size);
    }

protected:
    ~CObjectIdentity() = default;
};

} // namespace Tavrik::Ossira

// What the class's `QueryInterface` answers: its interfaces, the first one the primary, and those
// that they extend. A class that derives from an interface and leaves it out does not compile. (GCC
// knows every interface, other compilers those of the public headers.)
#define OSSIRA_INTERFACES(...)                                                                     \
    template <::Tavrik::Ossira::tDetail::EQuery Query>                                             \
    ::Tavrik::Ossira::Result AnswerQuery(const ::IID& iid, void** out)                             \
    {                                                                                              \
        return this->template AnswerEveryInterface<Query, __VA_ARGS__>(this, iid, out);            \
    }                                                                                              \
    OSSIRA_ANSWERS_BY_LIST

// For a class that has an `AnswerQuery` of its own.
#define OSSIRA_ANSWERS_BY_LIST                                                                     \
    ::Tavrik::Ossira::Result InternalQueryInterface(const ::IID& iid, void** out) override         \
    {                                                                                              \
        return this->template AnswerQuery<::Tavrik::Ossira::tDetail::EQuery::Any>(iid, out);       \
    }

#define OSSIRA_JOIN_NAMES(a, b) a##b
#define OSSIRA_UNIQUE_NAME(prefix, number) OSSIRA_JOIN_NAMES(prefix, number)

// Whether an identifier is the null one, as far as the compiler can tell.
#if defined(__GNUC__)
#define OSSIRA_IS_NULL_GUID(guid)                                                                  \
    (__builtin_constant_p(::Tavrik::Ossira::SameGuid((guid), ::Tavrik::Ossira::GUID_Null)) &&      \
     ::Tavrik::Ossira::SameGuid((guid), ::Tavrik::Ossira::GUID_Null))
#else
#define OSSIRA_IS_NULL_GUID(guid) false
#endif

// Enters a class in the module's class table, under its `ClassId` or under another identifier; the
// null one does not compile.
#define OSSIRA_CLASS_AS(implementation, clsid, text)                                               \
    static_assert(!OSSIRA_IS_NULL_GUID(clsid), "A class needs an identifier of its own");          \
    namespace                                                                                      \
    {                                                                                              \
    const ::Tavrik::Ossira::ClassEntry OSSIRA_UNIQUE_NAME(ossiraClass, __COUNTER__)(               \
        clsid, &::Tavrik::Ossira::CreateInstance<implementation>, text,                            \
        ::Tavrik::Ossira::tDetail::AnswerCreatorOf<implementation>());                             \
    }

#define OSSIRA_CLASS(implementation, text)                                                         \
    static_assert(!::Tavrik::Ossira::tDetail::HasNullClassId<implementation>(),                    \
                  "A class needs an identifier of its own");                                       \
    OSSIRA_CLASS_AS(implementation, implementation::ClassId, text)

// Files a class under a category and a group (`GUID_Null`: none) when the module is registered.
// The three identifiers must live as long as the module; temporaries do not compile.
#define OSSIRA_BOOTSTRAP(clsid, category, group, text)                                             \
    namespace                                                                                      \
    {                                                                                              \
    const ::Tavrik::Ossira::BootstrapRecord                                                        \
        OSSIRA_UNIQUE_NAME(ossiraBootstrap, __COUNTER__)(clsid, category, group, text);            \
    }
