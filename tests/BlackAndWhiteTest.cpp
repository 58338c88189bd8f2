// Black and white: hue weights against OpenCV's HSV, the one-shot gray with its contrast, grain and toner,
// the colour response mixer and its automatic mixture, the colour filter, luma and mean.
#include "KXEffectsToneCurves.h"
#include "TestImages.h"

#include <opencv2/imgproc.hpp>

#include <array>
#include <cmath>

namespace {

const KXRect kBounds = KXRectMake(-3, 253, 9, 6); // crosses row 256 and column 0 of a grain tile

// The fully saturated colour of a hue by OpenCV: the weights of that hue.
std::array<float, 3> HueColour(float hue)
{
    cv::Mat hsv(1, 1, CV_32FC3, cv::Scalar((hue - std::floor(hue)) * 360.0f, 1.0f, 1.0f)), rgb;
    cv::cvtColor(hsv, rgb, cv::COLOR_HSV2RGB);
    const cv::Vec3f colour = rgb.at<cv::Vec3f>(0, 0);
    return {colour[0], colour[1], colour[2]};
}

// The filter's weights, read back from pure red, green and blue pixels.
std::array<float, 3> FilterWeights(float hue)
{
    const KXRect row = KXRectMake(0, 0, 3, 1);
    TestImage primaries(row, 32, 3, 0);
    const TestImage weights(row, 32, 3, 0);
    primaries.SetSamples({1, 0, 0, 0, 1, 0, 0, 0, 1});
    EXPECT_EQ(KXEffectsBlackAndWhiteWithColorFilter(primaries, weights, &row, hue), kKXNoErr);
    return {weights.At(0, 0, 0), weights.At(1, 0, 1), weights.At(2, 0, 2)};
}

ImageEffect Gray(float hue, float contrast, KXImage* tile = nullptr, float grain = 0.0f, const float* toner = nullptr,
                 float tonerAmount = 0.0f)
{
    return [=](auto s, auto d, auto r) {
        return KXEffectsBlackAndWhite(s, d, r, hue, contrast, tile, grain, toner, tonerAmount);
    };
}

TEST(BlackAndWhite, HueWeightsAreTheHueColourOfOpenCV)
{
    for (float hue : {0.0f, 0.1f, 1.0f / 6.0f, 0.3f, 0.5f, 0.61f, 0.8f, 0.97f, 1.0f, 1.4f}) {
        SCOPED_TRACE(hue);
        const std::array<float, 3> weights = FilterWeights(hue), expected = HueColour(hue);
        for (size_t c = 0; c < 3; ++c)
            EXPECT_NEAR(weights[c], expected[c], 2e-6f) << c;
    }
    // Below 0 the truncation does not wrap the hue: -0.25 lands past magenta, with blue at 1.5.
    EXPECT_EQ(FilterWeights(-0.25f), (std::array<float, 3>{1.0f, 0.0f, 1.5f}));
}

// The gray mixes the planes by the normalised hue weights, then bends by the midtone contrast; hue 0 is
// red, exactly.
TEST(BlackAndWhite, GrayMixesByHueThenTakesTheContrast)
{
    ExpectPixelEffect(Gray(0, 0), [](const float* in, float* out) { std::fill_n(out, 3, in[0]); });
    for (const auto& [hue, contrast] : {std::pair{1.0f / 6.0f, 0.7f}, std::pair{0.55f, -0.5f}}) {
        const std::array<float, 3> w = HueColour(hue);
        ExpectPixelEffect(
            Gray(hue, contrast),
            [&](const float* in, float* out) {
                const float v = (w[0] * in[0] + w[1] * in[1] + w[2] * in[2]) / (w[0] + w[1] + w[2]);
                std::fill_n(out, 3, MidtoneCurveValue(v, contrast));
            },
            1.0f, 2e-6f);
    }
}

// Grain overlays the first plane of a tile at the absolute position (x & 255, y & 255) on the gray, mixed
// by its amount; the toner comes last, as the toner effect on the untoned gray.
TEST(BlackAndWhite, GrainThenTonerFollowTheGray)
{
    for (int32_t tileDepth : kDepths) {
        SCOPED_TRACE(tileDepth);
        TestImage tile(KXRectMake(40, -7, 256, 256), tileDepth, 2, 1, tileDepth != 16);
        tile.FillRandom(7);
        const std::vector<float> grain = tile.Samples();
        ForEachImageKind([&](int32_t depth, bool lockable) {
            const TestImage source = RandomImage(depth, lockable, 19, 4, kBounds);
            const TestImage plain = source.Like(), grainy = source.Like();
            ASSERT_EQ(Gray(0.75f, 0.4f)(source, plain, &kBounds), kKXNoErr);
            ASSERT_EQ(Gray(0.75f, 0.4f, tile, 0.6f)(source, grainy, &kBounds), kKXNoErr);
            const Pixels gray(plain);
            ExpectRegion(grainy, kBounds, depth == 32 ? 2e-6f : 1.0f, [&](int32_t x, int32_t y, int32_t p) {
                const float v = UnitOf(gray.At(x, y, p), depth);
                const float t = UnitOf(grain[(size_t(y & 255) * 256 + size_t(x & 255)) * 2], tileDepth);
                const float overlay = v < 0.5f ? 2.0f * t * v : 1.0f - 2.0f * (1.0f - t) * (1.0f - v);
                return p == 3 ? gray.At(x, y, p) : StoredOf(overlay * 0.6f + v * 0.4f, depth);
            });
        });
    }
    const float sepia[3] = {0.44f, 0.26f, 0.08f};
    const TestImage source = RandomImage(32, true, 13, 4, kBounds);
    const TestImage toned = source.Like(), twoSteps = source.Like();
    ASSERT_EQ(Gray(0.2f, 0.3f, nullptr, 0, sepia, 0.8f)(source, toned, &kBounds), kKXNoErr);
    ASSERT_EQ(Gray(0.2f, 0.3f)(source, twoSteps, &kBounds), kKXNoErr);
    ASSERT_EQ(KXEffectsAddToner(twoSteps, twoSteps, &kBounds, sepia, 0.8f), kKXNoErr);
    ExpectSameImage(toned, twoSteps, 2e-6f);
}

TEST(BlackAndWhite, BadImagesAreRefused)
{
    const TestImage source = RandomImage(8, true, 23, 3, kBounds), gray(kBounds, 8, 1, 0);
    const TestImage small(KXRectMake(0, 0, 64, 64), 8, 1, 0); // a grain tile must be 256 x 256
    const float zeros[6] = {};
    float responses[6];
    EXPECT_EQ(Gray(0.4f, 0.0f, small, 0.5f)(source, source, &kBounds), kKXErrBadInput);
    EXPECT_EQ(Gray(0, 0)(gray, gray, &kBounds), kKXErrUnsupported);
    EXPECT_EQ(KXEffectsBlackAndWhiteColorResponse(gray, gray, &kBounds, nullptr, zeros), kKXErrUnsupported);
    EXPECT_EQ(KXEffectsBlackWhite(gray, gray, &kBounds, 0), kKXErrUnsupported);
    EXPECT_EQ(KXEffectsBlackAndWhiteColorResponseGetAutoMixture(gray, responses), kKXErrBadImageFormat);
    EXPECT_EQ(Gray(0, 0)(nullptr, nullptr, &kBounds), kKXErrBadParam);
    EXPECT_EQ(KXEffectsBlackAndWhiteColorResponseGetAutoMixture(nullptr, nullptr), kKXErrBadParam);
}

// The luma plus each hue component times its response, after an optional overlay filter, clamped.
TEST(BlackAndWhite, ColorResponseAddsTheChromaOfEachColour)
{
    const float zeros[6] = {}, halfGray[3] = {0.5f, 0.5f, 0.5f};
    const float responses[6] = {0.4f, -0.3f, 0.2f, -0.6f, 0.5f, 0.1f}, filter[3] = {0.8f, 0.3f, 0.55f};
    // A filter of 0.5 is the identity in both halves of the overlay.
    const std::pair<const float*, const float*> cases[] = {
        {halfGray, zeros}, {nullptr, responses}, {filter, responses}};
    for (const auto& [f, r] : cases)
        ExpectPixelEffect([&](auto s, auto d, auto c) { return KXEffectsBlackAndWhiteColorResponse(s, d, c, f, r); },
                          [&](const float* in, float* out) {
                              float rgb[3], parts[6];
                              for (int32_t c = 0; c < 3; ++c)
                                  rgb[c] = !f             ? in[c]
                                           : in[c] > 0.5f ? 1.0f - 2.0f * (1.0f - f[c]) * (1.0f - in[c])
                                                          : 2.0f * f[c] * in[c];
                              KXEffectsGetColorComponents(rgb, parts);
                              float gray = 0.299f * rgb[0] + 0.587f * rgb[1] + 0.114f * rgb[2];
                              for (int32_t i = 0; i < 6; ++i)
                                  gray += parts[i] * r[i];
                              std::fill_n(out, 3, std::clamp(gray, 0.0f, 1.0f));
                          },
                          1.0f, 2e-6f);
}

TEST(BlackAndWhite, ColorFilterLumaAndMeanFillEveryColourPlane)
{
    // Luma against OpenCV's gray.
    ExpectPixelEffect([](auto s, auto d, auto r) { return KXEffectsBlackWhite(s, d, r, 0); },
                      [](const float* in, float* out) {
                          cv::Mat rgb(1, 1, CV_32FC3, cv::Scalar(in[0], in[1], in[2])), gray;
                          cv::cvtColor(rgb, gray, cv::COLOR_RGB2GRAY);
                          std::fill_n(out, 3, gray.at<float>(0, 0));
                      },
                      1.0f, 1e-6f);
    ExpectPixelEffect([](auto s, auto d, auto r) { return KXEffectsBlackWhite(s, d, r, 1); },
                      [](const float* in, float* out) { std::fill_n(out, 3, (in[0] + in[1] + in[2]) / 3); }, 1, 1e-6f);
    // Nothing clamps: the unnormalised filter of a secondary hue adds two planes, and 8 bits wrap.
    ExpectPixelEffect([](auto s, auto d, auto r) { return KXEffectsBlackAndWhiteWithColorFilter(s, d, r, 0.5f); },
                      [](const float* in, float* out) { std::fill_n(out, 3, in[1] + in[2]); }, 1.0f, 1e-6f);
    // A gray image takes the first weight only.
    const KXRect row = KXRectMake(0, 0, 2, 1);
    TestImage gray(row, 8, 1, 0);
    gray.SetSamples({100, 200});
    ASSERT_EQ(KXEffectsColorFilter(gray, gray, &row, 1.5f, 9.0f, 9.0f), kKXNoErr);
    EXPECT_EQ(gray.Samples(), (std::vector<float>{150, 44})); // 300 wraps to 44
}

} // namespace
