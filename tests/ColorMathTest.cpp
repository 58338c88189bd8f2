// Colour models against OpenCV and at their edges, the saturation helpers, hue components, image
// conversions with their alpha rules.
#include "KXEffectsColorMath.h"
#include "KXEffectsSample.h"
#include "TestImages.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <array>
#include <cmath>

namespace {

using Rgb = std::array<float, 3>;

void ExpectNear(const float* actual, const Rgb& expected, float tolerance, const std::string& what)
{
    for (size_t c = 0; c < 3; ++c)
        EXPECT_NEAR(actual[c], expected[c], tolerance) << what << " plane " << c;
}

std::vector<Rgb> RandomColours(uint32_t seed, int32_t count)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    std::vector<Rgb> colours(static_cast<size_t>(count));
    for (Rgb& colour : colours)
        colour = {unit(generator), unit(generator), unit(generator)};
    return colours;
}

// OpenCV works in degrees of hue; we in turns.
float HueGap(float turns, float degrees)
{
    const float gap = std::fabs(turns * 360.0f - degrees);
    return std::fmin(gap, 360.0f - gap);
}

cv::Mat Converted(const std::vector<Rgb>& colours, int32_t code)
{
    cv::Mat in(1, int32_t(colours.size()), CV_32FC3, const_cast<Rgb*>(colours.data())), out;
    cv::cvtColor(in, out, code);
    return out;
}

using Operation = void (*)(const float*, float*);

// A colour model and its OpenCV peer: the plane of OpenCV's order for each of ours, hue in degrees there.
struct ModelCase {
    const char* name;
    Operation to, from;
    int32_t toCode, fromCode;
    std::array<int32_t, 3> peerPlane;
    bool hasHue;
    float tolerance, fromTolerance;
};

// OpenCV rounds the YCbCr weights to three places (0.713, 0.564; 1.403, 0.714, 0.344, 1.773).
const ModelCase kModels[] = {
    {"HSV", KXEffectsRGBToHSV, KXEffectsHSVToRGB, cv::COLOR_RGB2HSV, cv::COLOR_HSV2RGB, {0, 1, 2}, true, 1e-5f, 2e-5f},
    {"HSL", KXEffectsRGBToHSL, KXEffectsHSLToRGB, cv::COLOR_RGB2HLS, cv::COLOR_HLS2RGB, {0, 2, 1}, true, 1e-5f, 2e-5f},
    {"YCbCr", KXEffectsRGBToYCC, KXEffectsYCCToRGB, cv::COLOR_RGB2YCrCb, cv::COLOR_YCrCb2RGB, {0, 2, 1}, false, 5e-4f,
     1e-3f},
};

TEST(ColorModels, AgreeWithOpenCVBothWaysAndRoundTrip)
{
    const std::vector<Rgb> colours = RandomColours(11, 2000);
    for (const ModelCase& model : kModels) {
        SCOPED_TRACE(model.name);
        // Our model values of random colours, and the same values in OpenCV's order and units.
        std::vector<Rgb> peerModels(colours.size());
        for (size_t n = 0; n < colours.size(); ++n)
            for (size_t c = 0; c < 3; ++c)
                peerModels[n][size_t(model.peerPlane[c])] = colours[n][c] * (model.hasHue && c == 0 ? 360.0f : 1.0f);
        const cv::Mat peerTo = Converted(colours, model.toCode), peerFrom = Converted(peerModels, model.fromCode);
        for (size_t n = 0; n < colours.size(); ++n) {
            float ours[3], back[3];
            model.to(colours[n].data(), ours);
            const cv::Vec3f peer = peerTo.at<cv::Vec3f>(int32_t(n));
            for (size_t c = 0; c < 3; ++c) {
                const float expected = peer[model.peerPlane[c]];
                if (model.hasHue && c == 0) {
                    EXPECT_LT(HueGap(ours[0], expected), 2e-3f);
                } else {
                    EXPECT_NEAR(ours[c], expected, model.tolerance) << "plane " << c;
                }
            }
            model.from(ours, back);
            ExpectNear(back, colours[n], 2e-6f, "round trip");
            model.from(colours[n].data(), ours);
            const cv::Vec3f rgb = peerFrom.at<cv::Vec3f>(int32_t(n));
            ExpectNear(ours, {rgb[0], rgb[1], rgb[2]}, model.fromTolerance, "from the model");
        }
    }
}

TEST(ColorModels, TiesSectorsAndEdges)
{
    float out[3];
    const std::pair<Rgb, Rgb> hsvCases[] = {
        {{0, 0, 0}, {0, 0, 0}},           // black: S 0, H 0
        {{0.5f, 0.5f, 0.5f}, {0, 0, 0.5f}}, // all equal: red counts as largest
        {{1, 1, 0}, {1.0f / 6, 1, 1}},      // red and green tie at the top
        {{0, 1, 1}, {0.5f, 1, 1}},
        {{1, 0, 1}, {5.0f / 6, 1, 1}},      // negative hue wraps by adding 1
    };
    for (const auto& [rgb, hsv] : hsvCases) {
        KXEffectsRGBToHSV(rgb.data(), out);
        ExpectNear(out, hsv, 1e-7f, "to HSV");
    }
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
    const float white[3] = {1, 1, 1}, black[3] = {0, 0, 0};
    KXEffectsRGBToHSL(white, out);
    ExpectNear(out, {0, 0, 1}, 0, "white in HSL");
    KXEffectsRGBToHSL(black, out);
    ExpectNear(out, {0, 0, 0}, 0, "black in HSL");
    const float half[3] = {0.75f, 0.25f, 0.25f}; // L = 0.5: S = D / 1
    KXEffectsRGBToHSL(half, out);
    ExpectNear(out, {0, 0.5f, 0.5f}, 0, "L one half");
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
    const float offset = 0.5f - (0.299f * 0.2f + 0.587f * 0.4f);
    const float give = 0.1f / 0.701f;
    const std::pair<Rgb, Rgb> cases[] = {
        {{0, 0.7f, 0.3f}, {0, 0, 0}},                             // L 0: black at any chroma
        {{0.4f, 0, 0.9f}, {0.4f, 0.4f, 0.4f}},                    // C 0: gray of L
        {{0.299f, 1, 0}, {1, 0, 0}},                              // red at its own luma
        {{0.5f, 1, 1.0f / 3}, {0, 0.5f / 0.587f, 0}},             // green alone passes L: scaled down
        {{0.5f, 0.4f, 0.25f}, {0.2f + offset, 0.4f + offset, offset}}, // sector 1, f 0.5, lifted by o
        {{0.9f, 1, 0}, {1, 1 - give, 1 - give}},                  // red would pass 1: chroma gives way
    };
    for (const auto& [lch, rgb] : cases) {
        float out[3];
        KXEffectsLumaChromaHueToRGB(lch.data(), out);
        ExpectNear(out, rgb, 1e-6f, "luma " + std::to_string(lch[0]) + " hue " + std::to_string(lch[2]));
        if (lch[0] > 0.0f) {
            EXPECT_NEAR(Luma(out), lch[0], 1e-6f);
        }
    }
}

TEST(SaturationHelpers, KnownPixelsAndTheirBounds)
{
    auto apply = [](Rgb pixel, auto&& operation) {
        operation(pixel.data());
        return pixel;
    };
    auto saturate = [](float amount) { return [=](float* p) { KXEffectsSaturatePixel(p, amount); }; };
    ExpectNear(apply({0.5f, 0.25f, 0.25f}, saturate(1)).data(), {0.5f, 0, 0}, 0, "saturate by 1");
    ExpectNear(apply({0.5f, 0.25f, 0.25f}, saturate(10)).data(), {0.5f, 0, 0}, 0, "bounded at 0");
    ExpectNear(apply({0.5f, 0.25f, 0.25f}, saturate(-1)).data(), {0.5f, 0.5f, 0.5f}, 0, "to the top");
    ExpectNear(apply({0.3f, 0.3f, 0.3f}, saturate(5)).data(), {0.3f, 0.3f, 0.3f}, 0, "gray left alone");

    auto vibrance = [](float amount) { return [=](float* p) { KXEffectsVibrancePixel(p, amount); }; };
    ExpectNear(apply({0.5f, 0.25f, 0.25f}, vibrance(1)).data(), {2.0f / 3, 1.0f / 6, 1.0f / 6}, 1e-6f,
               "sum restored");
    ExpectNear(apply({1, 0.5f, 0.5f}, vibrance(1)).data(), {1, 0.25f, 0.25f}, 1e-6f, "gain limited at 1");
    ExpectNear(apply({1, 0, 0.5f}, vibrance(3)).data(), {1, 0, 0.5f}, 0, "saturated pixel stays");

    auto aboutMid = [](float amount) { return [=](float* p) { KXEffectsSaturateAboutMid(p, amount); }; };
    ExpectNear(apply({0.2f, 0.5f, 0.6f}, aboutMid(1)).data(), {0, 0.6f, 0.8f}, 1e-6f, "spread by lo");
    ExpectNear(apply({0.7f, 0.95f, 0.9f}, aboutMid(1)).data(), {0.65f, 1, 0.93f}, 1e-6f, "spread by 1 - hi");
    ExpectNear(apply({0.2f, 0.5f, 0.6f}, aboutMid(-1)).data(), {0.4f, 0.4f, 0.4f}, 1e-6f, "to the middle");
    ExpectNear(apply({0.2f, 0.5f, 0.6f}, aboutMid(-0.5f)).data(), {0.3f, 0.45f, 0.5f}, 1e-6f, "half way");

    auto lighten = [](float amount, float lightness) {
        return [=](float* p) { KXEffectsSaturateAndLighten(p, amount, lightness); };
    };
    ExpectNear(apply({0.5f, 0.25f, 0.25f}, lighten(0, 0)).data(), {0.5f, 0.25f, 0.25f}, 1e-7f, "neutral");
    // e = 1/2: the top lands on mx / ((1 - e) mx + e) = 2/3.
    ExpectNear(apply({0.5f, 0.25f, 0.25f}, lighten(1, 0.5f)).data(), {2.0f / 3, 0, 0}, 1e-6f, "lighter");
    ExpectNear(apply({0.5f, 0.5f, 0.5f}, lighten(1, -0.5f)).data(), {1.0f / 3, 1.0f / 3, 1.0f / 3}, 1e-6f,
               "darker gray");
    ExpectNear(apply({0, 0, 0}, lighten(1, 2)).data(), {0, 0, 0}, 0, "black has no gain");
    ExpectNear(apply({1.5f, 1.5f, 1.5f}, lighten(0, 10)).data(), {1, 1, 1}, 1e-6f, "gain at most 1 / mx");
}

TEST(SmoothWindow, RampsAtBothEndsAndZeroOutside)
{
    const std::pair<float, float> cases[] = {
        {-0.1f, 0}, {0, 0}, {0.125f, 0.5f}, {0.25f, 1}, {0.5f, 1}, {0.75f, 1}, {0.875f, 0.5f}, {1, 0}, {1.1f, 0},
    };
    for (const auto& [v, w] : cases)
        EXPECT_FLOAT_EQ(KXEffectsSmoothWindow(v, 0, 0.25f, 0.75f, 1), w) << v;
    // Overlapping ramps multiply: t = 0.75 on both sides.
    EXPECT_FLOAT_EQ(KXEffectsSmoothWindow(0.375f, 0, 0.5f, 0.125f, 1.125f), 0.84375f * 0.84375f);
}

TEST(ColorComponents, SplitAddsUpWithAtMostTwoNeighbours)
{
    float components[6];
    const float yellow[3] = {1, 1, 0};
    ASSERT_EQ(KXEffectsGetColorComponents(yellow, components), kKXNoErr);
    EXPECT_EQ(std::vector<float>(components, components + 6), std::vector<float>({0, 1, 0, 0, 0, 0}));
    EXPECT_EQ(KXEffectsGetColorComponents(nullptr, components), kKXErrBadParam);
    EXPECT_EQ(KXEffectsGetColorComponents(yellow, nullptr), kKXErrBadParam);
    // Primaries and secondaries as planes: red (1,0,0), yellow (1,1,0), ... magenta (1,0,1).
    const Rgb planes[6] = {{1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 1, 1}, {0, 0, 1}, {1, 0, 1}};
    for (const Rgb& colour : RandomColours(14, 500)) {
        ASSERT_EQ(KXEffectsGetColorComponents(colour.data(), components), kKXNoErr);
        const float gray = std::fmin(colour[0], std::fmin(colour[1], colour[2]));
        Rgb sum = {gray, gray, gray};
        int32_t nonZero = 0, first = -1;
        for (int32_t i = 0; i < 6; ++i) {
            EXPECT_GE(components[i], 0.0f);
            for (size_t c = 0; c < 3; ++c)
                sum[c] += components[i] * planes[i][c];
            if (components[i] != 0.0f) {
                EXPECT_TRUE(first < 0 || i == first + 1 || (first == 0 && i == 5)) << i << " after " << first;
                first = first < 0 ? i : first;
                ++nonZero;
            }
        }
        EXPECT_LE(nonZero, 2);
        ExpectNear(sum.data(), colour, 1e-6f, "sum");
    }
}

TEST(ConvertColorMode, ConversionsZeroToFiveInPlaceAndLimited)
{
    const Operation operations[] = {KXEffectsRGBToHSV, KXEffectsHSVToRGB, KXEffectsRGBToHSL,
                                    KXEffectsHSLToRGB, KXEffectsRGBToYCC, KXEffectsYCCToRGB};
    const Rgb colour = {0.7f, 0.2f, 0.4f};
    for (int32_t conversion = 0; conversion < 6; ++conversion) {
        float expected[3], out[3];
        operations[conversion](colour.data(), expected);
        ASSERT_EQ(KXEffectsConvertColorMode(colour.data(), out, conversion), kKXNoErr);
        ExpectNear(out, {expected[0], expected[1], expected[2]}, 0, "conversion " + std::to_string(conversion));
        Rgb inPlace = colour;
        ASSERT_EQ(KXEffectsConvertColorMode(inPlace.data(), inPlace.data(), conversion), kKXNoErr);
        ExpectNear(inPlace.data(), {out[0], out[1], out[2]}, 0, "in place " + std::to_string(conversion));
    }
    // YCbCr (1, 1, 1): R 1.701 and B 1.886 are limited to 1, G 0.47 stays.
    const float ycc[3] = {1, 1, 1};
    float out[3];
    ASSERT_EQ(KXEffectsConvertColorMode(ycc, out, 5), kKXNoErr);
    ExpectNear(out, {1, 1 - 0.344136f * 0.5f - 0.714136f * 0.5f, 1}, 1e-6f, "limited");
    for (int32_t conversion : {-1, 6, 7, 8})
        EXPECT_EQ(KXEffectsConvertColorMode(ycc, out, conversion), kKXErrBadParam) << conversion;
    EXPECT_EQ(KXEffectsConvertColorMode(nullptr, out, 0), kKXErrBadParam);
    EXPECT_EQ(KXEffectsConvertColorMode(ycc, nullptr, 0), kKXErrBadParam);
}

// The expected destination pixel of a conversion from a source pixel of raw samples.
std::vector<float> ConvertedPixel(const float* in, int32_t conversion, bool sourceAlpha, bool destinationAlpha,
                                  int32_t depth)
{
    const int32_t inPlanes = conversion == 7 ? 1 : 3;
    float unit[3] = {}, result[3] = {};
    for (int32_t c = 0; c < inPlanes; ++c)
        unit[c] = UnitOf(in[c], depth);
    const float alpha = sourceAlpha ? UnitOf(in[inPlanes], depth) : 1.0f;
    const float luma = 0.299f * unit[0] + 0.587f * unit[1] + 0.114f * unit[2];
    std::vector<float> out;
    if (conversion <= 5) {
        KXEffectsConvertColorMode(unit, result, conversion);
        out = {result[0], result[1], result[2]};
    } else if (conversion == 7) {
        out = {unit[0], unit[0], unit[0]};
    } else {
        out = {conversion == 6 ? luma : luma * alpha + (1.0f - alpha)};
    }
    for (float& value : out)
        value = StoredOf(value, depth);
    if (destinationAlpha)
        out.push_back(sourceAlpha ? in[inPlanes] : WhiteOf(depth));
    return out;
}

TEST(ConvertImageMode, EveryConversionDepthAndAlphaRule)
{
    const KXRect bounds = KXRectMake(3, -2, 9, 3), rect = KXRectMake(4, -2, 8, 3);
    ForEachImageKind([&](int32_t depth, bool lockable) {
        for (int32_t conversion = 0; conversion <= 8; ++conversion)
            for (int32_t sourceAlpha = 0; sourceAlpha <= 1; ++sourceAlpha)
                for (int32_t destinationAlpha = 0; destinationAlpha <= 1; ++destinationAlpha) {
                    SCOPED_TRACE(CaseName(depth, lockable) + " conversion " + std::to_string(conversion) +
                                 " alpha " + std::to_string(sourceAlpha) + std::to_string(destinationAlpha));
                    const int32_t inPlanes = (conversion == 7 ? 1 : 3) + sourceAlpha;
                    const int32_t outPlanes = (conversion == 6 || conversion == 8 ? 1 : 3) + destinationAlpha;
                    TestImage source(bounds, depth, inPlanes, sourceAlpha, lockable);
                    TestImage destination(bounds, depth, outPlanes, destinationAlpha, !lockable);
                    source.FillRandom(uint32_t(conversion + 20), true);
                    destination.FillRandom(3);
                    const std::vector<float> in = source.Samples(), before = destination.Samples();
                    ASSERT_EQ(KXEffectsConvertImageMode(source, destination, &rect, conversion), kKXNoErr);
                    const std::vector<float> out = destination.Samples();
                    for (int32_t i = 0; i < bounds.width * bounds.height; ++i) {
                        const bool inside = i % bounds.width != 0;
                        const std::vector<float> expected =
                            ConvertedPixel(&in[size_t(i * inPlanes)], conversion, sourceAlpha, destinationAlpha, depth);
                        for (int32_t c = 0; c < outPlanes; ++c) {
                            const size_t at = size_t(i * outPlanes + c);
                            EXPECT_EQ(out[at], inside ? expected[size_t(c)] : before[at]) << "pixel " << i << " plane " << c;
                        }
                    }
                }
    });
}

TEST(ConvertImageMode, InPlaceAndRejections)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        TestImage image(KXRectMake(0, 0, 7, 2), depth, 4, 1, lockable);
        image.FillRandom(5);
        const std::vector<float> in = image.Samples();
        const KXRect bounds = image.Bounds();
        ASSERT_EQ(KXEffectsConvertImageMode(image, image, &bounds, 2), kKXNoErr);
        const std::vector<float> out = image.Samples();
        for (size_t i = 0; i < in.size(); i += 4)
            EXPECT_EQ(std::vector<float>(out.begin() + long(i), out.begin() + long(i) + 4),
                      ConvertedPixel(&in[i], 2, true, true, depth));
        EXPECT_EQ(KXEffectsConvertImageMode(image, image, &bounds, 9), kKXErrBadParam);
        EXPECT_EQ(KXEffectsConvertImageMode(image, image, &bounds, -1), kKXErrBadParam);
        EXPECT_EQ(KXEffectsConvertImageMode(image, nullptr, &bounds, 0), kKXErrBadParam);
        EXPECT_EQ(image.Samples(), out);
    });
}

} // namespace
