// Colour models against OpenCV and at their edges, the saturation helpers, hue components, image
// conversions with their alpha rules.
#include "KXEffectsColorMath.h"
#include "TestImages.h"

#include <opencv2/imgproc.hpp>

#include <array>
#include <cmath>

namespace {

using Rgb = std::array<float, 3>;
using Operation = void (*)(const float*, float*);

void ExpectNear(const float* actual, const Rgb& expected, float tolerance, const std::string& what)
{
    for (size_t c = 0; c < 3; ++c)
        EXPECT_NEAR(actual[c], expected[c], tolerance) << what << " plane " << c;
}

std::vector<Rgb> RandomColours(uint32_t seed, int32_t count)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    std::vector<Rgb> colours(size_t(count), Rgb{});
    for (Rgb& colour : colours)
        colour = {unit(generator), unit(generator), unit(generator)};
    return colours;
}

cv::Mat Converted(const std::vector<Rgb>& colours, int32_t code)
{
    cv::Mat out;
    cv::cvtColor(cv::Mat(1, int32_t(colours.size()), CV_32FC3, const_cast<Rgb*>(colours.data())), out, code);
    return out;
}

// A colour model and its OpenCV peer: the plane of OpenCV's order for each of ours, hue in degrees there.
// OpenCV rounds the YCbCr weights to three places (0.713, 0.564; 1.403, 0.714, 0.344, 1.773).
struct ModelCase {
    const char* name;
    Operation to, from;
    int32_t toCode, fromCode;
    std::array<size_t, 3> peerPlane;
    float hueScale, tolerance, fromTolerance;
} const kModels[] = {
    {"HSV", KXEffectsRGBToHSV, KXEffectsHSVToRGB, cv::COLOR_RGB2HSV, cv::COLOR_HSV2RGB, {0, 1, 2}, 360, 1e-5f, 2e-5f},
    {"HSL", KXEffectsRGBToHSL, KXEffectsHSLToRGB, cv::COLOR_RGB2HLS, cv::COLOR_HLS2RGB, {0, 2, 1}, 360, 1e-5f, 2e-5f},
    {"YCC", KXEffectsRGBToYCC, KXEffectsYCCToRGB, cv::COLOR_RGB2YCrCb, cv::COLOR_YCrCb2RGB, {0, 2, 1}, 1, 5e-4f, 1e-3f},
};

TEST(ColorModels, AgreeWithOpenCVBothWaysAndRoundTrip)
{
    const std::vector<Rgb> colours = RandomColours(11, 2000);
    for (const ModelCase& model : kModels) {
        SCOPED_TRACE(model.name);
        // The random colours read as model values, in OpenCV's order and units.
        std::vector<Rgb> peerModels(colours.size(), Rgb{});
        for (size_t n = 0; n < colours.size(); ++n)
            for (size_t c = 0; c < 3; ++c)
                peerModels[n][model.peerPlane[c]] = colours[n][c] * (c == 0 ? model.hueScale : 1.0f);
        const cv::Mat peerTo = Converted(colours, model.toCode), peerFrom = Converted(peerModels, model.fromCode);
        for (size_t n = 0; n < colours.size(); ++n) {
            float ours[3], back[3];
            model.to(colours[n].data(), ours);
            const cv::Vec3f peer = peerTo.at<cv::Vec3f>(int32_t(n)), rgb = peerFrom.at<cv::Vec3f>(int32_t(n));
            const float hueGap = std::fabs(ours[0] * model.hueScale - peer[0]);
            EXPECT_LT(std::fmin(hueGap, 360.0f - hueGap), model.hueScale == 1 ? model.tolerance : 2e-3f);
            EXPECT_NEAR(ours[1], peer[model.peerPlane[1]], model.tolerance);
            EXPECT_NEAR(ours[2], peer[model.peerPlane[2]], model.tolerance);
            model.from(ours, back);
            ExpectNear(back, colours[n], 2e-6f, "round trip");
            model.from(colours[n].data(), ours);
            ExpectNear(ours, {rgb[0], rgb[1], rgb[2]}, model.fromTolerance, "from the model");
        }
    }
}

TEST(ColorModels, TiesSectorsAndEdges)
{
    float out[3];
    // Every sector edge, H = k / 6 for k = -3 .. 6: truncation and the arithmetic shift pick the plane.
    const Rgb hues[] = {{0, 1, 1}, {0, 0, 1}, {1, 0, 1}, {1, 0, 0}, {1, 1, 0},
                        {0, 1, 0}, {0, 1, 1}, {0, 0, 1}, {1, 0, 1}, {1, 0, 0}};
    for (int32_t k = -3; k <= 6; ++k) {
        const float hsv[3] = {float(k) / 6.0f, 1.0f, 1.0f}, hsl[3] = {float(k) / 6.0f, 1.0f, 0.5f};
        KXEffectsHSVToRGB(hsv, out);
        ExpectNear(out, hues[k + 3], 1e-6f, "HSV sector " + std::to_string(k));
        KXEffectsHSLToRGB(hsl, out);
        ExpectNear(out, hues[k + 3], 1e-6f, "HSL sector " + std::to_string(k));
    }
}

TEST(LumaChromaHue, RoundTripsKeepsLumaAndGivesWayAtWhite)
{
    for (const Rgb& colour : RandomColours(13, 500)) {
        float lch[3], back[3];
        KXEffectsRGBToLumaChromaHue(colour.data(), lch);
        EXPECT_FLOAT_EQ(lch[0], 0.299f * colour[0] + 0.587f * colour[1] + 0.114f * colour[2]);
        KXEffectsLumaChromaHueToRGB(lch, back);
        ExpectNear(back, colour, 2e-6f, "round trip");
    }
    // Red at luma 0.9 would pass 1: its chroma gives way.
    const float redAtNine[3] = {0.9f, 1, 0}, give = 0.1f / 0.701f;
    float out[3];
    KXEffectsLumaChromaHueToRGB(redAtNine, out);
    ExpectNear(out, {1, 1 - give, 1 - give}, 1e-6f, "given way");
}

TEST(SaturationHelpers, KnownPixelsAndTheirBounds)
{
    using Helper = std::function<void(float*)>;
    const Rgb pink = {0.5f, 0.25f, 0.25f}, teal = {0.2f, 0.5f, 0.6f};
    // Saturation is bounded at 0 and -1 takes every plane to the top; vibrance keeps the sum and its gain
    // stops at 1; about-mid spreads by the low end; e = 1/2 takes the top to mx / ((1 - e) mx + e) = 2/3,
    // and the gain is at most 1 / mx.
    const std::tuple<Rgb, Helper, Rgb> cases[] = {
        {pink, [](float* p) { KXEffectsSaturatePixel(p, 10); }, {0.5f, 0, 0}},
        {pink, [](float* p) { KXEffectsSaturatePixel(p, -1); }, {0.5f, 0.5f, 0.5f}},
        {pink, [](float* p) { KXEffectsVibrancePixel(p, 1); }, {2.0f / 3, 1.0f / 6, 1.0f / 6}},
        {{1, 0.5f, 0.5f}, [](float* p) { KXEffectsVibrancePixel(p, 1); }, {1, 0.25f, 0.25f}},
        {teal, [](float* p) { KXEffectsSaturateAboutMid(p, 1); }, {0, 0.6f, 0.8f}},
        {teal, [](float* p) { KXEffectsSaturateAboutMid(p, -0.5f); }, {0.3f, 0.45f, 0.5f}},
        {pink, [](float* p) { KXEffectsSaturateAndLighten(p, 1, 0.5f); }, {2.0f / 3, 0, 0}},
        {{1.5f, 1.5f, 1.5f}, [](float* p) { KXEffectsSaturateAndLighten(p, 0, 10); }, {1, 1, 1}},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        auto [pixel, helper, expected] = cases[i];
        helper(pixel.data());
        ExpectNear(pixel.data(), expected, 1e-6f, "case " + std::to_string(i));
    }
}

// The gray plus at most two of the primaries and secondaries adds up to the colour.
TEST(ColorComponents, SplitAddsUpWithAtMostTwoColours)
{
    const Rgb planes[6] = {{1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 1, 1}, {0, 0, 1}, {1, 0, 1}};
    float components[6];
    for (const Rgb& colour : RandomColours(14, 500)) {
        ASSERT_EQ(KXEffectsGetColorComponents(colour.data(), components), kKXNoErr);
        const float gray = std::fmin(colour[0], std::fmin(colour[1], colour[2]));
        Rgb sum = {gray, gray, gray};
        for (size_t c = 0; c < 18; ++c)
            sum[c % 3] += components[c / 3] * planes[c / 3][c % 3];
        EXPECT_GE(std::count(components, components + 6, 0.0f), 4); // at most two live
        ExpectNear(sum.data(), colour, 1e-6f, "sum");
    }
    EXPECT_EQ(KXEffectsGetColorComponents(nullptr, components), kKXErrBadParam);
}

TEST(ConvertColorMode, ConversionsZeroToFiveInPlaceAndLimited)
{
    const Operation operations[] = {KXEffectsRGBToHSV, KXEffectsHSVToRGB, KXEffectsRGBToHSL,
                                    KXEffectsHSLToRGB, KXEffectsRGBToYCC, KXEffectsYCCToRGB};
    for (int32_t conversion = 0; conversion < 6; ++conversion) {
        Rgb colour = {0.7f, 0.2f, 0.4f};
        float expected[3];
        operations[conversion](colour.data(), expected);
        ASSERT_EQ(KXEffectsConvertColorMode(colour.data(), colour.data(), conversion), kKXNoErr);
        ExpectNear(colour.data(), {expected[0], expected[1], expected[2]}, 0, std::to_string(conversion));
    }
    // YCbCr (1, 1, 1): R 1.701 and B 1.886 are limited to 1, G 0.47 stays.
    const float ycc[3] = {1, 1, 1};
    float out[3];
    ASSERT_EQ(KXEffectsConvertColorMode(ycc, out, 5), kKXNoErr);
    ExpectNear(out, {1, 1 - 0.344136f * 0.5f - 0.714136f * 0.5f, 1}, 1e-6f, "limited");
    EXPECT_EQ(KXEffectsConvertColorMode(ycc, out, 6), kKXErrBadParam);
}

// Conversions 0..5 convert each pixel (2: RGB to HSL); 6 keeps the luma; 7 spreads a gray over three
// planes; 8 lays the luma over white by alpha. Alpha is carried, or opaque where the source has none.
TEST(ConvertImageMode, ConversionsAndTheirAlphaRules)
{
    const float rgb[3] = {0.2f, 0.4f, 0.6f}, luma = 0.299f * 0.2f + 0.587f * 0.4f + 0.114f * 0.6f;
    float hsl[3];
    KXEffectsRGBToHSL(rgb, hsl);
    // Conversion, source pixel, destination planes, destination pixel.
    const std::tuple<int32_t, std::vector<float>, int32_t, std::vector<float>> cases[] = {
        {2, {0.2f, 0.4f, 0.6f, 0.5f}, 4, {hsl[0], hsl[1], hsl[2], 0.5f}},
        {6, {0.2f, 0.4f, 0.6f}, 1, {luma}},
        {7, {0.4f}, 4, {0.4f, 0.4f, 0.4f, 1.0f}},
        {8, {0.2f, 0.4f, 0.6f, 0.5f}, 2, {luma * 0.5f + 0.5f, 0.5f}}};
    ForEachImageKind([&](int32_t depth, bool lockable) {
        for (const auto& [conversion, pixel, planes, expected] : cases) {
            SCOPED_TRACE(conversion);
            TestImage source(KXRectMake(3, -2, 9, 3), depth, int32_t(pixel.size()), pixel.size() % 2 == 0, lockable);
            std::vector<float> samples;
            for (int32_t i = 0; i < 27; ++i)
                for (float unit : pixel)
                    samples.push_back(StoredOf(unit, depth));
            source.SetSamples(samples);
            const KXRect bounds = source.Bounds();
            const TestImage destination(bounds, depth, planes, planes % 2 == 0, !lockable);
            ASSERT_EQ(KXEffectsConvertImageMode(source, destination, &bounds, conversion), kKXNoErr);
            ExpectRegion(destination, bounds, depth == 32 ? 1e-6f : 1.0f,
                         [&](int32_t, int32_t, int32_t p) { return StoredOf(expected[size_t(p)], depth); });
        }
        const TestImage image = RandomImage(depth, lockable, 5);
        const KXRect bounds = image.Bounds();
        EXPECT_EQ(KXEffectsConvertImageMode(image, image, &bounds, 9), kKXErrBadParam);
        EXPECT_EQ(KXEffectsConvertImageMode(image, nullptr, &bounds, 0), kKXErrBadParam);
    });
}

} // namespace
