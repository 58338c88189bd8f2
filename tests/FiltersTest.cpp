// The small convolution filters: the 3 x 3 formulas on every depth, flat areas, find edges against OpenCV's
// Sobel, the emboss taps, tiles and in place.
#include "FilterReference.h"

#include <opencv2/imgproc.hpp>

namespace {

using FilterFunction = int32_t (*)(KXImage*, KXImage*, const KXRect*);

// The 3 x 3 neighbourhood n, row-major, as the formulas of the filters read it.
struct FixedFilterCase {
    const char* name;
    FilterFunction run;
    float (*value)(const float* n, float white);
};

float EdgeSum(const float* n)
{
    return n[1] + n[7] + n[3] + n[5];
}

float CornerSum(const float* n)
{
    return n[0] + n[2] + n[6] + n[8];
}

const FixedFilterCase kFixedFilters[] = {
    {"sharpen", KXEffectsSharpen, [](const float* n, float) { return (8 * n[4] - EdgeSum(n)) * 0.25f; }},
    {"sharpen more", KXEffectsSharpenMore,
     [](const float* n, float) { return (12 * n[4] - EdgeSum(n) - CornerSum(n)) * 0.25f; }},
    {"blur", KXEffectsBlur, [](const float* n, float) { return (4 * n[4] + EdgeSum(n)) * 0.125f; }},
    {"blur more", KXEffectsBlurMore,
     [](const float* n, float) { return (2 * n[4] + 2 * EdgeSum(n) + CornerSum(n)) * 0.071428575f; }},
    {"find edges", KXEffectsFindEdges,
     [](const float* n, float white) {
         const float gx = (n[2] + 2 * n[5] + n[8]) - (n[0] + 2 * n[3] + n[6]);
         const float gy = (n[6] + 2 * n[7] + n[8]) - (n[0] + 2 * n[1] + n[2]);
         return white - std::sqrt(gx * gx + gy * gy);
     }},
};

// Beyond the image on the left and top, inside on the right and bottom.
const KXRect kRect = KXRectMake(3, -4, 11, 8);

TEST(Filters, FixedKernelsFollowTheirFormulas)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        const TestImage source = RandomImage(depth, lockable, 11);
        const SampleGrid grid(source);
        for (const FixedFilterCase& filter : kFixedFilters) {
            SCOPED_TRACE(CaseName(depth, lockable, filter.name));
            TestImage result = RandomImage(depth, lockable, 12);
            const SampleGrid old(result);
            ASSERT_EQ(filter.run(source, result, &kRect), kKXNoErr);
            ExpectFiltered(result, grid, old, kRect, [&](int32_t x, int32_t y, int32_t c) {
                float n[9];
                for (int32_t k = 0; k < 9; ++k)
                    n[k] = grid.At(x + k % 3 - 1, y + k / 3 - 1, c);
                const float white = WhiteOf(depth);
                return Stored(std::clamp(filter.value(n, white), 0.0f, white), depth);
            }, depth == 32 ? 1e-6f : 0.0f);
            ExpectTileAndInPlace(source, KXRectMake(7, -1, 6, 4), 1, filter.run);
        }
    });
}

TEST(Filters, FlatAreasKeepTheirValueAndEmbossGoesMidGray)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        TestImage source(KXRectMake(0, 0, 9, 3), depth, 3, 0, lockable);
        const float white = WhiteOf(depth);
        KXImageFill(source, depth == 32 ? 0.3f : std::trunc(white * 0.3f));
        const float flat = source.At(4, 1, 0);
        const KXRect rect = source.Bounds();
        for (const FixedFilterCase& filter : kFixedFilters) {
            TestImage result(rect, depth, 3, 0, lockable);
            ASSERT_EQ(filter.run(source, result, &rect), kKXNoErr);
            EXPECT_EQ(result.At(4, 1, 2), filter.run == KXEffectsFindEdges ? white : flat) << filter.name;
        }
        TestImage noisy = RandomImage(depth, lockable, 3, 3, rect);
        for (int32_t height : {0, 6}) {
            TestImage& input = height == 0 ? noisy : source;
            ASSERT_EQ(KXEffectsEmboss(input, input, &rect, 35.0f, height, 2.0f), kKXNoErr);
            EXPECT_EQ(input.At(8, 2, 1), depth == 8 ? 128.0f : depth == 16 ? 32768.0f : 0.5f) << "height " << height;
        }
    });
}

TEST(Filters, EmbossAtAngleZeroTakesRightMinusLeft)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        const TestImage source = RandomImage(depth, lockable, 21);
        const SampleGrid grid(source);
        TestImage result = RandomImage(depth, lockable, 22);
        const SampleGrid old(result);
        ASSERT_EQ(KXEffectsEmboss(source, result, &kRect, 0.0f, 2, 1.5f), kKXNoErr);
        ExpectFiltered(result, grid, old, kRect, [&](int32_t x, int32_t y, int32_t c) {
            const float relief = (grid.At(x + 1, y, c) - grid.At(x - 1, y, c)) * 1.5f;
            return depth == 32 ? std::clamp(relief + 0.5f, 0.0f, 1.0f)
                               : std::clamp(std::trunc(relief + WhiteOf(depth) * 0.5f + 0.5f), 0.0f, WhiteOf(depth));
        });
        ExpectTileAndInPlace(source, KXRectMake(8, 0, 5, 3), 2, [](KXImage* s, KXImage* d, const KXRect* r) {
            return KXEffectsEmboss(s, d, r, 0.0f, 2, 1.5f);
        });
    });
}

// OpenCV's 3 x 3 Sobel with replicated borders gives the gradients of find edges.
TEST(Filters, FindEdgesMatchesOpenCVSobel)
{
    for (int32_t depth : kDepths) {
        SCOPED_TRACE(CaseName(depth, true));
        const TestImage source = RandomImage(depth, true, 31, 1, KXRectMake(0, 0, 40, 23));
        const SampleGrid grid(source);
        cv::Mat image(23, 40, CV_32F, const_cast<float*>(grid.samples.data())), gx, gy;
        cv::Sobel(image, gx, CV_32F, 1, 0, 3, 1.0, 0.0, cv::BORDER_REPLICATE);
        cv::Sobel(image, gy, CV_32F, 0, 1, 3, 1.0, 0.0, cv::BORDER_REPLICATE);
        TestImage result(source.Bounds(), depth, 1, 0, true);
        const KXRect rect = source.Bounds();
        ASSERT_EQ(KXEffectsFindEdges(source, result, &rect), kKXNoErr);
        const float white = WhiteOf(depth);
        for (int32_t y = 0; y < 23; ++y)
            for (int32_t x = 0; x < 40; ++x) {
                const float dx = gx.at<float>(y, x), dy = gy.at<float>(y, x);
                const float expected = Stored(std::clamp(white - std::sqrt(dx * dx + dy * dy), 0.0f, white), depth);
                ASSERT_NEAR(result.At(x, y, 0), expected, depth == 32 ? 1e-5f : 0.0f) << x << "," << y;
            }
    }
}

} // namespace
