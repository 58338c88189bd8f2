// Curve tables, their algebra, their application at every depth and layout, and the midtone shaper.
#include "KXEffectsToneCurves.h"
#include "TestImages.h"

#include <opencv2/core.hpp>

#include <cmath>

namespace {

const KXRect kBounds = KXRectMake(100, 50, 63, 4);

std::vector<float> RandomCurves(uint32_t seed)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> value(0.0f, 1.0f);
    std::vector<float> curves(4 * 256);
    for (float& entry : curves)
        entry = value(generator);
    return curves;
}

TEST(Curves, TableAlgebra)
{
    std::vector<float> identity(4 * 256 + 1, -7.0f), result(4 * 256);
    KXEffectsInitCurves(4, identity.data());
    for (int32_t i = 0; i < 4 * 256; ++i)
        ASSERT_EQ(identity[size_t(i)], float(i % 256) / 255.0f);
    EXPECT_EQ(identity[4 * 256], -7.0f);
    // An identity on either side gives the other curve back, in place too; a first value above 1
    // extrapolates the identity.
    std::vector<float> first = RandomCurves(1);
    first[5] = 1.5f;
    ASSERT_EQ(KXEffectsConcatCurves(4, first.data(), identity.data(), result.data()), kKXNoErr);
    for (size_t i = 0; i < result.size(); ++i)
        ASSERT_NEAR(result[i], first[i], 1e-6f) << i;
    result.assign(identity.begin(), identity.end() - 1);
    KXEffectsConcatCurves(4, result.data(), first.data(), result.data());
    for (size_t i = 0; i < result.size(); ++i)
        ASSERT_NEAR(result[i], first[i], 1e-5f) << i;
    // Resize: a ramp resamples exactly.
    const float ramp[2] = {0.0f, 1.0f};
    KXEffectsResizeCurve(2, ramp, 5, result.data());
    EXPECT_EQ(std::vector<float>(result.begin(), result.begin() + 5), (std::vector<float>{0, 0.25f, 0.5f, 0.75f, 1}));
}

// The midtone shaper fixes 0, 1/2 and 1; g 1 makes k 2: (4x^2 - 2x + 1) x, and g -1 k 1/2: (-2x^2 + x + 1) x.
TEST(Curves, MidtoneCurveValueIsAnSCurveFixedAtItsEnds)
{
    EXPECT_EQ(std::vector<float>({MidtoneCurveValue(0.0f, 3), MidtoneCurveValue(0.5f, 3), MidtoneCurveValue(1.0f, 3)}),
              std::vector<float>({0.0f, 0.5f, 1.0f}));
    EXPECT_EQ(MidtoneCurveValue(0.25f, 1.0f), 0.1875f);
    EXPECT_EQ(MidtoneCurveValue(0.25f, -1.0f), 0.28125f);
}

// Linear curves interpolate exactly, so colour plane c becomes its sample times slope c; below amount 1 the
// result mixes with the sample. Alpha is carried.
TEST(Curves, EveryLayoutTakesOneCurveAPlaneMixedByAmount)
{
    const float slopes[4] = {0.5f, 0.75f, 0.25f, 0.6f};
    std::vector<float> curves(4 * 256);
    for (size_t i = 0; i < curves.size(); ++i)
        curves[i] = float(i % 256) / 255.0f * slopes[i / 256];
    const std::pair<int32_t, int32_t> layouts[] = {{4, 1}, {3, 0}, {1, 0}, {2, 1}};
    ForEachImageKind([&](int32_t depth, bool lockable) {
        for (const auto& [planes, transparency] : layouts)
            for (float amount : {0.3f, 1.0f, 2.0f}) {
                SCOPED_TRACE(std::to_string(planes) + " planes, amount " + std::to_string(amount));
                TestImage source(kBounds, depth, planes, transparency, lockable);
                source.FillRandom(4);
                const TestImage destination(kBounds, depth, planes, transparency, !lockable);
                ASSERT_EQ(KXEffectsApplyCurvesWithAmount(source, destination, &kBounds, curves.data(), amount), 0);
                const Pixels in(source);
                const float a = std::min(amount, 1.0f);
                ExpectRegion(destination, kBounds, depth == 32 ? 1e-6f : 1.0f, [&](int32_t x, int32_t y, int32_t p) {
                    const float s = in.At(x, y, p);
                    return transparency && p == planes - 1 ? s : s * slopes[p] * a + s * (1.0f - a);
                });
            }
    });
}

// The identity keeps every 8-bit level, and 16-bit samples just below the nodes and white (f = 1 of the
// top segment). Table values outside 0..1 wrap as integers: 2.0 -> 510 or 131070,
// -0.5 -> -127, 1.5 -> 98303.
TEST(Curves, IdentityAndWrappingTables)
{
    std::vector<float> identity(4 * 256), wild = {2.0f, -0.5f}, bytes(256), words(256);
    KXEffectsInitCurves(4, identity.data());
    wild.resize(256, 1.5f);
    for (int32_t i = 0; i < 256; ++i) {
        bytes[size_t(i)] = float(i);
        words[size_t(i)] = i == 255 ? 65535.0f : float(i * 257 - (i > 0));
    }
    for (bool lockable : kLockable) {
        const KXRect row = KXRectMake(0, 0, 256, 1);
        TestImage eight(row, 8, 1, 0, lockable), sixteen(row, 16, 1, 0, lockable);
        eight.SetSamples(bytes);
        sixteen.SetSamples(words);
        for (TestImage* image : {&eight, &sixteen})
            ASSERT_EQ(KXEffectsApplyCurves(*image, *image, &row, identity.data()), kKXNoErr);
        EXPECT_EQ(eight.Samples(), bytes);
        EXPECT_EQ(sixteen.Samples(), words);
        for (TestImage* image : {&eight, &sixteen})
            ASSERT_EQ(KXEffectsApplyCurves(*image, *image, &row, wild.data()), kKXNoErr);
        EXPECT_EQ(std::vector<float>(
                      {eight.At(0, 0, 0), eight.At(1, 0, 0), sixteen.At(0, 0, 0), sixteen.At(255, 0, 0)}),
                  std::vector<float>({254.0f, 129.0f, 65534.0f, 32767.0f}));
    }
    EXPECT_EQ(KXEffectsApplyCurves(nullptr, nullptr, &kBounds, identity.data()), kKXErrBadParam);
}

// Full 8-bit curves are a byte table lookup: OpenCV's LUT over the rounded table gives the same image.
TEST(Curves, EightBitMatchesOpenCVLookUpTable)
{
    const auto curves = RandomCurves(6);
    cv::Mat lut(1, 256, CV_8UC4);
    for (int32_t i = 0; i < 256; ++i)
        for (int32_t c = 0; c < 4; ++c)
            lut.at<cv::Vec4b>(0, i)[c] = c == 3 ? uint8_t(i) : uint8_t(curves[size_t(c * 256 + i)] * 255.0f + 0.5f);
    for (bool lockable : kLockable) {
        const TestImage image = RandomImage(8, lockable, 7, 4, kBounds);
        const auto before = image.Samples();
        cv::Mat pixels(kBounds.height, kBounds.width, CV_8UC4), expected;
        std::copy(before.begin(), before.end(), pixels.data);
        cv::LUT(pixels, lut, expected);
        ASSERT_EQ(KXEffectsApplyCurves(image, image, &kBounds, curves.data()), kKXNoErr);
        EXPECT_EQ(image.Samples(), std::vector<float>(expected.data, expected.data + expected.total() * 4));
    }
}

// Float samples far beyond the table, or NaN, extrapolate its end segments: the identity keeps them.
TEST(Curves, FloatSamplesBeyondThirtyTwoBitPositionsExtrapolate)
{
    std::vector<float> identity(256);
    KXEffectsInitCurves(1, identity.data());
    const KXRect row = KXRectMake(0, 0, 3, 1);
    TestImage image(row, 32, 1, 0);
    image.SetSamples({3e9f, -3e9f, std::nanf("")});
    ASSERT_EQ(KXEffectsApplyCurves(image, image, &row, identity.data()), kKXNoErr);
    EXPECT_NEAR(image.At(0, 0, 0), 3e9f, 3e4f);
    EXPECT_NEAR(image.At(1, 0, 0), -3e9f, 3e4f);
    EXPECT_TRUE(std::isnan(image.At(2, 0, 0)));
}

} // namespace
