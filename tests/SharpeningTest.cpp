// Sharpening: the unsharp masks against their own blurs and OpenCV's, high pass and low pass, the overlay
// sharpening with its offset, the progressive sharpening's scales, the copies and the host's tiles.
#include "BlurTestImages.h"
#include "KXEffectsGaussianBlur.h"

#include <opencv2/imgproc.hpp>

#include <cmath>
#include <functional>

namespace
{

const KXRect kBounds = KXRectMake(-3, 5, 19, 13);
const KXRect kRect = KXRectMake(-5, 7, 16, 14);

using Blur = std::function<int32_t(KXImage* source, KXImage* destination, const KXRect* rect)>;

// The unsharp mask of one sample read plainly: integer differences, soft knee, truncated correction.
float UnsharpReference(int32_t depth, float s, float b, float amount, float threshold)
{
    const float white = WhiteOf(depth);
    if (depth == 32) {
        float d = s - b;
        if (threshold > 0.0f && std::fabs(d) <= threshold)
            return s;
        if (threshold > 0.0f)
            d += d > 0.0f ? -threshold : threshold;
        return std::fmin(std::fmax(s + d * amount, 0.0f), 1.0f);
    }
    const int32_t t = threshold > 0.0f ? int32_t(threshold * white + 0.5f) : 0;
    int32_t d = int32_t(s) - int32_t(b);
    if (threshold > 0.0f && std::abs(d) <= t)
        return s;
    d += d > 0 ? -t : t;
    return std::fmin(std::fmax(s + float(int32_t(float(d) * amount)), 0.0f), white);
}

// The source's alpha (plane 3 of 4) whatever the effect does to the colour.
template <class Colour> auto WithSourceAlpha(const Pixels& in, int32_t planes, Colour&& colour)
{
    return [&in, planes, colour](int32_t x, int32_t y, int32_t p) {
        return planes == 4 && p == 3 ? in.At(x, y, p) : colour(x, y, p);
    };
}

TEST(UnsharpMask, WorkedExamplesOfTheReference)
{
    EXPECT_EQ(UnsharpReference(8, 100, 90, 1.5f, 3.0f / 255.0f), 110);
    EXPECT_EQ(UnsharpReference(8, 90, 100, 1.5f, 0.0f), 75);
    EXPECT_EQ(UnsharpReference(8, 90, 100, 1.25f, 0.0f), 78);
    EXPECT_EQ(UnsharpReference(8, 100, 98, 9.0f, 3.0f / 255.0f), 100);
}

TEST(UnsharpMask, AddsTheScaledDifferenceFromEachBlur)
{
    using Sharpen = std::function<int32_t(KXImage*, KXImage*, const KXRect*, float threshold)>;
    const std::pair<Sharpen, Blur> cases[] = {
        {[](auto s, auto d, auto r, float t) { return KXEffectsUnsharpMask(s, d, r, 1.5f, 1.3f, t); },
         [](auto s, auto d, auto r) { return KXEffectsGaussianBlur(s, d, r, 1.3f); }},
        {[](auto s, auto d, auto r, float t) { return KXEffectsUnsharpMask(s, d, r, 1.5f, 11.0f, t); },
         [](auto s, auto d, auto r) { return KXEffectsGaussianBlur(s, d, r, 11.0f); }},
        {[](auto s, auto d, auto r, float t) { return KXEffectsUnsharpMaskUsingBoxBlur(s, d, r, 1.5f, 2, t); },
         [](auto s, auto d, auto r) { return KXEffectsBoxBlur(s, d, r, 2); }},
        {[](auto s, auto d, auto r, float t) { return KXEffectsUnsharpMaskUsingTriangularBlur(s, d, r, 1.5f, 2, t); },
         [](auto s, auto d, auto r) { return KXEffectsTriangularBlur(s, d, r, 2); }},
    };
    ForEachImageKind([&](int32_t depth, bool lockable) {
        for (int32_t planes : {4, 1})
            for (float threshold : {0.0f, 0.05f})
                for (const auto& [sharpen, blur] : cases) {
                    SCOPED_TRACE(CaseName(depth, lockable, std::to_string(threshold).c_str()));
                    const TestImage source = RandomImage(depth, lockable, planes, kBounds, 7);
                    const TestImage blurred = RandomImage(depth, lockable, planes, kBounds, 8);
                    const TestImage destination = RandomImage(depth, lockable, planes, kBounds, 8);
                    const Pixels in(source), before(destination);
                    ASSERT_EQ(blur(source, blurred, &kRect), 0);
                    ASSERT_EQ(sharpen(source, destination, &kRect, threshold), 0);
                    const Pixels low(blurred);
                    ExpectImage(destination, before, kRect, depth == 32 ? 1e-6f : 0.0f,
                                WithSourceAlpha(in, planes, [&](int32_t x, int32_t y, int32_t p) {
                                    return UnsharpReference(depth, in.At(x, y, p), low.At(x, y, p), 1.5f, threshold);
                                }));
                }
    });
}

TEST(UnsharpMask, SurfaceBlurFormTakesNoThreshold)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        const TestImage source = RandomImage(depth, lockable, 4, kBounds, 9);
        const TestImage blurred(kBounds, depth, 4, 1, lockable), destination(kBounds, depth, 4, 1, lockable);
        ASSERT_EQ(KXEffectsSurfaceBlur(source, blurred, &kBounds, 2, 0.3f, 1.0f), 0);
        ASSERT_EQ(KXEffectsUnsharpMaskUsingSurfaceBlur(source, destination, &kBounds, 2.0f, 2, 0.3f), 0);
        const Pixels in(source), low(blurred);
        ExpectRegion(destination, kBounds, depth == 32 ? 1e-6f : 0.0f,
                     WithSourceAlpha(in, 4, [&](int32_t x, int32_t y, int32_t p) {
                         return UnsharpReference(depth, in.At(x, y, p), low.At(x, y, p), 2.0f, 0.0f);
                     }));
    });
}

// OpenCV's separable filter with the true blur's taps, then s + (s - b) amount: the library rounds its blur to
// the sample, so integers may differ by one unit.
TEST(UnsharpMask, MatchesOpenCVSeparableGaussian)
{
    const float radius = 1.8f;
    const int32_t h = TrueGaussianHalfWidth(radius);
    std::vector<float> taps;
    double sum = 0.0;
    for (int32_t i = -h; i <= h; ++i) {
        taps.push_back(std::exp(float(i * i) * (-1.0f / (radius * 2.0f * radius))));
        sum += taps.back();
    }
    for (float& tap : taps)
        tap *= 1.0f / float(sum);
    const cv::Mat kernel(1, int(taps.size()), CV_32F, taps.data());
    ForEachImageKind([&](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        const TestImage source = RandomImage(depth, lockable, 3, kBounds, 12);
        const TestImage destination(kBounds, depth, 3, 0, lockable);
        ASSERT_EQ(KXEffectsUnsharpMask(source, destination, &kBounds, 1.0f, radius, 0.0f), 0);
        std::vector<float> samples = source.Samples();
        const cv::Mat in(source.Height(), source.Width(), CV_32FC3, samples.data());
        cv::Mat blurred, sharpened;
        cv::sepFilter2D(in, blurred, CV_32F, kernel, kernel, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
        cv::addWeighted(in, 2.0, blurred, -1.0, 0.0, sharpened);
        cv::min(cv::max(sharpened, 0.0), WhiteOf(depth), sharpened);
        const std::vector<float> result = destination.Samples();
        for (size_t i = 0; i < result.size(); ++i)
            ASSERT_NEAR(result[i], sharpened.ptr<float>()[i], depth == 32 ? 1e-5f : 1.0f) << i;
    });
}

TEST(HighPass, IsTheDifferenceFromTheLowPassAroundMidGray)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        const float middle = depth == 8 ? 128.0f : depth == 16 ? 32768.0f : 0.5f;
        TestImage flat(kBounds, depth, 4, 1, lockable);
        ASSERT_EQ(KXImageFill(flat, WhiteOf(depth) * 0.75f), 0);
        const TestImage out(kBounds, depth, 4, 1, lockable);
        ASSERT_EQ(KXEffectsHighPass(flat, out, &kBounds, 2.0f), 0);
        const Pixels flatIn(flat);
        ExpectRegion(out, kBounds, 0.0f, WithSourceAlpha(flatIn, 4, [&](int32_t, int32_t, int32_t) { return middle; }));

        const TestImage source = RandomImage(depth, lockable, 4, kBounds, 14);
        const TestImage highPass(kBounds, depth, 4, 1, lockable), lowPass(kBounds, depth, 4, 1, lockable);
        const TestImage blurred(kBounds, depth, 4, 1, lockable), single(kBounds, depth, 4, 1, lockable);
        ASSERT_EQ(KXEffectsHighPassAndLowPass(source, highPass, lowPass, &kBounds, 2.0f), 0);
        ASSERT_EQ(KXEffectsHighPass(source, single, &kBounds, 2.0f), 0);
        ASSERT_EQ(KXEffectsGaussianBlur(source, blurred, &kBounds, 2.0f), 0);
        EXPECT_EQ(lowPass.Samples(), blurred.Samples());
        EXPECT_EQ(highPass.Samples(), single.Samples());
        const Pixels in(source), low(blurred);
        ExpectRegion(highPass, kBounds, 0.0f, WithSourceAlpha(in, 4, [&](int32_t x, int32_t y, int32_t p) {
                         return std::fmin(std::fmax(in.At(x, y, p) - low.At(x, y, p) + middle, 0.0f), WhiteOf(depth));
                     }));
        EXPECT_EQ(KXEffectsHighPass(source, source, &kBounds, 2.0f), kKXErrBadParam);
        EXPECT_EQ(KXEffectsHighPassAndLowPass(source, highPass, source, &kBounds, 2.0f), kKXErrBadParam);
    });
}

// h = a + 0.5 - c overlaid on a, mixed by amount, in 0..1.
float OverlayReference(int32_t depth, float s, float b, float amount)
{
    const float a = UnitOf(s, depth), c = UnitOf(b, depth);
    const float h = a + 0.5f - c;
    const float o = a < 0.5f ? 2.0f * a * h : 1.0f - 2.0f * (1.0f - a) * (1.0f - h);
    return StoredOf(std::fmin(std::fmax(a * (1.0f - amount) + o * amount, 0.0f), 1.0f), depth);
}

TEST(SharpenHighPass, OverlaysTheBoxHighPassAtTheOffset)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        for (const KXPoint offset : {KXPointMake(0, 0), KXPointMake(2, -1)}) {
            SCOPED_TRACE(CaseName(depth, lockable));
            const TestImage source = RandomImage(depth, lockable, 4, kBounds, 16);
            const TestImage blurred = RandomImage(depth, lockable, 4, kBounds, 17);
            const TestImage destination = RandomImage(depth, lockable, 4, kBounds, 17);
            const Pixels in(source), before(destination);
            ASSERT_EQ(KXEffectsBoxBlurWithOffset(source, blurred, &kRect, 2, offset), 0);
            ASSERT_EQ(KXEffectsSharpenHighPassWithOffset(source, destination, &kRect, 0.8f, 2, offset), 0);
            const Pixels low(blurred);
            const KXRect target = KXRectMake(kRect.x - offset.x, kRect.y - offset.y, kRect.width, kRect.height);
            ExpectImage(destination, before, target, depth == 32 ? 1e-6f : 0.0f, [&](int32_t x, int32_t y, int32_t p) {
                const float s = in.At(x + offset.x, y + offset.y, p);
                return p == 3 ? s : OverlayReference(depth, s, low.At(x, y, p), 0.8f);
            });
        }
    });
}

TEST(Sharpening, SettingsThatDoNothingCopyTheRectangle)
{
    using Call = std::function<int32_t(KXImage*, KXImage*, const KXRect*)>;
    const Call copies[] = {
        [](auto s, auto d, auto r) { return KXEffectsUnsharpMask(s, d, r, 0.0f, 2.0f, 0.0f); },
        [](auto s, auto d, auto r) { return KXEffectsUnsharpMask(s, d, r, 1.0f, 0.0f, 0.0f); },
        [](auto s, auto d, auto r) { return KXEffectsUnsharpMask(s, d, r, 1.0f, 2.0f, 1.0f); },
        [](auto s, auto d, auto r) { return KXEffectsUnsharpMaskUsingSurfaceBlur(s, d, r, 1.0f, 2, 0.0f); },
        [](auto s, auto d, auto r) { return KXEffectsUnsharpMaskUsingBoxBlur(s, d, r, 1.0f, 0, 0.0f); },
        [](auto s, auto d, auto r) { return KXEffectsUnsharpMaskUsingTriangularBlur(s, d, r, -1.0f, 2, 0.0f); },
        [](auto s, auto d, auto r) { return KXEffectsSharpenHighPass(s, d, r, 1.0f, 0); },
        [](auto s, auto d, auto r) { return KXEffectsSharpenProgressive(s, d, r, 0.0f, 2.0f, 0.0f, 0.0f); },
        [](auto s, auto d, auto r) { return KXEffectsSharpenProgressive(s, d, r, 1.0f, 0.0f, 0.0f, 0.0f); },
    };
    ForEachImageKind([&](int32_t depth, bool lockable) {
        SCOPED_TRACE(CaseName(depth, lockable));
        const TestImage source = RandomImage(depth, lockable, 4, kBounds, 18);
        const Pixels in(source);
        for (const Call& copy : copies) {
            const TestImage destination = RandomImage(depth, lockable, 4, kBounds, 19);
            const Pixels before(destination);
            ASSERT_EQ(copy(source, destination, &kRect), 0);
            ExpectImage(destination, before, kRect, 0.0f,
                        [&](int32_t x, int32_t y, int32_t p) { return in.At(x, y, p); });
        }
        const TestImage shifted = RandomImage(depth, lockable, 4, kBounds, 20);
        const Pixels before(shifted);
        // Inside the image: outside it the views give no alpha to replicate.
        const KXRect inner = KXRectMake(-1, 6, 12, 9);
        ASSERT_EQ(KXEffectsSharpenHighPassWithOffset(source, shifted, &inner, 0.0f, 2, KXPointMake(1, 2)), 0);
        const KXRect target = KXRectMake(inner.x + 1, inner.y + 2, inner.width, inner.height);
        ExpectImage(shifted, before, target, 0.0f,
                    [&](int32_t x, int32_t y, int32_t p) { return in.At(x - 1, y - 2, p); });
        EXPECT_EQ(KXEffectsUnsharpMask(source, source, &kRect, 1.0f, 2.0f, 0.0f), kKXErrBadParam);
        EXPECT_EQ(KXEffectsSharpenProgressive(nullptr, source, &kRect, 1.0f, 2.0f, 0.0f, 0.0f), kKXErrBadParam);
    });
}

// The progressive sharpening with fineReduction 0 (one scale, w0 = 1) and 1 (w2 = 0.3, w3 = 0.105), against
// blurs of the luma (RGB) or of the planes (gray) taken here.
TEST(SharpenProgressive, SharpensAgainstTheWeightedScales)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        for (int32_t planes : {4, 1})
            for (float fineReduction : {0.0f, 1.0f}) {
                SCOPED_TRACE(CaseName(depth, lockable, std::to_string(fineReduction).c_str()));
                const float radius = 1.2f, amount = 0.7f, white = WhiteOf(depth);
                const TestImage source = RandomImage(depth, lockable, planes, kBounds, 21);
                const TestImage destination(kBounds, depth, planes, planes == 4 ? 1 : 0, lockable);
                ASSERT_EQ(KXEffectsSharpenProgressive(source, destination, &kRect, amount, radius, fineReduction, 0),
                          0);
                KXImage* input = source;
                KXImage* luma = nullptr;
                const KXRect grown = KXRectOutset(&kRect, GaussianBlurOutset(radius * 4.0f));
                if (planes == 4) {
                    ASSERT_EQ(KXEffectsCreateLuminosityImage(source, &luma, &grown, 0), 0);
                }
                const std::vector<std::pair<float, float>> scales =
                    fineReduction == 0.0f ? std::vector<std::pair<float, float>>{{1.0f, 0.5f}}
                                          : std::vector<std::pair<float, float>>{{0.3f, 2.0f}, {0.105f, 4.0f}};
                std::vector<Pixels> blurs;
                for (const auto& [weight, factor] : scales) {
                    const TestImage blurred(grown, depth, planes == 4 ? 1 : planes, 0, true);
                    ASSERT_EQ(KXEffectsGaussianBlur(luma ? luma : input, blurred, &kRect, radius * factor), 0);
                    blurs.emplace_back(blurred);
                }
                if (luma)
                    KXImageRelease(luma);
                const Pixels in(source);
                const auto sharpened = [&](float v, int32_t x, int32_t y, int32_t p) {
                    float sum = 1.0f, s = 0.0f;
                    for (size_t k = 0; k < scales.size(); ++k)
                        sum += scales[k].first, s += scales[k].first * blurs[k].At(x, y, p);
                    return std::fmin(std::fmax(v * (1.0f - amount) + (v * sum - s) * amount, 0.0f), white);
                };
                const float tolerance = depth == 32 ? 1e-5f : 1.0f;
                ExpectRegion(destination, kRect, tolerance, [&](int32_t x, int32_t y, int32_t p) {
                    if (planes == 1)
                        return StoredOf(sharpened(in.At(x, y, p), x, y, 0), depth, true);
                    if (p == 3)
                        return in.At(x, y, p);
                    const float r = in.At(x, y, 0), g = in.At(x, y, 1), b = in.At(x, y, 2);
                    const float y2 = sharpened(0.299f * r + 0.587f * g + 0.114f * b, x, y, 0);
                    const float cb = 0.5f * b - 0.168736f * r - 0.331264f * g;
                    const float cr = 0.5f * r - 0.418688f * g - 0.081312f * b;
                    const float rgb[3] = {y2 + 1.402f * cr, y2 - 0.344136f * cb - 0.714136f * cr, y2 + 1.772f * cb};
                    return StoredOf(std::fmin(std::fmax(rgb[p], 0.0f), white), depth, true);
                });
                // A threshold beyond any change keeps every pixel; in place gives the same result.
                const TestImage kept(kBounds, depth, planes, planes == 4 ? 1 : 0, lockable);
                ASSERT_EQ(KXEffectsSharpenProgressive(source, kept, &kBounds, amount, radius, fineReduction, 3.0f), 0);
                EXPECT_EQ(kept.Samples(), source.Samples());
                const Pixels expected(destination);
                const TestImage inPlace(kBounds, depth, planes, planes == 4 ? 1 : 0, lockable);
                ASSERT_EQ(KXEffectsCopyImage(source, inPlace, &kBounds), 0);
                ASSERT_EQ(KXEffectsSharpenProgressive(inPlace, inPlace, &kRect, amount, radius, fineReduction, 0), 0);
                ExpectRegion(inPlace, kRect, 0.0f,
                             [&](int32_t x, int32_t y, int32_t p) { return expected.At(x, y, p); });
            }
    });
}

// A host's tile: the tile grown by the reported outset, copied into its own image and sharpened over the tile
// into another, equals the whole-image result there.
TEST(Sharpening, TilesGrownByTheOutsetMatchTheWholeImage)
{
    using Sharpen = int32_t (*)(KXImage*, KXImage*, const KXRect*, float);
    const std::pair<KXEffectProc, Sharpen> cases[] = {
        {reinterpret_cast<KXEffectProc>(KXEffectsUnsharpMask),
         [](KXImage* s, KXImage* d, const KXRect* r, float v) {
             return KXEffectsUnsharpMask(s, d, r, 1.0f, v, 0.02f);
         }},
        {reinterpret_cast<KXEffectProc>(KXEffectsUnsharpMaskUsingBoxBlur),
         [](KXImage* s, KXImage* d, const KXRect* r, float v) {
             return KXEffectsUnsharpMaskUsingBoxBlur(s, d, r, 1.0f, int32_t(v), 0.0f);
         }},
        {reinterpret_cast<KXEffectProc>(KXEffectsSharpenProgressive),
         [](KXImage* s, KXImage* d, const KXRect* r, float v) {
             return KXEffectsSharpenProgressive(s, d, r, 1.0f, v, 0.5f, 0.0f);
         }},
    };
    const KXRect bounds = KXRectMake(10, 20, 60, 50);
    ForEachImageKind([&](int32_t depth, bool lockable) {
        for (const auto& [effect, sharpen] : cases)
            for (float value : {2.0f, 3.0f}) {
                SCOPED_TRACE(CaseName(depth, lockable));
                const TestImage whole = RandomImage(depth, lockable, 4, bounds, 23);
                const TestImage result(bounds, depth, 4, 1, lockable);
                ASSERT_EQ(sharpen(whole, result, &bounds, value), 0);
                const Pixels expected(result);
                const KXRect tile = KXRectMake(30, 41, 9, 7);
                const KXRect grown = KXRectOutset(&tile, KXEffectsGetOutset(effect, value));
                const KXRect read = KXRectIntersect(&grown, &bounds);
                const TestImage piece(read, depth, 4, 1, lockable), out(read, depth, 4, 1, lockable);
                ASSERT_EQ(KXEffectsCopyImage(whole, piece, &read), 0);
                ASSERT_EQ(sharpen(piece, out, &tile, value), 0);
                // The true blur may round a tile differently by one unit.
                ExpectRegion(out, tile, depth == 32 ? 1e-5f : 1.0f,
                             [&](int32_t x, int32_t y, int32_t p) { return expected.At(x, y, p); });
            }
    });
}

} // namespace
