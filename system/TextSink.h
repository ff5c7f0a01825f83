// The buffer of fixed size that formatted text goes to.
#pragma once

#include "WideText.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace Tavrik::tSystem
{

// Knows how far the buffer is filled. Once something did not fit, nothing is added any more.
class CTextSink
{
public:
    CTextSink(char* buffer, std::size_t size) noexcept : mBuffer(buffer), mCapacity(size - 1)
    {
    }

    [[nodiscard]] bool IsCut() const noexcept
    {
        return mIsCut;
    }

    void Append(const char* text, std::size_t count) noexcept
    {
        const std::size_t taken = Take(count);
        if (taken > 0)
            std::memcpy(mBuffer + mLength - taken, text, taken);
    }

    void Fill(std::size_t count) noexcept
    {
        const std::size_t taken = Take(count);
        std::memset(mBuffer + mLength - taken, ' ', taken);
    }

// Writes one number. The format holds one conversion with "*.*" in it; it is put together at run
// time, so the compiler cannot check it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    template <class Number>
    void Print(const char* format, int width, int precision, Number number) noexcept
    {
        const int length = std::snprintf(mBuffer + mLength, mCapacity - mLength + 1, format, width,
                                         precision, number);
        if (length > 0)
            Take(static_cast<std::size_t>(length));
    }
#pragma GCC diagnostic pop

    // Ends the text and returns its length.
    std::size_t Finish() noexcept
    {
        if (mIsCut)
            DropBrokenCharacter();
        mBuffer[mLength] = '\0';
        return mLength;
    }

private:
    std::size_t Take(std::size_t count) noexcept
    {
        const std::size_t taken = mIsCut ? 0 : std::min(count, mCapacity - mLength);
        mIsCut = mIsCut || taken < count;
        mLength += taken;
        return taken;
    }

    void DropBrokenCharacter() noexcept
    {
        const std::size_t limit = std::min(mLength, Utf8CharacterLimit);
        for (std::size_t size = 1; size <= limit; ++size)
        {
            const char lead = mBuffer[mLength - size];
            if ((static_cast<unsigned char>(lead) & 0xC0u) == 0x80u)
                continue;
            if (Utf8CharacterSize(lead) > size)
                mLength -= size;
            return;
        }
    }

    char* mBuffer;
    std::size_t mCapacity;
    std::size_t mLength = 0;
    bool mIsCut = false;
};

} // namespace Tavrik::tSystem
