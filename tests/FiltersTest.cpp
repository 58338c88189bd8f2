// The small convolution filters: the fixed kernels against OpenCV's filter2D, find edges against its Sobel,
// flat areas, and the emboss relief.
#include "TestImages.h"

#include <opencv2/imgproc.hpp>

#include <cmath>
#include <tuple>

namespace {

const KXRect kBounds = KXRectMake(0, 0, 40, 23);

using Filter = int32_t (*)(KXImage*, KXImage*, const KXRect*);

// Each filter clamps its result to 0..white and rounds it to the sample. The integer sums are exact in
// float, so integer samples match OpenCV's sum times the scale exactly.
TEST(Filters, MatchOpenCVFilter2DAndSobel)
{
    const std::tuple<Filter, cv::Matx33f, float> filters[] = {
        {KXEffectsSharpen, cv::Matx33f(0, -1, 0, -1, 8, -1, 0, -1, 0), 0.25f},
        {KXEffectsSharpenMore, cv::Matx33f(-1, -1, -1, -1, 12, -1, -1, -1, -1), 0.25f},
        {KXEffectsBlur, cv::Matx33f(0, 1, 0, 1, 4, 1, 0, 1, 0), 0.125f},
        {KXEffectsBlurMore, cv::Matx33f(1, 2, 1, 2, 2, 2, 1, 2, 1), 0.071428575f},
        {KXEffectsFindEdges, cv::Matx33f(), 0.0f}, // white less the length of the Sobel gradient
    };
    ForEachImageKind([&](int32_t depth, bool lockable) {
        const TestImage source = RandomImage(depth, lockable, 11, 1, kBounds), result = source.Like();
        std::vector<float> samples = source.Samples();
        const cv::Mat in(kBounds.height, kBounds.width, CV_32F, samples.data());
        cv::Mat sums, gx, gy;
        cv::Sobel(in, gx, CV_32F, 1, 0, 3, 1.0, 0.0, cv::BORDER_REPLICATE);
        cv::Sobel(in, gy, CV_32F, 0, 1, 3, 1.0, 0.0, cv::BORDER_REPLICATE);
        for (const auto& [filter, kernel, scale] : filters) {
            SCOPED_TRACE(scale);
            ASSERT_EQ(filter(source, result, &kBounds), kKXNoErr);
            cv::filter2D(in, sums, CV_32F, cv::Mat(kernel), cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
            ExpectRegion(result, kBounds, depth == 32 ? 1e-5f : 0.0f, [&](int32_t x, int32_t y, int32_t) {
                const float dx = gx.at<float>(y, x), dy = gy.at<float>(y, x);
                const float value = filter == KXEffectsFindEdges ? WhiteOf(depth) - std::sqrt(dx * dx + dy * dy)
                                                                 : sums.at<float>(y, x) * scale;
                const float clamped = std::clamp(value, 0.0f, WhiteOf(depth));
                return depth == 32 ? clamped : std::trunc(clamped + 0.5f);
            });
        }
    });
}

// Flat areas keep their value (find edges gives white); emboss at angle 0 takes the right neighbour less the
// left one, times the amount, about mid gray.
TEST(Filters, FlatAreasAndEmboss)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        TestImage flat(KXRectMake(0, 0, 9, 3), depth, 3, 0, lockable);
        KXImageFill(flat, LevelAt(77, depth));
        const KXRect rect = flat.Bounds();
        for (Filter filter :
             {KXEffectsSharpen, KXEffectsSharpenMore, KXEffectsBlur, KXEffectsBlurMore, KXEffectsFindEdges}) {
            const TestImage result = flat.Like();
            ASSERT_EQ(filter(flat, result, &rect), kKXNoErr);
            EXPECT_NEAR(result.At(4, 1, 2), filter == KXEffectsFindEdges ? WhiteOf(depth) : LevelAt(77, depth), 1e-6f);
        }
        const TestImage source = RandomImage(depth, lockable, 21, 3, kBounds), result = source.Like();
        ASSERT_EQ(KXEffectsEmboss(source, result, &kBounds, 0.0f, 2, 1.5f), kKXNoErr);
        const Pixels in(source);
        ExpectRegion(result, kBounds, depth == 32 ? 1e-6f : 0.0f, [&](int32_t x, int32_t y, int32_t c) {
            const float relief = (in.At(x + 1, y, c) - in.At(x - 1, y, c)) * 1.5f + WhiteOf(depth) * 0.5f;
            return std::clamp(depth == 32 ? relief : std::trunc(relief + 0.5f), 0.0f, WhiteOf(depth));
        });
    });
}

} // namespace
