// Automatic analysis: plane statistics against OpenCV, the auto colour's levels on constructed casts, the
// auto tone's clips and walks, black and white points, and the equalizers against plain histogram readings.
#include "TestImages.h"

#include <opencv2/core.hpp>

#include <cmath>

namespace {

using PixelAt = std::function<std::vector<float>(int32_t)>;

// An image whose pixel i holds pixel(i): 8-bit levels for the colour planes, then an alpha of 0 or 1.
TestImage MakeImage(const KXRect& bounds, int32_t depth, int32_t planes, int32_t transparency, bool lockable,
                    const PixelAt& pixel)
{
    TestImage image(bounds, depth, planes, transparency, lockable);
    std::vector<float> samples;
    for (int32_t i = 0; i < bounds.width * bounds.height; ++i)
        for (int32_t p = 0; p < planes; ++p) {
            const float value = pixel(i)[size_t(p)];
            samples.push_back(p < planes - transparency ? LevelAt(value, depth) : value * WhiteOf(depth));
        }
    image.SetSamples(samples);
    return image;
}

// Means and deviations of the planes and the luma, in 0..1, over the rectangle's part inside the image;
// transparent pixels are left out.
TEST(AutoAnalysis, AnalyzeImageMatchesOpenCVMeanStdDev)
{
    const KXRect bounds = KXRectMake(-2, 3, 9, 7), rect = KXRectMake(-4, 4, 8, 9);
    const KXRect inside = KXRectIntersect(&rect, &bounds);
    ForEachImageKind([&](int32_t depth, bool lockable) {
        TestImage image = RandomImage(depth, lockable, uint32_t(depth), 4, bounds);
        cv::Mat values(inside.height, inside.width, CV_64FC4), mask(values.size(), CV_8U);
        for (int32_t y = 0; y < inside.height; ++y)
            for (int32_t x = 0; x < inside.width; ++x) {
                const std::vector<float> p = image.Read(KXRectMake(x + inside.x, y + inside.y, 1, 1));
                values.at<cv::Vec4d>(y, x) =
                    cv::Vec4d(p[0], p[1], p[2], 0.299 * p[0] + 0.587 * p[1] + 0.114 * p[2]) / double(WhiteOf(depth));
                mask.at<uint8_t>(y, x) = (x + y) % 3 != 0;
                image.Set(x + inside.x, y + inside.y, {p[0], p[1], p[2], (x + y) % 3 ? WhiteOf(depth) : 0.0f});
            }
        cv::Scalar mean, deviation;
        cv::meanStdDev(values, mean, deviation, mask);
        float means[4], deviations[4];
        ASSERT_EQ(KXEffectsAnalyzeImage(image, &rect, means, deviations), kKXNoErr);
        for (int32_t c = 0; c < 4; ++c)
            EXPECT_TRUE(std::fabs(means[c] - mean[c]) < 2e-6 && std::fabs(deviations[c] - deviation[c]) < 2e-6) << c;
    });
    const TestImage twoPlanes(bounds, 8, 2, 0, true, KXColorSpaceGray);
    float values[4];
    EXPECT_EQ(KXEffectsAnalyzeImage(twoPlanes, &rect, values, values), kKXErrUnsupported);
}

// A plain reading of the levels curve: ramp(j) = (j - black + 1) x step >> 16 from black on, read at
// x = (i / 255)^(100 / gamma) x 255.
std::vector<float> LevelsCurve(int32_t black, int32_t white, int32_t gamma)
{
    std::vector<float> curve(256);
    const uint32_t step = 0xFF0000u / uint32_t(white - black);
    for (int32_t i = 0; i < 256; ++i) {
        const int32_t x = int32_t(std::pow(float(i) / 255.0f, 1.0f / (float(gamma) * 0.01f)) * 255.0f);
        const uint32_t ramp = x < black ? 0u : std::min(uint32_t(x - black + 1) * step >> 16, 255u);
        curve[size_t(i)] = float(ramp) * (1.0f / 255.0f);
    }
    return curve;
}

// Every pixel near gray: level v = 64 + i / 2 (64..191, two pixels each), offset per plane.
PixelAt Cast(float red, float green, float blue)
{
    return [=](int32_t i) {
        const float v = 64.0f + float(i % 256 / 2);
        return std::vector<float>{v + red, v + green, v + blue, 1.0f};
    };
}

void ExpectAutoColor(KXImage* image, const std::vector<float> (&expected)[3])
{
    std::vector<float> curves(3 * 256, -1.0f);
    ASSERT_EQ(KXEffectsAutoColorMakeCurves(image, curves.data()), kKXNoErr);
    for (size_t c = 0; c < 3; ++c)
        EXPECT_EQ(std::vector<float>(curves.begin() + long(c * 256), curves.begin() + long(c * 256 + 256)), expected[c])
            << "channel " << c;
}

TEST(AutoAnalysis, AutoColorLevelsFollowTheCastOfTheGrays)
{
    const KXRect bounds = KXRectMake(5, -3, 16, 16);
    // The clip is 51 of 256 pixels: bins 89 (black) and 166 (white) of a plane without offset. The neutral
    // levels lift all but the top entry one level: the ramp's running sum starts at one step.
    const std::vector<float> neutral = LevelsCurve(0, 255, 100), gray[3] = {neutral, neutral, neutral};
    const std::vector<float> redCast[3] = {LevelsCurve(7, 255, 100), LevelsCurve(0, 248, 100),
                                           LevelsCurve(0, 248, 100)};
    // Band means 131.5, 127.5, 123.5: gammas trunc(log10(v / 256) x -332.19281) of v = 123 and 132.
    const std::vector<float> spread[3] = {LevelsCurve(19, 255, 105), LevelsCurve(9, 246, 100), LevelsCurve(0, 236, 95)};
    ForEachImageKind([&](int32_t depth, bool lockable) {
        ExpectAutoColor(MakeImage(bounds, depth, 3, 0, lockable, Cast(6, 0, 0)), redCast);
        ExpectAutoColor(MakeImage(bounds, depth, 3, 0, lockable, Cast(8, 0, -8)), spread);
        ExpectAutoColor(MakeImage(bounds, depth, 3, 0, lockable, Cast(0, 0, 0)), gray);
        // No pixel near gray: nothing to clip; transparent pixels do not count.
        ExpectAutoColor(MakeImage(bounds, depth, 3, 0, lockable, Cast(40, 0, -40)), gray);
        ExpectAutoColor(
            MakeImage(bounds, depth, 4, 1, lockable,
                      [](int32_t i) {
                          const float v = float(i % 200);
                          return i % 2 ? std::vector<float>{v, v, v, 1} : std::vector<float>{v + 9, v, v, 0};
                      }),
            gray);
    });
}

// Narrower than 16 pixels or gray: a status, the tables untouched and temperature and tint 0.
TEST(AutoAnalysis, AutoColorRefusesNarrowAndGrayImages)
{
    const TestImage narrow(KXRectMake(0, 0, 15, 40), 8, 3, 0), gray(KXRectMake(0, 0, 16, 16), 8, 1, 0);
    std::vector<float> curves(3 * 256, -1.0f);
    float temperature = 0.5f, tint = 0.5f;
    EXPECT_EQ(KXEffectsAutoColorMakeCurves(narrow, curves.data()), kKXErrBadParam);
    EXPECT_EQ(KXEffectsAutoColorMakeCurves(gray, curves.data()), kKXErrUnsupported);
    EXPECT_EQ(curves, std::vector<float>(curves.size(), -1.0f));
    EXPECT_EQ(KXEffectsAutoColorTemperatureAndTint(narrow, &temperature, &tint), kKXErrBadParam);
    EXPECT_EQ(temperature + std::fabs(tint), 0.0f);
    // The temperature and tint are those found for the auto colour curves.
    const TestImage cast = MakeImage(KXRectMake(0, 0, 16, 16), 16, 3, 0, true, Cast(8, 0, -8));
    float expected[2];
    ASSERT_EQ(KXEffectsAutoColorMakeCurves(cast, curves.data()), kKXNoErr);
    ASSERT_EQ(KXEffectsTemperatureAndTintForCurves(curves.data(), &expected[0], &expected[1]), kKXNoErr);
    ASSERT_EQ(KXEffectsAutoColorTemperatureAndTint(cast, &temperature, &tint), kKXNoErr);
    EXPECT_TRUE(temperature == expected[0] && tint == expected[1] && temperature != 0.0f);
}

// Black and white points, then brightness, contrast, shadows and highlights, as the auto tone reports them.
std::pair<int32_t, std::vector<float>> AutoTone(KXImage* image)
{
    std::vector<float> v(10, -9.0f);
    const int32_t status = KXEffectsAutoTone(image, &v[0], &v[3], &v[6], &v[7], &v[8], &v[9]);
    return {status, v};
}

TEST(AutoAnalysis, AutoToneClipsAndWalksTowardItsTargets)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        // One pixel a luma bin: every measure is at its reference, so the walks stop at once, and the dark
        // tones, held to twice theirs, open halfway.
        const auto flat = AutoTone(MakeImage(KXRectMake(0, 0, 16, 16), depth, 3, 0, lockable,
                                             [](int32_t i) { return std::vector<float>(3, float(i)); }));
        EXPECT_EQ(flat, (std::pair<int32_t, std::vector<float>>{kKXNoErr, {0, 0, 0, 1, 1, 1, 0, 0, 0.5f, 0}}));
        // 10 of 10,000 pixels at 0 do not exceed the black clip of 10; the 11th, at 5, does. One pixel at
        // 250 does not exceed the white clip of 1; the second, at 240, does. A dark image is brightened, a
        // light one darkened.
        for (const float body : {60.0f, 200.0f}) {
            const auto level = [&](int32_t i) {
                const float v = i < 10 ? 0 : i == 10 ? 5 : i == 11 ? 250 : i == 12 ? 240 : body + float(i % 40);
                return std::vector<float>(3, v);
            };
            const auto [status, tone] = AutoTone(MakeImage(KXRectMake(-5, 1, 100, 100), depth, 3, 0, lockable, level));
            ASSERT_EQ(status, kKXNoErr);
            EXPECT_EQ(
                std::vector<float>(tone.begin(), tone.begin() + 6),
                (std::vector<float>{5 / 255.0f, 5 / 255.0f, 5 / 255.0f, 240 / 255.0f, 240 / 255.0f, 240 / 255.0f}));
            EXPECT_TRUE(body < 128 ? tone[6] > 0.0f : tone[6] < 0.0f) << tone[6];
            EXPECT_TRUE(std::fabs(tone[6]) <= 1 && tone[8] >= 0 && tone[8] <= 1 && tone[9] <= 0 && tone[9] >= -1);
        }
    });
    EXPECT_EQ(AutoTone(TestImage(KXRectMake(0, 0, 4, 4), 8, 1, 0)),
              (std::pair<int32_t, std::vector<float>>{kKXErrUnsupported, {0, 0, 0, 1, 1, 1, 0, 0, 0, 0}}));
}

TEST(AutoAnalysis, BlackAndWhitePointsClipEachPlaneOrTheirMean)
{
    // 1,200 opaque pixels: red 0..239 five times, green red + 10, blue red + 5; 50 transparent white ones.
    const auto pixel = [](int32_t i) {
        const float r = float(i % 240);
        return i < 1200 ? std::vector<float>{r, r + 10, r + 5, 1} : std::vector<float>{255, 255, 255, 0};
    };
    float black[3], white[3];
    for (const int32_t depth : {8, 16})
        for (const bool lockable : kLockable) {
            SCOPED_TRACE(CaseName(depth, lockable));
            const TestImage image = MakeImage(KXRectMake(3, 3, 50, 25), depth, 4, 1, lockable, pixel);
            // Clips of 12 and 24 pixels; the mean of the three planes is red + 5.
            ASSERT_EQ(KXEffectsBlackAndWhitePointsGetPoints(image, black, white, 0.01f, 0.02f, false), kKXNoErr);
            EXPECT_EQ(std::vector<float>({black[0], black[1], white[0], white[1]}),
                      (std::vector<float>{2 / 255.f, 12 / 255.f, 235 / 255.f, 245 / 255.f}));
            ASSERT_EQ(KXEffectsBlackAndWhitePointsGetPoints(image, black, white, 0.01f, 0.02f, true), kKXNoErr);
            EXPECT_EQ(std::vector<float>({black[0], black[2], white[1]}),
                      (std::vector<float>{7 / 255.f, 7 / 255.f, 240 / 255.f}));
            // A solid image gives the neutral points and a status.
            const TestImage solid = MakeImage(KXRectMake(0, 0, 40, 40), depth, 3, 0, lockable, [](int32_t) {
                return std::vector<float>{90, 90, 90};
            });
            std::fill_n(black, 3, 0.5f);
            EXPECT_EQ(KXEffectsBlackAndWhitePointsGetPoints(solid, black, white, 0.01f, 0.01f, false), kKXErrBadInput);
            EXPECT_TRUE(black[0] == 0.0f && white[0] == 1.0f);
        }
    const TestImage floats(KXRectMake(0, 0, 40, 40), 32, 3, 0);
    EXPECT_EQ(KXEffectsBlackAndWhitePointsGetPoints(floats, black, white, 0.01f, 0.01f, false), kKXErrUnsupported);
}

// Each plane stretches from its black to its white point; equal points make a step strictly above them.
// At 8 bits the pixel effect is its table through the curves effect.
TEST(AutoAnalysis, BlackAndWhitePointsStretchTablesAndPixelsAlike)
{
    const float black[3] = {0.1f, 0.0f, 100.0f / 255.0f}, white[3] = {0.8f, 0.5f, 100.0f / 255.0f};
    std::vector<float> curves(4 * 256, -1.0f);
    ASSERT_EQ(KXEffectsBlackAndWhitePointsMakeCurves(3, curves.data(), black, white), kKXNoErr);
    for (size_t i = 0; i < 3 * 256; ++i) {
        const float x = float(i % 256) / 255.0f, low = black[i / 256], high = white[i / 256];
        const float expected = low == high ? float(x > low) : std::clamp((x - low) / (high - low), 0.0f, 1.0f);
        EXPECT_NEAR(curves[i], expected, 1e-6f) << i;
    }
    EXPECT_EQ(curves[768], -1.0f);
    for (const bool lockable : kLockable) {
        const TestImage source = RandomImage(8, lockable, 5), stretched = source.Like(), tabled = source.Like();
        const KXRect bounds = source.Bounds();
        ASSERT_EQ(KXEffectsBlackAndWhitePointsApply(source, stretched, &bounds, black, white), kKXNoErr);
        ASSERT_EQ(KXEffectsApplyCurves(source, tabled, &bounds, curves.data()), kKXNoErr);
        ExpectSameImage(stretched, tabled, 1.0f);
    }
    const TestImage floats(KXRectMake(0, 0, 4, 4), 32, 3, 0);
    const KXRect bounds = floats.Bounds();
    EXPECT_EQ(KXEffectsBlackAndWhitePointsApply(floats, floats, &bounds, black, white), kKXErrUnsupported);
}

// Each stored 8-bit colour sample against round(cdf x 255 / total), the cdf over all colour samples.
void ExpectEqualized8(const std::vector<float>& in, const std::vector<float>& out, int32_t planes, int32_t colours)
{
    std::vector<double> cdf(256, 0.0);
    double total = 0;
    for (size_t i = 0; i < in.size(); ++i)
        if (int32_t(i % size_t(planes)) < colours)
            cdf[size_t(in[i])] += 1, total += 1;
    for (size_t level = 1; level < 256; ++level)
        cdf[level] += cdf[level - 1];
    for (size_t i = 0; i < in.size(); ++i) {
        const bool colour = int32_t(i % size_t(planes)) < colours;
        const double expected = !colour ? in[i] : in[i] == 0 ? 0 : std::round(cdf[size_t(in[i])] * 255.0 / total);
        ASSERT_NEAR(out[i], expected, colour ? 1.0 : 0.0) << i;
    }
}

TEST(AutoAnalysis, EqualizeSpreadsTheHistogramOfAllColourPlanes)
{
    const KXRect bounds = KXRectMake(2, 2, 11, 7), quarters = KXRectMake(2, 2, 8, 4);
    for (const int32_t planes : {1, 4}) {
        const TestImage image = RandomImage(8, true, 31, planes, bounds), equalized(bounds, 8, planes, planes / 4);
        ASSERT_EQ(KXEffectsEqualize(image, equalized), kKXNoErr);
        ExpectEqualized8(image.Samples(), equalized.Samples(), planes, planes == 4 ? 3 : 1);
        // The curve form agrees through the curves effect, one channel per colour plane.
        std::vector<float> curves(4 * 256, -1.0f);
        ASSERT_EQ(KXEffectsEqualizeMakeCurves(image, curves.data()), kKXNoErr);
        EXPECT_EQ(curves[planes == 4 ? 768 : 256], -1.0f);
        const TestImage tabled(bounds, 8, planes, planes / 4);
        ASSERT_EQ(KXEffectsApplyCurves(image, tabled, &bounds, curves.data()), kKXNoErr);
        ExpectSameImage(tabled, equalized, 1.0f);
    }
    ForEachImageKind([&](int32_t depth, bool lockable) {
        // A single level goes to white, black stays black; a quarter at 60 and the rest at 180 go to 63.75 and white.
        for (const auto& [low, high, lowOut] : {std::tuple{0.0f, 37.0f, 0.0f}, std::tuple{60.0f, 180.0f, 63.75f}}) {
            TestImage image = MakeImage(quarters, depth, 2, 1, lockable, [&](int32_t i) {
                return std::vector<float>{i % 4 ? high : low, 0.0f};
            });
            ASSERT_EQ(KXEffectsEqualize(image, image), kKXNoErr);
            EXPECT_NEAR(image.At(2, 2, 0), LevelAt(lowOut, depth), depth == 32 ? 1e-5f : 0.5f);
            EXPECT_NEAR(image.At(3, 2, 0), LevelAt(255, depth), depth == 32 ? 1e-5f : 0.5f);
            EXPECT_EQ(image.At(3, 2, 1), 0.0f);
        }
    });
}

TEST(AutoAnalysis, EqualizeLuminosityKeepsHuesAndMatchesTheGrayEqualizer)
{
    const KXRect bounds = KXRectMake(-3, 1, 10, 6);
    ForEachImageKind([&](int32_t depth, bool lockable) {
        const TestImage image = RandomImage(depth, lockable, 11, 3, bounds), equalized = image.Like();
        ASSERT_EQ(KXEffectsEqualizeLuminosity(image, equalized), kKXNoErr);
        const std::vector<float> in = image.Samples(), out = equalized.Samples();
        for (size_t at = 0; at < in.size(); at += 3) { // one gain, read off the largest plane, unless a plane clips
            const size_t top = at + size_t(std::max_element(&in[at], &in[at] + 3) - &in[at]);
            for (size_t c = at; c < at + 3 && in[top] >= 0.1f * WhiteOf(depth) && out[top] < WhiteOf(depth); ++c)
                ASSERT_NEAR(out[c], in[c] * (out[top] / in[top]), depth == 32 ? 1e-5f : 1.0f) << c;
        }
        // Gray RGB pixels have their level as luma, so the luma and plain equalizers agree.
        const TestImage gray = MakeImage(bounds, depth, 3, 0, lockable,
                                         [](int32_t i) { return std::vector<float>(3, float(i * 37 % 256)); });
        const TestImage byLuma(bounds, depth, 3, 0, lockable), plain(bounds, depth, 3, 0, lockable);
        ASSERT_EQ(KXEffectsEqualizeLuminosity(gray, byLuma), kKXNoErr);
        ASSERT_EQ(KXEffectsEqualize(gray, plain), kKXNoErr);
        ExpectSameImage(byLuma, plain, depth == 32 ? 1e-5f : 1.0f);
    });
    const TestImage other(bounds, 8, 3, 0, true, 3); // neither gray nor RGB
    EXPECT_EQ(KXEffectsEqualizeLuminosity(other, other), kKXErrBadImageFormat);
}

} // namespace
