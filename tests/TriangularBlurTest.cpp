// Triangular blur: OpenCV's separable filter with tent taps, and the integer sums at their bound.
#include "TestImages.h"

#include <opencv2/imgproc.hpp>

namespace {

// The tent (r + 1 - |d|) / (r + 1)^2 in each direction, borders replicated, against the blur of every
// plane; integer samples round the exact sum once.
void ExpectTent(const TestImage& source, int32_t radius)
{
    const KXRect rect = source.Bounds();
    std::vector<float> samples = source.Samples();
    const cv::Mat in(rect.height, rect.width, CV_32FC(source.Planes()), samples.data());
    cv::Mat taps(1, 2 * radius + 1, CV_32F), blurred;
    for (int32_t d = -radius; d <= radius; ++d)
        taps.at<float>(d + radius) = float(radius + 1 - std::abs(d)) / float((radius + 1) * (radius + 1));
    cv::sepFilter2D(in, blurred, CV_32F, taps, taps, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
    const TestImage result(rect, source.Depth(), source.Planes(), 0, source.Lockable());
    ASSERT_EQ(KXEffectsTriangularBlur(source, result, &rect, radius), kKXNoErr);
    ExpectRegion(result, rect, source.Depth() == 32 ? 1e-5f : 1.0f, [&](int32_t x, int32_t y, int32_t p) {
        return blurred.ptr<float>(y - rect.y)[(x - rect.x) * source.Planes() + p];
    });
}

TEST(TriangularBlur, MatchesOpenCVTentFilter)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        const TestImage source = RandomImage(depth, lockable, 70, 3);
        for (int32_t radius : {0, 1, 4}) {
            SCOPED_TRACE(radius);
            ExpectTent(source, radius);
        }
    });
}

// 32-bit sums while (r + 1)^4 x white fits: to radius 63 at 8 bits and 15 at 16 bits. Near-white windows
// reach the bound.
TEST(TriangularBlur, SumsHoldTheFullWindow)
{
    for (const auto& [depth, radius] : {std::pair{8, 63}, {8, 64}, {16, 15}, {16, 16}}) {
        SCOPED_TRACE(CaseName(depth, true, "radius " + std::to_string(radius)));
        TestImage source(KXRectMake(0, 0, 4, 3), depth, 1, 0);
        KXImageFill(source, WhiteOf(depth));
        source.Set(2, 1, {WhiteOf(depth) * 0.25f});
        ExpectTent(source, radius);
    }
}

} // namespace
