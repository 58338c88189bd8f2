// Surface blur: the bin weights worked by hand across an edge, the accumulator at its bound, the luminosity
// form and the luminosity image.
#include "TestImages.h"

namespace {

// Levels 51 and 204 fall in bins 1 and 6, 153 apart. Across the edge each window of radius 1 holds six of
// its own level and three of the other, which weighs 1 - 153 / (2.5 x 255 x threshold): 0.76 at threshold
// 1, so 51 becomes (6 x 51 + 0.76 x 3 x 204) / 8.28 and 204 its mirror; nothing below threshold 0.24.
TEST(SurfaceBlur, BinsWeighTheOtherSideOfAnEdgeByTheThreshold)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        TestImage image(KXRectMake(-2, 5, 4, 1), depth, 1, 0, lockable);
        const float dark = LevelAt(51, depth), light = LevelAt(204, depth);
        const std::vector<float> edge = {dark, dark, light, light};
        image.SetSamples(edge);
        const KXRect rect = image.Bounds();
        const TestImage result(rect, depth, 1, 0, lockable);
        ASSERT_EQ(KXEffectsSurfaceBlur(image, result, &rect, 1, 1.0f, 1.0f), kKXNoErr);
        const float levels[] = {51.0f, 93.130435f, 161.869565f, 204.0f};
        ExpectRegion(result, rect, depth == 32 ? 1e-5f : 1.0f,
                     [&](int32_t x, int32_t, int32_t) { return LevelAt(levels[x + 2], depth); });
        ASSERT_EQ(KXEffectsSurfaceBlur(image, result, &rect, 1, 0.2f, 1.0f), kKXNoErr);
        EXPECT_EQ(result.Samples(), edge);
    });
}

// At 16 bits: signed 32-bit sums to radius 90, unsigned to 127, 64-bit beyond. On a near-white image the
// widest bin fills up to the bound, so a narrower accumulator wraps and loses white.
TEST(SurfaceBlur, AccumulatorHoldsTheFullWindow)
{
    for (int32_t radius : {90, 91, 127, 128}) {
        TestImage source(KXRectMake(0, 0, 3, 2), 16, 1, 0);
        KXImageFill(source, 65535.0f);
        source.Set(1, 1, {40000.0f});
        const KXRect rect = source.Bounds();
        ASSERT_EQ(KXEffectsSurfaceBlur(source, source, &rect, radius, 1.0f, 1.0f), kKXNoErr);
        EXPECT_GT(source.At(0, 0, 0), 65000.0f) << "radius " << radius;
    }
}

// The luminosity form gives each pixel the surface-blurred 8-bit luma, so the luma of its result is that
// value up to the rounding of the stored samples; gray images are refused.
TEST(SurfaceBlurLuminosity, ResultTakesTheBlurredLuma)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        const TestImage source = RandomImage(depth, lockable, 62);
        const KXRect rect = KXRectMake(6, -3, 9, 7), grown = KXRectOutset(&rect, 3);
        KXImage* luma = nullptr;
        ASSERT_EQ(KXEffectsCreateLuminosityImage(source, &luma, &grown, 1), kKXNoErr);
        const TestImage blurred = TestImage::Adopt(luma);
        ASSERT_EQ(KXEffectsSurfaceBlur(blurred, blurred, &rect, 3, 0.25f, 1.0f), kKXNoErr);
        const TestImage result = source.Like();
        ASSERT_EQ(KXEffectsSurfaceBlurLuminosity(source, result, &rect, 3, 0.25f, 1.0f), kKXNoErr);
        const Pixels after(result);
        ExpectRegion(blurred, rect, depth == 8 ? 0.75f : 0.01f, [&](int32_t x, int32_t y, int32_t) {
            const float luma = 0.299f * after.At(x, y, 0) + 0.587f * after.At(x, y, 1) + 0.114f * after.At(x, y, 2);
            return luma / WhiteOf(depth) * 255;
        });
        const TestImage gray = RandomImage(depth, lockable, 64, 2);
        EXPECT_EQ(KXEffectsSurfaceBlurLuminosity(gray, gray, &rect, 2, 0.3f, 1.0f), kKXErrUnsupported);
    });
}

// Same depth: the raw weighted sum rounded; other sizes through 0..1; gray sources and odd sizes refused.
TEST(LuminosityImage, HoldsTheLumaOfTheRectangle)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        const TestImage source = RandomImage(depth, lockable, 66);
        const Pixels in(source);
        const KXRect rect = KXRectMake(15, 2, 3, 4);
        for (int32_t planeBytes : {0, 1, 4}) {
            KXImage* luma = nullptr;
            ASSERT_EQ(KXEffectsCreateLuminosityImage(source, &luma, &rect, planeBytes), kKXNoErr);
            const TestImage owned = TestImage::Adopt(luma);
            const int32_t lumaDepth = planeBytes == 0 ? depth : planeBytes * 8;
            ASSERT_TRUE(owned.Depth() == lumaDepth && owned.Planes() == 1);
            ExpectRegion(owned, rect, 0.0f, [&](int32_t x, int32_t y, int32_t) {
                const float raw = in.At(x, y, 0) * 0.299f + in.At(x, y, 1) * 0.587f + in.At(x, y, 2) * 0.114f;
                const float unit = raw * (1.0f / WhiteOf(depth));
                return lumaDepth == depth ? StoredOf(raw, depth, true)
                       : lumaDepth == 32  ? unit
                                          : std::trunc(std::min(unit, 1.0f) * 255.0f + 0.5f);
            });
        }
        KXImage* luma = nullptr;
        EXPECT_EQ(KXEffectsCreateLuminosityImage(source, &luma, &rect, 3), kKXErrUnsupported);
        EXPECT_EQ(KXEffectsCreateLuminosityImage(RandomImage(depth, lockable, 7, 1), &luma, &rect, 0),
                  kKXErrUnsupported);
        EXPECT_EQ(luma, nullptr);
    });
}

} // namespace
