// The storage of a value, for whoever implements a value of his own: a datatype and its bytes, and
// the bodies of the value's operations. It takes no lock, and its operations throw what a failed
// check throws, so it belongs behind an operation's boundary. It needs the frame library.
//
// `GetValue`, `SetValue`, `GetType` and `Assign` call nothing foreign: call them with the value's
// lock held. `Compare` calls the other value, so no lock may be held meanwhile: take a
// `CValueSnapshot` under the lock and compare that.
#pragma once

#include "OssiraCheck.h"
#include "OssiraPointer.h"
#include "OssiraValue.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

namespace Tavrik::Ossira
{

// Memory for one call: up to 1024 bytes lie on the stack.
class CStackBuffer
{
public:
    static constexpr std::int32_t StackSize = 1024;

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
    std::int32_t mSize = StackSize;
    std::unique_ptr<unsigned char[]> mHeap;
    unsigned char mStack[StackSize];
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

    // Whether the datum has memory of its own, outside the buffer.
    [[nodiscard]] bool HasMemory() const noexcept
    {
        return Data != nullptr && Data != Inline;
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
        if (HasMemory())
            delete[] Data;
        Data = nullptr;
        Size = 0;
    }

    // The bodies of the operations of `IValue`; see there.

    Result GetValue(const GUID& type, void* data, std::int32_t size) const
    {
        OSSIRA_CHECK_REFERENCE(type);
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
        OSSIRA_CHECK_REFERENCE(type);
        if (SameGuid(type, GUID_Null))
            return SetValue(data, size);
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

    // What most calls of a value come to, for a value that wants to do them without a call: a datum
    // of 1 to 128 bytes, of the asked datatype and size, or written where there is room for it.
    // False, and nothing is done, for everything else; the bodies above do it in full. Call them
    // with data for which `IsShort` holds.

    [[nodiscard]] static bool IsShort(const void* data, std::int32_t size) noexcept
    {
        return static_cast<std::uint32_t>(size) - 1 < ShortSize && data != nullptr;
    }

    [[nodiscard]] bool TryGetValue(const GUID& type, void* data, std::int32_t size) const noexcept
    {
        if (IsNullReference(type) || size != Size || !SameGuid(type, Type)) [[unlikely]]
            return false;
        if (size <= InlineSize)
            CopyInline(data, Inline, static_cast<std::uint32_t>(size));
        else
            CopyShort(data, Data, static_cast<std::uint32_t>(size));
        return true;
    }

    [[nodiscard]] bool TrySetValue(const GUID& type, const void* data, std::int32_t size) noexcept
    {
        if (IsNullReference(type) || SameGuid(type, GUID_Null)) [[unlikely]]
            return false;
        if (size != Size) [[unlikely]]
        {
            if (size > InlineSize || HasMemory())
                return false;
            Data = Inline;
            Size = size;
        }
        Type = type;
        if (size <= InlineSize)
            CopyInline(Inline, data, static_cast<std::uint32_t>(size));
        else
            CopyShort(Data, data, static_cast<std::uint32_t>(size));
        return true;
    }

    // The body of `IComparable::Compare`: by datatype, byte for byte, then by size, then by the
    // bytes. For a buffer that nobody else writes to; see `CValueSnapshot`.
    Result Compare(IUnknown* pv, std::int32_t* result) const
    {
        return CompareDatum(Type, Size, Data, pv, result);
    }

    // Compares a datum with what another value holds. The other is asked for its datatype, its size
    // and its bytes one by one; when it is written meanwhile, so that they do not fit together, it
    // is asked again. What is answered held at some moment, and a value that is always set is never
    // answered with an error.
    static Result CompareDatum(const GUID& type, std::int32_t size, const unsigned char* data,
                               IUnknown* pv, std::int32_t* result)
    {
        OSSIRA_CHECK_POINTER(pv);
        OSSIRA_CHECK_POINTER(result);
        ObjectPtr<IValue> other;
        OSSIRA_CHECK_CALL_TWICE(pv->QueryInterface(IID_IValue, other.PutVoid()),
                                "pv->QueryInterface(IID_IValue, (void**)&BValue)");
        OSSIRA_CHECK(other, E_NOINTERFACE, "pv->QueryInterface(IID_IValue, (void**)&BValue)");
        CStackBuffer bytes;
        for (int retries = RetryLimit;; --retries)
        {
            GUID otherType;
            OSSIRA_CHECK_CALL_TWICE(other->GetType(&otherType), "BValue->GetType(&BType)");
            if (const int order = std::memcmp(&type, &otherType, sizeof(GUID)); order != 0)
            {
                *result = order;
                return S_OK;
            }
            // An empty value has no size, and no rewriting brings one.
            const bool mayBeWritten = retries > 0 && !SameGuid(otherType, GUID_Null);
            const Result otherSize = AskTwice(*other, otherType, nullptr, 0);
            if (IsOfRewriting(otherSize) && mayBeWritten)
                continue;
            OSSIRA_CHECK(!Failed(otherSize), otherSize, "BValue->GetValue(BType, NULL, 0)");
            if (const std::int32_t order = OrderOfSizes(size, otherSize); order != 0)
            {
                *result = order;
                return S_OK;
            }
            OSSIRA_CHECK_CALL_TWICE(bytes.Alloc(size), "StackBuffer.Alloc( Size )");
            const Result got = AskTwice(*other, otherType, bytes.Data(), size);
            if (IsOfRewriting(got) && mayBeWritten)
                continue;
            OSSIRA_CHECK(!Failed(got), got, "BValue->GetValue(BType, Buf, Size)");
            *result = OrderOfBytes(data, bytes.Data(), size);
            return S_OK;
        }
    }

    // How two data of one datatype are ordered: by their sizes, -1, 0 or 1, and those of one size
    // by their bytes. Of no bytes the addresses may be null.
    [[nodiscard]] static std::int32_t OrderOfSizes(std::int32_t left, std::int32_t right) noexcept
    {
        return (left > right) - (left < right);
    }

    [[nodiscard]] static std::int32_t
    OrderOfBytes(const unsigned char* left, const unsigned char* right, std::int32_t size) noexcept
    {
        const auto bytes = [size](const unsigned char* data)
        {
            return std::string_view(reinterpret_cast<const char*>(data),
                                    static_cast<std::size_t>(size));
        };
        return bytes(left).compare(bytes(right));
    }

    static constexpr std::int32_t InlineSize = 16;

    GUID Type = GUID_Null;
    std::int32_t Size = 0;
    unsigned char* Data = nullptr; // null exactly when empty, `Inline` exactly up to its size
    unsigned char Inline[InlineSize];

private:
    // For no datatype. A mistake empties the buffer all the same, unless memory lacks for telling
    // of it. It has the name under which it is reported.
    Result SetValue(const void* data, std::int32_t size)
    try
    {
        OSSIRA_CHECK(data == nullptr && size == 0, E_INVALIDARG, "data == NULL && size == 0");
        Free();
        return S_OK;
    }
    catch (IException* const mistake)
    {
        if (mistake != nullptr)
            Free();
        throw;
    }

    // A writer would have to come between two calls so many times in a row.
    static constexpr int RetryLimit = 100;

    // What a value answers when its datatype or its size has changed since it was asked for them.
    [[nodiscard]] static bool IsOfRewriting(Result code) noexcept
    {
        return code == E_INVALIDARG || code == E_FAIL;
    }

    // As a check that repeats a failing call does.
    [[nodiscard]] static Result AskTwice(IValue& value, const GUID& type, void* data,
                                         std::int32_t size)
    {
        const Result answer = value.GetValue(type, data, size);
        return Failed(answer) ? value.GetValue(type, data, size) : answer;
    }

    static constexpr std::uint32_t ShortSize = 128;

    // Copies in parts of sizes that the compiler knows, each of them once: what is read as it was
    // written need not wait until it has reached the cache. A call would take longer, and its
    // caller would have to save registers.
    template <std::size_t... Parts>
    static void CopyParts(void* target, const void* source, std::size_t size) noexcept
    {
        auto* to = static_cast<unsigned char*>(target);
        const auto* from = static_cast<const unsigned char*>(source);
        const auto copy = [&]<std::size_t Part>(std::integral_constant<std::size_t, Part>)
        {
            if ((size & Part) == 0)
                return;
            std::memcpy(to, from, Part);
            to += Part;
            from += Part;
        };
        (copy(std::integral_constant<std::size_t, Parts>()), ...);
    }

    static void CopyShort(void* target, const void* source, std::size_t size) noexcept
    {
        CopyParts<128, 64, 32, 16, 8, 4, 2, 1>(target, source, size);
    }

    // The same for what an `Inline` may hold, which as a rule is a number. Nobody who knows where
    // the bytes lie should have to wait for a pointer to them.
    static void CopyInline(void* target, const void* source, std::size_t size) noexcept
    {
        if (size == 4)
            std::memcpy(target, source, 4);
        else if (size == 8)
            std::memcpy(target, source, 8);
        else
            CopyParts<16, 8, 4, 2, 1>(target, source, size);
    }

    static void Copy(void* to, const void* from, std::int32_t size) noexcept
    {
        if (const auto bytes = static_cast<std::uint32_t>(size); bytes <= ShortSize)
            CopyShort(to, from, bytes);
        else
            std::memcpy(to, from, bytes);
    }
};

// A copy of a value's datum, taken under the value's lock, for what has to be done without it.
class CValueSnapshot
{
public:
    // Copies what `buffer` holds; call it with the buffer's lock held. When there is not room
    // enough it copies nothing and answers false: call `MakeRoom` without the lock, and try again.
    [[nodiscard]] bool TryTake(const CValueDataBuffer& buffer) noexcept
    {
        mType = buffer.Type;
        mSize = buffer.Size;
        mIsEmpty = buffer.IsEmpty();
        if (mSize > mRoom)
            return false;
        std::copy_n(buffer.Data, mSize, mBytes.Data());
        return true;
    }

    // Throws `E_OUTOFMEMORY`. Up to 1024 bytes need no memory.
    void MakeRoom()
    {
        OSSIRA_CHECK_CALL_TWICE(mBytes.Alloc(mSize), "StackBuffer.Alloc( Size )");
        mRoom = mSize;
    }

    // Of an empty value. What it held last still has its place in the order.
    [[nodiscard]] bool IsEmpty() const noexcept
    {
        return mIsEmpty;
    }

    // As `CValueDataBuffer::Compare`.
    Result Compare(IUnknown* pv, std::int32_t* result)
    {
        return CValueDataBuffer::CompareDatum(mType, mSize, mBytes.Data(), pv, result);
    }

    // The same order: negative, zero or positive. `other` is not empty.
    [[nodiscard]] std::int32_t OrderTo(CValueSnapshot& other) noexcept
    {
        if (const int order = std::memcmp(&mType, &other.mType, sizeof(GUID)); order != 0)
            return order;
        if (const std::int32_t order = CValueDataBuffer::OrderOfSizes(mSize, other.mSize);
            order != 0)
            return order;
        return CValueDataBuffer::OrderOfBytes(mBytes.Data(), other.mBytes.Data(), mSize);
    }

private:
    GUID mType = GUID_Null;
    std::int32_t mSize = 0;
    bool mIsEmpty = true;
    std::int32_t mRoom = CStackBuffer::StackSize;
    CStackBuffer mBytes;
};

} // namespace Tavrik::Ossira
