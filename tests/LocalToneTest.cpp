// Shadows and highlights and the contrast mask on flat pictures worked by hand, the shadow knee, and the tone
// chain against the effects it chains.
#include "TestImages.h"

#include <cmath>

namespace {

const KXRect kBounds = KXRectMake(-2, 1, 12, 9);

// A flat picture: the blurred luma equals the pixel's own luma up to the blur's rounding.
TestImage Flat(int32_t depth, bool lockable, float level, int32_t planes = 3)
{
    TestImage image(kBounds, depth, planes, 0, lockable);
    KXImageFill(image, StoredOf(level, depth));
    return image;
}

TEST(LocalTone, NeighbourhoodsLiftShadowsAndHoldHighlights)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        const float tolerance = depth == 32 ? 1e-5f : 1.0f;
        for (float level : {0.15f, 0.8f}) {
            TestImage image = Flat(depth, lockable, level);
            const float c = UnitOf(StoredOf(level, depth), depth);
            ASSERT_EQ(KXEffectsShadowsAndHilites(image, image, &kBounds, 3.0f, 0.7f, 0.4f), kKXNoErr);
            const float light = std::pow(c, 3.0f) * 0.4f, dark = std::pow(1.0f - c, 3.0f) * 0.7f;
            const float want = (1 - std::pow(1 - c, 2.5f)) * dark + std::pow(c, 2.5f) * light + (1 - dark - light) * c;
            ExpectRegion(image, kBounds, tolerance, [&](int32_t, int32_t, int32_t) { return StoredOf(want, depth); });
            // A pixel inside the protected band is left alone; outside, the inverted overlay comes in full.
            TestImage masked = Flat(depth, lockable, level);
            ASSERT_EQ(KXEffectsApplyContrastMask(masked, masked, &kBounds, 3.0f, 1.0f, 0.3f, 0.2f, 1.0f, 0.9f, 0.2f),
                      kKXNoErr);
            const float overlay = c >= 0.5f ? (c * c + 1.0f - c) * 2.0f - 1.0f : c * 2.0f * (1.0f - c);
            ExpectRegion(masked, kBounds, tolerance,
                         [&](int32_t, int32_t, int32_t) { return StoredOf(level < 0.3f ? overlay : c, depth); });
        }
        TestImage gray = Flat(depth, lockable, 0.5f, 1);
        EXPECT_EQ(KXEffectsShadowsAndHilites(gray, gray, &kBounds, 3.0f, 0.5f, 0.0f), kKXErrUnsupported);
        EXPECT_EQ(KXEffectsApplyContrastMask(gray, gray, &kBounds, 3, 1, 0.3f, 0.2f, 1, 0.7f, 0.2f), kKXErrUnsupported);
    });
}

// Below the threshold 0.4 a cubic through 0 meets the line at the threshold: strength 0.8 (slope 1.8 at 0)
// takes 0.2 to 0.24, strength -0.5 (slope 1 / 1.5) to 0.18333; from the threshold up nothing moves.
TEST(LocalTone, ShadowKneeMeetsTheLineAtTheThreshold)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        TestImage image(KXRectMake(0, 0, 3, 1), depth, 4, 1, lockable);
        const std::vector<float> in = {StoredOf(0.2f, depth), StoredOf(0.4f, depth), StoredOf(0.7f, depth)};
        for (int32_t x = 0; x < 3; ++x)
            image.Set(x, 0, {in[size_t(x)], in[size_t(x)], in[size_t(x)], 7.0f});
        for (const auto& [strength, low] : {std::pair{0.8f, 0.24f}, std::pair{-0.5f, 0.18333333f}}) {
            const TestImage out(image.Bounds(), depth, 4, 1, lockable);
            const KXRect rect = image.Bounds();
            ASSERT_EQ(KXEffectsAdjustShadows(image, out, &rect, strength, 0.4f), kKXNoErr);
            const float tolerance = depth == 32 ? 1e-6f : 1.0f;
            EXPECT_NEAR(out.At(0, 0, 1), StoredOf(low, depth), tolerance) << strength;
            EXPECT_NEAR(out.At(1, 0, 0), in[1], tolerance);
            EXPECT_EQ(out.At(2, 0, 2), in[2]);
            EXPECT_EQ(out.At(2, 0, 3), 7.0f);
        }
    });
}

TEST(LocalTone, ToneChainRunsThePointsThenTheSliders)
{
    const float black[3] = {0.1f, 0.05f, 0.0f}, white[3] = {0.9f, 1.0f, 0.95f};
    const float neutralBlack[3] = {0.0f, 0.0f, 0.0f}, neutralWhite[3] = {1.0f, 1.0f, 1.0f};
    std::vector<float> inverting(3 * 256);
    for (size_t i = 0; i < inverting.size(); ++i)
        inverting[i] = 1.0f - float(i % 256) / 255.0f;
    const TestImage source = RandomImage(8, true, 30, 3, kBounds);
    const TestImage chained = source.Like(), direct = source.Like();
    ASSERT_EQ(KXEffectsAdjustTone(source, chained, &kBounds, black, white, 0, 0, nullptr, nullptr), kKXNoErr);
    ASSERT_EQ(KXEffectsBlackAndWhitePointsApply(source, direct, &kBounds, black, white), kKXNoErr);
    ExpectSameImage(chained, direct, 1.0f);
    ASSERT_EQ(KXEffectsAdjustTone(source, chained, &kBounds, neutralBlack, neutralWhite, 0.4f, 0, nullptr, nullptr), 0);
    ASSERT_EQ(KXEffectsBrightnessContrast(source, direct, &kBounds, 0.4f, 0.0f), kKXNoErr);
    ExpectSameImage(chained, direct, 1.0f);
    // The caller's curves run first: an inverting curve then nothing else is the inversion.
    ASSERT_EQ(KXEffectsAdjustTone(source, chained, &kBounds, neutralBlack, neutralWhite, 0, 0, inverting.data(), 0), 0);
    ASSERT_EQ(KXEffectsInvert(source, direct, &kBounds), kKXNoErr);
    ExpectSameImage(chained, direct, 1.0f);
}

} // namespace
