// Images: reference-counted rectangles of interleaved pixels, held in memory whatever their data source.
#include "KXCore.h"
#include "KXCorePrivate.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <type_traits>

namespace {

// Rows start on 32-byte boundaries, so row bytes often exceed width x column bytes.
constexpr int64_t kRowAlignment = 32;
constexpr int32_t kMaxPlanes = 8;

struct FreeDeleter {
    void operator()(uint8_t* pixels) const { std::free(pixels); }
};

} // namespace

struct KXImage {
    std::atomic<int32_t> references{1};
    std::atomic<int32_t> locks{0};
    KXRect bounds{};
    int32_t depth = 0;
    int32_t planes = 0;
    int32_t colorSpaceType = 0;
    int32_t transparency = 0;
    int32_t dataSource = 0;
    int32_t type = KXImageTypeNormal;
    int32_t planeBytes = 0;
    int32_t colBytes = 0;
    int32_t rowBytes = 0;
    std::unique_ptr<uint8_t, FreeDeleter> pixels;

    size_t BufferBytes() const { return size_t(rowBytes) * size_t(bounds.height); }
    uint8_t* PixelAt(int32_t x, int32_t y) const
    {
        return pixels.get() + int64_t(y - bounds.y) * rowBytes + int64_t(x - bounds.x) * colBytes;
    }
};

namespace {

// The queries answer 0 for a null image rather than crash.
template <auto Member> int32_t Query(const KXImage* image)
{
    return image ? image->*Member : 0;
}

bool ValidBounds(const KXRect* bounds)
{
    return bounds && bounds->width >= 0 && bounds->height >= 0 && int64_t(bounds->x) + bounds->width <= INT32_MAX &&
           int64_t(bounds->y) + bounds->height <= INT32_MAX;
}

// Colour spaces other than gray and RGB are kept as the host's own tags; the effects reject them.
bool ValidFormat(int32_t depth, int32_t planes, int32_t colorSpaceType, int32_t transparency)
{
    return (depth == 8 || depth == 16 || depth == 32) && planes >= 1 && planes <= kMaxPlanes &&
           (transparency == 0 || transparency == 1) && transparency < planes && colorSpaceType > 0;
}

// Sets the strides and allocates the pixels; at least one byte, so that a memory image always locks.
int32_t AllocatePixels(KXImage& image)
{
    image.planeBytes = image.depth / 8;
    image.colBytes = image.planes * image.planeBytes;
    const int64_t rowBytes =
        (int64_t(image.bounds.width) * image.colBytes + kRowAlignment - 1) / kRowAlignment * kRowAlignment;
    if (rowBytes > INT32_MAX)
        return kKXCoreErrOutOfMemory;
    image.rowBytes = int32_t(rowBytes);
    const size_t bytes = std::max<size_t>(image.BufferBytes(), kRowAlignment);
    image.pixels.reset(static_cast<uint8_t*>(std::aligned_alloc(kRowAlignment, bytes)));
    return image.pixels ? 0 : kKXCoreErrOutOfMemory;
}

// A sample of the given scale: integers clamp and round half up, floats store the value as it is.
template <class Sample> Sample SampleFromValue(float value)
{
    if constexpr (std::is_floating_point_v<Sample>) {
        return value;
    } else {
        const float white = float(std::numeric_limits<Sample>::max());
        return std::isnan(value) ? Sample(0) : Sample(std::clamp(value, 0.0f, white) + 0.5f);
    }
}

template <class Sample> void FillSamples(KXImage& image, float value)
{
    Sample* samples = reinterpret_cast<Sample*>(image.pixels.get());
    std::fill_n(samples, image.BufferBytes() / sizeof(Sample), SampleFromValue<Sample>(value));
}

// One copy between an image's rectangle and a caller's buffer, after validation.
struct Transfer {
    uint8_t* image = nullptr; // first plane read or written of the rectangle's top-left pixel
    uint8_t* buffer = nullptr;
    int64_t imageRowBytes = 0;
    int64_t bufferRowBytes = 0;
    int32_t imageColBytes = 0;
    int32_t pixelBytes = 0; // bytes a pixel moves: planes copied x plane bytes
    int32_t width = 0;
    int32_t height = 0;
};

int32_t CheckTransferArguments(const KXImage* image, const KXRect* rect, int32_t firstPlane, int32_t& lastPlane,
                               int32_t rowBytes, int32_t flags)
{
    if (!image || !rect || flags != 0 || rect->width < 0 || rect->height < 0 || rowBytes < -1)
        return kKXCoreErrBadArgument;
    if (lastPlane == -1)
        lastPlane = image->planes - 1;
    if (firstPlane < 0 || lastPlane < firstPlane || lastPlane >= image->planes)
        return kKXCoreErrBadArgument;
    return 0;
}

// Validates a Read2 or Write2 call; an empty rectangle gives a transfer of no rows.
int32_t PrepareTransfer(KXImage* image, const KXRect* rect, int32_t firstPlane, int32_t lastPlane, const void* buffer,
                        int32_t rowBytes, int32_t flags, Transfer& transfer)
{
    if (const int32_t status = CheckTransferArguments(image, rect, firstPlane, lastPlane, rowBytes, flags))
        return status;
    if (rect->width == 0 || rect->height == 0)
        return 0;
    if (!kxcore::RectContains(image->bounds, *rect))
        return kKXCoreErrOutOfBounds;
    transfer.pixelBytes = (lastPlane - firstPlane + 1) * image->planeBytes;
    const int64_t tightRowBytes = int64_t(rect->width) * transfer.pixelBytes;
    if (!buffer || (rowBytes > 0 && rowBytes < tightRowBytes))
        return kKXCoreErrBadArgument;
    transfer.image = image->PixelAt(rect->x, rect->y) + firstPlane * image->planeBytes;
    transfer.buffer = static_cast<uint8_t*>(const_cast<void*>(buffer));
    transfer.imageRowBytes = image->rowBytes;
    transfer.bufferRowBytes = rowBytes > 0 ? rowBytes : tightRowBytes;
    transfer.imageColBytes = image->colBytes;
    transfer.width = rect->width;
    transfer.height = rect->height;
    return 0;
}

// Copies rows of pixels between two layouts; whole rows at once when both are packed alike.
void CopyPixels(uint8_t* target, int64_t targetRowBytes, int32_t targetColBytes, const uint8_t* source,
                int64_t sourceRowBytes, int32_t sourceColBytes, const Transfer& transfer)
{
    const bool packed = targetColBytes == transfer.pixelBytes && sourceColBytes == transfer.pixelBytes;
    for (int32_t y = 0; y < transfer.height; ++y, target += targetRowBytes, source += sourceRowBytes) {
        if (packed) {
            std::memcpy(target, source, size_t(transfer.width) * size_t(transfer.pixelBytes));
            continue;
        }
        for (int32_t x = 0; x < transfer.width; ++x)
            std::memcpy(target + x * targetColBytes, source + x * sourceColBytes, size_t(transfer.pixelBytes));
    }
}

} // namespace

int32_t KXImageCreateWithParams2(const KXRect* bounds, int32_t depth, int32_t planes, int32_t colorSpaceType,
                                 int32_t transparency, int32_t dataSource, KXImage** outImage)
{
    if (!outImage || !ValidBounds(bounds) || !ValidFormat(depth, planes, colorSpaceType, transparency))
        return kKXCoreErrBadArgument;
    std::unique_ptr<KXImage> image(new (std::nothrow) KXImage);
    if (!image)
        return kKXCoreErrOutOfMemory;
    image->bounds = *bounds;
    image->depth = depth;
    image->planes = planes;
    image->colorSpaceType = colorSpaceType;
    image->transparency = transparency;
    image->dataSource = dataSource;
    if (const int32_t status = AllocatePixels(*image))
        return status;
    *outImage = image.release();
    return 0;
}

int32_t KXImageCreateCopy(KXImage* image, KXImage** outImage)
{
    if (!image || !outImage)
        return kKXCoreErrBadArgument;
    KXImage* copy = nullptr;
    if (const int32_t status = KXImageCreateWithParams2(&image->bounds, image->depth, image->planes,
                                                        image->colorSpaceType, image->transparency, image->dataSource,
                                                        &copy))
        return status;
    copy->type = image->type;
    std::memcpy(copy->pixels.get(), image->pixels.get(), image->BufferBytes());
    *outImage = copy;
    return 0;
}

void KXImageRetain(KXImage* image)
{
    kxcore::RetainReference(image);
}

void KXImageRelease(KXImage* image)
{
    kxcore::ReleaseReference(image);
}

int32_t KXImageGetDepth(KXImage* image)
{
    return Query<&KXImage::depth>(image);
}

int32_t KXImageGetPlaneBytes(KXImage* image)
{
    return Query<&KXImage::planeBytes>(image);
}

int32_t KXImageGetNumPlanes(KXImage* image)
{
    return Query<&KXImage::planes>(image);
}

int32_t KXImageGetTransparency(KXImage* image)
{
    return Query<&KXImage::transparency>(image);
}

int32_t KXImageGetColorSpaceType(KXImage* image)
{
    return Query<&KXImage::colorSpaceType>(image);
}

int32_t KXImageGetType(KXImage* image)
{
    return Query<&KXImage::type>(image);
}

int32_t KXImageSetType(KXImage* image, int32_t type)
{
    if (!image)
        return kKXCoreErrBadArgument;
    image->type = type;
    return 0;
}

int32_t KXImageGetDataSourceType(KXImage* image)
{
    return Query<&KXImage::dataSource>(image);
}

int32_t KXImageGetWidth(KXImage* image)
{
    return image ? image->bounds.width : 0;
}

int32_t KXImageGetHeight(KXImage* image)
{
    return image ? image->bounds.height : 0;
}

int32_t KXImageGetColBytes(KXImage* image)
{
    return Query<&KXImage::colBytes>(image);
}

int32_t KXImageGetRowBytes(KXImage* image)
{
    return Query<&KXImage::rowBytes>(image);
}

KXRect KXImageGetBounds(KXImage* image)
{
    return image ? image->bounds : KXRect{0, 0, 0, 0};
}

int32_t KXImageFill(KXImage* image, float value)
{
    if (!image)
        return kKXCoreErrBadArgument;
    if (image->planeBytes == 1)
        FillSamples<uint8_t>(*image, value);
    else if (image->planeBytes == 2)
        FillSamples<uint16_t>(*image, value);
    else
        FillSamples<float>(*image, value);
    return 0;
}

void* KXImageLockBuffer(KXImage* image)
{
    if (!image || image->dataSource == KXDataSourceUnbuffered)
        return nullptr;
    image->locks.fetch_add(1, std::memory_order_acq_rel);
    return image->PixelAt(image->bounds.x, image->bounds.y);
}

void KXImageUnlockBuffer(KXImage* image)
{
    if (!image)
        return;
    // An unlock without a lock leaves the count at zero.
    int32_t locks = image->locks.load(std::memory_order_relaxed);
    bool unlocked = false;
    while (locks > 0 && !unlocked)
        unlocked = image->locks.compare_exchange_weak(locks, locks - 1, std::memory_order_acq_rel);
}

int32_t KXImageRead2(KXImage* image, const KXRect* rect, int32_t firstPlane, int32_t lastPlane, void* buffer,
                     int32_t rowBytes, int32_t flags)
{
    Transfer transfer;
    if (const int32_t status = PrepareTransfer(image, rect, firstPlane, lastPlane, buffer, rowBytes, flags, transfer))
        return status;
    CopyPixels(transfer.buffer, transfer.bufferRowBytes, transfer.pixelBytes, transfer.image, transfer.imageRowBytes,
               transfer.imageColBytes, transfer);
    return 0;
}

int32_t KXImageWrite2(KXImage* image, const KXRect* rect, int32_t firstPlane, int32_t lastPlane, const void* buffer,
                      int32_t rowBytes, int32_t flags)
{
    Transfer transfer;
    if (const int32_t status = PrepareTransfer(image, rect, firstPlane, lastPlane, buffer, rowBytes, flags, transfer))
        return status;
    CopyPixels(transfer.image, transfer.imageRowBytes, transfer.imageColBytes, transfer.buffer, transfer.bufferRowBytes,
               transfer.pixelBytes, transfer);
    return 0;
}
