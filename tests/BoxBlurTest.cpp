// Box blurs: OpenCV's box filter, window means worked by hand around one bright pixel (amount, offset,
// threshold, free windows), the statuses and the accumulator bounds.
#include "TestImages.h"

#include <opencv2/imgproc.hpp>

namespace {

const KXRect kBounds = KXRectMake(3, -2, 7, 5);

TEST(BoxBlur, MatchesOpenCVBlurWithReplicatedBorders)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        const TestImage source = RandomImage(depth, lockable, 41, 4, KXRectMake(-4, 9, 63, 41));
        const TestImage destination = source.Like();
        const KXRect bounds = source.Bounds();
        std::vector<float> samples = source.Samples();
        const cv::Mat in(bounds.height, bounds.width, CV_32FC4, samples.data());
        for (int32_t radius : {1, 5, 20}) {
            SCOPED_TRACE(radius);
            ASSERT_EQ(KXEffectsBoxBlur(source, destination, &bounds, radius), kKXNoErr);
            cv::Mat expected;
            cv::blur(in, expected, cv::Size(2 * radius + 1, 2 * radius + 1), cv::Point(-1, -1), cv::BORDER_REPLICATE);
            ExpectRegion(destination, bounds, depth == 32 ? 1e-5f : 1.0f, [&](int32_t x, int32_t y, int32_t p) {
                return (p == 3 ? in : expected).at<cv::Vec4f>(y - bounds.y, x - bounds.x)[p]; // alpha is the source's
            });
        }
    });
}

bool Within(int32_t x, int32_t y, int32_t left, int32_t top, int32_t right, int32_t bottom)
{
    return x >= left && x <= right && y >= top && y <= bottom;
}

// Black with one pixel of level 90 at (6, 0) and alpha 200 there: a 3 x 3 window over it has the mean 10.
TEST(BoxBlur, WindowMeansAroundOneBrightPixel)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        TestImage source(kBounds, depth, 4, 1, lockable);
        KXImageFill(source, 0.0f);
        source.Set(6, 0, {LevelAt(90, depth), LevelAt(90, depth), LevelAt(90, depth), LevelAt(200, depth)});
        const TestImage destination = source.Like();
        const Pixels in(source);
        const auto expectLevels = [&](int32_t dx, int32_t dy, const std::function<float(int32_t, int32_t)>& level) {
            ExpectRegion(destination, kBounds, depth == 32 ? 1e-6f : 0.0f, [&](int32_t x, int32_t y, int32_t p) {
                return p == 3 ? in.At(x + dx, y + dy, p) : LevelAt(level(x + dx, y + dy), depth);
            });
        };
        // Amount 0.6: the bright pixel keeps 90 x 0.4 and gains 10 x 0.6, its neighbours take 6. The offset
        // (2, -1) writes the result for (x + 2, y - 1) at (x, y).
        const KXRect shifted = KXRectMake(kBounds.x + 2, kBounds.y - 1, kBounds.width, kBounds.height);
        ASSERT_EQ(KXEffectsBoxBlurWithOffsetAndAmount(source, destination, &shifted, 1, KXPointMake(2, -1), 0.6f), 0);
        expectLevels(2, -1, [](int32_t x, int32_t y) { return x == 6 && y == 0 ? 42 : Within(x, y, 5, -1, 7, 1) * 6; });
        // Threshold 0.1 of white: only the bright pixel lies that far from its mean.
        ASSERT_EQ(KXEffectsBoxBlurWithThreshold(source, destination, &kBounds, 1, 0.1f), kKXNoErr);
        expectLevels(0, 0, [](int32_t x, int32_t y) { return x == 6 && y == 0 ? 10.0f : 0.0f; });
        // Columns -2..0 and rows 1..3 from the pixel, which does not hold it: the bright pixel reaches the
        // pixels up to three rows above it and two columns right.
        ASSERT_EQ(KXEffectsBoxBlurWithAmount(source, destination, &kBounds, -2, 0, 1, 3, 1.0f), kKXNoErr);
        expectLevels(0, 0, [](int32_t x, int32_t y) { return Within(x, y, 6, -3, 8, -1) ? 10.0f : 0.0f; });
        EXPECT_EQ(KXEffectsBoxBlur(source, nullptr, &kBounds, 2), kKXErrBadParam);
        EXPECT_EQ(KXEffectsBoxBlurWithAmount(source, source, &kBounds, 1, 0, 0, 0, 1.0f), kKXErrNoResource); // in place
    });
}

TEST(BoxBlur, AccumulatorsWidenWithTheArea)
{
    // White stays white only if the sums hold area x white: narrow up to the bound, wide beyond it.
    const KXRect one = KXRectMake(0, 0, 1, 1);
    for (const auto& [depth, radius] : {std::pair{8, 2051}, {8, 2052}, {16, 127}, {16, 128}}) {
        TestImage image(KXRectMake(0, 0, 2, 2), depth, 1, 0);
        KXImageFill(image, WhiteOf(depth));
        ASSERT_EQ(KXEffectsBoxBlur(image, image, &one, radius), kKXNoErr);
        EXPECT_EQ(image.At(0, 0, 0), WhiteOf(depth)) << depth << " bits, radius " << radius;
    }
    // The free-window entry always sums in 32 bits: 257 x 257 x 65535 wraps to 33553919.
    TestImage image(KXRectMake(0, 0, 2, 2), 16, 1, 0);
    KXImageFill(image, 65535.0f);
    ASSERT_EQ(KXEffectsBoxBlurWithAmount(image, image, &one, -128, 128, -128, 128, 1.0f), kKXNoErr);
    EXPECT_EQ(image.At(0, 0, 0), StoredOf(33553919.0f * (1.0f / 66049.0f), 16, true));
}

// An amount far beyond 1 (not clamped) drives the mix past 32 bits; integer samples take the processor's
// conversion of such a value, which wraps to 0, and alpha stays.
TEST(BoxBlur, AbsurdAmountsStoreAsTheProcessorConverts)
{
    for (const int32_t depth : {8, 16}) {
        TestImage source(kBounds, depth, 4, 1);
        KXImageFill(source, 0.0f);
        source.Set(6, 0, {LevelAt(90, depth), LevelAt(90, depth), LevelAt(90, depth), LevelAt(200, depth)});
        const TestImage destination = source.Like();
        for (const float amount : {1e30f, -1e30f}) {
            ASSERT_EQ(KXEffectsBoxBlurWithAmount(source, destination, &kBounds, -1, 1, -1, 1, amount), kKXNoErr);
            const Pixels in(source);
            ExpectRegion(destination, kBounds, 0.0f,
                         [&](int32_t x, int32_t y, int32_t p) { return p == 3 ? in.At(x, y, p) : 0.0f; });
        }
    }
}

} // namespace
