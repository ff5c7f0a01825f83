// The storage of a value, for whoever implements a value of his own: a datatype and its bytes, and
// the bodies of the value's operations. It takes no lock, and its operations throw what a failed
// check throws, so it belongs behind an operation's boundary. It needs the frame library.
#pragma once

#include "OssiraCheck.h"
#include "OssiraPointer.h"
#include "OssiraValue.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

namespace Tavrik::Ossira
{

// Memory for one call: up to 1024 bytes lie on the stack.
class CStackBuffer
{
public:
    // Room for `size` bytes: `S_OK`, or `E_INVALIDARG` for a negative size, or `E_OUTOFMEMORY`.
    [[nodiscard]] Result Alloc(std::int32_t size) noexcept
    {
        if (size < 0)
            return E_INVALIDARG;
        if (size <= mSize)
            return S_OK;
        std::unique_ptr<unsigned char[]> heap(
            new (std::nothrow) unsigned char[static_cast<std::size_t>(size)]);
        if (heap == nullptr)
            return E_OUTOFMEMORY;
        mHeap.swap(heap);
        mSize = size;
        return S_OK;
    }

    [[nodiscard]] unsigned char* Data() noexcept
    {
        return mHeap != nullptr ? mHeap.get() : mStack;
    }

private:
    std::int32_t mSize = sizeof(mStack);
    std::unique_ptr<unsigned char[]> mHeap;
    unsigned char mStack[1024];
};

class CValueDataBuffer
{
public:
    CValueDataBuffer() noexcept = default;
    CValueDataBuffer(const CValueDataBuffer&) = delete;
    CValueDataBuffer& operator=(const CValueDataBuffer&) = delete;

    ~CValueDataBuffer()
    {
        Free();
    }

    [[nodiscard]] bool IsEmpty() const noexcept
    {
        return Data == nullptr;
    }

    // Room for `size` bytes, whose content is undefined unless the size stays as it was. Answers
    // `E_INVALIDARG` for a negative size and `E_OUTOFMEMORY`; the buffer is then what it was.
    [[nodiscard]] Result AllocBuffer(std::int32_t size) noexcept
    {
        if (Data != nullptr && Size == size)
            return S_OK;
        if (size < 0)
            return E_INVALIDARG;
        unsigned char* data = Inline;
        if (size > InlineSize)
        {
            data = new (std::nothrow) unsigned char[static_cast<std::size_t>(size)];
            if (data == nullptr)
                return E_OUTOFMEMORY;
        }
        Free();
        Data = data;
        Size = size;
        return S_OK;
    }

    // Becomes a copy of another buffer; after a failure it is what it was.
    [[nodiscard]] Result Assign(const CValueDataBuffer& other) noexcept
    {
        if (other.IsEmpty())
            Free();
        else if (const Result result = AllocBuffer(other.Size); Failed(result))
            return result;
        Type = other.Type;
        Copy(Data, other.Data, Size);
        return S_OK;
    }

    // Empties the buffer; the datatype stays where it is.
    void Free() noexcept
    {
        if (Data != Inline)
            delete[] Data;
        Data = nullptr;
        Size = 0;
    }

    // The bodies of the operations of `IValue`; see there.

    Result GetValue(const GUID& type, void* data, std::int32_t size) const
    {
        if (IsEmpty())
            return E_FAIL;
        if (!SameGuid(type, Type))
            return E_INVALIDARG;
        if (data != nullptr && size != Size) [[unlikely]]
        {
            char text[64];
            std::snprintf(text, sizeof(text), "GetValue-size %d dose not match data-size %d", size,
                          Size);
            OSSIRA_THROW(E_INVALIDARG, text);
        }
        OSSIRA_CHECK(data != nullptr || size == 0, E_POINTER, "data");
        if (data != nullptr)
            Copy(data, Data, Size);
        return Size;
    }

    Result SetValue(const GUID& type, const void* data, std::int32_t size)
    {
        if (SameGuid(type, GUID_Null))
        {
            Free();
            OSSIRA_CHECK(data == nullptr && size == 0, E_INVALIDARG, "data == NULL && size == 0");
            return S_OK;
        }
        OSSIRA_CHECK(size == 0 || data != nullptr, E_POINTER, "data");
        OSSIRA_CHECK_CALL_TWICE(AllocBuffer(size), "AllocBuffer(size)");
        Type = type;
        Copy(Data, data, size);
        return S_OK;
    }

    Result GetType(GUID* type) const
    {
        OSSIRA_CHECK_POINTER(type);
        *type = IsEmpty() ? GUID_Null : Type;
        return S_OK;
    }

    // The body of `IComparable::Compare`: by datatype, byte for byte, then by size, then by the
    // bytes.
    Result Compare(IUnknown* pv, std::int32_t* result) const
    {
        OSSIRA_CHECK_POINTER(pv);
        OSSIRA_CHECK_POINTER(result);
        ObjectPtr<IValue> other;
        OSSIRA_CHECK_CALL_TWICE(pv->QueryInterface(IID_IValue, other.PutVoid()),
                                "pv->QueryInterface(IID_IValue, (void**)&BValue)");
        GUID otherType;
        OSSIRA_CHECK_CALL_TWICE(other->GetType(&otherType), "BValue->GetType(&BType)");
        if (const int order = std::memcmp(&Type, &otherType, sizeof(GUID)); order != 0)
        {
            *result = order;
            return S_OK;
        }
        Result otherSize;
        OSSIRA_CHECK_CALL_TWICE(otherSize = other->GetValue(otherType, nullptr, 0),
                                "BValue->GetValue(BType, NULL, 0)");
        if (Size != otherSize)
        {
            *result = Size < otherSize ? -1 : 1;
            return S_OK;
        }
        CStackBuffer bytes;
        OSSIRA_CHECK_CALL_TWICE(bytes.Alloc(Size), "StackBuffer.Alloc( Size )");
        OSSIRA_CHECK_CALL_TWICE(other->GetValue(otherType, bytes.Data(), Size),
                                "BValue->GetValue(BType, Buf, Size)");
        *result = Size > 0 ? std::memcmp(Data, bytes.Data(), static_cast<std::size_t>(Size)) : 0;
        return S_OK;
    }

    static constexpr std::int32_t InlineSize = 16;

    GUID Type = GUID_Null;
    std::int32_t Size = 0;
    unsigned char* Data = nullptr; // null exactly when the buffer is empty
    unsigned char Inline[InlineSize];

private:
    // The sizes of the scalar types are worth more than a call.
    static void Copy(void* to, const void* from, std::int32_t size) noexcept
    {
        switch (size)
        {
        case 0:
            break;
        case 4:
            std::memcpy(to, from, 4);
            break;
        case 8:
            std::memcpy(to, from, 8);
            break;
        case 16:
            std::memcpy(to, from, 16);
            break;
        default:
            std::memcpy(to, from, static_cast<std::size_t>(size));
        }
    }
};

} // namespace Tavrik::Ossira
