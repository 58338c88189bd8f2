// Tone sliders: the shapers and their order, each pixel effect against its curve table, the mask forms,
// exposure and haze.
#include "KXEffectsColorMath.h"
#include "KXEffectsToneCurves.h"
#include "TestImages.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

namespace {

const KXRect kBounds = KXRectMake(-3, 2, 9, 5);
const KXRect kRect = KXRectMake(-3, 3, 10, 3); // one column past the right edge

using Effect = std::function<int32_t(KXImage* source, KXImage* destination)>;

// Every sample of the colour planes inside kRect against shape(x) in 0..1, alpha kept, within tolerance
// of the sample's own scale; outside the rectangle the destination keeps its earlier samples.
void ExpectShaped(const Effect& effect, const std::function<float(float x, size_t pixel)>& shape,
                  float integerTolerance = 0.0f, float floatTolerance = 0.0f)
{
    ForEachImageKind([&](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        TestImage source(kBounds, depth, 4, 1, lockable);
        source.FillRandom(29);
        TestImage destination(kBounds, depth, 4, 1, lockable);
        const std::vector<float> in = source.Samples();
        destination.SetSamples(std::vector<float>(in.size(), 3.0f));
        ASSERT_EQ(effect(source, destination), kKXNoErr);
        const std::vector<float> out = destination.Samples();
        for (size_t i = 0; i < in.size(); ++i) {
            const size_t pixel = i / 4;
            const bool inside = int32_t(pixel) / kBounds.width + kBounds.y >= kRect.y &&
                                int32_t(pixel) / kBounds.width + kBounds.y < kRect.y + kRect.height;
            const float expected = !inside ? 3.0f : i % 4 == 3 ? in[i] : StoredOf(shape(UnitOf(in[i], depth), pixel), depth);
            ASSERT_NEAR(out[i], expected, depth == 32 ? floatTolerance : integerTolerance) << "sample " << i;
        }
    });
}

// The shapers written out plainly, as a second reading of the formulas.
float Brightness(float x, float b)
{
    const float s = b > 0.0f ? 1.0f / (b * 2.0f + 1.0f) : 1.0f - b * 2.0f;
    return x / ((1.0f - s) * x + s);
}

float LowerHalfContrast(float x, float c)
{
    if (c >= 0.0f)
        return 2.0f * c * x * x + (1.0f - c) * x;
    return (std::sqrt(-8.0f * c * x + (c + 1.0f) * (c + 1.0f)) - (c + 1.0f)) / (-4.0f * c);
}

float Contrast(float x, float c)
{
    return x < 0.5f ? LowerHalfContrast(x, c) : 1.0f - LowerHalfContrast(1.0f - x, c);
}

TEST(ToneControls, ShapersFixTheirPointsAndTakeTheClippingOneLast)
{
    for (float c : {-1.0f, -0.3f, 0.0f, 0.6f, 1.0f})
        EXPECT_NEAR(ContrastCurveValue(0.5f, c), 0.5f, 1e-7f);
    EXPECT_FLOAT_EQ(ContrastCurveValue(0.18f, -1.0f), std::sqrt(8.0f * 0.18f) / 4.0f);
    for (float b : {-1.0f, 0.4f}) {
        EXPECT_EQ(BrightnessCurveValue(0.0f, b), 0.0f);
        EXPECT_EQ(BrightnessCurveValue(1.0f, b), 1.0f);
    }
    const std::pair<float, float> settings[] = {{0.5f, 0.4f}, {-0.3f, -0.6f}, {0.2f, 0.0f}, {-0.7f, 0.9f}};
    for (const auto& [b, c] : settings) {
        std::vector<float> table(2 * 256);
        ASSERT_EQ(KXEffectsBrightnessContrastMakeCurves(2, table.data(), b, c), kKXNoErr);
        for (int32_t i = 0; i < 256; ++i) {
            const float x = float(i) / 255.0f;
            const float expected = c > 0.0f ? Contrast(Brightness(x, b), c) : Brightness(Contrast(x, c), b);
            ASSERT_FLOAT_EQ(table[size_t(i)], expected) << i;
            ASSERT_EQ(table[256 + size_t(i)], table[size_t(i)]);
        }
    }
    float exposure = 0.0f;
    ASSERT_EQ(KXEffectsBrightnessAltToExposure(-1.0f, &exposure), kKXNoErr);
    EXPECT_EQ(exposure, 0.5f);
    ASSERT_EQ(KXEffectsBrightnessAltToExposure(1.0f, &exposure), kKXNoErr);
    EXPECT_EQ(exposure, 3.0f);
}

// Each pixel effect gives what its own curve table gives through the curves effect.
TEST(ToneControls, PixelEffectsAgreeWithTheirTables)
{
    using Table = std::function<void(float* curves)>;
    const std::pair<Effect, Table> pairs[] = {
        {[](KXImage* s, KXImage* d) { return KXEffectsBrightnessContrast(s, d, &kRect, 0.35f, 0.5f); },
         [](float* t) { KXEffectsBrightnessContrastMakeCurves(3, t, 0.35f, 0.5f); }},
        {[](KXImage* s, KXImage* d) { return KXEffectsBrightnessContrast(s, d, &kRect, -0.4f, -0.8f); },
         [](float* t) { KXEffectsBrightnessContrastMakeCurves(3, t, -0.4f, -0.8f); }},
        {[](KXImage* s, KXImage* d) { return KXEffectsBrightnessMidtoneContrast(s, d, &kRect, 0.3f, -0.5f); },
         [](float* t) { KXEffectsBrightnessMidtoneContrastMakeCurves(3, t, 0.3f, -0.5f); }},
        {[](KXImage* s, KXImage* d) { return KXEffectsMidtoneContrast(s, d, &kRect, 0.7f); },
         [](float* t) { KXEffectsMidtoneContrastMakeCurves(3, t, 0.7f); }},
        {[](KXImage* s, KXImage* d) { return KXEffectsBrightnessWithMask(s, d, &kRect, -0.6f, nullptr); },
         [](float* t) { KXEffectsBrightnessAltMakeCurves(3, t, -0.6f); }},
        {[](KXImage* s, KXImage* d) { return KXEffectsMidtoneContrastAltWithMask(s, d, &kRect, 1.6f, nullptr); },
         [](float* t) { KXEffectsMidtoneContrastAltMakeCurves(3, t, 1.6f); }},
        {[](KXImage* s, KXImage* d) { return KXEffectsMidtoneContrastAltWithMask(s, d, &kRect, -1.4f, nullptr); },
         [](float* t) { KXEffectsMidtoneContrastAltMakeCurves(3, t, -1.4f); }},
    };
    for (size_t p = 0; p < std::size(pairs); ++p) {
        SCOPED_TRACE(p);
        TestImage source(kBounds, 8, 3, 0);
        source.FillRandom(41);
        TestImage pixel(kBounds, 8, 3, 0), tabled(kBounds, 8, 3, 0);
        pixel.SetSamples(source.Samples());
        tabled.SetSamples(source.Samples());
        std::vector<float> table(3 * 256);
        pairs[p].second(table.data());
        ASSERT_EQ(pairs[p].first(source, pixel), kKXNoErr);
        ASSERT_EQ(KXEffectsApplyCurves(source, tabled, &kRect, table.data()), kKXNoErr);
        const std::vector<float> a = pixel.Samples(), b = tabled.Samples();
        for (size_t i = 0; i < a.size(); ++i)
            ASSERT_NEAR(a[i], b[i], 1.0f) << i;
    }
}

TEST(ToneControls, MasksScaleTheSettingsOrSignTheAdjustment)
{
    const KXRect maskBounds = KXRectMake(-5, 0, 14, 9);
    for (int32_t maskDepth : kDepths) {
        SCOPED_TRACE(maskDepth);
        // A varying mask: the pixel at index p holds p / 60 of white.
        TestImage mask(maskBounds, maskDepth, 1, 0);
        std::vector<float> coverage(size_t(maskBounds.width) * size_t(maskBounds.height));
        for (size_t i = 0; i < coverage.size(); ++i)
            coverage[i] = StoredOf(float(i % 61) / 60.0f, maskDepth);
        mask.SetSamples(coverage);
        const auto m = [&](size_t pixel) {
            const size_t x = pixel % size_t(kBounds.width) + size_t(kBounds.x - maskBounds.x);
            const size_t y = pixel / size_t(kBounds.width) + size_t(kBounds.y - maskBounds.y);
            return UnitOf(coverage[y * size_t(maskBounds.width) + x], maskDepth);
        };
        ExpectShaped([&](KXImage* s, KXImage* d) { return KXEffectsBrightnessContrastWithMask(s, d, mask, &kRect, 0.6f, -0.5f); },
                     [&](float x, size_t p) { return Brightness(Contrast(x, -0.5f * m(p)), 0.6f * m(p)); }, 0.0f, 1e-6f);
        ExpectShaped([&](KXImage* s, KXImage* d) { return KXEffectsBrightnessWithMask(s, d, &kRect, 0.3f, mask); },
                     [&](float x, size_t p) {
                         const float t = m(p) * 2.007874f - 1.0f, v = Brightness(x, 0.3f);
                         return Clamp01(t <= 0.0f ? t * 0.5f + v : (t + 1.0f) * v);
                     }, 0.0f, 1e-6f);
        ExpectShaped([&](KXImage* s, KXImage* d) { return KXEffectsMidtoneContrastAltWithMask(s, d, &kRect, 0.2f, mask); },
                     [&](float x, size_t p) {
                         const float w = m(p) * 2.007874f - 1.0f + 0.2f;
                         const float shaped = MidtoneCurveValue(x, std::clamp(w, -1.0f, 1.0f) * 2.0f);
                         return w > 1.0f ? Contrast(shaped, w - 1.0f) : shaped;
                     }, 0.0f, 1e-6f);
    }
    // Without a mask, a zero setting of the signed forms copies.
    ExpectShaped([](KXImage* s, KXImage* d) { return KXEffectsBrightnessWithMask(s, d, &kRect, 0.0f, nullptr); },
                 [](float x, size_t) { return x; });
    TestImage rgbMask(kBounds, 8, 3, 0), image(kBounds, 8, 3, 0);
    EXPECT_EQ(KXEffectsBrightnessContrastWithMask(image, image, rgbMask, &kRect, 0.1f, 0.1f), kKXErrUnsupported);
}

TEST(ToneControls, ExposureKeepsHueAndWhite)
{
    ExpectShaped([](KXImage* s, KXImage* d) { return KXEffectsExposure(s, d, &kRect, 1.0f); },
                 [](float x, size_t) { return x; });
    const KXRect row = KXRectMake(0, 0, 4, 1);
    for (float exposure : {0.5f, 2.0f, 3.5f}) {
        SCOPED_TRACE(exposure);
        TestImage image(row, 32, 3, 0);
        image.SetSamples({1, 1, 1, 0.4f, 0.4f, 0.4f, 0.7f, 0.3f, 0.5f, 0.02f, 0.05f, 0.01f});
        ASSERT_EQ(KXEffectsExposure(image, image, &row, exposure), kKXNoErr);
        const std::vector<float> out = image.Samples();
        const float k = std::min(std::min(exposure * 0.25f + 0.875f, 1.0f), 0.25f / exposure + 0.875f);
        const float gray = std::min(0.4f * exposure / (0.4f * (exposure - 1.0f) * k + 1.0f), 1.0f);
        EXPECT_TRUE(exposure != 2.0f || out[0] == 1.0f);
        EXPECT_NEAR(out[3], gray, 1e-6f);
        EXPECT_TRUE(out[3] == out[4] && out[4] == out[5]);
        float before[3], after[3];
        const float colour[3] = {0.7f, 0.3f, 0.5f};
        KXEffectsRGBToHSV(colour, before);
        KXEffectsRGBToHSV(out.data() + 6, after);
        // Unclipped, one line through all three planes keeps the hue.
        EXPECT_TRUE(after[2] >= 1.0f || std::fabs(after[0] - before[0]) < 1e-5f) << after[0] << " " << before[0];
        EXPECT_GE(out[9], 0.0f);
    }
}

TEST(ToneControls, HazeLiftsBlackAndKeepsWhite)
{
    ExpectShaped([](KXImage* s, KXImage* d) { return KXEffectsBrightnessHazeSaturation(s, d, &kRect, 0, 0.2f, 0); },
                 [](float x, size_t) { return x * 0.8f + 0.2f; }, 0.0f, 1e-7f);
    ExpectShaped([](KXImage* s, KXImage* d) { return KXEffectsBrightnessHazeSaturation(s, d, &kRect, 0, -0.5f, 0); },
                 [](float x, size_t) { return x; });
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        TestImage image(kBounds, depth, 3, 0, lockable);
        image.FillRandom(3);
        const std::vector<float> in = image.Samples();
        ASSERT_EQ(KXEffectsBrightnessHazeSaturation(image, image, &kBounds, 0.3f, 0.1f, -0.4f), kKXNoErr);
        const std::vector<float> out = image.Samples();
        for (size_t at = 0; at < in.size(); at += 3) {
            float rgb[3] = {UnitOf(in[at], depth), UnitOf(in[at + 1], depth), UnitOf(in[at + 2], depth)};
            KXEffectsSaturateAndLighten(rgb, -0.4f, 0.3f);
            for (size_t c = 0; c < 3; ++c)
                ASSERT_EQ(out[at + c], StoredOf(rgb[c] * 0.9f + 0.1f, depth));
        }
        TestImage gray(kBounds, depth, 1, 0, lockable);
        EXPECT_EQ(KXEffectsBrightnessHazeSaturation(gray, gray, &kBounds, 0.3f, 0.1f, 0), kKXErrUnsupported);
    });
}

} // namespace
