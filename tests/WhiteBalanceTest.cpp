// White balance: the temperature model through the four kernels of every depth, vibrance, the toner, and
// the searches for temperature and tint.
#include "KXEffectsColorMath.h"
#include "KXEffectsWhiteBalance.h"
#include "TestImages.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

const KXRect kBounds = KXRectMake(-2, 3, 9, 5);
const KXRect kRect = KXRectMake(-1, 4, 9, 3); // one column past the right edge

struct Settings {
    float temperature, tint, saturation, vibrance;
};

bool Inside(const KXRect& rect, int32_t x, int32_t y)
{
    return x >= rect.x && x < rect.x + rect.width && y >= rect.y && y < rect.y + rect.height;
}

// Applies pixel(rgb) to the colour planes of the samples inside rect and stores them back by the depth's rule.
template <class PixelFn>
std::vector<float> Expected(const std::vector<float>& in, int32_t depth, const KXRect& rect, PixelFn&& pixel)
{
    std::vector<float> out = in;
    for (int32_t y = kBounds.y; y < kBounds.y + kBounds.height; ++y) {
        for (int32_t x = kBounds.x; x < kBounds.x + kBounds.width; ++x) {
            if (!Inside(rect, x, y))
                continue;
            const size_t at = (size_t(y - kBounds.y) * size_t(kBounds.width) + size_t(x - kBounds.x)) * 4;
            float rgb[3] = {UnitOf(in[at], depth), UnitOf(in[at + 1], depth), UnitOf(in[at + 2], depth)};
            pixel(rgb);
            for (size_t c = 0; c < 3; ++c)
                out[at + c] = StoredOf(rgb[c], depth);
        }
    }
    return out;
}

int32_t CallTemperatureExport(int32_t form, KXImage* source, KXImage* destination, const Settings& s)
{
    switch (form) {
    case 0:
        return KXEffectsTemperatureAndTint(source, destination, &kRect, s.temperature, s.tint);
    case 1:
        return KXEffectsTemperatureTintAndVibrance(source, destination, &kRect, s.temperature, s.tint, s.vibrance);
    case 2:
        return KXEffectsTemperatureTintAndSaturation(source, destination, &kRect, s.temperature, s.tint,
                                                     s.saturation);
    default:
        return KXEffectsTemperatureTintSaturationAndVibrance(source, destination, &kRect, s.temperature, s.tint,
                                                             s.saturation, s.vibrance);
    }
}

// What each export passes on: the settings it does not take are 0.
Settings Taken(int32_t form, Settings s)
{
    if (form == 0 || form == 2)
        s.vibrance = 0.0f;
    if (form == 0 || form == 1)
        s.saturation = 0.0f;
    return s;
}

TEST(WhiteBalance, TemperatureSaturationAndVibranceAtEveryDepthAndKernel)
{
    const Settings cases[] = {{0.7f, -0.4f, 0.0f, 0.0f}, {-1.0f, 0.3f, 0.5f, 0.0f}, {0.2f, 1.0f, 0.0f, -0.6f},
                              {-0.5f, -0.9f, -1.0f, 0.8f}, {0.0f, 0.0f, 0.4f, 0.0f}};
    ForEachImageKind([&](int32_t depth, bool lockable) {
        TestImage source(kBounds, depth, 4, 1, lockable);
        source.FillRandom(7);
        const std::vector<float> in = source.Samples();
        for (int32_t form = 0; form < 4; ++form) {
            for (const Settings& given : cases) {
                SCOPED_TRACE(CaseName(depth, lockable, ("form " + std::to_string(form)).c_str()));
                const Settings s = Taken(form, given);
                TestImage destination(kBounds, depth, 4, 1, lockable);
                destination.SetSamples(in);
                ASSERT_EQ(CallTemperatureExport(form, source, destination, s), kKXNoErr);
                const auto expected = Expected(in, depth, kRect, [&](float* rgb) {
                    TemperatureTintPixel(rgb, s.temperature, s.tint);
                    if (s.saturation != 0.0f)
                        KXEffectsSaturatePixel(rgb, s.saturation);
                    if (s.vibrance != 0.0f)
                        KXEffectsVibrancePixel(rgb, s.vibrance);
                });
                ASSERT_EQ(destination.Samples(), expected);
            }
        }
    });
}

TEST(WhiteBalance, TemperatureModelFixesTheEndsAndWarmsRed)
{
    // k of red at temperature 1: 1 - 2 (0.5 - 0.25 x 0.32352942) 0.5.
    const float redGain = 1.0f - 2.0f * (0.5f - 0.25f * 0.32352942f) * 0.5f;
    float mid[3] = {0.5f, 0.5f, 0.5f};
    TemperatureTintPixel(mid, 1.0f, 0.0f);
    EXPECT_FLOAT_EQ(mid[0], redGain);
    EXPECT_GT(mid[1], 0.5f);
    EXPECT_LT(mid[2] - 0.5f, mid[1] - 0.5f);
    for (float t : {-1.0f, 1.0f}) {
        for (float n : {-1.0f, 1.0f}) {
            float ends[3] = {0.0f, 1.0f, 0.0f};
            TemperatureTintPixel(ends, t, n);
            EXPECT_EQ(ends[0], 0.0f);
            EXPECT_EQ(ends[1], 1.0f);
        }
    }
    // Saturation -1 leaves every plane at the pixel's largest.
    float pixel[3] = {0.2f, 0.7f, 0.4f};
    KXEffectsSaturatePixel(pixel, -1.0f);
    EXPECT_EQ(pixel[0], 0.7f);
    EXPECT_EQ(pixel[2], 0.7f);
}

TEST(WhiteBalance, NeutralSettingsCopyAndOtherColourSpacesAreRefused)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        TestImage source(kBounds, depth, 4, 1, lockable);
        source.FillRandom(3);
        TestImage destination(kBounds, depth, 4, 1, lockable);
        destination.SetSamples(std::vector<float>(source.Samples().size(), 7.0f));
        ASSERT_EQ(KXEffectsTemperatureTintSaturationAndVibrance(source, destination, &kRect, 0, 0, 0, 0), kKXNoErr);
        ASSERT_EQ(KXEffectsVibrance(source, destination, &kRect, 0.0f), kKXNoErr);
        const std::vector<float> in = source.Samples(), out = destination.Samples();
        for (size_t i = 0; i < out.size(); ++i) {
            const bool inside = Inside(kRect, kBounds.x + int32_t(i / 4) % kBounds.width,
                                       kBounds.y + int32_t(i / 4) / kBounds.width);
            ASSERT_EQ(out[i], inside ? in[i] : 7.0f);
        }
        TestImage gray(kBounds, depth, 1, 0, lockable);
        const float toner[3] = {1.0f, 0.5f, 0.0f};
        EXPECT_EQ(KXEffectsTemperatureAndTint(gray, gray, &kRect, 0.0f, 0.0f), kKXErrUnsupported);
        EXPECT_EQ(KXEffectsVibrance(gray, gray, &kRect, 0.5f), kKXErrUnsupported);
        EXPECT_EQ(KXEffectsAddToner(gray, gray, &kRect, toner, 1.0f), kKXErrUnsupported);
    });
}

TEST(WhiteBalance, VibranceAloneLiftsDullColoursAndKeepsTheSum)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        TestImage image(kBounds, depth, 3, 0, lockable);
        image.FillRandom(11);
        const std::vector<float> in = image.Samples();
        ASSERT_EQ(KXEffectsVibrance(image, image, &kRect, 0.6f), kKXNoErr);
        const std::vector<float> out = image.Samples();
        for (size_t at = 0; at < out.size(); at += 3) {
            float rgb[3] = {UnitOf(in[at], depth), UnitOf(in[at + 1], depth), UnitOf(in[at + 2], depth)};
            if (Inside(kRect, kBounds.x + int32_t(at / 3) % kBounds.width, kBounds.y + int32_t(at / 3) / kBounds.width))
                KXEffectsVibrancePixel(rgb, 0.6f);
            for (size_t c = 0; c < 3; ++c)
                ASSERT_EQ(out[at + c], StoredOf(rgb[c], depth));
        }
    });
    float dull[3] = {0.5f, 0.45f, 0.4f};
    KXEffectsVibrancePixel(dull, 0.5f);
    EXPECT_NEAR(dull[0] + dull[1] + dull[2], 1.35f, 1e-6f);
    EXPECT_GT(dull[0] - dull[2], 0.1f);
}

// The toner keeps each pixel's luma in all three bands, black and white stay, and a gray toner at full
// amount leaves the luma alone in every plane.
TEST(WhiteBalance, TonerKeepsLumaAndGrayTonerGivesMonochrome)
{
    const float toners[][3] = {{0.9f, 0.6f, 0.2f}, {0.1f, 0.3f, 0.8f}, {0.4f, 0.4f, 0.4f}};
    ForEachImageKind([&](int32_t depth, bool lockable) {
        TestImage source(kBounds, depth, 4, 1, lockable);
        source.FillRandom(5);
        source.Set(kRect.x, kRect.y, {0, 0, 0, 0});
        source.Set(kRect.x + 1, kRect.y, {WhiteOf(depth), WhiteOf(depth), WhiteOf(depth), 0});
        const std::vector<float> in = source.Samples();
        for (const auto& toner : toners) {
            SCOPED_TRACE(CaseName(depth, lockable, std::to_string(toner[0]).c_str()));
            TestImage destination(kBounds, depth, 4, 1, lockable);
            ASSERT_EQ(KXEffectsAddToner(source, destination, &kRect, toner, 1.0f), kKXNoErr);
            const bool grayToner = toner[0] == toner[1];
            const float tolerance = depth == 32 ? 2e-6f : 1.0f / WhiteOf(depth);
            const std::vector<float> out = destination.Samples();
            for (size_t at = 0; at < out.size(); at += 4) {
                if (!Inside(kRect, kBounds.x + int32_t(at / 4) % kBounds.width,
                            kBounds.y + int32_t(at / 4) / kBounds.width))
                    continue;
                const float luma = Luma(UnitOf(in[at], depth), UnitOf(in[at + 1], depth), UnitOf(in[at + 2], depth));
                const float toned[3] = {UnitOf(out[at], depth), UnitOf(out[at + 1], depth), UnitOf(out[at + 2], depth)};
                ASSERT_NEAR(Luma(toned), luma, tolerance);
                ASSERT_TRUE(!grayToner || (out[at] == out[at + 1] && out[at + 1] == out[at + 2]));
                ASSERT_EQ(out[at + 3], in[at + 3]);
            }
            EXPECT_EQ(destination.At(kRect.x, kRect.y, 1), 0.0f);
            EXPECT_NEAR(destination.At(kRect.x + 1, kRect.y, 2), WhiteOf(depth), WhiteOf(depth) * 1e-6f);
        }
    });
}

float Spread(const float* rgb)
{
    return std::max({rgb[0], rgb[1], rgb[2]}) - std::min({rgb[0], rgb[1], rgb[2]});
}

TEST(WhiteBalanceSearch, GrayAndCurvesSearchesFindTheSettingsBack)
{
    float temperature = 9.0f, tint = 9.0f;
    const float neutral[3] = {0.4f, 0.4f, 0.4f};
    ASSERT_EQ(KXEffectsTemperatureAndTintForGray(neutral, &temperature, &tint), kKXNoErr);
    EXPECT_EQ(temperature, 0.0f);
    EXPECT_EQ(tint, 0.0f);

    // A gray warmed and tinted is taken back to neutral by settings of the other sign.
    float cast[3] = {0.45f, 0.45f, 0.45f};
    TemperatureTintPixel(cast, 0.6f, -0.3f);
    ASSERT_EQ(KXEffectsTemperatureAndTintForGray(cast, &temperature, &tint), kKXNoErr);
    EXPECT_LT(temperature, -0.3f);
    EXPECT_GT(tint, 0.0f);
    float corrected[3] = {cast[0], cast[1], cast[2]};
    TemperatureTintPixel(corrected, temperature, tint);
    EXPECT_LT(Spread(corrected), Spread(cast) * 0.1f);
    EXPECT_EQ(std::round(temperature * 100.0f), temperature * 100.0f);

    // Bounds narrow the scan; empty temperature bounds leave 0, 0.
    ASSERT_EQ(KXEffectsTemperatureAndTintForGrayWithRanges(cast, &temperature, &tint, -0.1f, 0.2f, 0.0f, 0.0f), 0);
    EXPECT_FLOAT_EQ(temperature, -0.1f);
    EXPECT_EQ(tint, 0.0f);
    ASSERT_EQ(KXEffectsTemperatureAndTintForGrayWithRanges(cast, &temperature, &tint, 0.5f, 0.2f, -1.0f, 1.0f), 0);
    EXPECT_EQ(temperature, 0.0f);

    // Curves made by the model itself are found back exactly.
    std::vector<float> curves(3 * 256);
    ASSERT_EQ(KXEffectsInitCurves(3, curves.data()), kKXNoErr);
    ASSERT_EQ(KXEffectsTemperatureAndTintForCurves(curves.data(), &temperature, &tint), kKXNoErr);
    EXPECT_EQ(temperature, 0.0f);
    EXPECT_EQ(tint, 0.0f);
    for (int32_t i = 0; i < 256; ++i) {
        float rgb[3] = {curves[size_t(i)], curves[size_t(i)], curves[size_t(i)]};
        TemperatureTintPixel(rgb, -0.35f, 0.62f);
        for (size_t c = 0; c < 3; ++c)
            curves[c * 256 + size_t(i)] = rgb[c];
    }
    ASSERT_EQ(KXEffectsTemperatureAndTintForCurves(curves.data(), &temperature, &tint), kKXNoErr);
    EXPECT_FLOAT_EQ(temperature, -0.35f);
    EXPECT_FLOAT_EQ(tint, 0.62f);
}

TEST(WhiteBalanceSearch, PresetsFollowTheirIlluminants)
{
    float temperature = 0.3f, tint = -0.2f;
    for (uint32_t keep : {1u, 8u}) {
        ASSERT_EQ(KXEffectsWhiteBalanceTemperatureAndTint(nullptr, keep, &temperature, &tint), kKXNoErr);
        EXPECT_EQ(temperature, 0.3f);
        EXPECT_EQ(tint, -0.2f);
    }
    EXPECT_EQ(KXEffectsWhiteBalanceTemperatureAndTint(nullptr, 9, &temperature, &tint), kKXErrBadParam);
    ASSERT_EQ(KXEffectsWhiteBalanceTemperatureAndTint(nullptr, 2, &temperature, &tint), kKXNoErr);
    EXPECT_EQ(temperature, 0.0f);
    EXPECT_EQ(tint, 0.0f);

    // Presets 3 and 4 are warmer than the reference, 5 and 6 cooler; a profile of the working space itself
    // finds about the same settings as none.
    KXColorProfile* working = KXColorProfileCreateStandard(0x70726f70); // "prop"
    ASSERT_NE(working, nullptr);
    for (uint32_t preset = 3; preset <= 7; ++preset) {
        SCOPED_TRACE(preset);
        ASSERT_EQ(KXEffectsWhiteBalanceTemperatureAndTint(nullptr, preset, &temperature, &tint), kKXNoErr);
        EXPECT_TRUE(preset > 4 || temperature > 0.0f);
        EXPECT_TRUE((preset != 5 && preset != 6) || temperature < 0.0f);
        float inWorkingSpace[2];
        ASSERT_EQ(KXEffectsWhiteBalanceTemperatureAndTint(working, preset, &inWorkingSpace[0], &inWorkingSpace[1]),
                  kKXNoErr);
        EXPECT_NEAR(inWorkingSpace[0], temperature, 0.021f);
        EXPECT_NEAR(inWorkingSpace[1], tint, 0.021f);
    }
    KXColorProfileRelease(working);
}

} // namespace
