// Flat colour fills and solarize.
#include "TestImages.h"

#include <gtest/gtest.h>

namespace {

const KXRect kBounds = KXRectMake(100, 50, 9, 3);

TEST(FillColor, StoresTheConvertedColourInEveryPlaneInsideTheImageOnly)
{
    // 0.25 x 255 + 0.5 = 64.25 and 0.75 x 65535 + 0.5 = 49151.75 truncate; 1.5 and -0.5 wrap.
    const float color[] = {0.5f, 0.25f, 1.5f, 0.75f};
    const std::vector<float> expected[] = {{128, 64, 127, 191}, {32768, 16384, 32767, 49151}, {0.5f, 0.25f, 1.5f, 0.75f}};
    const float negative = -0.5f;
    const float negativeExpected[] = {129, 32769, -0.5f};
    ForEachImageKind([&](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        const size_t d = depth == 8 ? 0 : depth == 16 ? 1 : 2;
        TestImage image(kBounds, depth, 4, 1, lockable);
        image.FillRandom(1);
        const auto before = image.Samples();
        const KXRect rect = KXRectMake(104, 47, 20, 5); // columns 104..108, rows 50..51 inside
        ASSERT_EQ(KXEffectsFillColor(image, &rect, color), kKXNoErr);
        for (int32_t y = 50; y < 53; ++y)
            for (int32_t x = 100; x < 109; ++x)
                for (int32_t p = 0; p < 4; ++p) {
                    const bool inside = x >= 104 && y < 52;
                    const float old = before[size_t(((y - 50) * 9 + x - 100) * 4 + p)];
                    ASSERT_EQ(image.At(x, y, p), inside ? expected[d][p] : old) << x << "," << y << "," << p;
                }
        TestImage gray(kBounds, depth, 1, 0, lockable);
        ASSERT_EQ(KXEffectsFillColor(gray, &kBounds, &negative), kKXNoErr);
        EXPECT_EQ(gray.Samples(), std::vector<float>(27, negativeExpected[d]));
        const KXRect empty = KXRectMake(101, 50, -3, 2);
        ASSERT_EQ(KXEffectsFillColor(gray, &empty, color), kKXNoErr);
        EXPECT_EQ(gray.Samples(), std::vector<float>(27, negativeExpected[d]));
    });
    EXPECT_EQ(KXEffectsFillColor(nullptr, &kBounds, color), kKXErrBadParam);
}

TEST(Solarize, FoldsTheUpperHalfAndCarriesAlpha)
{
    // Per depth: inputs and their results; the middle itself stays, one step above folds below it.
    const std::vector<float> inputs[] = {{0, 127, 128, 200, 255},
                                         {0, 32767, 32768, 40000, 65535},
                                         {-0.25f, 0.5f, 0.5000001f, 0.75f, 1.5f}};
    const std::vector<float> results[] = {{0, 127, 127, 55, 0},
                                          {0, 32767, 32767, 25535, 0},
                                          {-0.25f, 0.5f, 1.0f - 0.5000001f, 0.25f, -0.5f}};
    ForEachImageKind([&](int32_t depth, bool lockable) {
        const size_t d = depth == 8 ? 0 : depth == 16 ? 1 : 2;
        for (bool inPlace : {false, true}) {
            SCOPED_TRACE(CaseName(depth, lockable, inPlace ? "in place" : ""));
            const KXRect bounds = KXRectMake(-2, 7, 5, 1);
            TestImage source(bounds, depth, 4, 1, lockable), other(bounds, depth, 4, 1, !lockable);
            std::vector<float> samples, expected;
            for (size_t i = 0; i < 5; ++i) {
                const float alpha = inputs[d][(i + 3) % 5];
                samples.insert(samples.end(), {inputs[d][i], inputs[d][4 - i], inputs[d][i], alpha});
                expected.insert(expected.end(), {results[d][i], results[d][4 - i], results[d][i], alpha});
            }
            source.SetSamples(samples);
            TestImage& destination = inPlace ? source : other;
            ASSERT_EQ(KXEffectsSolarize(source, destination, &bounds), kKXNoErr);
            EXPECT_EQ(destination.Samples(), expected);
        }
    });
    EXPECT_EQ(KXEffectsSolarize(nullptr, nullptr, &kBounds), kKXErrBadParam);
}

} // namespace
