// Automatic analysis: plane statistics against OpenCV, the auto colour's levels on constructed casts, the
// auto tone's clips and walks, black and white points, and the equalizers against plain histogram readings.
#include "TestImages.h"

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <algorithm>
#include <cmath>
#include <functional>

namespace {

// An 8-bit level in the scale of a depth: v, v x 257, v / 255.
float LevelAt(float level, int32_t depth)
{
    return depth == 8 ? level : depth == 16 ? level * 257.0f : level / 255.0f;
}

// An image whose pixel i holds pixel(i) (8-bit levels for the colour planes, then an alpha of 0 or 1).
TestImage MakeImage(const KXRect& bounds, int32_t depth, int32_t planes, int32_t transparency, bool lockable,
                    const std::function<std::vector<float>(int32_t)>& pixel, int32_t colorSpace = -1)
{
    TestImage image(bounds, depth, planes, transparency, lockable, colorSpace);
    std::vector<float> samples;
    for (int32_t i = 0; i < bounds.width * bounds.height; ++i) {
        const std::vector<float> values = pixel(i);
        for (int32_t p = 0; p < planes; ++p)
            samples.push_back(p < planes - transparency ? LevelAt(values[size_t(p)], depth)
                                                        : values[size_t(p)] * WhiteOf(depth));
    }
    image.SetSamples(samples);
    return image;
}

// ---- Plane statistics ----

TEST(AutoAnalysis, AnalyzeImageMatchesOpenCVMeanStdDev)
{
    const KXRect bounds = KXRectMake(-2, 3, 9, 7), rect = KXRectMake(-4, 4, 8, 9); // cut to 6 x 6
    const KXRect inside = KXRectIntersect(&rect, &bounds);
    ForEachImageKind([&](int32_t depth, bool lockable) {
        for (const int32_t planes : {1, 3, 4}) {
            SCOPED_TRACE(CaseName(depth, lockable, std::to_string(planes).c_str()));
            TestImage image(bounds, depth, planes, planes == 4 ? 1 : 0, lockable);
            image.FillRandom(uint32_t(planes * 7 + depth));
            std::vector<float> samples = image.Samples();
            const int32_t channels = planes == 1 ? 1 : 4;
            cv::Mat values(inside.height, inside.width, CV_64FC4, cv::Scalar::all(0)), mask(values.size(), CV_8U);
            for (int32_t y = 0; y < inside.height; ++y) {
                for (int32_t x = 0; x < inside.width; ++x) {
                    const float* p =
                        &samples[(size_t(y + inside.y - bounds.y) * 9 + size_t(x + inside.x - bounds.x)) * planes];
                    auto& v = values.at<cv::Vec4d>(y, x);
                    for (int32_t c = 0; c < std::min(planes, 3); ++c)
                        v[c] = p[c] / WhiteOf(depth);
                    v[3] = 0.299 * v[0] + 0.587 * v[1] + 0.114 * v[2];
                    // Transparent pixels of RGBA are left out.
                    const bool opaque = (x + y) % 3 != 0;
                    mask.at<uint8_t>(y, x) = planes < 4 || opaque;
                    if (planes == 4)
                        image.Set(x + inside.x, y + inside.y, {p[0], p[1], p[2], opaque ? WhiteOf(depth) : 0.0f});
                }
            }
            cv::Scalar mean, deviation;
            cv::meanStdDev(values, mean, deviation, mask);
            float means[4] = {-1, -1, -1, -1}, deviations[4] = {-1, -1, -1, -1};
            ASSERT_EQ(KXEffectsAnalyzeImage(image, &rect, means, deviations), kKXNoErr);
            for (int32_t c = 0; c < channels; ++c) {
                EXPECT_NEAR(means[c], mean[c], 2e-6) << c;
                EXPECT_NEAR(deviations[c], deviation[c], 2e-6) << c;
            }
            EXPECT_TRUE(channels == 4 || means[1] == -1.0f);
            // Nothing counted: the arrays stay as they were.
            float none[4] = {-1, -1, -1, -1};
            const KXRect outside = KXRectMake(20, 20, 3, 3);
            ASSERT_EQ(KXEffectsAnalyzeImage(image, &outside, none, none), kKXNoErr);
            EXPECT_EQ(none[0], -1.0f);
        }
    });
    // A constant image has no spread, not a rounding error's square root.
    const KXRect row = KXRectMake(0, 0, 7, 1);
    TestImage constant = MakeImage(row, 8, 1, 0, true, [](int32_t) { return std::vector<float>{77}; });
    float mean = 0, deviation = 1;
    ASSERT_EQ(KXEffectsAnalyzeImage(constant, &row, &mean, &deviation), kKXNoErr);
    EXPECT_NEAR(mean, 77.0f / 255.0f, 1e-7f);
    EXPECT_NEAR(deviation, 0.0f, 1e-6f);
    TestImage twoPlanes(row, 8, 2, 0, true, KXColorSpaceGray);
    EXPECT_EQ(KXEffectsAnalyzeImage(twoPlanes, &row, &mean, &deviation), kKXErrUnsupported);
}

// ---- Auto colour ----

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
std::function<std::vector<float>(int32_t)> Cast(float red, float green, float blue)
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
        for (size_t i = 0; i < 256; ++i)
            ASSERT_EQ(curves[c * 256 + i], expected[c][i]) << "channel " << c << " entry " << i;
}

TEST(AutoAnalysis, AutoColorLevelsFollowTheCastOfTheGrays)
{
    const KXRect bounds = KXRectMake(5, -3, 16, 16);
    // The clip is 51 of 256 pixels: bins 89 (black) and 166 (white) of a plane without offset.
    const std::vector<float> neutral = LevelsCurve(0, 255, 100);
    const std::vector<float> redCast[3] = {LevelsCurve(7, 255, 100), LevelsCurve(0, 248, 100),
                                           LevelsCurve(0, 248, 100)};
    // Band means 131.5, 127.5, 123.5: gammas trunc(log10(v / 256) x -332.19281) of v = 123 and 132.
    const std::vector<float> spread[3] = {LevelsCurve(19, 255, 105), LevelsCurve(9, 246, 100), LevelsCurve(0, 236, 95)};
    const std::vector<float> gray[3] = {neutral, neutral, neutral};
    ForEachImageKind([&](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        ExpectAutoColor(MakeImage(bounds, depth, 3, 0, lockable, Cast(6, 0, 0)), redCast);
        ExpectAutoColor(MakeImage(bounds, depth, 3, 0, lockable, Cast(8, 0, -8)), spread);
        ExpectAutoColor(MakeImage(bounds, depth, 3, 0, lockable, Cast(0, 0, 0)), gray);
        // No pixel near gray: nothing to clip.
        ExpectAutoColor(MakeImage(bounds, depth, 3, 0, lockable, Cast(40, 0, -40)), gray);
        // Transparent pixels do not count.
        ExpectAutoColor(
            MakeImage(bounds, depth, 4, 1, lockable,
                      [](int32_t i) {
                          const float v = float(i % 200);
                          return i % 2 ? std::vector<float>{v, v, v, 1} : std::vector<float>{v + 9, v, v, 0};
                      }),
            gray);
    });
    // The neutral levels lift all but the top entry one level: the ramp's running sum starts at one step.
    EXPECT_EQ(neutral[0], 1.0f / 255.0f);
    EXPECT_EQ(neutral[255], 1.0f);
}

TEST(AutoAnalysis, AutoColorTemperatureFollowsItsCurvesAndFailuresLeaveTablesAlone)
{
    const TestImage image = MakeImage(KXRectMake(0, 0, 16, 16), 16, 3, 0, true, Cast(8, 0, -8));
    std::vector<float> curves(3 * 256);
    ASSERT_EQ(KXEffectsAutoColorMakeCurves(image, curves.data()), kKXNoErr);
    float temperature = 0.5f, tint = 0.5f, expectedTemperature = 0, expectedTint = 0;
    ASSERT_EQ(KXEffectsTemperatureAndTintForCurves(curves.data(), &expectedTemperature, &expectedTint), kKXNoErr);
    ASSERT_EQ(KXEffectsAutoColorTemperatureAndTint(image, &temperature, &tint), kKXNoErr);
    EXPECT_EQ(temperature, expectedTemperature);
    EXPECT_EQ(tint, expectedTint);
    EXPECT_NE(temperature, 0.0f);

    const TestImage narrow(KXRectMake(0, 0, 15, 40), 8, 3, 0), gray(KXRectMake(0, 0, 16, 16), 8, 1, 0);
    std::vector<float> untouched(3 * 256, -1.0f);
    EXPECT_EQ(KXEffectsAutoColorMakeCurves(narrow, untouched.data()), kKXErrBadParam);
    EXPECT_EQ(KXEffectsAutoColorMakeCurves(gray, untouched.data()), kKXErrUnsupported);
    EXPECT_TRUE(std::all_of(untouched.begin(), untouched.end(), [](float v) { return v == -1.0f; }));
    EXPECT_EQ(KXEffectsAutoColorTemperatureAndTint(narrow, &temperature, &tint), kKXErrBadParam);
    EXPECT_EQ(temperature, 0.0f);
    EXPECT_EQ(tint, 0.0f);
}

// ---- Auto tone ----

struct Tone {
    float black[3] = {-1, -1, -1}, white[3] = {-1, -1, -1};
    float brightness = -9, contrast = -9, shadows = -9, highlights = -9;
    int32_t status = 0;
};

Tone AutoTone(KXImage* image)
{
    Tone tone;
    tone.status = KXEffectsAutoTone(image, tone.black, tone.white, &tone.brightness, &tone.contrast, &tone.shadows,
                                    &tone.highlights);
    return tone;
}

TEST(AutoAnalysis, AutoToneClipsAndWalksTowardItsTargets)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        // One pixel a luma bin: every measure is at its reference, so the walks stop at once, and the dark
        // tones, held to twice theirs, open halfway.
        const Tone flat = AutoTone(MakeImage(KXRectMake(0, 0, 16, 16), depth, 3, 0, lockable,
                                             [](int32_t i) { return std::vector<float>(3, float(i)); }));
        ASSERT_EQ(flat.status, kKXNoErr);
        EXPECT_EQ(flat.black[2], 0.0f);
        EXPECT_EQ(flat.white[2], 1.0f);
        EXPECT_EQ(flat.brightness, 0.0f);
        EXPECT_EQ(flat.contrast, 0.0f);
        EXPECT_EQ(flat.shadows, 0.5f);
        EXPECT_EQ(flat.highlights, 0.0f);
        // 10 of 10,000 pixels at 0 do not exceed the black clip of 10; the 11th, at 5, does. One pixel at
        // 250 does not exceed the white clip of 1; the second, at 240, does.
        for (const float body : {60.0f, 200.0f}) {
            const Tone tone = AutoTone(MakeImage(KXRectMake(-50, 10, 100, 100), depth, 3, 0, lockable, [&](int32_t i) {
                const float level = i < 10    ? 0.0f
                                    : i == 10 ? 5.0f
                                    : i == 11 ? 250.0f
                                    : i == 12 ? 240.0f
                                              : body + float(i % 40);
                return std::vector<float>(3, level);
            }));
            ASSERT_EQ(tone.status, kKXNoErr);
            for (int32_t p = 0; p < 3; ++p) {
                EXPECT_EQ(tone.black[p], 5.0f / 255.0f);
                EXPECT_EQ(tone.white[p], 240.0f / 255.0f);
            }
            // A dark image is brightened, a light one darkened.
            EXPECT_TRUE(body < 128 ? tone.brightness > 0.0f : tone.brightness < 0.0f) << tone.brightness;
            EXPECT_LE(std::fabs(tone.brightness), 1.0f);
            EXPECT_TRUE(tone.shadows >= 0.0f && tone.shadows <= 1.0f && tone.highlights <= 0.0f &&
                        tone.highlights >= -1.0f);
        }
    });
    const Tone refused = AutoTone(TestImage(KXRectMake(0, 0, 4, 4), 8, 1, 0));
    EXPECT_EQ(refused.status, kKXErrUnsupported);
    EXPECT_TRUE(refused.black[1] == 0.0f && refused.white[1] == 1.0f && refused.brightness == 0.0f &&
                refused.contrast == 0.0f && refused.shadows == 0.0f && refused.highlights == 0.0f);
}

// ---- Black and white points ----

TEST(AutoAnalysis, BlackAndWhitePointsClipEachPlaneOrTheirMean)
{
    // 1,200 opaque pixels: red 0..239 five times, green red + 10, blue red + 5; 50 transparent white ones.
    const auto pixel = [](int32_t i) {
        const float r = float(i % 240);
        return i < 1200 ? std::vector<float>{r, r + 10, r + 5, 1} : std::vector<float>{255, 255, 255, 0};
    };
    for (const int32_t depth : {8, 16}) {
        for (const bool lockable : kLockable) {
            SCOPED_TRACE(CaseName(depth, lockable));
            const TestImage image = MakeImage(KXRectMake(3, 3, 50, 25), depth, 4, 1, lockable, pixel);
            float black[3], white[3];
            // Clips of 12 and 24 pixels.
            ASSERT_EQ(KXEffectsBlackAndWhitePointsGetPoints(image, black, white, 0.01f, 0.02f, false), kKXNoErr);
            const float blacks[3] = {2, 12, 7}, whites[3] = {235, 245, 240};
            for (int32_t p = 0; p < 3; ++p) {
                EXPECT_EQ(black[p], blacks[p] / 255.0f);
                EXPECT_EQ(white[p], whites[p] / 255.0f);
            }
            // The mean of the three planes is red + 5.
            ASSERT_EQ(KXEffectsBlackAndWhitePointsGetPoints(image, black, white, 0.01f, 0.02f, true), kKXNoErr);
            for (int32_t p = 0; p < 3; ++p) {
                EXPECT_EQ(black[p], 7.0f / 255.0f);
                EXPECT_EQ(white[p], 240.0f / 255.0f);
            }
            const TestImage solid = MakeImage(KXRectMake(0, 0, 40, 40), depth, 3, 0, lockable, [](int32_t) {
                return std::vector<float>{90, 90, 90};
            });
            const TestImage few = MakeImage(KXRectMake(0, 0, 30, 33), depth, 1, 0, lockable,
                                            [](int32_t i) { return std::vector<float>{float(i % 256)}; });
            for (KXImage* failing : {solid.get(), few.get()}) {
                std::fill(black, black + 3, 0.5f);
                std::fill(white, white + 3, 0.5f);
                EXPECT_EQ(KXEffectsBlackAndWhitePointsGetPoints(failing, black, white, 0.01f, 0.01f, false),
                          kKXErrBadInput);
                const int32_t planes = failing == solid.get() ? 3 : 1;
                for (int32_t p = 0; p < planes; ++p)
                    EXPECT_TRUE(black[p] == 0.0f && white[p] == 1.0f);
            }
        }
    }
    float black[3], white[3];
    EXPECT_EQ(KXEffectsBlackAndWhitePointsGetPoints(TestImage(KXRectMake(0, 0, 40, 40), 32, 3, 0), black, white, 0.01f,
                                                    0.01f, false),
              kKXErrUnsupported);
}

TEST(AutoAnalysis, BlackAndWhitePointsStretchTablesAndPixelsAlike)
{
    const float black[3] = {0.1f, 0.0f, 100.0f / 255.0f}, white[3] = {0.8f, 0.5f, 100.0f / 255.0f};
    std::vector<float> curves(4 * 256, -1.0f);
    ASSERT_EQ(KXEffectsBlackAndWhitePointsMakeCurves(3, curves.data(), black, white), kKXNoErr);
    for (size_t i = 0; i < 256; ++i) {
        const float x = float(i) / 255.0f;
        EXPECT_FLOAT_EQ(curves[i], std::clamp((x - 0.1f) / 0.7f, 0.0f, 1.0f));
        EXPECT_FLOAT_EQ(curves[256 + i], std::min(x * 2.0f, 1.0f));
        // Equal points: a step strictly above them.
        EXPECT_EQ(curves[512 + i], i > 100 ? 1.0f : 0.0f);
    }
    EXPECT_EQ(curves[768], -1.0f);
    EXPECT_EQ(KXEffectsBlackAndWhitePointsMakeCurves(0, nullptr, black, white), kKXNoErr);

    const KXRect bounds = KXRectMake(-4, 0, 9, 6), rect = KXRectMake(-5, 1, 12, 4);
    for (const int32_t depth : {8, 16}) {
        for (const bool lockable : kLockable) {
            SCOPED_TRACE(CaseName(depth, lockable));
            TestImage source(bounds, depth, 4, 1, lockable), destination(bounds, depth, 4, 1, lockable);
            source.FillRandom(5);
            ASSERT_EQ(KXEffectsBlackAndWhitePointsApply(source, destination, &rect, black, white), kKXNoErr);
            const std::vector<float> in = source.Samples(), out = destination.Samples();
            const float w = WhiteOf(depth);
            for (size_t i = size_t(bounds.width) * 4; i < size_t(bounds.width) * 5 * 4; ++i) {
                const size_t plane = i % 4;
                if (plane == 3) {
                    ASSERT_EQ(out[i], in[i]);
                    continue;
                }
                const float unit = UnitOf(in[i], depth);
                const float stretched = (unit - black[plane]) / (white[plane] - black[plane]);
                const float expected =
                    plane == 2 ? (unit > black[2] ? w : 0.0f) : std::round(std::clamp(stretched, 0.0f, 1.0f) * w);
                ASSERT_NEAR(out[i], expected, 1.0f) << i;
            }
        }
    }
    TestImage floats(bounds, 32, 3, 0);
    EXPECT_EQ(KXEffectsBlackAndWhitePointsApply(floats, floats, &rect, black, white), kKXErrUnsupported);
}

// ---- Equalizers ----

// Each stored 8-bit sample of the colour planes against round(cdf x 255 / total), the cdf over all colour
// samples: the equalization read from the histogram directly.
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
        TestImage image(bounds, 8, planes, planes == 4 ? 1 : 0), equalized(bounds, 8, planes, planes == 4 ? 1 : 0);
        image.FillRandom(31);
        ASSERT_EQ(KXEffectsEqualize(image, equalized), kKXNoErr);
        ExpectEqualized8(image.Samples(), equalized.Samples(), planes, planes == 4 ? 3 : 1);
        // The curve form agrees through the curves effect, one channel per colour plane.
        std::vector<float> curves(4 * 256, -1.0f);
        ASSERT_EQ(KXEffectsEqualizeMakeCurves(image, curves.data()), kKXNoErr);
        EXPECT_EQ(curves[planes == 4 ? 768 : 256], -1.0f);
        TestImage tabled(bounds, 8, planes, planes == 4 ? 1 : 0);
        ASSERT_EQ(KXEffectsApplyCurves(image, tabled, &bounds, curves.data()), kKXNoErr);
        const std::vector<float> a = equalized.Samples(), b = tabled.Samples();
        for (size_t i = 0; i < a.size(); ++i)
            ASSERT_NEAR(a[i], b[i], 1.0f) << i;
    }
    ForEachImageKind([&](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        // A single level goes to white, black stays black; a quarter at 60 and the rest at 180 go to 63.75 and white.
        const auto levels = [](float a, float b) {
            return [=](int32_t i) { return std::vector<float>{i % 4 ? b : a, 0.0f}; };
        };
        const float tolerance = depth == 32 ? 1e-5f : 0.5f;
        for (const auto& [pixel, low, high] :
             {std::tuple{levels(0, 37), 0.0f, 255.0f}, std::tuple{levels(60, 180), 63.75f, 255.0f}}) {
            TestImage image = MakeImage(quarters, depth, 2, 1, lockable, pixel);
            ASSERT_EQ(KXEffectsEqualize(image, image), kKXNoErr);
            EXPECT_NEAR(image.At(2, 2, 0), LevelAt(low, depth), tolerance);
            EXPECT_NEAR(image.At(3, 2, 0), LevelAt(high, depth), tolerance);
            EXPECT_EQ(image.At(3, 2, 1), 0.0f);
        }
    });
    // A 16-bit sample keeps its place inside its bin; one high in a low bin passes white and stays white.
    const KXRect row = KXRectMake(0, 0, 2, 1);
    TestImage deep(row, 16, 1, 0);
    deep.SetSamples({33000, 32800});
    ASSERT_EQ(KXEffectsEqualize(deep, deep), kKXNoErr);
    EXPECT_EQ(deep.At(0, 0, 0), 65535.0f);
    EXPECT_EQ(deep.At(1, 0, 0), std::trunc(32800.0f * (255.0f / 128.0f) + 0.5f));
    // Float is not clamped: above white lands in the top bin, whose gain is 1.
    TestImage wide(row, 32, 1, 0);
    wide.SetSamples({1.25f, 0.5f});
    ASSERT_EQ(KXEffectsEqualize(wide, wide), kKXNoErr);
    EXPECT_FLOAT_EQ(wide.At(0, 0, 0), 1.25f);
}

TEST(AutoAnalysis, EqualizeLuminosityKeepsHuesAndMatchesTheGrayEqualizer)
{
    const KXRect bounds = KXRectMake(-3, 1, 10, 6);
    ForEachImageKind([&](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        TestImage image(bounds, depth, 3, 0, lockable), equalized(bounds, depth, 3, 0, lockable);
        image.FillRandom(11);
        ASSERT_EQ(KXEffectsEqualizeLuminosity(image, equalized), kKXNoErr);
        const std::vector<float> in = image.Samples(), out = equalized.Samples();
        const float w = WhiteOf(depth);
        for (size_t at = 0; at < in.size(); at += 3) {
            // The gain read off the largest plane of an unclipped pixel serves the other two.
            const size_t top = at + size_t(std::max_element(&in[at], &in[at] + 3) - &in[at]);
            if (in[top] < 0.1f * w || std::max({out[at], out[at + 1], out[at + 2]}) >= w)
                continue;
            const float gain = out[top] / in[top];
            for (size_t c = at; c < at + 3; ++c)
                ASSERT_NEAR(out[c], in[c] * gain, depth == 32 ? 1e-5f : 1.0f) << c;
        }
        // Gray RGB pixels have their level as luma, so the luma and plain equalizers agree.
        const auto grays = [](int32_t i) { return std::vector<float>(3, float(i * 37 % 256)); };
        TestImage gray = MakeImage(bounds, depth, 3, 0, lockable, grays),
                  a = MakeImage(bounds, depth, 3, 0, lockable, grays);
        TestImage b = MakeImage(bounds, depth, 3, 0, lockable, grays);
        ASSERT_EQ(KXEffectsEqualizeLuminosity(gray, a), kKXNoErr);
        ASSERT_EQ(KXEffectsEqualize(gray, b), kKXNoErr);
        const std::vector<float> byLuma = a.Samples(), plain = b.Samples();
        for (size_t i = 0; i < byLuma.size(); ++i)
            ASSERT_NEAR(byLuma[i], plain[i], depth == 32 ? 1e-5f : 1.0f) << i;
    });
    // A gray colour space takes the plain equalizer; other spaces are refused.
    TestImage gray(bounds, 8, 1, 0), plain(bounds, 8, 1, 0), byLuma(bounds, 8, 1, 0);
    gray.FillRandom(2);
    ASSERT_EQ(KXEffectsEqualize(gray, plain), kKXNoErr);
    ASSERT_EQ(KXEffectsEqualizeLuminosity(gray, byLuma), kKXNoErr);
    EXPECT_EQ(plain.Samples(), byLuma.Samples());
    TestImage other(bounds, 8, 3, 0, true, 3);
    EXPECT_EQ(KXEffectsEqualizeLuminosity(other, other), kKXErrBadImageFormat);
}

TEST(AutoAnalysis, NullPointersAreBadParams)
{
    TestImage image(KXRectMake(0, 0, 16, 16), 8, 3, 0);
    const KXRect rect = image.Bounds();
    float values[4];
    EXPECT_EQ(KXEffectsAnalyzeImage(image, &rect, nullptr, values), kKXErrBadParam);
    EXPECT_EQ(KXEffectsAutoColorMakeCurves(nullptr, values), kKXErrBadParam);
    EXPECT_EQ(KXEffectsAutoColorTemperatureAndTint(image, values, nullptr), kKXErrBadParam);
    EXPECT_EQ(KXEffectsAutoTone(image, values, values, values, values, values, nullptr), kKXErrBadParam);
    EXPECT_EQ(KXEffectsBlackAndWhitePointsGetPoints(image, values, nullptr, 0, 0, false), kKXErrBadParam);
    EXPECT_EQ(KXEffectsBlackAndWhitePointsMakeCurves(1, values, nullptr, values), kKXErrBadParam);
    EXPECT_EQ(KXEffectsBlackAndWhitePointsApply(image, image, nullptr, values, values), kKXErrBadParam);
    EXPECT_EQ(KXEffectsEqualize(image, nullptr), kKXErrBadParam);
    EXPECT_EQ(KXEffectsEqualizeLuminosity(nullptr, image), kKXErrBadParam);
    EXPECT_EQ(KXEffectsEqualizeMakeCurves(image, nullptr), kKXErrBadParam);
}

} // namespace
