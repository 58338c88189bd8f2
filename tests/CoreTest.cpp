// The core library: images, rectangles and colour profiles.
#include "KXCore.h"
#include "TestImages.h"

#include <cmath>

namespace {

constexpr uint32_t kProPhoto = 0x70726f70; // "prop"
constexpr uint32_t kSRGB = 0x73726762;     // "srgb"

// A byte of a test pattern, distinct for neighbouring pixels, rows and bytes of a pixel.
uint8_t PatternByte(int32_t x, int32_t y, int32_t byte)
{
    return uint8_t(x * 7 + y * 31 + byte * 3 + 1);
}

void WritePattern(KXImage* image)
{
    const KXRect bounds = KXImageGetBounds(image);
    const int32_t colBytes = KXImageGetColBytes(image), pixels = bounds.width * bounds.height;
    std::vector<uint8_t> bytes(size_t(pixels * colBytes));
    for (int32_t i = 0; i < pixels * colBytes; ++i)
        bytes[size_t(i)] = PatternByte(i / colBytes % bounds.width, i / colBytes / bounds.width, i % colBytes);
    ASSERT_EQ(0, KXImageWrite2(image, &bounds, 0, -1, bytes.data(), -1, 0));
}

// Checks that buffer holds planes first..last of rect of a patterned image, rows rowBytes apart.
void ExpectPattern(KXImage* image, const KXRect& rect, int32_t first, int32_t last, const uint8_t* buffer,
                   size_t rowBytes)
{
    const KXRect bounds = KXImageGetBounds(image);
    const int32_t planeBytes = KXImageGetPlaneBytes(image), pixelBytes = (last - first + 1) * planeBytes;
    for (int32_t y = 0; y < rect.height; ++y)
        for (int32_t x = 0; x < rect.width * pixelBytes; ++x)
            ASSERT_EQ(PatternByte(rect.x - bounds.x + x / pixelBytes, rect.y - bounds.y + y,
                                  first * planeBytes + x % pixelBytes),
                      buffer[size_t(y) * rowBytes + size_t(x)])
                << "x " << x / pixelBytes << " y " << y;
}

TEST(CoreImage, ReadWriteRoundTripsAtEveryDepthAndDataSource)
{
    const KXRect bounds = {100, 50, 9, 5}, rect = {102, 51, 6, 3};
    ForEachImageKind([&](int32_t depth, bool lockable) {
        const TestImage image(bounds, depth, 4, 1, lockable);
        WritePattern(image);
        for (const auto& [first, last] : {std::pair{0, 3}, {1, 2}, {3, 3}}) {
            const int32_t tight = rect.width * (last - first + 1) * depth / 8;
            for (const int32_t rowBytes : {-1, 0, tight, tight + 13}) {
                std::vector<uint8_t> buffer(size_t(std::max(rowBytes, tight) * rect.height));
                ASSERT_EQ(0, KXImageRead2(image, &rect, first, last == 3 ? -1 : last, buffer.data(), rowBytes, 0));
                ExpectPattern(image, rect, first, last, buffer.data(), size_t(std::max(rowBytes, tight)));
            }
        }
        // Writing alpha alone, from a padded buffer, leaves the colour planes.
        const int32_t alphaRowBytes = rect.width * depth / 8 + 5;
        const std::vector<uint8_t> alpha(size_t(alphaRowBytes * rect.height), 0xAB);
        ASSERT_EQ(0, KXImageWrite2(image, &rect, 3, 3, alpha.data(), alphaRowBytes, 0));
        std::vector<uint8_t> colour(size_t(bounds.width * bounds.height * 3 * depth / 8));
        ASSERT_EQ(0, KXImageRead2(image, &bounds, 0, 2, colour.data(), 0, 0));
        ExpectPattern(image, bounds, 0, 2, colour.data(), size_t(bounds.width * 3 * depth / 8));
        std::vector<uint8_t> readAlpha(size_t(rect.width * rect.height * depth / 8));
        ASSERT_EQ(0, KXImageRead2(image, &rect, 3, -1, readAlpha.data(), -1, 0));
        EXPECT_EQ(std::vector<uint8_t>(readAlpha.size(), 0xAB), readAlpha);
    });
}

TEST(CoreImage, ReadWriteRejectBadArgumentsAndLeaveTheImage)
{
    const KXRect bounds = {10, 20, 4, 3};
    const TestImage image(bounds, 16, 3, 0);
    WritePattern(image);
    std::vector<uint8_t> buffer(1024, 0x5A);
    struct Case {
        KXRect rect;
        int32_t first, last, rowBytes, flags;
        void* buffer;
    };
    const Case cases[] = {
        {{9, 20, 2, 2}, 0, -1, 0, 0, buffer.data()},   {{12, 21, 3, 1}, 0, -1, 0, 0, buffer.data()},
        {{10, 20, -1, 2}, 0, -1, 0, 0, buffer.data()}, {{10, 20, 2, 2}, 0, -1, 0, 1, buffer.data()},
        {{10, 20, 2, 2}, -1, -1, 0, 0, buffer.data()}, {{10, 20, 2, 2}, 2, 1, 0, 0, buffer.data()},
        {{10, 20, 2, 2}, 0, -1, 11, 0, buffer.data()}, {{10, 20, 2, 2}, 0, -1, 0, 0, nullptr},
    };
    for (const Case& c : cases) {
        EXPECT_NE(0, KXImageRead2(image, &c.rect, c.first, c.last, c.buffer, c.rowBytes, c.flags));
        EXPECT_NE(0, KXImageWrite2(image, &c.rect, c.first, c.last, c.buffer, c.rowBytes, c.flags));
    }
    EXPECT_EQ(kKXCoreErrOutOfBounds, KXImageRead2(image, &cases[0].rect, 0, -1, buffer.data(), 0, 0));
    ASSERT_EQ(0, KXImageRead2(image, &bounds, 0, -1, buffer.data(), 0, 0));
    ExpectPattern(image, bounds, 0, 2, buffer.data(), size_t(bounds.width * KXImageGetColBytes(image)));
}

TEST(CoreImage, LockBufferAddressesTheBoundsTopLeftAndNests)
{
    const KXRect bounds = {100, 50, 7, 3};
    for (const int32_t depth : kDepths) {
        const TestImage image(bounds, depth, 3, 0);
        WritePattern(image);
        const int32_t rowBytes = KXImageGetRowBytes(image);
        EXPECT_EQ(3 * depth / 8, KXImageGetColBytes(image));
        auto* pixels = static_cast<const uint8_t*>(KXImageLockBuffer(image));
        ASSERT_NE(nullptr, pixels);
        EXPECT_EQ(pixels, KXImageLockBuffer(image));
        for (int32_t y = 0; y < bounds.height; ++y)
            ExpectPattern(image, KXRectMake(bounds.x, bounds.y + y, bounds.width, 1), 0, 2, pixels + y * rowBytes, 0);
        KXImageUnlockBuffer(image);
        KXImageUnlockBuffer(image);
        KXImageUnlockBuffer(image); // one too many: harmless
    }
    const TestImage unbuffered(bounds, 8, 1, 0, false);
    EXPECT_EQ(nullptr, KXImageLockBuffer(unbuffered));
    KXImageUnlockBuffer(unbuffered);
}

// Bad depths, plane counts, colour spaces, transparency and bounds are refused; a copy keeps the pixels,
// the type and the data source, and shares nothing.
TEST(CoreImage, CreateValidatesAndCopyIsComplete)
{
    const KXRect bounds = {5, 6, 3, 2}, negative = {0, 0, -1, 2};
    KXImage* image = nullptr;
    for (const auto& [rect, depth, planes, colorSpace, transparency] : {std::tuple{&bounds, 12, 3, 2, 0},
                                                                        {&bounds, 8, 0, 1, 0},
                                                                        {&bounds, 8, 9, 2, 0},
                                                                        {&bounds, 8, 1, 1, 1},
                                                                        {&bounds, 8, 4, 2, 2},
                                                                        {&bounds, 8, 3, 0, 0},
                                                                        {&negative, 8, 3, 2, 0},
                                                                        {nullptr, 8, 3, 2, 0}})
        EXPECT_NE(0, KXImageCreateWithParams2(rect, depth, planes, colorSpace, transparency, 1, &image));
    EXPECT_NE(0, KXImageCreateWithParams2(&bounds, 8, 3, 2, 0, 1, nullptr));
    for (const bool lockable : kLockable) {
        const TestImage original = RandomImage(32, lockable, 3, 2, bounds);
        const std::vector<float> samples = original.Samples();
        EXPECT_EQ(0, KXImageSetType(original, KXImageTypeInvertedMask));
        KXImage* copy = nullptr;
        ASSERT_EQ(0, KXImageCreateCopy(original, &copy));
        const TestImage owned = TestImage::Adopt(copy);
        ASSERT_EQ(0, KXImageFill(original, 0.0f));
        EXPECT_EQ(KXImageTypeInvertedMask, KXImageGetType(copy));
        EXPECT_EQ(lockable, owned.Lockable());
        EXPECT_EQ(owned.Samples(), samples);
    }
}

// The value is in the sample's scale: integers round and clamp.
TEST(CoreImage, FillConvertsTheValueToTheSampleType)
{
    for (const auto& [depth, value, expected] : {std::tuple{8, 127.5f, 128.0f},
                                                 {8, 300.0f, 255.0f},
                                                 {8, -3.0f, 0.0f},
                                                 {16, 65535.0f, 65535.0f},
                                                 {32, 1.5f, 1.5f},
                                                 {32, -0.25f, -0.25f}})
        for (const bool lockable : kLockable) {
            TestImage image(KXRectMake(-4, -4, 5, 3), depth, 4, 1, lockable);
            ASSERT_EQ(0, KXImageFill(image, value));
            EXPECT_EQ(image.Samples(), std::vector<float>(60, expected)) << depth << " bits, " << value;
        }
}

bool SameRect(const KXRect& a, const KXRect& b)
{
    return a.x == b.x && a.y == b.y && a.width == b.width && a.height == b.height;
}

TEST(CoreGeometry, RectanglesAndPoints)
{
    const KXRect a = KXRectMake(0, 0, 10, 10), b = KXRectMake(5, -3, 10, 6);
    const KXRect right = KXRectMake(10, 0, 4, 4), empty = KXRectMake(3, 3, 0, 5);
    EXPECT_TRUE(SameRect({5, 0, 5, 3}, KXRectIntersect(&a, &b)));
    EXPECT_EQ(0, KXRectIntersect(&a, &right).width); // touching edges only
    EXPECT_EQ(0, KXRectIntersect(&a, &empty).width);
    EXPECT_TRUE(SameRect({-2, -2, 14, 14}, KXRectOutset(&a, 2)));
    EXPECT_TRUE(SameRect({3, 3, 4, 4}, KXRectOutset(&a, -3)));
    EXPECT_TRUE(KXPointInRect(KXPointMake(9, 9), &a));
    EXPECT_FALSE(KXPointInRect(KXPointMake(10, 5), &a));
    EXPECT_FALSE(KXPointInRect(KXPointMake(-1, 5), &a));
    EXPECT_FALSE(KXPointInRect(KXPointMake(3, 3), &empty));
}

// Values in 0..1 read out of an image.
std::vector<float> Units(const TestImage& image)
{
    std::vector<float> units = image.Samples();
    for (float& sample : units)
        sample = UnitOf(sample, image.Depth());
    return units;
}

TEST(CoreColorProfile, RoundTripThroughSRGBKeepsColoursAndAlpha)
{
    KXColorProfile* proPhoto = KXColorProfileCreateStandard(kProPhoto);
    KXColorProfile* sRGB = KXColorProfileCreateStandard(kSRGB);
    ASSERT_TRUE(proPhoto && sRGB);
    const KXRect bounds = {30, 40, 2, 2};
    ForEachImageKind([&](int32_t depth, bool lockable) {
        const float tolerance = depth == 8 ? 2.5f / 255.0f : 2e-4f;
        TestImage image(bounds, depth, 4, 1, lockable);
        const TestImage other(bounds, depth, 4, 1);
        // Colours well inside both gamuts, in the ProPhoto working space; alpha last.
        std::vector<float> colours;
        for (float unit : {.45f, .35f, .3f, .25f, .5f, .5f, .5f, .6f, .3f, .32f, .4f, 1.f, .6f, .55f, .52f, 0.f})
            colours.push_back(StoredOf(unit, depth));
        image.SetSamples(colours);
        const std::vector<float> written = Units(image);
        ASSERT_EQ(0, KXColorProfileConvertProfile(proPhoto, sRGB, image, image, &bounds, 0));
        const std::vector<float> converted = Units(image);
        EXPECT_GT(std::fabs(converted[0] - written[0]), 0.01f); // the values did change
        ASSERT_EQ(0, KXColorProfileConvertProfile(sRGB, proPhoto, image, other, &bounds, 0));
        const std::vector<float> back = Units(other);
        for (size_t i = 0; i < written.size(); ++i) {
            EXPECT_NEAR(written[i], back[i], tolerance) << "sample " << i;
            EXPECT_TRUE(i % 4 != 3 || written[i] == converted[i]) << "alpha " << i;
        }
    });
    KXColorProfileRelease(sRGB);
    KXColorProfileRelease(proPhoto);
}

} // namespace
