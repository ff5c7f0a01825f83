// What fails here is the object's affair and is told as its answer; it does not end the run.
#include "Ask.h"

#include "OssiraBullets.h"
#include "OssiraObject.h"
#include "Print.h"
#include "Sample.h"
#include "WideText.h"

namespace Tavrik::tHost
{

using namespace Ossira;

namespace
{

Answer Failure(const std::string& what, Result code)
{
    return {what + ": " + CodeText(code), true};
}

Answer AskForSentence(Samples::ISample& sample)
{
    ObjectPtr<IValue> value;
    const Result created = CreateValue(value.Put());
    if (Failed(created))
        return Failure("no value for its answer", created);
    const Result described = sample.Describe(value.Get());
    if (Failed(described))
        return Failure("could not answer", described);
    std::wstring words;
    const Result read = GetValueUniString(value.Get(), &words);
    if (Failed(read))
        return Failure("answered no text", read);
    return {'"' + tSystem::ToUtf8(words) + '"', false};
}

Answer AskForName(IObjectIdentity& identity)
{
    const Result length = identity.GetObjectClassName(nullptr, 0);
    if (Failed(length))
        return Failure("has no class name", length);
    std::string name(static_cast<std::size_t>(length), '\0');
    const Result read = identity.GetObjectClassName(name.data(), length);
    if (Failed(read))
        return Failure("did not give its class name", read);
    return {"created, an object of class \"" + name + '"', false};
}

} // namespace

// Nothing that an object throws takes the others' answers with it. What is thrown belongs to a
// module that is still loaded here.
Answer AskNewObject(IObjectFactory& factory, const CLSID& clsid)
try
{
    ObjectPtr<IUnknown> object;
    const Result created = factory.GetClassObject(clsid, IID_IUnknown, object.PutVoid());
    if (Failed(created))
        return Failure("could not be created", created);
    ObjectPtr<Samples::ISample> sample;
    if (Succeeded(object.QueryTo(sample)))
        return AskForSentence(*sample);
    ObjectPtr<IObjectIdentity> identity;
    if (Succeeded(object.QueryTo(identity)))
        return AskForName(*identity);
    return {"created (it offers neither ISample nor IObjectIdentity)", false};
}
catch (const std::exception& exception)
{
    return {std::string("let an exception out: ") + exception.what(), true};
}
catch (...)
{
    return {"let an exception out", true};
}

} // namespace Tavrik::tHost
