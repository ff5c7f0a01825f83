// The way to the process-wide services for every module: the global singleton and, through it, the
// singletons that others are asked for.
#pragma once

#include "Library.h"

namespace Tavrik::Ossira
{

// The interface of the one object of a class, from the global singleton registry.
template <class Interface>
[[nodiscard]] Result CreateSingleton(const CLSID& clsid, ObjectPtr<Interface>& object)
{
    ISingleton* singleton = nullptr;
    return (*GetSingleton(&singleton))->GetClassObject(clsid, Interface::Iid, object.PutVoid());
}

} // namespace Tavrik::Ossira
