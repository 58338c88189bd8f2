// Median and dust and scratch: OpenCV's median, the count type at the bounds of the window area, outlier
// replacement worked by hand, and the refusal of float samples.
#include "TestImages.h"

#include <opencv2/imgproc.hpp>

namespace {

// OpenCV replicates the border as the views do; at 16 bits it takes kernel sizes 3 and 5 only.
TEST(Median, MatchesOpenCVMedianBlur)
{
    for (int32_t depth : {8, 16})
        for (bool lockable : kLockable)
            for (int32_t radius : {1, 2, 3, 7}) {
                if (depth == 16 && radius > 2)
                    continue;
                SCOPED_TRACE(CaseName(depth, lockable, "radius " + std::to_string(radius)));
                const TestImage source = RandomImage(depth, lockable, 40, 4, KXRectMake(-6, 2, 37, 21));
                const TestImage result = source.Like();
                const KXRect rect = source.Bounds();
                std::vector<float> samples = source.Samples();
                cv::Mat image, expected, wide;
                cv::Mat(rect.height, rect.width, CV_32FC4, samples.data())
                    .convertTo(image, depth == 8 ? CV_8UC4 : CV_16UC4);
                cv::medianBlur(image, expected, 2 * radius + 1);
                expected.convertTo(wide, CV_32FC4);
                ASSERT_EQ(KXEffectsMedian(source, result, &rect, radius), kKXNoErr);
                const Pixels in(source);
                ExpectRegion(result, rect, 0.0f, [&](int32_t x, int32_t y, int32_t c) {
                    return c == 3 ? in.At(x, y, c) : wide.at<cv::Vec4f>(y - rect.y, x - rect.x)[c];
                });
            }
}

// The window area picks 8-, 16- or 32-bit counts. On a flat image with one outlier the flat value fills
// nearly the whole window, and a count type too narrow for the area wraps it.
TEST(Median, CountTypeHoldsTheWholeWindow)
{
    for (int32_t depth : {8, 16})
        for (int32_t radius : {7, 8, 128}) {
            SCOPED_TRACE(CaseName(depth, true, "radius " + std::to_string(radius)));
            TestImage source(KXRectMake(0, 0, 12, 8), depth, 1, 0);
            KXImageFill(source, 200.0f);
            source.Set(6, 4, {7.0f});
            const TestImage result = source.Like();
            const KXRect rect = source.Bounds();
            ASSERT_EQ(KXEffectsMedian(source, result, &rect, radius), kKXNoErr);
            EXPECT_EQ(result.Samples(), std::vector<float>(96, 200.0f));
        }
}

// A spike of 200 in a flat 100 at threshold 0.2 (51) goes, 130 stays; at 16 bits the median of a flat 1000
// is bin 3, 771, which is 229 away.
TEST(Median, DustAndScratchReplacesOnlyOutliers)
{
    for (bool lockable : kLockable) {
        TestImage source(KXRectMake(0, 0, 7, 5), 8, 1, 0, lockable), wide(KXRectMake(0, 0, 7, 5), 16, 1, 0, lockable);
        KXImageFill(source, 100.0f);
        KXImageFill(wide, 1000.0f);
        source.Set(2, 2, {200.0f});
        source.Set(5, 1, {130.0f});
        const KXRect rect = source.Bounds();
        const TestImage result = source.Like(), wideResult = wide.Like();
        ASSERT_EQ(KXEffectsDustAndScratch(source, result, &rect, 1, 0.2f), kKXNoErr);
        EXPECT_EQ(std::vector<float>({result.At(2, 2, 0), result.At(5, 1, 0)}), std::vector<float>({100.0f, 130.0f}));
        for (const auto& [t, expected] : {std::pair{230, 1000.0f}, std::pair{229, 771.0f}}) {
            ASSERT_EQ(KXEffectsDustAndScratch(wide, wideResult, &rect, 2, float(t) / 65535.0f), kKXNoErr);
            EXPECT_EQ(wideResult.At(3, 4, 0), expected) << "t " << t;
        }
    }
    const TestImage floats = RandomImage(32, true, 50), result = floats.Like();
    const KXRect rect = floats.Bounds();
    EXPECT_EQ(KXEffectsMedian(floats, result, &rect, 1), kKXErrUnsupported);
    EXPECT_EQ(KXEffectsDustAndScratch(floats, result, &rect, 1, 0.1f), kKXErrUnsupported);
}

} // namespace
