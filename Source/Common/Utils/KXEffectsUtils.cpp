// Image views, the thrown status and the shared memory helpers.
#include "KXEffectsUtils.h"

#include "KXEffectsDotProduct.h"
#include "KXEffectsSample.h"

#include <algorithm>
#include <cstdlib>

namespace {
constexpr const char* kSourceFile = "Source/Common/Utils/KXEffectsUtils";

// The widest scratch row in pixels: far beyond any image, and short enough that a row of any pixel size
// still has a 32-bit stride and a walk over it ends.
constexpr int64_t kMaxScratchRowPixels = int64_t(1) << 24;
} // namespace

void KXEffectsRaise(int32_t code, const char* file, int32_t line)
{
    KXLogEvent(code, file, line);
    throw int32_t(code);
}

CEffectRect GrownRect(const CEffectRect& rect, int32_t top, int32_t left, int32_t bottom, int32_t right)
{
    const int64_t grown[4] = {int64_t(rect.top) + top, int64_t(rect.left) + left, int64_t(rect.bottom) + bottom,
                              int64_t(rect.right) + right};
    for (const int64_t end : grown)
        if (end < INT32_MIN || end > INT32_MAX)
            KX_RAISE(kKXErrOutOfMemory);
    if (grown[2] - grown[0] > INT32_MAX || grown[3] - grown[1] > INT32_MAX)
        KX_RAISE(kKXErrOutOfMemory);
    return {int32_t(grown[0]), int32_t(grown[1]), int32_t(grown[2]), int32_t(grown[3])};
}

// ---- CImageView ----

CImageView::~CImageView()
{
    try {
        Flush();
    } catch (int32_t) {
        // Already logged by Flush; a destructor running during unwinding must not throw again.
    }
    Clear();
}

void CImageView::Clear()
{
    delete[] m_scratch;
    if (m_buffer)
        KXImageUnlockBuffer(m_image);
    if (m_image)
        KXImageRelease(m_image);
    m_image = nullptr;
    m_rowBytes = 0;
    m_buffer = nullptr;
    m_scratch = nullptr;
    m_scratchSize = 0;
    m_state = kViewEmpty;
    m_packedRows = false;
}

void CImageView::Attach(KXImage* image)
{
    Detach();
    m_bounds = {};
    m_colBytes = 0;
    m_colorBytes = 0;
    m_background = nullptr;
    m_current = {};
    m_image = image;
    if (!image)
        return;
    KXImageRetain(image);
    m_bounds = CEffectRect::FromKXRect(KXImageGetBounds(image));
    m_rowBytes = KXImageGetRowBytes(image);
    m_colBytes = KXImageGetColBytes(image);
    m_colorBytes = (KXImageGetNumPlanes(image) - KXImageGetTransparency(image)) * KXImageGetPlaneBytes(image);
    m_buffer = static_cast<uint8_t*>(KXImageLockBuffer(image));
}

void CImageView::Detach()
{
    Flush();
    Clear();
}

int32_t CImageView::Flush()
{
    if (m_state != kViewDirty)
        return kKXNoErr;
    // Clean first, so that a failed write-back is not tried again by Detach.
    m_state = kViewClean;
    const CEffectRect inside = m_current.Intersection(m_bounds);
    int32_t stride = 0;
    if (inside.IsEmpty() || DirectPointer(m_current, &stride))
        return kKXNoErr;
    stride = m_current.Width() * m_colBytes;
    const KXRect target = inside.ToKXRect();
    const uint8_t* data = m_scratch + ptrdiff_t(inside.top - m_current.top) * stride +
                          ptrdiff_t(inside.left - m_current.left) * m_colBytes;
    const int32_t rowBytes = inside.Width() == m_current.Width() ? -1 : stride;
    KX_THROW_IF_ERROR(KXImageWrite2(m_image, &target, 0, -1, data, rowBytes, 0));
    return kKXNoErr;
}

void* CImageView::EnsureScratch(const CEffectRect& rect, int32_t* outStride)
{
    // A rectangle too wide for a row of pixels is refused as its allocation would fail.
    if (int64_t(rect.right) - rect.left > kMaxScratchRowPixels || rect.right < rect.left || rect.bottom < rect.top)
        KX_RAISE(kKXErrOutOfMemory);
    const size_t size = size_t(int64_t(rect.Width()) * int64_t(rect.Height()) * m_colBytes);
    if (!m_scratch || size > m_scratchSize) {
        delete[] m_scratch;
        m_scratchSize = 0;
        m_scratch = new (std::nothrow) uint8_t[size];
        if (!m_scratch)
            KX_RAISE(kKXErrOutOfMemory);
        m_scratchSize = size;
    }
    *outStride = rect.Width() * m_colBytes;
    m_current = rect;
    return m_scratch;
}

void* CImageView::WriteRect(const CEffectRect& rect, int32_t* outStride)
{
    Flush();
    void* pointer = DirectPointer(rect, outStride);
    if (pointer)
        m_current = rect;
    else
        pointer = EnsureScratch(rect, outStride);
    m_state = kViewDirty;
    return pointer;
}

const void* CImageView::ReadRect(const CEffectRect& rect, int32_t* outStride)
{
    Flush();
    if (const void* pointer = DirectPointer(rect, outStride)) {
        m_state = kViewClean;
        m_current = rect;
        return pointer;
    }
    if (!m_image)
        return m_scratch;
    m_state = kViewEmpty;
    auto* scratch = static_cast<uint8_t*>(EnsureScratch(rect, outStride));
    const int32_t stride = *outStride;
    if (rect.IsEmpty()) {
        m_state = kViewClean;
        return scratch;
    }
    const CEffectRect inside = rect.Intersection(m_bounds);
    if (!(inside == rect) && m_background)
        FillBackground(scratch, rect.Width() * rect.Height());
    if (m_background && inside.IsEmpty()) {
        m_state = kViewClean;
        return scratch;
    }
    // Even a rectangle wholly outside reads the nearest row or column of the image.
    CEffectRect source = inside;
    CEffectRect filled = inside;
    if (rect.top >= m_bounds.bottom) {
        source.top = m_bounds.bottom - 1, source.bottom = m_bounds.bottom;
        filled.top = rect.top, filled.bottom = rect.top + 1;
    }
    if (rect.left >= m_bounds.right) {
        source.left = m_bounds.right - 1, source.right = m_bounds.right;
        filled.left = rect.left, filled.right = rect.left + 1;
    }
    if (rect.bottom <= m_bounds.top) {
        source.top = m_bounds.top, source.bottom = m_bounds.top + 1;
        filled.top = rect.bottom - 1, filled.bottom = rect.bottom;
    }
    if (rect.right <= m_bounds.left) {
        source.left = m_bounds.left, source.right = m_bounds.left + 1;
        filled.left = rect.right - 1, filled.right = rect.right;
    }
    if (!filled.IsEmpty()) {
        const KXRect sourceRect = source.ToKXRect();
        uint8_t* target =
            scratch + ptrdiff_t(filled.top - rect.top) * stride + ptrdiff_t(filled.left - rect.left) * m_colBytes;
        KX_THROW_IF_ERROR(KXImageRead2(m_image, &sourceRect, 0, -1, target, stride, 0));
    }
    if (!m_background)
        ReplicateEdges(scratch, stride, rect, filled);
    m_state = kViewClean;
    return scratch;
}

void CImageView::FillBackground(uint8_t* scratch, int32_t pixels) const
{
    for (int32_t i = 0; i < pixels; ++i)
        std::memcpy(scratch + ptrdiff_t(i) * m_colBytes, m_background, size_t(m_colBytes));
}

// A received pixel keeps the colour of the edge and has alpha 0: the image's alpha is not extended.
void CImageView::ReceivePixel(uint8_t* target, const uint8_t* pixel) const
{
    std::memmove(target, pixel, size_t(m_colorBytes));
    std::memset(target + m_colorBytes, 0, size_t(m_colBytes - m_colorBytes));
}

void CImageView::ReplicateEdges(uint8_t* scratch, int32_t stride, const CEffectRect& rect, const CEffectRect& filled)
{
    auto pixelAt = [&](int32_t row, int32_t column) {
        return scratch + ptrdiff_t(row - rect.top) * stride + ptrdiff_t(column - rect.left) * m_colBytes;
    };
    if (rect.left < m_bounds.left || rect.right > m_bounds.right) {
        const int32_t leftEnd = std::min(m_bounds.left, rect.right);
        const int32_t rightStart = std::max(rect.left, m_bounds.right);
        for (int32_t row = filled.top; row < filled.bottom; ++row) {
            for (int32_t column = rect.left; column < leftEnd; ++column)
                ReceivePixel(pixelAt(row, column), pixelAt(row, filled.left));
            for (int32_t column = rightStart; column < rect.right; ++column)
                ReceivePixel(pixelAt(row, column), pixelAt(row, filled.right - 1));
        }
    }
    const size_t rowLength = size_t(rect.Width()) * size_t(m_colBytes);
    if (rect.top < m_bounds.top) {
        for (int32_t column = rect.left; column < rect.right; ++column)
            ReceivePixel(pixelAt(rect.top, column), pixelAt(filled.top, column));
        for (int32_t row = rect.top + 1; row < std::min(m_bounds.top, rect.bottom); ++row)
            std::memcpy(pixelAt(row, rect.left), pixelAt(rect.top, rect.left), rowLength);
    }
    if (m_bounds.bottom < rect.bottom) {
        for (int32_t column = rect.left; column < rect.right; ++column)
            ReceivePixel(pixelAt(rect.bottom - 1, column), pixelAt(filled.bottom - 1, column));
        for (int32_t row = rect.bottom - 2; row >= std::max(rect.top, m_bounds.bottom); --row)
            std::memcpy(pixelAt(row, rect.left), pixelAt(rect.bottom - 1, rect.left), rowLength);
    }
}

// ---- Memory and dot products ----

bool gWideVectors = false;

void* KXEffectsAlignedAlloc(size_t count)
{
    // The count is scaled as if it were a float count, though callers pass bytes: the block is about
    // four times larger, which leaves room for padded vector reads past the end.
    // A count whose scaled size would pass the range of size_t has no block.
    if (count > SIZE_MAX / 8 - 32)
        return nullptr;
    const size_t alignment = gWideVectors ? 32 : 16;
    const size_t size = gWideVectors ? ((count + 31) >> 3) << 5 : ((count + 15) >> 2) << 4;
    void* block = std::aligned_alloc(alignment, size);
    if (block)
        std::memset(block, 0, size);
    return block;
}

void KXEffectsAlignedFree(void* block)
{
    std::free(block);
}

void CAlignedBuffer::Allocate(size_t count)
{
    KXEffectsAlignedFree(m_block);
    m_block = KXEffectsAlignedAlloc(count);
    if (!m_block)
        KX_RAISE(kKXErrOutOfMemory);
}

float KXEffectsDotProduct(const float* a, const float* b, int32_t n)
{
    return InlineDotProduct(a, b, n);
}

float KXEffectsDotProductScalar(const float* a, const float* b, int32_t n)
{
    return InlineDotProductScalar(a, b, n);
}

void KXEffectsDotProduct4(const float* a, const float* const* rows, float* out, int32_t n)
{
    float sum[4] = {};
    n = std::max(n, 0); // a negative count is an empty product, not a read before the arrays
    const int32_t blocked = n & ~3;
    for (int32_t i = 0; i < blocked; ++i)
        for (int32_t r = 0; r < 4; ++r)
            sum[r] += a[i] * rows[r][i];
    for (int32_t i = blocked; i < n; ++i)
        for (int32_t r = 0; r < 4; ++r)
            sum[r] += a[i] * rows[r][i];
    for (int32_t r = 0; r < 4; ++r)
        out[r] = sum[r];
}

// ---- Image helpers ----

CEffectRect ShiftedBounds(KXImage* image, int64_t byX, int64_t byY)
{
    const CEffectRect bounds = CEffectRect::FromKXRect(KXImageGetBounds(image));
    return {SaturateToInt32(bounds.top + byY), SaturateToInt32(bounds.left + byX), SaturateToInt32(bounds.bottom + byY),
            SaturateToInt32(bounds.right + byX)};
}

int32_t KXEffectsCopyRect(KXImage* source, KXImage* destination, const CEffectRect& whole, KXPoint offset)
{
    if (source == destination && offset.x == 0 && offset.y == 0)
        return kKXNoErr;
    // Only what lands in the destination is read: the rest would be dropped at write-back.
    const CEffectRect rect = whole.Intersection(ShiftedBounds(destination, -int64_t(offset.x), -int64_t(offset.y)));
    if (rect.top >= rect.bottom || rect.left >= rect.right)
        return kKXNoErr;
    const size_t rowLength = size_t(rect.Width()) * size_t(KXImageGetColBytes(source));
    CImageView sourceView(source);
    CImageView destinationView(destination);
    int32_t sourceStride = 0;
    int32_t destinationStride = 0;
    const auto* from = static_cast<const uint8_t*>(sourceView.ReadRect(rect, &sourceStride));
    const CEffectRect target{rect.top + offset.y, rect.left + offset.x, rect.bottom + offset.y, rect.right + offset.x};
    auto* to = static_cast<uint8_t*>(destinationView.WriteRect(target, &destinationStride));
    for (int32_t row = 0; row < rect.Height(); ++row)
        std::memmove(to + ptrdiff_t(row) * destinationStride, from + ptrdiff_t(row) * sourceStride, rowLength);
    destinationView.Detach();
    sourceView.Detach();
    return kKXNoErr;
}

int32_t KXEffectsCreateImageLike(KXImage* source, KXImage** outImage, const KXRect* rect)
{
    const KXRect bounds = rect ? *rect : KXImageGetBounds(source);
    return KXImageCreateWithParams2(&bounds, KXImageGetDepth(source), KXImageGetNumPlanes(source),
                                    KXImageGetColorSpaceType(source), KXImageGetTransparency(source),
                                    KXDataSourceMemory, outImage);
}

KXImage* KXEffectsCreateWorkImageLike(KXImage* source, const KXRect* rect, const char* file, int32_t line)
{
    KXImage* image = nullptr;
    KXEffectsThrowIfError(KXEffectsCreateImageLike(source, &image, rect), file, line);
    return image;
}

int32_t KXEffectsTest(void)
{
    return kKXNoErr;
}
