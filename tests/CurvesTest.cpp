// Curve tables, their algebra, their application at every depth, and the midtone shaper.
#include "KXEffectsToneCurves.h"
#include "TestImages.h"

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <bit>

namespace {

const KXRect kBounds = KXRectMake(100, 50, 63, 4);

std::vector<float> RandomCurves(uint32_t seed, float low, float high)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> value(low, high);
    std::vector<float> curves(4 * 256);
    for (float& entry : curves)
        entry = value(generator);
    return curves;
}

// The lookup and the six per-sample formulas, spelled out independently of the library's kernels.
float Lookup(const float* table, float position)
{
    const int32_t i = std::min(int32_t(position), 254);
    const float f = position - float(i);
    return (1.0f - f) * table[i] + f * table[i + 1];
}

float ExpectedSample(int32_t depth, const float* table, float in, float a)
{
    if (depth == 8)
        return uint8_t(int32_t(a >= 1.0f ? table[int32_t(in)] * 255.0f + 0.5f
                                         : a * 255.0f * table[int32_t(in)] + in * (1.0f - a) + 0.5f));
    if (depth == 16) {
        const float value = Lookup(table, in * std::bit_cast<float>(0x3B7F00FFu)); // 255 / 65535
        return uint16_t(int32_t(a >= 1.0f ? value * 65535.0f + 0.5f : value * (a * 65535.0f) + in * (1.0f - a) + 0.5f));
    }
    const float value = Lookup(table, in * 255.0f);
    return a >= 1.0f ? value : value * a + in * (1.0f - a);
}

TEST(Curves, TableAlgebraIsExact)
{
    std::vector<float> curves(4 * 256 + 1, -7.0f);
    EXPECT_EQ(KXEffectsInitCurves(0, curves.data()), kKXNoErr);
    EXPECT_EQ(curves[0], -7.0f);
    KXEffectsInitCurves(4, curves.data());
    for (int32_t i = 0; i < 4 * 256; ++i)
        ASSERT_EQ(curves[i], float(i % 256) / 255.0f);
    EXPECT_EQ(curves[255], 1.0f);
    EXPECT_EQ(curves[4 * 256], -7.0f);

    // Identity second curve returns first; a first value above 1 extrapolates the second.
    std::vector<float> first = RandomCurves(1, 0.0f, 1.0f), result(4 * 256);
    first[5] = 1.5f;
    ASSERT_EQ(KXEffectsConcatCurves(4, first.data(), curves.data(), result.data()), kKXNoErr);
    for (int32_t i = 0; i < 4 * 256; ++i)
        ASSERT_NEAR(result[i], first[i], 1e-6f) << i;
    // Applied in place over first, and with first the identity: second comes back.
    const std::vector<float> second = RandomCurves(2, 0.0f, 1.0f);
    std::vector<float> inPlace = curves;
    KXEffectsConcatCurves(4, inPlace.data(), second.data(), inPlace.data());
    for (int32_t i = 0; i < 4 * 256; ++i)
        ASSERT_NEAR(inPlace[i], second[i], 1e-5f) << i;
    EXPECT_EQ(KXEffectsConcatCurves(0, first.data(), second.data(), curves.data()), kKXNoErr);
    EXPECT_EQ(curves[1], 1.0f / 255.0f);

    // Resize: the ends come through bit for bit, a ramp resamples exactly, same size is a copy.
    float resized[256];
    KXEffectsResizeCurve(256, second.data(), 2, resized);
    EXPECT_EQ(resized[0], second[0]);
    EXPECT_EQ(resized[1], second[255]);
    const float ramp[2] = {0.0f, 1.0f};
    KXEffectsResizeCurve(2, ramp, 5, resized);
    EXPECT_EQ(std::vector<float>(resized, resized + 5), (std::vector<float>{0.0f, 0.25f, 0.5f, 0.75f, 1.0f}));
    KXEffectsResizeCurve(256, second.data(), 256, resized);
    EXPECT_EQ(std::vector<float>(resized, resized + 256), std::vector<float>(second.begin(), second.begin() + 256));
    KXEffectsResizeCurve(2, ramp, 1, resized);
    EXPECT_EQ(resized[0], 1.0f);
}

TEST(Curves, MidtoneCurveValueIsAnSCurveFixedAtItsEnds)
{
    for (float g : {-3.0f, -1.0f, -0.2f, 0.0f, 0.4f, 1.0f, 5.0f}) {
        EXPECT_EQ(MidtoneCurveValue(0.0f, g), 0.0f);
        EXPECT_EQ(MidtoneCurveValue(0.5f, g), 0.5f);
        EXPECT_EQ(MidtoneCurveValue(1.0f, g), 1.0f);
        for (float x = 0.0f; x <= 1.0f; x += 1.0f / 64.0f)
            EXPECT_NEAR(MidtoneCurveValue(x, g) + MidtoneCurveValue(1.0f - x, g), 1.0f, 1e-6f);
    }
    EXPECT_EQ(MidtoneCurveValue(0.25f, 0.0f), 0.25f);
    EXPECT_EQ(MidtoneCurveValue(0.25f, 1.0f), 0.1875f);  // k 2: (4x^2 - 2x + 1) x
    EXPECT_EQ(MidtoneCurveValue(0.25f, -1.0f), 0.28125f); // k 1/2: (-2x^2 + x + 1) x
    EXPECT_EQ(MidtoneCurveValue(0.75f, 1.0f), 0.8125f);
}

// Every kernel against its formula, over gray, RGB and RGBA, on both image kinds, in place and not.
TEST(Curves, EveryKernelFollowsItsFormulaAndCarriesAlpha)
{
    const auto curves = RandomCurves(3, -0.3f, 1.3f); // outside 0..1 wraps in integer images
    const std::pair<int32_t, int32_t> layouts[] = {{4, 1}, {3, 0}, {1, 0}, {2, 1}};
    ForEachImageKind([&](int32_t depth, bool lockable) {
        for (auto [planes, transparency] : layouts)
            for (float amount : {0.3f, 0.999f, 1.0f, 2.0f})
                for (bool inPlace : {false, true}) {
                    SCOPED_TRACE(CaseName(depth, lockable) + std::to_string(planes) + " planes, amount " +
                                 std::to_string(amount) + (inPlace ? " in place" : ""));
                    TestImage source(kBounds, depth, planes, transparency, lockable);
                    TestImage other(kBounds, depth, planes, transparency, !lockable);
                    source.FillRandom(4);
                    const auto in = source.Samples();
                    auto expected = in;
                    for (size_t i = 0; i < in.size(); ++i)
                        if (!transparency || int32_t(i % planes) != planes - 1)
                            expected[i] = ExpectedSample(depth, &curves[(i % planes) * 256], in[i], amount);
                    TestImage& destination = inPlace ? source : other;
                    ASSERT_EQ(KXEffectsApplyCurvesWithAmount(source, destination, &kBounds, curves.data(), amount),
                              kKXNoErr);
                    ASSERT_EQ(destination.Samples(), expected);
                }
    });
}

TEST(Curves, IdentityWrapsExtrapolationAndCopies)
{
    std::vector<float> identity(4 * 256);
    KXEffectsInitCurves(4, identity.data());
    const KXRect row = KXRectMake(0, 0, 256, 1);
    for (bool lockable : kLockable) {
        TestImage bytes(row, 8, 1, 0, lockable), words(row, 16, 1, 0, lockable), floats(row, 32, 1, 0, lockable);
        std::vector<float> values(256);
        for (int32_t i = 0; i < 256; ++i)
            values[i] = float(i);
        bytes.SetSamples(values);
        ASSERT_EQ(KXEffectsApplyCurves(bytes, bytes, &row, identity.data()), kKXNoErr);
        EXPECT_EQ(bytes.Samples(), values);
        // 16-bit samples just below the nodes, then white, which lands on f = 1 of the top segment.
        for (int32_t i = 0; i < 256; ++i)
            values[i] = float(i * 257 - (i > 0));
        values[255] = 65535.0f;
        words.SetSamples(values);
        KXEffectsApplyCurves(words, words, &row, identity.data());
        EXPECT_EQ(words.Samples(), values);
        floats.Set(0, 0, {1.5f});
        KXEffectsApplyCurves(floats, floats, &row, identity.data());
        EXPECT_FLOAT_EQ(floats.At(0, 0, 0), 1.5f);

        // Table values outside 0..1 wrap as integers: 2.0 -> 510 or 131070, -0.5 -> -127, 1.5 -> 98303.
        std::vector<float> wild = {2.0f, -0.5f};
        wild.resize(256, 1.5f);
        bytes.Set(0, 0, {0.0f});
        bytes.Set(1, 0, {1.0f});
        words.Set(0, 0, {0.0f});
        KXEffectsApplyCurves(bytes, bytes, &row, wild.data());
        KXEffectsApplyCurves(words, words, &row, wild.data());
        EXPECT_EQ(bytes.At(0, 0, 0), 254.0f);
        EXPECT_EQ(bytes.At(1, 0, 0), 129.0f);
        EXPECT_EQ(words.At(0, 0, 0), 65534.0f);
        EXPECT_EQ(words.At(255, 0, 0), 32767.0f);

        // No amount is a plain copy of the part of the rectangle inside the image.
        for (float amount : {0.0f, -1.0f}) {
            TestImage copy(row, 16, 1, 0, !lockable);
            copy.FillRandom(5);
            const KXRect part = KXRectMake(-3, 0, 10, 1);
            ASSERT_EQ(KXEffectsApplyCurvesWithAmount(words, copy, &part, wild.data(), amount), kKXNoErr);
            for (int32_t x = 0; x < 7; ++x)
                EXPECT_EQ(copy.At(x, 0, 0), words.At(x, 0, 0));
        }
    }
    EXPECT_EQ(KXEffectsApplyCurves(nullptr, nullptr, &row, identity.data()), kKXErrBadParam);
}

// Full 8-bit curves are a byte table lookup: OpenCV's LUT over the rounded table gives the same image.
TEST(Curves, EightBitMatchesOpenCVLookUpTable)
{
    const auto curves = RandomCurves(6, 0.0f, 1.0f);
    cv::Mat lut(1, 256, CV_8UC4);
    for (int32_t i = 0; i < 256; ++i)
        for (int32_t c = 0; c < 4; ++c)
            lut.at<cv::Vec4b>(0, i)[c] = c == 3 ? uint8_t(i) : uint8_t(curves[c * 256 + i] * 255.0f + 0.5f);
    for (bool lockable : kLockable) {
        TestImage image(kBounds, 8, 4, 1, lockable);
        image.FillRandom(7);
        const auto before = image.Samples();
        cv::Mat pixels(kBounds.height, kBounds.width, CV_8UC4), expected;
        std::copy(before.begin(), before.end(), pixels.data);
        cv::LUT(pixels, lut, expected);
        ASSERT_EQ(KXEffectsApplyCurves(image, image, &kBounds, curves.data()), kKXNoErr);
        EXPECT_EQ(image.Samples(), std::vector<float>(expected.data, expected.data + expected.total() * 4));
    }
}

} // namespace
