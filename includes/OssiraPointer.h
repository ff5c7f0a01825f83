// Owns one reference on an object, so that every way out of a function gives it back.
#pragma once

#include "OssiraBase.h"

#include <utility>

namespace Tavrik::Ossira
{

template <class Interface>
class ObjectPtr
{
public:
    ObjectPtr() noexcept = default;

    // Takes a further reference on `object`, which may be null.
    explicit ObjectPtr(Interface* object) noexcept : mObject(object)
    {
        if (mObject != nullptr)
            mObject->AddRef();
    }

    ObjectPtr(const ObjectPtr& other) noexcept : ObjectPtr(other.mObject)
    {
    }

    ObjectPtr(ObjectPtr&& other) noexcept : mObject(std::exchange(other.mObject, nullptr))
    {
    }

    ObjectPtr& operator=(ObjectPtr other) noexcept
    {
        std::swap(mObject, other.mObject);
        return *this;
    }

    ~ObjectPtr()
    {
        Reset();
    }

    // Owns a reference that the caller already holds.
    [[nodiscard]] static ObjectPtr Adopt(Interface* object) noexcept
    {
        ObjectPtr owner;
        owner.mObject = object;
        return owner;
    }

    void Reset() noexcept
    {
        if (Interface* const object = std::exchange(mObject, nullptr); object != nullptr)
            object->Release();
    }

    // Hands the reference to the caller.
    [[nodiscard]] Interface* Detach() noexcept
    {
        return std::exchange(mObject, nullptr);
    }

    [[nodiscard]] Interface* Get() const noexcept
    {
        return mObject;
    }

    Interface* operator->() const noexcept
    {
        return mObject;
    }

    Interface& operator*() const noexcept
    {
        return *mObject;
    }

    explicit operator bool() const noexcept
    {
        return mObject != nullptr;
    }

    // For out parameters: what was held before is released first.
    [[nodiscard]] Interface** Put() noexcept
    {
        Reset();
        return &mObject;
    }

    [[nodiscard]] void** PutVoid() noexcept
    {
        return reinterpret_cast<void**>(Put());
    }

    // Asks the held object for another interface; null answers `E_POINTER`, and an object that says
    // it has the interface and hands out none `E_NOINTERFACE`. What `other` held is released
    // afterwards, so that it may be this pointer itself.
    template <class Other>
    [[nodiscard]] Result QueryTo(ObjectPtr<Other>& other) const
    {
        if (mObject == nullptr)
            return E_POINTER;
        ObjectPtr<Other> answer;
        const Result result = mObject->QueryInterface(Other::Iid, answer.PutVoid());
        other = std::move(answer);
        return Succeeded(result) && !other ? E_NOINTERFACE : result;
    }

private:
    Interface* mObject = nullptr;
};

// Creates an object of a class and asks it for the pointer's interface.
template <class Interface>
[[nodiscard]] Result CreateObject(const CLSID& clsid, ObjectPtr<Interface>& object)
{
    return CreateClassObject(&clsid, &Interface::Iid, object.PutVoid());
}

} // namespace Tavrik::Ossira
