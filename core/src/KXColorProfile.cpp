// Colour profiles and conversions between them, through LittleCMS.
#include "KXCore.h"
#include "KXCorePrivate.h"

#include <lcms2.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

struct KXColorProfile {
    explicit KXColorProfile(cmsHPROFILE profile) : handle(profile) {}
    ~KXColorProfile() { cmsCloseProfile(handle); }
    KXColorProfile(const KXColorProfile&) = delete;
    KXColorProfile& operator=(const KXColorProfile&) = delete;

    std::atomic<int32_t> references{1};
    cmsHPROFILE handle;
};

namespace {

// A four-character tag such as "prop" as a 32-bit big-endian code.
constexpr uint32_t FourCharCode(const char (&text)[5])
{
    return uint32_t(uint8_t(text[0])) << 24 | uint32_t(uint8_t(text[1])) << 16 | uint32_t(uint8_t(text[2])) << 8 |
           uint32_t(uint8_t(text[3]));
}

// ProPhoto (ROMM) RGB: D50 white, the ROMM primaries and a pure 1.8 gamma.
cmsHPROFILE CreateProPhotoProfile()
{
    const cmsCIExyYTRIPLE primaries = {{0.7347, 0.2653, 1.0}, {0.1596, 0.8404, 1.0}, {0.0366, 0.0001, 1.0}};
    cmsToneCurve* gamma = cmsBuildGamma(nullptr, 1.8);
    if (!gamma)
        return nullptr;
    cmsToneCurve* curves[3] = {gamma, gamma, gamma};
    cmsHPROFILE profile = cmsCreateRGBProfile(cmsD50_xyY(), &primaries, curves);
    cmsFreeToneCurve(gamma);
    return profile;
}

KXColorProfile* WrapProfile(cmsHPROFILE profile)
{
    return profile ? new KXColorProfile(profile) : nullptr;
}

// The row format of an RGB image: three colour samples and an optional alpha that the transform copies.
cmsUInt32Number RowFormat(int32_t planeBytes, int32_t transparency)
{
    const cmsUInt32Number format = COLORSPACE_SH(PT_RGB) | CHANNELS_SH(3) | EXTRA_SH(transparency);
    if (planeBytes == 4)
        return format | FLOAT_SH(1) | BYTES_SH(4);
    return format | BYTES_SH(planeBytes);
}

// The optimised 16-bit path resamples into a coarse grid and is off by up to 1/600 in dark colours;
// evaluating the full pipeline costs as much as the float path but keeps 16-bit precision.
cmsUInt32Number TransformFlags(int32_t planeBytes, int32_t transparency)
{
    const cmsUInt32Number flags = transparency ? cmsFLAGS_COPY_ALPHA : 0;
    return planeBytes == 2 ? flags | cmsFLAGS_NOOPTIMIZE : flags;
}

bool IsRGBImage(KXImage* image)
{
    return KXImageGetColorSpaceType(image) == KXColorSpaceRGB &&
           KXImageGetNumPlanes(image) - KXImageGetTransparency(image) == 3;
}

bool SameLayout(KXImage* first, KXImage* second)
{
    return KXImageGetDepth(first) == KXImageGetDepth(second) &&
           KXImageGetNumPlanes(first) == KXImageGetNumPlanes(second) &&
           KXImageGetTransparency(first) == KXImageGetTransparency(second);
}

bool ValidConversion(KXColorProfile* sourceProfile, KXColorProfile* destProfile, KXImage* sourceImage,
                     KXImage* destImage, const KXRect* rect, int32_t flags)
{
    return sourceProfile && destProfile && sourceImage && destImage && rect && flags == 0 && rect->width >= 0 &&
           rect->height >= 0 && IsRGBImage(sourceImage) && SameLayout(sourceImage, destImage);
}

struct TransformDeleter {
    void operator()(void* transform) const { cmsDeleteTransform(transform); }
};

// Converts rect row by row through Read2 and Write2, so that any data source works.
int32_t ConvertRows(cmsHTRANSFORM transform, KXImage* sourceImage, KXImage* destImage, const KXRect& rect)
{
    const size_t rowBytes = size_t(rect.width) * size_t(KXImageGetColBytes(sourceImage));
    std::vector<uint8_t> sourceRow(rowBytes);
    std::vector<uint8_t> destRow(rowBytes);
    for (int32_t y = rect.y; y < rect.y + rect.height; ++y) {
        const KXRect row = {rect.x, y, rect.width, 1};
        if (const int32_t status = KXImageRead2(sourceImage, &row, 0, -1, sourceRow.data(), 0, 0))
            return status;
        cmsDoTransform(transform, sourceRow.data(), destRow.data(), cmsUInt32Number(rect.width));
        if (const int32_t status = KXImageWrite2(destImage, &row, 0, -1, destRow.data(), 0, 0))
            return status;
    }
    return 0;
}

} // namespace

KXColorProfile* KXColorProfileCreateStandard(uint32_t code)
{
    if (code == FourCharCode("prop"))
        return WrapProfile(CreateProPhotoProfile());
    if (code == FourCharCode("srgb"))
        return WrapProfile(cmsCreate_sRGBProfile());
    return nullptr;
}

int32_t KXColorProfileCreateFromICC(const void* data, size_t size, KXColorProfile** out)
{
    if (!data || size == 0 || size > UINT32_MAX || !out)
        return kKXCoreErrBadArgument;
    KXColorProfile* profile = WrapProfile(cmsOpenProfileFromMem(data, cmsUInt32Number(size)));
    if (!profile)
        return kKXCoreErrColorProfile;
    *out = profile;
    return 0;
}

void KXColorProfileRetain(KXColorProfile* profile)
{
    kxcore::RetainReference(profile);
}

void KXColorProfileRelease(KXColorProfile* profile)
{
    kxcore::ReleaseReference(profile);
}

int32_t KXColorProfileConvertProfile(KXColorProfile* sourceProfile, KXColorProfile* destProfile, KXImage* sourceImage,
                                     KXImage* destImage, const KXRect* rect, int32_t flags)
{
    if (!ValidConversion(sourceProfile, destProfile, sourceImage, destImage, rect, flags))
        return kKXCoreErrBadArgument;
    if (rect->width == 0 || rect->height == 0)
        return 0;
    // Checked up front so that a bad rectangle leaves the destination untouched.
    const KXRect sourceBounds = KXImageGetBounds(sourceImage);
    const KXRect destBounds = KXImageGetBounds(destImage);
    if (!kxcore::RectContains(sourceBounds, *rect) || !kxcore::RectContains(destBounds, *rect))
        return kKXCoreErrOutOfBounds;
    const int32_t planeBytes = KXImageGetPlaneBytes(sourceImage);
    const int32_t transparency = KXImageGetTransparency(sourceImage);
    const cmsUInt32Number format = RowFormat(planeBytes, transparency);
    const std::unique_ptr<void, TransformDeleter> transform(
        cmsCreateTransform(sourceProfile->handle, format, destProfile->handle, format, INTENT_RELATIVE_COLORIMETRIC,
                           TransformFlags(planeBytes, transparency)));
    if (!transform)
        return kKXCoreErrColorProfile;
    return ConvertRows(transform.get(), sourceImage, destImage, *rect);
}
