// Box blurs: window means against direct sums, the degenerate copies and offsets, the accumulator bounds,
// in-place work, OpenCV's box filter and the host's tiles.
#include "BlurTestImages.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

namespace {

// Offsets of the window from the pixel, both ends included.
struct Window {
    int32_t top, left, bottom, right;
    int32_t Area() const { return (bottom - top + 1) * (right - left + 1); }
};

Window Square(int32_t radius)
{
    return {-radius, -radius, radius, radius};
}

double WindowSum(const Pixels& pixels, int32_t x, int32_t y, int32_t plane, const Window& window)
{
    double sum = 0.0;
    for (int32_t v = y + window.top; v <= y + window.bottom; ++v)
        for (int32_t u = x + window.left; u <= x + window.right; ++u)
            sum += pixels.At(u, v, plane);
    return sum;
}

// s (1 - amount) + S / area x amount, as each depth computes it.
float AmountMix(int32_t depth, float s, double sum, int32_t area, float amount)
{
    const float keep = 1.0f - amount;
    const float scale = 1.0f / float(area) * amount;
    if (depth == 32)
        return float(double(s * keep) + double(scale) * sum);
    return StoreSample(depth, float(s) * keep + float(sum) * scale);
}

const KXRect kBounds = KXRectMake(3, -2, 9, 7);

TEST(BoxBlur, RadiusEntriesGiveTheWindowMeanMixedByAmount)
{
    struct Case {
        int32_t radius;
        float amount;
        KXPoint offset;
        KXRect rect;
    };
    const Case cases[] = {{1, 1.0f, {0, 0}, kBounds},           {2, 0.6f, {0, 0}, KXRectMake(5, 0, 4, 3)},
                          {4, 1.5f, {0, 0}, KXRectMake(1, -4, 7, 5)}, {1, 1.0f, {2, -1}, KXRectMake(6, 0, 5, 4)},
                          {3, 0.3f, {-1, 1}, KXRectMake(3, -2, 1, 7)}};
    ForEachImageKind([&](int32_t depth, bool lockable) {
        for (const Case& c : cases)
            for (int32_t planes : {4, 1}) {
                SCOPED_TRACE(CaseName(depth, lockable, ("radius " + std::to_string(c.radius)).c_str()));
                const TestImage source = RandomImage(depth, lockable, planes, kBounds, 7);
                const TestImage destination = RandomImage(depth, lockable, planes, kBounds, 8);
                const Pixels in(source), before(destination);
                ASSERT_EQ(KXEffectsBoxBlurWithOffsetAndAmount(source, destination, &c.rect, c.radius, c.offset,
                                                              c.amount), 0);
                const KXRect target = KXRectMake(c.rect.x - c.offset.x, c.rect.y - c.offset.y, c.rect.width,
                                                 c.rect.height);
                ExpectImage(destination, before, target, depth == 32 ? 1e-6f : 0.0f, [&](int32_t x, int32_t y, int32_t p) {
                    const int32_t u = x + c.offset.x, v = y + c.offset.y;
                    if (p == 3)
                        return in.At(u, v, p);
                    const Window window = Square(c.radius);
                    return AmountMix(depth, in.At(u, v, p), WindowSum(in, u, v, p, window), window.Area(), c.amount);
                });
            }
    });
}

TEST(BoxBlur, ThresholdAndFreeWindows)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        const TestImage source = RandomImage(depth, lockable, 4, kBounds, 11);
        const Pixels in(source);
        const float white = WhiteOf(depth);
        for (float threshold : {0.0f, 0.3f, 1.0f}) {
            const TestImage destination = RandomImage(depth, lockable, 4, kBounds, 12);
            const Pixels before(destination);
            ASSERT_EQ(KXEffectsBoxBlurWithThreshold(source, destination, &kBounds, 2, threshold), 0);
            ExpectImage(destination, before, kBounds, depth == 32 ? 1e-6f : 0.0f, [&](int32_t x, int32_t y, int32_t p) {
                const float s = in.At(x, y, p);
                const float average = float(WindowSum(in, x, y, p, Square(2))) * (1.0f / 25.0f * 1.0f);
                const bool far = std::fabs(average - s) >= threshold * white;
                return p == 3 || !far ? s : StoreSample(depth, average);
            });
        }
        // Not centred, not even holding the pixel; (0, 0, 0, 0) reproduces the source through the core.
        for (const Window window : {Window{1, -2, 3, 0}, Window{0, 0, 0, 0}}) {
            const TestImage destination = RandomImage(depth, lockable, 4, kBounds, 13);
            const Pixels before(destination);
            ASSERT_EQ(KXEffectsBoxBlurWithAmount(source, destination, &kBounds, window.left, window.right, window.top,
                                                 window.bottom, 0.75f), 0);
            ExpectImage(destination, before, kBounds, depth == 32 ? 1e-6f : 0.0f, [&](int32_t x, int32_t y, int32_t p) {
                const float s = in.At(x, y, p);
                return p == 3 ? s : AmountMix(depth, s, WindowSum(in, x, y, p, window), window.Area(), 0.75f);
            });
        }
    });
}

TEST(BoxBlur, IntReadsDepth32AsUnsignedIntegers)
{
    const Window window{0, -1, 2, 1};
    for (bool lockable : kLockable) {
        const TestImage source(kBounds, 32, 1, 0, lockable), destination(kBounds, 32, 1, 0, lockable);
        std::vector<uint32_t> in(size_t(kBounds.width) * kBounds.height), out(in.size());
        for (size_t i = 0; i < in.size(); ++i)
            in[i] = uint32_t(i * 69000000u + 5u); // beyond 2^31 too
        KXImageWrite2(source, &kBounds, 0, -1, in.data(), -1, 0);
        ASSERT_EQ(KXEffectsBoxBlurInt(source, destination, &kBounds, window.left, window.right, window.top,
                                      window.bottom), 0);
        KXImageRead2(destination, &kBounds, 0, -1, out.data(), -1, 0);
        for (int32_t y = 0; y < kBounds.height; ++y)
            for (int32_t x = 0; x < kBounds.width; ++x) {
                uint64_t sum = 0;
                for (int32_t v = y + window.top; v <= y + window.bottom; ++v)
                    for (int32_t u = x + window.left; u <= x + window.right; ++u)
                        sum += in[size_t(std::clamp(v, 0, kBounds.height - 1)) * kBounds.width +
                                  size_t(std::clamp(u, 0, kBounds.width - 1))];
                const float s = float(in[size_t(y) * kBounds.width + x]);
                const float mean = s * 0.0f + float(sum) * (1.0f / 9.0f);
                ASSERT_EQ(out[size_t(y) * kBounds.width + x], uint32_t(int64_t(mean + 0.5f)));
            }
    }
}

TEST(BoxBlur, DegenerateCallsCopyToRectPlusOffset)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        const TestImage source = RandomImage(depth, lockable, 4, kBounds, 21);
        const Pixels in(source);
        const KXRect rect = KXRectMake(5, 0, 4, 3);
        const KXPoint offset = {2, 1};
        for (const auto& [radius, amount] : {std::pair{0, 1.0f}, std::pair{3, 0.0f}, std::pair{-2, 0.5f},
                                             std::pair{1, -1.0f}}) {
            const TestImage destination = RandomImage(depth, lockable, 4, kBounds, 22);
            const Pixels before(destination);
            ASSERT_EQ(KXEffectsBoxBlurWithOffsetAndAmount(source, destination, &rect, radius, offset, amount), 0);
            const KXRect target = KXRectMake(rect.x + offset.x, rect.y + offset.y, rect.width, rect.height);
            ExpectImage(destination, before, target, 0.0f, [&](int32_t x, int32_t y, int32_t p) {
                return in.At(x - offset.x, y - offset.y, p);
            });
        }
    });
}

TEST(BoxBlur, AccumulatorsWidenWithTheArea)
{
    // White stays white only if the sums hold area x white: narrow up to the bound, wide beyond it.
    for (const auto& [depth, radius] : {std::pair{8, 2051}, std::pair{8, 2052}, std::pair{16, 127},
                                        std::pair{16, 128}}) {
        TestImage image(KXRectMake(0, 0, 2, 2), depth, 1, 0);
        KXImageFill(image, WhiteOf(depth));
        const KXRect one = KXRectMake(0, 0, 1, 1);
        ASSERT_EQ(KXEffectsBoxBlur(image, image, &one, radius), 0);
        EXPECT_EQ(image.At(0, 0, 0), WhiteOf(depth)) << depth << " bits, radius " << radius;
    }
    // The free-window entry always sums in 32 bits: 257 x 257 x 65535 wraps to 33553919.
    TestImage image(KXRectMake(0, 0, 2, 2), 16, 1, 0);
    KXImageFill(image, 65535.0f);
    const KXRect one = KXRectMake(0, 0, 1, 1);
    ASSERT_EQ(KXEffectsBoxBlurWithAmount(image, image, &one, -128, 128, -128, 128, 1.0f), 0);
    EXPECT_EQ(image.At(0, 0, 0), StoreSample(16, 33553919.0f * (1.0f / 66049.0f)));
}

TEST(BoxBlur, InPlaceMatchesSeparateDestinationAndFailuresReport)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        TestImage image = RandomImage(depth, lockable, 4, kBounds, 31);
        const TestImage separate = RandomImage(depth, lockable, 4, kBounds, 31);
        const KXRect rect = KXRectMake(4, -3, 6, 8);
        ASSERT_EQ(KXEffectsBoxBlurWithOffsetAndAmount(image, separate, &rect, 3, {0, 0}, 0.8f), 0);
        ASSERT_EQ(KXEffectsBoxBlurWithOffsetAndAmount(image, image, &rect, 3, {0, 0}, 0.8f), 0);
        EXPECT_EQ(image.Samples(), separate.Samples());
        EXPECT_EQ(KXEffectsBoxBlur(image, nullptr, &rect, 2), kKXErrBadParam);
        EXPECT_EQ(KXEffectsBoxBlurWithAmount(image, image, &rect, 1, 0, 0, 0, 1.0f), kKXErrNoResource);
    });
}

TEST(BoxBlur, MatchesOpenCVBlurWithReplicatedBorders)
{
    for (int32_t depth : {8, 16})
        for (int32_t planes : {4, 1})
            for (int32_t radius : {1, 5, 20}) {
                const KXRect bounds = KXRectMake(-4, 9, 63, 41);
                const TestImage source = RandomImage(depth, true, planes, bounds, 41);
                const TestImage destination(bounds, depth, planes, planes == 4 ? 1 : 0);
                ASSERT_EQ(KXEffectsBoxBlur(source, destination, &bounds, radius), 0);
                const int32_t type = CV_MAKETYPE(depth == 8 ? CV_8U : CV_16U, planes);
                cv::Mat in(bounds.height, bounds.width, type, KXImageLockBuffer(source), KXImageGetRowBytes(source));
                cv::Mat expected;
                cv::blur(in, expected, cv::Size(2 * radius + 1, 2 * radius + 1), cv::Point(-1, -1),
                         cv::BORDER_REPLICATE);
                KXImageUnlockBuffer(source);
                const std::vector<float> got = destination.Samples();
                cv::Mat flat = expected.reshape(1, 1);
                flat.convertTo(flat, CV_32F);
                for (size_t i = 0; i < got.size(); ++i) {
                    if (planes == 4 && i % 4 == 3)
                        continue;
                    ASSERT_NEAR(got[i], flat.at<float>(int(i)), 1.0f) << depth << " bits, radius " << radius;
                }
            }
}

TEST(BoxBlur, TileGrownByTheRadiusMatchesTheWholeImage)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        ExpectTilesMatchWholeImage(depth, lockable, 4, depth == 32 ? 1e-6f : 0.0f,
                                   [](KXImage* source, KXImage* destination, const KXRect* rect) {
                                       return KXEffectsBoxBlur(source, destination, rect, 4);
                                   });
    });
}

} // namespace
