// Tone sliders: the curves worked by hand, each pixel effect against its curve table, the masks and haze.
#include "KXEffectsColorMath.h"
#include "TestImages.h"

#include <cmath>

namespace {

// Brightness b takes x to x / ((1 - s) x + s), s = 1 / (2b + 1) above 0 and 1 - 2b below; contrast c bends
// each half by 2c x^2 + (1 - c) x, or its inverse when negative. A positive contrast comes after the
// brightness, a negative one before it. Worked at x = 0.2 and 0.8.
TEST(ToneControls, CurvesTakeBrightnessAndContrastInTheirOrder)
{
    struct Case {
        float brightness, contrast, at02, at08;
    };
    for (const Case& c : {Case{0.5f, 0.4f, 0.2888889f, 0.9234568f}, Case{-0.3f, -0.6f, 0.1910876f, 0.6231527f}}) {
        std::vector<float> table(2 * 256);
        ASSERT_EQ(KXEffectsBrightnessContrastMakeCurves(2, table.data(), c.brightness, c.contrast), kKXNoErr);
        EXPECT_NEAR(table[51], c.at02, 1e-6f);
        EXPECT_NEAR(table[204], c.at08, 1e-6f);
        EXPECT_EQ(table[256 + 51], table[51]);
    }
    float exposure = 0.0f;
    ASSERT_EQ(KXEffectsBrightnessAltToExposure(-1.0f, &exposure), kKXNoErr);
    EXPECT_EQ(exposure, 0.5f);
    ASSERT_EQ(KXEffectsBrightnessAltToExposure(1.0f, &exposure), kKXNoErr);
    EXPECT_EQ(exposure, 3.0f);
}

void ExpectSameEffect(const TestImage& source, const ImageEffect& effect, const ImageEffect& reference)
{
    const KXRect bounds = source.Bounds();
    const TestImage a = source.Like(), b = source.Like();
    ASSERT_EQ(effect(source, a, &bounds), kKXNoErr);
    ASSERT_EQ(reference(source, b, &bounds), kKXNoErr);
    ExpectSameImage(a, b, source.Depth() == 32 ? 1e-6f : 1.0f);
}

// Each pixel effect gives what its own curve table gives through the curves effect.
TEST(ToneControls, PixelEffectsAgreeWithTheirTables)
{
    using Table = std::function<void(float* curves)>;
    const std::pair<ImageEffect, Table> pairs[] = {
        {[](auto s, auto d, auto r) { return KXEffectsBrightnessContrast(s, d, r, 0.35f, 0.5f); },
         [](float* t) { KXEffectsBrightnessContrastMakeCurves(3, t, 0.35f, 0.5f); }},
        {[](auto s, auto d, auto r) { return KXEffectsBrightnessContrast(s, d, r, -0.4f, -0.8f); },
         [](float* t) { KXEffectsBrightnessContrastMakeCurves(3, t, -0.4f, -0.8f); }},
        {[](auto s, auto d, auto r) { return KXEffectsBrightnessMidtoneContrast(s, d, r, 0.3f, -0.5f); },
         [](float* t) { KXEffectsBrightnessMidtoneContrastMakeCurves(3, t, 0.3f, -0.5f); }},
        {[](auto s, auto d, auto r) { return KXEffectsMidtoneContrast(s, d, r, 0.7f); },
         [](float* t) { KXEffectsMidtoneContrastMakeCurves(3, t, 0.7f); }},
        {[](auto s, auto d, auto r) { return KXEffectsBrightnessWithMask(s, d, r, -0.6f, nullptr); },
         [](float* t) { KXEffectsBrightnessAltMakeCurves(3, t, -0.6f); }},
        {[](auto s, auto d, auto r) { return KXEffectsMidtoneContrastAltWithMask(s, d, r, 1.6f, nullptr); },
         [](float* t) { KXEffectsMidtoneContrastAltMakeCurves(3, t, 1.6f); }},
        {[](auto s, auto d, auto r) { return KXEffectsMidtoneContrastAltWithMask(s, d, r, -1.4f, nullptr); },
         [](float* t) { KXEffectsMidtoneContrastAltMakeCurves(3, t, -1.4f); }},
    };
    const TestImage source = RandomImage(8, true, 41, 3);
    for (const auto& [effect, makeTable] : pairs) {
        std::vector<float> table(3 * 256);
        makeTable(table.data());
        ExpectSameEffect(source, effect,
                         [&](auto a, auto b, auto r) { return KXEffectsApplyCurves(a, b, r, &table[0]); });
    }
}

// A mask of white gives brightness and contrast in full and black none; the signed forms read 127 as no
// change, so a mask of 127 is the setting alone.
TEST(ToneControls, MasksScaleOrSignTheAdjustment)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        const TestImage source = RandomImage(depth, lockable, 42, 3);
        for (int32_t maskDepth : kDepths) {
            SCOPED_TRACE(maskDepth);
            TestImage white(source.Bounds(), maskDepth, 1, 0), black = white.Like(), middle = white.Like();
            KXImageFill(white, WhiteOf(maskDepth));
            KXImageFill(black, 0.0f);
            KXImageFill(middle, LevelAt(127, maskDepth));
            const auto contrast = [](KXImage* m) -> ImageEffect {
                return
                    [=](auto a, auto b, auto r) { return KXEffectsBrightnessContrastWithMask(a, b, m, r, .6f, -.5f); };
            };
            const auto brightness = [](KXImage* m) -> ImageEffect {
                return [=](auto s, auto d, auto r) { return KXEffectsBrightnessWithMask(s, d, r, 0.3f, m); };
            };
            const auto midtones = [](KXImage* m) -> ImageEffect {
                return [=](auto s, auto d, auto r) { return KXEffectsMidtoneContrastAltWithMask(s, d, r, 0.2f, m); };
            };
            ExpectSameEffect(source, contrast(white),
                             [](auto s, auto d, auto r) { return KXEffectsBrightnessContrast(s, d, r, 0.6f, -0.5f); });
            ExpectSameEffect(source, contrast(black), KXEffectsCopyImage);
            ExpectSameEffect(source, brightness(middle), brightness(nullptr));
            ExpectSameEffect(source, midtones(middle), midtones(nullptr));
        }
    });
    const KXRect bounds = KXRectMake(0, 0, 4, 4);
    const TestImage rgbMask(bounds, 8, 3, 0), image(bounds, 8, 3, 0);
    EXPECT_EQ(KXEffectsBrightnessContrastWithMask(image, image, rgbMask, &bounds, 0.1f, 0.1f), kKXErrUnsupported);
}

// Haze h maps x to x (1 - h) + h after brightness and saturation; a negative haze does nothing.
TEST(ToneControls, HazeLiftsBlackAndKeepsWhite)
{
    for (const auto& [brightness, haze, saturation] : {std::tuple{0.f, .2f, 0.f}, {0.f, -.5f, 0.f}, {.3f, .1f, -.4f}})
        ExpectPixelEffect(
            [&](auto s, auto d, auto r) {
                return KXEffectsBrightnessHazeSaturation(s, d, r, brightness, haze, saturation);
            },
            [&](const float* in, float* out) {
                std::copy_n(in, 3, out);
                if (brightness != 0.0f || saturation != 0.0f)
                    KXEffectsSaturateAndLighten(out, saturation, brightness);
                for (int c = 0; c < 3 && haze > 0.0f; ++c)
                    out[c] = out[c] * (1.0f - haze) + haze;
            },
            0.0f, 1e-7f);
    const TestImage gray(KXRectMake(0, 0, 4, 4), 8, 1, 0);
    const KXRect bounds = gray.Bounds();
    EXPECT_EQ(KXEffectsBrightnessHazeSaturation(gray, gray, &bounds, 0.3f, 0.1f, 0), kKXErrUnsupported);
}

} // namespace
