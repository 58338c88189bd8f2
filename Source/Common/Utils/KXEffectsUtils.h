// Shared mechanics of the effects: rectangles, image views, the thrown status, scratch memory.
#pragma once

#include "KXEffects.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>

// The first character goes in the top byte: "norm" is 0x6e6f726d.
constexpr uint32_t FourCharCode(const char (&text)[5])
{
    return uint32_t(uint8_t(text[0])) << 24 | uint32_t(uint8_t(text[1])) << 16 | uint32_t(uint8_t(text[2])) << 8 |
           uint32_t(uint8_t(text[3]));
}
static_assert(FourCharCode("norm") == 0x6e6f726d);

// The farthest a kernel reads around a pixel: radii and window offsets beyond it are refused, so that a window
// is at most 65535 pixels wide and a rectangle grown by it stays within 32-bit coordinates when the rectangle
// lies in an image.
constexpr int32_t kMaxReach = 32767;

// The kernels' rectangle: bottom and right are exclusive.
struct CEffectRect {
    int32_t top = 0;
    int32_t left = 0;
    int32_t bottom = 0;
    int32_t right = 0;

    // Ends beyond the 32-bit range stop at its end; a negative size is an empty rectangle.
    static CEffectRect FromKXRect(const KXRect& rect)
    {
        const int64_t bottom = int64_t(rect.y) + std::max(rect.height, 0);
        const int64_t right = int64_t(rect.x) + std::max(rect.width, 0);
        return {rect.y, rect.x, int32_t(std::min<int64_t>(bottom, INT32_MAX)),
                int32_t(std::min<int64_t>(right, INT32_MAX))};
    }
    // The common part; an empty one has zero size.
    CEffectRect Intersection(const CEffectRect& other) const
    {
        CEffectRect result{std::max(top, other.top), std::max(left, other.left), std::min(bottom, other.bottom),
                           std::min(right, other.right)};
        result.bottom = std::max(result.bottom, result.top);
        result.right = std::max(result.right, result.left);
        return result;
    }
    KXRect ToKXRect() const { return KXRectMake(left, top, right - left, bottom - top); }
    int32_t Width() const { return right - left; }
    int32_t Height() const { return bottom - top; }
    bool IsEmpty() const { return top >= bottom || left >= right; }
    bool operator==(const CEffectRect&) const = default;
};

// Logs the status and throws it; every error raised below an entry point goes through here.
[[noreturn]] void KXEffectsRaise(int32_t code, const char* file, int32_t line);

// Passes a non-zero status of a callee upward as a logged throw.
inline void KXEffectsThrowIfError(int32_t status, const char* file, int32_t line)
{
    if (status != kKXNoErr)
        KXEffectsRaise(status, file, line);
}

// Each source file defines kSourceFile as its path without extension.
#define KX_RAISE(code) KXEffectsRaise((code), kSourceFile, __LINE__)
#define KX_THROW_IF_ERROR(status) KXEffectsThrowIfError((status), kSourceFile, __LINE__)

// rect with its top and left moved by top and left, its bottom and right by bottom and right: the lines and
// columns a kernel reads around it. A rectangle that would pass the 32-bit range, or be wider or taller than
// it, cannot be read: kKXErrOutOfMemory.
CEffectRect GrownRect(const CEffectRect& rect, int32_t top, int32_t left, int32_t bottom, int32_t right);

// Runs body and turns a thrown status, std::bad_alloc or anything else into the returned status,
// as the catching entry points do.
template <class Body> int32_t KXEffectsCatchStatus(const char* file, int32_t line, Body&& body) noexcept;

// The row accessor over an image: pointers into the locked buffer where possible, a scratch copy with
// edge replication (or a background pixel) otherwise. Throws a logged status on failure.
class CImageView {
public:
    enum State : int32_t { kViewEmpty = 0, kViewClean = 1, kViewDirty = 2 };
    static constexpr int32_t kViewAuto = 0x8000000;

    CImageView() = default;
    explicit CImageView(KXImage* image) { Attach(image); }
    ~CImageView();
    CImageView(const CImageView&) = delete;
    CImageView& operator=(const CImageView&) = delete;

    void Attach(KXImage* image);
    void Detach();
    int32_t Flush();

    const void* ReadRect(const CEffectRect& rect, int32_t* outStride);
    void* WriteRect(const CEffectRect& rect, int32_t* outStride);

    const void* ReadRow(int32_t row, int32_t left, int32_t width, int32_t* outStride = nullptr)
    {
        return ReadRect(RowRect(row, left, width), outStride ? outStride : &m_lastStride);
    }
    void* WriteRow(int32_t row, int32_t left, int32_t width, int32_t* outStride = nullptr)
    {
        return WriteRect(RowRect(row, left, width), outStride ? outStride : &m_lastStride);
    }

    inline void* DirectPointer(const CEffectRect& rect, int32_t* outStride) const;
    void* EnsureScratch(const CEffectRect& rect, int32_t* outStride);

    void SetPackedRows(bool packed) { m_packedRows = packed; }
    // pixel: m_colBytes bytes owned by the caller, shown outside the image instead of replicated edges.
    void SetBackground(const void* pixel) { m_background = pixel; }

    KXImage* Image() const { return m_image; }
    const CEffectRect& Bounds() const { return m_bounds; }
    int32_t ColBytes() const { return m_colBytes; }
    int32_t RowBytes() const { return m_rowBytes; }
    State CurrentState() const { return m_state; }
    bool HasScratch() const { return m_scratch != nullptr; }
    size_t ScratchSize() const { return m_scratchSize; }

private:
    // A row that passes the 32-bit range has no pixels: kKXErrOutOfMemory.
    CEffectRect RowRect(int32_t row, int32_t left, int32_t width) const
    {
        if (left == kViewAuto)
            left = m_bounds.left;
        const int64_t right = width < 0 ? std::max<int64_t>(m_bounds.right, left) : int64_t(left) + width;
        if (row == INT32_MAX || right > INT32_MAX)
            KXEffectsRaise(kKXErrOutOfMemory, "Source/Common/Utils/KXEffectsUtils", __LINE__);
        return {row, left, row + 1, int32_t(right)};
    }
    void Clear();
    void FillBackground(uint8_t* scratch, int32_t pixels) const;
    void ReplicateEdges(uint8_t* scratch, int32_t stride, const CEffectRect& rect, const CEffectRect& filled);
    void ReceivePixel(uint8_t* target, const uint8_t* pixel) const;

    KXImage* m_image = nullptr;
    CEffectRect m_bounds;
    bool m_packedRows = false;
    int32_t m_rowBytes = 0;
    int32_t m_colBytes = 0;
    int32_t m_colorBytes = 0;
    uint8_t* m_buffer = nullptr;
    const void* m_background = nullptr;
    State m_state = kViewEmpty;
    uint8_t* m_scratch = nullptr;
    size_t m_scratchSize = 0;
    CEffectRect m_current;
    int32_t m_lastStride = 0;
};

// The in-bounds case of a locked image: pointer arithmetic only.
inline void* CImageView::DirectPointer(const CEffectRect& rect, int32_t* outStride) const
{
    if (!m_buffer)
        return nullptr;
    const bool inside = rect.top >= m_bounds.top && rect.left >= m_bounds.left && rect.bottom <= m_bounds.bottom &&
                        rect.right <= m_bounds.right && rect.bottom >= rect.top && rect.right >= rect.left;
    if (!inside)
        return nullptr;
    if (m_packedRows && rect.bottom - rect.top > 1)
        return nullptr;
    *outStride = m_rowBytes;
    return m_buffer + ptrdiff_t(rect.top - m_bounds.top) * m_rowBytes +
           ptrdiff_t(rect.left - m_bounds.left) * m_colBytes;
}

// Owns a KXEffectsAlignedAlloc block for one call; throws kKXErrOutOfMemory when it cannot be had.
class CAlignedBuffer {
public:
    CAlignedBuffer() = default;
    explicit CAlignedBuffer(size_t count) { Allocate(count); }
    ~CAlignedBuffer() { KXEffectsAlignedFree(m_block); }
    CAlignedBuffer(const CAlignedBuffer&) = delete;
    CAlignedBuffer& operator=(const CAlignedBuffer&) = delete;

    void Allocate(size_t count);
    template <class T> T* As() const { return static_cast<T*>(m_block); }

private:
    void* m_block = nullptr;
};

// Holds one reference to an image and releases it on every path.
class CImageRef {
public:
    CImageRef() = default;
    explicit CImageRef(KXImage* owned) : m_image(owned) {}
    ~CImageRef() { Reset(); }
    CImageRef(const CImageRef&) = delete;
    CImageRef& operator=(const CImageRef&) = delete;

    void Reset(KXImage* owned = nullptr)
    {
        if (m_image)
            KXImageRelease(m_image);
        m_image = owned;
    }
    KXImage* Get() const { return m_image; }
    KXImage** Out()
    {
        Reset();
        return &m_image;
    }
    operator KXImage*() const { return m_image; }

private:
    KXImage* m_image = nullptr;
};

// The bounds of image moved by (byX, byY), ends beyond the 32-bit range stopping at its end: a rectangle
// written at an offset from where it is read is cut to the destination's bounds moved back by the offset.
CEffectRect ShiftedBounds(KXImage* image, int64_t byX = 0, int64_t byY = 0);

// The part of rect in the destination: all that an effect writes there, and all that a local one needs to
// compute, the rest being dropped at write-back.
inline CEffectRect InDestination(const CEffectRect& rect, KXImage* destination)
{
    return rect.Intersection(ShiftedBounds(destination));
}

// Copies rect of source to rect + offset of destination, all planes, same pixel layout. Returns 0.
int32_t KXEffectsCopyRect(KXImage* source, KXImage* destination, const CEffectRect& rect, KXPoint offset);

// A work image like source over rect (null: the bounds of source); throws on failure.
KXImage* KXEffectsCreateWorkImageLike(KXImage* source, const KXRect* rect, const char* file, int32_t line);

template <class Body> int32_t KXEffectsCatchStatus(const char* file, int32_t line, Body&& body) noexcept
{
    try {
        return body();
    } catch (int32_t code) {
        return code;
    } catch (const std::bad_alloc&) {
        KXLogEvent(kKXErrOutOfMemory, file, line);
        return kKXErrOutOfMemory;
    } catch (...) {
        KXLogEvent(kKXErrUnexpected, file, line);
        return kKXErrUnexpected;
    }
}
