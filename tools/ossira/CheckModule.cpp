// What a module answers is not trusted here either.
#include "CheckModule.h"

#include "Print.h"
#include "WideText.h"

#include <array>

namespace Tavrik::tHost
{

using namespace Ossira;

CCheckedModule::CCheckedModule(const std::wstring& path) : mLibrary(tSystem::ToUtf8(path))
{
    if (!mLibrary.Reason().empty())
        throw CFailure(mLibrary.Reason());
}

std::vector<KnownClass> CCheckedModule::Classes() const
{
    std::vector<KnownClass> classes;
    const Result count = Calls().GetClassCount();
    if (Failed(count))
        throw CFailure("DLLGetClassCount answers " + CodeText(count));
    for (std::uint32_t index = 0; index < static_cast<std::uint32_t>(count); ++index)
    {
        KnownClass known = {};
        if (const Result named = Calls().GetClassObjectID(index, 1, &known.Id); Failed(named))
        {
            throw CFailure("DLLGetClassObjectID answers " + CodeText(named) + " for class " +
                           std::to_string(index) + " of " + std::to_string(count));
        }
        std::array<char, 256> text = {};
        (void)Calls().GetClassObjectInfo(index, text.data(), 255);
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
