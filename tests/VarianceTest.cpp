// Variance: the deviation worked by hand on one bright column, and flat areas.
#include "TestImages.h"

#include <cmath>

namespace {

// A row 0, v, 0: every 3 x 3 window holds v three times in nine, so the deviation is sqrt(2) / 3 x v:
// 42 at 8 bits (v 90) and 10904 at 16 bits (v 23130).
TEST(Variance, OneBrightColumnDeviatesBySqrtTwoThirdsOfItAndFlatAreasNotAtAll)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        TestImage image(KXRectMake(4, -1, 3, 1), depth, 1, 0, lockable);
        image.SetSamples({0.0f, LevelAt(90, depth), 0.0f});
        const KXRect rect = image.Bounds();
        const TestImage result(rect, depth, 1, 0, lockable);
        ASSERT_EQ(KXEffectsVariance(image, result, &rect, 1), kKXNoErr);
        const float expected = depth == 8 ? 42.0f : depth == 16 ? 10904.0f : std::sqrt(2.0f) / 3.0f * LevelAt(90, 32);
        ExpectRegion(result, rect, depth == 32 ? 1e-5f : 0.0f, [&](int32_t, int32_t, int32_t) { return expected; });
        // A flat area has none, not the root of a rounding error; at 16 bits the mean of the squares goes
        // through float and keeps 1000000 exact.
        KXImageFill(image, depth == 32 ? 0.6f : depth == 16 ? 1000.0f : 153.0f);
        ASSERT_EQ(KXEffectsVariance(image, image, &rect, 1), kKXNoErr);
        EXPECT_EQ(image.Samples(), std::vector<float>(3, 0.0f));
    });
}

// A rectangle of negative width covers no pixel, also on images without a locked buffer and with alpha.
TEST(Variance, NegativeWidthChangesNothing)
{
    for (int32_t depth : kDepths) {
        SCOPED_TRACE(CaseName(depth, false));
        const TestImage source = RandomImage(depth, false, 82, 4);
        TestImage result = RandomImage(depth, false, 83, 4);
        const std::vector<float> before = result.Samples();
        const KXRect negative = KXRectMake(8, 0, -2, 3);
        ASSERT_EQ(KXEffectsVariance(source, result, &negative, 1), kKXNoErr);
        EXPECT_EQ(result.Samples(), before);
    }
}

} // namespace
