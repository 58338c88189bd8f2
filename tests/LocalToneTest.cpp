// Shadows and highlights, the contrast mask, the shadow knee and the tone chain.
#include "TestImages.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

const KXRect kBounds = KXRectMake(-2, 1, 12, 9);

// A flat picture: the blurred luma equals the pixel's own luma up to the blur's rounding.
TestImage Flat(int32_t depth, bool lockable, float level, int32_t planes = 3)
{
    TestImage image(kBounds, depth, planes, 0, lockable);
    image.SetSamples(std::vector<float>(size_t(kBounds.width) * size_t(kBounds.height) * size_t(planes),
                                        StoredOf(level, depth)));
    return image;
}

TEST(LocalTone, NeighbourhoodsLiftShadowsAndHoldHighlights)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        const float tolerance = depth == 32 ? 1e-5f : 1.0f;
        for (float level : {0.15f, 0.8f}) {
            TestImage image = Flat(depth, lockable, level);
            const float c = UnitOf(StoredOf(level, depth), depth);
            ASSERT_EQ(KXEffectsShadowsAndHilites(image, image, &kBounds, 3.0f, 0.7f, 0.4f), kKXNoErr);
            const float light = std::pow(c, 3.0f) * 0.4f, dark = std::pow(1.0f - c, 3.0f) * 0.7f;
            const float want = (1.0f - std::pow(1.0f - c, 2.5f)) * dark + std::pow(c, 2.5f) * light + (1 - dark - light) * c;
            for (float sample : image.Samples())
                ASSERT_NEAR(sample, StoredOf(want, depth), tolerance);
            // A pixel inside the protected band is left alone; outside, the inverted overlay comes in full.
            TestImage masked = Flat(depth, lockable, level);
            ASSERT_EQ(KXEffectsApplyContrastMask(masked, masked, &kBounds, 3.0f, 1.0f, 0.3f, 0.2f, 1.0f, 0.9f, 0.2f),
                      kKXNoErr);
            const float overlay = c >= 0.5f ? (c * c + 1.0f - c) * 2.0f - 1.0f : c * 2.0f * (1.0f - c);
            for (float sample : masked.Samples())
                ASSERT_NEAR(sample, level < 0.3f ? StoredOf(overlay, depth) : StoredOf(c, depth), tolerance);
        }
        TestImage gray = Flat(depth, lockable, 0.5f, 1);
        EXPECT_EQ(KXEffectsShadowsAndHilites(gray, gray, &kBounds, 3.0f, 0.5f, 0.0f), kKXErrUnsupported);
        EXPECT_EQ(KXEffectsApplyContrastMask(gray, gray, &kBounds, 3.0f, 1, 0.3f, 0.2f, 1, 0.7f, 0.2f), kKXErrUnsupported);
    });
}

TEST(LocalTone, ShadowKneeMeetsTheLineAtTheThreshold)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        TestImage image(kBounds, depth, 4, 1, lockable);
        image.FillRandom(21);
        const std::vector<float> in = image.Samples();
        for (float strength : {0.8f, -0.5f}) {
            TestImage out(kBounds, depth, 4, 1, lockable);
            ASSERT_EQ(KXEffectsAdjustShadows(image, out, &kBounds, strength, 0.4f), kKXNoErr);
            const float k = strength < 0.0f ? 1.0f / (1.0f - strength) : strength + 1.0f;
            const std::vector<float> result = out.Samples();
            for (size_t i = 0; i < in.size(); ++i) {
                const float x = UnitOf(in[i], depth);
                const float want = i % 4 == 3 || x >= 0.4f
                                       ? x
                                       : ((x * ((k - 1.0f) / (0.4f * 0.4f)) + (1.0f - k) * 2.0f / 0.4f) * x + k) * x;
                ASSERT_EQ(result[i], i % 4 == 3 ? in[i] : StoredOf(want, depth)) << i;
            }
        }
    });
    const float t = 0.3f, k = 1.6f;
    EXPECT_NEAR(((t * ((k - 1.0f) / (t * t)) + (1.0f - k) * 2.0f / t) * t + k) * t, t, 1e-6f);
}

TEST(LocalTone, ToneChainRunsThePointsThenTheSliders)
{
    const float black[3] = {0.1f, 0.05f, 0.0f}, white[3] = {0.9f, 1.0f, 0.95f};
    const float neutralBlack[3] = {0.0f, 0.0f, 0.0f}, neutralWhite[3] = {1.0f, 1.0f, 1.0f};
    TestImage source(kBounds, 8, 3, 0);
    source.FillRandom(30);
    TestImage chained(kBounds, 8, 3, 0), direct(kBounds, 8, 3, 0);
    ASSERT_EQ(KXEffectsAdjustTone(source, chained, &kBounds, black, white, 0, 0, nullptr, nullptr), kKXNoErr);
    ASSERT_EQ(KXEffectsBlackAndWhitePointsApply(source, direct, &kBounds, black, white), kKXNoErr);
    const auto near = [](const std::vector<float>& a, const std::vector<float>& b) {
        for (size_t i = 0; i < a.size(); ++i)
            if (std::fabs(a[i] - b[i]) > 1.0f)
                return false;
        return true;
    };
    EXPECT_TRUE(near(chained.Samples(), direct.Samples()));
    ASSERT_EQ(KXEffectsAdjustTone(source, chained, &kBounds, neutralBlack, neutralWhite, 0.4f, 0, nullptr, nullptr), 0);
    ASSERT_EQ(KXEffectsBrightnessContrast(source, direct, &kBounds, 0.4f, 0.0f), kKXNoErr);
    EXPECT_TRUE(near(chained.Samples(), direct.Samples()));
    // The caller's curves run first: an inverting curve then nothing else is the inversion.
    std::vector<float> inverting(3 * 256);
    for (size_t i = 0; i < inverting.size(); ++i)
        inverting[i] = 1.0f - float(i % 256) / 255.0f;
    ASSERT_EQ(KXEffectsAdjustTone(source, chained, &kBounds, neutralBlack, neutralWhite, 0, 0, inverting.data(), nullptr), 0);
    ASSERT_EQ(KXEffectsInvert(source, direct, &kBounds), kKXNoErr);
    EXPECT_TRUE(near(chained.Samples(), direct.Samples()));
}

} // namespace
