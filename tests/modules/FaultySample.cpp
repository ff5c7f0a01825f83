// A sample with a fault, whose name stands beside it in each module that is made of this.
#include "Ossira.h"
#include "Sample.h"

#include <mutex>
#include <set>

using namespace Tavrik::Ossira;
using namespace Tavrik::Samples;

extern "C" const char OssiraTestFault[];

namespace
{

bool Is(std::string_view fault)
{
    return fault == OssiraTestFault;
}

std::set<const void*> gKnown; // which nobody guards

class T_Faulty : public ISample, public IObjectName, public IObjectIdentity, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = {0x7E57FA17, 0, 0, {}};

    T_Faulty()
    {
        OSSIRA_CHECK_CALL(CreateValue(mValue.Put()), "CreateValue()");
        if (Is("Leak"))
            mValue->AddRef();
        if (Is("UnsafeUnderThreads"))
            gKnown.insert(this);
    }

    ~T_Faulty() override
    {
        if (Is("DoubleRelease"))
            mValue->Release();
        if (Is("UnsafeUnderThreads"))
            gKnown.erase(this);
    }

    Result InternalQueryInterface(const IID& iid, void** out) override
    {
        const Result result =
            AnswerInterfaces<ISample, IObjectName, IObjectIdentity>(this, iid, out);
        if (Is("WrongIdentity") && result == S_OK && SameGuid(iid, IID_IUnknown))
            *out = mIsAsked++ % 2 == 0 ? static_cast<IUnknown*>(static_cast<ISample*>(this))
                                       : static_cast<IUnknown*>(static_cast<IObjectName*>(this));
        if (Is("ExtraReference") && result == S_OK && SameGuid(iid, IID_IObjectName))
            CountAnswer();
        return result;
    }

    Result Describe(IValue* text) override
    {
        return SetValueUniString(text, L"There is something wrong with me.");
    }

    Result SetObjectName(const char* name) override
    {
        const auto set = [&]
        {
            mName.clear(); // in steps, between which another thread may come
            mName.shrink_to_fit();
            mName = name == nullptr ? "" : name;
            return S_OK;
        };
        return Is("ExceptionLeaves") ? Locked(set, false) : WithLock(set, name == nullptr);
    }

    Result GetObjectName(char* buffer, std::int32_t size) override
    {
        return WithLock([&] { return AnswerClassName(mName, buffer, size); }, false);
    }

    Result GetObjectClassID(CLSID* clsid) override
    {
        if (Is("CrashOnNull"))
            return *clsid = ClassId, S_OK;
        return AnswerClassID(ClassId, clsid);
    }

    Result GetObjectClassName(char* buffer, std::int32_t size) override
    {
        return AnswerClassName("Faulty", buffer, size);
    }

private:
    template <class Work>
    Result Locked(Work work, bool isNull)
    {
        if (Is("ForgottenLock"))
            return work();
        const std::lock_guard guard(mLock);
        if (Is("KeptLock") && isNull)
            mLock.lock();
        return work();
    }

    template <class Work>
    Result WithLock(Work work, bool isNull)
    try
    {
        return Locked(work, isNull);
    }
    OSSIRA_CATCH_RETURN

    std::recursive_mutex mLock;
    std::string mName;
    ObjectPtr<IValue> mValue;
    std::atomic<int> mIsAsked = 0;
};

[[maybe_unused]] const ObjectPtr<IUnknown>
    gKept(Is("NotUnloadable") ? MakeObject<T_Faulty>()->PrivateUnknown() : nullptr);

[[maybe_unused]] const bool gOutlives = []
{
    IValue* value = nullptr;
    return Is("StaticOutlives") && Succeeded(CreateValue(&value));
}();

} // namespace

OSSIRA_CLASS(T_Faulty, "Faulty")

const CLSID FiledClass = Is("MissingInterface") ? T_Faulty::ClassId : CLSID{0x7E57FA18, 0, 0, {}};
OSSIRA_BOOTSTRAP(FiledClass, BootstrapRegistryStartup_Level1, GUID_Null, "Faulty")
