// Black and white: hue weights against OpenCV's HSV, the one-shot gray through its optional stages, the
// colour response mixer and its automatic mixture, the colour filter, luma and mean.
#include "KXEffectsToneCurves.h"
#include "TestImages.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>

namespace {

const KXRect kBounds = KXRectMake(-3, 253, 9, 6); // crosses row 256 and column 0 of a grain tile
const KXRect kRect = KXRectMake(-4, 254, 10, 4);  // one column before the left edge
constexpr float kFill = 3.0f;

bool Inside(int32_t x, int32_t y)
{
    return x >= kRect.x && x < kRect.x + kRect.width && y >= kRect.y && y < kRect.y + kRect.height;
}

using Effect = std::function<int32_t(KXImage* source, KXImage* destination)>;
// The three stored colour samples of a pixel from its raw samples and image coordinates.
using Expectation = std::function<void(const float* raw, int32_t x, int32_t y, int32_t depth, float* stored)>;

// effect over kRect on RGBA images of every depth and kind: colour as expected inside, alpha copied, and
// nothing written outside.
void CheckEffect(const Effect& effect, const Expectation& expected, float integerTolerance, float floatTolerance)
{
    ForEachImageKind([&](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        TestImage source(kBounds, depth, 4, 1, lockable), destination(kBounds, depth, 4, 1, lockable);
        source.FillRandom(19);
        const std::vector<float> in = source.Samples();
        destination.SetSamples(std::vector<float>(in.size(), kFill));
        ASSERT_EQ(effect(source, destination), kKXNoErr);
        const std::vector<float> out = destination.Samples();
        for (size_t at = 0; at < in.size(); at += 4) {
            const int32_t x = kBounds.x + int32_t(at / 4) % kBounds.width,
                          y = kBounds.y + int32_t(at / 4) / kBounds.width;
            if (!Inside(x, y)) {
                ASSERT_TRUE(out[at] == kFill && out[at + 3] == kFill) << x << "," << y;
                continue;
            }
            float want[3];
            expected(&in[at], x, y, depth, want);
            for (size_t c = 0; c < 3; ++c)
                ASSERT_NEAR(out[at + c], want[c], depth == 32 ? floatTolerance : integerTolerance)
                    << x << "," << y << " plane " << c;
            ASSERT_EQ(out[at + 3], in[at + 3]);
        }
    });
}

// The fully saturated colour of a hue by OpenCV: the weights of that hue.
std::array<float, 3> HueColour(float hue)
{
    cv::Mat hsv(1, 1, CV_32FC3, cv::Scalar((hue - std::floor(hue)) * 360.0f, 1.0f, 1.0f)), rgb;
    cv::cvtColor(hsv, rgb, cv::COLOR_HSV2RGB);
    const cv::Vec3f colour = rgb.at<cv::Vec3f>(0, 0);
    return {colour[0], colour[1], colour[2]};
}

struct GraySteps {
    float hue, contrast;
    const TestImage* tile;
    float grainAmount;
};

// The one-shot gray step by step: mix by the normalised hue weights, contrast, grain overlay.
void CheckGray(const GraySteps& s)
{
    const std::vector<float> tile = s.tile ? s.tile->Samples() : std::vector<float>();
    const std::array<float, 3> w = HueColour(s.hue);
    CheckEffect(
        [&](KXImage* source, KXImage* destination) {
            return KXEffectsBlackAndWhite(source, destination, &kRect, s.hue, s.contrast,
                                          s.tile ? s.tile->get() : nullptr, s.grainAmount, nullptr, 0.0f);
        },
        [&](const float* raw, int32_t x, int32_t y, int32_t depth, float* stored) {
            float v = (w[0] * raw[0] + w[1] * raw[1] + w[2] * raw[2]) / (w[0] + w[1] + w[2]) / WhiteOf(depth);
            v = MidtoneCurveValue(v, s.contrast);
            if (s.tile) {
                const float t = UnitOf(tile[(size_t(y & 255) * 256 + size_t(x & 255)) * 2], s.tile->Depth());
                const float overlay = v < 0.5f ? 2.0f * t * v : 1.0f - 2.0f * (1.0f - t) * (1.0f - v);
                v = overlay * s.grainAmount + v * (1.0f - s.grainAmount);
            }
            std::fill_n(stored, 3, StoredOf(v, depth));
        },
        1.0f, 2e-6f);
}

// The filter's weights, read back from pure red, green and blue pixels.
std::array<float, 3> FilterWeights(float hue)
{
    const KXRect row = KXRectMake(0, 0, 3, 1);
    TestImage primaries(row, 32, 3, 0), weights(row, 32, 3, 0);
    primaries.SetSamples({1, 0, 0, 0, 1, 0, 0, 0, 1});
    EXPECT_EQ(KXEffectsBlackAndWhiteWithColorFilter(primaries, weights, &row, hue), kKXNoErr);
    return {weights.At(0, 0, 0), weights.At(1, 0, 1), weights.At(2, 0, 2)};
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
    // Hue 0 is red: the gray is the red plane, exactly.
    CheckEffect(
        [](KXImage* s, KXImage* d) { return KXEffectsBlackAndWhite(s, d, &kRect, 0, 0, nullptr, 0, nullptr, 0); },
        [](const float* raw, int32_t, int32_t, int32_t, float* stored) { std::fill_n(stored, 3, raw[0]); }, 0, 0);
}

TEST(BlackAndWhite, GrayTakesContrastGrainAndTonerInOrder)
{
    CheckGray({1.0f / 6.0f, 0.7f, nullptr, 0.0f});
    CheckGray({0.55f, -0.5f, nullptr, 0.0f});
    for (int32_t tileDepth : kDepths) {
        SCOPED_TRACE(tileDepth);
        // Two planes: only the first is grain.
        TestImage tile(KXRectMake(40, -7, 256, 256), tileDepth, 2, 1, tileDepth != 16);
        tile.FillRandom(7);
        CheckGray({0.3f, 0.0f, &tile, 0.6f});
        CheckGray({0.75f, 0.4f, &tile, 1.0f});
    }
    // The toner comes last: the same as the toner effect on the untoned gray.
    const float sepia[3] = {0.44f, 0.26f, 0.08f}, white[3] = {1, 1, 1};
    for (const float* toner : {sepia, white}) {
        TestImage source(kBounds, 32, 4, 1), toned(kBounds, 32, 4, 1), twoSteps(kBounds, 32, 4, 1);
        source.FillRandom(13);
        KXImageFill(toned, 0.0f);
        KXImageFill(twoSteps, 0.0f);
        ASSERT_EQ(KXEffectsBlackAndWhite(source, toned, &kRect, 0.2f, 0.3f, nullptr, 0, toner, 0.8f), kKXNoErr);
        ASSERT_EQ(KXEffectsBlackAndWhite(source, twoSteps, &kRect, 0.2f, 0.3f, nullptr, 0, nullptr, 0), kKXNoErr);
        ASSERT_EQ(KXEffectsAddToner(twoSteps, twoSteps, &kRect, toner, 0.8f), kKXNoErr);
        const std::vector<float> a = toned.Samples(), b = twoSteps.Samples();
        for (size_t i = 0; i < a.size(); ++i)
            ASSERT_NEAR(a[i], b[i], 2e-6f) << i;
    }
}

TEST(BlackAndWhite, SwitchedOffStagesCostNothingAndBadImagesAreRefused)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        TestImage source(kBounds, depth, 3, 0, lockable), plain(kBounds, depth, 3, 0), other(kBounds, depth, 3, 0);
        source.FillRandom(23);
        KXImageFill(plain, 0.0f);
        KXImageFill(other, 0.0f);
        TestImage tile(KXRectMake(0, 0, 256, 256), depth, 1, 0, lockable), small(KXRectMake(0, 0, 64, 64), depth, 1, 0);
        tile.FillRandom(2);
        const float toner[3] = {0.2f, 0.5f, 0.9f};
        ASSERT_EQ(KXEffectsBlackAndWhite(source, plain, &kRect, 0.4f, 0.3f, nullptr, 0, nullptr, 0), kKXNoErr);
        // A tile with amount 0 and a toner amount without a colour change nothing.
        ASSERT_EQ(KXEffectsBlackAndWhite(source, other, &kRect, 0.4f, 0.3f, tile, 0.0f, nullptr, 0.9f), kKXNoErr);
        EXPECT_EQ(other.Samples(), plain.Samples());
        ASSERT_EQ(KXEffectsBlackAndWhite(source, other, &kRect, 0.4f, 0.3f, nullptr, 0, toner, 0.0f), kKXNoErr);
        EXPECT_EQ(other.Samples(), plain.Samples());
        EXPECT_EQ(KXEffectsBlackAndWhite(source, other, &kRect, 0.4f, 0, small, 0.5f, nullptr, 0), kKXErrBadInput);
        TestImage gray(kBounds, depth, 1, 0, lockable);
        EXPECT_EQ(KXEffectsBlackAndWhite(gray, gray, &kRect, 0, 0, nullptr, 0, nullptr, 0), kKXErrUnsupported);
        const float zeros[6] = {};
        EXPECT_EQ(KXEffectsBlackAndWhiteColorResponse(gray, gray, &kRect, nullptr, zeros), kKXErrUnsupported);
        EXPECT_EQ(KXEffectsBlackWhite(gray, gray, &kRect, 0), kKXErrUnsupported);
        float responses[6];
        EXPECT_EQ(KXEffectsBlackAndWhiteColorResponseGetAutoMixture(gray, responses), kKXErrBadImageFormat);
    });
    EXPECT_EQ(KXEffectsBlackAndWhite(nullptr, nullptr, &kRect, 0, 0, nullptr, 0, nullptr, 0), kKXErrBadParam);
    EXPECT_EQ(KXEffectsBlackAndWhiteColorResponseGetAutoMixture(nullptr, nullptr), kKXErrBadParam);
}

// The decomposition read plainly: the gray min goes, the secondaries are the overlaps of the primaries
// left, the primaries what is left after their larger secondary.
void HueComponents(const float* rgb, float* colours)
{
    const float m = std::min({rgb[0], rgb[1], rgb[2]});
    const float r = rgb[0] - m, g = rgb[1] - m, b = rgb[2] - m;
    const float yellow = std::min(r, g), cyan = std::min(g, b), magenta = std::min(b, r);
    const float all[6] = {r - std::max(yellow, magenta), yellow, g - std::max(cyan, yellow), cyan,
                          b - std::max(magenta, cyan),   magenta};
    std::copy_n(all, 6, colours);
}

float ResponseGray(const float* rgb, const float* responses)
{
    float colours[6];
    HueComponents(rgb, colours);
    float out = 0.299f * rgb[0] + 0.587f * rgb[1] + 0.114f * rgb[2];
    for (int32_t i = 0; i < 6; ++i)
        out += colours[i] * responses[i];
    return out;
}

TEST(BlackAndWhite, ColorResponseAddsTheChromaOfEachColour)
{
    const float zeros[6] = {}, halfGray[3] = {0.5f, 0.5f, 0.5f};
    const float responses[6] = {0.4f, -0.3f, 0.2f, -0.6f, 0.5f, 0.1f}, filter[3] = {0.8f, 0.3f, 0.55f};
    // Zero responses give the luma, and a filter of 0.5 is the identity in both halves of the overlay.
    const std::pair<const float*, const float*> cases[] = {
        {nullptr, zeros}, {halfGray, zeros}, {nullptr, responses}, {filter, responses}};
    for (const auto& [f, r] : cases)
        CheckEffect([&](KXImage* s, KXImage* d) { return KXEffectsBlackAndWhiteColorResponse(s, d, &kRect, f, r); },
                    [&](const float* raw, int32_t, int32_t, int32_t depth, float* stored) {
                        const float white = WhiteOf(depth);
                        float rgb[3] = {raw[0], raw[1], raw[2]};
                        for (int32_t c = 0; f && c < 3; ++c)
                            rgb[c] = rgb[c] > (depth == 32 ? 0.5f : std::floor(white / 2.0f))
                                         ? white - 2.0f * (1.0f - f[c]) * (white - rgb[c])
                                         : 2.0f * f[c] * rgb[c];
                        const float gray = std::clamp(ResponseGray(rgb, r), 0.0f, white);
                        std::fill_n(stored, 3, StoredOf(gray, depth, true));
                    },
                    r == zeros ? 0.0f : 1.0f, 2e-6f);
}

const double kBaseLuma[6] = {0.299, 0.88600004, 0.587, 0.701, 0.11399996, 0.41299996};

// The automatic mixture read plainly, in doubles throughout.
std::array<double, 6> PlainMixture(const std::vector<float>& samples, int32_t planes)
{
    double sum[6] = {}, squares[6] = {}, lumaLessGray = 0.0, n = 0.0, spread = 0.0, fit = 0.0, deviation[6];
    for (size_t at = 0; at < samples.size(); at += size_t(planes), n += 1.0) {
        const float* rgb = &samples[at];
        float colours[6];
        HueComponents(rgb, colours);
        lumaLessGray += 0.299 * rgb[0] + 0.587 * rgb[1] + 0.114 * rgb[2] - std::min({rgb[0], rgb[1], rgb[2]});
        for (int32_t i = 0; i < 6; ++i) {
            sum[i] += colours[i];
            squares[i] += double(colours[i]) * colours[i];
        }
    }
    for (int32_t i = 0; i < 6; ++i) {
        deviation[i] = std::sqrt(std::max(squares[i] / n - (sum[i] / n) * (sum[i] / n), 0.0));
        spread += deviation[i];
    }
    std::array<double, 6> responses;
    for (size_t i = 0; i < 6; ++i) {
        responses[i] = spread > 0.0 ? deviation[i] * kBaseLuma[i] : kBaseLuma[i];
        fit += sum[i] / n * responses[i];
    }
    // The mixture keeps the mean of luma less gray, which is what the responses add to a gray of zero.
    for (size_t i = 0; i < 6; ++i)
        responses[i] = responses[i] * (fit > 0.0 ? lumaLessGray / n / fit : 0.0) - kBaseLuma[i];
    return responses;
}

TEST(BlackAndWhite, AutoMixtureWeighsColoursBySpreadAndKeepsMeanLuma)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        TestImage image(kBounds, depth, 4, 1, lockable);
        image.FillRandom(31);
        float responses[6];
        ASSERT_EQ(KXEffectsBlackAndWhiteColorResponseGetAutoMixture(image, responses), kKXNoErr);
        const std::array<double, 6> expected = PlainMixture(image.Samples(), 4);
        for (size_t i = 0; i < 6; ++i)
            EXPECT_NEAR(responses[i], expected[i], 1e-4) << i;
        // A gray image has no spread and nothing to fit: every response is minus its base luma.
        TestImage gray(kBounds, depth, 3, 0, lockable);
        gray.SetSamples(std::vector<float>(size_t(kBounds.width * kBounds.height * 3), WhiteOf(depth) / 3.0f));
        ASSERT_EQ(KXEffectsBlackAndWhiteColorResponseGetAutoMixture(gray, responses), kKXNoErr);
        for (size_t i = 0; i < 6; ++i)
            EXPECT_EQ(responses[i], -float(kBaseLuma[i])) << i;
    });
}

TEST(BlackAndWhite, ColorFilterLumaAndMeanFillEveryColourPlane)
{
    // Luma against OpenCV's gray on the raw samples; integer depths round to nearest.
    CheckEffect([](KXImage* s, KXImage* d) { return KXEffectsBlackWhite(s, d, &kRect, 0); },
                [](const float* raw, int32_t, int32_t, int32_t depth, float* stored) {
                    cv::Mat rgb(1, 1, CV_32FC3, cv::Scalar(raw[0], raw[1], raw[2])), gray;
                    cv::cvtColor(rgb, gray, cv::COLOR_RGB2GRAY);
                    std::fill_n(stored, 3, depth == 32 ? gray.at<float>(0, 0) : std::round(gray.at<float>(0, 0)));
                },
                1.0f, 1e-6f);
    CheckEffect([](KXImage* s, KXImage* d) { return KXEffectsBlackWhite(s, d, &kRect, 1); },
                [](const float* raw, int32_t, int32_t, int32_t depth, float* stored) {
                    std::fill_n(stored, 3, StoredOf((raw[0] + raw[1] + raw[2]) / 3.0f, depth, true));
                },
                0.0f, 1e-6f);
    // Other modes leave the destination as it was.
    CheckEffect(
        [](KXImage* s, KXImage* d) {
            KXEffectsCopyImage(s, d, &kRect);
            return KXEffectsBlackWhite(s, d, &kRect, 2);
        },
        [](const float* raw, int32_t, int32_t, int32_t, float* stored) { std::copy_n(raw, 3, stored); }, 0.0f, 0.0f);
    // Nothing clamps: the unnormalised filter of a secondary hue adds two planes, and 8-bit wraps.
    CheckEffect([](KXImage* s, KXImage* d) { return KXEffectsBlackAndWhiteWithColorFilter(s, d, &kRect, 0.5f); },
                [](const float* raw, int32_t, int32_t, int32_t depth, float* stored) {
                    std::fill_n(stored, 3, StoredOf(raw[1] + raw[2], depth, true));
                },
                0.0f, 0.0f);
    // A gray image takes the first weight only.
    const KXRect row = KXRectMake(0, 0, 2, 1);
    TestImage gray(row, 8, 1, 0);
    gray.SetSamples({100, 200});
    ASSERT_EQ(KXEffectsColorFilter(gray, gray, &row, 1.5f, 9.0f, 9.0f), kKXNoErr);
    EXPECT_EQ(gray.Samples(), (std::vector<float>{150, 44})); // 300 wraps to 44
}

} // namespace
