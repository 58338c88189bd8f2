// Sharpening: the unsharp masks against their own blurs, high pass and low pass with the statuses, the
// overlay sharpening with its offset, and the progressive sharpening against unsharp masks of its scales.
#include "TestImages.h"

#include <cmath>

namespace {

const KXRect kBounds = KXRectMake(-3, 5, 19, 13);
const KXRect kRect = KXRectMake(-5, 7, 16, 14); // beyond the left and bottom edges

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

struct UnsharpCase {
    std::function<int32_t(KXImage*, KXImage*, const KXRect*, float threshold)> sharpen;
    ImageEffect blur;
    bool takesThreshold;
};

TEST(UnsharpMask, AddsTheScaledDifferenceFromEachBlur)
{
    const UnsharpCase cases[] = {
        {[](auto s, auto d, auto r, float t) { return KXEffectsUnsharpMask(s, d, r, 1.5f, 1.3f, t); },
         [](auto s, auto d, auto r) { return KXEffectsGaussianBlur(s, d, r, 1.3f); }, true},
        {[](auto s, auto d, auto r, float t) { return KXEffectsUnsharpMask(s, d, r, 1.5f, 11.0f, t); },
         [](auto s, auto d, auto r) { return KXEffectsGaussianBlur(s, d, r, 11.0f); }, true},
        {[](auto s, auto d, auto r, float t) { return KXEffectsUnsharpMaskUsingBoxBlur(s, d, r, 1.5f, 2, t); },
         [](auto s, auto d, auto r) { return KXEffectsBoxBlur(s, d, r, 2); }, true},
        // The surface blur's own threshold takes the place of the knee.
        {[](auto s, auto d, auto r, float) { return KXEffectsUnsharpMaskUsingSurfaceBlur(s, d, r, 1.5f, 2, 0.3f); },
         [](auto s, auto d, auto r) { return KXEffectsSurfaceBlur(s, d, r, 2, 0.3f, 1.0f); }, false},
    };
    ForEachImageKind([&](int32_t depth, bool lockable) {
        const TestImage source = RandomImage(depth, lockable, 7, 4, kBounds);
        const Pixels in(source);
        for (float threshold : {0.0f, 0.05f})
            for (const UnsharpCase& test : cases) {
                SCOPED_TRACE(std::to_string(&test - cases) + " threshold " + std::to_string(threshold));
                const TestImage blurred = source.Like(), destination = source.Like();
                ASSERT_EQ(test.blur(source, blurred, &kRect), kKXNoErr);
                ASSERT_EQ(test.sharpen(source, destination, &kRect, threshold), kKXNoErr);
                const Pixels low(blurred);
                const float knee = test.takesThreshold ? threshold : 0.0f;
                ExpectRegion(destination, kRect, depth == 32 ? 1e-6f : 0.0f, [&](int32_t x, int32_t y, int32_t p) {
                    const float s = in.At(x, y, p);
                    return p == 3 ? s : UnsharpReference(depth, s, low.At(x, y, p), 1.5f, knee);
                });
            }
    });
}

TEST(HighPass, IsTheDifferenceFromTheLowPassAroundMidGray)
{
    ForEachImageKind([](int32_t depth, bool lockable) {
        const float middle = depth == 8 ? 128.0f : depth == 16 ? 32768.0f : 0.5f;
        const TestImage source = RandomImage(depth, lockable, 14, 4, kBounds);
        const TestImage highPass = source.Like(), lowPass = source.Like(), single = source.Like();
        ASSERT_EQ(KXEffectsHighPassAndLowPass(source, highPass, lowPass, &kBounds, 2.0f), kKXNoErr);
        ASSERT_EQ(KXEffectsHighPass(source, single, &kBounds, 2.0f), kKXNoErr);
        ExpectSameImage(single, highPass);
        ASSERT_EQ(KXEffectsGaussianBlur(source, single, &kBounds, 2.0f), kKXNoErr);
        ExpectSameImage(lowPass, single); // the low pass is the gaussian
        const Pixels in(source), low(lowPass);
        ExpectRegion(highPass, kBounds, 0.0f, [&](int32_t x, int32_t y, int32_t p) {
            const float s = in.At(x, y, p);
            return p == 3 ? s : std::clamp(s - low.At(x, y, p) + middle, 0.0f, WhiteOf(depth));
        });
        EXPECT_EQ(KXEffectsHighPass(source, source, &kBounds, 2.0f), kKXErrBadParam); // not in place
        EXPECT_EQ(KXEffectsUnsharpMask(source, source, &kBounds, 1.0f, 2.0f, 0.0f), kKXErrBadParam);
        EXPECT_EQ(KXEffectsHighPassAndLowPass(source, highPass, source, &kBounds, 2.0f), kKXErrBadParam);
    });
}

// h = a + 0.5 - c, c the box blur, overlaid on a, mixed by amount, in 0..1.
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
        const TestImage source = RandomImage(depth, lockable, 16, 4, kBounds);
        const Pixels in(source);
        for (const KXPoint offset : {KXPointMake(0, 0), KXPointMake(2, -1)}) {
            const TestImage blurred = source.Like(), destination = source.Like();
            ASSERT_EQ(KXEffectsBoxBlurWithOffset(source, blurred, &kRect, 2, offset), kKXNoErr);
            ASSERT_EQ(KXEffectsSharpenHighPassWithOffset(source, destination, &kRect, 0.8f, 2, offset), kKXNoErr);
            const Pixels low(blurred);
            const KXRect target = KXRectMake(kRect.x - offset.x, kRect.y - offset.y, kRect.width, kRect.height);
            ExpectRegion(destination, target, depth == 32 ? 1e-6f : 0.0f, [&](int32_t x, int32_t y, int32_t p) {
                const float s = in.At(x + offset.x, y + offset.y, p);
                return p == 3 ? s : OverlayReference(depth, s, low.At(x, y, p), 0.8f);
            });
        }
    });
}

// A random gray picture kept between a quarter and three quarters of white, so that no unsharp mask below
// clips, with its RGB twin of three equal planes.
std::pair<TestImage, TestImage> MidGrayPictures(int32_t depth, bool lockable)
{
    TestImage gray = RandomImage(depth, lockable, 21, 1, kBounds);
    std::vector<float> samples = gray.Samples(), rgb;
    for (float& sample : samples) {
        sample = depth == 32 ? sample * 0.5f + 0.25f : std::round(sample * 0.5f + WhiteOf(depth) * 0.25f);
        rgb.insert(rgb.end(), 3, sample);
    }
    gray.SetSamples(samples);
    TestImage colour(kBounds, depth, 3, 0, lockable);
    colour.SetSamples(rgb);
    return {std::move(gray), std::move(colour)};
}

// Each scale k adds weight_k x amount x (v - blur_k): fineReduction 0 is one scale of weight 1 at half the
// radius, fineReduction 1 the scales of weights 0.3 and 0.105 at twice and four times the radius. RGB
// sharpens the luma, which a gray RGB picture has in every plane.
TEST(SharpenProgressive, AddsTheUnsharpMasksOfItsScales)
{
    const float amount = 0.7f, radius = 1.2f;
    ForEachImageKind([&](int32_t depth, bool lockable) {
        const auto pictures = MidGrayPictures(depth, lockable);
        const TestImage &gray = pictures.first, &colour = pictures.second;
        const auto unsharp = [&](float weight, float factor) {
            const TestImage result = gray.Like();
            EXPECT_EQ(KXEffectsUnsharpMask(gray, result, &kBounds, weight * amount, radius * factor, 0.0f), kKXNoErr);
            return Pixels(result);
        };
        const Pixels in(gray), half = unsharp(1.0f, 0.5f), twice = unsharp(0.3f, 2.0f), four = unsharp(0.105f, 4.0f);
        for (float fineReduction : {0.0f, 1.0f}) {
            SCOPED_TRACE(fineReduction);
            const TestImage grayResult = gray.Like(), colourResult = colour.Like();
            ASSERT_EQ(KXEffectsSharpenProgressive(gray, grayResult, &kBounds, amount, radius, fineReduction, 0.0f), 0);
            ASSERT_EQ(KXEffectsSharpenProgressive(colour, colourResult, &kBounds, amount, radius, fineReduction, 0), 0);
            ExpectRegion(grayResult, kBounds, depth == 32 ? 1e-5f : 2.0f, [&](int32_t x, int32_t y, int32_t) {
                return fineReduction == 0.0f ? half.At(x, y, 0) : twice.At(x, y, 0) + four.At(x, y, 0) - in.At(x, y, 0);
            });
            const Pixels want(grayResult);
            ExpectRegion(colourResult, kBounds, depth == 32 ? 1e-5f : 1.0f,
                         [&](int32_t x, int32_t y, int32_t) { return want.At(x, y, 0); });
            // A threshold beyond any change keeps every pixel.
            ASSERT_EQ(KXEffectsSharpenProgressive(colour, colourResult, &kBounds, amount, radius, fineReduction, 3), 0);
            ExpectSameImage(colourResult, colour);
        }
    });
}

} // namespace
