// The core library: images, geometry, colour profiles, log, progress, arrays and the task queue.
#include "KXCore.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <latch>
#include <mutex>
#include <numbers>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int32_t kDepths[] = {8, 16, 32};
constexpr int32_t kDataSources[] = {KXDataSourceUnbuffered, KXDataSourceMemory};
constexpr uint32_t kProPhoto = 0x70726f70; // "prop"
constexpr uint32_t kSRGB = 0x73726762;     // "srgb"

KXImage* MakeImage(KXRect bounds, int32_t depth, int32_t planes, int32_t transparency, int32_t dataSource)
{
    KXImage* image = nullptr;
    const int32_t colorSpace = planes - transparency == 3 ? KXColorSpaceRGB : KXColorSpaceGray;
    EXPECT_EQ(0, KXImageCreateWithParams2(&bounds, depth, planes, colorSpace, transparency, dataSource, &image));
    return image;
}

// A byte of a test pattern, distinct for neighbouring pixels, rows and bytes of a pixel.
uint8_t PatternByte(int32_t x, int32_t y, int32_t byte)
{
    return uint8_t(x * 7 + y * 31 + byte * 3 + 1);
}

// Fills the whole image with the pattern through a tight Write2 and returns the pixel bytes.
void WritePattern(KXImage* image)
{
    const KXRect bounds = KXImageGetBounds(image);
    const int32_t colBytes = KXImageGetColBytes(image);
    std::vector<uint8_t> pixels(size_t(bounds.width) * bounds.height * colBytes);
    for (int32_t y = 0; y < bounds.height; ++y)
        for (int32_t x = 0; x < bounds.width; ++x)
            for (int32_t byte = 0; byte < colBytes; ++byte)
                pixels[(size_t(y) * bounds.width + x) * colBytes + byte] = PatternByte(x, y, byte);
    ASSERT_EQ(0, KXImageWrite2(image, &bounds, 0, -1, pixels.data(), -1, 0));
}

// Checks that buffer holds planes first..last of rect of a patterned image, rows rowBytes apart.
void ExpectPattern(KXImage* image, const KXRect& rect, int32_t first, int32_t last, const uint8_t* buffer,
                   size_t rowBytes)
{
    const KXRect bounds = KXImageGetBounds(image);
    const int32_t planeBytes = KXImageGetPlaneBytes(image);
    const int32_t pixelBytes = (last - first + 1) * planeBytes;
    for (int32_t y = 0; y < rect.height; ++y)
        for (int32_t x = 0; x < rect.width; ++x)
            for (int32_t byte = 0; byte < pixelBytes; ++byte)
                ASSERT_EQ(PatternByte(rect.x - bounds.x + x, rect.y - bounds.y + y, first * planeBytes + byte),
                          buffer[y * rowBytes + size_t(x) * pixelBytes + byte])
                    << "x " << x << " y " << y << " byte " << byte;
}

std::vector<uint8_t> EncodeSamples(int32_t depth, const std::vector<float>& values)
{
    std::vector<uint8_t> bytes(values.size() * size_t(depth / 8));
    for (size_t i = 0; i < values.size(); ++i) {
        if (depth == 8)
            bytes[i] = uint8_t(values[i] * 255.0f + 0.5f);
        else if (depth == 16)
            reinterpret_cast<uint16_t*>(bytes.data())[i] = uint16_t(values[i] * 65535.0f + 0.5f);
        else
            reinterpret_cast<float*>(bytes.data())[i] = values[i];
    }
    return bytes;
}

std::vector<float> DecodeSamples(int32_t depth, const std::vector<uint8_t>& bytes)
{
    std::vector<float> values(bytes.size() / size_t(depth / 8));
    for (size_t i = 0; i < values.size(); ++i) {
        if (depth == 8)
            values[i] = float(bytes[i]) / 255.0f;
        else if (depth == 16)
            values[i] = float(reinterpret_cast<const uint16_t*>(bytes.data())[i]) / 65535.0f;
        else
            values[i] = reinterpret_cast<const float*>(bytes.data())[i];
    }
    return values;
}

std::vector<float> ReadValues(KXImage* image, const KXRect& rect)
{
    std::vector<uint8_t> bytes(size_t(rect.width) * rect.height * KXImageGetColBytes(image));
    EXPECT_EQ(0, KXImageRead2(image, &rect, 0, -1, bytes.data(), 0, 0));
    return DecodeSamples(KXImageGetDepth(image), bytes);
}

void WriteValues(KXImage* image, const KXRect& rect, const std::vector<float>& values)
{
    const std::vector<uint8_t> bytes = EncodeSamples(KXImageGetDepth(image), values);
    ASSERT_EQ(0, KXImageWrite2(image, &rect, 0, -1, bytes.data(), 0, 0));
}

TEST(CoreImage, ReadWriteRoundTripsAtEveryDepthAndDataSource)
{
    const KXRect bounds = {100, 50, 9, 5};
    const KXRect rect = {102, 51, 6, 3};
    for (const int32_t depth : kDepths) {
        for (const int32_t dataSource : kDataSources) {
            SCOPED_TRACE("depth " + std::to_string(depth) + " source " + std::to_string(dataSource));
            KXImage* image = MakeImage(bounds, depth, 4, 1, dataSource);
            WritePattern(image);
            for (const auto& [first, last] : {std::pair{0, 3}, std::pair{1, 2}, std::pair{3, 3}}) {
                const int32_t tight = rect.width * (last - first + 1) * depth / 8;
                for (const int32_t rowBytes : {-1, 0, tight, tight + 13}) {
                    const size_t stride = size_t(std::max(rowBytes, tight));
                    std::vector<uint8_t> buffer(stride * rect.height);
                    const int32_t lastArgument = last == 3 ? -1 : last;
                    ASSERT_EQ(0, KXImageRead2(image, &rect, first, lastArgument, buffer.data(), rowBytes, 0));
                    ExpectPattern(image, rect, first, last, buffer.data(), stride);
                }
            }
            // Writing alpha alone, from a padded buffer, leaves the colour planes.
            const int32_t alphaRowBytes = rect.width * depth / 8 + 5;
            const std::vector<uint8_t> alpha(size_t(alphaRowBytes) * rect.height, 0xAB);
            ASSERT_EQ(0, KXImageWrite2(image, &rect, 3, 3, alpha.data(), alphaRowBytes, 0));
            std::vector<uint8_t> colour(size_t(bounds.width) * bounds.height * 3 * depth / 8);
            ASSERT_EQ(0, KXImageRead2(image, &bounds, 0, 2, colour.data(), 0, 0));
            ExpectPattern(image, bounds, 0, 2, colour.data(), size_t(bounds.width) * 3 * depth / 8);
            std::vector<uint8_t> readAlpha(size_t(rect.width) * rect.height * depth / 8);
            ASSERT_EQ(0, KXImageRead2(image, &rect, 3, -1, readAlpha.data(), -1, 0));
            EXPECT_EQ(std::vector<uint8_t>(readAlpha.size(), 0xAB), readAlpha);
            KXImageRelease(image);
        }
    }
}

TEST(CoreImage, ReadWriteRejectBadArgumentsAndLeaveTheImage)
{
    const KXRect bounds = {10, 20, 4, 3};
    KXImage* image = MakeImage(bounds, 16, 3, 0, KXDataSourceMemory);
    WritePattern(image);
    std::vector<uint8_t> buffer(1024, 0x5A);
    struct Case {
        KXRect rect;
        int32_t first, last, rowBytes, flags;
        void* buffer;
    };
    const Case cases[] = {
        {{9, 20, 2, 2}, 0, -1, 0, 0, buffer.data()},   {{12, 21, 3, 1}, 0, -1, 0, 0, buffer.data()},
        {{10, 22, 1, 2}, 0, -1, 0, 0, buffer.data()},  {{10, 20, -1, 2}, 0, -1, 0, 0, buffer.data()},
        {{10, 20, 2, 2}, 0, -1, 0, 1, buffer.data()},  {{10, 20, 2, 2}, -1, -1, 0, 0, buffer.data()},
        {{10, 20, 2, 2}, 0, 3, 0, 0, buffer.data()},   {{10, 20, 2, 2}, 2, 1, 0, 0, buffer.data()},
        {{10, 20, 2, 2}, 0, -1, 11, 0, buffer.data()}, {{10, 20, 2, 2}, 0, -1, -2, 0, buffer.data()},
        {{10, 20, 2, 2}, 0, -1, 0, 0, nullptr},
    };
    for (const Case& c : cases) {
        EXPECT_NE(0, KXImageRead2(image, &c.rect, c.first, c.last, c.buffer, c.rowBytes, c.flags));
        EXPECT_NE(0, KXImageWrite2(image, &c.rect, c.first, c.last, c.buffer, c.rowBytes, c.flags));
    }
    EXPECT_EQ(kKXCoreErrOutOfBounds, KXImageRead2(image, &cases[0].rect, 0, -1, buffer.data(), 0, 0));
    EXPECT_NE(0, KXImageRead2(nullptr, &bounds, 0, -1, buffer.data(), 0, 0));
    EXPECT_NE(0, KXImageRead2(image, nullptr, 0, -1, buffer.data(), 0, 0));
    const KXRect empty = {11, 21, 0, 2};
    EXPECT_EQ(0, KXImageRead2(image, &empty, 0, -1, nullptr, 0, 0));
    EXPECT_EQ(0, KXImageWrite2(image, &empty, 0, -1, nullptr, 0, 0));
    ASSERT_EQ(0, KXImageRead2(image, &bounds, 0, -1, buffer.data(), 0, 0));
    ExpectPattern(image, bounds, 0, 2, buffer.data(), size_t(bounds.width) * KXImageGetColBytes(image));
    KXImageRelease(image);
}

TEST(CoreImage, LockBufferAddressesTheBoundsTopLeftAndNests)
{
    const KXRect bounds = {100, 50, 7, 3};
    for (const int32_t depth : kDepths) {
        KXImage* image = MakeImage(bounds, depth, 3, 0, KXDataSourceMemory);
        WritePattern(image);
        const int32_t colBytes = KXImageGetColBytes(image);
        const int32_t rowBytes = KXImageGetRowBytes(image);
        EXPECT_EQ(3 * depth / 8, colBytes);
        EXPECT_GE(rowBytes, bounds.width * colBytes);
        auto* pixels = static_cast<const uint8_t*>(KXImageLockBuffer(image));
        ASSERT_NE(nullptr, pixels);
        EXPECT_EQ(pixels, KXImageLockBuffer(image));
        for (int32_t y = 0; y < bounds.height; ++y)
            for (int32_t x = 0; x < bounds.width; ++x)
                for (int32_t byte = 0; byte < colBytes; ++byte)
                    ASSERT_EQ(PatternByte(x, y, byte), pixels[y * rowBytes + x * colBytes + byte]);
        KXImageUnlockBuffer(image);
        KXImageUnlockBuffer(image);
        KXImageUnlockBuffer(image); // one too many: harmless
        EXPECT_EQ(pixels, KXImageLockBuffer(image));
        KXImageUnlockBuffer(image);
        KXImageRelease(image);
    }
    KXImage* unbuffered = MakeImage(bounds, 8, 1, 0, KXDataSourceUnbuffered);
    EXPECT_EQ(nullptr, KXImageLockBuffer(unbuffered));
    KXImageUnlockBuffer(unbuffered);
    KXImageRelease(unbuffered);
}

TEST(CoreImage, CreateValidatesAndCopyIsComplete)
{
    const KXRect bounds = {5, 6, 3, 2};
    const KXRect negative = {0, 0, -1, 2};
    KXImage* image = nullptr;
    struct Case {
        const KXRect* bounds;
        int32_t depth, planes, colorSpace, transparency;
    };
    for (const Case& c : {Case{&bounds, 12, 3, 2, 0}, Case{&bounds, 8, 0, 1, 0}, Case{&bounds, 8, 9, 2, 0},
                          Case{&bounds, 8, 1, 1, 1}, Case{&bounds, 8, 4, 2, 2}, Case{&bounds, 8, 3, 0, 0},
                          Case{&negative, 8, 3, 2, 0}, Case{nullptr, 8, 3, 2, 0}})
        EXPECT_NE(0, KXImageCreateWithParams2(c.bounds, c.depth, c.planes, c.colorSpace, c.transparency, 1, &image));
    EXPECT_NE(0, KXImageCreateWithParams2(&bounds, 8, 3, 2, 0, 1, nullptr));

    for (const int32_t dataSource : kDataSources) {
        KXImage* original = MakeImage(bounds, 32, 2, 1, dataSource);
        WritePattern(original);
        EXPECT_EQ(0, KXImageSetType(original, KXImageTypeInvertedMask));
        KXImage* copy = nullptr;
        ASSERT_EQ(0, KXImageCreateCopy(original, &copy));
        ASSERT_EQ(0, KXImageFill(original, 0.0f)); // the copy must not share pixels
        EXPECT_EQ(KXImageTypeInvertedMask, KXImageGetType(copy));
        EXPECT_EQ(dataSource, KXImageGetDataSourceType(copy));
        EXPECT_EQ(8, KXImageGetColBytes(copy));
        std::vector<uint8_t> pixels(size_t(bounds.width) * bounds.height * 8);
        ASSERT_EQ(0, KXImageRead2(copy, &bounds, 0, -1, pixels.data(), 0, 0));
        ExpectPattern(copy, bounds, 0, 1, pixels.data(), size_t(bounds.width) * 8);
        KXImageRelease(copy);
        KXImageRelease(original);
    }
}

TEST(CoreImage, FillConvertsTheValueToTheSampleType)
{
    const KXRect bounds = {-4, -4, 5, 3};
    struct Case {
        int32_t depth;
        float value, expected;
    };
    for (const Case& c : {Case{8, 127.5f, 128.0f / 255.0f}, Case{8, 300.0f, 1.0f}, Case{8, -3.0f, 0.0f},
                          Case{16, 65535.0f, 1.0f}, Case{16, 0.0f, 0.0f}, Case{32, 1.5f, 1.5f},
                          Case{32, -0.25f, -0.25f}}) {
        for (const int32_t dataSource : kDataSources) {
            KXImage* image = MakeImage(bounds, c.depth, 4, 1, dataSource);
            ASSERT_EQ(0, KXImageFill(image, c.value));
            for (const float value : ReadValues(image, bounds))
                ASSERT_EQ(c.expected, value) << "depth " << c.depth << " value " << c.value;
            KXImageRelease(image);
        }
    }
}

bool SameRect(const KXRect& a, const KXRect& b)
{
    return a.x == b.x && a.y == b.y && a.width == b.width && a.height == b.height;
}

TEST(CoreGeometry, RectanglesAndPoints)
{
    const KXRect a = KXRectMake(0, 0, 10, 10);
    const KXRect b = KXRectMake(5, -3, 10, 6);
    EXPECT_TRUE(SameRect({5, 0, 5, 3}, KXRectIntersect(&a, &b)));
    const KXRect right = KXRectMake(10, 0, 4, 4); // touches a's right edge only
    const KXRect disjoint = KXRectIntersect(&a, &right);
    EXPECT_EQ(0, disjoint.width);
    EXPECT_EQ(0, disjoint.height);
    const KXRect empty = KXRectMake(3, 3, 0, 5);
    EXPECT_EQ(0, KXRectIntersect(&a, &empty).width);

    EXPECT_TRUE(SameRect({-2, -2, 14, 14}, KXRectOutset(&a, 2)));
    EXPECT_TRUE(SameRect({3, 3, 4, 4}, KXRectOutset(&a, -3)));

    EXPECT_TRUE(KXPointInRect(KXPointMake(0, 0), &a));
    EXPECT_TRUE(KXPointInRect(KXPointMake(9, 9), &a));
    EXPECT_FALSE(KXPointInRect(KXPointMake(10, 5), &a));
    EXPECT_FALSE(KXPointInRect(KXPointMake(5, 10), &a));
    EXPECT_FALSE(KXPointInRect(KXPointMake(-1, 5), &a));
    EXPECT_FALSE(KXPointInRect(KXPointMake(3, 3), &empty));
}

void ExpectMaps(const KXAffineTransform& t, float x, float y, float expectedX, float expectedY)
{
    EXPECT_NEAR(expectedX, t.a * x + t.c * y + t.tx, 1e-3f) << "from " << x << ", " << y;
    EXPECT_NEAR(expectedY, t.b * x + t.d * y + t.ty, 1e-3f) << "from " << x << ", " << y;
}

TEST(CoreGeometry, AffineTransforms)
{
    const float quarter = std::numbers::pi_v<float> / 2.0f;
    // A quarter turn about (10, 20) with scale 2, shifted by (1, -1): (11, 20) goes to (10, 22) + (1, -1).
    const KXAffineTransform turn = KXAffineTransformMake(quarter, 2.0f, 2.0f, 10.0f, 20.0f, 1.0f, -1.0f);
    ExpectMaps(turn, 10.0f, 20.0f, 11.0f, 19.0f);
    ExpectMaps(turn, 11.0f, 20.0f, 11.0f, 21.0f);
    ExpectMaps(turn, 10.0f, 21.0f, 9.0f, 19.0f);

    const KXAffineTransform skew = KXAffineTransformMake(0.3f, 1.5f, 0.7f, -4.0f, 9.0f, 2.5f, 3.0f);
    const KXAffineTransform inverse = KXAffineTransformInvert(&skew);
    for (const float x : {-7.0f, 0.0f, 13.5f}) {
        const float mappedX = skew.a * x + skew.c * 4.0f + skew.tx;
        const float mappedY = skew.b * x + skew.d * 4.0f + skew.ty;
        ExpectMaps(inverse, mappedX, mappedY, x, 4.0f);
    }

    const KXRect rect = KXRectMake(0, 0, 10, 4);
    const KXAffineTransform around = KXAffineTransformMake(quarter, 1.0f, 1.0f, 5.0f, 2.0f, 0.0f, 0.0f);
    EXPECT_TRUE(SameRect({3, -3, 4, 10}, KXAffineTransformTransformRect(&rect, &around)));
    const KXAffineTransform shift = KXAffineTransformMake(0.0f, 1.0f, 1.0f, 0.0f, 0.0f, 0.25f, -0.5f);
    EXPECT_TRUE(SameRect({0, -1, 11, 5}, KXAffineTransformTransformRect(&rect, &shift)));
}

TEST(CoreGeometry, ResizeMapsSourceIntoDestination)
{
    const KXRect source = KXRectMake(0, 0, 200, 100);
    const KXRect dest = KXRectMake(10, 10, 100, 100);
    // Stretch: corners to corners.
    const KXAffineTransform stretch = KXAffineTransformMakeResize(&source, &dest, false, false, 0, 1, 1, false);
    ExpectMaps(stretch, 0, 0, 10, 10);
    ExpectMaps(stretch, 200, 100, 110, 110);
    // Fit keeps the aspect: 200x100 becomes 100x50, centred.
    const KXAffineTransform fit = KXAffineTransformMakeResize(&source, &dest, true, false, 0, 1, 1, false);
    ExpectMaps(fit, 0, 0, 10, 35);
    ExpectMaps(fit, 200, 100, 110, 85);
    // Cover: 200x100 becomes 200x100 centred on the destination, overflowing it sideways.
    const KXAffineTransform cover = KXAffineTransformMakeResize(&source, &dest, true, true, 0, 1, 1, false);
    ExpectMaps(cover, 0, 0, -40, 10);
    // Mirror: the source's left edge lands on the right.
    const KXAffineTransform mirror = KXAffineTransformMakeResize(&source, &dest, false, false, 0, 1, 1, true);
    ExpectMaps(mirror, 0, 0, 110, 10);
    // A quarter turn of the 200x100 source fits a 100x200 destination exactly.
    const KXRect tall = KXRectMake(0, 0, 100, 200);
    const KXAffineTransform turned = KXAffineTransformMakeResize(&source, &tall, true, false, 90, 1, 1, false);
    const KXRect turnedBounds = KXAffineTransformTransformRect(&source, &turned);
    EXPECT_TRUE(SameRect(tall, turnedBounds));
    // scaleA and scaleB scale about the destination's centre.
    const KXAffineTransform half = KXAffineTransformMakeResize(&source, &dest, false, false, 0, 0.5f, 0.25f, false);
    ExpectMaps(half, 0, 0, 35, 47.5f);
}

struct ColorCase {
    int32_t depth;
    float tolerance;
};
constexpr ColorCase kColorCases[] = {{8, 2.5f / 255.0f}, {16, 2e-4f}, {32, 1e-4f}};

// Colours well inside both gamuts, in the ProPhoto working space; alpha last.
const std::vector<float> kColors = {0.45f, 0.35f, 0.30f, 0.25f, 0.50f, 0.50f, 0.50f, 0.60f,
                                    0.30f, 0.32f, 0.40f, 1.00f, 0.60f, 0.55f, 0.52f, 0.00f};

TEST(CoreColorProfile, RoundTripThroughSRGBKeepsColoursAndAlpha)
{
    KXColorProfile* proPhoto = KXColorProfileCreateStandard(kProPhoto);
    KXColorProfile* sRGB = KXColorProfileCreateStandard(kSRGB);
    ASSERT_NE(nullptr, proPhoto);
    ASSERT_NE(nullptr, sRGB);
    const KXRect bounds = {30, 40, 2, 2};
    for (const ColorCase& c : kColorCases) {
        for (const int32_t dataSource : kDataSources) {
            SCOPED_TRACE("depth " + std::to_string(c.depth) + " source " + std::to_string(dataSource));
            KXImage* image = MakeImage(bounds, c.depth, 4, 1, dataSource);
            KXImage* other = MakeImage(bounds, c.depth, 4, 1, KXDataSourceMemory);
            WriteValues(image, bounds, kColors);
            const std::vector<float> written = ReadValues(image, bounds);
            ASSERT_EQ(0, KXColorProfileConvertProfile(proPhoto, sRGB, image, image, &bounds, 0));
            const std::vector<float> converted = ReadValues(image, bounds);
            EXPECT_GT(std::fabs(converted[0] - written[0]), 0.01f); // the values did change
            ASSERT_EQ(0, KXColorProfileConvertProfile(sRGB, proPhoto, image, other, &bounds, 0));
            const std::vector<float> back = ReadValues(other, bounds);
            for (size_t i = 0; i < written.size(); ++i) {
                EXPECT_NEAR(written[i], back[i], c.tolerance) << "sample " << i;
                if (i % 4 == 3) {
                    EXPECT_EQ(written[i], converted[i]) << "alpha " << i;
                }
            }
            KXImageRelease(other);
            KXImageRelease(image);
        }
    }
    KXColorProfileRelease(sRGB);
    KXColorProfileRelease(proPhoto);
}

TEST(CoreColorProfile, WhiteAndGrayKeepTheirNeutrality)
{
    KXColorProfile* proPhoto = KXColorProfileCreateStandard(kProPhoto);
    KXColorProfile* sRGB = KXColorProfileCreateStandard(kSRGB);
    const KXRect bounds = {0, 0, 3, 1};
    const KXRect rect = {0, 0, 2, 1}; // the third pixel stays as written
    for (const ColorCase& c : kColorCases) {
        KXImage* image = MakeImage(bounds, c.depth, 3, 0, KXDataSourceUnbuffered);
        WriteValues(image, bounds, {1.0f, 1.0f, 1.0f, 0.5f, 0.5f, 0.5f, 0.2f, 0.3f, 0.4f});
        ASSERT_EQ(0, KXColorProfileConvertProfile(proPhoto, sRGB, image, image, &rect, 0));
        const std::vector<float> values = ReadValues(image, bounds);
        for (int32_t i = 0; i < 3; ++i) {
            EXPECT_NEAR(1.0f, values[i], c.tolerance) << "depth " << c.depth;
            // A gamma 1.8 mid gray is 0.287 linear, which sRGB encodes near 0.572.
            EXPECT_NEAR(0.572f, values[3 + i], 0.01f) << "depth " << c.depth;
            EXPECT_NEAR(values[3], values[3 + i], c.tolerance) << "depth " << c.depth;
        }
        EXPECT_NEAR(0.2f, values[6], 1.0f / 255.0f);
        KXImageRelease(image);
    }
    KXColorProfileRelease(sRGB);
    KXColorProfileRelease(proPhoto);
}

TEST(CoreColorProfile, RejectsWhatItCannotConvert)
{
    EXPECT_EQ(nullptr, KXColorProfileCreateStandard(0x6e6f7065)); // "nope"
    KXColorProfile* garbage = nullptr;
    const char notAProfile[] = "not a profile at all, just some bytes";
    EXPECT_NE(0, KXColorProfileCreateFromICC(notAProfile, sizeof notAProfile, &garbage));
    EXPECT_EQ(nullptr, garbage);

    KXColorProfile* proPhoto = KXColorProfileCreateStandard(kProPhoto);
    KXColorProfileRetain(proPhoto); // a second reference: one release below must not end it
    KXColorProfileRelease(proPhoto);
    const KXRect bounds = {0, 0, 4, 4};
    KXImage* rgb8 = MakeImage(bounds, 8, 3, 0, KXDataSourceMemory);
    KXImage* rgb16 = MakeImage(bounds, 16, 3, 0, KXDataSourceMemory);
    KXImage* gray = MakeImage(bounds, 8, 1, 0, KXDataSourceMemory);
    const KXRect outside = {2, 2, 4, 4};
    EXPECT_NE(0, KXColorProfileConvertProfile(proPhoto, proPhoto, rgb8, rgb16, &bounds, 0));
    EXPECT_NE(0, KXColorProfileConvertProfile(proPhoto, proPhoto, gray, gray, &bounds, 0));
    EXPECT_NE(0, KXColorProfileConvertProfile(proPhoto, proPhoto, rgb8, rgb8, &outside, 0));
    EXPECT_NE(0, KXColorProfileConvertProfile(proPhoto, proPhoto, rgb8, rgb8, &bounds, 1));
    EXPECT_NE(0, KXColorProfileConvertProfile(proPhoto, nullptr, rgb8, rgb8, &bounds, 0));
    EXPECT_EQ(0, KXColorProfileConvertProfile(proPhoto, proPhoto, rgb8, rgb8, &bounds, 0));
    for (KXImage* image : {rgb8, rgb16, gray})
        KXImageRelease(image);
    KXColorProfileRelease(proPhoto);
}

struct LogRecord {
    std::vector<std::string> lines;
};

TEST(CoreLog, HandlersReceiveEventsAndText)
{
    LogRecord record;
    KXLogSetEventHandler(
        [](int32_t code, const char* file, int32_t line, void* user) {
            static_cast<LogRecord*>(user)->lines.push_back(std::to_string(code) + " " + file + ":" +
                                                           std::to_string(line));
        },
        &record);
    KXLogSetTextHandler([](const char* text, void* user) { static_cast<LogRecord*>(user)->lines.push_back(text); },
                        &record);
    KXLogEvent(-50, "KXEffectsBoxBlur", 42);
    KXLogUTF8("device report");
    KXLogSetEventHandler(nullptr, nullptr);
    KXLogSetTextHandler(nullptr, nullptr);
    KXLogEvent(-1, "dropped", 1);
    EXPECT_EQ((std::vector<std::string>{"-50 KXEffectsBoxBlur:42", "device report"}), record.lines);
}

TEST(CoreProgress, StagesReachTheCallbacksInOrder)
{
    std::vector<std::string> calls;
    const KXProgressCallbacks callbacks = {
        [](void* user, int32_t first, const char* label, int32_t last) {
            static_cast<std::vector<std::string>*>(user)->push_back("begin " + std::to_string(first) + " [" +
                                                                   label + "] " + std::to_string(last));
        },
        [](void* user, int32_t value) {
            static_cast<std::vector<std::string>*>(user)->push_back("update " + std::to_string(value));
        },
        [](void* user) { static_cast<std::vector<std::string>*>(user)->push_back("end"); }};
    KXProgress* progress = nullptr;
    ASSERT_EQ(0, KXProgressCreate(&callbacks, &calls, &progress));
    KXProgressDoProgressBeginStage(progress, 0, "", 1100);
    KXProgressDoProgressUpdateStage(progress, 550);
    KXProgressDoProgressEndStage(progress);
    KXProgressRelease(progress);
    EXPECT_EQ((std::vector<std::string>{"begin 0 [] 1100", "update 550", "end"}), calls);

    ASSERT_EQ(0, KXProgressCreate(nullptr, nullptr, &progress)); // no callbacks at all
    KXProgressDoProgressUpdateStage(progress, 3);
    KXProgressRelease(progress);
    KXProgressDoProgressUpdateStage(nullptr, 1);
}

// Counts the callbacks that an array makes, passing them on to the image callbacks.
std::atomic<int32_t> retainCalls{0};
std::atomic<int32_t> releaseCalls{0};

const void* CountingRetain(CFAllocatorRef allocator, const void* value)
{
    ++retainCalls;
    return KXUtilsGetArrayCallbacks()->retain(allocator, value);
}

void CountingRelease(CFAllocatorRef allocator, const void* value)
{
    ++releaseCalls;
    KXUtilsGetArrayCallbacks()->release(allocator, value);
}

TEST(CoreArray, ArraysHoldTheirImages)
{
    const KXRect bounds = {0, 0, 17, 3};
    CFMutableArrayRef array = CFArrayCreateMutable(kCFAllocatorDefault, 0, KXUtilsGetArrayCallbacks());
    KXImage* image = MakeImage(bounds, 8, 1, 0, KXDataSourceMemory);
    CFArrayAppendValue(array, image);
    KXImageRelease(image); // the array's reference keeps it
    ASSERT_EQ(1, CFArrayGetCount(array));
    EXPECT_EQ(17, KXImageGetWidth(static_cast<KXImage*>(const_cast<void*>(CFArrayGetValueAtIndex(array, 0)))));
    EXPECT_EQ(nullptr, CFArrayGetValueAtIndex(array, 1));
    EXPECT_EQ(array, CFRetain(array));
    CFRelease(array);
    CFRelease(array);

    const CFArrayCallBacks counting = {0, CountingRetain, CountingRelease, nullptr, nullptr};
    retainCalls = 0;
    releaseCalls = 0;
    array = CFArrayCreateMutable(kCFAllocatorDefault, 4, &counting);
    for (int32_t i = 0; i < 3; ++i) {
        image = MakeImage(bounds, 8, 1, 0, KXDataSourceMemory);
        CFArrayAppendValue(array, image);
        KXImageRelease(image);
    }
    CFArrayRemoveValueAtIndex(array, 1);
    EXPECT_EQ(2, CFArrayGetCount(array));
    EXPECT_EQ(3, retainCalls.load());
    EXPECT_EQ(1, releaseCalls.load());
    CFRelease(array);
    EXPECT_EQ(3, releaseCalls.load());

    int32_t plain = 7;
    CFMutableArrayRef unretained = CFArrayCreateMutable(kCFAllocatorDefault, 0, nullptr);
    CFArrayAppendValue(unretained, &plain);
    EXPECT_EQ(&plain, CFArrayGetValueAtIndex(unretained, 0));
    CFRelease(unretained);
}

TEST(CoreArray, ConstantStringsAreInterned)
{
    CFStringRef name = __CFStringMakeConstantString("EraserThreadMgr");
    EXPECT_EQ(name, __CFStringMakeConstantString(std::string("EraserThreadMgr").c_str()));
    EXPECT_NE(name, __CFStringMakeConstantString("norm"));
    EXPECT_STREQ("EraserThreadMgr", CFStringGetCStringPtr(name, 0));
    CFRelease(CFRetain(name)); // immortal
    EXPECT_STREQ("EraserThreadMgr", CFStringGetCStringPtr(name, 0));
}

TEST(CoreThreads, ConditionHandsOverUnderTheMutex)
{
    EXPECT_GE(KXProcessGetNumProcessors(), 1);
    KXMutex* mutex = KXMutexCreate();
    KXCondition* condition = KXConditionCreate();
    int32_t stage = 0;
    std::thread partner([&] {
        KXMutexLock(mutex);
        while (stage != 1)
            KXConditionWait(condition, mutex);
        stage = 2;
        KXConditionBroadcast(condition);
        KXMutexUnlock(mutex);
    });
    KXMutexLock(mutex);
    stage = 1;
    KXConditionSignal(condition);
    while (stage != 2)
        KXConditionWait(condition, mutex);
    KXMutexUnlock(mutex);
    partner.join();
    KXConditionRelease(condition);
    KXMutexRelease(mutex);
}

// A task that records its priority, thread and steps; blocks on a latch when given one.
struct Journal {
    std::mutex mutex;
    std::vector<std::string> steps;
    std::vector<std::thread::id> threads;
    std::atomic<int32_t> destroyed{0};

    void Add(const std::string& step)
    {
        const std::lock_guard lock(mutex);
        steps.push_back(step);
        threads.push_back(std::this_thread::get_id());
    }
};

class RecordingTask : public CBaseTask {
public:
    RecordingTask(Journal& journal, std::string name, int32_t priority, std::latch* gate = nullptr)
        : m_journal(journal), m_name(std::move(name)), m_priority(priority), m_gate(gate)
    {
    }
    ~RecordingTask() override { ++m_journal.destroyed; }
    void Run() override
    {
        if (m_gate)
            m_gate->wait();
        m_journal.Add(m_name);
    }
    void Finish() override { m_journal.Add(m_name + " finished"); }
    int32_t Compare(CBaseTask* other) override { return m_priority - static_cast<RecordingTask*>(other)->m_priority; }

private:
    Journal& m_journal;
    std::string m_name;
    int32_t m_priority;
    std::latch* m_gate;
};

void PushAndRelease(CBaseTaskQueue& queue, CBaseTask* task)
{
    EXPECT_EQ(0, queue.Push(task));
    task->Release();
}

TEST(CoreTaskQueue, OneWorkerTakesTasksInCompareOrder)
{
    Journal journal;
    std::latch gate(1);
    auto* queue = new CBaseTaskQueue;
    ASSERT_EQ(0, queue->Initialize("EraserThreadMgr", 1, 1));
    EXPECT_NE(0, queue->Initialize("again", 1, 1));
    PushAndRelease(*queue, new RecordingTask(journal, "blocker", 0, &gate));
    const std::pair<const char*, int32_t> batch[] = {{"e", 5}, {"a1", 1}, {"c", 3}, {"a2", 1}, {"b", 2}, {"a3", 1}};
    for (const auto& [name, priority] : batch)
        PushAndRelease(*queue, new RecordingTask(journal, name, priority));
    gate.count_down();
    queue->WaitUntilIdle();
    std::vector<std::string> runs;
    for (const std::string& step : journal.steps)
        if (step.find(" finished") == std::string::npos)
            runs.push_back(step);
    EXPECT_EQ((std::vector<std::string>{"blocker", "a1", "a2", "a3", "b", "c", "e"}), runs);
    EXPECT_EQ("blocker finished", journal.steps[1]);
    EXPECT_EQ(7, journal.destroyed.load());
    for (const std::thread::id thread : journal.threads)
        EXPECT_NE(std::this_thread::get_id(), thread);
    EXPECT_EQ(0, queue->Release());
}

class CountingQueue : public CBaseTaskQueue {
public:
    void PreprocessTask(CBaseTask*) override { ++before; }
    void PostprocessTask(CBaseTask*) override { ++after; }
    std::atomic<int32_t> before{0};
    std::atomic<int32_t> after{0};
};

TEST(CoreTaskQueue, DestructorRunsThePendingTasksAndJoins)
{
    Journal journal;
    {
        CBaseTaskQueue unstarted;
        auto* task = new RecordingTask(journal, "never", 0);
        EXPECT_NE(0, unstarted.Push(task)); // no workers yet
        task->Release();
    }
    auto* counting = new CountingQueue;
    ASSERT_EQ(0, counting->Initialize("counting", 3, 3));
    for (int32_t i = 0; i < 20; ++i)
        PushAndRelease(*counting, new RecordingTask(journal, "t", i % 4));
    counting->WaitUntilIdle();
    EXPECT_EQ(20, counting->before.load());
    EXPECT_EQ(20, counting->after.load());
    counting->Release();

    auto* queue = new CBaseTaskQueue;
    ASSERT_EQ(0, queue->Initialize("drain", 2, 2));
    for (int32_t i = 0; i < 30; ++i)
        PushAndRelease(*queue, new RecordingTask(journal, "d", 0));
    queue->Release(); // no WaitUntilIdle: the destructor drains
    EXPECT_EQ(51, journal.destroyed.load());
    EXPECT_EQ(100u, journal.steps.size());
}

} // namespace
