// What a module answers is not trusted here either.
#include "CheckModule.h"

#include "Print.h"

#include <array>

namespace Tavrik::tHost
{

using namespace Ossira;

CCheckedModule::CCheckedModule(const std::wstring& path)
{
    if (!mLibrary.Open(path.c_str()))
        throw CFailure(mLibrary.FailureText());
    std::string missing;
    Find("DllGetClassObject", mExports.GetClassObject, missing);
    Find("DllCanUnloadNow", mExports.CanUnloadNow, missing);
    Find("DLLGetOpenObjectCount", mExports.GetOpenObjectCount, missing);
    Find("DLLGetClassCount", mExports.GetClassCount, missing);
    Find("DLLGetClassObjectID", mExports.GetClassObjectID, missing);
    Find("DLLGetClassObjectInfo", mExports.GetClassObjectInfo, missing);
    if (!missing.empty())
        throw CFailure("no component module: has no " + missing);
    Find("DLLRegisterBootstrap", mExports.RegisterBootstrap, missing);
}

template <class Export>
void CCheckedModule::Find(const char* name, Export& found, std::string& missing) const
{
    found = reinterpret_cast<Export>(mLibrary.Find(name));
    if (found == nullptr)
        missing.append(missing.empty() ? "" : ", ").append(name);
}

std::vector<KnownClass> CCheckedModule::Classes() const
{
    std::vector<KnownClass> classes;
    const Result count = mExports.GetClassCount();
    if (Failed(count))
        throw CFailure("DLLGetClassCount answers " + CodeText(count));
    for (std::uint32_t index = 0; index < static_cast<std::uint32_t>(count); ++index)
    {
        KnownClass known = {};
        if (const Result named = mExports.GetClassObjectID(index, 1, &known.Id); Failed(named))
        {
            throw CFailure("DLLGetClassObjectID answers " + CodeText(named) + " for class " +
                           std::to_string(index) + " of " + std::to_string(count));
        }
        std::array<char, 256> text = {};
        (void)mExports.GetClassObjectInfo(index, text.data(), 255);
        text.back() = '\0';
        known.Text = text.data();
        classes.push_back(known);
    }
    return classes;
}

ObjectPtr<IUnknown> CCheckedModule::Create(const CLSID& clsid) const
{
    ObjectPtr<IUnknown> object;
    const Result created = Create(clsid, IID_IUnknown, object.PutVoid());
    if (Failed(created))
        throw CFailure("no object can be created: " + CodeText(created));
    if (!object)
        throw CFailure("creation answers " + CodeText(created) + ", and no object");
    return object;
}

} // namespace Tavrik::tHost
