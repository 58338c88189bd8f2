// White balance: the exports against the temperature model and the saturation helpers, the model's fixed
// points, the toner, and the searches for temperature and tint.
#include "KXEffectsColorMath.h"
#include "KXEffectsWhiteBalance.h"
#include "TestImages.h"

#include <cmath>
#include <tuple>

namespace {

// Temperature and tint, then saturation, then vibrance: each export leaves out the settings it does not
// take.
TEST(WhiteBalance, ExportsChainTheModelSaturationAndVibrance)
{
    const float t = -0.5f, n = 0.7f, s = -1.0f, v = 0.6f;
    const std::tuple<ImageEffect, float, float, float> exports[] = {
        {[&](auto a, auto b, auto r) { return KXEffectsTemperatureAndTint(a, b, r, t, n); }, t, 0, 0},
        {[&](auto a, auto b, auto r) { return KXEffectsTemperatureTintAndVibrance(a, b, r, t, n, -v); }, t, 0, -v},
        {[&](auto a, auto b, auto r) { return KXEffectsTemperatureTintAndSaturation(a, b, r, t, n, .5f); }, t, .5f, 0},
        {[&](auto a, auto b, auto r) { return KXEffectsTemperatureTintSaturationAndVibrance(a, b, r, t, n, s, v); }, t,
         s, v},
        {[&](auto a, auto b, auto r) { return KXEffectsVibrance(a, b, r, v); }, 0, 0, v},
    };
    for (const auto& [effect, temperature, saturation, vibrance] : exports)
        ExpectPixelEffect(effect, [&](const float* in, float* out) {
            std::copy_n(in, 3, out);
            TemperatureTintPixel(out, temperature, temperature == 0 ? 0 : n);
            if (saturation != 0.0f)
                KXEffectsSaturatePixel(out, saturation);
            if (vibrance != 0.0f)
                KXEffectsVibrancePixel(out, vibrance);
        });
}

TEST(WhiteBalance, ModelFixesTheEndsAndWarmsRed)
{
    // k of red at temperature 1: 1 - 2 (0.5 - 0.25 x 0.32352942) 0.5.
    float mid[3] = {0.5f, 0.5f, 0.5f};
    TemperatureTintPixel(mid, 1.0f, 0.0f);
    EXPECT_FLOAT_EQ(mid[0], 1.0f - 2.0f * (0.5f - 0.25f * 0.32352942f) * 0.5f);
    EXPECT_TRUE(mid[1] > 0.5f && mid[2] < mid[1]);
    for (const auto& [t, n] : {std::pair{-1.0f, -1.0f}, {-1.0f, 1.0f}, {1.0f, -1.0f}, {1.0f, 1.0f}}) {
        float ends[3] = {0.0f, 1.0f, 0.0f};
        TemperatureTintPixel(ends, t, n);
        EXPECT_TRUE(ends[0] == 0.0f && ends[1] == 1.0f) << t << " " << n;
    }
    const TestImage gray(KXRectMake(0, 0, 4, 4), 8, 1, 0);
    const KXRect bounds = gray.Bounds();
    const float toner[3] = {1.0f, 0.5f, 0.0f};
    EXPECT_EQ(KXEffectsTemperatureAndTint(gray, gray, &bounds, 0.0f, 0.0f), kKXErrUnsupported);
    EXPECT_EQ(KXEffectsVibrance(gray, gray, &bounds, 0.5f), kKXErrUnsupported);
    EXPECT_EQ(KXEffectsAddToner(gray, gray, &bounds, toner, 1.0f), kKXErrUnsupported);
}

// The toner keeps each pixel's luma, black and white stay, and a gray toner at full amount leaves the luma
// alone in every plane.
TEST(WhiteBalance, TonerKeepsLumaAndGrayTonerGivesMonochrome)
{
    const float toners[][3] = {{0.9f, 0.6f, 0.2f}, {0.4f, 0.4f, 0.4f}};
    ForEachImageKind([&](int32_t depth, bool lockable) {
        TestImage source = RandomImage(depth, lockable, 5);
        const KXRect bounds = source.Bounds();
        source.Set(bounds.x, bounds.y, {0, 0, 0, 0});
        source.Set(bounds.x + 1, bounds.y, {WhiteOf(depth), WhiteOf(depth), WhiteOf(depth), 0});
        const std::vector<float> in = source.Samples();
        for (const auto& toner : toners) {
            const TestImage destination = source.Like();
            ASSERT_EQ(KXEffectsAddToner(source, destination, &bounds, toner, 1.0f), kKXNoErr);
            const std::vector<float> out = destination.Samples();
            for (size_t at = 0; at < out.size(); at += 4) {
                const float toned[3] = {UnitOf(out[at], depth), UnitOf(out[at + 1], depth), UnitOf(out[at + 2], depth)};
                const float luma = Luma(UnitOf(in[at], depth), UnitOf(in[at + 1], depth), UnitOf(in[at + 2], depth));
                ASSERT_NEAR(Luma(toned), luma, depth == 32 ? 2e-6f : 1.0f / WhiteOf(depth));
                ASSERT_TRUE(toner[0] != toner[1] || (out[at] == out[at + 1] && out[at + 1] == out[at + 2]));
                ASSERT_EQ(out[at + 3], in[at + 3]);
            }
            EXPECT_TRUE(out[1] == 0.0f && std::fabs(out[6] - WhiteOf(depth)) <= WhiteOf(depth) * 1e-6f);
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
    // A gray warmed and tinted is taken back to neutral by settings of the other sign, in steps of 0.01.
    float cast[3] = {0.45f, 0.45f, 0.45f};
    TemperatureTintPixel(cast, 0.6f, -0.3f);
    ASSERT_EQ(KXEffectsTemperatureAndTintForGray(cast, &temperature, &tint), kKXNoErr);
    EXPECT_TRUE(temperature < -0.3f && tint > 0.0f);
    float corrected[3] = {cast[0], cast[1], cast[2]};
    TemperatureTintPixel(corrected, temperature, tint);
    EXPECT_LT(Spread(corrected), Spread(cast) * 0.1f);
    EXPECT_EQ(std::round(temperature * 100.0f), temperature * 100.0f);
    // Bounds narrow the scan: the best temperature at or above -0.1 is -0.1.
    ASSERT_EQ(KXEffectsTemperatureAndTintForGrayWithRanges(cast, &temperature, &tint, -0.1f, 0.2f, 0.0f, 0.0f), 0);
    EXPECT_TRUE(std::fabs(temperature + 0.1f) < 1e-6f && tint == 0.0f);
    // Curves made by the model itself are found back exactly.
    std::vector<float> curves(3 * 256);
    for (size_t i = 0; i < 256; ++i) {
        float rgb[3] = {float(i) / 255.0f, float(i) / 255.0f, float(i) / 255.0f};
        TemperatureTintPixel(rgb, -0.35f, 0.62f);
        std::tie(curves[i], curves[256 + i], curves[512 + i]) = std::tie(rgb[0], rgb[1], rgb[2]);
    }
    ASSERT_EQ(KXEffectsTemperatureAndTintForCurves(curves.data(), &temperature, &tint), kKXNoErr);
    EXPECT_FLOAT_EQ(temperature, -0.35f);
    EXPECT_FLOAT_EQ(tint, 0.62f);
}

} // namespace
