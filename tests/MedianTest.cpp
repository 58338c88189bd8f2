// Median and dust and scratch: OpenCV's median as the reference, the count type at the bounds of the
// window area, outlier replacement, the degenerate cases, tiles and in place.
#include "FilterReference.h"

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
                SCOPED_TRACE(CaseName(depth, lockable, ("radius " + std::to_string(radius)).c_str()));
                const TestImage source = RandomImage(depth, lockable, 40 + radius, 4, KXRectMake(-6, 2, 37, 21));
                const SampleGrid grid(source);
                cv::Mat image;
                cv::Mat(21, 37, CV_32FC4, const_cast<float*>(grid.samples.data()))
                    .convertTo(image, depth == 8 ? CV_8UC4 : CV_16UC4);
                cv::Mat expected, wide;
                cv::medianBlur(image, expected, 2 * radius + 1);
                expected.convertTo(wide, CV_32FC4);
                TestImage result = RandomImage(depth, lockable, 9, 4, source.Bounds());
                const KXRect rect = source.Bounds();
                ASSERT_EQ(KXEffectsMedian(source, result, &rect, radius), kKXNoErr);
                ExpectFiltered(result, grid, grid, rect, [&](int32_t x, int32_t y, int32_t c) {
                    return wide.at<cv::Vec4f>(y - rect.y, x - rect.x)[c];
                });
            }
}

// The window area picks 8-, 16- or 32-bit counts. On a flat image with one outlier the flat value fills
// nearly the whole window, and a count type too narrow for the area wraps it.
TEST(Median, CountTypeHoldsTheWholeWindow)
{
    for (int32_t depth : {8, 16})
        for (int32_t radius : {7, 8, 128}) {
            SCOPED_TRACE(CaseName(depth, true, ("radius " + std::to_string(radius)).c_str()));
            TestImage source(KXRectMake(0, 0, 12, 8), depth, 1, 0, true);
            KXImageFill(source, 200.0f);
            source.Set(6, 4, {7.0f});
            TestImage result(source.Bounds(), depth, 1, 0, true);
            const KXRect rect = source.Bounds();
            ASSERT_EQ(KXEffectsMedian(source, result, &rect, radius), kKXNoErr);
            EXPECT_EQ(SampleGrid(result).samples, std::vector<float>(96, 200.0f));
        }
}

TEST(Median, DustAndScratchReplacesOnlyOutliers)
{
    for (bool lockable : kLockable) {
        TestImage source(KXRectMake(0, 0, 7, 5), 8, 1, 0, lockable);
        KXImageFill(source, 100.0f);
        source.Set(2, 2, {200.0f});
        source.Set(5, 1, {130.0f});
        const KXRect rect = source.Bounds();
        TestImage result(rect, 8, 1, 0, lockable);
        // t = 51: the spike goes, 130 stays.
        ASSERT_EQ(KXEffectsDustAndScratch(source, result, &rect, 1, 0.2f), kKXNoErr);
        EXPECT_EQ(result.At(2, 2, 0), 100.0f);
        EXPECT_EQ(result.At(5, 1, 0), 130.0f);
        ASSERT_EQ(KXEffectsDustAndScratch(source, result, &rect, 1, 1.0f), kKXNoErr);
        EXPECT_EQ(result.At(2, 2, 0), 200.0f);
        // 16 bits: the median of a flat 1000 is bin 3, 771, which is 229 away.
        TestImage wide(rect, 16, 1, 0, lockable);
        KXImageFill(wide, 1000.0f);
        for (const auto& [t, expected] : {std::pair{230, 1000.0f}, std::pair{229, 771.0f}}) {
            TestImage out(rect, 16, 1, 0, lockable);
            ASSERT_EQ(KXEffectsDustAndScratch(wide, out, &rect, 2, float(t) / 65535.0f), kKXNoErr);
            EXPECT_EQ(out.At(3, 4, 0), expected) << "t " << t;
        }
    }
}

TEST(Median, DegenerateCasesDepthsTilesAndInPlace)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        const TestImage source = RandomImage(depth, lockable, 50);
        const SampleGrid grid(source);
        const KXRect rect = KXRectMake(2, -5, 9, 8);
        TestImage result = RandomImage(depth, lockable, 51);
        const SampleGrid old(result);
        ASSERT_EQ(KXEffectsMedian(source, result, &rect, 0), kKXNoErr);
        ExpectFiltered(result, grid, old, rect, [&](int32_t x, int32_t y, int32_t c) { return grid.At(x, y, c); });
        if (depth == 32) {
            EXPECT_EQ(KXEffectsMedian(source, result, &rect, 1), kKXErrUnsupported);
            EXPECT_EQ(KXEffectsDustAndScratch(source, result, &rect, 1, 0.1f), kKXErrUnsupported);
            return;
        }
        for (float threshold : {0.0f, 0.05f})
            ExpectTileAndInPlace(source, KXRectMake(8, -1, 5, 5), 2, [&](KXImage* s, KXImage* d, const KXRect* r) {
                return KXEffectsDustAndScratch(s, d, r, 2, threshold);
            });
        ExpectTileAndInPlace(source, KXRectMake(7, 0, 4, 3), 3, [](KXImage* s, KXImage* d, const KXRect* r) {
            return KXEffectsMedian(s, d, r, 3);
        });
    });
}

} // namespace
